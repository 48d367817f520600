/* Units of work on a database object: the one a script call opens on its first database
 * operation and commits when it returns, and the outer one the control side opens around many
 * calls. Uses only SQLite.
 *
 * A call reads, decides and writes; it must not act on what it read once another writer has
 * changed it. A call's unit therefore starts as a deferred transaction: its reads share one
 * snapshot and take no write lock, which keeps calls that only read as cheap as single reads.
 * Its first write takes the write lock; when another writer holds it or has committed since the
 * snapshot (SQLite then answers busy at once, without waiting), the call's work is void: every
 * later operation of the call fails at once, the unit is rolled back when the call returns, and
 * the script stack runs the call again, this time in a transaction begun IMMEDIATE, which waits
 * for the lock up to the busy timeout and holds it from the first read. The objects whose units
 * the running call opened form a list per thread; the call's end commits them, or rolls them back
 * when the call failed. The script stack ends every call it runs, whatever happens in it; only a
 * script function that raises by itself, around the script stack, can leave units open: the next
 * call on the thread, or the next control operation on the object, rolls them back. Inside an
 * outer unit a call opens nothing: its work joins. */
#include <sqlite3.h>

#include <string>

#include "ecm_db.h"
#include "ecm_unit.h"

std::atomic<uint32_t> g_uiEcmOpenCallUnits{0};

