/* The port VLAN usage decision over the four probed tables. The relation list is freed on
 * every path that read it. Uses only the platform's names. */
#include "cor/vlanlua_cor_pv.h"

#include <cstring>

#include "bas/vlanlua_bas_bitmap.h"
#include "bas/vlanlua_bas_pv.h"

namespace {

uint32_t RecPortIndex(const uint8_t *pucRec)
{
    uint32_t uiPort;
    std::memcpy(&uiPort, pucRec + VLANLUA_PV_REC_PORT_OFF, sizeof(uiPort));
    return uiPort;
}

/* Scans the VR's relation records in order; 1 at the first port that uses the VLAN. */
uint32_t AnyRelationUsesVlan(VLANLUA_CTX_S *pstCtx, const VLANLUA_PV_REQ_S *pstReq)
{
    VLANLUA_PV_LIST_S stList{};
    VLANLUA_PvRelation_QueryAll(pstCtx, pstReq->uiVrId, &stList);
    uint32_t uiUsed = 0;
    for (uint32_t i = 0; i < stList.uiRecNum && uiUsed == 0; i++) {
        uiUsed = VLANLUA_COR_PV_VlanInPortByPvRec(pstCtx, stList.pucRec + static_cast<size_t>(i) * VLANLUA_PV_REC_LEN,
                                                  pstReq->usVlanId, pstReq->uiPortProtoCheck);
    }
    VLANLUA_PvRelation_Free(&stList);
    return uiUsed;
}

}  // namespace

extern "C" uint32_t VLANLUA_COR_PV_VlanInPortByPvRec(VLANLUA_CTX_S *pstCtx, const uint8_t *pucRec,
                                                     uint32_t uiVlanId, uint32_t uiProtoCheck)
{
    if (VlanLua_IsVlanInBitMap(pucRec + VLANLUA_PV_REC_BMP1_OFF, uiVlanId) == 0 &&
        VlanLua_IsVlanInBitMap(pucRec + VLANLUA_PV_REC_BMP2_OFF, uiVlanId) == 0) {
        return 0;
    }
    uint32_t uiPort = RecPortIndex(pucRec);
    if (uiProtoCheck != 0 && VLANLUA_IFM_IsProtocolEnabled(pstCtx, uiPort, VLANLUA_PV_EXEMPT_PROTO, 0, 0) != 0) {
        return 0;
    }
    return VLANLUA_L2Port_IsNegotiationEnabled(pstCtx, uiPort) == 0 ? 1 : 0;
}

extern "C" uint32_t VLANLUA_COR_PV_VlanInPort(VLANLUA_CTX_S *pstCtx, const VLANLUA_PV_REQ_S *pstReq)
{
    if (pstReq->uiStackMapCheck != 0 &&
        VLANLUA_L2QinQBuild_IsStackMapVidExist(pstCtx, pstReq->usVlanId, pstReq->uiVrId) != 0) {
        return 1;
    }
    if (VLANLUA_L2Port_IsPvIdExistByVlanSeg(pstCtx, pstReq->usVlanId, pstReq->usVlanId, pstReq->uiVrId) != 0) {
        return 1;
    }
    return AnyRelationUsesVlan(pstCtx, pstReq);
}
