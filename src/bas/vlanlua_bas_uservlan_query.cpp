/* Reads of the user-VLAN tables: the existence checks, the queries that load the sources of
 * a walk and the description lookup. Each query reads no more rows than its caller can use,
 * and nothing here writes to the database. Uses only the platform's names. */
#include "vlanlua_uservlan_mib.h"

#include "bas/vlanlua_bas_mem.h"
#include "sec_bound.h"

namespace {

constexpr uint16_t DOT1Q_REC_LEN = sizeof(VLANLUA_UVLAN_DOT1QREC_S);
constexpr uint16_t QINQ_REC_LEN = sizeof(VLANLUA_UVLAN_QINQREC_S);
constexpr uint16_t DESC_REC_LEN = sizeof(VLANLUA_UVLAN_DESCREC_S);
constexpr uint16_t IFINDEX_REC_LEN = 4;

/* A record count of the database is 16 bits wide; a larger wish reads as many rows as it can. */
uint16_t ClampRows(uint64_t ulRows)
{
    return ulRows > 0xFFFFu ? static_cast<uint16_t>(0xFFFFu) : static_cast<uint16_t>(ulRows);
}

/* Rows of the interface in the VR; a failed count counts 0. */
uint32_t CountIfRows(VLANLUA_CTX_S *pstCtx, uint32_t uiTableId, uint32_t uiIfIndex, uint32_t uiVrId,
                     uint8_t ucVrField)
{
    VLANLUA_UVLAN_CNTKEY_S stKey = {uiIfIndex, uiIfIndex, uiVrId};
    uint32_t uiCount = 0;
    if (vlanLua_UserVlanCnt(pstCtx, &stKey, uiTableId, 1, ucVrField, &uiCount) != 0) {
        return 0;
    }
    return uiCount;
}

/* Runs the query and hands the record set to the list, or deletes it when the query fails. */
void LoadList(VlanLuaRsGuard &rs, uint16_t usRecLen, uint16_t usRows, VLANLUA_UVLAN_LIST_S *pstList)
{
    if (VLANLUA_RecordSet_Query(rs.Get(), usRecLen, usRows) != 0) {
        return;
    }
    pstList->uiRecNum = VLANLUA_RecordSet_GetRecordNum(rs.Get());
    pstList->pucData = VLANLUA_RecordSet_GetDataBuff(rs.Get());
    pstList->uiCur = 0;
    pstList->pstRs = rs.Release();
}

void DropList(VLANLUA_UVLAN_LIST_S *pstList)
{
    VLANLUA_RecordSet_Delete(pstList->pstRs);
    (void)memset_s(pstList, sizeof(*pstList), 0, sizeof(*pstList));
}

/* One-record probe: 0 when exactly one record answers the conditions. */
uint32_t ProbeOne(VlanLuaRsGuard &rs)
{
    if (VLANLUA_RecordSet_QueryFld(rs.Get(), 1) != 0) {
        return 1;
    }
    return VLANLUA_RecordSet_GetRecordNum(rs.Get()) == 1 ? 0 : 1;
}

/* A record set on the table, or null after appending "<pcWho>: VLANLUA_RecordSet_New ERR". */
VLANLUA_RECORDSET_S *NewRecordSet(VLANLUA_CTX_S *pstCtx, uint32_t uiTableId, const char *pcWho)
{
    VLANLUA_RECORDSET_S *pstRs = VLANLUA_RecordSet_New(pstCtx->pObj, uiTableId);
    if (pstRs == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "%s: VLANLUA_RecordSet_New ERR\n", pcWho);
    }
    return pstRs;
}

/* The 8-byte 802.1Q row: interface, first VLAN, last VLAN. */
void SelectDot1qRow(VLANLUA_RECORDSET_S *pstRs)
{
    VLANLUA_RecordSet_SelectField(pstRs, 1, 4);
    VLANLUA_RecordSet_SelectField(pstRs, 5, 2);
    VLANLUA_RecordSet_SelectField(pstRs, 6, 2);
}

