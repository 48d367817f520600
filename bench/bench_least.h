/* The least-work floors of bench_floors: for each case, by hand, the least SQLite work that leaves
 * the rows the module's call leaves and gives its answer (summed as the benchmark sums the call's
 * results). Where the module reads row by row (a segment and then each of its service records, a
 * count before a read, an interface and then its rows), a floor reads once with a join; where it
 * has to, it writes as the module does, in the same order, so that new rows get the same rowids.
 * The statements are written with the schema's script names ({TABLE}, {TABLE.field}) and prepared
 * once. Each floor knows its case (bench_floors checks it against the module's call). */
#ifndef BENCH_LEAST_H
#define BENCH_LEAST_H

#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "ecm_ctl.h"
#include "vlanlua_tables.h"

class LeastWork {
public:
    explicit LeastWork(sqlite3 *pDb) : m_pDb(pDb) {}
    ~LeastWork()
    {
        for (auto &kv : m_mapStmts) {
            sqlite3_finalize(kv.second);
        }
    }
    LeastWork(const LeastWork &) = delete;
    LeastWork &operator=(const LeastWork &) = delete;

    /* The statement of a template with its values bound (integers, or blobs given as strings);
     * step it, then Done(). */
    template <class... V>
    sqlite3_stmt *Bound(const char *pcTemplate, const V &...values)
    {
        sqlite3_stmt *pStmt = Stmt(pcTemplate);
        int iParam = 0;
        (Bind(pStmt, ++iParam, values), ...);
        return pStmt;
    }
    /* Runs a statement that returns no rows. */
    template <class... V>
    void Do(const char *pcTemplate, const V &...values)
    {
        sqlite3_stmt *pStmt = Bound(pcTemplate, values...);
        if (sqlite3_step(pStmt) != SQLITE_DONE) {
            std::fprintf(stderr, "bench_least: %s: %s\n", sqlite3_sql(pStmt), sqlite3_errmsg(m_pDb));
        }
        sqlite3_reset(pStmt);
    }
    static void Done(sqlite3_stmt *pStmt) { sqlite3_reset(pStmt); }

    /* The next number of the segment index counter, stored as handed out. */
    int64_t NextSegIndex()
    {
        sqlite3_stmt *pStmt = Bound("SELECT max(coalesce((SELECT last FROM ecm_index_counter WHERE table_id = ?1), 0), "
                                    "(SELECT coalesce(max({SEG_INDEX.segIndex}), 0) FROM {SEG_INDEX}))",
                                    int64_t{VLANLUA_TBL_SEG_INDEX});
        int64_t llNext = sqlite3_step(pStmt) == SQLITE_ROW ? static_cast<int64_t>(sqlite3_column_int64(pStmt, 0)) + 1 : 0;
        Done(pStmt);
        Do("INSERT OR REPLACE INTO ecm_index_counter(table_id, last) VALUES(?1, ?2)", int64_t{VLANLUA_TBL_SEG_INDEX},
           llNext);
        return llNext;
    }

private:
    sqlite3_stmt *Stmt(const char *pcTemplate)
    {
        sqlite3_stmt *&pStmt = m_mapStmts[pcTemplate];
        if (pStmt == nullptr) {
            std::string strSql = Resolve(pcTemplate);
            if (sqlite3_prepare_v3(m_pDb, strSql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &pStmt, nullptr) != SQLITE_OK) {
                std::fprintf(stderr, "bench_least: %s: %s\n", strSql.c_str(), sqlite3_errmsg(m_pDb));
            }
        }
        return pStmt;
    }

    /* {TABLE} is the table's name; {TABLE.field} the column of the field of that script name. */
    static std::string Resolve(const std::string &strTemplate)
    {
        std::string strSql;
        size_t ulAt = 0;
        for (size_t ulOpen; (ulOpen = strTemplate.find('{', ulAt)) != std::string::npos;) {
            size_t ulClose = strTemplate.find('}', ulOpen);
            std::string strName = strTemplate.substr(ulOpen + 1, ulClose - ulOpen - 1);
            size_t ulDot = strName.find('.');
            const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTableByName(strName.substr(0, ulDot).c_str());
            const ECM_CTL_FIELD_S *pstField =
                ulDot == std::string::npos ? nullptr : ECM_CTL_FindFieldByName(pstTable, strName.substr(ulDot + 1).c_str());
            strSql += strTemplate.substr(ulAt, ulOpen - ulAt);
            strSql += pstField != nullptr ? pstField->pcName : pstTable != nullptr ? pstTable->pcName : "?unknown?";
            ulAt = ulClose + 1;
        }
        return strSql + strTemplate.substr(ulAt);
    }