namespace {

/* The script call running on this thread. Every client operation reads it: initial-exec puts it at
 * a fixed place beside the thread pointer, read without a call into the loader (the platform
 * library comes with the module it serves, and these few bytes fit the room the loader keeps for
 * such libraries). */
struct CallThread {
    void *pState;       /* the state of the script call running here */
    EcmDb *pUnits;      /* objects on which that call opened a unit */
    bool bRunAgain;     /* the call runs again, holding the lock from the start */
    uint32_t uiNested;  /* calls running inside the running call */
    uint64_t ulCallNo;  /* the running call's number, 0 between calls */
};
[[gnu::tls_model("initial-exec")]] thread_local CallThread tls_stCall = {nullptr, nullptr, false, 0, 0};
thread_local std::string tls_strWhy;           /* why the last call's commit failed */
std::atomic<uint64_t> g_ulCallsEntered{0};     /* numbers calls over the process, for traces */

enum UnitStmt { UNIT_BEGIN, UNIT_BEGIN_IMMEDIATE, UNIT_COMMIT, UNIT_ROLLBACK, UNIT_SAVE, UNIT_RELEASE, UNIT_UNDO };

bool EndsUnit(UnitStmt eStmt)
{
    return eStmt == UNIT_COMMIT || eStmt == UNIT_ROLLBACK || eStmt == UNIT_RELEASE || eStmt == UNIT_UNDO;
}

/* Runs one statement of a call's unit, prepared once per object. One that ends the unit is traced as
 * an operation of its own. */
int RunUnitStmt(EcmDb *pstDb, UnitStmt eStmt)
{
    static const char *const apcSql[] = {"BEGIN", "BEGIN IMMEDIATE", "COMMIT", "ROLLBACK", "SAVEPOINT ecm_call",
                                         "RELEASE ecm_call", "ROLLBACK TO ecm_call"};
    static_assert(sizeof(apcSql) / sizeof(apcSql[0]) == sizeof(EcmDb::apUnitStmts) / sizeof(sqlite3_stmt *),
                  "one prepared statement per kind");
    sqlite3_stmt *&pStmt = pstDb->apUnitStmts[eStmt];
    if (pStmt == nullptr) {
        int iRc = sqlite3_prepare_v3(pstDb->pDb, apcSql[eStmt], -1, SQLITE_PREPARE_PERSISTENT, &pStmt, nullptr);
        if (iRc != SQLITE_OK) {
            return iRc;
        }
    }
    bool bTraced = EndsUnit(eStmt) &&
                   Ecm_TraceUnitStmt(pstDb, (eStmt == UNIT_COMMIT || eStmt == UNIT_RELEASE) ? ECM_CTL_TRACE_COMMIT
                                                                                           : ECM_CTL_TRACE_ROLLBACK);
    int iRc = Ecm_Step(pstDb, pStmt);
    sqlite3_reset(pStmt);
    iRc = iRc == SQLITE_DONE ? SQLITE_OK : iRc;
    if (bTraced) {
        Ecm_TraceOpEnd(pstDb, iRc == SQLITE_OK ? ECM_OK : ECM_ERR_SQL, UINT64_MAX);
    }
    return iRc;
}

bool InTransaction(const EcmDb *pstDb)
{
    return sqlite3_get_autocommit(pstDb->pDb) == 0;
}

void Forget(EcmDb *pstDb)
{
    pstDb->eCallUnit = ECM_UNIT_NONE;
    pstDb->pNextInCall = nullptr;
}

/* Rolls a call's unit back: its writes never happened, so neither did their journal entries. */
void RollBack(EcmDb *pstDb)
{
    if (pstDb->eCallUnit == ECM_UNIT_NONE) {
        return;
    }
    if (InTransaction(pstDb) && pstDb->eCallUnit == ECM_UNIT_NESTED) {
        (void)RunUnitStmt(pstDb, UNIT_UNDO);
        (void)RunUnitStmt(pstDb, UNIT_RELEASE);
    } else if (InTransaction(pstDb)) {  /* SQLite may have rolled it back itself on an I/O error */
        (void)RunUnitStmt(pstDb, UNIT_ROLLBACK);
    }
    Ecm_JournalKeep(pstDb, pstDb->uiUnitJournal);
    Forget(pstDb);
}

/* Units a call left open because it raised. */
void RollBackLeftUnits()
{
    while (tls_stCall.pUnits != nullptr) {
        EcmDb *pstDb = tls_stCall.pUnits;
        tls_stCall.pUnits = pstDb->pNextInCall;
        RollBack(pstDb);
    }
    tls_stCall.pState = nullptr;
}

/* Commits a call's unit; on failure rolls it back and keeps why (only the first failure of a
 * call is kept). SQLite itself rolls a transaction back on some I/O errors: then the work is
 * gone before the commit. */
bool Commit(EcmDb *pstDb, bool bKeepWhy)
{
    bool bNested = pstDb->eCallUnit == ECM_UNIT_NESTED;
    if (pstDb->eCallUnit != ECM_UNIT_OPEN && pstDb->eCallUnit != ECM_UNIT_LOCKED && !bNested) {
        RollBack(pstDb);  /* a call that never got the lock wrote nothing */
        return true;
    }
    const char *pcWhy = nullptr;
    if (!InTransaction(pstDb)) {
        pcWhy = pstDb->strLastError.c_str();
    } else if (RunUnitStmt(pstDb, bNested ? UNIT_RELEASE : UNIT_COMMIT) != SQLITE_OK) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        pcWhy = pstDb->strLastError.c_str();
    }
    if (pcWhy == nullptr) {
        Forget(pstDb);
        return true;
    }
    if (bKeepWhy) {
        tls_strWhy.assign(pstDb->strPath).append(": the call's database writes were rolled back: ").append(pcWhy);
    }
    RollBack(pstDb);
    return false;
}

/* Opens the running call's unit on the object: deferred on the first run of a call, IMMEDIATE
 * when it runs again. */
uint32_t OpenCallUnit(EcmDb *pstDb)
{
    int iRc = RunUnitStmt(pstDb, tls_stCall.bRunAgain ? UNIT_BEGIN_IMMEDIATE : UNIT_BEGIN);
    if (iRc != SQLITE_OK && (iRc & 0xFF) != SQLITE_BUSY) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        return ECM_ERR_SQL;  /* not kept: the next operation tries again */
    }
    pstDb->pNextInCall = tls_stCall.pUnits;
    tls_stCall.pUnits = pstDb;
    pstDb->uiUnitJournal = Ecm_JournalLength(pstDb);
    if (iRc != SQLITE_OK) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        pstDb->eCallUnit = ECM_UNIT_BUSY;  /* the rest of the call fails at once instead of waiting again */
        return ECM_ERR_BUSY;
    }
    pstDb->eCallUnit = tls_stCall.bRunAgain ? ECM_UNIT_LOCKED : ECM_UNIT_OPEN;
    return ECM_OK;
}

}  // namespace