/* The 12-byte QinQ row: interface, PE begin and end, CE begin and end. */
void SelectQinqRow(VLANLUA_RECORDSET_S *pstRs)
{
    VLANLUA_RecordSet_SelectField(pstRs, 1, 4);
    VLANLUA_RecordSet_SelectField(pstRs, 7, 2);
    VLANLUA_RecordSet_SelectField(pstRs, 8, 2);
    VLANLUA_RecordSet_SelectField(pstRs, 5, 2);
    VLANLUA_RecordSet_SelectField(pstRs, 6, 2);
}

}  // namespace

/* ---- existence checks ---- */

uint32_t vlanLua_UserVlanDot1qExist(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstKey == nullptr) {
        return 1;
    }
    VlanLuaRsGuard rs(NewRecordSet(pstCtx, VLANLUA_TBL_UVLAN_DOT1Q, "vlanLua_UserVlanDot1qExist"));
    if (rs.Get() == nullptr) {
        return 1;
    }
    SelectDot1qRow(rs.Get());
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, 1, &pstKey->uiIfIndex, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, 4, &pstKey->uiVrId, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_LE, 5, &pstKey->usCeVid, 2);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_GE, 6, &pstKey->usCeVid, 2);
    return ProbeOne(rs);
}

/* Asks from the given interface upwards (greater or equal), unlike the 802.1Q check. */
uint32_t vlanLua_UserVlanQinqExist(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstKey == nullptr) {
        return 1;
    }
    VlanLuaRsGuard rs(NewRecordSet(pstCtx, VLANLUA_TBL_UVLAN_QINQ_SEG, "vlanLua_UserVlanQinqExist"));
    if (rs.Get() == nullptr) {
        return 1;
    }
    SelectQinqRow(rs.Get());
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_GE, 1, &pstKey->uiIfIndex, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, 4, &pstKey->uiVrId, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_LE, 7, &pstKey->usPeVid, 2);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_GE, 8, &pstKey->usPeVid, 2);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_LE, 5, &pstKey->usCeVid, 2);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_GE, 6, &pstKey->usCeVid, 2);
    return ProbeOne(rs);
}

/* ---- sources of a walk ---- */

void vlanLua_UserVlanDot1qQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                VLANLUA_UVLAN_QUERYSET_S *pstSet)
{
    if (pstKey->uiQueryType == VLANLUA_UVLAN_QUERY_ANYOTHER || pstSet->uiDot1qQueried == 1) {
        return;
    }
    pstSet->uiDot1qQueried = 1;
    uint64_t ulRows = pstKey->uiQueryNum;    /* every row yields at least one entry */
    if (pstKey->uiIfIndex != 0) {
        ulRows += CountIfRows(pstCtx, VLANLUA_TBL_UVLAN_DOT1Q, pstKey->uiIfIndex, pstKey->uiVrId, 4);
    }
    if (ulRows == 0) {
        return;
    }
    VlanLuaRsGuard rs(NewRecordSet(pstCtx, VLANLUA_TBL_UVLAN_DOT1Q, "vlanLua_UserVlanDot1qQuery"));
    if (rs.Get() == nullptr) {
        return;
    }
    SelectDot1qRow(rs.Get());
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_GE, 1, &pstKey->uiIfIndex, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, 4, &pstKey->uiVrId, 4);
    VLANLUA_RecordSet_SortField(rs.Get(), 1);
    VLANLUA_RecordSet_SortField(rs.Get(), 5);
    LoadList(rs, DOT1Q_REC_LEN, ClampRows(ulRows), &pstSet->stDot1qList);
}

