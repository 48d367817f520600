/* Merging the pieces of a user-VLAN QinQ request back into maximal rectangles, sorting them into
 * new, changed and vanished rows, and writing the difference. Uses only the platform's names.
 *
 * Writes go in a fixed order (services of changed rows, new rows with their services, deletion
 * of vanished rows; or the removal order) and stop at the first failure without rollback. */
#include "vlanlua_uservlan.h"

#include "bas/vlanlua_bas_mem.h"

namespace {

bool SameSvc(const VLANLUA_UVLAN_SVCSEG_S &a, const VLANLUA_UVLAN_SVCSEG_S &b)
{
    return vlanLua_UVlanIsSvcSameEX(&a.stSvcInfo, &b.stSvcInfo) == 0;
}

bool HasSvc(const VLANLUA_UVLAN_SVCSEG_S &seg)
{
    return vlanLua_UVlanIsNullSvcInfo(&seg.stSvcInfo) != 0;
}

bool IsRemoval(const VLANLUA_UVLAN_SVCSEG_S &seg)
{
    const VLANLUA_UVLAN_SVC_S &e = seg.stSvcInfo.astSvc[VLANLUA_UVLAN_SVC_REMOVE];
    return e.uiSvcType == VLANLUA_UVLAN_SVC_REMOVE && e.uiSvcValue != 0;
}

/* N continues C along CE: same PE range, N starts right after C, equal services. */
bool ExtendsAlongCe(const VLANLUA_UVLAN_SVCSEG_S &c, const VLANLUA_UVLAN_SVCSEG_S &n)
{
    return c.stPair.usPeBgn == n.stPair.usPeBgn && c.stPair.usPeEnd == n.stPair.usPeEnd &&
           static_cast<uint32_t>(n.stPair.usCeBgn) == static_cast<uint32_t>(c.stPair.usCeEnd) + 1 && SameSvc(c, n);
}

/* N continues C along PE: same CE range, N starts right after C, equal services. */
bool ExtendsAlongPe(const VLANLUA_UVLAN_SVCSEG_S &c, const VLANLUA_UVLAN_SVCSEG_S &n)
{
    return static_cast<uint32_t>(n.stPair.usPeBgn) == static_cast<uint32_t>(c.stPair.usPeEnd) + 1 &&
           n.stPair.usCeBgn == c.stPair.usCeBgn && n.stPair.usCeEnd == c.stPair.usCeEnd &&
           (n.uiFlag & UVLAN_SEG_MERGED) == 0 && SameSvc(c, n);
}

/* Indexes the final list by (PE begin, CE begin), so a piece finds its PE neighbour directly. */
void IndexFinalList(VLANLUA_UVLAN_SVCSET_S *pstSet, VLANLUA_UVLAN_TREE_S *pstIndex)
{
    vlanLua_UVlanSplitTreeInit(pstIndex);
    for (VLANLUA_UVLAN_SVCSEG_S *pstE = pstSet->stFinalSegs.pstNext; pstE != nullptr; pstE = pstE->pstNext) {
        KEL_AVL3_INIT_NODE(pstE->stNode);
        (void)KEL_AVL3_Insert_Or_Find(&pstIndex->stTree, &pstE->stNode, &pstIndex->stInfo);
    }
}

/* Swallows the pieces that continue C along PE, marking each merged. */
void GrowAlongPe(VLANLUA_UVLAN_TREE_S *pstIndex, VLANLUA_UVLAN_SVCSEG_S *pstC)
{
    for (;;) {
        VLANLUA_UVLAN_PAIR_S stKey = pstC->stPair;
        stKey.usPeBgn = static_cast<uint16_t>(pstC->stPair.usPeEnd + 1);
        if (stKey.usPeBgn == 0) {
            return;
        }
        auto *pstN = static_cast<VLANLUA_UVLAN_SVCSEG_S *>(KEL_AVL3_Find(&pstIndex->stTree, &stKey, &pstIndex->stInfo));
        if (pstN == nullptr || !ExtendsAlongPe(*pstC, *pstN)) {
            return;
        }
        pstN->uiFlag |= UVLAN_SEG_MERGED;
        KEL_AVL3_Delete(&pstIndex->stTree, &pstN->stNode);
        pstC->stPair.usPeEnd = pstN->stPair.usPeEnd;
    }
}

void Append(VLANLUA_UVLAN_SVCSEG_S **ppstTail, VLANLUA_UVLAN_SVCSEG_S *pstSeg)
{
    pstSeg->pstNext = nullptr;
    (*ppstTail)->pstNext = pstSeg;
    *ppstTail = pstSeg;
}

uint32_t Fail(VLANLUA_CTX_S *pstCtx, const char *pcMsg, uint32_t uiRet)
{
    VLANLUA_Write(pstCtx->pstLog, "%s", pcMsg);
    return uiRet;
}

/* Inserts the piece as a new row and creates its services under the new index. */
uint32_t InsertPiece(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet, const VLANLUA_UVLAN_SVCSEG_S *pstE,
                     const char *pcInsertErr, const char *pcCreateErr)
{
    uint32_t uiSegIndex = 0;
    uint32_t uiRet = vlanLua_UVlanInsertQinqSeg(pstCtx, &pstE->stPair, &pstSet->stKey, &uiSegIndex);
    if (uiRet != 0) {
        return Fail(pstCtx, pcInsertErr, uiRet);
    }
    if (HasSvc(*pstE)) {
        uiRet = vlanLua_UVlanCreateSvc(pstCtx, &pstE->stSvcInfo, &pstSet->stKey, uiSegIndex);
        if (uiRet != 0) {
            return Fail(pstCtx, pcCreateErr, uiRet);
        }
    }
    return 0;
}

uint32_t FlushSetList(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    for (VLANLUA_UVLAN_SVCSEG_S *pstE = pstSet->stSetSegs.pstNext; pstE != nullptr; pstE = pstE->pstNext) {
        bool bCreate = (pstE->uiFlag & UVLAN_SEG_CREATESVC) != 0;
        uint32_t uiRet = 0;
        if (HasSvc(*pstE)) {
            uiRet = bCreate ? vlanLua_UVlanCreateSvc(pstCtx, &pstE->stSvcInfo, &pstSet->stKey, pstE->uiSegIndex)
                            : vlanLua_UVlanSetSvc(pstCtx, &pstE->stSvcInfo, &pstSet->stKey, pstE->uiSegIndex,
                                                  pstE->uiFlag);
            if (uiRet != 0) {
                return Fail(pstCtx, "vlanLua_UVlanQinqFlushSegs:  SET SEG create or Set SVC return ERR\n", uiRet);
            }
        } else if (!bCreate) {
            uiRet = vlanLua_UVlanDeleteSvc(pstCtx, pstE->uiSegIndex, pstE->uiFlag);
            if (uiRet != 0) {
                return Fail(pstCtx, "vlanLua_UVlanQinqFlushSegs:  SET SEG Delete SVC return ERR\n", uiRet);
            }
        }
    }
    return 0;
}

} // namespace

