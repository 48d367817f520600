/* The trace of a database object: each client operation with the statements it ran, their bound
 * values, rows and time inside SQLite, grouped by the script call that made it. Uses only SQLite.
 *
 * A call's record keeps its operations, statements and values in three flat lists (an operation
 * names its statements by position, a statement its values) and every bound byte in one string, so
 * recording appends and never chases pointers; ECM_CTL_TraceGet lays the views out on demand.
 * Values are bound before the statement that takes them first steps: they wait in a pending list
 * that the statement's first step takes over. A statement whose step finds it not busy is a new
 * execution; the stand-in resets every statement after use, so that is the start of one. */
#include <chrono>
#include <string>
#include <unordered_set>
#include <vector>

#include "ecm_db.h"

namespace {

struct TraceVal {
    uint32_t uiLen;
    int64_t llNum;
    uint32_t uiOffset;  /* of the bytes in the call's string */
};

struct TraceStmt {
    const char *pcSql;
    uint32_t uiFirstVal;
    uint32_t uiValNum;
    uint64_t ulRows;
    uint64_t ulNs;
};

struct TraceOp {
    uint32_t uiOp;
    uint32_t uiTableId;
    uint32_t uiResult;
    uint64_t ulRows;
    uint64_t ulNs;
    uint32_t uiFirstStmt;
    uint32_t uiStmtNum;
};

struct TraceCall {
    uint64_t ulKey;     /* the running call's number, 0 for operations outside calls */
    std::string strName;
    std::vector<TraceOp> vecOps;
    std::vector<TraceStmt> vecStmts;
    std::vector<TraceVal> vecVals;
    std::string strBytes;
    /* the views ECM_CTL_TraceGet hands out */
    std::vector<ECM_CTL_TRACE_OP_S> vecOpViews;
    std::vector<ECM_CTL_TRACE_STMT_S> vecStmtViews;
    std::vector<ECM_CTL_TRACE_VAL_S> vecValViews;
};

}  // namespace

struct EcmTrace {
    std::vector<TraceCall> vecCalls;
    ECM_CTL_CALL_NAME_FN pfName = nullptr;
    std::unordered_set<std::string> setSql;  /* each statement's text once; nodes never move */
    bool bOpOpen = false;
    uint64_t ulPrepareNs = 0;
    std::vector<TraceVal> vecPending;
    std::string strPendingBytes;
};

namespace {

constexpr size_t kNameLen = 96;

TraceCall &CallFor(EcmTrace &stTrace)
{
    void *pState = nullptr;
    uint64_t ulKey = Ecm_RunningCall(&pState);
    if (!stTrace.vecCalls.empty() && stTrace.vecCalls.back().ulKey == ulKey) {
        return stTrace.vecCalls.back();
    }
    TraceCall &stCall = stTrace.vecCalls.emplace_back();
    stCall.ulKey = ulKey;
    if (ulKey != 0 && pState != nullptr && stTrace.pfName != nullptr) {
        char acName[kNameLen] = "";
        stTrace.pfName(pState, acName, sizeof(acName));
        acName[kNameLen - 1] = '\0';
        stCall.strName = acName;
    }
    return stCall;
}

const char *Interned(EcmTrace &stTrace, sqlite3_stmt *pStmt)
{
    const char *pcSql = sqlite3_sql(pStmt);
    return stTrace.setSql.emplace(pcSql != nullptr ? pcSql : "").first->c_str();
}

/* A new execution of pStmt in the running operation, taking the values bound for it. */
TraceStmt &OpenStmt(EcmTrace &stTrace, sqlite3_stmt *pStmt)
{
    TraceCall &stCall = stTrace.vecCalls.back();
    uint32_t uiFirstVal = static_cast<uint32_t>(stCall.vecVals.size());
    uint32_t uiBase = static_cast<uint32_t>(stCall.strBytes.size());
    for (TraceVal stVal : stTrace.vecPending) {
        stVal.uiOffset += uiBase;
        stCall.vecVals.push_back(stVal);
    }
    stCall.strBytes += stTrace.strPendingBytes;
    stCall.vecStmts.push_back({Interned(stTrace, pStmt), uiFirstVal, static_cast<uint32_t>(stTrace.vecPending.size()), 0, 0});
    stCall.vecOps.back().uiStmtNum++;
    stTrace.vecPending.clear();
    stTrace.strPendingBytes.clear();
    return stCall.vecStmts.back();
}

void BuildViews(TraceCall &stCall)
{
    stCall.vecValViews.clear();
    for (const TraceVal &stVal : stCall.vecVals) {
        const uint8_t *pucBytes = reinterpret_cast<const uint8_t *>(stCall.strBytes.data()) + stVal.uiOffset;
        stCall.vecValViews.push_back({stVal.uiLen, stVal.llNum, stVal.uiLen != 0 ? pucBytes : nullptr});
    }
    stCall.vecStmtViews.clear();
    for (const TraceStmt &stStmt : stCall.vecStmts) {
        stCall.vecStmtViews.push_back({stStmt.pcSql, stStmt.uiValNum, stCall.vecValViews.data() + stStmt.uiFirstVal,
                                       stStmt.ulRows, stStmt.ulNs});
    }
    stCall.vecOpViews.clear();
    for (const TraceOp &stOp : stCall.vecOps) {
        stCall.vecOpViews.push_back({stOp.uiOp, stOp.uiTableId, stOp.uiResult, stOp.ulRows, stOp.ulNs, stOp.uiStmtNum,
                                     stCall.vecStmtViews.data() + stOp.uiFirstStmt});
    }
}

}  // namespace

