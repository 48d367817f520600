/* The QinQ match table walk. Rows are kept in a sorted list that never holds more than the page
 * it will return: a row that cannot be among the first uiQueryNum is only counted, so a page costs
 * time linear in the rows read. Uses only the platform's names. */
#include "cor/vlanlua_cor_qinq_mib.h"

#include <cstddef>
#include <cstring>

#include "bas/vlanlua_bas_mem.h"
#include "bas/vlanlua_bas_qinqmatch.h"
#include "bas/vlanlua_bas_query.h"
#include "sec_bound.h"
#include "sysdt_spti.h"

using IfInfo = VlanLuaTbl::IF_INFO;
using Qm = VlanLuaTbl::QINQ_MATCH_SEG;

#define QINQMIB_IF_PAGE     64u     /* interfaces read per call */
constexpr uint32_t QINQMIB_IF_KIND = 1;     /* the interface kind whose QinQ match rules are walked */
#define QINQMIB_CE_NONE     4095u   /* a CE range starting here never follows within its PE VLAN */

/* ---- order ---- */

static VLANLUA_QINQMIB_S *RowOf(VLANLUA_SEGLINK_S *pstLink)
{
    return reinterpret_cast<VLANLUA_QINQMIB_S *>(pstLink);     /* the links open the row */
}

static const VLANLUA_QINQMIB_S *RowOf(const VLANLUA_SEGLINK_S *pstLink)
{
    return reinterpret_cast<const VLANLUA_QINQMIB_S *>(pstLink);
}

/* Sign of (interface, PE VLAN, first CE VLAN) of A against B. */
static int RowCompare(const VLANLUA_QINQMIB_S *pstA, const VLANLUA_QINQMIB_S *pstB)
{
    if (pstA->uiIfIndex != pstB->uiIfIndex) {
        return pstA->uiIfIndex > pstB->uiIfIndex ? 1 : -1;
    }
    if (pstA->usPeVlan != pstB->usPeVlan) {
        return pstA->usPeVlan > pstB->usPeVlan ? 1 : -1;
    }
    if (pstA->usCeVlanBegin != pstB->usCeVlanBegin) {
        return pstA->usCeVlanBegin > pstB->usCeVlanBegin ? 1 : -1;
    }
    return 0;
}

extern "C" uint32_t vlanLua_QinQMibCheckIsNeedInsert(const VLANLUA_QINQMIB_S *pstRow,
                                                     const VLANLUA_QINQMIBKEY_S *pstReq)
{
    if (pstRow->uiIfIndex != pstReq->uiIfIndex) {
        return pstRow->uiIfIndex > pstReq->uiIfIndex ? 1u : 0u;
    }
    if (pstRow->usPeVlan != pstReq->uiPeVid) {
        return pstRow->usPeVlan > pstReq->uiPeVid ? 1u : 0u;
    }
    return (pstRow->usCeVlanBegin != QINQMIB_CE_NONE && pstRow->usCeVlanBegin > pstReq->uiCeVid) ? 1u : 0u;
}

/* ---- the sorted list ---- */

/* Searched from the tail: rows mostly arrive in ascending order. */
extern "C" VLANLUA_SEGLINK_S *vlanLua_QinQMibGetInsertPosition(const VLANLUA_QINQMIB_S *pstRow,
                                                               VLANLUA_QINQMIBLIST_S *pstList)
{
    VLANLUA_SEGLINK_S *pstHead = &pstList->stHead;
    VLANLUA_SEGLINK_S *pstLink = pstHead->pstPrev;
    while (pstLink != pstHead && RowCompare(RowOf(pstLink), pstRow) > 0) {
        pstLink = pstLink->pstPrev;
    }
    return pstLink->pstNext;
}

/* The list is full when it holds a whole page; it then holds min(uiCount, uiQueryNum) rows. */
static bool ListIsFull(const VLANLUA_QINQMIBLIST_S *pstList)
{
    return pstList->uiCount >= pstList->uiQueryNum;
}

