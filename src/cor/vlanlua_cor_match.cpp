/* The Dot1Q and QinQ match merges: a new range or rectangle fuses with the stored ones it abuts
 * and is stored under a fresh segment index; the absorbed records are deleted. Writes are not
 * rolled back. Uses only the platform's names. */
#include "cor/vlanlua_cor_match.h"

#include <cstring>

#include "bas/vlanlua_bas_mem.h"
#include "bas/vlanlua_bas_segindex.h"

/* ---- Dot1Q neighbours ---- */

#define DOT1Q_FLD_IFINDEX  2
#define DOT1Q_FLD_SEGINDEX 3
#define DOT1Q_FLD_BGN      4
#define DOT1Q_FLD_END      5
#define DOT1Q_FLD_GROUP    6

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
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_DOT1Q_MATCH_SEG));
    if (rs.Get() == nullptr) {
        return 1;
    }
    uint16_t usTouch = static_cast<uint16_t>(bLeft ? pstNew->usBgn - 1 : pstNew->usEnd + 1);
    VLANLUA_RecordSet_SelectField(rs.Get(), DOT1Q_FLD_SEGINDEX, 4);
    VLANLUA_RecordSet_SelectField(rs.Get(), bLeft ? DOT1Q_FLD_BGN : DOT1Q_FLD_END, 2);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, DOT1Q_FLD_IFINDEX, &pstNew->uiIfIndex, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, bLeft ? DOT1Q_FLD_END : DOT1Q_FLD_BGN, &usTouch, 2);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, DOT1Q_FLD_GROUP, &pstNew->ucGroupId, 1);
    if (VLANLUA_RecordSet_Query(rs.Get(), 6, 1) != 0) {
        return 1;
    }
    const uint8_t *pucData = VLANLUA_RecordSet_GetDataBuff(rs.Get());
    if (VLANLUA_RecordSet_GetDataNum(rs.Get()) != 0 && pucData != nullptr) {
        std::memcpy(&pstOut->uiSegIndex, pucData, 4);
        std::memcpy(bLeft ? &pstOut->usBgn : &pstOut->usEnd, pucData + 4, 2);
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
    const VLANLUA_FIELDVAL_S astFields[] = {
        {VLANLUA_TYPE_U32, 1, 4, &pstRec->uiAttr1},
        {VLANLUA_TYPE_U32, 2, 4, &pstRec->uiIfIndex},
        {VLANLUA_TYPE_U32, 3, 4, &pstRec->uiSegIndex},
        {VLANLUA_TYPE_U16, 4, 2, &pstRec->usBgn},
        {VLANLUA_TYPE_U16, 5, 2, &pstRec->usEnd},
        {VLANLUA_TYPE_U8, 6, 1, &pstRec->ucGroupId},
        {VLANLUA_TYPE_VRID, 7, 4, &pstRec->uiVrId},
        {VLANLUA_TYPE_U32, 8, 4, &pstRec->uiAttr8},
        {VLANLUA_TYPE_U32, 9, 4, &pstRec->uiAttr9},
        {VLANLUA_TYPE_U8, 10, 1, &pstRec->ucAttr10},
    };
    return ECM_CAPI_InsertRecord(pstCtx->pObj, VLANLUA_TBL_DOT1Q_MATCH_SEG,
                                 reinterpret_cast<const ECM_FIELDVAL_S *>(astFields), 10, 1);
}

extern "C" uint32_t vlanLua_Dot1QDeleteSeg(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint32_t uiSegIndex)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr) {
        return 1;
    }
    const VLANLUA_FIELDVAL_S astKey[] = {
        {VLANLUA_TYPE_U32, 2, 4, &uiIfIndex},
        {VLANLUA_TYPE_U32, 3, 4, &uiSegIndex},
    };
    return ECM_CAPI_DeleteRecord(pstCtx->pObj, VLANLUA_TBL_DOT1Q_MATCH_SEG,
                                 reinterpret_cast<const ECM_FIELDVAL_S *>(astKey), 2, 1);
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
