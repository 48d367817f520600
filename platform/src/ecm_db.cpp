/* Lifetime of a database object: opening the SQLite storage (its schema: ecm_version.cpp),
 * the statement cache, binding to a script state, and value conversion. Uses only SQLite; the
 * binding itself is kept by the script stack. */
#include <stdio.h>
#include <string.h>

#include "ecm_capi.h"
#include "ecm_db.h"
#include "mox_ctl.h"
#include "sysdt_spti_bind.h"

namespace {

bool Exec(sqlite3 *pDb, const std::string &strSql, char *pcErr, size_t ulErrLen)
{
    char *pcMsg = nullptr;
    if (sqlite3_exec(pDb, strSql.c_str(), nullptr, nullptr, &pcMsg) == SQLITE_OK) {
        return true;
    }
    snprintf(pcErr, ulErrLen, "%s", pcMsg != nullptr ? pcMsg : sqlite3_errmsg(pDb));
    sqlite3_free(pcMsg);
    return false;
}

/* The busy timeout first, so that every step waits for other writers; the schema before WAL, so
 * that a refused file is left exactly as it was. WAL keeps readers off the writer's back; FULL
 * syncs the log on every commit, so a unit is on disk when it ends. */
bool OpenStorage(EcmDb *pstDb, const char *pcPath, uint32_t uiBusyTimeoutMs, char *pcErr, size_t ulErrLen)
{
    int iFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;  /* one thread per object */
    pstDb->strPath = pcPath != nullptr ? pcPath : ":memory:";
    if (sqlite3_open_v2(pstDb->strPath.c_str(), &pstDb->pDb, iFlags, nullptr) != SQLITE_OK) {
        snprintf(pcErr, ulErrLen, "%s", pstDb->pDb != nullptr ? sqlite3_errmsg(pstDb->pDb) : "out of memory");
        return false;
    }
    sqlite3_busy_timeout(pstDb->pDb, uiBusyTimeoutMs > INT32_MAX ? INT32_MAX : static_cast<int>(uiBusyTimeoutMs));
    if (!Ecm_PrepareSchema(pstDb, pcErr, ulErrLen)) {
        return false;
    }
    return pcPath == nullptr || Exec(pstDb->pDb, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;", pcErr, ulErrLen);
}

void CloseStorage(EcmDb *pstDb)
{
    for (auto &kv : pstDb->mapPlans) {
        sqlite3_finalize(kv.second.pStmt);
    }
    pstDb->mapPlans.clear();
    pstDb->pstLastPlan = nullptr;
    for (sqlite3_stmt *&pStmt : pstDb->apUnitStmts) {
        sqlite3_finalize(pStmt);
        pStmt = nullptr;
    }
    sqlite3_close(pstDb->pDb);
    pstDb->pDb = nullptr;
    Ecm_TraceFree(pstDb);
}

}  // namespace

/* ---- Lifetime and binding ---- */

extern "C" void *ECM_CTL_Open(const char *pcPath, uint32_t uiLrId, uint32_t uiVrId, uint32_t uiCdbId, char *pcErr,
                              size_t ulErrLen)
{
    return ECM_CTL_OpenEx(pcPath, uiLrId, uiVrId, uiCdbId, ECM_BUSY_TIMEOUT_DEFAULT, pcErr, ulErrLen);
}

extern "C" void *ECM_CTL_OpenEx(const char *pcPath, uint32_t uiLrId, uint32_t uiVrId, uint32_t uiCdbId,
                                uint32_t uiBusyTimeoutMs, char *pcErr, size_t ulErrLen)
{
    char acIgnored[8];
    if (pcErr == nullptr || ulErrLen == 0) {
        pcErr = acIgnored;
        ulErrLen = sizeof(acIgnored);
    }
    pcErr[0] = '\0';
    EcmDb *pstDb = new EcmDb;
    if (!OpenStorage(pstDb, pcPath, uiBusyTimeoutMs, pcErr, ulErrLen)) {
        CloseStorage(pstDb);
        delete pstDb;
        return nullptr;
    }
    pstDb->pMem = MOX_HandleCreate(pcPath != nullptr ? pcPath : ":memory:");
    pstDb->uiLrId = uiLrId;
    pstDb->uiVrId = uiVrId;
    pstDb->uiCdbId = uiCdbId;
    pstDb->bCallUnits = false;
    Ecm_CountCallUnits(pstDb, true);
    return pstDb;
}

extern "C" void ECM_CTL_Close(void *pObj)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    if (pstDb == nullptr) {
        return;
    }
    if (pstDb->pBoundState != nullptr && ECM_CAPI_GetObjExt(pstDb->pBoundState) == pstDb) {
        ECM_CTL_Unbind(pstDb->pBoundState);
    }
    Ecm_SettleCallUnits(pstDb);
    Ecm_CountCallUnits(pstDb, false);
    CloseStorage(pstDb);
    MOX_HandleDestroy(pstDb->pMem);
    delete pstDb;
}

extern "C" void ECM_CTL_Bind(void *pState, void *pObj)
{
    SysdtSpti_SetBoundObj(pState, pObj);
    static_cast<EcmDb *>(pObj)->pBoundState = pState;
}