/* True when a following row would land beyond the page of a full list. */
static bool RowIsBeyondPage(const VLANLUA_QINQMIB_S *pstRow, const VLANLUA_QINQMIBLIST_S *pstList)
{
    const VLANLUA_SEGLINK_S *pstTail = pstList->stHead.pstPrev;
    return ListIsFull(pstList) &&
           (pstTail == &pstList->stHead || RowCompare(RowOf(pstTail), pstRow) <= 0);
}

static void UnlinkRow(VLANLUA_SEGLINK_S *pstLink)
{
    pstLink->pstPrev->pstNext = pstLink->pstNext;
    pstLink->pstNext->pstPrev = pstLink->pstPrev;
}

extern "C" uint32_t vlanLua_QinQMibInsert(VLANLUA_QINQMIB_S *pstRow, VLANLUA_QINQMIBLIST_S *pstList,
                                          const VLANLUA_QINQMIBKEY_S *pstReq)
{
    if (pstRow == nullptr || pstList == nullptr || pstReq == nullptr) {
        return 1;
    }
    if (vlanLua_QinQMibCheckIsNeedInsert(pstRow, pstReq) == 0) {
        VLANLUA_Free(pstRow);
        return 1;
    }
    bool bDropTail = ListIsFull(pstList);
    if (RowIsBeyondPage(pstRow, pstList)) {
        VLANLUA_Free(pstRow);
    } else {
        VLANLUA_SEGLINK_S *pstBefore = vlanLua_QinQMibGetInsertPosition(pstRow, pstList);
        pstRow->stLink.pstNext = pstBefore;
        pstRow->stLink.pstPrev = pstBefore->pstPrev;
        pstBefore->pstPrev->pstNext = &pstRow->stLink;
        pstBefore->pstPrev = &pstRow->stLink;
        if (bDropTail) {
            VLANLUA_SEGLINK_S *pstTail = pstList->stHead.pstPrev;
            UnlinkRow(pstTail);
            VLANLUA_Free(pstTail);
        }
    }
    pstList->uiCount++;
    return 0;
}

extern "C" uint32_t vlanLua_QinQMibDestroy(VLANLUA_QINQMIBLIST_S *pstList)
{
    VLANLUA_SEGLINK_S *pstHead = &pstList->stHead;
    while (pstHead->pstNext != pstHead) {
        VLANLUA_SEGLINK_S *pstLink = pstHead->pstNext;
        UnlinkRow(pstLink);
        VLANLUA_Free(pstLink);
    }
    return 0;
}

/* ---- expanding stored rectangles into rows ---- */

static void RowFromRecord(const uint8_t *pucRec, VLANLUA_QINQMIB_S *pstRow)
{
    VLANLUA_QINQMATCH_S stRec;
    std::memcpy(&stRec, pucRec, sizeof(stRec));
    pstRow->uiIfIndex = stRec.uiIfIndex;
    pstRow->usCeVlanBegin = stRec.usCeBgn;
    pstRow->usCeVlanEnd = stRec.usCeEnd;
    pstRow->ucGroupId = stRec.ucGroupId;
}

/* Inserts a copy of the row unless it is counted only; 1 when memory ran out. */
static uint32_t InsertRowCopy(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMIB_S *pstRow,
                              const VLANLUA_QINQMIBKEY_S *pstReq, VLANLUA_QINQMIBLIST_S *pstList)
{
    if (vlanLua_QinQMibCheckIsNeedInsert(pstRow, pstReq) == 0) {
        return 0;
    }
    if (RowIsBeyondPage(pstRow, pstList)) {
        pstList->uiCount++;
        return 0;
    }
    auto *pstNew = static_cast<VLANLUA_QINQMIB_S *>(VLANLUA_Malloc(pstCtx->pObj, sizeof(VLANLUA_QINQMIB_S)));
    if (pstNew == nullptr) {
        return 1;
    }
    *pstNew = *pstRow;
    (void)vlanLua_QinQMibInsert(pstNew, pstList, pstReq);
    return 0;
}

