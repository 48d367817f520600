/* Cutting the stored segments and the request of a user-VLAN QinQ request on one grid: along PE
 * at the common cut points, along CE at the other side's boundaries. Uses only the platform's names.
 *
 * After both runs every piece of the request either coincides with a piece of a stored segment or
 * overlaps none, and the final list holds all pieces in (PE begin, CE begin) order. The covering
 * references of a piece are visited in increasing CE begin, so no two pieces ever overlap. */
#include "vlanlua_uservlan.h"

#include <algorithm>

#include "bas/vlanlua_bas_mem.h"
#include "ecm_capi.h"
#include "mox.h"
#include "sec_bound.h"

#define UVLAN_ALLOC_BY(pHandle, uiSize) \
    MOX_Malloc_F((pHandle), g_aucMoxMemPt[0], (uiSize), __FILE_NAME__, __LINE__)

namespace {

constexpr uint32_t kNoCover = 0xFFFFFFFFu;

void *MemHandleOf(const VLANLUA_CTX_S *pstCtx)
{
    return ECM_CAPI_GetSimpleMemHandle(pstCtx->pObj);
}

VLANLUA_UVLAN_SVCSEG_S *AsSeg(void *pElem)
{
    return static_cast<VLANLUA_UVLAN_SVCSEG_S *>(pElem);
}

bool Covers(const VLANLUA_UVLAN_SVCSEG_S &ref, const VLANLUA_UVLAN_SVCSEG_S &piece)
{
    return ref.stPair.usPeBgn <= piece.stPair.usPeBgn && ref.stPair.usPeEnd >= piece.stPair.usPeEnd;
}

bool LiesInside(const VLANLUA_UVLAN_PAIR_S &in, const VLANLUA_UVLAN_PAIR_S &out)
{
    return in.usPeBgn >= out.usPeBgn && in.usPeEnd <= out.usPeEnd && in.usCeBgn >= out.usCeBgn &&
           in.usCeEnd <= out.usCeEnd;
}

/* Takes the smallest element out of a tree; null when it is empty. */
VLANLUA_UVLAN_SVCSEG_S *TakeFirst(VLANLUA_UVLAN_TREE_S *pstTree)
{
    auto *pstSeg = AsSeg(KEL_AVL3_First(&pstTree->stTree, &pstTree->stInfo));
    if (pstSeg != nullptr) {
        KEL_AVL3_Delete(&pstTree->stTree, &pstSeg->stNode);
    }
    return pstSeg;
}

/* The first cut point that can cut a record beginning at usPeBgn: the point at its begin when
 * there is one (every cut record that starts inside the request gave it), else the smallest. */
VLANLUA_UVLAN_PENODE_S *FirstCutFor(VLANLUA_UVLAN_SVCSET_S *pstSet, uint16_t usPeBgn)
{
    void *pNode = KEL_AVL3_Find(&pstSet->stPeList.stTree, &usPeBgn, &pstSet->stPeList.stInfo);
    if (pNode == nullptr) {
        pNode = KEL_AVL3_First(&pstSet->stPeList.stTree, &pstSet->stPeList.stInfo);
    }
    return static_cast<VLANLUA_UVLAN_PENODE_S *>(pNode);
}

/* Pieces inside the request's PE range go on to the CE cut; others are final along CE. */
uint32_t RoutePiece(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCSEG_S *pstReq, VLANLUA_UVLAN_SVCSEG_S *pstPiece,
                    VLANLUA_UVLAN_TREE_S *pstOut, VLANLUA_UVLAN_TREE_S *pstCeTree)
{
    bool bInside = pstPiece->stPair.usPeBgn >= pstReq->stPair.usPeBgn &&
                   pstPiece->stPair.usPeEnd <= pstReq->stPair.usPeEnd;
    return vlanLua_UVlanSplitTreeAdd(pstCtx, bInside ? pstCeTree : pstOut, pstPiece);
}

uint32_t SplitOneByPe(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet, VLANLUA_UVLAN_SVCSEG_S *pstX,
                      VLANLUA_UVLAN_TREE_S *pstOut, VLANLUA_UVLAN_TREE_S *pstCeTree)
{
    void *pHandle = MemHandleOf(pstCtx);
    for (VLANLUA_UVLAN_PENODE_S *pstCut = FirstCutFor(pstSet, pstX->stPair.usPeBgn); pstCut != nullptr;
         pstCut = static_cast<VLANLUA_UVLAN_PENODE_S *>(KEL_AVL3_Next(&pstCut->stNode, &pstSet->stPeList.stInfo))) {
        uint16_t usCut = pstCut->usVlanId;
        if (usCut > pstX->stPair.usPeEnd) {
            break;
        }
        if (usCut <= pstX->stPair.usPeBgn) {
            continue;
        }
        VLANLUA_UVLAN_SVCSEG_S *pstPiece = vlanLua_UVlanQinqNewSvcSeg(pstCtx, pHandle, pstX, 0);
        if (pstPiece == nullptr) {
            VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqSplitSegsByPe: New Seg ERROR\n");
            return 1;
        }
        pstPiece->stPair.usPeEnd = static_cast<uint16_t>(usCut - 1);
        uint32_t uiRet = RoutePiece(pstCtx, pstSet->pstNewSvcSeg, pstPiece, pstOut, pstCeTree);
        if (uiRet != 0) {
            VLANLUA_Free(pstPiece);
            VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqSplitSegsByPe: plitTreeAdd ERROR\n");
            return uiRet;
        }
        pstX->stPair.usPeBgn = usCut;
    }
    VLANLUA_UVLAN_SVCSEG_S *pstLast = vlanLua_UVlanQinqNewSvcSeg(pstCtx, pHandle, pstX, 1);
    if (pstLast == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqSplitSegsByPe: New Seg 1 ERROR\n");
        return 1;
    }
    uint32_t uiRet = RoutePiece(pstCtx, pstSet->pstNewSvcSeg, pstLast, pstOut, pstCeTree);
    if (uiRet != 0) {
        VLANLUA_Free(pstLast);
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqSplitSegsByPe: plitTreeAdd 1 ERROR\n");
    }
    return uiRet;
}

/* Indexes of the references that cut the piece along CE, in increasing CE begin. */
uint32_t CollectCovering(uint32_t uiStart, const VLANLUA_UVLAN_SEGARRAY_S *pstRefs,
                         const VLANLUA_UVLAN_SVCSEG_S *pstPiece, uint32_t *puiFirstCover, uint32_t *puiOrder)
{
    uint32_t uiNum = 0;
    for (uint32_t i = uiStart; i < pstRefs->uiNum; i++) {
        const VLANLUA_UVLAN_SVCSEG_S &ref = pstRefs->pstSegs[i];
        if (!Covers(ref, *pstPiece)) {
            if (ref.stPair.usPeBgn > pstPiece->stPair.usPeEnd) {
                break;
            }
            continue;
        }
        if (*puiFirstCover == kNoCover) {
            *puiFirstCover = i;
        }
        if ((ref.uiFlag & UVLAN_SEG_COVERED) == 0) {
            puiOrder[uiNum++] = i;
        }
    }
    std::sort(puiOrder, puiOrder + uiNum, [pstRefs](uint32_t a, uint32_t b) {
        return pstRefs->pstSegs[a].stPair.usCeBgn < pstRefs->pstSegs[b].stPair.usCeBgn;
    });
    return uiNum;
}

/* Cuts off the part of the piece up to usCeEnd as a piece of its own into the output tree. */
uint32_t CutCeHead(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSEG_S *pstPiece, uint16_t usCeEnd,
                   VLANLUA_UVLAN_TREE_S *pstOut, const char *pcNewErr, const char *pcAddErr)
{
    VLANLUA_UVLAN_SVCSEG_S *pstHead = vlanLua_UVlanQinqNewSvcSeg(pstCtx, MemHandleOf(pstCtx), pstPiece, 0);
    if (pstHead == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "%s", pcNewErr);
        VLANLUA_Free(pstPiece);
        return 1;
    }
    pstHead->stPair.usCeEnd = usCeEnd;
    uint32_t uiRet = vlanLua_UVlanSplitTreeAdd(pstCtx, pstOut, pstHead);
    if (uiRet != 0) {
        VLANLUA_Write(pstCtx->pstLog, "%s", pcAddErr);
        VLANLUA_Free(pstHead);
        VLANLUA_Free(pstPiece);
        return uiRet;
    }
    pstPiece->stPair.usCeBgn = static_cast<uint16_t>(usCeEnd + 1);
    return 0;
}

