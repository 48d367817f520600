/* The decision whether a VLAN is in use on some layer-2 port of a VR: the stacking map, the
 * PVIDs, then every port-VLAN relation, stopping at the first that finds it used.
 * Uses only the platform's names. */
#ifndef VLANLUA_COR_PV_H
#define VLANLUA_COR_PV_H

#include <stdint.h>

#include "vlanlua_pub.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Request of the port VLAN usage check, in this order. */
typedef struct {
    uint32_t uiVrId;            /* argument 2 */
    uint32_t uiPortProtoCheck;  /* argument 4: not 0, ports with protocol 37 enabled do not count */
    uint32_t uiStackMapCheck;   /* argument 3: not 0, a VLAN of the stacking map counts as used */
    uint16_t usVlanId;          /* argument 1, low 16 bits */
} VLANLUA_PV_REQ_S;

/* The protocol whose ports may be left out of the check. */
#define VLANLUA_PV_EXEMPT_PROTO  37

/* 1 when the port of this relation record uses the VLAN, else 0. */
uint32_t VLANLUA_COR_PV_VlanInPortByPvRec(VLANLUA_CTX_S *pstCtx, const uint8_t *pucRec, uint32_t uiVlanId,
                                          uint32_t uiProtoCheck);
/* 1 when the VLAN is used in the VR, else 0. */
uint32_t VLANLUA_COR_PV_VlanInPort(VLANLUA_CTX_S *pstCtx, const VLANLUA_PV_REQ_S *pstReq);
/* Reads the four arguments; 0, or 1 after appending the reason. */
uint32_t VLANLUA_COR_PV_VlanInPortParse(void *pState, VLANLUA_CTX_S *pstCtx, VLANLUA_PV_REQ_S *pstReq);

#ifdef __cplusplus
}
#endif
#endif
