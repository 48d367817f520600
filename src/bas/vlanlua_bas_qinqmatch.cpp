/* QINQ_MATCH_SEG: one record per stored rectangle of a sub-interface, keyed by interface and
 * segment index; rectangles fuse only within one interface, VR ID and group ID.
 * Uses only the platform's names. */
#include "bas/vlanlua_bas_qinqmatch.h"

#include <cstddef>
#include <cstring>

#include "bas/vlanlua_bas_query.h"
#include "sec_bound.h"

using Qm = VlanLuaTbl::QINQ_MATCH_SEG;

/* Address of a field of the packed record, as a byte pointer (no unaligned typed pointer). */
#define QINQ_FIELD_PTR(pstRec, member) \
    (reinterpret_cast<const uint8_t *>(pstRec) + offsetof(VLANLUA_QINQMATCH_S, member))

/* ---- selection and conditions ---- */

extern "C" void vlanLua_SetQinQMatchField(VLANLUA_RECORDSET_S *pstRs)
{
    VlanLua_SelectRecord<VLANLUA_QINQMATCH_S, Qm::attr1, Qm::ifIndex, Qm::segIndex, Qm::peBegin, Qm::peEnd,
                         Qm::ceBegin, Qm::ceEnd, Qm::vrId, Qm::mainIfIndex, Qm::groupId, Qm::upId, Qm::keyName>(pstRs);
}

/* Interface, VR ID and group ID: the scope within which rectangles fuse. */
static void WhereSameScope(VlanLuaQuery<Qm> &query, const VLANLUA_QINQMATCH_S *pstRec)
{
    query.Where<Qm::ifIndex>(VLANLUA_OP_EQ, pstRec->uiIfIndex);
    query.Where<Qm::vrId>(VLANLUA_OP_EQ, pstRec->uiVrId);
    query.Where<Qm::groupId>(VLANLUA_OP_EQ, pstRec->ucGroupId);
}

extern "C" uint32_t vlanLua_QinQRecordCnt(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMATCH_S *pstRec,
                                          uint32_t *puiCount)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstRec == nullptr || puiCount == nullptr) {
        return 1;
    }
    VlanLuaQuery<Qm> query(pstCtx->pObj);
    if (!query.Made()) {
        return 1;
    }
    WhereSameScope(query, pstRec);
    return query.Count(puiCount);
}

/* ---- reading the stored rectangles ---- */

static void RecordSegs(const uint8_t *pucRec, VLANLUA_VIDSEG_S *pstPe, VLANLUA_VIDSEG_S *pstCe)
{
    std::memcpy(pstPe, pucRec + offsetof(VLANLUA_QINQMATCH_S, usPeBgn), sizeof(*pstPe));
    std::memcpy(pstCe, pucRec + offsetof(VLANLUA_QINQMATCH_S, usCeBgn), sizeof(*pstCe));
}

static VLANLUA_SEGNODE_S *StoredNodeNew(VLANLUA_CTX_S *pstCtx, const uint8_t *pucRec)
{
    auto *pstNode = static_cast<VLANLUA_SEGNODE_S *>(VLANLUA_Malloc(pstCtx->pObj, sizeof(VLANLUA_SEGNODE_S)));
    if (pstNode == nullptr) {
        return nullptr;
    }
    (void)memset_s(pstNode, sizeof(*pstNode), 0, sizeof(*pstNode));
    pstNode->uiState = VIDSEG_STATE_ORIGIN;
    RecordSegs(pucRec, &pstNode->stPeSeg, &pstNode->stCeSeg);
    std::memcpy(&pstNode->uiSegIndex, pucRec + offsetof(VLANLUA_QINQMATCH_S, uiSegIndex), sizeof(uint32_t));
    return pstNode;
}

/* Turns the buffer's records into ORIGIN nodes and counts those adjacent to the new rectangle. */
static uint32_t ListStoredRecords(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMATCH_S *pstNew, const uint8_t *pucData,
                                  uint32_t uiNum, VLANLUA_SEGLINK_S *pstList, uint32_t *puiAdjCount)
{
    VLANLUA_VIDSEG_S stNewPe;
    VLANLUA_VIDSEG_S stNewCe;
    RecordSegs(reinterpret_cast<const uint8_t *>(pstNew), &stNewPe, &stNewCe);
    for (uint32_t i = 0; i < uiNum; i++) {
        VLANLUA_SEGNODE_S *pstNode = StoredNodeNew(pstCtx, pucData + static_cast<size_t>(i) * sizeof(*pstNew));
        if (pstNode == nullptr) {
            (void)vlanLua_SegsDestroy(pstCtx, pstList);
            return 1;
        }
        if (vlanLua_VidSegIsAdjacent(&stNewPe, &stNewCe, &pstNode->stPeSeg, &pstNode->stCeSeg) != 0) {
            (*puiAdjCount)++;
        }
        vlanLua_SegListAppend(pstList, pstNode);
    }
    return 0;
}

