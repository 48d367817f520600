/* Lifetime of a database object: opening the SQLite storage with the schema's tables and indexes,
 * the statement cache, binding to a script state, and value conversion. Uses only SQLite; the binding
 * itself is kept by the script stack. */
#include <stdio.h>
#include <string.h>

#include "ecm_capi.h"
#include "ecm_db.h"
#include "mox_ctl.h"
#include "sysdt_spti_bind.h"

namespace {

std::string ColumnDefs(const ECM_CTL_TABLE_S *pstTable)
{
    std::string strSql;
    for (uint32_t i = 0; i < pstTable->uiFieldNum; i++) {
        const ECM_CTL_FIELD_S *pstField = &pstTable->pstFields[i];
        strSql += (i == 0) ? "" : ", ";
        strSql += pstField->pcName;
        strSql += ECM_CTL_IsByteType(pstField->ucType) ? " BLOB NOT NULL" : " INTEGER NOT NULL DEFAULT 0";
    }
    return strSql;
}

/* Built by appending to one string: chains of operator+ over temporaries draw a false -Wrestrict
 * from GCC 12 at -O3. */
std::string IndexSql(const ECM_CTL_TABLE_S *pstTable, const uint8_t *pucFields, uint32_t uiNum, bool bUnique)
{
    std::string strSql = bUnique ? "CREATE UNIQUE INDEX IF NOT EXISTS " : "CREATE INDEX IF NOT EXISTS ";
    strSql.append(pstTable->pcName).append(bUnique ? "_key" : "_by");
    for (uint32_t i = 0; i < uiNum; i++) {
        strSql.append("_").append(std::to_string(pucFields[i]));
    }
    strSql.append(" ON ").append(pstTable->pcName).append("(");
    for (uint32_t i = 0; i < uiNum; i++) {
        strSql.append(i == 0 ? "" : ", ").append(ECM_CTL_FindField(pstTable, pucFields[i])->pcName);
    }
    return strSql.append(");");
}

std::string SchemaSql()
{
    std::string strSql = "CREATE TABLE IF NOT EXISTS ecm_index_counter(table_id INTEGER PRIMARY KEY, "
                         "last INTEGER NOT NULL);";
    for (uint32_t i = 0; ECM_CTL_TableAt(i) != nullptr; i++) {
        const ECM_CTL_TABLE_S *pstTable = ECM_CTL_TableAt(i);
        strSql.append("CREATE TABLE IF NOT EXISTS ").append(pstTable->pcName);
        strSql.append("(").append(ColumnDefs(pstTable)).append(");");
        if (pstTable->uiKeyNum != 0) {
            strSql += IndexSql(pstTable, pstTable->aucKey, pstTable->uiKeyNum, true);
        }
    }
    for (uint32_t i = 0; Ecm_IndexAt(i) != nullptr; i++) {
        const EcmIndexDef *pstIdx = Ecm_IndexAt(i);
        strSql += IndexSql(ECM_CTL_FindTable(pstIdx->uiTableId), pstIdx->aucFields, pstIdx->ucNum, false);
    }
    for (uint32_t i = 0; Ecm_SpatialAt(i) != nullptr; i++) {
        strSql += Ecm_SpatialSchemaSql(Ecm_SpatialAt(i));
    }
    return strSql;
}

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

/* WAL keeps readers off the writer's back; FULL syncs the log on every commit, so a write is on
 * disk when its call returns. */
bool OpenStorage(EcmDb *pstDb, const char *pcPath, char *pcErr, size_t ulErrLen)
{
    int iFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;  /* one thread per object */
    if (sqlite3_open_v2(pcPath != nullptr ? pcPath : ":memory:", &pstDb->pDb, iFlags, nullptr) != SQLITE_OK) {
        snprintf(pcErr, ulErrLen, "%s", pstDb->pDb != nullptr ? sqlite3_errmsg(pstDb->pDb) : "out of memory");
        return false;
    }
    sqlite3_busy_timeout(pstDb->pDb, 5000);
    std::string strSql = pcPath != nullptr ? "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;" : "";
    strSql.append("BEGIN;").append(SchemaSql()).append("COMMIT;");
    return Exec(pstDb->pDb, strSql, pcErr, ulErrLen);
}

void CloseStorage(EcmDb *pstDb)
{
    for (auto &kv : pstDb->mapStmts) {
        sqlite3_finalize(kv.second);
    }
    pstDb->mapStmts.clear();
    pstDb->pLastStmt = nullptr;
    sqlite3_close(pstDb->pDb);
    pstDb->pDb = nullptr;
}

}  // namespace

