/* The get-next walk over the user VLANs of a VR: positions the three sources after the start
 * key, then interleaves them interface by interface (any-other entry first, then 802.1Q and
 * QinQ entries by CE and PE VLAN) until the entry list is full or every source is exhausted.
 * The walk reads only, and releases everything it read on every path. Uses only the
 * platform's names. */
#include "vlanlua_uservlan_mib.h"

#include "sec_bound.h"

/* ---- keys ---- */

void vlanLua_UserVlanMibSetKey(VLANLUA_UVLAN_MIBKEY_S *pstKey, uint32_t uiIfIndex, uint16_t usPeVid,
                               uint16_t usCeVid, uint32_t uiVrId, uint32_t uiQueryNum, uint32_t uiQueryType)
{
    pstKey->uiIfIndex = uiIfIndex;
    pstKey->usPeVid = usPeVid;
    pstKey->usCeVid = usCeVid;
    pstKey->uiVrId = uiVrId;
    pstKey->uiQueryNum = uiQueryNum;
    pstKey->uiQueryType = uiQueryType;
}

namespace {

/* A source key at the given position that walks like the start key. */
void SetSourceKey(VLANLUA_UVLAN_MIBKEY_S *pstKey, const VLANLUA_UVLAN_MIBKEY_S *pstStart, uint32_t uiIfIndex,
                  uint16_t usPeVid, uint16_t usCeVid)
{
    vlanLua_UserVlanMibSetKey(pstKey, uiIfIndex, usPeVid, usCeVid, pstStart->uiVrId, pstStart->uiQueryNum,
                              pstStart->uiQueryType);
}

/* The any-other key starts after the start interface, the other two at it. */
void SetKeysAt(VLANLUA_UVLAN_QUERYSET_S *pstSet, const VLANLUA_UVLAN_MIBKEY_S *pstStart, uint16_t usPeVid)
{
    uint32_t uiIfIndex = pstStart->uiIfIndex;
    SetSourceKey(&pstSet->stAnyOtherKey, pstStart, uiIfIndex + 1u, 0, 0);
    SetSourceKey(&pstSet->stDot1qKey, pstStart, uiIfIndex, 0, pstStart->usCeVid);
    SetSourceKey(&pstSet->stQinqKey, pstStart, uiIfIndex, usPeVid, pstStart->usCeVid);
}

/* The interface list of the walk then starts after the resumed interface. */
void MoveQinqKeyPast(VLANLUA_UVLAN_QUERYSET_S *pstSet, uint32_t uiIfIndex)
{
    VLANLUA_UVLAN_MIBKEY_S *pstKey = &pstSet->stQinqKey;
    vlanLua_UserVlanMibSetKey(pstKey, uiIfIndex + 1u, 0, 0, pstKey->uiVrId, pstKey->uiQueryNum, pstKey->uiQueryType);
}

bool OutFull(const VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    return pstOut->uiCount >= pstOut->uiCapacity;
}

const VLANLUA_UVLAN_DOT1QREC_S *CurDot1qRow(const VLANLUA_UVLAN_QUERYSET_S *pstSet)
{
    const VLANLUA_UVLAN_LIST_S *pstList = &pstSet->stDot1qList;
    if (pstList->uiCur >= pstList->uiRecNum) {
        return nullptr;
    }
    return reinterpret_cast<const VLANLUA_UVLAN_DOT1QREC_S *>(pstList->pucData) + pstList->uiCur;
}

uint32_t CurDot1qIf(const VLANLUA_UVLAN_QUERYSET_S *pstSet)
{
    const VLANLUA_UVLAN_DOT1QREC_S *pstRow = CurDot1qRow(pstSet);
    return pstRow == nullptr ? VLANLUA_UVLAN_IF_NONE : pstRow->uiIfIndex;
}

uint32_t CurAnyOtherIf(const VLANLUA_UVLAN_QUERYSET_S *pstSet)
{
    const VLANLUA_UVLAN_LIST_S *pstList = &pstSet->stAnyOtherList;
    if (pstList->uiCur >= pstList->uiRecNum) {
        return VLANLUA_UVLAN_IF_NONE;
    }
    return reinterpret_cast<const uint32_t *>(pstList->pucData)[pstList->uiCur];
}

uint32_t TakeQinqIf(VLANLUA_UVLAN_QUERYSET_S *pstSet)
{
    if (pstSet->uiQinqIfCur >= pstSet->uiQinqIfNum) {
        return VLANLUA_UVLAN_IF_NONE;
    }
    return pstSet->auiQinqIfIndex[pstSet->uiQinqIfCur++];
}

}  // namespace

