/* The Dot1Q and QinQ match merges: a new range or rectangle fuses with the stored ones it abuts
 * and is stored under a fresh segment index; the absorbed records are deleted. Writes are not
 * rolled back. Uses only the platform's names. */
#include "cor/vlanlua_cor_match.h"

#include <cstring>

#include "bas/vlanlua_bas_query.h"
#include "bas/vlanlua_bas_segindex.h"

using Dot1Q = VlanLuaTbl::DOT1Q_MATCH_SEG;

/* ---- Dot1Q neighbours ---- */

/* Which end of the new range a neighbour touches. */
enum class Dot1QSide { Left, Right };

/* Reads the stored range of the same interface and group that abuts the new one on one side.
 * *pbFound tells whether a record was delivered; the out record changes only then. */
static uint32_t Dot1QReadNeighbour(VLANLUA_CTX_S *pstCtx, const VLANLUA_DOT1QMATCH_S *pstNew, Dot1QSide eSide,
                                   VLANLUA_DOT1QMATCH_S *pstOut, bool *pbFound)
{
    *pbFound = false;
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstNew == nullptr || pstOut == nullptr) {
        return 1;
    }
    bool bLeft = eSide == Dot1QSide::Left;
    if (bLeft ? pstNew->usBgn == 1 : pstNew->usEnd == VLANLUA_VLAN_MAX) {
        return 1;
    }
    VlanLuaQuery<Dot1Q> query(pstCtx->pObj);
    if (!query.Made()) {
        return 1;
    }
    /* A left neighbour ends just below the new range and gives its begin; a right one mirrors it. */
    auto usTouch = static_cast<uint16_t>(bLeft ? pstNew->usBgn - 1 : pstNew->usEnd + 1);
    query.Select<Dot1Q::segIndex>();
    if (bLeft) {
        query.Select<Dot1Q::vlanBegin>();
    } else {
        query.Select<Dot1Q::vlanEnd>();
    }
    query.Where<Dot1Q::ifIndex>(VLANLUA_OP_EQ, pstNew->uiIfIndex);
    if (bLeft) {
        query.Where<Dot1Q::vlanEnd>(VLANLUA_OP_EQ, usTouch);
    } else {
        query.Where<Dot1Q::vlanBegin>(VLANLUA_OP_EQ, usTouch);
    }
    query.Where<Dot1Q::groupId>(VLANLUA_OP_EQ, pstNew->ucGroupId);
    if (query.Query(1) != 0) {
        return 1;
    }
    const uint8_t *pucData = VLANLUA_RecordSet_GetDataBuff(query.Get());
    if (VLANLUA_RecordSet_GetDataNum(query.Get()) != 0 && pucData != nullptr) {
        std::memcpy(&pstOut->uiSegIndex, pucData, Dot1Q::segIndex::usWidth);
        std::memcpy(bLeft ? &pstOut->usBgn : &pstOut->usEnd, pucData + Dot1Q::segIndex::usWidth,
                    Dot1Q::vlanBegin::usWidth);
        *pbFound = true;
    }
    return 0;
}

extern "C" uint32_t vlanLua_Dot1QReadSegLeft(VLANLUA_CTX_S *pstCtx, const VLANLUA_DOT1QMATCH_S *pstNew,
                                             VLANLUA_DOT1QMATCH_S *pstOut)
{
    bool bFound = false;
    return Dot1QReadNeighbour(pstCtx, pstNew, Dot1QSide::Left, pstOut, &bFound);
}

extern "C" uint32_t vlanLua_Dot1QReadSegRight(VLANLUA_CTX_S *pstCtx, const VLANLUA_DOT1QMATCH_S *pstNew,
                                              VLANLUA_DOT1QMATCH_S *pstOut)
{
    bool bFound = false;
    return Dot1QReadNeighbour(pstCtx, pstNew, Dot1QSide::Right, pstOut, &bFound);
}

/* ---- Dot1Q writes ---- */