extern "C" void ECM_CTL_Unbind(void *pState)
{
    EcmDb *pstDb = static_cast<EcmDb *>(ECM_CAPI_GetObjExt(pState));
    if (pstDb != nullptr && pstDb->pBoundState == pState) {
        pstDb->pBoundState = nullptr;
    }
    SysdtSpti_SetBoundObj(pState, nullptr);
}

extern "C" void *ECM_CAPI_GetObjExt(void *pState)
{
    if (pState == nullptr) {
        return nullptr;
    }
    return SysdtSpti_BoundObj(pState);
}

extern "C" void ECM_CTL_FailCall(void *pObj, uint32_t uiNth)
{
    static_cast<EcmDb *>(pObj)->uiFailCallIn = uiNth;
}

extern "C" void ECM_CTL_CallUnits(void *pObj, int bOn)
{
    Ecm_SettleCallUnits(static_cast<EcmDb *>(pObj));
    Ecm_CountCallUnits(static_cast<EcmDb *>(pObj), bOn != 0);
}

extern "C" void ECM_CTL_SpatialReads(void *pObj, int bOn)
{
    static_cast<EcmDb *>(pObj)->bPlainReads = (bOn == 0);
}

extern "C" void ECM_CTL_FailAlloc(void *pObj, uint32_t uiNth)
{
    MOX_FailAlloc(static_cast<EcmDb *>(pObj)->pMem, uiNth);
}

extern "C" void *ECM_CTL_MemHandle(void *pObj)
{
    return static_cast<EcmDb *>(pObj)->pMem;
}

extern "C" const char *ECM_CTL_LastError(void *pObj)
{
    return static_cast<EcmDb *>(pObj)->strLastError.c_str();
}

bool Ecm_TripFault(EcmDb *pstDb)
{
    if (pstDb->uiFailCallIn == 0) {
        return false;
    }
    return --pstDb->uiFailCallIn == 0;
}

EcmPlan *Ecm_FindPlan(EcmDb *pstDb, std::string_view svKey)
{
    if (pstDb->pstLastPlan != nullptr && svKey == pstDb->svLastKey) {
        return pstDb->pstLastPlan;
    }
    auto it = pstDb->mapPlans.find(svKey);
    if (it == pstDb->mapPlans.end()) {
        return nullptr;
    }
    pstDb->svLastKey = it->first;
    pstDb->pstLastPlan = &it->second;
    return &it->second;
}

EcmPlan *Ecm_AddPlan(EcmDb *pstDb, std::string_view svKey, const std::string &strSql, EcmPlan &&stPlan)
{
    uint64_t ulStart = pstDb->bTracing ? Ecm_Now() : 0;
    int iRc = sqlite3_prepare_v3(pstDb->pDb, strSql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &stPlan.pStmt, nullptr);
    if (pstDb->bTracing) {
        Ecm_TracePrepare(pstDb, Ecm_Now() - ulStart);
    }
    if (iRc != SQLITE_OK) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        sqlite3_finalize(stPlan.pStmt);
        return nullptr;
    }
    auto it = pstDb->mapPlans.emplace(std::string(svKey), std::move(stPlan)).first;
    pstDb->svLastKey = it->first;
    pstDb->pstLastPlan = &it->second;
    return &it->second;
}

sqlite3_stmt *Ecm_Stmt(EcmDb *pstDb, std::string_view svKey, std::string (*pfSql)(const void *), const void *pCtx)
{
    EcmPlan *pstPlan = Ecm_FindPlan(pstDb, svKey);
    if (pstPlan == nullptr) {
        pstPlan = Ecm_AddPlan(pstDb, svKey, pfSql(pCtx), EcmPlan{});
    }
    return pstPlan != nullptr ? pstPlan->pStmt : nullptr;
}

/* ---- Values ---- */

void Ecm_ColumnBytes(sqlite3_stmt *pStmt, int iCol, const ECM_CTL_FIELD_S *pstField, uint8_t *pucDst,
                     uint32_t uiWidth)
{
    uint32_t uiLen = 0;
    if (!Ecm_IsBytes(pstField)) {
        uiLen = uiWidth < sizeof(uint64_t) ? uiWidth : sizeof(uint64_t);
        KEL_PutNum(pucDst, uiLen, static_cast<uint64_t>(sqlite3_column_int64(pStmt, iCol)));
    } else {
        const void *pvBlob = sqlite3_column_blob(pStmt, iCol);
        uiLen = static_cast<uint32_t>(sqlite3_column_bytes(pStmt, iCol));
        uiLen = uiLen < uiWidth ? uiLen : uiWidth;
        if (uiLen != 0) {
            memcpy(pucDst, pvBlob, uiLen);
        }
    }
    memset(pucDst + uiLen, 0, uiWidth - uiLen);
}

int Ecm_BindBytes(EcmDb *pstDb, sqlite3_stmt *pStmt, int iParam, const ECM_CTL_FIELD_S *pstField,
                  const uint8_t *pucValue)
{
    if (!Ecm_IsBytes(pstField)) {
        return Ecm_BindInt(pstDb, pStmt, iParam, static_cast<int64_t>(KEL_GetNum(pucValue, pstField->usWidth)));
    }
    if (pstDb->bTracing) {
        Ecm_TraceBind(pstDb, iParam, 0, pucValue, pstField->usWidth);
    }
    return sqlite3_bind_blob(pStmt, iParam, pucValue, pstField->usWidth, SQLITE_STATIC);
}
