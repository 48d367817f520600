/* VLAN ID segments and PE/CE rectangles: two rectangles fuse when they share one dimension
 * exactly and abut in the other. Uses only the platform's names. */
#include "bas/vlanlua_bas_vidseg.h"

#include "bas/vlanlua_bas_mem.h"
#include "sec_bound.h"

/* ---- list handling ---- */

extern "C" void vlanLua_SegListInit(VLANLUA_SEGLINK_S *pstHead)
{
    pstHead->pstNext = pstHead;
    pstHead->pstPrev = pstHead;
}

extern "C" uint32_t vlanLua_SegListIsEmpty(const VLANLUA_SEGLINK_S *pstHead)
{
    return pstHead->pstNext == pstHead ? 1u : 0u;
}

static void SegListLinkAfter(VLANLUA_SEGLINK_S *pstPos, VLANLUA_SEGLINK_S *pstLink)
{
    pstLink->pstPrev = pstPos;
    pstLink->pstNext = pstPos->pstNext;
    pstPos->pstNext->pstPrev = pstLink;
    pstPos->pstNext = pstLink;
}

extern "C" void vlanLua_SegListAppend(VLANLUA_SEGLINK_S *pstHead, VLANLUA_SEGNODE_S *pstNode)
{
    SegListLinkAfter(pstHead->pstPrev, &pstNode->stLink);
}

static VLANLUA_SEGNODE_S *SegNodeOf(VLANLUA_SEGLINK_S *pstLink)
{
    return reinterpret_cast<VLANLUA_SEGNODE_S *>(pstLink);     /* the links open the node */
}

static VLANLUA_SEGNODE_S *SegNodeNew(VLANLUA_CTX_S *pstCtx, uint32_t uiState, uint32_t uiDbOp)
{
    auto *pstNode = static_cast<VLANLUA_SEGNODE_S *>(VLANLUA_Malloc(pstCtx->pObj, sizeof(VLANLUA_SEGNODE_S)));
    if (pstNode == nullptr) {
        return nullptr;
    }
    (void)memset_s(pstNode, sizeof(*pstNode), 0, sizeof(*pstNode));
    pstNode->uiState = uiState;
    pstNode->uiDbOp = uiDbOp;
    return pstNode;
}

extern "C" uint32_t vlanLua_SegsDestroy(VLANLUA_CTX_S *pstCtx, VLANLUA_SEGLINK_S *pstHead)
{
    (void)pstCtx;
    VLANLUA_SEGLINK_S *pstLink = pstHead->pstNext;
    while (pstLink != pstHead) {
        VLANLUA_SEGLINK_S *pstNext = pstLink->pstNext;
        pstLink->pstPrev->pstNext = pstNext;
        pstNext->pstPrev = pstLink->pstPrev;
        VLANLUA_Free(pstLink);
        pstLink = pstNext;
    }
    return 0;
}

/* ---- geometry ---- */

extern "C" uint32_t vlanLua_VidSegGetSegCopy(const VLANLUA_VIDSEG_S *pstSrc, VLANLUA_VIDSEG_S *pstDst)
{
    pstDst->usBgn = pstSrc->usBgn;
    pstDst->usEnd = pstSrc->usEnd;
    return 0;
}

extern "C" uint32_t vlanLua_VidSegIsEqual(const VLANLUA_VIDSEG_S *pstA, const VLANLUA_VIDSEG_S *pstB)
{
    return (pstA->usBgn == pstB->usBgn && pstA->usEnd == pstB->usEnd) ? 1u : 0u;
}

/* Computed on the zero-extended values: a range at 0 has no left neighbour, none wraps. */
static bool SegEndsJustBefore(const VLANLUA_VIDSEG_S *pstLeft, const VLANLUA_VIDSEG_S *pstRight)
{
    return static_cast<uint32_t>(pstLeft->usEnd) + 1u == static_cast<uint32_t>(pstRight->usBgn);
}

static bool SegsAbut(const VLANLUA_VIDSEG_S *pstA, const VLANLUA_VIDSEG_S *pstB)
{
    return SegEndsJustBefore(pstB, pstA) || SegEndsJustBefore(pstA, pstB);
}

extern "C" uint32_t vlanLua_VidSegIsAdjacent(const VLANLUA_VIDSEG_S *pstPe1, const VLANLUA_VIDSEG_S *pstCe1,
                                             const VLANLUA_VIDSEG_S *pstPe2, const VLANLUA_VIDSEG_S *pstCe2)
{
    if (vlanLua_VidSegIsEqual(pstPe1, pstPe2) != 0 && SegsAbut(pstCe1, pstCe2)) {
        return 1;
    }
    if (vlanLua_VidSegIsEqual(pstCe1, pstCe2) != 0 && SegsAbut(pstPe1, pstPe2)) {
        return 1;
    }
    return 0;
}

