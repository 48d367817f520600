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

const ECM_CTL_TABLE_S *TableNamed(const char *pcName)
{
    for (uint32_t i = 0; ECM_CTL_TableAt(i) != nullptr; i++) {
        if (strcmp(ECM_CTL_TableAt(i)->pcName, pcName) == 0) {
            return ECM_CTL_TableAt(i);
        }
    }
    return nullptr;
}

/* Field number of the column whose short name is pcShort; 0 if none. */
uint32_t ColumnNo(const ECM_CTL_TABLE_S *pstTable, const char *pcShort)
{
    for (uint32_t i = 0; pstTable != nullptr && i < pstTable->uiFieldNum; i++) {
        if (strcmp(Cmd_ShortName(pstTable->pstFields[i].pcName), pcShort) == 0) {
            return pstTable->pstFields[i].ucFieldNo;
        }
    }
    return 0;
}

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
    const ECM_CTL_TABLE_S *pstTable = TableNamed(pcTable);
    if (pstTable == nullptr) {
        return ECM_ERR_TABLE;
    }
    RowSink stSink{pstTable, eKind, pvecRows};
    ECM_CTL_VAL_S stWhere{ColumnNo(pstTable, IF_COLUMN), 0, uiIfIndex, nullptr};
    return ECM_CTL_Rows(pObj, pstTable->uiTableId, &stWhere, 1, OnRow, &stSink);
}

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

/* Each segment's services as "svc1=7 svc8=3" in service order, from the base and VPN service
 * rows of the interface. */
uint32_t ReadServices(void *pObj, uint32_t uiIfIndex, std::vector<CmdRow> *pvecSegs)
{
    std::map<uint64_t, std::vector<std::pair<uint32_t, uint64_t>>> mapSvcs;
    for (const char *pcTable : SERVICE_TABLES) {
        std::vector<CmdRow> vecRows;
        uint32_t uiRet = ReadRows(pObj, pcTable, KIND_NUM, uiIfIndex, &vecRows);
        if (uiRet != ECM_OK) {
            return uiRet;
        }
        for (const CmdRow &stRow : vecRows) {
            AddServices(stRow, &mapSvcs[stRow.Num("seg_index")]);
        }
    }
    for (CmdRow &stSeg : *pvecSegs) {
        std::vector<std::pair<uint32_t, uint64_t>> &vecSvcs = mapSvcs[stSeg.Num("seg_index")];
        std::sort(vecSvcs.begin(), vecSvcs.end());
        for (const auto &svc : vecSvcs) {
            stSeg.strServices += (stSeg.strServices.empty() ? "svc" : " svc") + std::to_string(svc.first) + "=" +
                                 std::to_string(svc.second);
        }
    }
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
            uiRet = ReadServices(pObj, uiIfIndex, &vecRows);
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
        const ECM_CTL_TABLE_S *pstTable = TableNamed(KINDS[k].pcTable);
        if (pstTable == nullptr) {
            return ECM_ERR_TABLE;
        }
        CountSink stSink{ColumnNo(pstTable, IF_COLUMN), static_cast<CmdKind>(k), &mapCounts};
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
