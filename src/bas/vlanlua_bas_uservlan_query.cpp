/* Reads of the user-VLAN tables: the existence checks, the queries that load the sources of
 * a walk and the description lookup. Each query reads no more rows than its caller can use,
 * and nothing here writes to the database. Uses only the platform's names. */
#include "vlanlua_uservlan_mib.h"

#include "bas/vlanlua_bas_query.h"
#include "sec_bound.h"

namespace {

using IfInfo = VlanLuaTbl::IF_INFO;
using UDot1q = VlanLuaTbl::UVLAN_DOT1Q;
using USeg = VlanLuaTbl::UVLAN_QINQ_SEG;
using UDesc = VlanLuaTbl::UVLAN_DESC;
using UAnyOther = VlanLuaTbl::UVLAN_ANYOTHER;

constexpr uint16_t DESC_REC_LEN = sizeof(VLANLUA_UVLAN_DESCREC_S);
constexpr uint32_t DESC_TEXT_AT = UDesc::ifIndex::usWidth + UDesc::peVlan::usWidth + UDesc::ceVlan::usWidth;

/* A record count of the database is 16 bits wide; a larger wish reads as many rows as it can. */
uint16_t ClampRows(uint64_t ulRows)
{
    return ulRows > 0xFFFFu ? static_cast<uint16_t>(0xFFFFu) : static_cast<uint16_t>(ulRows);
}

/* Rows of the interface in the VR; a failed count counts 0. */
uint32_t CountIfRows(VLANLUA_CTX_S *pstCtx, uint32_t uiTableId, uint32_t uiIfIndex, uint32_t uiVrId,
                     uint8_t ucIfField, uint8_t ucVrField)
{
    VLANLUA_UVLAN_CNTKEY_S stKey = {uiIfIndex, uiIfIndex, uiVrId};
    uint32_t uiCount = 0;
    if (vlanLua_UserVlanCnt(pstCtx, &stKey, uiTableId, ucIfField, ucVrField, &uiCount) != 0) {
        return 0;
    }
    return uiCount;
}

/* Runs the query and hands the record set to the list, or deletes it when the query fails. */
template <class Table>
void LoadList(VlanLuaQuery<Table> &query, uint16_t usRows, VLANLUA_UVLAN_LIST_S *pstList)
{
    if (query.Query(usRows) != 0) {
        return;
    }
    pstList->uiRecNum = VLANLUA_RecordSet_GetRecordNum(query.Get());
    pstList->pucData = VLANLUA_RecordSet_GetDataBuff(query.Get());
    pstList->uiCur = 0;
    pstList->pstRs = query.Release();
}

void DropList(VLANLUA_UVLAN_LIST_S *pstList)
{
    VLANLUA_RecordSet_Delete(pstList->pstRs);
    (void)memset_s(pstList, sizeof(*pstList), 0, sizeof(*pstList));
}

/* One-record probe: 0 when exactly one record answers the conditions. */
template <class Table>
uint32_t ProbeOne(VlanLuaQuery<Table> &query)
{
    if (query.Query(1) != 0) {
        return 1;
    }
    return VLANLUA_RecordSet_GetRecordNum(query.Get()) == 1 ? 0 : 1;
}

/* Whether the query's record set was made; if not, "<pcWho>: VLANLUA_RecordSet_New ERR" is appended. */
bool QueryMade(VLANLUA_CTX_S *pstCtx, bool bMade, const char *pcWho)
{
    if (!bMade) {
        VLANLUA_Write(pstCtx->pstLog, "%s: VLANLUA_RecordSet_New ERR\n", pcWho);
    }
    return bMade;
}

/* The 8-byte 802.1Q row: interface, first VLAN, last VLAN. */
void SelectDot1qRow(VlanLuaQuery<UDot1q> &query)
{
    query.SelectRecord<VLANLUA_UVLAN_DOT1QREC_S, UDot1q::ifIndex, UDot1q::vlanBegin, UDot1q::vlanEnd>();
}

/* The 12-byte QinQ row: interface, PE begin and end, CE begin and end. */
void SelectQinqRow(VlanLuaQuery<USeg> &query)
{
    query.SelectRecord<VLANLUA_UVLAN_QINQREC_S, USeg::ifIndex, USeg::peBegin, USeg::peEnd, USeg::ceBegin,
                       USeg::ceEnd>();
}

}  // namespace

