/* The fills of the user-VLAN walk: they turn loaded rows into entries of one interface in
 * get-next order, by CE VLAN and then PE VLAN, an 802.1Q entry counting as PE VLAN 0. Row
 * cursors only move forward, and every fill stops as soon as the entry list is full.
 * Uses only the platform's names. */
#include "vlanlua_uservlan_mib.h"

namespace {

bool OutFull(const VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    return pstOut->uiCount >= pstOut->uiCapacity;
}

void Append(VLANLUA_UVLAN_MIBOUT_S *pstOut, uint32_t uiIfIndex, uint16_t usPe, uint16_t usCe)
{
    pstOut->pstEntry[pstOut->uiCount++] = VLANLUA_UVLAN_MIBENTRY_S{uiIfIndex, usPe, usCe};
}

VLANLUA_UVLAN_DOT1QREC_S *Dot1qRow(const VLANLUA_UVLAN_LIST_S *pstList, uint32_t uiRow)
{
    return reinterpret_cast<VLANLUA_UVLAN_DOT1QREC_S *>(pstList->pucData) + uiRow;
}

const VLANLUA_UVLAN_QINQREC_S *QinqRow(const VLANLUA_UVLAN_LIST_S *pstList, uint32_t uiRow)
{
    return reinterpret_cast<const VLANLUA_UVLAN_QINQREC_S *>(pstList->pucData) + uiRow;
}

bool HasRow(const VLANLUA_UVLAN_LIST_S *pstList)
{
    return pstList->uiCur < pstList->uiRecNum;
}

/* The VLAN after usVlan, or none when usVlan is the last one a u16 holds. */
bool NextVlan(uint16_t usVlan, uint16_t *pusNext)
{
    if (usVlan == 0xFFFFu) {
        return false;
    }
    *pusNext = static_cast<uint16_t>(usVlan + 1u);
    return true;
}

}  // namespace

/* ---- 802.1Q source ---- */

uint32_t vlanLua_UserVlanDot1qFill(uint32_t uiIfIndex, VLANLUA_UVLAN_QUERYSET_S *pstSet,
                                   VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    VLANLUA_UVLAN_LIST_S *pstList = &pstSet->stDot1qList;
    for (; HasRow(pstList); pstList->uiCur++) {
        const VLANLUA_UVLAN_DOT1QREC_S *pstRow = Dot1qRow(pstList, pstList->uiCur);
        if (pstRow->uiIfIndex != uiIfIndex) {
            break;
        }
        for (uint32_t v = pstRow->usVlanBgn; v <= pstRow->usVlanEnd; v++) {
            if (OutFull(pstOut)) {
                return 0;                       /* the cursor stays on this row */
            }
            Append(pstOut, pstRow->uiIfIndex, 0, static_cast<uint16_t>(v));
        }
    }
    return 0;
}

uint32_t vlanLua_UserVlanDot1qKeyIfIndexFill(const VLANLUA_UVLAN_MIBKEY_S *pstKey, VLANLUA_UVLAN_QUERYSET_S *pstSet,
                                             VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    VLANLUA_UVLAN_LIST_S *pstList = &pstSet->stDot1qList;
    for (; HasRow(pstList); pstList->uiCur++) {
        VLANLUA_UVLAN_DOT1QREC_S *pstRow = Dot1qRow(pstList, pstList->uiCur);
        if (pstRow->uiIfIndex != pstKey->uiIfIndex) {
            return 0;
        }
        if (pstRow->usVlanBgn > pstKey->usCeVid) {
            return vlanLua_UserVlanDot1qFill(pstKey->uiIfIndex, pstSet, pstOut);
        }
        uint16_t usAfter = 0;
        if (pstRow->usVlanEnd > pstKey->usCeVid && NextVlan(pstKey->usCeVid, &usAfter)) {
            pstRow->usVlanBgn = usAfter;        /* the row continues after the key */
            return vlanLua_UserVlanDot1qFill(pstKey->uiIfIndex, pstSet, pstOut);
        }
    }
    return 0;
}