void vlanLua_UserVlanQinqQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                               VLANLUA_UVLAN_LIST_S *pstList)
{
    if (pstList->pstRs != nullptr) {
        DropList(pstList);
    }
    uint32_t uiRows = CountIfRows(pstCtx, VLANLUA_TBL_UVLAN_QINQ_SEG, pstKey->uiIfIndex, pstKey->uiVrId, 4);
    if (uiRows == 0) {
        return;
    }
    VlanLuaRsGuard rs(NewRecordSet(pstCtx, VLANLUA_TBL_UVLAN_QINQ_SEG, "vlanLua_UserVlanQinqQuery"));
    if (rs.Get() == nullptr) {
        return;
    }
    SelectQinqRow(rs.Get());
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, 1, &pstKey->uiIfIndex, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, 4, &pstKey->uiVrId, 4);
    VLANLUA_RecordSet_SortField(rs.Get(), 1);
    VLANLUA_RecordSet_SortField(rs.Get(), 5);
    LoadList(rs, QINQ_REC_LEN, ClampRows(uiRows), pstList);
}

void vlanLua_UserVlanQinqQueryIfIndex(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                      VLANLUA_UVLAN_QUERYSET_S *pstSet)
{
    if (pstKey->uiQueryType == VLANLUA_UVLAN_QUERY_ANYOTHER) {
        return;
    }
    VlanLuaRsGuard rs(NewRecordSet(pstCtx, VLANLUA_TBL_IF_INFO, "vlanLua_UserVlanQinqQuery"));
    if (rs.Get() == nullptr) {
        return;
    }
    const uint32_t uiKind = VLANLUA_UVLAN_IFKIND_QINQ;
    VLANLUA_RecordSet_SelectField(rs.Get(), 2, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_GE, 2, &pstKey->uiIfIndex, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, 3, &pstKey->uiVrId, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, 4, &uiKind, 4);
    VLANLUA_RecordSet_SortField(rs.Get(), 2);
    if (VLANLUA_RecordSet_Query(rs.Get(), IFINDEX_REC_LEN, VLANLUA_UVLAN_QINQ_IF_MAX) != 0) {
        return;
    }
    uint32_t uiNum = VLANLUA_RecordSet_GetRecordNum(rs.Get());
    uiNum = uiNum > VLANLUA_UVLAN_QINQ_IF_MAX ? VLANLUA_UVLAN_QINQ_IF_MAX : uiNum;
    (void)memcpy_s(pstSet->auiQinqIfIndex, sizeof(pstSet->auiQinqIfIndex), VLANLUA_RecordSet_GetDataBuff(rs.Get()),
                   uiNum * sizeof(uint32_t));
    pstSet->uiQinqIfNum = uiNum;
}

void vlanLua_UserVlanAnyOtherQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                   VLANLUA_UVLAN_QUERYSET_S *pstSet)
{
    if (pstKey->uiQueryType != VLANLUA_UVLAN_QUERY_ANYOTHER || pstSet->uiAnyOtherQueried == 1) {
        return;
    }
    pstSet->uiAnyOtherQueried = 1;
    if (pstKey->uiQueryNum == 0) {
        return;
    }
    VlanLuaRsGuard rs(NewRecordSet(pstCtx, VLANLUA_TBL_UVLAN_ANYOTHER, "vlanLua_UserVlanAnyOtherQuery"));
    if (rs.Get() == nullptr) {
        return;
    }
    VLANLUA_RecordSet_SelectField(rs.Get(), 1, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_GE, 1, &pstKey->uiIfIndex, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, 5, &pstKey->uiVrId, 4);
    VLANLUA_RecordSet_SortField(rs.Get(), 1);
    LoadList(rs, IFINDEX_REC_LEN, ClampRows(pstKey->uiQueryNum), &pstSet->stAnyOtherList);
}

void vlanLua_UserVlan_QuerySet_Delete(VLANLUA_UVLAN_QUERYSET_S *pstSet)
{
    DropList(&pstSet->stDot1qList);
    DropList(&pstSet->stQinqList);
    DropList(&pstSet->stAnyOtherList);
    if (pstSet->stPairBuf.pstNode != nullptr) {
        vlanLua_VlanPairBuffDelete(&pstSet->stPairBuf);
    }
}

/* ---- descriptions ---- */

