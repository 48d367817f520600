/* Reading an interface's VLAN configuration through the control side: every row of the six tables
 * that hold it, each with all its columns, and the services of every user-VLAN QinQ segment.
 * Tables and columns are found by their names in the schema, so the reading follows the schema's
 * identifiers and field numbers; the views (text, drawing, page) take the rows as read here. */
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <map>

#include "vlanlua_cmd.h"

namespace {

const CmdKindInfo KINDS[KIND_NUM] = {
    {"DOT1Q_MATCH_SEG", "Dot1Q match ranges", "dot1q-match"},
    {"QINQ_MATCH_SEG", "QinQ match rectangles", "qinq-match"},
    {"UVLAN_QINQ_SEG", "user-VLAN QinQ segments", "uvlan-qinq"},
    {"UVLAN_DOT1Q", "user-VLAN Dot1Q ranges", "uvlan-dot1q"},
    {"UVLAN_DESC", "user-VLAN descriptions", "description"},
    {"UVLAN_ANYOTHER", "user-VLAN any-other entries", "any-other"},
};

/* The columns each kind's rows are listed by, most significant first. */
const char *const SORT_COLUMNS[KIND_NUM][3] = {
    {"group_id", "vlan_begin", "seg_index"}, {"group_id", "pe_begin", "ce_begin"},
    {"pe_begin", "ce_begin", "seg_index"},   {"vlan_begin", "vlan_end", "vrid"},
    {"pe_vlan", "ce_vlan", "vrid"},          {"vrid", nullptr, nullptr},
};

/* The interface column has the same name in every table of an interface's configuration. */
constexpr const char *IF_COLUMN = "ifindex";
const char *const SERVICE_TABLES[] = {"UVLAN_BASE_SVC", "UVLAN_VPN_SVC"};

/* ---- Rows ---- */

struct RowSink {
    const ECM_CTL_TABLE_S *pstTable;
    CmdKind eKind;
    std::vector<CmdRow> *pvecRows;
};

void OnRow(void *pCtx, const ECM_CTL_VAL_S *pstFields, uint32_t uiNum)
{
    RowSink *pstSink = static_cast<RowSink *>(pCtx);
    CmdRow stRow;
    stRow.eKind = pstSink->eKind;
    stRow.pstTable = pstSink->pstTable;
    for (uint32_t i = 0; i < uiNum; i++) {
        CmdValue stValue{ECM_CTL_FindField(pstSink->pstTable, pstFields[i].uiFieldNo), pstFields[i].ulNum, ""};
        if (pstFields[i].pucBytes != nullptr) {
            stValue.strBytes.assign(reinterpret_cast<const char *>(pstFields[i].pucBytes), pstFields[i].uiLen);
        }
        stRow.vecValues.push_back(std::move(stValue));
    }
    pstSink->pvecRows->push_back(std::move(stRow));
}

/* Every row of the table whose interface column holds uiIfIndex. */
uint32_t ReadRows(void *pObj, const char *pcTable, CmdKind eKind, uint32_t uiIfIndex, std::vector<CmdRow> *pvecRows)
{
    const ECM_CTL_TABLE_S *pstTable = Cmd_TableNamed(pcTable);
    if (pstTable == nullptr) {
        return ECM_ERR_TABLE;
    }
    RowSink stSink{pstTable, eKind, pvecRows};
    ECM_CTL_VAL_S stWhere{Cmd_ColumnNo(pstTable, IF_COLUMN), 0, uiIfIndex, nullptr};
    return ECM_CTL_Rows(pObj, pstTable->uiTableId, &stWhere, 1, OnRow, &stSink);
}

/* Service number and value of the non-zero "svc<n>" columns of service rows, by interface and
 * segment index. */
using ServiceMap = std::map<uint64_t, std::vector<std::pair<uint32_t, uint64_t>>>;

/* Service number and value of the non-zero "svc<n>" columns of a service row. */
void AddServices(const CmdRow &stSvcRow, std::vector<std::pair<uint32_t, uint64_t>> *pvecSvcs)
{
    for (const CmdValue &v : stSvcRow.vecValues) {
        const char *pcShort = v.pstField != nullptr ? Cmd_ShortName(v.pstField->pcName) : "";
        if (strncmp(pcShort, "svc", 3) == 0 && v.ulNum != 0) {
            pvecSvcs->emplace_back(static_cast<uint32_t>(atoi(pcShort + 3)), v.ulNum);
        }
    }
}

uint64_t SegmentKey(const CmdRow &stRow)
{
    return (stRow.Num("ifindex") << 32) | stRow.Num("seg_index");
}

/* Each segment's services in service order, and as "svc1=7 svc8=3", from its base and VPN service
 * rows. */
void GiveServices(ServiceMap *pmapSvcs, std::vector<CmdRow> *pvecSegs)
{
    for (CmdRow &stSeg : *pvecSegs) {
        std::vector<std::pair<uint32_t, uint64_t>> &vecSvcs = (*pmapSvcs)[SegmentKey(stSeg)];
        std::sort(vecSvcs.begin(), vecSvcs.end());
        stSeg.vecServices = vecSvcs;
        for (const auto &svc : vecSvcs) {
            stSeg.strServices += (stSeg.strServices.empty() ? "svc" : " svc") + std::to_string(svc.first) + "=" +
                                 std::to_string(svc.second);
        }
    }
}

/* The services of the interface's segments (every interface's when bAll). */
uint32_t ReadServices(void *pObj, bool bAll, uint32_t uiIfIndex, std::vector<CmdRow> *pvecSegs)
{
    ServiceMap mapSvcs;
    for (const char *pcTable : SERVICE_TABLES) {
        std::vector<CmdRow> vecRows;
        uint32_t uiRet = bAll ? Cmd_ReadTable(pObj, Cmd_TableNamed(pcTable), &vecRows)
                              : ReadRows(pObj, pcTable, KIND_NUM, uiIfIndex, &vecRows);
        if (uiRet != ECM_OK) {
            return uiRet;
        }
        for (const CmdRow &stRow : vecRows) {
            AddServices(stRow, &mapSvcs[SegmentKey(stRow)]);
        }
    }
    GiveServices(&mapSvcs, pvecSegs);
    return ECM_OK;
}

void SortRows(CmdKind eKind, std::vector<CmdRow> *pvecRows)
{
    std::stable_sort(pvecRows->begin(), pvecRows->end(), [eKind](const CmdRow &a, const CmdRow &b) {
        for (const char *pcColumn : SORT_COLUMNS[eKind]) {
            if (pcColumn != nullptr && a.Num(pcColumn) != b.Num(pcColumn)) {
                return a.Num(pcColumn) < b.Num(pcColumn);
            }
        }
        return false;
    });
}

/* ---- Counts ---- */

struct CountSink {
    uint32_t uiIfField;
    CmdKind eKind;
    std::map<uint32_t, CmdIfCounts> *pmapCounts;
};

void OnCountRow(void *pCtx, const ECM_CTL_VAL_S *pstFields, uint32_t uiNum)
{
    CountSink *pstSink = static_cast<CountSink *>(pCtx);
    for (uint32_t i = 0; i < uiNum; i++) {
        if (pstFields[i].uiFieldNo == pstSink->uiIfField) {
            CmdIfCounts &stCounts = (*pstSink->pmapCounts)[static_cast<uint32_t>(pstFields[i].ulNum)];
            stCounts.uiIfIndex = static_cast<uint32_t>(pstFields[i].ulNum);
            stCounts.auiRows[pstSink->eKind]++;
        }
    }
}

}  // namespace