/* ---- Boundaries of a script call ---- */

void Ecm_CallEnter(void *pState, bool bNested)
{
    if (bNested && tls_stCall.pState != nullptr) {
        tls_stCall.uiNested++;
        return;
    }
    if (tls_stCall.pUnits != nullptr) {
        RollBackLeftUnits();
    }
    tls_stCall.uiNested = 0;
    tls_stCall.pState = pState;
    tls_stCall.ulCallNo = g_ulCallsEntered.fetch_add(1, std::memory_order_relaxed) + 1;
}

/* Whether the running call lost the race for the write lock on one of its objects. */
static bool CallIsVoid()
{
    for (EcmDb *pstDb = tls_stCall.pUnits; pstDb != nullptr; pstDb = pstDb->pNextInCall) {
        if (pstDb->eCallUnit == ECM_UNIT_VOID) {
            return true;
        }
    }
    return false;
}

bool Ecm_CallLostRace()
{
    if (tls_stCall.uiNested != 0 || !CallIsVoid()) {
        return false;
    }
    RollBackLeftUnits();
    tls_stCall.bRunAgain = true;
    return true;
}

bool Ecm_CallLeave(bool bCommit, const char **ppcWhy)
{
    *ppcWhy = nullptr;
    if (tls_stCall.uiNested != 0) {
        tls_stCall.uiNested--;
        return true;
    }
    tls_stCall.pState = nullptr;
    tls_stCall.bRunAgain = false;
    if (!bCommit) {
        RollBackLeftUnits();
        tls_stCall.ulCallNo = 0;
        return false;
    }
    bool bOk = true;
    while (tls_stCall.pUnits != nullptr) {
        EcmDb *pstDb = tls_stCall.pUnits;
        tls_stCall.pUnits = pstDb->pNextInCall;
        bOk = Commit(pstDb, bOk) && bOk;
    }
    tls_stCall.ulCallNo = 0;
    *ppcWhy = bOk ? nullptr : tls_strWhy.c_str();
    return bOk;
}

uint64_t Ecm_RunningCall(void **ppState)
{
    *ppState = tls_stCall.pState;
    return tls_stCall.ulCallNo;
}

uint32_t Ecm_CallOutcome(EcmDb *pstDb, uint32_t uiRet)
{
    if (uiRet != ECM_ERR_BUSY || pstDb->eCallUnit != ECM_UNIT_OPEN) {
        return uiRet;
    }
    /* A write that found the lock taken after the call had read answers at once: the call runs
     * again. One that came first in its unit has waited the whole busy timeout already. */
    bool bHadRead = sqlite3_txn_state(pstDb->pDb, "main") == SQLITE_TXN_READ;
    pstDb->eCallUnit = bHadRead ? ECM_UNIT_VOID : ECM_UNIT_BUSY;
    return uiRet;
}

uint32_t Ecm_JoinCallUnit(EcmDb *pstDb)
{
    if (tls_stCall.pState == nullptr || !pstDb->bCallUnits) {
        return ECM_OK;
    }
    switch (pstDb->eCallUnit) {
        case ECM_UNIT_OPEN:
        case ECM_UNIT_LOCKED:
        case ECM_UNIT_NESTED: return InTransaction(pstDb) ? ECM_OK : ECM_ERR_SQL;  /* lost to an I/O error */
        case ECM_UNIT_BUSY:
        case ECM_UNIT_VOID: return ECM_ERR_BUSY;
        case ECM_UNIT_NONE: break;
    }
    if (pstDb->uiOuterDepth != 0 || InTransaction(pstDb)) {
        return ECM_OK;  /* joins the unit around the call */
    }
    return OpenCallUnit(pstDb);
}