static uint16_t QueryBound(uint32_t uiCount)
{
    return uiCount > UINT16_MAX ? static_cast<uint16_t>(UINT16_MAX) : static_cast<uint16_t>(uiCount);
}

extern "C" uint32_t vlanLua_QinQReadIfSegs(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMATCH_S *pstNew,
                                           VLANLUA_SEGLINK_S *pstList, uint32_t *puiAdjCount)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstNew == nullptr || pstList == nullptr ||
        puiAdjCount == nullptr) {
        return 1;
    }
    *puiAdjCount = 0;
    VlanLuaQuery<Qm> query(pstCtx->pObj);
    if (!query.Made()) {
        return 1;
    }
    vlanLua_SetQinQMatchField(query.Get());
    WhereSameScope(query, pstNew);
    uint32_t uiCount = 0;
    if (query.Count(&uiCount) != 0) {
        return 1;
    }
    if (uiCount == 0) {
        return 0;
    }
    const VLANLUA_RECORDSET_S *pstRs = query.Get();
    if (query.Query(QueryBound(uiCount)) != 0 || VLANLUA_RecordSet_GetDataNum(pstRs) == 0 ||
        VLANLUA_RecordSet_GetDataBuff(pstRs) == nullptr) {
        return 1;
    }
    uint32_t uiNum = VLANLUA_RecordSet_GetDataNum(pstRs) / sizeof(VLANLUA_QINQMATCH_S);
    return ListStoredRecords(pstCtx, pstNew, VLANLUA_RecordSet_GetDataBuff(pstRs), uiNum, pstList, puiAdjCount);
}

extern "C" uint32_t vlanLua_QinQAddQSegTo(const VLANLUA_QINQMATCH_S *pstRec, uint32_t uiState,
                                          VLANLUA_SEGNODE_S *pstNode)
{
    if (pstNode == nullptr || pstRec == nullptr) {
        return 1;
    }
    pstNode->uiState = uiState == 0 ? VIDSEG_STATE_ORIGIN : uiState;
    RecordSegs(reinterpret_cast<const uint8_t *>(pstRec), &pstNode->stPeSeg, &pstNode->stCeSeg);
    pstNode->uiSegIndex = pstRec->uiSegIndex;
    return 0;
}

/* ---- writes ---- */

extern "C" uint32_t vlanLua_QinQInsertSegs(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMATCH_S *pstRec)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstRec == nullptr) {
        return 1;
    }
    VlanLuaWriteList<Qm> list;
    list.AddBytes<Qm::attr1>(QINQ_FIELD_PTR(pstRec, uiAttr1));
    list.AddBytes<Qm::ifIndex>(QINQ_FIELD_PTR(pstRec, uiIfIndex));
    list.AddBytes<Qm::segIndex>(QINQ_FIELD_PTR(pstRec, uiSegIndex));
    list.AddBytes<Qm::peBegin>(QINQ_FIELD_PTR(pstRec, usPeBgn));
    list.AddBytes<Qm::peEnd>(QINQ_FIELD_PTR(pstRec, usPeEnd));
    list.AddBytes<Qm::ceBegin>(QINQ_FIELD_PTR(pstRec, usCeBgn));
    list.AddBytes<Qm::ceEnd>(QINQ_FIELD_PTR(pstRec, usCeEnd));
    list.AddBytes<Qm::groupId>(QINQ_FIELD_PTR(pstRec, ucGroupId));
    list.AddBytes<Qm::vrId>(QINQ_FIELD_PTR(pstRec, uiVrId));
    list.AddBytes<Qm::mainIfIndex>(QINQ_FIELD_PTR(pstRec, uiMainIfIndex));
    list.AddBytes<Qm::upId>(QINQ_FIELD_PTR(pstRec, uiUpId));
    list.AddBytes<Qm::keyName>(QINQ_FIELD_PTR(pstRec, szKeyName));
    return list.Insert(pstCtx->pObj, 1);
}

extern "C" uint32_t vlanLua_QinQDeleteSegs(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint32_t uiSegIndex)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr) {
        return 1;
    }
    VlanLuaWriteList<Qm> list;
    list.Add<Qm::ifIndex>(&uiIfIndex);
    list.Add<Qm::segIndex>(&uiSegIndex);
    return list.Delete(pstCtx->pObj, 1);
}