uint32_t MoveAll(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_TREE_S *pstFrom, VLANLUA_UVLAN_TREE_S *pstTo)
{
    VLANLUA_UVLAN_SVCSEG_S *pstPiece;
    while ((pstPiece = TakeFirst(pstFrom)) != nullptr) {
        uint32_t uiRet = vlanLua_UVlanSplitTreeAdd(pstCtx, pstTo, pstPiece);
        if (uiRet != 0) {
            VLANLUA_Free(pstPiece);
            return uiRet;
        }
    }
    return 0;
}

uint32_t FailRun(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_TREE_S *pstCeTree, VLANLUA_UVLAN_TREE_S *pstCeOut, uint32_t uiRet)
{
    vlanLua_UVlanQinqSvcTreeFree(pstCtx, pstCeTree);
    vlanLua_UVlanQinqSvcTreeFree(pstCtx, pstCeOut);
    VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqSplitSegsByPeCe: plitTreeAdd ERROR\n");
    return uiRet;
}

bool SameBegins(const VLANLUA_UVLAN_SVCSEG_S &a, const VLANLUA_UVLAN_SVCSEG_S &b)
{
    return a.stPair.usPeBgn == b.stPair.usPeBgn && a.stPair.usCeBgn == b.stPair.usCeBgn;
}

