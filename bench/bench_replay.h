/* The replay floor: the statements a database object's trace recorded for some calls, run again
 * directly on the sqlite3 C API: each distinct statement prepared once, then for every recorded
 * execution its values bound, every row stepped with every column read, and the statement reset.
 * The trace holds the statements that begin and end each call's unit, so a replay is as many
 * transactions as the calls were. Used by the benchmarks, and by the test that checks a replay
 * leaves a copy of the database as the calls left the database. */
#ifndef BENCH_REPLAY_H
#define BENCH_REPLAY_H

#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ecm_ctl.h"

class TraceReplay {
public:
    /* Takes the statements of calls uiFirst.. of the object's recording and prepares each on pDb. */
    TraceReplay(sqlite3 *pDb, void *pObj, uint32_t uiFirst = 0) : m_pDb(pDb)
    {
        uint32_t uiNum = ECM_CTL_TraceCount(pObj);
        for (uint32_t i = uiFirst; i < uiNum; i++) {
            ECM_CTL_TRACE_CALL_S stCall;
            if (ECM_CTL_TraceGet(pObj, i, &stCall) != 0) {
                continue;
            }
            for (uint32_t k = 0; k < stCall.uiOpNum; k++) {
                for (uint32_t s = 0; s < stCall.pstOps[k].uiStmtNum; s++) {
                    Add(stCall.pstOps[k].pstStmts[s]);
                }
            }
        }
    }
    ~TraceReplay()
    {
        for (auto &kv : m_mapStmts) {
            sqlite3_finalize(kv.second);
        }
    }
    TraceReplay(const TraceReplay &) = delete;
    TraceReplay &operator=(const TraceReplay &) = delete;

    /* Every statement could be prepared. */
    bool Ready() const { return m_bReady; }
    size_t Statements() const { return m_vecRuns.size(); }

    /* Runs every recorded execution in order; the number whose end differed from SQLITE_DONE.
     * What the rows held is added to *pulSink, so that reading them cannot be left out. */
    [[gnu::noinline]] uint32_t Run(uint64_t *pulSink) const
    {
        uint32_t uiFailed = 0;
        for (const Execution &stRun : m_vecRuns) {
            for (size_t i = 0; i < stRun.vecVals.size(); i++) {
                Bind(stRun.pStmt, static_cast<int>(i + 1), stRun.vecVals[i]);
            }
            int iRc;
            while ((iRc = sqlite3_step(stRun.pStmt)) == SQLITE_ROW) {
                *pulSink += ReadRow(stRun.pStmt);
            }
            uiFailed += (iRc == SQLITE_DONE) ? 0 : 1;
            sqlite3_reset(stRun.pStmt);
        }
        return uiFailed;
    }

private:
    struct Value {
        bool bBytes;
        int64_t llNum;
        std::string strBytes;
    };
    struct Execution {
        sqlite3_stmt *pStmt;
        std::vector<Value> vecVals;
    };

    void Add(const ECM_CTL_TRACE_STMT_S &stStmt)
    {
        sqlite3_stmt *&pStmt = m_mapStmts[stStmt.pcSql];
        if (pStmt == nullptr &&
            sqlite3_prepare_v3(m_pDb, stStmt.pcSql, -1, SQLITE_PREPARE_PERSISTENT, &pStmt, nullptr) != SQLITE_OK) {
            m_bReady = false;
            return;
        }
        Execution stRun{pStmt, {}};
        for (uint32_t i = 0; i < stStmt.uiValNum; i++) {
            const ECM_CTL_TRACE_VAL_S &v = stStmt.pstVals[i];
            stRun.vecVals.push_back({v.uiLen != 0, v.llNum,
                                     std::string(reinterpret_cast<const char *>(v.pucBytes), v.uiLen)});
        }
        m_vecRuns.push_back(std::move(stRun));
    }

    static void Bind(sqlite3_stmt *pStmt, int iParam, const Value &v)
    {
        if (v.bBytes) {
            sqlite3_bind_blob(pStmt, iParam, v.strBytes.data(), static_cast<int>(v.strBytes.size()), SQLITE_STATIC);
        } else {
            sqlite3_bind_int64(pStmt, iParam, v.llNum);
        }
    }

    static uint64_t ReadRow(sqlite3_stmt *pStmt)
    {
        uint64_t ulSum = 0;
        for (int i = 0, n = sqlite3_column_count(pStmt); i < n; i++) {
            ulSum += (sqlite3_column_type(pStmt, i) == SQLITE_BLOB)
                         ? static_cast<uint64_t>(sqlite3_column_bytes(pStmt, i))
                         : static_cast<uint64_t>(sqlite3_column_int64(pStmt, i));
        }
        return ulSum;
    }

    sqlite3 *m_pDb;
    bool m_bReady = true;
    std::map<std::string, sqlite3_stmt *> m_mapStmts;
    std::vector<Execution> m_vecRuns;
};

#endif
