/* Interface and layer-2 probes: single-record reads of IF_INFO, L2SUP_CFG and PWSUP_CFG.
 * Uses only the platform's names. */
#ifndef VLANLUA_BAS_IFM_H
#define VLANLUA_BAS_IFM_H

#include <stdint.h>

#include "vlanlua_pub.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Main interface of a sub-interface; a sub-interface without a record gives 0 and main 0. */
uint32_t vlanLua_GetMainifBySubif(VLANLUA_CTX_S *pstCtx, uint32_t uiSubIfIndex, uint32_t *puiMainIfIndex);
/* 1 when layer-2 support is configured on the interface; 0 when not, or when unknown. */
uint32_t VlanLua_IsL2SupConfig(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex);
/* 1 when pseudowire support is configured on the interface in the object's own VR; else 0. */
uint32_t VlanLua_IsPwSupConfig(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex);

#ifdef __cplusplus
}
#endif
#endif
