/* Probes of the tables that decide whether a VLAN is in use on a layer-2 port: the QinQ
 * stacking map, the layer-2 ports, the port-VLAN relations and the interface protocols.
 * Every probe answers no when the database cannot answer. Uses only the platform's names. */
#ifndef VLANLUA_BAS_PV_H
#define VLANLUA_BAS_PV_H

#include <stdint.h>

#include "vlanlua_db.h"
#include "vlanlua_pub.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A relation record as read: port index at 0, first bitmap at 4, second at 516. */
#define VLANLUA_PV_REC_LEN        1028
#define VLANLUA_PV_REC_PORT_OFF   0
#define VLANLUA_PV_REC_BMP1_OFF   4
#define VLANLUA_PV_REC_BMP2_OFF   516

/* All relation records of a VR; owns the record set that holds them until freed. */
typedef struct {
    VLANLUA_RECORDSET_S *pstRs;
    uint8_t *pucRec;
    uint32_t uiRecNum;
} VLANLUA_PV_LIST_S;

uint32_t VLANLUA_L2QinQBuild_IsStackMapVidExist(VLANLUA_CTX_S *pstCtx, uint16_t usVlanId, uint32_t uiVrId);
uint32_t VLANLUA_L2Port_IsPvIdExistByVlanSeg(VLANLUA_CTX_S *pstCtx, uint16_t usFirstVlan, uint16_t usLastVlan,
                                             uint32_t uiVrId);
uint32_t VLANLUA_L2Port_IsNegotiationEnabled(VLANLUA_CTX_S *pstCtx, uint32_t uiPortIndex);
/* A sub-code of 0x30 adds no sub-code condition; a further key of 0 adds no key condition. */
uint32_t VLANLUA_IFM_IsProtocolEnabled(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint8_t ucProto, uint8_t ucSubCode,
                                       uint32_t uiKey);
/* Number of relation records of the VR; 0 on failure. */
uint32_t VLANLUA_PvRelation_L2PortCnt(VLANLUA_CTX_S *pstCtx, uint32_t uiVrId);
/* Fills the list with the VR's relation records, or leaves it empty. */
void VLANLUA_PvRelation_QueryAll(VLANLUA_CTX_S *pstCtx, uint32_t uiVrId, VLANLUA_PV_LIST_S *pstList);
void VLANLUA_PvRelation_Free(VLANLUA_PV_LIST_S *pstList);

#ifdef __cplusplus
}
#endif
#endif