/* Extends pstDst by pstSrc when pstSrc abuts it; the right-hand side is tried first. */
static uint32_t SegWidenBy(VLANLUA_VIDSEG_S *pstDst, const VLANLUA_VIDSEG_S *pstSrc)
{
    if (SegEndsJustBefore(pstDst, pstSrc)) {
        pstDst->usEnd = pstSrc->usEnd;
        return 1;
    }
    if (SegEndsJustBefore(pstSrc, pstDst)) {
        pstDst->usBgn = pstSrc->usBgn;
        return 1;
    }
    return 0;
}

extern "C" uint32_t vlanLua_VidSegMergePeCeTo(VLANLUA_VIDSEG_S *pstDstPe, VLANLUA_VIDSEG_S *pstDstCe,
                                              const VLANLUA_VIDSEG_S *pstSrcPe, const VLANLUA_VIDSEG_S *pstSrcCe)
{
    if (vlanLua_VidSegIsEqual(pstSrcPe, pstDstPe) != 0) {
        return SegWidenBy(pstDstCe, pstSrcCe);
    }
    if (vlanLua_VidSegIsEqual(pstSrcCe, pstDstCe) != 0) {
        return SegWidenBy(pstDstPe, pstSrcPe);
    }
    return 0;
}

/* ---- iterative merge ---- */

/* Records one stored rectangle as absorbed: its unwidened copy goes to the output for deletion. */
static uint32_t AbsorbStored(VLANLUA_CTX_S *pstCtx, VLANLUA_SEGNODE_S *pstStored, VLANLUA_SEGLINK_S *pstOut)
{
    VLANLUA_SEGNODE_S *pstOld = SegNodeNew(pstCtx, VIDSEG_STATE_OLD, VIDSEG_OP_DEL);
    if (pstOld == nullptr) {
        return 1;
    }
    (void)vlanLua_VidSegGetSegCopy(&pstStored->stPeSeg, &pstOld->stPeSeg);
    (void)vlanLua_VidSegGetSegCopy(&pstStored->stCeSeg, &pstOld->stCeSeg);
    pstOld->uiSegIndex = pstStored->uiSegIndex;
    vlanLua_SegListAppend(pstOut, pstOld);
    pstStored->uiState = VIDSEG_STATE_ABSORBED;
    return 0;
}

/* One pass over the stored list with the growing working rectangle; counts what it absorbs. */
static uint32_t MergePass(VLANLUA_CTX_S *pstCtx, VLANLUA_VIDSEG_S *pstPe, VLANLUA_VIDSEG_S *pstCe,
                          VLANLUA_SEGLINK_S *pstStored, VLANLUA_SEGLINK_S *pstOut, uint32_t *puiCount,
                          bool *pbMerged)
{
    for (VLANLUA_SEGLINK_S *pstLink = pstStored->pstNext; pstLink != pstStored; pstLink = pstLink->pstNext) {
        VLANLUA_SEGNODE_S *pstNode = SegNodeOf(pstLink);
        if (pstNode->uiState != VIDSEG_STATE_ORIGIN ||
            vlanLua_VidSegMergePeCeTo(pstPe, pstCe, &pstNode->stPeSeg, &pstNode->stCeSeg) == 0) {
            continue;
        }
        if (AbsorbStored(pstCtx, pstNode, pstOut) != 0) {
            return 1;
        }
        (*puiCount)++;
        *pbMerged = true;
    }
    return 0;
}

extern "C" uint32_t vlanLua_MergePeCeIterately(VLANLUA_CTX_S *pstCtx, const VLANLUA_VIDSEG_S *pstNewPe,
                                               const VLANLUA_VIDSEG_S *pstNewCe, VLANLUA_SEGLINK_S *pstStored,
                                               VLANLUA_SEGLINK_S *pstOut, uint32_t *puiCount)
{
    *puiCount = 0;
    if (vlanLua_SegListIsEmpty(pstStored) != 0) {
        return 0;
    }
    VLANLUA_VIDSEG_S stPe = *pstNewPe;
    VLANLUA_VIDSEG_S stCe = *pstNewCe;
    bool bMerged = true;
    while (bMerged) {
        bMerged = false;
        if (MergePass(pstCtx, &stPe, &stCe, pstStored, pstOut, puiCount, &bMerged) != 0) {
            (void)vlanLua_SegsDestroy(pstCtx, pstOut);
            return 1;
        }
    }
    if (*puiCount == 0) {
        return 0;
    }
    VLANLUA_SEGNODE_S *pstMerged = SegNodeNew(pstCtx, VIDSEG_STATE_MERGED, VIDSEG_OP_ADD);
    if (pstMerged == nullptr) {
        (void)vlanLua_SegsDestroy(pstCtx, pstOut);
        return 1;
    }
    pstMerged->stPeSeg = stPe;
    pstMerged->stCeSeg = stCe;
    SegListLinkAfter(pstOut, &pstMerged->stLink);
    (*puiCount)++;
    return 0;
}