bool SamePair(const VLANLUA_UVLAN_SVCSEG_S &a, const VLANLUA_UVLAN_SVCSEG_S &b)
{
    return SameBegins(a, b) && a.stPair.usPeEnd == b.stPair.usPeEnd && a.stPair.usCeEnd == b.stPair.usCeEnd;
}

/* True when Q belongs before E: a smaller PE begin, or the same PE begin and a smaller CE begin. */
bool GoesBefore(const VLANLUA_UVLAN_SVCSEG_S &q, const VLANLUA_UVLAN_SVCSEG_S &e)
{
    if (q.stPair.usPeBgn != e.stPair.usPeBgn) {
        return q.stPair.usPeBgn < e.stPair.usPeBgn;
    }
    return q.stPair.usCeBgn < e.stPair.usCeBgn;
}

/* Lays one request piece into the final list, walking on from *ppstPrev (the pieces come in
 * increasing order, so their places do too). Returns true when the piece was inserted. */
bool PlaceCfgPiece(VLANLUA_UVLAN_SVCSEG_S **ppstPrev, VLANLUA_UVLAN_SVCSEG_S *pstQ)
{
    VLANLUA_UVLAN_SVCSEG_S *pstPrev = *ppstPrev;
    for (VLANLUA_UVLAN_SVCSEG_S *pstE = pstPrev->pstNext; pstE != nullptr; pstPrev = pstE, pstE = pstE->pstNext) {
        if (SamePair(*pstE, *pstQ)) {
            vlanLua_UVlanCoverSvcInfo(&pstE->stSvcInfo, &pstQ->stSvcInfo);
            VLANLUA_Free(pstQ);
            *ppstPrev = pstPrev;
            return false;
        }
        if (GoesBefore(*pstQ, *pstE)) {
            break;
        }
    }
    pstQ->pstNext = pstPrev->pstNext;
    pstPrev->pstNext = pstQ;
    *ppstPrev = pstQ;
    return true;
}

} // namespace

/* ---- cut points ---- */