uint32_t vlanLua_UserVlanDot1qGetNextCeVlan(uint32_t uiIfIndex, VLANLUA_UVLAN_LIST_S *pstList, uint16_t *pusCeVlan)
{
    if (!HasRow(pstList)) {
        return 1;
    }
    const VLANLUA_UVLAN_DOT1QREC_S *pstRow = Dot1qRow(pstList, pstList->uiCur);
    if (*pusCeVlan >= pstRow->usVlanBgn && *pusCeVlan < pstRow->usVlanEnd) {
        (*pusCeVlan)++;
        return 0;
    }
    pstList->uiCur++;
    if (!HasRow(pstList)) {
        return 1;
    }
    pstRow = Dot1qRow(pstList, pstList->uiCur);
    if (pstRow->uiIfIndex != uiIfIndex) {
        return 1;
    }
    *pusCeVlan = pstRow->usVlanBgn;
    return 0;
}

void vlanLua_UserVlanDot1qKeyFill(VLANLUA_UVLAN_MIBKEY_S *pstKey, VLANLUA_UVLAN_LIST_S *pstList)
{
    for (; HasRow(pstList); pstList->uiCur++) {
        VLANLUA_UVLAN_DOT1QREC_S *pstRow = Dot1qRow(pstList, pstList->uiCur);
        if (pstRow->uiIfIndex != pstKey->uiIfIndex) {
            break;
        }
        if (pstRow->usVlanBgn > pstKey->usCeVid) {
            pstKey->usCeVid = pstRow->usVlanBgn;
            return;
        }
        uint16_t usAfter = 0;
        if (pstRow->usVlanEnd > pstKey->usCeVid && NextVlan(pstKey->usCeVid, &usAfter)) {
            pstRow->usVlanBgn = usAfter;
            pstKey->usCeVid = usAfter;
            return;
        }
    }
    pstKey->usCeVid = VLANLUA_UVLAN_CE_DONE;
}

/* ---- QinQ source ---- */

uint32_t vlanLua_UserVlanQinqFillPePair(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                        const VLANLUA_UVLAN_LIST_S *pstList, VLANLUA_UVLAN_PAIRBUF_S *pstBuf)
{
    vlanLua_VlanPairBuffReset(pstCtx, pstBuf);
    for (uint32_t i = pstList->uiCur; i < pstList->uiRecNum; i++) {
        const VLANLUA_UVLAN_QINQREC_S *pstRow = QinqRow(pstList, i);
        if (pstRow->uiIfIndex != pstKey->uiIfIndex || pstKey->usCeVid < pstRow->usCeBgn) {
            break;                              /* rows come by CE begin */
        }
        if (pstKey->usCeVid > pstRow->usCeEnd || pstRow->usPeEnd <= pstKey->usPeVid) {
            continue;
        }
        uint16_t usBgn = pstRow->usPeBgn > pstKey->usPeVid ? pstRow->usPeBgn
                                                           : static_cast<uint16_t>(pstKey->usPeVid + 1u);
        if (vlanLua_VlanPairAdd(pstCtx, pstBuf, usBgn, pstRow->usPeEnd) != 0) {
            return 1;
        }
    }
    return 0;
}

uint32_t vlanLua_UserVlanQinqFillRec(uint32_t uiIfIndex, uint16_t usCeVlan, VLANLUA_UVLAN_PAIRBUF_S *pstBuf,
                                     VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    const KEL_AVL3_TREE_INFO_S *pstInfo = &pstBuf->stTreeInfo;
    auto *pstNode = static_cast<VLANLUA_UVLAN_PAIRNODE_S *>(KEL_AVL3_First(&pstBuf->stTree, pstInfo));
    while (pstNode != nullptr) {
        for (uint32_t p = pstNode->usCeBgn; p <= pstNode->usCeEnd; p++) {
            if (OutFull(pstOut)) {
                return 0;
            }
            Append(pstOut, uiIfIndex, static_cast<uint16_t>(p), usCeVlan);
        }
        pstNode = static_cast<VLANLUA_UVLAN_PAIRNODE_S *>(
            KEL_AVL3_Next(reinterpret_cast<KEL_AVL3_NODE_S *>(pstNode), pstInfo));
    }
    return 0;
}