extern "C" uint32_t vlanLua_QinQMibInsertList(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMIBKEY_S *pstReq,
                                              const uint8_t *pucBuf, uint32_t uiRecNum,
                                              VLANLUA_QINQMIBLIST_S *pstList)
{
    for (uint32_t i = 0; i < uiRecNum; i++) {
        const uint8_t *pucRec = pucBuf + static_cast<size_t>(i) * sizeof(VLANLUA_QINQMATCH_S);
        VLANLUA_QINQMIB_S stRow;
        std::memset(&stRow, 0, sizeof(stRow));
        RowFromRecord(pucRec, &stRow);
        uint16_t usPeBgn;
        uint16_t usPeEnd;
        std::memcpy(&usPeBgn, pucRec + offsetof(VLANLUA_QINQMATCH_S, usPeBgn), 2);
        std::memcpy(&usPeEnd, pucRec + offsetof(VLANLUA_QINQMATCH_S, usPeEnd), 2);
        for (uint32_t v = usPeBgn; v <= usPeEnd; v++) {
            stRow.usPeVlan = static_cast<uint16_t>(v);
            if (InsertRowCopy(pstCtx, &stRow, pstReq, pstList) != 0) {
                return 1;
            }
        }
    }
    return 0;
}

/* ---- reading one interface ---- */

extern "C" uint32_t vlanLua_GetQinQMatchTableByIfIndex(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint32_t uiVrId,
                                                       VLANLUA_RECORDSET_S **ppstRs, uint32_t *puiCount)
{
    VLANLUA_RECORDSET_S *pstRs = *ppstRs;
    vlanLua_SetQinQMatchField(pstRs);
    uint32_t uiDropped = VlanLua_Where<Qm::vrId>(pstRs, VLANLUA_OP_EQ, uiVrId);
    uiDropped |= VlanLua_Where<Qm::ifIndex>(pstRs, VLANLUA_OP_EQ, uiIfIndex);
    if (uiDropped != 0 ||
        ECM_CAPI_QueryCount(pstCtx->pObj, Qm::uiId, pstRs->pstWhere, VLANLUA_QUERY_MODE, puiCount) != 0) {
        return 1;
    }
    if (*puiCount == 0) {
        return 0;
    }
    uint16_t usBound = *puiCount > UINT16_MAX ? static_cast<uint16_t>(UINT16_MAX) : static_cast<uint16_t>(*puiCount);
    return VLANLUA_RecordSet_Query(pstRs, sizeof(VLANLUA_QINQMATCH_S), usBound) != 0 ? 1u : 0u;
}

extern "C" uint32_t vlanLua_QinQMibQueryByIfIndex(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex,
                                                  const VLANLUA_QINQMIBKEY_S *pstReq, VLANLUA_QINQMIBLIST_S *pstList)
{
    VlanLuaQuery<Qm> query(pstCtx->pObj);
    if (!query.Made()) {
        return 1;
    }
    VLANLUA_RECORDSET_S *pstRs = query.Get();
    uint32_t uiCount = 0;
    if (vlanLua_GetQinQMatchTableByIfIndex(pstCtx, uiIfIndex, pstReq->uiVrId, &pstRs, &uiCount) != 0) {
        return 1;
    }
    const uint8_t *pucData = VLANLUA_RecordSet_GetDataBuff(pstRs);
    if (pucData == nullptr) {
        return 1;
    }
    uint32_t uiDelivered = VLANLUA_RecordSet_GetDataNum(pstRs) / sizeof(VLANLUA_QINQMATCH_S);
    return vlanLua_QinQMibInsertList(pstCtx, pstReq, pucData, uiDelivered < uiCount ? uiDelivered : uiCount, pstList);
}

/* ---- the walk over the interfaces ---- */

static void WalkInterfaces(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMIBKEY_S *pstReq, const uint8_t *pucIfs,
                           uint32_t uiIfNum, VLANLUA_QINQMIBLIST_S *pstList)
{
    uint32_t uiPrev = 0;
    for (uint32_t i = 0; i < uiIfNum; i++) {
        uint32_t uiIfIndex;
        std::memcpy(&uiIfIndex, pucIfs + static_cast<size_t>(i) * 4u, 4);
        if (uiIfIndex == uiPrev || vlanLua_QinQMibQueryByIfIndex(pstCtx, uiIfIndex, pstReq, pstList) != 0) {
            continue;
        }
        uiPrev = uiIfIndex;
        if (pstList->uiCount > pstList->uiQueryNum) {
            return;
        }
    }
}