/* ---- Recording (the stand-in's side) ---- */

uint64_t Ecm_Now()
{
    auto tNow = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(tNow).count());
}

void Ecm_TraceOpBegin(EcmDb *pstDb, uint32_t uiOp, uint32_t uiTableId)
{
    EcmTrace &stTrace = *pstDb->pstTrace;
    TraceCall &stCall = CallFor(stTrace);
    stCall.vecOps.push_back({uiOp, uiTableId, 0, 0, 0, static_cast<uint32_t>(stCall.vecStmts.size()), 0});
    stTrace.bOpOpen = true;
    stTrace.ulPrepareNs = 0;
    stTrace.vecPending.clear();
    stTrace.strPendingBytes.clear();
}

void Ecm_TraceOpEnd(EcmDb *pstDb, uint32_t uiResult, uint64_t ulCounted)
{
    EcmTrace &stTrace = *pstDb->pstTrace;
    if (!stTrace.bOpOpen) {
        return;
    }
    TraceCall &stCall = stTrace.vecCalls.back();
    TraceOp &stOp = stCall.vecOps.back();
    stOp.uiResult = uiResult;
    stOp.ulNs = stTrace.ulPrepareNs;
    for (uint32_t i = 0; i < stOp.uiStmtNum; i++) {
        stOp.ulRows += stCall.vecStmts[stOp.uiFirstStmt + i].ulRows;
        stOp.ulNs += stCall.vecStmts[stOp.uiFirstStmt + i].ulNs;
    }
    if (ulCounted != UINT64_MAX) {
        stOp.ulRows = ulCounted;
    }
    stTrace.bOpOpen = false;
}

bool Ecm_TraceUnitStmt(EcmDb *pstDb, uint32_t uiOp)
{
    if (!pstDb->bTracing || pstDb->pstTrace->bOpOpen) {
        return false;
    }
    Ecm_TraceOpBegin(pstDb, uiOp, 0);
    return true;
}

void Ecm_TracePrepare(EcmDb *pstDb, uint64_t ulNs)
{
    if (pstDb->bTracing && pstDb->pstTrace->bOpOpen) {
        pstDb->pstTrace->ulPrepareNs += ulNs;
    }
}