uint32_t vlanLua_UserVlanQinqGetNextCeVlan(uint32_t uiIfIndex, VLANLUA_UVLAN_LIST_S *pstList, uint16_t *pusCeVlan)
{
    for (; HasRow(pstList); pstList->uiCur++) {
        const VLANLUA_UVLAN_QINQREC_S *pstRow = QinqRow(pstList, pstList->uiCur);
        if (pstRow->uiIfIndex != uiIfIndex) {
            return 1;
        }
        if (*pusCeVlan < pstRow->usCeBgn) {
            *pusCeVlan = pstRow->usCeBgn;
            return 0;
        }
        if (*pusCeVlan < pstRow->usCeEnd) {
            (*pusCeVlan)++;
            return 0;
        }
    }
    return 1;
}

void vlanLua_UserVlanQinqKeyFill(VLANLUA_UVLAN_MIBKEY_S *pstKey, VLANLUA_UVLAN_LIST_S *pstList)
{
    for (; HasRow(pstList); pstList->uiCur++) {
        const VLANLUA_UVLAN_QINQREC_S *pstRow = QinqRow(pstList, pstList->uiCur);
        if (pstRow->uiIfIndex != pstKey->uiIfIndex) {
            pstKey->usCeVid = VLANLUA_UVLAN_CE_DONE;
            return;
        }
        if (pstRow->usCeBgn > pstKey->usCeVid) {
            pstKey->usCeVid = pstRow->usCeBgn;
            pstKey->usPeVid = 0;                /* a new CE VLAN starts at its first PE VLAN */
            return;
        }
        if (pstRow->usCeEnd >= pstKey->usCeVid) {
            return;
        }
    }
}

uint32_t vlanLua_UserVlanQinqFill(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                  VLANLUA_UVLAN_LIST_S *pstList, VLANLUA_UVLAN_PAIRBUF_S *pstBuf,
                                  VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    if (pstBuf->pstNode == nullptr && vlanLua_VlanPairBuffCreate(pstCtx, pstBuf) != 0) {
        return 1;
    }
    for (;;) {
        uint32_t uiRet = vlanLua_UserVlanQinqFillPePair(pstCtx, pstKey, pstList, pstBuf);
        if (uiRet != 0) {
            return uiRet;
        }
        (void)vlanLua_UserVlanQinqFillRec(pstKey->uiIfIndex, pstKey->usCeVid, pstBuf, pstOut);
        uint16_t usNext = pstKey->usCeVid;
        if (OutFull(pstOut) || vlanLua_UserVlanQinqGetNextCeVlan(pstKey->uiIfIndex, pstList, &usNext) != 0) {
            return 0;
        }
        pstKey->usPeVid = 0;
        pstKey->usCeVid = usNext;
    }
}

uint32_t vlanLua_UserVlanQinqKeyIfIndexFill(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                            VLANLUA_UVLAN_LIST_S *pstList, VLANLUA_UVLAN_PAIRBUF_S *pstBuf,
                                            VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    for (; HasRow(pstList); pstList->uiCur++) {
        const VLANLUA_UVLAN_QINQREC_S *pstRow = QinqRow(pstList, pstList->uiCur);
        if (pstRow->uiIfIndex != pstKey->uiIfIndex) {
            return 0;
        }
        if (pstKey->usCeVid < pstRow->usCeBgn) {
            pstKey->usCeVid = pstRow->usCeBgn;
            pstKey->usPeVid = 0;                /* the key's own CE VLAN is no longer stored */
            break;
        }
        if (pstKey->usCeVid <= pstRow->usCeEnd) {
            break;
        }
    }
    return vlanLua_UserVlanQinqFill(pstCtx, pstKey, pstList, pstBuf, pstOut);
}

/* ---- both sources of one interface ---- */

