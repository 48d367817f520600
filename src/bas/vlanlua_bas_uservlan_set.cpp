/* The service set of one user-VLAN QinQ request: its trees and lists, the orders on them, and
 * the loading of the stored segments near the request. Uses only the platform's names.
 *
 * The set owns both segment arrays, every cut point, and every piece in a split tree or in the
 * final, add and set lists. The delete list and the pair tree link records inside the second
 * array and own nothing, so destruction walks neither. */
#include "vlanlua_uservlan.h"

#include <cstddef>

#include "bas/vlanlua_bas_mem.h"
#include "ecm_capi.h"
#include "sec_bound.h"

namespace {

int32_t Sign(int32_t iDiff)
{
    return iDiff > 0 ? 1 : (iDiff < 0 ? -1 : 0);
}

void TreeInit(VLANLUA_UVLAN_TREE_S *pstTree, KEL_AVL3_COMPARE pfCompare, size_t ulKeyOffset)
{
    pstTree->stTree = KEL_AVL3_TREE_S{nullptr, nullptr, nullptr};
    pstTree->stInfo = KEL_AVL3_TREE_INFO_S{pfCompare, static_cast<uint16_t>(ulKeyOffset), 0};
}

/* The query key: the request's rectangle widened by one VLAN on every side, in 16 bits. */
VLANLUA_UVLAN_SEGQRY_S WidenedQuery(const VLANLUA_UVLAN_SVCSEG_S *pstReq, uint32_t uiIfIndex)
{
    const VLANLUA_UVLAN_PAIR_S &p = pstReq->stPair;
    return VLANLUA_UVLAN_SEGQRY_S{uiIfIndex, static_cast<uint16_t>(p.usPeBgn - 1), static_cast<uint16_t>(p.usPeEnd + 1),
                                  static_cast<uint16_t>(p.usCeBgn - 1), static_cast<uint16_t>(p.usCeEnd + 1)};
}

void FillFromRow(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet, const uint8_t *pucRow,
                 VLANLUA_UVLAN_SVCSEG_S *pstSeg)
{
    VLANLUA_UVLAN_SEGREC_S stRow;
    (void)memcpy_s(&stRow, sizeof(stRow), pucRow, sizeof(stRow));
    pstSeg->uiSegIndex = stRow.uiSegIndex;
    pstSeg->stPair = VLANLUA_UVLAN_PAIR_S{stRow.usPeBgn, stRow.usPeEnd, stRow.usCeBgn, stRow.usCeEnd};
    vlanLua_UVlanQryBaseSvcBySegindex(pstCtx, stRow.uiSegIndex, pstSeg, pstSet->auiBaseSvcMap);
    vlanLua_UVlanQryVpnSvcBySegindex(pstCtx, stRow.uiSegIndex, pstSeg, pstSet->auiVpnSvcMap);
    if ((pstSeg->uiFlag & UVLAN_SVC_NOBASE) != 0 && (pstSeg->uiFlag & UVLAN_SVC_NOVPN) != 0) {
        pstSeg->uiFlag |= UVLAN_SVC_NONE;
    }
}

void FreeArrays(VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    if (pstSet->stSvcSegs.pstSegs != nullptr) {
        VLANLUA_Free(pstSet->stSvcSegs.pstSegs);
        pstSet->stSvcSegs.pstSegs = nullptr;
    }
    if (pstSet->stSvcSegsOrg.pstSegs != nullptr) {
        VLANLUA_Free(pstSet->stSvcSegsOrg.pstSegs);
        pstSet->stSvcSegsOrg.pstSegs = nullptr;
    }
    pstSet->stSvcSegs.uiNum = 0;
    pstSet->stSvcSegsOrg.uiNum = 0;
    pstSet->stSvcTree.stTree = KEL_AVL3_TREE_S{nullptr, nullptr, nullptr};
}

/* Indexes every record of the second array by its pair; 1 at a pair stored twice. */
uint32_t BuildPairTree(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet, uint32_t uiNum)
{
    for (uint32_t i = 0; i < uiNum; i++) {
        VLANLUA_UVLAN_SVCSEG_S *pstSeg = &pstSet->stSvcSegsOrg.pstSegs[i];
        KEL_AVL3_INIT_NODE(pstSeg->stNode);
        if (KEL_AVL3_Insert_Or_Find(&pstSet->stSvcTree.stTree, &pstSeg->stNode, &pstSet->stSvcTree.stInfo) != nullptr) {
            VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqGetSegSvc insert stSvcTree fail, segIndex:%d \n",
                          static_cast<int32_t>(pstSeg->uiSegIndex));
            return 1;
        }
    }
    return 0;
}

