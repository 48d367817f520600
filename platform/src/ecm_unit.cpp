/* Units of work on a database object: the one a script call opens on its first database
 * operation and commits when it returns, and the outer one the control side opens around many
 * calls. Uses only SQLite and Lua's C API.
 *
 * A call's unit is a write transaction begun IMMEDIATE: a call reads, decides and writes, and only
 * a transaction that holds the write lock from its first read keeps another writer from changing
 * what it read (a deferred one cannot wait for the lock when it has to upgrade). The objects whose
 * units the running call opened form a list per thread; the call's end commits them. A call that
 * raised never reaches its end: the next call on the thread, or the next control operation on the
 * object, rolls its units back. Inside an outer unit a call opens nothing: its work joins. */
#include <lua.h>
#include <sqlite3.h>

#include "ecm_db.h"
#include "ecm_unit.h"

std::atomic<uint32_t> g_uiEcmOpenCallUnits{0};

namespace {

thread_local void *tls_pCallState = nullptr;   /* the state of the script call running here */
thread_local EcmDb *tls_pCallUnits = nullptr;  /* objects on which that call opened a unit */

enum UnitStmt { UNIT_BEGIN, UNIT_COMMIT, UNIT_ROLLBACK };

/* Runs BEGIN IMMEDIATE, COMMIT or ROLLBACK from a statement prepared once per object. */
int RunUnitStmt(EcmDb *pstDb, UnitStmt eStmt)
{
    static const char *const apcSql[] = {"BEGIN IMMEDIATE", "COMMIT", "ROLLBACK"};
    sqlite3_stmt *&pStmt = pstDb->apUnitStmts[eStmt];
    if (pStmt == nullptr) {
        int iRc = sqlite3_prepare_v3(pstDb->pDb, apcSql[eStmt], -1, SQLITE_PREPARE_PERSISTENT, &pStmt, nullptr);
        if (iRc != SQLITE_OK) {
            return iRc;
        }
    }
    int iRc = sqlite3_step(pStmt);
    sqlite3_reset(pStmt);
    return iRc == SQLITE_DONE ? SQLITE_OK : iRc;
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
    if (pstDb->eCallUnit == ECM_UNIT_OPEN) {
        if (InTransaction(pstDb)) {
            (void)RunUnitStmt(pstDb, UNIT_ROLLBACK);
        }
        if (pstDb->vecJournal.size() > pstDb->uiUnitJournal) {
            pstDb->vecJournal.resize(pstDb->uiUnitJournal);
        }
    }
    Forget(pstDb);
}

/* Units a call left open because it raised. */
void RollBackLeftUnits()
{
    while (tls_pCallUnits != nullptr) {
        EcmDb *pstDb = tls_pCallUnits;
        tls_pCallUnits = pstDb->pNextInCall;
        RollBack(pstDb);
    }
    tls_pCallState = nullptr;
}

/* Commits a call's unit; on failure rolls it back and pushes why (only the first failure of a
 * call is pushed). SQLite itself rolls a transaction back on some I/O errors: then the work is
 * gone before the commit. */
bool Commit(EcmDb *pstDb, lua_State *L, bool bPushError)
{
    if (pstDb->eCallUnit != ECM_UNIT_OPEN) {
        Forget(pstDb);
        return true;
    }
    const char *pcWhy = nullptr;
    if (!InTransaction(pstDb)) {
        pcWhy = pstDb->strLastError.c_str();
    } else if (RunUnitStmt(pstDb, UNIT_COMMIT) != SQLITE_OK) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        pcWhy = pstDb->strLastError.c_str();
    }
    if (pcWhy == nullptr) {
        Forget(pstDb);
        return true;
    }
    if (bPushError) {
        lua_pushfstring(L, "%s: the call's database writes were rolled back: %s", pstDb->strPath.c_str(), pcWhy);
    }
    RollBack(pstDb);
    return false;
}

/* Opens the running call's unit on the object. */
uint32_t OpenCallUnit(EcmDb *pstDb)
{
    int iRc = RunUnitStmt(pstDb, UNIT_BEGIN);
    if (iRc != SQLITE_OK && (iRc & 0xFF) != SQLITE_BUSY) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        return ECM_ERR_SQL;  /* not kept: the next operation tries again */
    }
    pstDb->pNextInCall = tls_pCallUnits;
    tls_pCallUnits = pstDb;
    if (iRc != SQLITE_OK) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        pstDb->eCallUnit = ECM_UNIT_BUSY;  /* the rest of the call fails at once instead of waiting again */
        return ECM_ERR_BUSY;
    }
    pstDb->eCallUnit = ECM_UNIT_OPEN;
    pstDb->uiUnitJournal = static_cast<uint32_t>(pstDb->vecJournal.size());
    return ECM_OK;
}

}  // namespace

/* ---- Boundaries of a script call ---- */

void Ecm_CallEnter(void *pState)
{
    if (tls_pCallUnits != nullptr) {
        RollBackLeftUnits();
    }
    tls_pCallState = pState;
}

bool Ecm_CallLeave(void *pState)
{
    lua_State *L = static_cast<lua_State *>(pState);
    bool bOk = true;
    while (tls_pCallUnits != nullptr) {
        EcmDb *pstDb = tls_pCallUnits;
        tls_pCallUnits = pstDb->pNextInCall;
        bOk = Commit(pstDb, L, bOk) && bOk;
    }
    tls_pCallState = nullptr;
    return bOk;
}

uint32_t Ecm_JoinCallUnit(EcmDb *pstDb)
{
    if (tls_pCallState == nullptr || !pstDb->bCallUnits) {
        return ECM_OK;
    }
    switch (pstDb->eCallUnit) {
        case ECM_UNIT_OPEN: return InTransaction(pstDb) ? ECM_OK : ECM_ERR_SQL;  /* lost to an I/O error */
        case ECM_UNIT_BUSY: return ECM_ERR_BUSY;
        case ECM_UNIT_NONE: break;
    }
    if (pstDb->uiOuterDepth != 0 || InTransaction(pstDb)) {
        return ECM_OK;  /* joins the unit around the call */
    }
    return OpenCallUnit(pstDb);
}

void Ecm_SettleCallUnits(EcmDb *pstDb)
{
    if (pstDb->eCallUnit != ECM_UNIT_NONE) {
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