/* ---- Lifetime and binding ---- */

extern "C" void *ECM_CTL_Open(const char *pcPath, uint32_t uiLrId, uint32_t uiVrId, uint32_t uiCdbId, char *pcErr,
                              size_t ulErrLen)
{
    char acIgnored[8];
    if (pcErr == nullptr || ulErrLen == 0) {
        pcErr = acIgnored;
        ulErrLen = sizeof(acIgnored);
    }
    pcErr[0] = '\0';
    EcmDb *pstDb = new EcmDb;
    if (!OpenStorage(pstDb, pcPath, pcErr, ulErrLen)) {
        CloseStorage(pstDb);
        delete pstDb;
        return nullptr;
    }
    pstDb->pMem = MOX_HandleCreate(pcPath != nullptr ? pcPath : ":memory:");
    pstDb->uiLrId = uiLrId;
    pstDb->uiVrId = uiVrId;
    pstDb->uiCdbId = uiCdbId;
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

sqlite3_stmt *Ecm_Stmt(EcmDb *pstDb, std::string_view svKey, std::string (*pfSql)(const void *), const void *pCtx)
{
    if (pstDb->pLastStmt != nullptr && svKey == pstDb->strLastKey) {
        return pstDb->pLastStmt;
    }
    auto it = pstDb->mapStmts.find(svKey);
    if (it != pstDb->mapStmts.end()) {
        pstDb->strLastKey.assign(svKey);
        pstDb->pLastStmt = it->second;
        return it->second;
    }
    std::string strSql = pfSql(pCtx);
    sqlite3_stmt *pStmt = nullptr;
    if (sqlite3_prepare_v3(pstDb->pDb, strSql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &pStmt, nullptr) != SQLITE_OK) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        return nullptr;
    }
    pstDb->mapStmts.emplace(std::string(svKey), pStmt);
    pstDb->strLastKey.assign(svKey);
    pstDb->pLastStmt = pStmt;
    return pStmt;
}

/* ---- Values ---- */

uint64_t Ecm_ReadLe(const uint8_t *pucSrc, uint32_t uiWidth)
{
    uint64_t ulValue = 0;
    for (uint32_t i = uiWidth < 8 ? uiWidth : 8; i > 0; i--) {
        ulValue = (ulValue << 8) | pucSrc[i - 1];
    }
    return ulValue;
}

void Ecm_WriteLe(uint8_t *pucDst, uint32_t uiWidth, uint64_t ulValue)
{
    for (uint32_t i = 0; i < uiWidth; i++) {
        pucDst[i] = (i < 8) ? static_cast<uint8_t>(ulValue >> (8 * i)) : 0;
    }
}

void Ecm_ColumnBytes(sqlite3_stmt *pStmt, int iCol, const ECM_CTL_FIELD_S *pstField, uint8_t *pucDst)
{
    if (!ECM_CTL_IsByteType(pstField->ucType)) {
        Ecm_WriteLe(pucDst, pstField->usWidth, static_cast<uint64_t>(sqlite3_column_int64(pStmt, iCol)));
        return;
    }
    const void *pvBlob = sqlite3_column_blob(pStmt, iCol);
    uint32_t uiLen = static_cast<uint32_t>(sqlite3_column_bytes(pStmt, iCol));
    uiLen = uiLen < pstField->usWidth ? uiLen : pstField->usWidth;
    if (uiLen != 0) {
        memcpy(pucDst, pvBlob, uiLen);
    }
    memset(pucDst + uiLen, 0, pstField->usWidth - uiLen);
}

int Ecm_BindBytes(sqlite3_stmt *pStmt, int iParam, const ECM_CTL_FIELD_S *pstField, const uint8_t *pucValue)
{
    if (ECM_CTL_IsByteType(pstField->ucType)) {
        return sqlite3_bind_blob(pStmt, iParam, pucValue, pstField->usWidth, SQLITE_STATIC);
    }
    return sqlite3_bind_int64(pStmt, iParam, static_cast<sqlite3_int64>(Ecm_ReadLe(pucValue, pstField->usWidth)));
}