uint32_t LoadRows(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet, const VLANLUA_UVLAN_SEGLIST_S &list)
{
    uint32_t uiBytes = list.uiNum * static_cast<uint32_t>(sizeof(VLANLUA_UVLAN_SVCSEG_S));
    auto *pstSegs = static_cast<VLANLUA_UVLAN_SVCSEG_S *>(VLANLUA_Malloc(pstCtx->pObj, uiBytes));
    if (pstSegs == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqGetSegSvc:Alloc pstSvcSegs Memory Fail\n");
        return 1;
    }
    (void)memset_s(pstSegs, uiBytes, 0, uiBytes);
    pstSet->stSvcSegs.pstSegs = pstSegs;
    for (uint32_t i = 0; i < list.uiNum; i++) {
        FillFromRow(pstCtx, pstSet, list.pucData + i * sizeof(VLANLUA_UVLAN_SEGREC_S), &pstSegs[i]);
    }
    pstSet->stSvcSegs.uiNum = list.uiNum;
    auto *pstOrg = static_cast<VLANLUA_UVLAN_SVCSEG_S *>(VLANLUA_Malloc(pstCtx->pObj, uiBytes));
    if (pstOrg == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanQinqGetSegSvc:Alloc pstSvcSegsOrg Memory Fail\n");
        FreeArrays(pstSet);
        return 1;
    }
    (void)memcpy_s(pstOrg, uiBytes, pstSegs, uiBytes);
    pstSet->stSvcSegsOrg.pstSegs = pstOrg;
    if (BuildPairTree(pstCtx, pstSet, list.uiNum) != 0) {
        FreeArrays(pstSet);
        return 1;
    }
    pstSet->stSvcSegsOrg.uiNum = list.uiNum;
    return 0;
}

} // namespace

/* ---- orders ---- */

extern "C" int32_t vlanLua_UserVlanCompareQinqVlan(const void *pKey1, const void *pKey2)
{
    return Sign(KEL_MemCmp(pKey1, pKey2, sizeof(VLANLUA_UVLAN_PAIR_S)));
}

extern "C" int32_t vlanLua_UserVlanSplitCmpQinqVlan(const void *pKey1, const void *pKey2)
{
    const auto *pstA = static_cast<const VLANLUA_UVLAN_PAIR_S *>(pKey1);
    const auto *pstB = static_cast<const VLANLUA_UVLAN_PAIR_S *>(pKey2);
    if (pstA->usPeBgn != pstB->usPeBgn) {
        return pstA->usPeBgn > pstB->usPeBgn ? 1 : -1;
    }
    if (pstA->usCeBgn != pstB->usCeBgn) {
        return pstA->usCeBgn > pstB->usCeBgn ? 1 : -1;
    }
    return 0;
}

extern "C" int32_t vlanLua_UVlanCompareUshort(const void *pKey1, const void *pKey2)
{
    uint16_t usA = *static_cast<const uint16_t *>(pKey1);
    uint16_t usB = *static_cast<const uint16_t *>(pKey2);
    return usA > usB ? 1 : (usA < usB ? -1 : 0);
}

extern "C" void vlanLua_UVlanSplitTreeInit(VLANLUA_UVLAN_TREE_S *pstTree)
{
    TreeInit(pstTree, vlanLua_UserVlanSplitCmpQinqVlan, offsetof(VLANLUA_UVLAN_SVCSEG_S, stPair));
}

/* ---- life of the set ---- */

