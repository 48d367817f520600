/* --diff: the rows that differ between two configuration files, in every table of the schema.
 * Rows of a table with a key are matched by their key: a key in one file only is a row added or
 * removed, a key in both with other values a row changed. Rows of a table without a key are
 * matched by all their values, so they are only added or removed. Changes are listed per
 * interface (the row's interface column; rows of tables without one, such as SEG_INDEX, under the
 * whole file) and per kind, each row in the form --show gives it. */
#include <stdio.h>

#include <algorithm>
#include <map>

#include "vlanlua_cmd.h"
#include "vlanlua_json.h"

namespace {

enum ChangeOp { CHANGE_ADDED, CHANGE_REMOVED, CHANGE_CHANGED };
const char *const CHANGE_NAMES[] = {"added", "removed", "changed"};
const char CHANGE_MARKS[] = {'+', '-', '~'};

struct Change {
    bool bHasIf;
    uint64_t ulIf;
    const ECM_CTL_TABLE_S *pstTable;
    ChangeOp eOp;
    const CmdRow *pstBefore;    /* null for a row added */
    const CmdRow *pstAfter;     /* null for a row removed */

    const CmdRow &Row() const { return pstAfter != nullptr ? *pstAfter : *pstBefore; }
};

/* Interfaces in ascending order, the whole file last; then the kinds in --show's order, the other
 * tables after them in the schema's order. */
std::tuple<bool, uint64_t, int, uint32_t> Place(const Change &c)
{
    CmdKind eKind = Cmd_KindOf(c.pstTable);
    return {!c.bHasIf, c.ulIf, static_cast<int>(eKind), c.pstTable->uiTableId};
}

uint32_t ReadAll(void *pObj, CmdTableRows *pmapRows)
{
    for (uint32_t i = 0; ECM_CTL_TableAt(i) != nullptr; i++) {
        const ECM_CTL_TABLE_S *pstTable = ECM_CTL_TableAt(i);
        uint32_t uiRet = Cmd_ReadTable(pObj, pstTable, &(*pmapRows)[pstTable->pcName]);
        if (uiRet != ECM_OK) {
            return uiRet;
        }
    }
    return ECM_OK;
}

/* What identifies a row: its key, or all its values in a table without a key. */
std::string Identity(const CmdRow &stRow)
{
    return stRow.pstTable->uiKeyNum != 0 ? Cmd_JsonKey(stRow).dump() : Cmd_JsonFields(stRow).dump();
}

void AddChange(const CmdRow *pstBefore, const CmdRow *pstAfter, ChangeOp eOp, std::vector<Change> *pvecChanges)
{
    const CmdRow &stRow = pstAfter != nullptr ? *pstAfter : *pstBefore;
    int iIf = Cmd_ColumnAt(stRow.pstTable, "ifindex");
    pvecChanges->push_back({iIf >= 0, iIf >= 0 ? stRow.vecValues[static_cast<size_t>(iIf)].ulNum : 0, stRow.pstTable, eOp,
                            pstBefore, pstAfter});
}

/* One table: rows are paired by identity; several rows of one identity (a table without a key)
 * pair off one by one, and what is left over was added or removed. */
void CompareTable(const std::vector<CmdRow> &vecBefore, const std::vector<CmdRow> &vecAfter, std::vector<Change> *pvec)
{
    std::multimap<std::string, const CmdRow *> mapBefore;
    for (const CmdRow &r : vecBefore) {
        mapBefore.emplace(Identity(r), &r);
    }
    for (const CmdRow &r : vecAfter) {
        auto it = mapBefore.find(Identity(r));
        if (it == mapBefore.end()) {
            AddChange(nullptr, &r, CHANGE_ADDED, pvec);
            continue;
        }
        if (Cmd_JsonFields(*it->second) != Cmd_JsonFields(r)) {
            AddChange(it->second, &r, CHANGE_CHANGED, pvec);
        }
        mapBefore.erase(it);
    }
    for (const auto &entry : mapBefore) {
        AddChange(entry.second, nullptr, CHANGE_REMOVED, pvec);
    }
}

/* A row as --show lists it; rows of other tables as their columns. */
std::string RowText(const CmdRow &stRow)
{
    return Cmd_KindOf(stRow.pstTable) != KIND_NUM ? Cmd_RowText(stRow) : Cmd_RowColumns(stRow);
}

/* "f7_svc1 7 -> 8, f8_svc2 0 -> 3": the columns a change gave other values. */
std::string ChangedColumns(const Change &c)
{
    CmdJson stBefore = Cmd_JsonFields(*c.pstBefore);
    CmdJson stAfter = Cmd_JsonFields(*c.pstAfter);
    std::string strOut;
    for (const auto &item : stAfter.items()) {
        if (stBefore[item.key()] != item.value()) {
            strOut += (strOut.empty() ? "" : ", ") + item.key() + " " + stBefore[item.key()].dump() + " -> " + item.value().dump();
        }
    }
    return strOut;
}

std::string GroupTitle(const Change &c)
{
    return c.bHasIf ? "interface " + std::to_string(c.ulIf) : "the whole file";
}

std::string KindTitle(const Change &c)
{
    CmdKind eKind = Cmd_KindOf(c.pstTable);
    return eKind != KIND_NUM ? Cmd_KindInfo(eKind).pcTitle : c.pstTable->pcName;
}

void PrintChanges(const std::vector<Change> &vecChanges)
{
    std::string strGroup, strKind;
    for (const Change &c : vecChanges) {
        if (GroupTitle(c) != strGroup) {
            strGroup = GroupTitle(c);
            strKind.clear();
            printf("%s\n", strGroup.c_str());
        }
        if (KindTitle(c) != strKind) {
            strKind = KindTitle(c);
            printf("  %s\n", strKind.c_str());
        }
        std::string strLine = RowText(c.Row());
        if (c.eOp == CHANGE_CHANGED) {
            strLine += "  (" + ChangedColumns(c) + ")";
        }
        printf("    %c %s\n", CHANGE_MARKS[c.eOp], strLine.c_str());
    }
    printf("%zu row%s differ%s\n", vecChanges.size(), vecChanges.size() == 1 ? "" : "s", vecChanges.size() == 1 ? "s" : "");
}

void PrintChangesJson(const std::vector<Change> &vecChanges)
{
    CmdJson stDoc = Cmd_JsonDocument("diff");
    stDoc["equal"] = vecChanges.empty();
    stDoc["changes"] = CmdJson::array();
    for (const Change &c : vecChanges) {
        CmdKind eKind = Cmd_KindOf(c.pstTable);
        CmdJson stChange;
        stChange["interface"] = c.bHasIf ? CmdJson(c.ulIf) : CmdJson(nullptr);
        stChange["kind"] = eKind != KIND_NUM ? Cmd_KindInfo(eKind).pcShort : c.pstTable->pcName;
        stChange["table"] = c.pstTable->pcName;
        stChange["change"] = CHANGE_NAMES[c.eOp];
        stChange["key"] = Cmd_JsonKey(c.Row());
        stChange["before"] = c.pstBefore != nullptr ? Cmd_JsonFields(*c.pstBefore) : CmdJson(nullptr);
        stChange["after"] = c.pstAfter != nullptr ? Cmd_JsonFields(*c.pstAfter) : CmdJson(nullptr);
        stDoc["changes"].push_back(stChange);
    }
    Cmd_PrintJson(stDoc);
}

}  // namespace

int Cmd_Diff(void *pObj, void *pOther, bool bJson)
{
    CmdTableRows mapBefore, mapAfter;
    void *pFailed = ReadAll(pObj, &mapBefore) != ECM_OK ? pObj : ReadAll(pOther, &mapAfter) != ECM_OK ? pOther : nullptr;
    if (pFailed != nullptr) {
        fprintf(stderr, "vlanlua: cannot read the rows: %s\n", ECM_CTL_LastError(pFailed));
        return CMD_EXIT_UNREADABLE;
    }
    std::vector<Change> vecChanges;
    for (const auto &entry : mapBefore) {
        CompareTable(entry.second, mapAfter[entry.first], &vecChanges);
    }
    std::stable_sort(vecChanges.begin(), vecChanges.end(), [](const Change &a, const Change &b) { return Place(a) < Place(b); });
    if (bJson) {
        PrintChangesJson(vecChanges);
    } else {
        PrintChanges(vecChanges);
    }
    return vecChanges.empty() ? 0 : 1;
}