/* ---- existence checks ---- */

uint32_t vlanLua_UserVlanDot1qExist(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstKey == nullptr) {
        return 1;
    }
    VlanLuaQuery<UDot1q> query(pstCtx->pObj);
    if (!QueryMade(pstCtx, query.Made(), "vlanLua_UserVlanDot1qExist")) {
        return 1;
    }
    SelectDot1qRow(query);
    query.Where<UDot1q::ifIndex>(VLANLUA_OP_EQ, pstKey->uiIfIndex);
    query.Where<UDot1q::vrId>(VLANLUA_OP_EQ, pstKey->uiVrId);
    query.Where<UDot1q::vlanBegin>(VLANLUA_OP_LE, pstKey->usCeVid);
    query.Where<UDot1q::vlanEnd>(VLANLUA_OP_GE, pstKey->usCeVid);
    return ProbeOne(query);
}

/* Asks from the given interface upwards (greater or equal), unlike the 802.1Q check. */
uint32_t vlanLua_UserVlanQinqExist(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || pstKey == nullptr) {
        return 1;
    }
    VlanLuaQuery<USeg> query(pstCtx->pObj);
    if (!QueryMade(pstCtx, query.Made(), "vlanLua_UserVlanQinqExist")) {
        return 1;
    }
    SelectQinqRow(query);
    query.Where<USeg::ifIndex>(VLANLUA_OP_GE, pstKey->uiIfIndex);
    query.Where<USeg::vrId>(VLANLUA_OP_EQ, pstKey->uiVrId);
    query.Where<USeg::peBegin>(VLANLUA_OP_LE, pstKey->usPeVid);
    query.Where<USeg::peEnd>(VLANLUA_OP_GE, pstKey->usPeVid);
    query.Where<USeg::ceBegin>(VLANLUA_OP_LE, pstKey->usCeVid);
    query.Where<USeg::ceEnd>(VLANLUA_OP_GE, pstKey->usCeVid);
    return ProbeOne(query);
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
        ulRows += CountIfRows(pstCtx, UDot1q::uiId, pstKey->uiIfIndex, pstKey->uiVrId, UDot1q::ifIndex::ucFieldNo,
                              UDot1q::vrId::ucFieldNo);
    }
    if (ulRows == 0) {
        return;
    }
    VlanLuaQuery<UDot1q> query(pstCtx->pObj);
    if (!QueryMade(pstCtx, query.Made(), "vlanLua_UserVlanDot1qQuery")) {
        return;
    }
    SelectDot1qRow(query);
    query.Where<UDot1q::ifIndex>(VLANLUA_OP_GE, pstKey->uiIfIndex);
    query.Where<UDot1q::vrId>(VLANLUA_OP_EQ, pstKey->uiVrId);
    query.SortBy<UDot1q::ifIndex, UDot1q::vlanBegin>();
    LoadList(query, ClampRows(ulRows), &pstSet->stDot1qList);
}

void vlanLua_UserVlanQinqQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                               VLANLUA_UVLAN_LIST_S *pstList)
{
    if (pstList->pstRs != nullptr) {
        DropList(pstList);
    }
    uint32_t uiRows = CountIfRows(pstCtx, USeg::uiId, pstKey->uiIfIndex, pstKey->uiVrId, USeg::ifIndex::ucFieldNo,
                                  USeg::vrId::ucFieldNo);
    if (uiRows == 0) {
        return;
    }
    VlanLuaQuery<USeg> query(pstCtx->pObj);
    if (!QueryMade(pstCtx, query.Made(), "vlanLua_UserVlanQinqQuery")) {
        return;
    }
    SelectQinqRow(query);
    query.Where<USeg::ifIndex>(VLANLUA_OP_EQ, pstKey->uiIfIndex);
    query.Where<USeg::vrId>(VLANLUA_OP_EQ, pstKey->uiVrId);
    query.SortBy<USeg::ifIndex, USeg::ceBegin>();
    LoadList(query, ClampRows(uiRows), pstList);
}