/* ---- resuming after the start key ---- */

uint32_t vlanLua_UserVlanMibDot1qQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                       VLANLUA_UVLAN_QUERYSET_S *pstSet, VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    SetKeysAt(pstSet, pstKey, 0);
    vlanLua_UserVlanDot1qQuery(pstCtx, &pstSet->stDot1qKey, pstSet);
    vlanLua_UserVlanQinqQuery(pstCtx, &pstSet->stQinqKey, &pstSet->stQinqList);
    if (pstSet->stQinqList.uiRecNum != 0) {
        uint32_t uiRet = vlanLua_UserVlanKeyDot1qQinqFill(pstCtx, pstSet, pstOut);
        if (uiRet != 0) {
            return uiRet;
        }
    } else {
        (void)vlanLua_UserVlanDot1qKeyIfIndexFill(&pstSet->stDot1qKey, pstSet, pstOut);
    }
    MoveQinqKeyPast(pstSet, pstKey->uiIfIndex);
    return 0;
}

uint32_t vlanLua_UserVlanMibQinqQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                      VLANLUA_UVLAN_QUERYSET_S *pstSet, VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    SetKeysAt(pstSet, pstKey, pstKey->usPeVid);
    vlanLua_UserVlanDot1qQuery(pstCtx, &pstSet->stDot1qKey, pstSet);
    vlanLua_UserVlanQinqQuery(pstCtx, &pstSet->stQinqKey, &pstSet->stQinqList);
    if (pstSet->stQinqList.pstRs != nullptr) {
        const VLANLUA_UVLAN_DOT1QREC_S *pstFirst = CurDot1qRow(pstSet);
        uint32_t uiRet = (pstFirst != nullptr && pstFirst->uiIfIndex == pstKey->uiIfIndex)
                             ? vlanLua_UserVlanKeyDot1qQinqFill(pstCtx, pstSet, pstOut)
                             : vlanLua_UserVlanQinqKeyIfIndexFill(pstCtx, &pstSet->stQinqKey, &pstSet->stQinqList,
                                                                  &pstSet->stPairBuf, pstOut);
        if (uiRet != 0) {
            return uiRet;
        }
    }
    MoveQinqKeyPast(pstSet, pstKey->uiIfIndex);
    return 0;
}

uint32_t vlanLua_UserVlanMibFirstQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                       VLANLUA_UVLAN_QUERYSET_S *pstSet, VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    if (pstKey->uiIfIndex == 0) {
        SetSourceKey(&pstSet->stAnyOtherKey, pstKey, 0, 0, 0);
        SetSourceKey(&pstSet->stDot1qKey, pstKey, 0, 0, 0);
        SetSourceKey(&pstSet->stQinqKey, pstKey, 0, 0, 0);
        return 0;
    }
    if (pstKey->usPeVid != 0) {
        return pstKey->usCeVid != 0 ? vlanLua_UserVlanMibQinqQuery(pstCtx, pstKey, pstSet, pstOut) : 1;
    }
    if (pstKey->usCeVid != 0) {
        return vlanLua_UserVlanMibDot1qQuery(pstCtx, pstKey, pstSet, pstOut);
    }
    SetKeysAt(pstSet, pstKey, 0);               /* after the any-other entry of the interface */
    return 0;
}

/* ---- the walk ---- */