/* ---- merging ---- */

extern "C" uint32_t vlanLua_UVlanQinqMergePeSameSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    (void)pstCtx;
    VLANLUA_UVLAN_SVCSEG_S *pstC = pstSet->stFinalSegs.pstNext;
    while (pstC != nullptr) {
        VLANLUA_UVLAN_SVCSEG_S *pstN = pstC->pstNext;
        if (pstN != nullptr && ExtendsAlongCe(*pstC, *pstN)) {
            pstC->stPair.usCeEnd = pstN->stPair.usCeEnd;
            pstC->pstNext = pstN->pstNext;
            VLANLUA_Free(pstN);
            continue;
        }
        pstC = pstN;
    }
    return 0;
}

extern "C" uint32_t vlanLua_UVlanQinqMergeCeSameSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    (void)pstCtx;
    VLANLUA_UVLAN_TREE_S stIndex;
    IndexFinalList(pstSet, &stIndex);
    VLANLUA_UVLAN_SVCSEG_S *pstPrev = &pstSet->stFinalSegs;
    VLANLUA_UVLAN_SVCSEG_S *pstC = pstPrev->pstNext;
    while (pstC != nullptr) {
        if ((pstC->uiFlag & UVLAN_SEG_MERGED) != 0) {
            pstPrev->pstNext = pstC->pstNext;
            VLANLUA_Free(pstC);
            pstC = pstPrev->pstNext;
            continue;
        }
        GrowAlongPe(&stIndex, pstC);
        pstPrev = pstC;
        pstC = pstC->pstNext;
    }
    return 0;
}

