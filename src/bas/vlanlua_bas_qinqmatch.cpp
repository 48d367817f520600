/* QINQ_MATCH_SEG: one record per stored rectangle of a sub-interface, keyed by interface and
 * segment index; rectangles fuse only within one interface, VR ID and group ID.
 * Uses only the platform's names. */
#include "bas/vlanlua_bas_qinqmatch.h"

#include <cstddef>
#include <cstring>

#include "bas/vlanlua_bas_mem.h"
#include "sec_bound.h"

/* Address of a field of the packed record, as a byte pointer (no unaligned typed pointer). */
#define QINQ_FIELD_PTR(pstRec, member) \
    (reinterpret_cast<const uint8_t *>(pstRec) + offsetof(VLANLUA_QINQMATCH_S, member))

/* ---- selection and conditions ---- */

extern "C" void vlanLua_SetQinQMatchField(VLANLUA_RECORDSET_S *pstRs)
{
    static const struct { uint8_t ucField; uint8_t ucWidth; } astSel[] = {
        {1, 4}, {2, 4}, {3, 4}, {4, 2}, {5, 2}, {6, 2}, {7, 2}, {9, 4}, {10, 4}, {8, 1}, {11, 4},
        {12, VLANLUA_QINQ_KEYNAME_LEN},
    };
    for (const auto &sel : astSel) {
        VLANLUA_RecordSet_SelectField(pstRs, sel.ucField, sel.ucWidth);
    }
}

/* Interface, VR ID and group ID: the scope within which rectangles fuse. */
static void WhereSameScope(VLANLUA_RECORDSET_S *pstRs, const VLANLUA_QINQMATCH_S *pstRec)
{
    (void)VLANLUA_RecordSet_Where(pstRs, VLANLUA_OP_EQ, VLANLUA_QINQMATCH_FLD_IFINDEX,
                                  QINQ_FIELD_PTR(pstRec, uiIfIndex), 4);
    (void)VLANLUA_RecordSet_Where(pstRs, VLANLUA_OP_EQ, VLANLUA_QINQMATCH_FLD_VRID, QINQ_FIELD_PTR(pstRec, uiVrId),
                                  4);
    (void)VLANLUA_RecordSet_Where(pstRs, VLANLUA_OP_EQ, VLANLUA_QINQMATCH_FLD_GROUP,
                                  QINQ_FIELD_PTR(pstRec, ucGroupId), 1);
}

extern "C" uint32_t vlanLua_QinQRecordCnt(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMATCH_S *pstRec,
                                          uint32_t *puiCount)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstRec == nullptr || puiCount == nullptr) {
        return 1;
    }
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_QINQ_MATCH_SEG));
    if (rs.Get() == nullptr) {
        return 1;
    }
    WhereSameScope(rs.Get(), pstRec);
    return ECM_CAPI_QueryCount(pstCtx->pObj, VLANLUA_TBL_QINQ_MATCH_SEG, rs.Get()->pstWhere, VLANLUA_QUERY_MODE,
                               puiCount);
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
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_QINQ_MATCH_SEG));
    if (rs.Get() == nullptr) {
        return 1;
    }
    vlanLua_SetQinQMatchField(rs.Get());
    WhereSameScope(rs.Get(), pstNew);
    uint32_t uiCount = 0;
    if (ECM_CAPI_QueryCount(pstCtx->pObj, VLANLUA_TBL_QINQ_MATCH_SEG, rs.Get()->pstWhere, VLANLUA_QUERY_MODE,
                            &uiCount) != 0) {
        return 1;
    }
    if (uiCount == 0) {
        return 0;
    }
    if (VLANLUA_RecordSet_Query(rs.Get(), sizeof(VLANLUA_QINQMATCH_S), QueryBound(uiCount)) != 0 ||
        VLANLUA_RecordSet_GetDataNum(rs.Get()) == 0 || VLANLUA_RecordSet_GetDataBuff(rs.Get()) == nullptr) {
        return 1;
    }
    uint32_t uiNum = VLANLUA_RecordSet_GetDataNum(rs.Get()) / sizeof(VLANLUA_QINQMATCH_S);
    return ListStoredRecords(pstCtx, pstNew, VLANLUA_RecordSet_GetDataBuff(rs.Get()), uiNum, pstList, puiAdjCount);
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
    const VLANLUA_FIELDVAL_S astFields[] = {
        {VLANLUA_TYPE_U32, 1, 4, QINQ_FIELD_PTR(pstRec, uiAttr1)},
        {VLANLUA_TYPE_U32, 2, 4, QINQ_FIELD_PTR(pstRec, uiIfIndex)},
        {VLANLUA_TYPE_U32, 3, 4, QINQ_FIELD_PTR(pstRec, uiSegIndex)},
        {VLANLUA_TYPE_U16, 4, 2, QINQ_FIELD_PTR(pstRec, usPeBgn)},
        {VLANLUA_TYPE_U16, 5, 2, QINQ_FIELD_PTR(pstRec, usPeEnd)},
        {VLANLUA_TYPE_U16, 6, 2, QINQ_FIELD_PTR(pstRec, usCeBgn)},
        {VLANLUA_TYPE_U16, 7, 2, QINQ_FIELD_PTR(pstRec, usCeEnd)},
        {VLANLUA_TYPE_U8, 8, 1, QINQ_FIELD_PTR(pstRec, ucGroupId)},
        {VLANLUA_TYPE_VRID, 9, 4, QINQ_FIELD_PTR(pstRec, uiVrId)},
        {VLANLUA_TYPE_U32, 10, 4, QINQ_FIELD_PTR(pstRec, uiMainIfIndex)},
        {VLANLUA_TYPE_U32, 11, 4, QINQ_FIELD_PTR(pstRec, uiUpId)},
        {VLANLUA_TYPE_TEXT, 12, VLANLUA_QINQ_KEYNAME_LEN, QINQ_FIELD_PTR(pstRec, szKeyName)},
    };
    return ECM_CAPI_InsertRecord(pstCtx->pObj, VLANLUA_TBL_QINQ_MATCH_SEG,
                                 reinterpret_cast<const ECM_FIELDVAL_S *>(astFields), 12, 1);
}

extern "C" uint32_t vlanLua_QinQDeleteSegs(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint32_t uiSegIndex)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr) {
        return 1;
    }
    const VLANLUA_FIELDVAL_S astKey[] = {
        {VLANLUA_TYPE_U32, 2, 4, &uiIfIndex},
        {VLANLUA_TYPE_U32, 3, 4, &uiSegIndex},
    };
    return ECM_CAPI_DeleteRecord(pstCtx->pObj, VLANLUA_TBL_QINQ_MATCH_SEG,
                                 reinterpret_cast<const ECM_FIELDVAL_S *>(astKey), 2, 1);
}