namespace {

/* QinQ interface q: alone, or merged with the 802.1Q rows of the same interface. An interface
 * without QinQ rows contributes nothing and the walk goes on with the next one. */
uint32_t VisitQinqIf(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_QUERYSET_S *pstSet, uint32_t uiQ, uint32_t *puiD,
                     VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    VLANLUA_UVLAN_MIBKEY_S *pstQKey = &pstSet->stQinqKey;
    vlanLua_UserVlanMibSetKey(pstQKey, uiQ, 0, 0, pstQKey->uiVrId, pstQKey->uiQueryNum, pstQKey->uiQueryType);
    vlanLua_UserVlanQinqQuery(pstCtx, pstQKey, &pstSet->stQinqList);
    if (pstSet->stQinqList.uiRecNum == 0) {
        return 0;
    }
    pstQKey->usCeVid = reinterpret_cast<const VLANLUA_UVLAN_QINQREC_S *>(pstSet->stQinqList.pucData)->usCeBgn;
    if (uiQ != *puiD) {
        return vlanLua_UserVlanQinqFill(pstCtx, pstQKey, &pstSet->stQinqList, &pstSet->stPairBuf, pstOut);
    }
    VLANLUA_UVLAN_MIBKEY_S *pstDKey = &pstSet->stDot1qKey;
    vlanLua_UserVlanMibSetKey(pstDKey, uiQ, 0, CurDot1qRow(pstSet)->usVlanBgn, pstDKey->uiVrId, pstDKey->uiQueryNum,
                              pstDKey->uiQueryType);
    uint32_t uiRet = vlanLua_UserVlanDot1qQinqFill(pstCtx, pstSet, pstOut);
    *puiD = CurDot1qIf(pstSet);
    return uiRet;
}

uint32_t WalkSources(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_QUERYSET_S *pstSet, VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    uint32_t uiD = CurDot1qIf(pstSet);
    uint32_t uiQ = TakeQinqIf(pstSet);
    uint32_t uiA = CurAnyOtherIf(pstSet);
    while (!OutFull(pstOut)) {
        if (uiA != VLANLUA_UVLAN_IF_NONE && uiA <= uiD && uiA <= uiQ) {
            vlanLua_UserVlanAnyOtherFill(uiA, &pstSet->stAnyOtherList, pstOut);
            uiA = CurAnyOtherIf(pstSet);
        } else if (uiD == VLANLUA_UVLAN_IF_NONE || uiD >= uiQ) {
            if (uiQ == VLANLUA_UVLAN_IF_NONE) {
                return 0;
            }
            uint32_t uiRet = VisitQinqIf(pstCtx, pstSet, uiQ, &uiD, pstOut);
            if (uiRet != 0) {
                return uiRet;
            }
            uiQ = TakeQinqIf(pstSet);
        } else {
            VLANLUA_UVLAN_MIBKEY_S *pstDKey = &pstSet->stDot1qKey;
            vlanLua_UserVlanMibSetKey(pstDKey, uiD, 0, 0, pstDKey->uiVrId, pstDKey->uiQueryNum, pstDKey->uiQueryType);
            (void)vlanLua_UserVlanDot1qFill(uiD, pstSet, pstOut);
            uiD = CurDot1qIf(pstSet);
        }
    }
    return 0;
}

}  // namespace

uint32_t vlanLua_UserVlanMibQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                  VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstKey == nullptr || pstOut == nullptr) {
        return 1;
    }
    VLANLUA_UVLAN_QUERYSET_S stSet;
    (void)memset_s(&stSet, sizeof(stSet), 0, sizeof(stSet));
    uint32_t uiRet = vlanLua_UserVlanMibFirstQuery(pstCtx, pstKey, &stSet, pstOut);
    if (uiRet == 0 && !OutFull(pstOut)) {
        vlanLua_UserVlanAnyOtherQuery(pstCtx, &stSet.stAnyOtherKey, &stSet);
        vlanLua_UserVlanDot1qQuery(pstCtx, &stSet.stDot1qKey, &stSet);
        vlanLua_UserVlanQinqQueryIfIndex(pstCtx, &stSet.stQinqKey, &stSet);
        uiRet = WalkSources(pstCtx, &stSet, pstOut);
    }
    vlanLua_UserVlan_QuerySet_Delete(&stSet);
    return uiRet;
}