/* ---- sorting into new, changed and vanished rows ---- */

extern "C" uint32_t vlanLua_UVlanQinqDistinctOpSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    (void)pstCtx;
    VLANLUA_UVLAN_SVCSEG_S *pstAddTail = &pstSet->stAddSegs;
    VLANLUA_UVLAN_SVCSEG_S *pstSetTail = &pstSet->stSetSegs;
    VLANLUA_UVLAN_SVCSEG_S *pstDelTail = &pstSet->stDelSegs;
    while (pstAddTail->pstNext != nullptr) { pstAddTail = pstAddTail->pstNext; }
    while (pstSetTail->pstNext != nullptr) { pstSetTail = pstSetTail->pstNext; }
    VLANLUA_UVLAN_SVCSEG_S *pstE;
    while ((pstE = pstSet->stFinalSegs.pstNext) != nullptr) {
        pstSet->stFinalSegs.pstNext = pstE->pstNext;
        auto *pstO = static_cast<VLANLUA_UVLAN_SVCSEG_S *>(
            KEL_AVL3_Find(&pstSet->stSvcTree.stTree, &pstE->stPair, &pstSet->stSvcTree.stInfo));
        if (pstO == nullptr) {
            Append(&pstAddTail, pstE);
            continue;
        }
        pstO->uiFlag |= UVLAN_SEG_MATCHED;
        if (SameSvc(*pstO, *pstE)) {
            VLANLUA_Free(pstE);
            continue;
        }
        if ((pstO->uiFlag & UVLAN_SVC_NONE) != 0) {
            pstE->uiFlag |= UVLAN_SEG_CREATESVC;
        }
        Append(&pstSetTail, pstE);
    }
    for (uint32_t i = 0; i < pstSet->stSvcSegsOrg.uiNum; i++) {
        VLANLUA_UVLAN_SVCSEG_S *pstO = &pstSet->stSvcSegsOrg.pstSegs[i];
        if ((pstO->uiFlag & UVLAN_SEG_MATCHED) == 0) {
            Append(&pstDelTail, pstO);
        }
    }
    return 0;
}

/* ---- ordinary flush ---- */

extern "C" uint32_t vlanLua_UVlanQinqFlushAddSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    if (pstSet->stAddSegs.pstNext != nullptr) {
        pstSet->uiFlag |= UVLAN_SET_SEGCHG;
    }
    for (VLANLUA_UVLAN_SVCSEG_S *pstE = pstSet->stAddSegs.pstNext; pstE != nullptr; pstE = pstE->pstNext) {
        uint32_t uiRet = InsertPiece(pstCtx, pstSet, pstE, "vlanLua_UVlanQinqFlushSegs: ADD SEG insert qinq return ERR\n",
                                     "vlanLua_UVlanQinqFlushSegs:  ADD SEG create SVC return ERR\n");
        if (uiRet != 0) {
            return uiRet;
        }
    }
    return 0;
}

extern "C" uint32_t vlanLua_UVlanQinqFlushDelSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    if (pstSet->stDelSegs.pstNext != nullptr) {
        if ((pstSet->uiFlag & UVLAN_SET_SEGCHG) != 0) {
            pstSet->uiFlag |= UVLAN_SET_SEGADDDEL;
        }
        pstSet->uiFlag |= UVLAN_SET_SEGCHG;
    }
    for (VLANLUA_UVLAN_SVCSEG_S *pstO = pstSet->stDelSegs.pstNext; pstO != nullptr; pstO = pstO->pstNext) {
        uint32_t uiRet = vlanLua_UVlanDeleteQinqSeg(pstCtx, pstO->uiSegIndex, &pstSet->stKey);
        if (uiRet != 0) {
            return Fail(pstCtx, "vlanLua_UVlanQinqDelQinQFlushSegs:  Del return ERR\n", uiRet);
        }
    }
    return 0;
}

