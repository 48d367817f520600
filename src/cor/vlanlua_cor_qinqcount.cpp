/* QINQ_IF_SPEC: one counter of QinQ VLAN pairs per main interface and VR ID, recounted from the
 * stored match rectangles when missing and deleted when it falls to zero. Uses only the
 * platform's names. */
#include "cor/vlanlua_cor_match.h"

#include <cstring>

#include "bas/vlanlua_bas_mem.h"

#define QINQSPEC_FLD_VRID    1
#define QINQSPEC_FLD_MAINIF  2
#define QINQSPEC_FLD_NUM     3

/* ---- reading ---- */

extern "C" uint32_t vlanLua_GetQinQTotalNumByMainIf(VLANLUA_CTX_S *pstCtx, uint32_t uiVrId, uint32_t uiMainIfIndex,
                                                    uint32_t *puiTotal)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || puiTotal == nullptr) {
        return 1;
    }
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_QINQ_IF_SPEC));
    if (rs.Get() == nullptr) {
        return 1;
    }
    VLANLUA_RecordSet_SelectField(rs.Get(), QINQSPEC_FLD_NUM, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, QINQSPEC_FLD_VRID, &uiVrId, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, QINQSPEC_FLD_MAINIF, &uiMainIfIndex, 4);
    if (VLANLUA_RecordSet_QueryFld(rs.Get(), 1) != 0 || VLANLUA_RecordSet_GetDataNum(rs.Get()) == 0 ||
        VLANLUA_RecordSet_GetDataBuff(rs.Get()) == nullptr) {
        return 1;
    }
    std::memcpy(puiTotal, VLANLUA_RecordSet_GetDataBuff(rs.Get()), 4);
    return 0;
}

/* Main interface and VR ID: the records whose pairs the counter sums up. */
static void WhereMainIf(VLANLUA_RECORDSET_S *pstRs, const uint32_t *puiMainIfIndex, const uint32_t *puiVrId)
{
    (void)VLANLUA_RecordSet_Where(pstRs, VLANLUA_OP_EQ, VLANLUA_QINQMATCH_FLD_MAINIF, puiMainIfIndex, 4);
    (void)VLANLUA_RecordSet_Where(pstRs, VLANLUA_OP_EQ, VLANLUA_QINQMATCH_FLD_VRID, puiVrId, 4);
}

extern "C" uint32_t vlanLua_GetQinQMatchCntByMainIf(VLANLUA_CTX_S *pstCtx, uint32_t uiMainIfIndex, uint32_t uiVrId,
                                                    uint32_t *puiCount)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || puiCount == nullptr) {
        return 1;
    }
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_QINQ_MATCH_SEG));
    if (rs.Get() == nullptr) {
        return 1;
    }
    WhereMainIf(rs.Get(), &uiMainIfIndex, &uiVrId);
    return ECM_CAPI_QueryCount(pstCtx->pObj, VLANLUA_TBL_QINQ_MATCH_SEG, rs.Get()->pstWhere, VLANLUA_QUERY_MODE,
                               puiCount);
}

/* Pairs of one rectangle given as PE begin, PE end, CE begin, CE end; 32-bit arithmetic. */
static uint32_t RectPairs(const uint8_t *pucRec)
{
    uint16_t ausSeg[4];
    std::memcpy(ausSeg, pucRec, sizeof(ausSeg));
    return (static_cast<uint32_t>(ausSeg[1]) - ausSeg[0] + 1u) * (static_cast<uint32_t>(ausSeg[3]) - ausSeg[2] + 1u);
}

extern "C" uint32_t vlanLua_GetQinQNumsByMainIf(VLANLUA_CTX_S *pstCtx, uint32_t uiVrId, uint32_t uiMainIfIndex,
                                                uint32_t *puiTotal)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || puiTotal == nullptr) {
        return 1;
    }
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_QINQ_MATCH_SEG));
    if (rs.Get() == nullptr) {
        return 1;
    }
    for (uint8_t ucField = 4; ucField <= 7; ucField++) {
        VLANLUA_RecordSet_SelectField(rs.Get(), ucField, 2);
    }
    WhereMainIf(rs.Get(), &uiMainIfIndex, &uiVrId);
    uint32_t uiCount = 0;
    if (vlanLua_GetQinQMatchCntByMainIf(pstCtx, uiMainIfIndex, uiVrId, &uiCount) != 0) {
        return 1;
    }
    if (uiCount == 0) {
        *puiTotal = 0;
        return 0;
    }
    uint16_t usBound = uiCount > UINT16_MAX ? static_cast<uint16_t>(UINT16_MAX) : static_cast<uint16_t>(uiCount);
    const uint8_t *pucData = nullptr;
    if (VLANLUA_RecordSet_Query(rs.Get(), 8, usBound) != 0 || VLANLUA_RecordSet_GetDataNum(rs.Get()) == 0 ||
        (pucData = VLANLUA_RecordSet_GetDataBuff(rs.Get())) == nullptr) {
        return 1;
    }
    uint32_t uiNum = VLANLUA_RecordSet_GetDataNum(rs.Get()) / 8u;
    for (uint32_t i = 0; i < uiNum; i++) {
        *puiTotal += RectPairs(pucData + static_cast<size_t>(i) * 8u);
    }
    return 0;
}