extern "C" uint32_t vlanLua_UVlanPelistNodeAdd(VLANLUA_CTX_S *pstCtx, void *pMemHandle,
                                               VLANLUA_UVLAN_SVCSET_S *pstSet, uint32_t uiVlan)
{
    uint16_t usVlan = static_cast<uint16_t>(uiVlan);
    if (KEL_AVL3_Find(&pstSet->stPeList.stTree, &usVlan, &pstSet->stPeList.stInfo) != nullptr) {
        return 0;
    }
    auto *pstNode = static_cast<VLANLUA_UVLAN_PENODE_S *>(UVLAN_ALLOC_BY(pMemHandle, sizeof(VLANLUA_UVLAN_PENODE_S)));
    if (pstNode == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanPelistNodeAdd: MOX_SimpleAllocBySID fail\n");
        return 1;
    }
    KEL_AVL3_INIT_NODE(pstNode->stNode);
    pstNode->usVlanId = usVlan;
    pstNode->usRsv = 0;
    if (KEL_AVL3_Insert_Or_Find(&pstSet->stPeList.stTree, &pstNode->stNode, &pstSet->stPeList.stInfo) != nullptr) {
        VLANLUA_Free(pstNode);
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanPelistNodeAdd: usVlanId:%d, add error\n", static_cast<int32_t>(usVlan));
        return 1;
    }
    return 0;
}

extern "C" uint32_t vlanLua_UVlanQinqGetSplitPelist(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet,
                                                    const VLANLUA_UVLAN_SVCSEG_S *pstReq)
{
    void *pHandle = MemHandleOf(pstCtx);
    const VLANLUA_UVLAN_PAIR_S &r = pstReq->stPair;
    const uint32_t auiEdges[] = {r.usPeBgn, static_cast<uint32_t>(r.usPeEnd) + 1};
    for (uint32_t uiVlan : auiEdges) {
        if (vlanLua_UVlanPelistNodeAdd(pstCtx, pHandle, pstSet, uiVlan) != 0) {
            VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqGetSplitPelist: vlanId:%d return ERR\n",
                          static_cast<int32_t>(uiVlan));
            return 1;
        }
    }
    for (uint32_t i = 0; i < pstSet->stSvcSegs.uiNum; i++) {
        VLANLUA_UVLAN_SVCSEG_S &s = pstSet->stSvcSegs.pstSegs[i];
        if (LiesInside(s.stPair, r) && vlanLua_UVlanIsSvcSameEX(&s.stSvcInfo, &pstReq->stSvcInfo) == 0) {
            s.uiFlag |= UVLAN_SEG_COVERED;
            pstSet->stSvcSegsOrg.pstSegs[i].uiFlag |= UVLAN_SEG_COVERED;
            continue;
        }
        uint32_t uiRet = 0;
        if (r.usPeBgn <= s.stPair.usPeBgn && s.stPair.usPeBgn <= r.usPeEnd) {
            uiRet = vlanLua_UVlanPelistNodeAdd(pstCtx, pHandle, pstSet, s.stPair.usPeBgn);
        }
        if (uiRet == 0 && s.stPair.usPeEnd >= r.usPeBgn && s.stPair.usPeBgn <= r.usPeEnd) {
            uiRet = vlanLua_UVlanPelistNodeAdd(pstCtx, pHandle, pstSet, static_cast<uint32_t>(s.stPair.usPeEnd) + 1);
        }
        if (uiRet != 0) {
            VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqGetSplitPelist: add pebgn return ERR\n");
            return 1;
        }
    }
    return 0;
}

/* ---- pieces and split trees ---- */

