/* How far the get-next walks reach. One call of either walk reads at most 64 interfaces of the
 * interface table (those of its VR and kind), from the position on, so a call whose 64
 * interfaces hold no row after the position returns an empty page although rows follow. A walker
 * that stops at an empty page then misses them. This finds, per VR, the first row that a walk
 * from the start, stopping at its first empty page, never returns:
 * - the QinQ match walk (kind 1, QINQ_MATCH_SEG) goes from an interface with rows to the next one
 *   within the 64 interfaces from it; which rows a page holds does not change that.
 * - the user-VLAN walk (kind 11, UVLAN_QINQ_SEG with the 802.1Q rows of UVLAN_DOT1Q, which are
 *   read without that limit) cannot return an empty page while 802.1Q rows follow; after the last
 *   interface with 802.1Q rows it goes on with the QinQ rows of the 64 interfaces after the
 *   position's. */
#include <algorithm>
#include <set>

#include "vlanlua_cmd.h"
#include "vlanlua_uservlan_mib.h"

namespace {

constexpr uint32_t INTERFACES_PER_CALL = VLANLUA_UVLAN_QINQ_IF_MAX;   /* the same for both walks */
constexpr uint64_t QINQ_MATCH_WALK_KIND = 1;                           /* interfaces the QinQ match walk visits */
constexpr uint64_t USER_VLAN_WALK_KIND = VLANLUA_UVLAN_IFKIND_QINQ;

/* The interface column of the interface table in ascending order, for one VR and kind: a call
 * reads 64 of these entries (duplicates included) from the first one at or after a position. */
std::vector<uint64_t> WalkInterfaces(const CmdTableRows &mapRows, uint64_t ulVr, uint64_t ulKind)
{
    std::vector<uint64_t> vecIfs;
    for (const CmdRow &r : mapRows.at("IF_INFO")) {
        if (r.Num("vrid") == ulVr && r.Num("kind") == ulKind) {
            vecIfs.push_back(r.Num("ifindex"));
        }
    }
    std::sort(vecIfs.begin(), vecIfs.end());
    return vecIfs;
}

/* Per VR, per interface, the row a walk meets first there (least by the walk's order). */
using FirstRows = std::map<uint64_t, std::map<uint64_t, const CmdRow *>>;

FirstRows FirstRowsOf(const std::vector<CmdRow> &vecRows, const char *pcMajor, const char *pcMinor)
{
    FirstRows mapFirst;
    for (const CmdRow &r : vecRows) {
        if (r.Num("ifindex") == 0 || Cmd_RowBackwards(r)) {
            continue;   /* a walk returns neither */
        }
        const CmdRow *&pstFirst = mapFirst[r.Num("vrid")][r.Num("ifindex")];
        if (pstFirst == nullptr || std::make_pair(r.Num(pcMajor), r.Num(pcMinor)) <
                                       std::make_pair(pstFirst->Num(pcMajor), pstFirst->Num(pcMinor))) {
            pstFirst = &r;
        }
    }
    return mapFirst;
}

size_t SlotAtOrAfter(const std::vector<uint64_t> &vecIfs, uint64_t ulIf)
{
    return static_cast<size_t>(std::lower_bound(vecIfs.begin(), vecIfs.end(), ulIf) - vecIfs.begin());
}

bool Listed(const std::vector<uint64_t> &vecIfs, uint64_t ulIf)
{
    return std::binary_search(vecIfs.begin(), vecIfs.end(), ulIf);
}

/* Follows a walk over the interfaces with rows above ulFrom (all of them when bStart), each call
 * reading the 64 interface entries from ulFrom (after it, when not bStart and bAfter); warns at
 * the first interface out of reach. */
void Follow(const std::vector<uint64_t> &vecIfs, const std::map<uint64_t, const CmdRow *> &mapFirst, bool bStart,
            uint64_t ulFrom, bool bAfter, const std::string &strWalk, std::vector<CmdFinding> *pvecWarnings)
{
    for (const auto &entry : mapFirst) {
        if ((!bStart && entry.first <= ulFrom) || !Listed(vecIfs, entry.first)) {
            continue;   /* passed before, or never visited by any call */
        }
        size_t ulWindow = bStart ? 0 : SlotAtOrAfter(vecIfs, bAfter ? ulFrom + 1 : ulFrom);
        if (SlotAtOrAfter(vecIfs, entry.first) >= ulWindow + INTERFACES_PER_CALL) {
            std::string strAt = bStart ? "at its start" : "after interface " + std::to_string(ulFrom);
            pvecWarnings->push_back({entry.second, "walk-reach", strWalk + " from the start returns an empty page " + strAt +
                                     ", before this row: the " + std::to_string(INTERFACES_PER_CALL) +
                                     " interfaces one call reads there hold no row"});
            return;
        }
        bStart = false;
        ulFrom = entry.first;
    }
}

void QinqMatchWalk(const CmdTableRows &mapRows, std::vector<CmdFinding> *pvecWarnings)
{
    for (const auto &vr : FirstRowsOf(mapRows.at("QINQ_MATCH_SEG"), "pe_begin", "ce_begin")) {
        std::vector<uint64_t> vecIfs = WalkInterfaces(mapRows, vr.first, QINQ_MATCH_WALK_KIND);
        Follow(vecIfs, vr.second, true, 0, false, "a QinQ match walk of VR " + std::to_string(vr.first), pvecWarnings);
    }
}

void UserVlanWalk(const CmdTableRows &mapRows, std::vector<CmdFinding> *pvecWarnings)
{
    std::map<uint64_t, uint64_t> mapLastDot1q;  /* VR -> the last interface with 802.1Q rows */
    for (const CmdRow &r : mapRows.at("UVLAN_DOT1Q")) {
        if (r.Num("vlan_begin") <= r.Num("vlan_end")) {
            uint64_t &ulLast = mapLastDot1q[r.Num("vrid")];
            ulLast = std::max(ulLast, r.Num("ifindex"));
        }
    }
    for (const auto &vr : FirstRowsOf(mapRows.at("UVLAN_QINQ_SEG"), "ce_begin", "pe_begin")) {
        std::vector<uint64_t> vecIfs = WalkInterfaces(mapRows, vr.first, USER_VLAN_WALK_KIND);
        auto it = mapLastDot1q.find(vr.first);
        bool bStart = it == mapLastDot1q.end();
        Follow(vecIfs, vr.second, bStart, bStart ? 0 : it->second, true,
               "a user-VLAN walk of VR " + std::to_string(vr.first), pvecWarnings);
    }
}

}  // namespace

void Cmd_WalkReach(const CmdTableRows &mapRows, std::vector<CmdFinding> *pvecWarnings)
{
    QinqMatchWalk(mapRows, pvecWarnings);
    UserVlanWalk(mapRows, pvecWarnings);
}