VLANLUA_RECORDSET_S *vlanLua_UserVlanDescQueryByCond(VLANLUA_CTX_S *pstCtx, uint32_t uiFirstIf, uint32_t uiLastIf,
                                                     uint32_t uiVrId, uint32_t uiRowNum)
{
    VlanLuaRsGuard rs(NewRecordSet(pstCtx, VLANLUA_TBL_UVLAN_DESC, "vlanLua_UserVlanDescQuery"));
    if (rs.Get() == nullptr) {
        return nullptr;
    }
    VLANLUA_RecordSet_SelectField(rs.Get(), 1, 4);
    VLANLUA_RecordSet_SelectField(rs.Get(), 2, 2);
    VLANLUA_RecordSet_SelectField(rs.Get(), 3, 2);
    VLANLUA_RecordSet_SelectField(rs.Get(), 4, VLANLUA_UVLAN_DESC_LEN);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_GE, 1, &uiFirstIf, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_LE, 1, &uiLastIf, 4);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, 5, &uiVrId, 4);
    VLANLUA_RecordSet_SortField(rs.Get(), 1);
    VLANLUA_RecordSet_SortField(rs.Get(), 3);
    VLANLUA_RecordSet_SortField(rs.Get(), 2);
    if (VLANLUA_RecordSet_Query(rs.Get(), DESC_REC_LEN, ClampRows(uiRowNum)) != 0) {
        return nullptr;
    }
    return rs.Release();
}

void vlanLua_UserVlanDescQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBOUT_S *pstOut, uint32_t uiVrId,
                               VLANLUA_UVLAN_DESCLIST_S *pstDesc)
{
    if (pstOut == nullptr || pstDesc->uiQueried == 1) {
        return;
    }
    pstDesc->uiQueried = 1;
    if (pstOut->uiCount == 0) {
        return;
    }
    uint32_t uiFirst = pstOut->pstEntry[0].uiIfIndex;
    uint32_t uiLast = pstOut->pstEntry[pstOut->uiCount - 1].uiIfIndex;
    uint64_t ulRows = CountIfRows(pstCtx, VLANLUA_TBL_UVLAN_DESC, uiFirst, uiVrId, 5);
    if (uiFirst != uiLast) {
        ulRows += pstOut->uiCount;
    }
    if (ulRows == 0) {
        return;
    }
    VLANLUA_RECORDSET_S *pstRs = vlanLua_UserVlanDescQueryByCond(pstCtx, uiFirst, uiLast, uiVrId, ClampRows(ulRows));
    if (pstRs == nullptr) {
        return;
    }
    pstDesc->stList.pstRs = pstRs;
    pstDesc->stList.pucData = VLANLUA_RecordSet_GetDataBuff(pstRs);
    pstDesc->stList.uiRecNum = VLANLUA_RecordSet_GetRecordNum(pstRs);
    pstDesc->stList.uiCur = 0;
}

/* Entries come in walk order, so the cursor only passes rows that lie before the entry; it
 * never passes a row of another interface. */
const char *vlanLua_UserVlanGetDesc(const VLANLUA_UVLAN_MIBENTRY_S *pstEntry, VLANLUA_UVLAN_DESCLIST_S *pstDesc)
{
    VLANLUA_UVLAN_LIST_S *pstList = &pstDesc->stList;
    while (pstList->uiCur < pstList->uiRecNum) {
        const uint8_t *pucRow = pstList->pucData + static_cast<size_t>(pstList->uiCur) * DESC_REC_LEN;
        VLANLUA_UVLAN_DESCREC_S stRow;
        (void)memcpy_s(&stRow, sizeof(stRow), pucRow, 8);    /* the key part; the text stays in place */
        if (stRow.uiIfIndex != pstEntry->uiIfIndex || stRow.usCeVlan > pstEntry->usCeVlan) {
            return nullptr;
        }
        if (stRow.usCeVlan == pstEntry->usCeVlan && stRow.usPeVlan >= pstEntry->usPeVlan) {
            if (stRow.usPeVlan > pstEntry->usPeVlan) {
                return nullptr;
            }
            pstList->uiCur++;
            return reinterpret_cast<const char *>(pucRow + 8);
        }
        pstList->uiCur++;
    }
    return nullptr;
}