extern "C" VLANLUA_UVLAN_SVCSEG_S *vlanLua_UVlanQinqNewSvcSeg(VLANLUA_CTX_S *pstCtx, void *pMemHandle,
                                                              const VLANLUA_UVLAN_SVCSEG_S *pstSrc,
                                                              uint32_t uiKeepAllFlags)
{
    (void)pstCtx;
    auto *pstSeg = static_cast<VLANLUA_UVLAN_SVCSEG_S *>(UVLAN_ALLOC_BY(pMemHandle, sizeof(VLANLUA_UVLAN_SVCSEG_S)));
    if (pstSeg == nullptr) {
        return nullptr;
    }
    (void)memcpy_s(pstSeg, sizeof(*pstSeg), pstSrc, sizeof(*pstSrc));
    KEL_AVL3_INIT_NODE(pstSeg->stNode);
    pstSeg->pstNext = nullptr;
    if (uiKeepAllFlags == 0) {
        pstSeg->uiFlag &= UVLAN_SVC_FLAGS;
    }
    return pstSeg;
}

extern "C" uint32_t vlanLua_UVlanSplitTreeAdd(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_TREE_S *pstTree,
                                              VLANLUA_UVLAN_SVCSEG_S *pstPiece)
{
    if (KEL_AVL3_Find(&pstTree->stTree, &pstPiece->stPair, &pstTree->stInfo) != nullptr) {
        VLANLUA_Free(pstPiece);
        return 0;
    }
    KEL_AVL3_INIT_NODE(pstPiece->stNode);
    if (KEL_AVL3_Insert_Or_Find(&pstTree->stTree, &pstPiece->stNode, &pstTree->stInfo) != nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanSplitTreeAdd: add fail");
        return 1;
    }
    return 0;
}

/* ---- the cuts ---- */

extern "C" uint32_t vlanLua_UVlanQinqSplitSegsByPe(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet,
                                                   VLANLUA_UVLAN_SEGARRAY_S *pstInput, VLANLUA_UVLAN_TREE_S *pstOut,
                                                   VLANLUA_UVLAN_TREE_S *pstCeTree)
{
    for (uint32_t i = 0; i < pstInput->uiNum; i++) {
        VLANLUA_UVLAN_SVCSEG_S *pstX = &pstInput->pstSegs[i];
        if ((pstX->uiFlag & UVLAN_SEG_COVERED) != 0) {
            continue;
        }
        uint32_t uiRet = SplitOneByPe(pstCtx, pstSet, pstX, pstOut, pstCeTree);
        if (uiRet != 0) {
            return uiRet;
        }
    }
    return 0;
}

extern "C" uint32_t vlanLua_UVlanQinqDoSrv(uint32_t uiStart, const VLANLUA_UVLAN_SEGARRAY_S *pstRefs,
                                           VLANLUA_UVLAN_SVCSEG_S *pstPiece, uint32_t *puiFirstCover,
                                           VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_TREE_S *pstOut, uint32_t *puiOrder)
{
    uint32_t uiNum = CollectCovering(uiStart, pstRefs, pstPiece, puiFirstCover, puiOrder);
    for (uint32_t n = 0; n < uiNum; n++) {
        const VLANLUA_UVLAN_PAIR_S &f = pstRefs->pstSegs[puiOrder[n]].stPair;
        VLANLUA_UVLAN_PAIR_S &p = pstPiece->stPair;
        if (p.usCeBgn < f.usCeBgn && f.usCeBgn <= p.usCeEnd) {
            uint32_t uiRet = CutCeHead(pstCtx, pstPiece, static_cast<uint16_t>(f.usCeBgn - 1), pstOut,
                                       "vlanLua_UVlanQinqDoSrv: New Seg ERROR\n",
                                       "vlanLua_UVlanQinqDoSrv: plitTreeAdd ERROR\n");
            if (uiRet != 0) {
                return uiRet;
            }
        }
        if (p.usCeBgn <= f.usCeEnd && f.usCeEnd < p.usCeEnd) {
            uint32_t uiRet = CutCeHead(pstCtx, pstPiece, f.usCeEnd, pstOut, "vlanLua_UVlanQinqDoSrv: New Seg 2 ERROR\n",
                                       "vlanLua_UVlanQinqDoSrv: plitTreeAdd 2 ERROR\n");
            if (uiRet != 0) {
                return uiRet;
            }
        }
    }
    return 0;
}