    static void Bind(sqlite3_stmt *pStmt, int iParam, int64_t llValue) { sqlite3_bind_int64(pStmt, iParam, llValue); }
    static void Bind(sqlite3_stmt *pStmt, int iParam, const std::string &strBytes)
    {
        sqlite3_bind_blob(pStmt, iParam, strBytes.data(), static_cast<int>(strBytes.size()), SQLITE_STATIC);
    }

    sqlite3 *m_pDb;
    std::map<std::string, sqlite3_stmt *> m_mapStmts;
};

/* Column iCol of the current row, as an integer. */
inline int64_t Col(sqlite3_stmt *pStmt, int iCol)
{
    return static_cast<int64_t>(sqlite3_column_int64(pStmt, iCol));
}

/* A least-work floor: its answer, summed as bench_floors sums the results of the module's call. */
using LeastWorkFn = uint64_t (*)(LeastWork &, const int64_t *pllArgs);

namespace least {

/* The user-VLAN QinQ segments of interface ?1 that meet PE [?2, ?3] x CE [?4, ?5], with the values
 * of their base-service records, through the segments' spatial index (the interface folded into its
 * coordinates, as ecm_spatial.cpp lays them out), in (PE, CE) begin order. */
constexpr const char *kUvlanNear =
    "SELECT s.{UVLAN_QINQ_SEG.segIndex}, s.{UVLAN_QINQ_SEG.peBegin}, s.{UVLAN_QINQ_SEG.peEnd}, "
    "s.{UVLAN_QINQ_SEG.ceBegin}, s.{UVLAN_QINQ_SEG.ceEnd}, s.{UVLAN_QINQ_SEG.keyA}, s.{UVLAN_QINQ_SEG.keyB}, "
    "b.{UVLAN_BASE_SVC.svc1}, b.{UVLAN_BASE_SVC.svc2}, v.{UVLAN_VPN_SVC.svc8} "
    "FROM {UVLAN_QINQ_SEG}_rt AS r CROSS JOIN {UVLAN_QINQ_SEG} AS s ON s.rowid = r.id "
    "LEFT JOIN {UVLAN_BASE_SVC} AS b ON b.{UVLAN_BASE_SVC.segIndex} = s.{UVLAN_QINQ_SEG.segIndex} "
    "LEFT JOIN {UVLAN_VPN_SVC} AS v ON v.{UVLAN_VPN_SVC.segIndex} = s.{UVLAN_QINQ_SEG.segIndex} "
    "WHERE r.lo0 <= ((?1 & 32767) << 16) + ?3 - 2147483648 AND r.hi0 >= ((?1 & 32767) << 16) + ?2 - 2147483648 "
    "AND r.lo1 <= (((?1 >> 15) & 32767) << 16) + ?5 - 2147483648 "
    "AND r.hi1 >= (((?1 >> 15) & 32767) << 16) + ?4 - 2147483648 "
    "AND s.{UVLAN_QINQ_SEG.ifIndex} = ?1 AND s.{UVLAN_QINQ_SEG.peEnd} >= ?2 AND s.{UVLAN_QINQ_SEG.peBegin} <= ?3 "
    "AND s.{UVLAN_QINQ_SEG.ceEnd} >= ?4 AND s.{UVLAN_QINQ_SEG.ceBegin} <= ?5 "
    "ORDER BY s.{UVLAN_QINQ_SEG.peBegin}, s.{UVLAN_QINQ_SEG.ceBegin}";

struct UvlanSeg {
    int64_t llSegIndex, llPeBgn, llPeEnd, llCeBgn, llCeEnd, llKeyA, llKeyB;
};

/* The segments near the request (widened by one VLAN on every side, as the module loads them). */
inline std::vector<UvlanSeg> UvlanNear(LeastWork &w, const int64_t *a)
{
    std::vector<UvlanSeg> vecSegs;
    sqlite3_stmt *pStmt = w.Bound(kUvlanNear, a[0], a[1] - 1, a[2] + 1, a[3] - 1, a[4] + 1);
    while (sqlite3_step(pStmt) == SQLITE_ROW) {
        UvlanSeg s{};
        int64_t *pll = &s.llSegIndex;
        for (int c = 0; c < 7; c++) {
            pll[c] = Col(pStmt, c);
        }
        vecSegs.push_back(s);
    }
    LeastWork::Done(pStmt);
    return vecSegs;
}

inline bool Inside(const UvlanSeg &s, const int64_t *a)
{
    return s.llPeBgn >= a[1] && s.llPeEnd <= a[2] && s.llCeBgn >= a[3] && s.llCeEnd <= a[4];
}

const std::string kKeyName = std::string("bench") + std::string(59, '\0');

}  // namespace least