/* ---- updating ---- */

extern "C" void vlanLua_UpDataQinQNum(VLANLUA_QINQIFSPEC_S *pstReq, uint32_t uiStored)
{
    if (pstReq->uiIsAdd == 1) {
        pstReq->uiQinQNum = uiStored + pstReq->uiQinQNum;
    } else {
        pstReq->uiQinQNum = pstReq->uiQinQNum > uiStored ? 0u : uiStored - pstReq->uiQinQNum;
    }
}

extern "C" uint32_t vlanLua_CreatorSetQinQIfSpecRs(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQIFSPEC_S *pstReq,
                                                   uint32_t uiExists)
{
    const VLANLUA_FIELDVAL_S astFields[] = {
        {VLANLUA_TYPE_VRID, QINQSPEC_FLD_VRID, 4, &pstReq->uiVrId},
        {VLANLUA_TYPE_U32, QINQSPEC_FLD_MAINIF, 4, &pstReq->uiMainIfIndex},
        {VLANLUA_TYPE_U32, QINQSPEC_FLD_NUM, 4, &pstReq->uiQinQNum},
    };
    const auto *pstList = reinterpret_cast<const ECM_FIELDVAL_S *>(astFields);
    if (uiExists == 1) {
        return ECM_CAPI_SetRecord(pstCtx->pObj, VLANLUA_TBL_QINQ_IF_SPEC, pstList, 3, 0);
    }
    return ECM_CAPI_InsertRecord(pstCtx->pObj, VLANLUA_TBL_QINQ_IF_SPEC, pstList, 3, 0);
}

extern "C" uint32_t vlanLua_DeleteQinQIfSpecRs(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQIFSPEC_S *pstReq)
{
    const VLANLUA_FIELDVAL_S astKey[] = {
        {VLANLUA_TYPE_VRID, QINQSPEC_FLD_VRID, 4, &pstReq->uiVrId},
        {VLANLUA_TYPE_U32, QINQSPEC_FLD_MAINIF, 4, &pstReq->uiMainIfIndex},
    };
    return ECM_CAPI_DeleteRecord(pstCtx->pObj, VLANLUA_TBL_QINQ_IF_SPEC,
                                 reinterpret_cast<const ECM_FIELDVAL_S *>(astKey), 2, 0);
}

extern "C" uint32_t vlanLua_UpDataDimByMainIf(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQIFSPEC_S *pstReq,
                                              uint32_t uiExists)
{
    if (pstReq->uiQinQNum != 0) {
        return vlanLua_CreatorSetQinQIfSpecRs(pstCtx, pstReq, uiExists);
    }
    return uiExists == 1 ? vlanLua_DeleteQinQIfSpecRs(pstCtx, pstReq) : 0u;
}

extern "C" uint32_t vlanLua_UpdataQinQIfSpec(VLANLUA_LOG_S *pstLog, void *pObj, VLANLUA_QINQIFSPEC_S *pstReq)
{
    VLANLUA_CTX_S stCtx = {pstLog, pObj};
    if (pObj == nullptr || pstReq == nullptr) {
        return 1;
    }
    uint32_t uiStored = 0;
    uint32_t uiExists = 1;
    if (vlanLua_GetQinQTotalNumByMainIf(&stCtx, pstReq->uiVrId, pstReq->uiMainIfIndex, &uiStored) != 0) {
        uiStored = 0;
        uiExists = 0;
        if (vlanLua_GetQinQNumsByMainIf(&stCtx, pstReq->uiVrId, pstReq->uiMainIfIndex, &uiStored) != 0) {
            return 1;
        }
    }
    vlanLua_UpDataQinQNum(pstReq, uiStored);
    return vlanLua_UpDataDimByMainIf(&stCtx, pstReq, uiExists);
}