extern "C" uint32_t vlanLua_UVlanQinqSplitSegsByCe(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_TREE_S *pstCeTree,
                                                   const VLANLUA_UVLAN_SEGARRAY_S *pstRefs, VLANLUA_UVLAN_TREE_S *pstOut)
{
    uint32_t uiOrderBytes = (pstRefs->uiNum + 1) * static_cast<uint32_t>(sizeof(uint32_t));
    VlanLuaMemGuard<uint32_t> order(static_cast<uint32_t *>(VLANLUA_Malloc(pstCtx->pObj, uiOrderBytes)));
    if (order.Get() == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqSplitSegsByCe: Alloc order Memory Fail\n");
        return 1;
    }
    uint32_t uiStart = 0;
    VLANLUA_UVLAN_SVCSEG_S *pstPiece;
    while ((pstPiece = TakeFirst(pstCeTree)) != nullptr) {
        uint32_t uiFirstCover = kNoCover;
        uint32_t uiRet = vlanLua_UVlanQinqDoSrv(uiStart, pstRefs, pstPiece, &uiFirstCover, pstCtx, pstOut, order.Get());
        if (uiRet != 0) {
            return uiRet;
        }
        uiRet = vlanLua_UVlanSplitTreeAdd(pstCtx, pstOut, pstPiece);
        if (uiRet != 0) {
            VLANLUA_Free(pstPiece);
            VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqSplitSegsByCe: plitTreeAdd ERROR\n");
            return uiRet;
        }
        if (uiFirstCover != kNoCover) {
            uiStart = uiFirstCover;
        }
    }
    return 0;
}

extern "C" uint32_t vlanLua_UVlanQinqSplitSegsByPeCe(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet,
                                                     VLANLUA_UVLAN_SEGARRAY_S *pstInput,
                                                     const VLANLUA_UVLAN_SEGARRAY_S *pstRefs,
                                                     VLANLUA_UVLAN_TREE_S *pstOut)
{
    VLANLUA_UVLAN_TREE_S stCeTree;
    VLANLUA_UVLAN_TREE_S stCeOut;
    vlanLua_UVlanSplitTreeInit(&stCeTree);
    vlanLua_UVlanSplitTreeInit(&stCeOut);
    uint32_t uiRet = vlanLua_UVlanQinqSplitSegsByPe(pstCtx, pstSet, pstInput, pstOut, &stCeTree);
    if (uiRet == 0) {
        uiRet = vlanLua_UVlanQinqSplitSegsByCe(pstCtx, &stCeTree, pstRefs, &stCeOut);
    }
    if (uiRet == 0) {
        uiRet = MoveAll(pstCtx, &stCeOut, pstOut);
    }
    return uiRet == 0 ? 0 : FailRun(pstCtx, &stCeTree, &stCeOut, uiRet);
}

extern "C" void vlanLua_UVlanQinqGenFinalSplitedSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    (void)pstCtx;
    VLANLUA_UVLAN_SVCSEG_S *pstTail = &pstSet->stFinalSegs;
    while (pstTail->pstNext != nullptr) {
        pstTail = pstTail->pstNext;
    }
    VLANLUA_UVLAN_SVCSEG_S *pstPiece;
    while ((pstPiece = TakeFirst(&pstSet->stDbSplitTree)) != nullptr) {
        pstPiece->pstNext = nullptr;
        pstTail->pstNext = pstPiece;
        pstTail = pstPiece;
    }
    bool bAnyInserted = false;
    VLANLUA_UVLAN_SVCSEG_S *pstPrev = &pstSet->stFinalSegs;
    while ((pstPiece = TakeFirst(&pstSet->stCfgSplitTree)) != nullptr) {
        pstPiece->pstNext = nullptr;
        bAnyInserted = PlaceCfgPiece(&pstPrev, pstPiece) || bAnyInserted;
    }
    if (!bAnyInserted) {
        pstSet->uiFlag |= UVLAN_SET_ALLCOVERED;
    }
}