const CmdKindInfo &Cmd_KindInfo(CmdKind eKind)
{
    return KINDS[eKind];
}

CmdKind Cmd_KindOf(const ECM_CTL_TABLE_S *pstTable)
{
    for (int k = 0; k < KIND_NUM; k++) {
        if (pstTable != nullptr && strcmp(KINDS[k].pcTable, pstTable->pcName) == 0) {
            return static_cast<CmdKind>(k);
        }
    }
    return KIND_NUM;
}

const ECM_CTL_TABLE_S *Cmd_TableNamed(const char *pcName)
{
    for (uint32_t i = 0; ECM_CTL_TableAt(i) != nullptr; i++) {
        if (strcmp(ECM_CTL_TableAt(i)->pcName, pcName) == 0) {
            return ECM_CTL_TableAt(i);
        }
    }
    return nullptr;
}

uint32_t Cmd_ColumnNo(const ECM_CTL_TABLE_S *pstTable, const char *pcShort)
{
    for (uint32_t i = 0; pstTable != nullptr && i < pstTable->uiFieldNum; i++) {
        if (strcmp(Cmd_ShortName(pstTable->pstFields[i].pcName), pcShort) == 0) {
            return pstTable->pstFields[i].ucFieldNo;
        }
    }
    return 0;
}

