/* The pair buffer of the user-VLAN walk and the counting of user-VLAN rows. The buffer is one
 * block of 4096 nodes that carry their own tree links, so adding a range never allocates and a
 * reset only clears the nodes in use. Uses only the platform's names. */
#include "vlanlua_uservlan_mib.h"

#include "bas/vlanlua_bas_query.h"
#include "sec_bound.h"

/* ---- ordering ---- */

int32_t vlanLua_UserVlanCompareUshort(const void *pKey1, const void *pKey2)
{
    uint16_t usA = *static_cast<const uint16_t *>(pKey1);
    uint16_t usB = *static_cast<const uint16_t *>(pKey2);
    if (usA < usB) {
        return -1;
    }
    return usA == usB ? 0 : 1;
}

/* ---- pair buffer ---- */

uint32_t vlanLua_VlanPairBuffCreate(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_PAIRBUF_S *pstBuf)
{
    const uint32_t uiSize = VLANLUA_UVLAN_PAIR_MAX * sizeof(VLANLUA_UVLAN_PAIRNODE_S);
    pstBuf->pstNode = static_cast<VLANLUA_UVLAN_PAIRNODE_S *>(VLANLUA_Malloc(pstCtx->pObj, uiSize));
    if (pstBuf->pstNode == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_VlanPairBuffCreate FAIL: uiMaxNum=%u\n", VLANLUA_UVLAN_PAIR_MAX);
        return 1;
    }
    pstBuf->uiMaxNum = VLANLUA_UVLAN_PAIR_MAX;
    return 0;
}

void vlanLua_VlanPairBuffDelete(VLANLUA_UVLAN_PAIRBUF_S *pstBuf)
{
    if (pstBuf->pstNode != nullptr) {
        VLANLUA_Free(pstBuf->pstNode);
    }
    (void)memset_s(pstBuf, sizeof(*pstBuf), 0, sizeof(*pstBuf));
}

void vlanLua_VlanPairBuffReset(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_PAIRBUF_S *pstBuf)
{
    (void)pstCtx;
    pstBuf->stTreeInfo.pfCompare = vlanLua_UserVlanCompareUshort;
    pstBuf->stTreeInfo.usKeyOffset = VLANLUA_UVLAN_PAIR_KEYOFS;
    pstBuf->stTreeInfo.usNodeOffset = 0;
    pstBuf->stTree.pstRoot = nullptr;
    pstBuf->stTree.pstFirst = nullptr;
    pstBuf->stTree.pstLast = nullptr;
    if (pstBuf->pstNode != nullptr && pstBuf->uiNodeNum != 0) {
        size_t uiUsed = pstBuf->uiNodeNum * sizeof(VLANLUA_UVLAN_PAIRNODE_S);
        (void)memset_s(pstBuf->pstNode, uiUsed, 0, uiUsed);
    }
    pstBuf->uiNodeNum = 0;
}

uint32_t vlanLua_VlanPairAdd(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_PAIRBUF_S *pstBuf, uint16_t usBgn, uint16_t usEnd)
{
    if (pstBuf->pstNode == nullptr || pstBuf->uiNodeNum >= pstBuf->uiMaxNum) {
        VLANLUA_Assert();
        return 1;
    }
    VLANLUA_UVLAN_PAIRNODE_S *pstNode = &pstBuf->pstNode[pstBuf->uiNodeNum];
    pstNode->pstParent = nullptr;
    pstNode->pstLeft = nullptr;
    pstNode->pstRight = nullptr;
    pstNode->uiHeight = 0xFFFFFFFFu;
    pstNode->usCeBgn = usBgn;
    pstNode->usCeEnd = usEnd;
    void *pOld = KEL_AVL3_Insert_Or_Find(&pstBuf->stTree, reinterpret_cast<KEL_AVL3_NODE_S *>(pstNode),
                                         &pstBuf->stTreeInfo);
    if (pOld != nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_VlanPairAdd: usCeBgn:%d, usCeEnd:%d, add error\n", usBgn, usEnd);
        return 1;
    }
    pstBuf->uiNodeNum++;
    return 0;
}

/* ---- counting ---- */

uint32_t vlanLua_UserVlanCnt(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_CNTKEY_S *pstKey, uint32_t uiTableId,
                             uint8_t ucRangeField, uint8_t ucEqualField, uint32_t *puiCount)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstKey == nullptr || puiCount == nullptr) {
        return 1;
    }
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, uiTableId));
    if (rs.Get() == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UserVlanCnt: VLANLUA_RecordSet_New rtn ERR\n");
        return 1;
    }
    uint32_t uiDropped = 0;
    if (pstKey->uiBgn != pstKey->uiEnd) {
        uiDropped |= VlanLua_WhereU32(rs.Get(), VLANLUA_OP_GE, ucRangeField, pstKey->uiBgn);
        uiDropped |= VlanLua_WhereU32(rs.Get(), VLANLUA_OP_LE, ucRangeField, pstKey->uiEnd);
    } else {
        uiDropped |= VlanLua_WhereU32(rs.Get(), VLANLUA_OP_EQ, ucRangeField, pstKey->uiBgn);
    }
    uiDropped |= VlanLua_WhereU32(rs.Get(), VLANLUA_OP_EQ, ucEqualField, pstKey->uiVal);
    if (uiDropped != 0) {
        return 1;                                       /* never a count under fewer conditions */
    }
    return ECM_CAPI_QueryCount(pstCtx->pObj, uiTableId, rs.Get()->pstWhere, VLANLUA_QUERY_MODE, puiCount);
}