extern "C" uint32_t vlanLua_QinQMibQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMIBKEY_S *pstReq,
                                         VLANLUA_QINQMIBLIST_S *pstList)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstReq == nullptr || pstList == nullptr) {
        return 1;
    }
    VlanLuaQuery<IfInfo> query(pstCtx->pObj);
    if (!query.Made()) {
        return 1;
    }
    query.Select<IfInfo::ifIndex>();
    query.Where<IfInfo::ifIndex>(VLANLUA_OP_GE, pstReq->uiIfIndex);
    query.Where<IfInfo::vrId>(VLANLUA_OP_EQ, pstReq->uiVrId);
    query.Where<IfInfo::kind>(VLANLUA_OP_EQ, QINQMIB_IF_KIND);
    query.SortBy<IfInfo::ifIndex>();
    if (query.Query(QINQMIB_IF_PAGE) != 0) {
        return 1;
    }
    const uint8_t *pucIfs = VLANLUA_RecordSet_GetDataBuff(query.Get());
    if (pucIfs != nullptr) {
        uint32_t uiIfNum = VLANLUA_RecordSet_GetDataNum(query.Get()) / sizeof(uint32_t);
        WalkInterfaces(pstCtx, pstReq, pucIfs, uiIfNum > QINQMIB_IF_PAGE ? QINQMIB_IF_PAGE : uiIfNum, pstList);
    }
    return 0;
}

/* ---- results ---- */

extern "C" uint32_t vlanLua_QinQMibSetOutput(void *pState, const VLANLUA_QINQMIB_S *pstRow, int32_t iTableIdx)
{
    (void)iTableIdx;
    const struct { const char *pcName; uint32_t uiValue; } astFields[] = {
        {"ifIndex", pstRow->uiIfIndex},         {"peVlan", pstRow->usPeVlan},
        {"ceVlanBegin", pstRow->usCeVlanBegin}, {"ceVlanEnd", pstRow->usCeVlanEnd},
        {"groupId", pstRow->ucGroupId},
    };
    for (const auto &field : astFields) {
        SYSDT_SPTI_PushUInt(pState, field.uiValue);
        SYSDT_SPTI_SetField(pState, -2, field.pcName);
    }
    return 0;
}

static void PushRows(void *pState, VLANLUA_QINQMIBLIST_S *pstList)
{
    SYSDT_SPTI_CreateTable(pState, 0, 0);
    int32_t iTableIdx = SYSDT_SPTI_GetTop(pState);
    VLANLUA_SEGLINK_S *pstLink = pstList->stHead.pstNext;
    for (uint32_t i = 1; i <= pstList->uiQueryNum && pstLink != &pstList->stHead; i++, pstLink = pstLink->pstNext) {
        SYSDT_SPTI_PushUInt(pState, i);
        SYSDT_SPTI_CreateTable(pState, 0, 5);
        (void)vlanLua_QinQMibSetOutput(pState, RowOf(pstLink), -1);
        SYSDT_SPTI_SetTable(pState, iTableIdx);
    }
}

extern "C" uint32_t VLAN_API_QinQMibQuery(void *pState, VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMIBKEY_S *pstReq)
{
    VLANLUA_QINQMIBLIST_S stList;
    vlanLua_SegListInit(&stList.stHead);
    stList.uiQueryNum = pstReq != nullptr ? pstReq->uiQueryNum : 0u;
    stList.uiCount = 0;
    uint32_t uiRet = vlanLua_QinQMibQuery(pstCtx, pstReq, &stList);
    if (uiRet == 0) {
        SYSDT_SPTI_PushUInt(pState, 0);
        PushRows(pState, &stList);
    }
    (void)vlanLua_QinQMibDestroy(&stList);
    return uiRet;
}
