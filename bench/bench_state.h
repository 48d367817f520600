/* The rows of a benchmark's database before a call, kept so that every timed run starts from them:
 * each table is copied aside once with its rowids. After the first call, the rows it changed are
 * known (those of the written tables, learnt from its trace, that differ from the copy); a restore
 * deletes the rows the call made or changed and puts the old ones back under their rowids, in one
 * transaction. Every run makes the same change (bench_floors checks it), so a restore touches only
 * those rows and leaves the caches as warm as between calls of a script. */
#ifndef BENCH_STATE_H
#define BENCH_STATE_H

#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "ecm_ctl.h"

class BenchState {
public:
    explicit BenchState(sqlite3 *pDb) : m_pDb(pDb)
    {
        for (const std::string &strTable : AllTables()) {
            Exec("CREATE TEMP TABLE keep_" + strTable + " AS SELECT rowid AS rid, * FROM main." + strTable +
                 " ORDER BY rowid");
        }
    }
    BenchState(const BenchState &) = delete;
    BenchState &operator=(const BenchState &) = delete;

    /* The tables the traced calls wrote: a segment's service rows go with it (a trigger deletes
     * them), and handing out an index writes the counters. */
    void NoteWrites(void *pObj)
    {
        std::set<std::string> setTables;
        for (uint32_t i = 0; i < ECM_CTL_TraceCount(pObj); i++) {
            ECM_CTL_TRACE_CALL_S stCall;
            (void)ECM_CTL_TraceGet(pObj, i, &stCall);
            for (uint32_t k = 0; k < stCall.uiOpNum; k++) {
                const ECM_CTL_TRACE_OP_S &stOp = stCall.pstOps[k];
                bool bWrite = stOp.uiOp == ECM_CTL_TRACE_INSERT || stOp.uiOp == ECM_CTL_TRACE_SET ||
                              stOp.uiOp == ECM_CTL_TRACE_DELETE;
                if (bWrite) {
                    setTables.insert(ECM_CTL_FindTable(stOp.uiTableId)->pcName);
                } else if (stOp.uiOp == ECM_CTL_TRACE_APPLY_INDEX) {
                    setTables.insert("ecm_index_counter");
                }
            }
        }
        m_vecWritten.clear();
        if (setTables.count("UVLAN_QINQ_SEG") != 0) {  /* first: deleting its rows deletes service rows */
            m_vecWritten = {"UVLAN_QINQ_SEG", "UVLAN_BASE_SVC", "UVLAN_VPN_SVC"};
        }
        for (const std::string &strTable : setTables) {
            if (strTable.compare(0, 6, "UVLAN_") != 0 || strTable == "UVLAN_DOT1Q" || strTable == "UVLAN_DESC" ||
                strTable == "UVLAN_ANYOTHER") {
                m_vecWritten.push_back(strTable);
            }
        }
        for (const std::string &strTable : m_vecWritten) {
            std::string strKeep = "temp.keep_" + strTable;
            Exec("CREATE TEMP TABLE IF NOT EXISTS made_" + strTable + " AS SELECT rowid AS rid FROM main." + strTable +
                 " WHERE 0; DELETE FROM temp.made_" + strTable + "; INSERT INTO temp.made_" + strTable +
                 " SELECT rowid FROM (SELECT rowid, * FROM main." + strTable + " EXCEPT SELECT * FROM " + strKeep + ")");
            Exec("CREATE TEMP TABLE IF NOT EXISTS lost_" + strTable + " AS SELECT rid FROM " + strKeep +
                 " WHERE 0; DELETE FROM temp.lost_" + strTable + "; INSERT INTO temp.lost_" + strTable +
                 " SELECT rid FROM (SELECT * FROM " + strKeep + " EXCEPT SELECT rowid, * FROM main." + strTable + ")");
        }
    }

    /* Puts the written tables back as they were; the time it took is kept for TakeRestoreUs. */
    void Restore()
    {
        if (m_vecWritten.empty()) {
            return;
        }
        auto tStart = std::chrono::steady_clock::now();
        Exec("BEGIN");
        for (const std::string &strTable : m_vecWritten) {
            std::string strCols = Columns(strTable);
            Exec("DELETE FROM main." + strTable + " WHERE rowid IN (SELECT rid FROM temp.made_" + strTable + ")");
            Exec("INSERT INTO main." + strTable + "(rowid, " + strCols + ") SELECT rid, " + strCols + " FROM temp.keep_" +
                 strTable + " WHERE rid IN (SELECT rid FROM temp.lost_" + strTable + ")");
        }
        Exec("COMMIT");
        m_dRestoreUs += std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - tStart).count();
    }

    /* The restores' time since the last call. */
    double TakeRestoreUs()
    {
        double d = m_dRestoreUs;
        m_dRestoreUs = 0;
        return d;
    }

    /* Every row of every table in rowid order: equal texts, equal databases. */
    std::string Digest() const
    {
        std::string strOut;
        for (const std::string &strTable : AllTables()) {
            sqlite3_stmt *pStmt = nullptr;
            std::string strSql = "SELECT rowid, * FROM main." + strTable + " ORDER BY rowid";
            if (sqlite3_prepare_v2(m_pDb, strSql.c_str(), -1, &pStmt, nullptr) != SQLITE_OK) {
                return "cannot read " + strTable;
            }
            strOut += strTable + "\n";
            while (sqlite3_step(pStmt) == SQLITE_ROW) {
                for (int c = 0; c < sqlite3_column_count(pStmt); c++) {
                    const void *pBytes = sqlite3_column_blob(pStmt, c);
                    strOut.append(static_cast<const char *>(pBytes), static_cast<size_t>(sqlite3_column_bytes(pStmt, c)));
                    strOut += '|';
                }
                strOut += '\n';
            }
            sqlite3_finalize(pStmt);
        }
        return strOut;
    }

private:
    static std::vector<std::string> AllTables()
    {
        std::vector<std::string> vecTables = {"ecm_index_counter"};
        for (uint32_t i = 0; ECM_CTL_TableAt(i) != nullptr; i++) {
            vecTables.push_back(ECM_CTL_TableAt(i)->pcName);
        }
        return vecTables;
    }

    static std::string Columns(const std::string &strTable)
    {
        const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTableByName(strTable.c_str());
        if (pstTable == nullptr) {
            return "table_id, last";    /* the index counters */
        }
        std::string strCols;
        for (uint32_t i = 0; i < pstTable->uiFieldNum; i++) {
            strCols.append(i == 0 ? "" : ", ").append(pstTable->pstFields[i].pcName);
        }
        return strCols;
    }

    void Exec(const std::string &strSql)
    {
        char *pcErr = nullptr;
        if (sqlite3_exec(m_pDb, strSql.c_str(), nullptr, nullptr, &pcErr) != SQLITE_OK) {
            std::fprintf(stderr, "bench: %s: %s\n", strSql.c_str(), pcErr != nullptr ? pcErr : "?");
            sqlite3_free(pcErr);
        }
    }

    sqlite3 *m_pDb;
    std::vector<std::string> m_vecWritten;
    double m_dRestoreUs = 0;
};

#endif