uint32_t Ecm_JoinCallWrite(EcmDb *pstDb)
{
    if (tls_stCall.pState == nullptr || !pstDb->bCallUnits || pstDb->eCallUnit != ECM_UNIT_NONE ||
        !InTransaction(pstDb)) {
        return ECM_OK;  /* outside calls and outer units, or the call's unit is its own already */
    }
    int iRc = RunUnitStmt(pstDb, UNIT_SAVE);
    if (iRc != SQLITE_OK) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        return (iRc & 0xFF) == SQLITE_BUSY ? ECM_ERR_BUSY : ECM_ERR_SQL;
    }
    pstDb->pNextInCall = tls_stCall.pUnits;
    tls_stCall.pUnits = pstDb;
    pstDb->uiUnitJournal = Ecm_JournalLength(pstDb);
    pstDb->eCallUnit = ECM_UNIT_NESTED;
    return ECM_OK;
}

void Ecm_SettleCallUnits(EcmDb *pstDb)
{
    if (pstDb->eCallUnit != ECM_UNIT_NONE && tls_stCall.pState == nullptr) {
        RollBackLeftUnits();
    }
}

void Ecm_CountCallUnits(EcmDb *pstDb, bool bOn)
{
    if (bOn != pstDb->bCallUnits) {
        pstDb->bCallUnits = bOn;
        if (bOn) {
            g_uiEcmOpenCallUnits.fetch_add(1, std::memory_order_relaxed);
        } else {
            g_uiEcmOpenCallUnits.fetch_sub(1, std::memory_order_relaxed);
        }
    }
}

/* ---- Outer units of the control side ---- */

namespace {

uint32_t RunOuterSql(EcmDb *pstDb, const std::string &strSql)
{
    int iRc = sqlite3_exec(pstDb->pDb, strSql.c_str(), nullptr, nullptr, nullptr);
    if (iRc == SQLITE_OK) {
        return ECM_OK;
    }
    pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
    return (iRc & 0xFF) == SQLITE_BUSY ? ECM_ERR_BUSY : ECM_ERR_SQL;
}

std::string SavepointName(uint32_t uiDepth)
{
    return std::string("ecm_unit_").append(std::to_string(uiDepth));
}

}  // namespace

extern "C" uint32_t ECM_CTL_UnitBegin(void *pObj)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    if (pstDb == nullptr) {
        return ECM_ERR_PARAM;
    }
    Ecm_SettleCallUnits(pstDb);
    uint32_t uiRet = (pstDb->uiOuterDepth == 0) ? RunOuterSql(pstDb, "BEGIN IMMEDIATE")
                                                : RunOuterSql(pstDb, "SAVEPOINT " + SavepointName(pstDb->uiOuterDepth));
    pstDb->uiOuterDepth += (uiRet == ECM_OK) ? 1 : 0;
    return uiRet;
}

extern "C" uint32_t ECM_CTL_UnitEnd(void *pObj, int bCommit)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    if (pstDb == nullptr || pstDb->uiOuterDepth == 0) {
        return ECM_ERR_PARAM;
    }
    uint32_t uiDepth = --pstDb->uiOuterDepth;
    if (!InTransaction(pstDb)) {  /* SQLite rolled it back on an I/O error: nothing is left to end */
        return bCommit != 0 ? ECM_ERR_SQL : ECM_OK;
    }
    if (uiDepth != 0) {
        std::string strName = SavepointName(uiDepth);
        std::string strSql = (bCommit != 0) ? "" : "ROLLBACK TO " + strName + ";";
        return RunOuterSql(pstDb, strSql.append("RELEASE ").append(strName));
    }
    if (bCommit == 0) {
        return RunOuterSql(pstDb, "ROLLBACK");
    }
    uint32_t uiRet = RunOuterSql(pstDb, "COMMIT");
    if (uiRet != ECM_OK && InTransaction(pstDb)) {
        (void)sqlite3_exec(pstDb->pDb, "ROLLBACK", nullptr, nullptr, nullptr);
    }
    return uiRet;
}