int Cmd_ColumnAt(const ECM_CTL_TABLE_S *pstTable, const char *pcShort)
{
    for (uint32_t i = 0; pstTable != nullptr && i < pstTable->uiFieldNum; i++) {
        if (strcmp(Cmd_ShortName(pstTable->pstFields[i].pcName), pcShort) == 0) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

uint32_t Cmd_ReadTable(void *pObj, const ECM_CTL_TABLE_S *pstTable, std::vector<CmdRow> *pvecRows)
{
    if (pstTable == nullptr) {
        return ECM_ERR_TABLE;
    }
    RowSink stSink{pstTable, Cmd_KindOf(pstTable), pvecRows};
    uint32_t uiRet = ECM_CTL_Rows(pObj, pstTable->uiTableId, nullptr, 0, OnRow, &stSink);
    if (uiRet == ECM_OK && stSink.eKind == KIND_UVLAN_QINQ) {
        uiRet = ReadServices(pObj, true, 0, pvecRows);
    }
    return uiRet;
}

uint64_t CmdRow::Num(const char *pcShort) const
{
    for (const CmdValue &v : vecValues) {
        if (v.pstField != nullptr && strcmp(Cmd_ShortName(v.pstField->pcName), pcShort) == 0) {
            return v.ulNum;
        }
    }
    return 0;
}

std::string CmdRow::Text(const char *pcShort) const
{
    for (const CmdValue &v : vecValues) {
        if (v.pstField != nullptr && strcmp(Cmd_ShortName(v.pstField->pcName), pcShort) == 0) {
            return v.strBytes.substr(0, v.strBytes.find('\0'));
        }
    }
    return "";
}

uint32_t Cmd_ReadInterface(void *pObj, uint32_t uiIfIndex, CmdIfConfig *pstConfig)
{
    pstConfig->uiIfIndex = uiIfIndex;
    uint32_t uiNo = 0;
    for (int k = 0; k < KIND_NUM; k++) {
        CmdKind eKind = static_cast<CmdKind>(k);
        std::vector<CmdRow> &vecRows = pstConfig->avecRows[k];
        uint32_t uiRet = ReadRows(pObj, KINDS[k].pcTable, eKind, uiIfIndex, &vecRows);
        if (uiRet == ECM_OK && eKind == KIND_UVLAN_QINQ) {
            uiRet = ReadServices(pObj, false, uiIfIndex, &vecRows);
        }
        if (uiRet != ECM_OK) {
            return uiRet;
        }
        SortRows(eKind, &vecRows);
        for (CmdRow &stRow : vecRows) {
            stRow.uiNo = ++uiNo;
        }
    }
    return ECM_OK;
}

uint32_t Cmd_ReadCounts(void *pObj, std::vector<CmdIfCounts> *pvecCounts)
{
    std::map<uint32_t, CmdIfCounts> mapCounts;
    for (int k = 0; k < KIND_NUM; k++) {
        const ECM_CTL_TABLE_S *pstTable = Cmd_TableNamed(KINDS[k].pcTable);
        if (pstTable == nullptr) {
            return ECM_ERR_TABLE;
        }
        CountSink stSink{Cmd_ColumnNo(pstTable, IF_COLUMN), static_cast<CmdKind>(k), &mapCounts};
        uint32_t uiRet = ECM_CTL_Rows(pObj, pstTable->uiTableId, nullptr, 0, OnCountRow, &stSink);
        if (uiRet != ECM_OK) {
            return uiRet;
        }
    }
    pvecCounts->clear();
    for (const auto &entry : mapCounts) {
        pvecCounts->push_back(entry.second);
    }
    return ECM_OK;
}

std::string Cmd_RowNo(const CmdRow &stRow)
{
    std::string strNo = "#";
    return strNo.append(std::to_string(stRow.uiNo));
}

std::string Cmd_Range(uint64_t ulBegin, uint64_t ulEnd)
{
    return ulBegin == ulEnd ? std::to_string(ulBegin) : std::to_string(ulBegin) + "-" + std::to_string(ulEnd);
}

bool Cmd_RowBackwards(const CmdRow &stRow)
{
    static const char *const apcRanges[][2] = {{"pe_begin", "pe_end"}, {"ce_begin", "ce_end"}, {"vlan_begin", "vlan_end"}};
    for (const auto &range : apcRanges) {
        if (stRow.Num(range[0]) > stRow.Num(range[1])) {
            return true;
        }
    }
    return false;
}