extern "C" uint32_t vlanLua_Dot1QInsertSeg(VLANLUA_CTX_S *pstCtx, const VLANLUA_DOT1QMATCH_S *pstRec)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstRec == nullptr) {
        return 1;
    }
    VlanLuaWriteList<Dot1Q> list;
    list.Add<Dot1Q::attr1>(&pstRec->uiAttr1);
    list.Add<Dot1Q::ifIndex>(&pstRec->uiIfIndex);
    list.Add<Dot1Q::segIndex>(&pstRec->uiSegIndex);
    list.Add<Dot1Q::vlanBegin>(&pstRec->usBgn);
    list.Add<Dot1Q::vlanEnd>(&pstRec->usEnd);
    list.Add<Dot1Q::groupId>(&pstRec->ucGroupId);
    list.Add<Dot1Q::vrId>(&pstRec->uiVrId);
    list.Add<Dot1Q::attr8>(&pstRec->uiAttr8);
    list.Add<Dot1Q::attr9>(&pstRec->uiAttr9);
    list.Add<Dot1Q::attr10>(&pstRec->ucAttr10);
    return list.Insert(pstCtx->pObj, 1);
}

extern "C" uint32_t vlanLua_Dot1QDeleteSeg(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint32_t uiSegIndex)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr) {
        return 1;
    }
    VlanLuaWriteList<Dot1Q> list;
    list.Add<Dot1Q::ifIndex>(&uiIfIndex);
    list.Add<Dot1Q::segIndex>(&uiSegIndex);
    return list.Delete(pstCtx->pObj, 1);
}

/* ---- Dot1Q merge: one step with the two immediate neighbours ---- */

extern "C" uint32_t VLAN_API_Dot1QMatchMerge(VLANLUA_CTX_S *pstCtx, const VLANLUA_DOT1QMATCH_S *pstNew)
{
    if (pstNew == nullptr) {
        return 1;
    }
    VLANLUA_DOT1QMATCH_S stFound;
    std::memset(&stFound, 0, sizeof(stFound));
    VLANLUA_DOT1QMATCH_S stMerged = *pstNew;
    stMerged.uiSegIndex = 0;
    stMerged.uiAttr9 = 0;

    bool bFound = false;
    uint32_t uiLeft = 0;
    if (Dot1QReadNeighbour(pstCtx, pstNew, Dot1QSide::Left, &stFound, &bFound) == 0 && bFound) {
        uiLeft = stFound.uiSegIndex;
        stMerged.usBgn = stFound.usBgn;
    }
    uint32_t uiRight = 0;
    if (Dot1QReadNeighbour(pstCtx, pstNew, Dot1QSide::Right, &stFound, &bFound) == 0 && bFound) {
        uiRight = stFound.uiSegIndex;
        stMerged.usEnd = stFound.usEnd;
    }
    if (VlanLua_AllocSegIndex(pstCtx, pstNew->uiIfIndex, pstNew->uiVrId, &stMerged.uiSegIndex) != 0) {
        return 1;
    }
    if (vlanLua_Dot1QInsertSeg(pstCtx, &stMerged) != 0) {
        return 1;
    }
    if (uiLeft != 0) {
        (void)vlanLua_Dot1QDeleteSeg(pstCtx, pstNew->uiIfIndex, uiLeft);
    }
    if (uiRight != 0) {
        (void)vlanLua_Dot1QDeleteSeg(pstCtx, pstNew->uiIfIndex, uiRight);
    }
    return 0;
}

/* ---- QinQ merge ---- */

/* Deletes every absorbed record of the output list; the first failure ends the pass. */
static uint32_t DeleteAbsorbed(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, VLANLUA_SEGLINK_S *pstOut,
                               uint32_t *puiNodes)
{
    *puiNodes = 0;
    for (VLANLUA_SEGLINK_S *pstLink = pstOut->pstNext; pstLink != pstOut; pstLink = pstLink->pstNext) {
        const auto *pstNode = reinterpret_cast<const VLANLUA_SEGNODE_S *>(pstLink);
        (*puiNodes)++;
        if (pstNode->uiDbOp == VIDSEG_OP_DEL && vlanLua_QinQDeleteSegs(pstCtx, uiIfIndex, pstNode->uiSegIndex) != 0) {
            return 1;
        }
    }
    return 0;
}