int Ecm_TraceStep(EcmDb *pstDb, sqlite3_stmt *pStmt)
{
    EcmTrace &stTrace = *pstDb->pstTrace;
    if (!stTrace.bOpOpen) {
        return sqlite3_step(pStmt);  /* the control side's statements are not the client's */
    }
    TraceStmt *pstStmt = sqlite3_stmt_busy(pStmt) ? &stTrace.vecCalls.back().vecStmts.back()
                                                  : &OpenStmt(stTrace, pStmt);
    uint64_t ulStart = Ecm_Now();
    int iRc = sqlite3_step(pStmt);
    pstStmt->ulNs += Ecm_Now() - ulStart;
    if (iRc == SQLITE_ROW) {
        pstStmt->ulRows++;
    } else if (iRc == SQLITE_DONE && !sqlite3_stmt_readonly(pStmt)) {
        pstStmt->ulRows += static_cast<uint64_t>(sqlite3_changes64(pstDb->pDb));
    }
    return iRc;
}

void Ecm_TraceBind(EcmDb *pstDb, int iParam, int64_t llNum, const uint8_t *pucBytes, uint32_t uiLen)
{
    EcmTrace &stTrace = *pstDb->pstTrace;
    if (!stTrace.bOpOpen || iParam < 1) {
        return;
    }
    size_t ulAt = static_cast<size_t>(iParam - 1);
    if (stTrace.vecPending.size() <= ulAt) {
        stTrace.vecPending.resize(ulAt + 1, TraceVal{0, 0, 0});
    }
    stTrace.vecPending[ulAt] = {uiLen, llNum, static_cast<uint32_t>(stTrace.strPendingBytes.size())};
    stTrace.strPendingBytes.append(reinterpret_cast<const char *>(pucBytes), pucBytes != nullptr ? uiLen : 0);
}

void Ecm_TraceFree(EcmDb *pstDb)
{
    delete pstDb->pstTrace;
    pstDb->pstTrace = nullptr;
    pstDb->bTracing = false;
}

/* ---- Control side ---- */

extern "C" void ECM_CTL_Trace(void *pObj, int bOn, ECM_CTL_CALL_NAME_FN pfName)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    if (bOn == 0) {
        pstDb->bTracing = false;
        return;
    }
    delete pstDb->pstTrace;
    pstDb->pstTrace = new EcmTrace;
    pstDb->pstTrace->pfName = pfName;
    pstDb->bTracing = true;
}

extern "C" uint32_t ECM_CTL_TraceCount(void *pObj)
{
    const EcmTrace *pstTrace = static_cast<EcmDb *>(pObj)->pstTrace;
    return pstTrace != nullptr ? static_cast<uint32_t>(pstTrace->vecCalls.size()) : 0;
}

extern "C" uint32_t ECM_CTL_TraceGet(void *pObj, uint32_t uiIndex, ECM_CTL_TRACE_CALL_S *pstCall)
{
    EcmTrace *pstTrace = static_cast<EcmDb *>(pObj)->pstTrace;
    if (pstTrace == nullptr || uiIndex >= pstTrace->vecCalls.size() || pstCall == nullptr) {
        return ECM_ERR_PARAM;
    }
    TraceCall &stCall = pstTrace->vecCalls[uiIndex];
    BuildViews(stCall);
    uint64_t ulNs = 0;
    for (const TraceOp &stOp : stCall.vecOps) {
        ulNs += stOp.ulNs;
    }
    *pstCall = {stCall.strName.c_str(), ulNs, static_cast<uint32_t>(stCall.vecOpViews.size()), stCall.vecOpViews.data()};
    return ECM_OK;
}

extern "C" void ECM_CTL_TraceClear(void *pObj)
{
    EcmTrace *pstTrace = static_cast<EcmDb *>(pObj)->pstTrace;
    if (pstTrace != nullptr && !pstTrace->bOpOpen) {
        pstTrace->vecCalls.clear();
    }
}

extern "C" const char *ECM_CTL_TraceOpName(uint32_t uiOp)
{
    static const char *const apcNames[] = {"?",      "cdb_id", "lr_vr_id", "select",      "exist",  "count",
                                           "insert", "set",    "delete",   "apply_index", "commit", "rollback"};
    return uiOp < sizeof(apcNames) / sizeof(apcNames[0]) ? apcNames[uiOp] : apcNames[0];
}

extern "C" void *ECM_CTL_Storage(void *pObj)
{
    return static_cast<EcmDb *>(pObj)->pDb;
}