void vlanLua_UserVlanQinqQueryIfIndex(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                                      VLANLUA_UVLAN_QUERYSET_S *pstSet)
{
    if (pstKey->uiQueryType == VLANLUA_UVLAN_QUERY_ANYOTHER) {
        return;
    }
    VlanLuaQuery<IfInfo> query(pstCtx->pObj);
    if (!QueryMade(pstCtx, query.Made(), "vlanLua_UserVlanQinqQuery")) {
        return;
    }
    query.Select<IfInfo::ifIndex>();
    query.Where<IfInfo::ifIndex>(VLANLUA_OP_GE, pstKey->uiIfIndex);
    query.Where<IfInfo::vrId>(VLANLUA_OP_EQ, pstKey->uiVrId);
    query.Where<IfInfo::kind>(VLANLUA_OP_EQ, uint32_t{VLANLUA_UVLAN_IFKIND_QINQ});
    query.SortBy<IfInfo::ifIndex>();
    if (query.Query(VLANLUA_UVLAN_QINQ_IF_MAX) != 0) {
        return;
    }
    uint32_t uiNum = VLANLUA_RecordSet_GetRecordNum(query.Get());
    uiNum = uiNum > VLANLUA_UVLAN_QINQ_IF_MAX ? VLANLUA_UVLAN_QINQ_IF_MAX : uiNum;
    (void)memcpy_s(pstSet->auiQinqIfIndex, sizeof(pstSet->auiQinqIfIndex), VLANLUA_RecordSet_GetDataBuff(query.Get()),
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
    VlanLuaQuery<UAnyOther> query(pstCtx->pObj);
    if (!QueryMade(pstCtx, query.Made(), "vlanLua_UserVlanAnyOtherQuery")) {
        return;
    }
    query.Select<UAnyOther::ifIndex>();
    query.Where<UAnyOther::ifIndex>(VLANLUA_OP_GE, pstKey->uiIfIndex);
    query.Where<UAnyOther::vrId>(VLANLUA_OP_EQ, pstKey->uiVrId);
    query.SortBy<UAnyOther::ifIndex>();
    LoadList(query, ClampRows(pstKey->uiQueryNum), &pstSet->stAnyOtherList);
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
    VlanLuaQuery<UDesc> query(pstCtx->pObj);
    if (!QueryMade(pstCtx, query.Made(), "vlanLua_UserVlanDescQuery")) {
        return nullptr;
    }
    query.SelectRecord<VLANLUA_UVLAN_DESCREC_S, UDesc::ifIndex, UDesc::peVlan, UDesc::ceVlan, UDesc::description>();
    query.Where<UDesc::ifIndex>(VLANLUA_OP_GE, uiFirstIf);
    query.Where<UDesc::ifIndex>(VLANLUA_OP_LE, uiLastIf);
    query.Where<UDesc::vrId>(VLANLUA_OP_EQ, uiVrId);
    query.SortBy<UDesc::ifIndex, UDesc::ceVlan, UDesc::peVlan>();
    if (query.Query(ClampRows(uiRowNum)) != 0) {
        return nullptr;
    }
    return query.Release();
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
    uint64_t ulRows = CountIfRows(pstCtx, UDesc::uiId, uiFirst, uiVrId, UDesc::ifIndex::ucFieldNo, UDesc::vrId::ucFieldNo);
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
        (void)memcpy_s(&stRow, sizeof(stRow), pucRow, DESC_TEXT_AT);    /* the key part; the text stays in place */
        if (stRow.uiIfIndex != pstEntry->uiIfIndex || stRow.usCeVlan > pstEntry->usCeVlan) {
            return nullptr;
        }
        if (stRow.usCeVlan == pstEntry->usCeVlan && stRow.usPeVlan >= pstEntry->usPeVlan) {
            if (stRow.usPeVlan > pstEntry->usPeVlan) {
                return nullptr;
            }
            pstList->uiCur++;
            return reinterpret_cast<const char *>(pucRow + DESC_TEXT_AT);
        }
        pstList->uiCur++;
    }
    return nullptr;
}