/* Stores the new record under a fresh segment index. */
static uint32_t InsertUnderNewIndex(VLANLUA_CTX_S *pstCtx, VLANLUA_QINQMATCH_S *pstNew)
{
    uint32_t uiSegIndex = 0;
    if (VlanLua_AllocSegIndex(pstCtx, pstNew->uiIfIndex, pstNew->uiVrId, &uiSegIndex) != 0) {
        return 1;
    }
    pstNew->uiSegIndex = uiSegIndex;
    return vlanLua_QinQInsertSegs(pstCtx, pstNew);
}

extern "C" uint32_t vlanLua_UpdateSequence(VLANLUA_CTX_S *pstCtx, VLANLUA_QINQMATCH_S *pstNew,
                                           VLANLUA_SEGLINK_S *pstOut, uint32_t *puiNodeCount)
{
    if (pstNew == nullptr || pstOut == nullptr || puiNodeCount == nullptr || vlanLua_SegListIsEmpty(pstOut) != 0) {
        return 1;
    }
    uint32_t uiNodes = 0;
    if (DeleteAbsorbed(pstCtx, pstNew->uiIfIndex, pstOut, &uiNodes) != 0) {
        return 1;
    }
    for (VLANLUA_SEGLINK_S *pstLink = pstOut->pstNext; pstLink != pstOut; pstLink = pstLink->pstNext) {
        const auto *pstNode = reinterpret_cast<const VLANLUA_SEGNODE_S *>(pstLink);
        if (pstNode->uiDbOp != VIDSEG_OP_ADD) {
            continue;
        }
        pstNew->usPeBgn = pstNode->stPeSeg.usBgn;
        pstNew->usPeEnd = pstNode->stPeSeg.usEnd;
        pstNew->usCeBgn = pstNode->stCeSeg.usBgn;
        pstNew->usCeEnd = pstNode->stCeSeg.usEnd;
        if (InsertUnderNewIndex(pstCtx, pstNew) != 0) {
            return 1;
        }
    }
    *puiNodeCount = uiNodes;
    return 0;
}

/* Fuses the new rectangle with the stored ones in S and writes the result. */
static uint32_t MergeWithStored(VLANLUA_CTX_S *pstCtx, VLANLUA_QINQMATCH_S *pstNew, VLANLUA_SEGLINK_S *pstStored,
                                uint32_t *puiNodeCount)
{
    VLANLUA_SEGLINK_S stOut;
    vlanLua_SegListInit(&stOut);
    const VLANLUA_VIDSEG_S stPe = {pstNew->usPeBgn, pstNew->usPeEnd};
    const VLANLUA_VIDSEG_S stCe = {pstNew->usCeBgn, pstNew->usCeEnd};
    uint32_t uiMerged = 0;
    if (vlanLua_MergePeCeIterately(pstCtx, &stPe, &stCe, pstStored, &stOut, &uiMerged) != 0) {
        return 1;
    }
    uint32_t uiRet;
    if (uiMerged == 0) {
        uiRet = InsertUnderNewIndex(pstCtx, pstNew);
    } else if (vlanLua_SegListIsEmpty(&stOut) != 0) {
        uiRet = 1;
    } else {
        uiRet = vlanLua_UpdateSequence(pstCtx, pstNew, &stOut, puiNodeCount);
    }
    (void)vlanLua_SegsDestroy(pstCtx, &stOut);
    return uiRet;
}

extern "C" uint32_t VLAN_API_QinQMatchMerge(VLANLUA_CTX_S *pstCtx, VLANLUA_QINQMATCH_S *pstNew,
                                            uint32_t *puiNodeCount)
{
    VLANLUA_SEGLINK_S stStored;
    vlanLua_SegListInit(&stStored);
    uint32_t uiAdjacent = 0;
    if (vlanLua_QinQReadIfSegs(pstCtx, pstNew, &stStored, &uiAdjacent) != 0) {
        return 1;
    }
    uint32_t uiRet;
    if (uiAdjacent == 0) {
        uiRet = InsertUnderNewIndex(pstCtx, pstNew);
    } else if (vlanLua_SegListIsEmpty(&stStored) != 0) {
        uiRet = 1;
    } else {
        uiRet = MergeWithStored(pstCtx, pstNew, &stStored, puiNodeCount);
    }
    (void)vlanLua_SegsDestroy(pstCtx, &stStored);
    return uiRet;
}