namespace {

/* One CE VLAN of the QinQ source; q becomes the next one, or 65535 when there is none. */
uint32_t QinqStep(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_QUERYSET_S *pstSet, VLANLUA_UVLAN_MIBOUT_S *pstOut,
                  uint32_t *puiQ)
{
    VLANLUA_UVLAN_MIBKEY_S *pstKey = &pstSet->stQinqKey;
    uint32_t uiRet = vlanLua_UserVlanQinqFillPePair(pstCtx, pstKey, &pstSet->stQinqList, &pstSet->stPairBuf);
    if (uiRet != 0) {
        return uiRet;
    }
    (void)vlanLua_UserVlanQinqFillRec(pstKey->uiIfIndex, pstKey->usCeVid, &pstSet->stPairBuf, pstOut);
    if (OutFull(pstOut)) {
        return 0;
    }
    uint16_t usNext = pstKey->usCeVid;
    *puiQ = vlanLua_UserVlanQinqGetNextCeVlan(pstKey->uiIfIndex, &pstSet->stQinqList, &usNext) == 0
                ? usNext : VLANLUA_UVLAN_CE_DONE;
    pstKey->usPeVid = 0;
    pstKey->usCeVid = static_cast<uint16_t>(*puiQ);
    return 0;
}

/* One 802.1Q entry at d; d becomes the next one, or 65535 when there is none. */
void Dot1qStep(VLANLUA_UVLAN_QUERYSET_S *pstSet, VLANLUA_UVLAN_MIBOUT_S *pstOut, uint32_t *puiD)
{
    VLANLUA_UVLAN_LIST_S *pstList = &pstSet->stDot1qList;
    if (!HasRow(pstList)) {
        *puiD = VLANLUA_UVLAN_CE_DONE;
        return;
    }
    uint16_t usVlan = static_cast<uint16_t>(*puiD);
    Append(pstOut, Dot1qRow(pstList, pstList->uiCur)->uiIfIndex, 0, usVlan);
    if (OutFull(pstOut)) {
        return;
    }
    *puiD = vlanLua_UserVlanDot1qGetNextCeVlan(pstSet->stQinqKey.uiIfIndex, pstList, &usVlan) == 0
                ? usVlan : VLANLUA_UVLAN_CE_DONE;
}

}  // namespace

/* Interleaves the two sources by CE VLAN; at equal CE VLANs the 802.1Q entry (PE 0) goes first. */
uint32_t vlanLua_UserVlanDot1qQinqFill(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_QUERYSET_S *pstSet,
                                       VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    if (pstSet->stPairBuf.pstNode == nullptr && vlanLua_VlanPairBuffCreate(pstCtx, &pstSet->stPairBuf) != 0) {
        return 1;
    }
    uint32_t uiD = pstSet->stDot1qKey.usCeVid;
    uint32_t uiQ = pstSet->stQinqKey.usCeVid;
    while (!(uiD >= VLANLUA_UVLAN_CE_DONE && uiQ == VLANLUA_UVLAN_CE_DONE)) {
        if (OutFull(pstOut)) {
            return 0;
        }
        if (uiD >= VLANLUA_UVLAN_CE_DONE || uiD > uiQ) {
            uint32_t uiRet = QinqStep(pstCtx, pstSet, pstOut, &uiQ);
            if (uiRet != 0) {
                return uiRet;
            }
        } else {
            Dot1qStep(pstSet, pstOut, &uiD);
        }
    }
    return 0;
}

uint32_t vlanLua_UserVlanKeyDot1qQinqFill(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_QUERYSET_S *pstSet,
                                          VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    if (pstSet->stDot1qKey.usCeVid != 0) {
        vlanLua_UserVlanDot1qKeyFill(&pstSet->stDot1qKey, &pstSet->stDot1qList);
    }
    if (pstSet->stQinqKey.usCeVid != 0) {
        vlanLua_UserVlanQinqKeyFill(&pstSet->stQinqKey, &pstSet->stQinqList);
    }
    return vlanLua_UserVlanDot1qQinqFill(pstCtx, pstSet, pstOut);
}

/* ---- any-other source ---- */

void vlanLua_UserVlanAnyOtherFill(uint32_t uiIfIndex, VLANLUA_UVLAN_LIST_S *pstList, VLANLUA_UVLAN_MIBOUT_S *pstOut)
{
    Append(pstOut, uiIfIndex, 0, 0);
    pstList->uiCur++;
}