/* The grid of one-VLAN cells, each with its own service value, merged into one row carrying
 * service 1 = 9: the new row and its record, then every covered row deleted (a trigger takes its
 * records). The call answers 0, nil, its text, 2, 4. */
inline uint64_t LeastMerge(LeastWork &w, const int64_t *a)
{
    w.Do("BEGIN");
    std::vector<least::UvlanSeg> vecSegs = least::UvlanNear(w, a);
    int64_t llSeg = w.NextSegIndex();
    w.Do("INSERT INTO {SEG_INDEX}({SEG_INDEX.segIndex}, {SEG_INDEX.vrId}) VALUES(?1, ?2)", llSeg, a[5]);
    w.Do("INSERT INTO {UVLAN_QINQ_SEG}({UVLAN_QINQ_SEG.ifIndex}, {UVLAN_QINQ_SEG.segIndex}, {UVLAN_QINQ_SEG.keyB}, "
         "{UVLAN_QINQ_SEG.vrId}, {UVLAN_QINQ_SEG.ceBegin}, {UVLAN_QINQ_SEG.ceEnd}, {UVLAN_QINQ_SEG.peBegin}, "
         "{UVLAN_QINQ_SEG.peEnd}, {UVLAN_QINQ_SEG.keyA}, {UVLAN_QINQ_SEG.upId}, {UVLAN_QINQ_SEG.keyName}) "
         "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, 3, ?10)",
         a[0], llSeg, vecSegs[0].llKeyB, a[5], a[3], a[4], a[1], a[2], vecSegs[0].llKeyA, least::kKeyName);
    w.Do("INSERT INTO {UVLAN_BASE_SVC}({UVLAN_BASE_SVC.ifIndex}, {UVLAN_BASE_SVC.segIndex}, {UVLAN_BASE_SVC.keyB}, "
         "{UVLAN_BASE_SVC.keyA}, {UVLAN_BASE_SVC.vrId}, {UVLAN_BASE_SVC.svc1}) VALUES(?1, ?2, ?3, ?4, ?5, ?6)",
         a[0], llSeg, vecSegs[0].llKeyB, vecSegs[0].llKeyA, a[5], a[6]);
    for (const least::UvlanSeg &s : vecSegs) {
        if (least::Inside(s, a)) {
            w.Do("DELETE FROM {UVLAN_QINQ_SEG} WHERE {UVLAN_QINQ_SEG.ifIndex} = ?1 AND {UVLAN_QINQ_SEG.segIndex} = ?2",
                 a[0], s.llSegIndex);
        }
    }
    w.Do("COMMIT");
    return 6;
}

/* Service 2 = ?7 on the segments a block of 4 holds: one update of each base-service record. The
 * call answers 0, nil, its text, nil, nil. */
inline uint64_t LeastTouch4(LeastWork &w, const int64_t *a)
{
    w.Do("BEGIN");
    for (const least::UvlanSeg &s : least::UvlanNear(w, a)) {
        if (least::Inside(s, a)) {
            w.Do("UPDATE {UVLAN_BASE_SVC} SET {UVLAN_BASE_SVC.svc2} = ?1 WHERE {UVLAN_BASE_SVC.segIndex} = ?2", a[6],
                 s.llSegIndex);
        }
    }
    w.Do("COMMIT");
    return 0;
}

/* [v, v] between its two stored neighbours of the group: both found by one read, the fused range
 * stored under a new index, the neighbours deleted. The call answers 0. */
