/* The least-work floors of bench_floors that only read: a page of each get-next walk and a
 * one-record probe. A page is read by one query per source, interface by interface, and the
 * reading stops once the page is full. Included by bench_least.h. */
#ifndef BENCH_LEAST_WALK_H
#define BENCH_LEAST_WALK_H

namespace least {

/* One entry of a page, in the order of its walk: interface, then two keys, then two more values. */
struct WalkEntry {
    int64_t llIf, llKey1, llKey2, llRest, llRest2;
    bool operator<(const WalkEntry &o) const
    {
        return llIf != o.llIf ? llIf < o.llIf : llKey1 != o.llKey1 ? llKey1 < o.llKey1 : llKey2 < o.llKey2;
    }
};

/* Adds an interface's entries that follow the position, in order, until the page is full. */
inline void AddInterface(std::vector<WalkEntry> &vecIf, const WalkEntry &stPos, size_t ulWant,
                         std::vector<WalkEntry> *pvecPage)
{
    std::stable_sort(vecIf.begin(), vecIf.end());
    for (const WalkEntry &e : vecIf) {
        if (pvecPage->size() < ulWant && stPos < e) {
            pvecPage->push_back(e);
        }
    }
    vecIf.clear();
}

inline uint64_t PageSum(const std::vector<WalkEntry> &vecPage)
{
    uint64_t ulSum = 0;
    for (const WalkEntry &e : vecPage) {
        ulSum += static_cast<uint64_t>(e.llIf + e.llKey1 + e.llKey2 + e.llRest + e.llRest2);
    }
    return ulSum;
}

/* The page the last walk floor made, for building it as the script gets it. */
inline std::vector<WalkEntry> g_vecLastPage;

}  // namespace least

/* A page of the QinQ match walk after (interface ?1, PE ?2, CE ?3) in VR ?4: the kind-1 interfaces
 * from the position on joined with their rectangles, each rectangle one entry per PE VLAN. The
 * call answers 0 and the page's rows (interface, PE, CE begin, CE end, group). The join's "+ 0"
 * keeps SQLite from carrying the interface range over to the rectangles' index, where it would
 * scan every later interface's rectangles instead of looking each interface's up. */
inline uint64_t LeastQinqWalk(LeastWork &w, const int64_t *a)
{
    sqlite3_stmt *pStmt = w.Bound("SELECT q.{QINQ_MATCH_SEG.ifIndex}, q.{QINQ_MATCH_SEG.peBegin}, "
                                  "q.{QINQ_MATCH_SEG.peEnd}, q.{QINQ_MATCH_SEG.ceBegin}, q.{QINQ_MATCH_SEG.ceEnd}, "
                                  "q.{QINQ_MATCH_SEG.groupId} FROM {IF_INFO} AS i CROSS JOIN {QINQ_MATCH_SEG} AS q "
                                  "ON q.{QINQ_MATCH_SEG.vrId} = ?2 AND q.{QINQ_MATCH_SEG.ifIndex} = i.{IF_INFO.ifIndex} + 0 "
                                  "WHERE i.{IF_INFO.vrId} = ?2 AND i.{IF_INFO.kind} = 1 AND i.{IF_INFO.ifIndex} >= ?1 "
                                  "ORDER BY i.{IF_INFO.ifIndex}", a[0], a[3]);
    size_t ulWant = static_cast<size_t>(a[4]);
    least::WalkEntry stPos{a[0], a[1], a[2], 0, 0};
    std::vector<least::WalkEntry> vecPage, vecIf;
    while (vecPage.size() < ulWant && sqlite3_step(pStmt) == SQLITE_ROW) {
        int64_t llIf = Col(pStmt, 0);
        if (!vecIf.empty() && vecIf.back().llIf != llIf) {
            least::AddInterface(vecIf, stPos, ulWant, &vecPage);
        }
        int64_t llCe = Col(pStmt, 3);
        for (int64_t pe = Col(pStmt, 1); pe <= Col(pStmt, 2); pe++) {
            vecIf.push_back({llIf, pe, llCe, Col(pStmt, 4), Col(pStmt, 5)});
        }
    }
    least::AddInterface(vecIf, stPos, ulWant, &vecPage);
    LeastWork::Done(pStmt);
    least::g_vecLastPage.swap(vecPage);
    return least::PageSum(least::g_vecLastPage);
}

