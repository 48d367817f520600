/* --check: every row that breaks a property the module's own writes keep, given the VLAN IDs
 * (1 to 4094, ranges forwards) that scripts are asked to pass. The module stores what a script
 * gives without validating it, so such a row comes from a script that passed bad values, another
 * tool, a write cut short, or damage. Each property is one function over whole tables, linear or
 * n log n in the rows, so a large file is checked in one pass of reading. */
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <queue>
#include <set>
#include <tuple>
#include <unordered_map>

#include "vlanlua_cmd.h"
#include "vlanlua_json.h"

namespace {

constexpr uint64_t VLAN_FIRST = 1;
constexpr uint64_t VLAN_LAST = 4094;

const char *const SEGMENT_TABLES[] = {"DOT1Q_MATCH_SEG", "QINQ_MATCH_SEG", "UVLAN_QINQ_SEG"};
const char *const SERVICE_TABLES[] = {"UVLAN_BASE_SVC", "UVLAN_VPN_SVC"};
/* Every table a property or a walk looks at. */
const char *const CHECKED_TABLES[] = {"DOT1Q_MATCH_SEG", "QINQ_MATCH_SEG", "UVLAN_QINQ_SEG", "UVLAN_BASE_SVC",
                                      "UVLAN_VPN_SVC",   "SEG_INDEX",      "CTRL_VID_BITMAP", "QINQ_IF_SPEC",
                                      "IF_INFO",         "UVLAN_DOT1Q"};

using Findings = std::vector<CmdFinding>;

void Add(Findings *pvec, const CmdRow &stRow, const char *pcProperty, const std::string &strWhat)
{
    pvec->push_back(CmdFinding{&stRow, pcProperty, strWhat});
}

/* "TABLE f1_ifindex=10 f2_seg_index=5": the table and the key of the row. */
std::string RowName(const CmdRow &stRow)
{
    std::string strName = stRow.pstTable->pcName;
    CmdJson stKey = Cmd_JsonKey(stRow);
    for (const auto &item : stKey.items()) {
        strName += " " + item.key() + "=" + item.value().dump();
    }
    return strName;
}

/* ---- VLAN IDs and ranges ---- */

struct RangeCols {
    const char *pcName;     /* as a person calls the range */
    CmdColumn stBegin, stEnd;
};

std::vector<RangeCols> RangesOf(const char *pcTable)
{
    std::vector<RangeCols> vecRanges;
    for (const char *pcAxis : {"pe", "ce", "vlan"}) {
        std::string strAxis = pcAxis;
        CmdColumn stBegin = Cmd_Column(pcTable, (strAxis + "_begin").c_str());
        if (stBegin.iAt >= 0) {
            vecRanges.push_back({strAxis == "vlan" ? "VLAN" : strAxis == "pe" ? "PE" : "CE", stBegin,
                                 Cmd_Column(pcTable, (strAxis + "_end").c_str())});
        }
    }
    return vecRanges;
}

void CheckRanges(const CmdTableRows &mapRows, const char *pcTable, Findings *pvec)
{
    std::vector<RangeCols> vecRanges = RangesOf(pcTable);
    for (const CmdRow &r : mapRows.at(pcTable)) {
        for (const RangeCols &c : vecRanges) {
            uint64_t ulBegin = c.stBegin.Of(r);
            uint64_t ulEnd = c.stEnd.Of(r);
            std::string strRange = std::string(c.pcName) + " " + std::to_string(ulBegin) + "-" + std::to_string(ulEnd);
            if (ulBegin > ulEnd) {
                Add(pvec, r, "vlan-range", strRange + " runs backwards");
            } else if (ulBegin < VLAN_FIRST || ulEnd > VLAN_LAST) {
                Add(pvec, r, "vlan-range", strRange + " reaches outside 1-4094");
            }
        }
    }
}

bool Forwards(const std::vector<RangeCols> &vecRanges, const CmdRow &r)
{
    for (const RangeCols &c : vecRanges) {
        if (c.stBegin.Of(r) > c.stEnd.Of(r)) {
            return false;
        }
    }
    return true;
}

/* ---- User-VLAN QinQ segments of an interface do not overlap ---- */

/* A sweep along PE over one interface's segments, in PE-begin order: the segments still open at
 * the current PE VLAN all hold it, so in a sound file their CE ranges are apart, and a new one
 * need only be compared with its CE neighbours among them. A segment that overlaps is reported and
 * left out, which keeps the open ones apart. */
void SweepInterface(std::vector<const CmdRow *> &vecSegs, const std::vector<RangeCols> &c, Findings *pvec)
{
    std::sort(vecSegs.begin(), vecSegs.end(), [&c](const CmdRow *a, const CmdRow *b) {
        return c[0].stBegin.Of(*a) < c[0].stBegin.Of(*b);
    });
    std::map<uint64_t, const CmdRow *> mapOpen;     /* by CE begin */
    using Closing = std::pair<uint64_t, uint64_t>;   /* PE end, CE begin */
    std::priority_queue<Closing, std::vector<Closing>, std::greater<Closing>> queClosing;
    for (const CmdRow *r : vecSegs) {
        uint64_t ulPe = c[0].stBegin.Of(*r);
        while (!queClosing.empty() && queClosing.top().first < ulPe) {
            mapOpen.erase(queClosing.top().second);
            queClosing.pop();
        }
        uint64_t ulCeBegin = c[1].stBegin.Of(*r);
        uint64_t ulCeEnd = c[1].stEnd.Of(*r);
        auto itNext = mapOpen.lower_bound(ulCeBegin);
        const CmdRow *pstHit = nullptr;
        if (itNext != mapOpen.end() && itNext->first <= ulCeEnd) {
            pstHit = itNext->second;
        } else if (itNext != mapOpen.begin() && c[1].stEnd.Of(*std::prev(itNext)->second) >= ulCeBegin) {
            pstHit = std::prev(itNext)->second;
        }
        if (pstHit != nullptr) {
            Add(pvec, *r, "overlap", "overlaps " + RowName(*pstHit) + " (PE " + Cmd_Range(c[0].stBegin.Of(*pstHit),
                c[0].stEnd.Of(*pstHit)) + ", CE " + Cmd_Range(c[1].stBegin.Of(*pstHit), c[1].stEnd.Of(*pstHit)) + ")");
            continue;
        }
        mapOpen[ulCeBegin] = r;
        queClosing.push({c[0].stEnd.Of(*r), ulCeBegin});
    }
}

void CheckOverlaps(const CmdTableRows &mapRows, Findings *pvec)
{
    const char *pcTable = "UVLAN_QINQ_SEG";
    std::vector<RangeCols> c = RangesOf(pcTable);    /* PE, then CE */
    CmdColumn stIf = Cmd_Column(pcTable, "ifindex");
    std::map<uint64_t, std::vector<const CmdRow *>> mapByIf;
    for (const CmdRow &r : mapRows.at(pcTable)) {
        if (Forwards(c, r)) {
            mapByIf[stIf.Of(r)].push_back(&r);
        }
    }
    for (auto &entry : mapByIf) {
        SweepInterface(entry.second, c, pvec);
    }
}

/* ---- What a merge would have joined is not stored apart ---- */

/* Dot1Q match ranges of one interface and group: the merge joins a new range with the one that
 * ends just before it and the one that begins just after it. */
void CheckDot1qMerged(const CmdTableRows &mapRows, Findings *pvec)
{
    const char *pcTable = "DOT1Q_MATCH_SEG";
    CmdColumn stIf = Cmd_Column(pcTable, "ifindex"), stGroup = Cmd_Column(pcTable, "group_id");
    CmdColumn stBegin = Cmd_Column(pcTable, "vlan_begin"), stEnd = Cmd_Column(pcTable, "vlan_end");
    std::map<std::tuple<uint64_t, uint64_t, uint64_t>, const CmdRow *> mapByBegin;
    for (const CmdRow &r : mapRows.at(pcTable)) {
        mapByBegin.emplace(std::make_tuple(stIf.Of(r), stGroup.Of(r), stBegin.Of(r)), &r);
    }
    for (const CmdRow &r : mapRows.at(pcTable)) {
        auto it = mapByBegin.find(std::make_tuple(stIf.Of(r), stGroup.Of(r), stEnd.Of(r) + 1));
        if (it != mapByBegin.end()) {
            Add(pvec, r, "unmerged", "ends just before " + RowName(*it->second) + " of the same group: the merge joins them");
        }
    }
}

/* QinQ match rectangles of one interface, VR and group: the merge absorbs every stored rectangle
 * that abuts the new one (the same PE range and the next CE VLANs, or the same CE range and the
 * next PE VLANs), again and again, so none that abut stay apart. */
void CheckQinqMatchMerged(const CmdTableRows &mapRows, Findings *pvec)
{
    const char *pcTable = "QINQ_MATCH_SEG";
    CmdColumn stIf = Cmd_Column(pcTable, "ifindex"), stVr = Cmd_Column(pcTable, "vrid");
    CmdColumn stGroup = Cmd_Column(pcTable, "group_id");
    std::vector<RangeCols> c = RangesOf(pcTable);
    using Place = std::tuple<uint64_t, uint64_t, uint64_t, int, uint64_t, uint64_t, uint64_t>;
    std::map<Place, const CmdRow *> mapAt;   /* owner, axis held equal, that axis's range, the other's begin */
    auto place = [&](const CmdRow &r, int iAxis, uint64_t ulOtherBegin) {
        return Place{stIf.Of(r), stVr.Of(r), stGroup.Of(r), iAxis, c[iAxis].stBegin.Of(r), c[iAxis].stEnd.Of(r),
                     ulOtherBegin};
    };
    for (const CmdRow &r : mapRows.at(pcTable)) {
        mapAt.emplace(place(r, 0, c[1].stBegin.Of(r)), &r);
        mapAt.emplace(place(r, 1, c[0].stBegin.Of(r)), &r);
    }
    for (const CmdRow &r : mapRows.at(pcTable)) {
        for (int iAxis = 0; iAxis < 2; iAxis++) {
            auto it = mapAt.find(place(r, iAxis, c[1 - iAxis].stEnd.Of(r) + 1));
            if (it != mapAt.end()) {
                Add(pvec, r, "unmerged", "abuts " + RowName(*it->second) + " of the same VR and group: the merge joins them");
            }
        }
    }
}

/* ---- Segment indexes ---- */

/* Every segment row has an index of its own, handed out by the allocator, which records it in
 * SEG_INDEX with the VR of the row. */
void CheckSegmentIndexes(const CmdTableRows &mapRows, Findings *pvec)
{
    std::unordered_map<uint64_t, uint64_t> mapHandedOut;    /* index -> VR */
    for (const CmdRow &r : mapRows.at("SEG_INDEX")) {
        mapHandedOut.emplace(r.Num("seg_index"), r.Num("vrid"));
    }
    std::unordered_map<uint64_t, const CmdRow *> mapUsed;
    for (const char *pcTable : SEGMENT_TABLES) {
        CmdColumn stIndex = Cmd_Column(pcTable, "seg_index"), stVr = Cmd_Column(pcTable, "vrid");
        for (const CmdRow &r : mapRows.at(pcTable)) {
            uint64_t ulIndex = stIndex.Of(r);
            auto itUsed = mapUsed.emplace(ulIndex, &r);
            auto itOut = mapHandedOut.find(ulIndex);
            if (!itUsed.second) {
                Add(pvec, r, "segment-index", "its segment index is also that of " + RowName(*itUsed.first->second));
            } else if (itOut == mapHandedOut.end()) {
                Add(pvec, r, "segment-index", "its segment index was never handed out (SEG_INDEX has no record of it)");
            } else if (itOut->second != stVr.Of(r)) {
                Add(pvec, r, "segment-index", "SEG_INDEX records its segment index for VR " + std::to_string(itOut->second) +
                                                  ", the row is of VR " + std::to_string(stVr.Of(r)));
            }
        }
    }
}

/* ---- Service records ---- */

/* A service record belongs to a stored segment of its interface (deleting the segment deletes
 * it) and carries a service: a record whose services all become 0 is deleted. */
void CheckServices(const CmdTableRows &mapRows, Findings *pvec)
{
    std::set<std::pair<uint64_t, uint64_t>> setSegs;
    for (const CmdRow &r : mapRows.at("UVLAN_QINQ_SEG")) {
        setSegs.emplace(r.Num("ifindex"), r.Num("seg_index"));
    }
    for (const char *pcTable : SERVICE_TABLES) {
        for (const CmdRow &r : mapRows.at(pcTable)) {
            if (setSegs.count({r.Num("ifindex"), r.Num("seg_index")}) == 0) {
                Add(pvec, r, "orphan-service", "belongs to no stored segment: UVLAN_QINQ_SEG has no row of interface " +
                                                   std::to_string(r.Num("ifindex")) + " with its segment index");
            }
            bool bAny = false;
            for (const CmdValue &v : r.vecValues) {
                bAny = bAny || (strncmp(Cmd_ShortName(v.pstField->pcName), "svc", 3) == 0 && v.ulNum != 0);
            }
            if (!bAny) {
                Add(pvec, r, "empty-service", "carries no service: every service value is 0");
            }
        }
    }
}

/* ---- Values the module always writes one way ---- */

void CheckFixedValues(const CmdTableRows &mapRows, Findings *pvec)
{
    for (const CmdRow &r : mapRows.at("DOT1Q_MATCH_SEG")) {
        if (r.Num("attr9") != 0) {
            Add(pvec, r, "dot1q-attr9", "f9_attr9 is " + std::to_string(r.Num("attr9")) + "; the merge writes 0");
        }
    }
    for (const CmdRow &r : mapRows.at("QINQ_IF_SPEC")) {
        if (r.Num("qinq_num") == 0) {
            Add(pvec, r, "counter-zero", "the counter is 0; a counter that falls to 0 is deleted");
        }
    }
}

/* A control-VLAN bitmap holds control IDs as VLAN IDs 1 to 4094, holds at least one (taking the
 * last one away deletes the row), and its full flag says whether it holds all of them. */
void CheckControlBitmaps(const CmdTableRows &mapRows, Findings *pvec)
{
    for (const CmdRow &r : mapRows.at("CTRL_VID_BITMAP")) {
        const std::string &strBits = r.vecValues[static_cast<size_t>(Cmd_Column("CTRL_VID_BITMAP", "bitmap").iAt)].strBytes;
        auto vecRanges = Cmd_BitRanges(reinterpret_cast<const uint8_t *>(strBits.data()), static_cast<uint32_t>(strBits.size()));
        if (vecRanges.empty()) {
            Add(pvec, r, "control-bitmap", "holds no VLAN; taking the last one away deletes the row");
            continue;
        }
        if (vecRanges.front().first < VLAN_FIRST || vecRanges.back().second > VLAN_LAST) {
            Add(pvec, r, "control-bitmap", "holds VLAN " + std::to_string(vecRanges.front().first < VLAN_FIRST ? 0 :
                                               vecRanges.back().second) + ", outside 1-4094");
        }
        bool bFull = vecRanges.size() == 1 && vecRanges[0] == std::make_pair(uint32_t(VLAN_FIRST), uint32_t(VLAN_LAST));
        if (bFull != (r.Num("full") != 0)) {
            Add(pvec, r, "control-bitmap", std::string("f5_full is ") + std::to_string(r.Num("full")) +
                                               (bFull ? " but the bitmap holds every VLAN" : " but the bitmap does not hold every VLAN"));
        }
    }
}

/* ---- Reading and reporting ---- */

uint32_t ReadTables(void *pObj, CmdTableRows *pmapRows, size_t *pulRows)
{
    for (const char *pcTable : CHECKED_TABLES) {
        std::vector<CmdRow> &vecRows = (*pmapRows)[pcTable];
        uint32_t uiRet = Cmd_ReadTable(pObj, Cmd_TableNamed(pcTable), &vecRows);
        if (uiRet != ECM_OK) {
            return uiRet;
        }
        *pulRows += vecRows.size();
    }
    return ECM_OK;
}

void Report(const Findings &vecViolations, const Findings &vecWarnings, size_t ulRows)
{
    for (const CmdFinding &f : vecViolations) {
        printf("%s: %s\n", RowName(*f.pstRow).c_str(), f.strWhat.c_str());
    }
    for (const CmdFinding &f : vecWarnings) {
        printf("warning: %s: %s\n", RowName(*f.pstRow).c_str(), f.strWhat.c_str());
    }
    printf("%zu rows checked: %zu violation%s, %zu warning%s\n", ulRows, vecViolations.size(),
           vecViolations.size() == 1 ? "" : "s", vecWarnings.size(), vecWarnings.size() == 1 ? "" : "s");
}

CmdJson FindingsJson(const Findings &vecFindings)
{
    CmdJson stList = CmdJson::array();
    for (const CmdFinding &f : vecFindings) {
        stList.push_back({{"table", f.pstRow->pstTable->pcName}, {"key", Cmd_JsonKey(*f.pstRow)},
                          {"property", f.strProperty}, {"message", f.strWhat}});
    }
    return stList;
}

void ReportJson(const Findings &vecViolations, const Findings &vecWarnings, size_t ulRows)
{
    CmdJson stDoc = Cmd_JsonDocument("check");
    stDoc["rows"] = ulRows;
    stDoc["sound"] = vecViolations.empty();
    stDoc["violations"] = FindingsJson(vecViolations);
    stDoc["warnings"] = FindingsJson(vecWarnings);
    Cmd_PrintJson(stDoc);
}

}  // namespace