extern "C" uint32_t vlanLua_UVlanQinqFlushSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    uint32_t uiRet = FlushSetList(pstCtx, pstSet);
    if (uiRet == 0) {
        uiRet = vlanLua_UVlanQinqFlushAddSegs(pstCtx, pstSet);
    }
    if (uiRet == 0) {
        uiRet = vlanLua_UVlanQinqFlushDelSegs(pstCtx, pstSet);
    }
    return uiRet;
}

/* ---- removal flush ---- */

extern "C" uint32_t vlanLua_UVlanQinqAddSeg(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet,
                                            uint32_t *puiInserted)
{
    for (VLANLUA_UVLAN_SVCSEG_S *pstE = pstSet->stAddSegs.pstNext; pstE != nullptr; pstE = pstE->pstNext) {
        if (IsRemoval(*pstE)) {
            continue;
        }
        uint32_t uiRet = InsertPiece(pstCtx, pstSet, pstE, "vlanLua_UVlanQinqDelQinQFlushSegs:  insert qinq return ERR\n",
                                     "vlanLua_UVlanQinqDelQinQFlushSegs:  create SVC return ERR\n");
        if (uiRet != 0) {
            return uiRet;
        }
        (*puiInserted)++;
    }
    return 0;
}

extern "C" uint32_t vlanLua_UVlanQinqDelSegList(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet,
                                                uint32_t *puiDeleted)
{
    for (VLANLUA_UVLAN_SVCSEG_S *pstO = pstSet->stDelSegs.pstNext; pstO != nullptr; pstO = pstO->pstNext) {
        uint32_t uiRet = vlanLua_UVlanDeleteQinqSeg(pstCtx, pstO->uiSegIndex, &pstSet->stKey);
        if (uiRet != 0) {
            return Fail(pstCtx, "vlanLua_UVlanQinqDelQinQFlushSegs:  Del return ERR\n", uiRet);
        }
        (*puiDeleted)++;
    }
    return 0;
}

extern "C" uint32_t vlanLua_UVlanQinqSetSeg(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet, uint32_t *puiDeleted)
{
    for (VLANLUA_UVLAN_SVCSEG_S *pstE = pstSet->stSetSegs.pstNext; pstE != nullptr; pstE = pstE->pstNext) {
        if (!IsRemoval(*pstE)) {
            continue;
        }
        uint32_t uiRet = vlanLua_UVlanDeleteQinqSeg(pstCtx, pstE->uiSegIndex, &pstSet->stKey);
        if (uiRet != 0) {
            return Fail(pstCtx, "vlanLua_UVlanQinqDelQinQFlushSegs:  Del Seg return ERR\n", uiRet);
        }
        (*puiDeleted)++;
    }
    return 0;
}

extern "C" uint32_t vlanLua_UVlanQinqDelQinQFlushSegs(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    uint32_t uiInserted = 0;
    uint32_t uiDeleted = 0;
    uint32_t uiRet = vlanLua_UVlanQinqAddSeg(pstCtx, pstSet, &uiInserted);
    if (uiRet == 0) {
        uiRet = vlanLua_UVlanQinqDelSegList(pstCtx, pstSet, &uiDeleted);
    }
    if (uiRet == 0) {
        uiRet = vlanLua_UVlanQinqSetSeg(pstCtx, pstSet, &uiDeleted);
    }
    if (uiRet != 0) {
        return uiRet;
    }
    if (uiInserted != 0 && uiDeleted != 0) {
        pstSet->uiFlag |= UVLAN_SET_SEGADDDEL;
    }
    pstSet->uiSegNumChg = uiInserted - uiDeleted;
    return 0;
}

extern "C" uint32_t VLAN_API_UVlanQinqMergeProcess(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    (void)vlanLua_UVlanQinqMergePeSameSegs(pstCtx, pstSet);
    (void)vlanLua_UVlanQinqMergeCeSameSegs(pstCtx, pstSet);
    (void)vlanLua_UVlanQinqDistinctOpSegs(pstCtx, pstSet);
    if ((pstSet->uiFlag & UVLAN_SET_REMOVE) != 0) {
        return vlanLua_UVlanQinqDelQinQFlushSegs(pstCtx, pstSet);
    }
    return vlanLua_UVlanQinqFlushSegs(pstCtx, pstSet);
}