/* A page of the user-VLAN walk (802.1Q and QinQ entries) after (interface ?1, PE ?2, CE ?3) in VR
 * ?4: one query over the 802.1Q ranges and one over the QinQ interfaces' segments, both in
 * interface order, merged interface by interface; an interface's entries go by CE, then PE (an
 * 802.1Q entry has PE 0). The call answers 0, the page (interface, PE, CE, any-other 0) and its text. */
inline uint64_t LeastUvlanWalk(LeastWork &w, const int64_t *a)
{
    sqlite3_stmt *pDot1q = w.Bound("SELECT {UVLAN_DOT1Q.ifIndex}, {UVLAN_DOT1Q.vlanBegin}, {UVLAN_DOT1Q.vlanEnd} "
                                   "FROM {UVLAN_DOT1Q} WHERE {UVLAN_DOT1Q.vrId} = ?2 AND {UVLAN_DOT1Q.ifIndex} >= ?1 "
                                   "ORDER BY {UVLAN_DOT1Q.ifIndex}", a[0], a[3]);
    sqlite3_stmt *pQinq = w.Bound("SELECT s.{UVLAN_QINQ_SEG.ifIndex}, s.{UVLAN_QINQ_SEG.peBegin}, "
                                  "s.{UVLAN_QINQ_SEG.peEnd}, s.{UVLAN_QINQ_SEG.ceBegin}, s.{UVLAN_QINQ_SEG.ceEnd} "
                                  "FROM {IF_INFO} AS i CROSS JOIN {UVLAN_QINQ_SEG} AS s ON s.{UVLAN_QINQ_SEG.vrId} = ?2 "
                                  "AND s.{UVLAN_QINQ_SEG.ifIndex} = i.{IF_INFO.ifIndex} + 0 WHERE i.{IF_INFO.vrId} = ?2 "
                                  "AND i.{IF_INFO.kind} = 11 AND i.{IF_INFO.ifIndex} >= ?1 ORDER BY i.{IF_INFO.ifIndex}",
                                  a[0], a[3]);
    size_t ulWant = static_cast<size_t>(a[4]);
    least::WalkEntry stPos{a[0], a[2], a[1], 0, 0};  /* by CE, then PE */
    std::vector<least::WalkEntry> vecPage, vecIf;
    bool bDot1q = sqlite3_step(pDot1q) == SQLITE_ROW;
    bool bQinq = sqlite3_step(pQinq) == SQLITE_ROW;
    while (vecPage.size() < ulWant && (bDot1q || bQinq)) {
        int64_t llD = bDot1q ? Col(pDot1q, 0) : INT64_MAX;
        int64_t llQ = bQinq ? Col(pQinq, 0) : INT64_MAX;
        int64_t llIf = std::min(llD, llQ);
        for (; bDot1q && Col(pDot1q, 0) == llIf; bDot1q = sqlite3_step(pDot1q) == SQLITE_ROW) {
            for (int64_t ce = Col(pDot1q, 1); ce <= Col(pDot1q, 2); ce++) {
                vecIf.push_back({llIf, ce, 0, 0, 0});
            }
        }
        for (; bQinq && Col(pQinq, 0) == llIf; bQinq = sqlite3_step(pQinq) == SQLITE_ROW) {
            for (int64_t pe = Col(pQinq, 1); pe <= Col(pQinq, 2); pe++) {
                for (int64_t ce = Col(pQinq, 3); ce <= Col(pQinq, 4); ce++) {
                    vecIf.push_back({llIf, ce, pe, 0, 0});
                }
            }
        }
        least::AddInterface(vecIf, stPos, ulWant, &vecPage);
    }
    LeastWork::Done(pDot1q);
    LeastWork::Done(pQinq);
    least::g_vecLastPage.swap(vecPage);
    return least::PageSum(least::g_vecLastPage);
}

/* The main interface of sub-interface ?1. */
inline uint64_t LeastProbe(LeastWork &w, const int64_t *a)
{
    sqlite3_stmt *pStmt = w.Bound("SELECT {IF_INFO.mainIfIndex} FROM {IF_INFO} WHERE {IF_INFO.ifIndex} = ?1", a[0]);
    uint64_t ulMain = sqlite3_step(pStmt) == SQLITE_ROW ? static_cast<uint64_t>(Col(pStmt, 0)) : 0;
    LeastWork::Done(pStmt);
    return ulMain;
}

#endif