extern "C" uint32_t vlanLua_UVlanQinqSvcSetInit(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S **ppstSet)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || ppstSet == nullptr) {
        return 1;
    }
    auto *pstSet = static_cast<VLANLUA_UVLAN_SVCSET_S *>(VLANLUA_Malloc(pstCtx->pObj, sizeof(VLANLUA_UVLAN_SVCSET_S)));
    if (pstSet == nullptr) {
        return 1;
    }
    (void)memset_s(pstSet, sizeof(*pstSet), 0, sizeof(*pstSet));
    TreeInit(&pstSet->stSvcTree, vlanLua_UserVlanCompareQinqVlan, offsetof(VLANLUA_UVLAN_SVCSEG_S, stPair));
    TreeInit(&pstSet->stPeList, vlanLua_UVlanCompareUshort, offsetof(VLANLUA_UVLAN_PENODE_S, usVlanId));
    vlanLua_UVlanSplitTreeInit(&pstSet->stDbSplitTree);
    vlanLua_UVlanSplitTreeInit(&pstSet->stCfgSplitTree);
    vlanLua_UVlanInitBaseSvcMap(pstSet->auiBaseSvcMap);
    vlanLua_UVlanInitVpnSvcMap(pstSet->auiVpnSvcMap);
    *ppstSet = pstSet;
    return 0;
}

extern "C" uint32_t vlanLua_UVlanQinqGetSegSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCSEG_S *pstReq,
                                               VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstReq == nullptr || pstSet == nullptr) {
        return 1;
    }
    VLANLUA_UVLAN_SEGQRY_S stQry = WidenedQuery(pstReq, pstSet->stKey.uiIfIndex);
    VLANLUA_UVLAN_SEGLIST_S stList = {0, nullptr, nullptr};
    vlanLua_UVlanQueryQinqSeg(pstCtx, &stQry, &stList);
    VlanLuaRsGuard rs(stList.pstRs);
    if (stList.uiNum == 0) {
        return 0;
    }
    if (LoadRows(pstCtx, pstSet, stList) != 0) {
        return 1;
    }
    VLANLUA_UVLAN_SEGREC_S stFirst;
    (void)memcpy_s(&stFirst, sizeof(stFirst), stList.pucData, sizeof(stFirst));
    pstSet->stKey.uiKeyA = stFirst.uiKeyA;
    pstSet->stKey.uiKeyB = stFirst.uiKeyB;
    return 0;
}

extern "C" void vlanLua_UVlanQinqSvcTreeFree(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_TREE_S *pstTree)
{
    (void)pstCtx;
    void *pElem;
    while ((pElem = KEL_AVL3_First(&pstTree->stTree, &pstTree->stInfo)) != nullptr) {
        KEL_AVL3_Delete(&pstTree->stTree, static_cast<KEL_AVL3_NODE_S *>(pElem));
        VLANLUA_Free(pElem);
    }
}

extern "C" void vlanLua_UVlanQinqSvcListFree(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSEG_S *pstFirst)
{
    (void)pstCtx;
    while (pstFirst != nullptr) {
        VLANLUA_UVLAN_SVCSEG_S *pstNext = pstFirst->pstNext;
        VLANLUA_Free(pstFirst);
        pstFirst = pstNext;
    }
}

extern "C" void vlanLua_UVlanQinqSvcSetDestroy(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    if (pstSet == nullptr) {
        return;
    }
    FreeArrays(pstSet);
    vlanLua_UVlanQinqSvcTreeFree(pstCtx, &pstSet->stPeList);
    vlanLua_UVlanQinqSvcTreeFree(pstCtx, &pstSet->stCfgSplitTree);
    vlanLua_UVlanQinqSvcTreeFree(pstCtx, &pstSet->stDbSplitTree);
    vlanLua_UVlanQinqSvcListFree(pstCtx, pstSet->stFinalSegs.pstNext);
    vlanLua_UVlanQinqSvcListFree(pstCtx, pstSet->stAddSegs.pstNext);
    vlanLua_UVlanQinqSvcListFree(pstCtx, pstSet->stSetSegs.pstNext);
    VLANLUA_Free(pstSet);
}
