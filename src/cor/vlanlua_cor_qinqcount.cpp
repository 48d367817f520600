/* QINQ_IF_SPEC: one counter of QinQ VLAN pairs per main interface and VR ID, recounted from the
 * stored match rectangles when missing and deleted when it falls to zero. Uses only the
 * platform's names. */
#include "cor/vlanlua_cor_match.h"

#include <cstring>

#include "bas/vlanlua_bas_query.h"

using IfSpec = VlanLuaTbl::QINQ_IF_SPEC;
using Qm = VlanLuaTbl::QINQ_MATCH_SEG;

/* A rectangle as the recount reads it: PE begin, PE end, CE begin, CE end. */
struct QinQRect {
    uint16_t ausSeg[4];
};

/* ---- reading ---- */

extern "C" uint32_t vlanLua_GetQinQTotalNumByMainIf(VLANLUA_CTX_S *pstCtx, uint32_t uiVrId, uint32_t uiMainIfIndex,
                                                    uint32_t *puiTotal)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || puiTotal == nullptr) {
        return 1;
    }
    VlanLuaQuery<IfSpec> query(pstCtx->pObj);
    if (!query.Made()) {
        return 1;
    }
    query.Select<IfSpec::qinqNum>();
    query.Where<IfSpec::vrId>(VLANLUA_OP_EQ, uiVrId);
    query.Where<IfSpec::mainIfIndex>(VLANLUA_OP_EQ, uiMainIfIndex);
    if (query.Query(1) != 0 || VLANLUA_RecordSet_GetDataNum(query.Get()) == 0 ||
        VLANLUA_RecordSet_GetDataBuff(query.Get()) == nullptr) {
        return 1;
    }
    std::memcpy(puiTotal, VLANLUA_RecordSet_GetDataBuff(query.Get()), sizeof(*puiTotal));
    return 0;
}

/* Main interface and VR ID: the records whose pairs the counter sums up. */
static void WhereMainIf(VlanLuaQuery<Qm> &query, uint32_t uiMainIfIndex, uint32_t uiVrId)
{
    query.Where<Qm::mainIfIndex>(VLANLUA_OP_EQ, uiMainIfIndex);
    query.Where<Qm::vrId>(VLANLUA_OP_EQ, uiVrId);
}

extern "C" uint32_t vlanLua_GetQinQMatchCntByMainIf(VLANLUA_CTX_S *pstCtx, uint32_t uiMainIfIndex, uint32_t uiVrId,
                                                    uint32_t *puiCount)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || puiCount == nullptr) {
        return 1;
    }
    VlanLuaQuery<Qm> query(pstCtx->pObj);
    if (!query.Made()) {
        return 1;
    }
    WhereMainIf(query, uiMainIfIndex, uiVrId);
    return query.Count(puiCount);
}

/* Pairs of one rectangle; 32-bit arithmetic. */
static uint32_t RectPairs(const uint8_t *pucRec)
{
    QinQRect stRect;
    std::memcpy(&stRect, pucRec, sizeof(stRect));
    const uint16_t *ausSeg = stRect.ausSeg;
    return (static_cast<uint32_t>(ausSeg[1]) - ausSeg[0] + 1u) * (static_cast<uint32_t>(ausSeg[3]) - ausSeg[2] + 1u);
}

extern "C" uint32_t vlanLua_GetQinQNumsByMainIf(VLANLUA_CTX_S *pstCtx, uint32_t uiVrId, uint32_t uiMainIfIndex,
                                                uint32_t *puiTotal)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || puiTotal == nullptr) {
        return 1;
    }
    VlanLuaQuery<Qm> query(pstCtx->pObj);
    if (!query.Made()) {
        return 1;
    }
    query.SelectRecord<QinQRect, Qm::peBegin, Qm::peEnd, Qm::ceBegin, Qm::ceEnd>();
    WhereMainIf(query, uiMainIfIndex, uiVrId);
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
    if (query.Query(usBound) != 0 || VLANLUA_RecordSet_GetDataNum(query.Get()) == 0 ||
        (pucData = VLANLUA_RecordSet_GetDataBuff(query.Get())) == nullptr) {
        return 1;
    }
    uint32_t uiNum = VLANLUA_RecordSet_GetDataNum(query.Get()) / sizeof(QinQRect);
    for (uint32_t i = 0; i < uiNum; i++) {
        *puiTotal += RectPairs(pucData + static_cast<size_t>(i) * sizeof(QinQRect));
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
    VlanLuaWriteList<IfSpec> list;
    list.Add<IfSpec::vrId>(&pstReq->uiVrId);
    list.Add<IfSpec::mainIfIndex>(&pstReq->uiMainIfIndex);
    list.Add<IfSpec::qinqNum>(&pstReq->uiQinQNum);
    return uiExists == 1 ? list.Set(pstCtx->pObj, 0) : list.Insert(pstCtx->pObj, 0);
}

extern "C" uint32_t vlanLua_DeleteQinQIfSpecRs(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQIFSPEC_S *pstReq)
{
    VlanLuaWriteList<IfSpec> list;
    list.Add<IfSpec::vrId>(&pstReq->uiVrId);
    list.Add<IfSpec::mainIfIndex>(&pstReq->uiMainIfIndex);
    return list.Delete(pstCtx->pObj, 0);
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