CmdColumn Cmd_Column(const char *pcTable, const char *pcShort)
{
    return CmdColumn{Cmd_ColumnAt(Cmd_TableNamed(pcTable), pcShort)};
}

int Cmd_Check(void *pObj, bool bStrict, bool bJson)
{
    CmdTableRows mapRows;
    size_t ulRows = 0;
    if (ReadTables(pObj, &mapRows, &ulRows) != ECM_OK) {
        fprintf(stderr, "vlanlua: cannot read the rows: %s\n", ECM_CTL_LastError(pObj));
        return CMD_EXIT_UNREADABLE;
    }
    Findings vecViolations;
    for (const char *pcTable : SEGMENT_TABLES) {
        CheckRanges(mapRows, pcTable, &vecViolations);
    }
    CheckOverlaps(mapRows, &vecViolations);
    CheckDot1qMerged(mapRows, &vecViolations);
    CheckQinqMatchMerged(mapRows, &vecViolations);
    CheckSegmentIndexes(mapRows, &vecViolations);
    CheckServices(mapRows, &vecViolations);
    CheckFixedValues(mapRows, &vecViolations);
    CheckControlBitmaps(mapRows, &vecViolations);
    Findings vecWarnings;
    Cmd_WalkReach(mapRows, &vecWarnings);
    if (bJson) {
        ReportJson(vecViolations, vecWarnings, ulRows);
    } else {
        Report(vecViolations, vecWarnings, ulRows);
    }
    return (!vecViolations.empty() || (bStrict && !vecWarnings.empty())) ? 1 : 0;
}