inline uint64_t LeastDot1q(LeastWork &w, const int64_t *a)
{
    w.Do("BEGIN");
    sqlite3_stmt *pStmt = w.Bound("SELECT {DOT1Q_MATCH_SEG.segIndex}, {DOT1Q_MATCH_SEG.vlanBegin}, "
                                  "{DOT1Q_MATCH_SEG.vlanEnd} FROM {DOT1Q_MATCH_SEG} WHERE {DOT1Q_MATCH_SEG.ifIndex} = ?1 "
                                  "AND {DOT1Q_MATCH_SEG.vlanEnd} = ?2 - 1 AND {DOT1Q_MATCH_SEG.groupId} = ?3 UNION ALL "
                                  "SELECT {DOT1Q_MATCH_SEG.segIndex}, {DOT1Q_MATCH_SEG.vlanBegin}, "
                                  "{DOT1Q_MATCH_SEG.vlanEnd} FROM {DOT1Q_MATCH_SEG} WHERE {DOT1Q_MATCH_SEG.ifIndex} = ?1 "
                                  "AND {DOT1Q_MATCH_SEG.vlanBegin} = ?2 + 1 AND {DOT1Q_MATCH_SEG.groupId} = ?3",
                                  a[0], a[1], a[2]);
    std::vector<int64_t> vecSegs;
    int64_t llBegin = a[1], llEnd = a[1];
    while (sqlite3_step(pStmt) == SQLITE_ROW) {
        vecSegs.push_back(Col(pStmt, 0));
        llBegin = std::min(llBegin, Col(pStmt, 1));
        llEnd = std::max(llEnd, Col(pStmt, 2));
    }
    LeastWork::Done(pStmt);
    int64_t llSeg = w.NextSegIndex();
    w.Do("INSERT INTO {SEG_INDEX}({SEG_INDEX.segIndex}, {SEG_INDEX.vrId}) VALUES(?1, ?2)", llSeg, a[3]);
    w.Do("INSERT INTO {DOT1Q_MATCH_SEG}({DOT1Q_MATCH_SEG.ifIndex}, {DOT1Q_MATCH_SEG.segIndex}, "
         "{DOT1Q_MATCH_SEG.vlanBegin}, {DOT1Q_MATCH_SEG.vlanEnd}, {DOT1Q_MATCH_SEG.groupId}, {DOT1Q_MATCH_SEG.vrId}) "
         "VALUES(?1, ?2, ?3, ?4, ?5, ?6)", a[0], llSeg, llBegin, llEnd, a[2], a[3]);
    for (int64_t llOld : vecSegs) {
        w.Do("DELETE FROM {DOT1Q_MATCH_SEG} WHERE {DOT1Q_MATCH_SEG.ifIndex} = ?1 AND {DOT1Q_MATCH_SEG.segIndex} = ?2",
             a[0], llOld);
    }
    w.Do("COMMIT");
    return 0;
}

/* PE [p, p] x CE [c1, c2] into a group of one-PE rectangles: one read of the group, the two that
 * abut it along PE deleted, the fused rectangle stored under a new index. The call answers 0, 1. */
inline uint64_t LeastQinq(LeastWork &w, const int64_t *a)
{
    w.Do("BEGIN");
    sqlite3_stmt *pStmt = w.Bound("SELECT {QINQ_MATCH_SEG.segIndex}, {QINQ_MATCH_SEG.peBegin}, {QINQ_MATCH_SEG.peEnd}, "
                                  "{QINQ_MATCH_SEG.ceBegin}, {QINQ_MATCH_SEG.ceEnd} FROM {QINQ_MATCH_SEG} "
                                  "WHERE {QINQ_MATCH_SEG.ifIndex} = ?1 AND {QINQ_MATCH_SEG.vrId} = ?2 "
                                  "AND {QINQ_MATCH_SEG.groupId} = ?3", a[0], a[4], a[5]);
    std::vector<int64_t> vecSegs;
    int64_t llBegin = a[1], llEnd = a[1];
    while (sqlite3_step(pStmt) == SQLITE_ROW) {
        bool bSameCe = Col(pStmt, 3) == a[2] && Col(pStmt, 4) == a[3];
        if (bSameCe && (Col(pStmt, 2) == a[1] - 1 || Col(pStmt, 1) == a[1] + 1)) {
            vecSegs.push_back(Col(pStmt, 0));
            llBegin = std::min(llBegin, Col(pStmt, 1));
            llEnd = std::max(llEnd, Col(pStmt, 2));
        }
    }
    LeastWork::Done(pStmt);
    for (int64_t llOld : vecSegs) {
        w.Do("DELETE FROM {QINQ_MATCH_SEG} WHERE {QINQ_MATCH_SEG.ifIndex} = ?1 AND {QINQ_MATCH_SEG.segIndex} = ?2",
             a[0], llOld);
    }
    int64_t llSeg = w.NextSegIndex();
    w.Do("INSERT INTO {SEG_INDEX}({SEG_INDEX.segIndex}, {SEG_INDEX.vrId}) VALUES(?1, ?2)", llSeg, a[4]);
    w.Do("INSERT INTO {QINQ_MATCH_SEG}({QINQ_MATCH_SEG.ifIndex}, {QINQ_MATCH_SEG.segIndex}, {QINQ_MATCH_SEG.peBegin}, "
         "{QINQ_MATCH_SEG.peEnd}, {QINQ_MATCH_SEG.ceBegin}, {QINQ_MATCH_SEG.ceEnd}, {QINQ_MATCH_SEG.groupId}, "
         "{QINQ_MATCH_SEG.vrId}, {QINQ_MATCH_SEG.keyName}) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)",
         a[0], llSeg, llBegin, llEnd, a[2], a[3], a[5], a[4], std::string(64, '\0'));
    w.Do("COMMIT");
    return 1;
}

#include "bench_least_walk.h"

#endif
