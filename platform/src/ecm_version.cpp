/* Versions of a database file's schema. A file records the version it was written with (PRAGMA
 * user_version) and that it is a configuration database (PRAGMA application_id). Version 0 is a
 * file written before versions were recorded: it is recognised by its tables and columns. Each
 * upgrade takes a file one version up; opening runs those it needs in one transaction, so a file
 * is either upgraded whole or left as it was. Uses only SQLite. */
#include <stdio.h>
#include <string.h>

#include "ecm_capi.h"
#include "ecm_db.h"
#include "vlanlua_tables.h"

namespace {

constexpr int32_t APPLICATION_ID = 0x564C414E;  /* marks a configuration database */

/* ---- Version 1: the tables, their indexes, and service records that belong to their segment ----
 * (Version 1 also had spatial indexes; version 2 makes them in their present form.) */

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
std::string IndexName(const ECM_CTL_TABLE_S *pstTable, const uint8_t *pucFields, uint32_t uiNum, bool bUnique)
{
    std::string strName = std::string(pstTable->pcName).append(bUnique ? "_key" : "_by");
    for (uint32_t i = 0; i < uiNum; i++) {
        strName.append("_").append(std::to_string(pucFields[i]));
    }
    return strName;
}

std::string IndexSql(const ECM_CTL_TABLE_S *pstTable, const uint8_t *pucFields, uint32_t uiNum, bool bUnique)
{
    std::string strSql = bUnique ? "CREATE UNIQUE INDEX IF NOT EXISTS " : "CREATE INDEX IF NOT EXISTS ";
    strSql.append(IndexName(pstTable, pucFields, uiNum, bUnique));
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
    return strSql;
}

/* A relation: deleting an owner row deletes the rows of the dependent tables that carry its
 * values in the same fields. Not a module write, so not journaled. */
struct EcmRelation {
    uint32_t uiOwnerId;
    uint32_t auiDependentId[2];
    uint8_t aucFields[2];  /* the same field numbers in owner and dependents */
};

/* A user-VLAN QinQ segment row owns the base-service and VPN-service records of its segment index. */
const EcmRelation g_astRelations[] = {
    {VLANLUA_TBL_UVLAN_QINQ_SEG,
     {VLANLUA_TBL_UVLAN_BASE_SVC, VLANLUA_TBL_UVLAN_VPN_SVC},
     {VLANLUA_FLD_UVLAN_QINQ_SEG_segIndex, VLANLUA_FLD_UVLAN_QINQ_SEG_ifIndex}},
};
static_assert(VLANLUA_FLD_UVLAN_BASE_SVC_segIndex == VLANLUA_FLD_UVLAN_QINQ_SEG_segIndex &&
                  VLANLUA_FLD_UVLAN_VPN_SVC_segIndex == VLANLUA_FLD_UVLAN_QINQ_SEG_segIndex &&
                  VLANLUA_FLD_UVLAN_BASE_SVC_ifIndex == VLANLUA_FLD_UVLAN_QINQ_SEG_ifIndex &&
                  VLANLUA_FLD_UVLAN_VPN_SVC_ifIndex == VLANLUA_FLD_UVLAN_QINQ_SEG_ifIndex,
              "a relation's fields have the same numbers in owner and dependents");

std::string RelationSql(const EcmRelation &stRel)
{
    const ECM_CTL_TABLE_S *pstOwner = ECM_CTL_FindTable(stRel.uiOwnerId);
    std::string strSql = "CREATE TRIGGER IF NOT EXISTS ";
    strSql.append(pstOwner->pcName).append("_owns AFTER DELETE ON ").append(pstOwner->pcName).append(" BEGIN ");
    for (uint32_t uiDep : stRel.auiDependentId) {
        const ECM_CTL_TABLE_S *pstDep = ECM_CTL_FindTable(uiDep);
        strSql.append("DELETE FROM ").append(pstDep->pcName);
        for (uint32_t i = 0; i < sizeof(stRel.aucFields); i++) {
            strSql.append(i == 0 ? " WHERE " : " AND ").append(ECM_CTL_FindField(pstDep, stRel.aucFields[i])->pcName);
            strSql.append(" = old.").append(ECM_CTL_FindField(pstOwner, stRel.aucFields[i])->pcName);
        }
        strSql.append("; ");
    }
    return strSql.append("END;");
}

/* Creates what is missing of the tables and indexes (a version-0 file may lack the newer ones),
 * then the relations. */
std::string UpgradeTo1()
{
    std::string strSql = SchemaSql();
    for (const EcmRelation &stRel : g_astRelations) {
        strSql += RelationSql(stRel);
    }
    return strSql;
}

/* ---- Version 2: spatial indexes that fold the key into their coordinates ---- */

/* Version 1 kept the key as a dimension of its own; its companions are made again. Its (VR,
 * interface) index of user-VLAN Dot1Q ranges gives way to one that also holds the range's begin, in
 * which order the user-VLAN walk reads a page: without it every row from the first interface on
 * went through a sort. */
std::string UpgradeTo2()
{
    const uint8_t aucOldDot1q[] = {VLANLUA_FLD_UVLAN_DOT1Q_vrId, VLANLUA_FLD_UVLAN_DOT1Q_ifIndex};
    std::string strSql = "DROP INDEX IF EXISTS ";
    strSql.append(IndexName(ECM_CTL_FindTable(VLANLUA_TBL_UVLAN_DOT1Q), aucOldDot1q, 2, false)).append(";");
    strSql += SchemaSql();
    for (uint32_t i = 0; Ecm_SpatialAt(i) != nullptr; i++) {
        strSql += Ecm_SpatialDropSql(Ecm_SpatialAt(i)) + Ecm_SpatialSchemaSql(Ecm_SpatialAt(i));
    }
    return strSql;
}

/* The upgrade from version i to i + 1 at index i. */
std::string (*const g_apfUpgrades[])() = {UpgradeTo1, UpgradeTo2};
static_assert(sizeof(g_apfUpgrades) / sizeof(g_apfUpgrades[0]) == ECM_SCHEMA_VERSION, "one upgrade per version");

/* ---- Recognising a file ---- */

bool ReadInt(sqlite3 *pDb, const char *pcSql, int64_t *pllOut)
{
    sqlite3_stmt *pStmt = nullptr;
    bool bOk = sqlite3_prepare_v2(pDb, pcSql, -1, &pStmt, nullptr) == SQLITE_OK && sqlite3_step(pStmt) == SQLITE_ROW;
    *pllOut = bOk ? sqlite3_column_int64(pStmt, 0) : 0;
    sqlite3_finalize(pStmt);
    return bOk;
}

bool IsCompanionOf(const std::string &strName, const char *pcTable)
{
    static const char *const apcSuffix[] = {"_rt", "_rt_node", "_rt_rowid", "_rt_parent"};
    for (const char *pcSuffix : apcSuffix) {
        if (strName == std::string(pcTable).append(pcSuffix)) {
            return true;
        }
    }
    return false;
}

/* Why a table of the file is not one of the schema's as written before versions, or "". */
std::string TableMismatch(sqlite3 *pDb, const std::string &strName)
{
    if (strName == "ecm_index_counter") {
        return "";
    }
    for (uint32_t i = 0; ECM_CTL_TableAt(i) != nullptr; i++) {
        const ECM_CTL_TABLE_S *pstTable = ECM_CTL_TableAt(i);
        if (IsCompanionOf(strName, pstTable->pcName) && Ecm_SpatialOf(pstTable->uiTableId) != nullptr) {
            return "";
        }
        if (strName != pstTable->pcName) {
            continue;
        }
        for (uint32_t f = 0; f < pstTable->uiFieldNum; f++) {
            std::string strSql = std::string("SELECT ").append(pstTable->pstFields[f].pcName).append(" FROM ");
            sqlite3_stmt *pStmt = nullptr;
            int iRc = sqlite3_prepare_v2(pDb, strSql.append(strName).c_str(), -1, &pStmt, nullptr);
            sqlite3_finalize(pStmt);
            if (iRc != SQLITE_OK) {
                return "table " + strName + " has no column " + pstTable->pstFields[f].pcName;
            }
        }
        return "";
    }
    return "table " + strName + " is not one of its tables";
}

/* A file without a version: empty, or every table one of the schema's with all its columns. */
std::string VersionZeroMismatch(sqlite3 *pDb)
{
    sqlite3_stmt *pStmt = nullptr;
    if (sqlite3_prepare_v2(pDb, "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite\\_%' "
                                "ESCAPE '\\'", -1, &pStmt, nullptr) != SQLITE_OK) {
        return sqlite3_errmsg(pDb);
    }
    std::string strWhy;
    while (strWhy.empty() && sqlite3_step(pStmt) == SQLITE_ROW) {
        strWhy = TableMismatch(pDb, reinterpret_cast<const char *>(sqlite3_column_text(pStmt, 0)));
    }
    sqlite3_finalize(pStmt);
    return strWhy;
}

/* The file's version, or a reason to refuse it in strWhy. */
bool ReadVersion(sqlite3 *pDb, int64_t *pllVersion, std::string *pstrWhy)
{
    int64_t llAppId = 0;
    if (!ReadInt(pDb, "PRAGMA application_id", &llAppId) || !ReadInt(pDb, "PRAGMA user_version", pllVersion)) {
        *pstrWhy = sqlite3_errmsg(pDb);
        return false;
    }
    if (llAppId != APPLICATION_ID && (llAppId != 0 || *pllVersion != 0)) {
        *pstrWhy = "not a configuration database (application id " + std::to_string(llAppId) + ")";
    } else if (*pllVersion == 0 && !(*pstrWhy = VersionZeroMismatch(pDb)).empty()) {
        *pstrWhy = "not a configuration database: " + *pstrWhy;
    } else if (*pllVersion > ECM_SCHEMA_VERSION) {
        *pstrWhy = "schema version " + std::to_string(*pllVersion) + " is newer than this build's " +
                   std::to_string(ECM_SCHEMA_VERSION);
    }
    return pstrWhy->empty();
}

bool Fail(char *pcErr, size_t ulErrLen, const std::string &strWhy)
{
    snprintf(pcErr, ulErrLen, "%s", strWhy.c_str());
    return false;
}

std::string UpgradeSql(int64_t llFrom)
{
    std::string strSql;
    for (int64_t v = llFrom; v < ECM_SCHEMA_VERSION; v++) {
        strSql += g_apfUpgrades[v]();
    }
    strSql.append("PRAGMA application_id = ").append(std::to_string(APPLICATION_ID)).append(";");
    return strSql.append("PRAGMA user_version = ").append(std::to_string(ECM_SCHEMA_VERSION)).append(";");
}

}  // namespace

bool Ecm_PrepareSchema(EcmDb *pstDb, char *pcErr, size_t ulErrLen)
{
    int64_t llVersion = 0;
    std::string strWhy;
    if (ReadVersion(pstDb->pDb, &llVersion, &strWhy) && llVersion == ECM_SCHEMA_VERSION) {
        return true;  /* current: no write lock needed */
    }
    if (sqlite3_exec(pstDb->pDb, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
        return Fail(pcErr, ulErrLen, sqlite3_errmsg(pstDb->pDb));
    }
    strWhy.clear();  /* read again under the lock: another opener may have upgraded it meanwhile */
    bool bOk = ReadVersion(pstDb->pDb, &llVersion, &strWhy);
    if (bOk && llVersion < ECM_SCHEMA_VERSION) {
        char *pcMsg = nullptr;
        bOk = sqlite3_exec(pstDb->pDb, UpgradeSql(llVersion).c_str(), nullptr, nullptr, &pcMsg) == SQLITE_OK;
        strWhy = bOk ? "" : std::string("upgrade from schema version ") + std::to_string(llVersion) + " failed: " +
                                (pcMsg != nullptr ? pcMsg : sqlite3_errmsg(pstDb->pDb));
        sqlite3_free(pcMsg);
    }
    if (bOk && sqlite3_exec(pstDb->pDb, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK) {
        return true;
    }
    strWhy = strWhy.empty() ? sqlite3_errmsg(pstDb->pDb) : strWhy;
    (void)sqlite3_exec(pstDb->pDb, "ROLLBACK", nullptr, nullptr, nullptr);
    return Fail(pcErr, ulErrLen, strWhy);
}

bool Ecm_SchemaReadable(EcmDb *pstDb, char *pcErr, size_t ulErrLen)
{
    int64_t llVersion = 0;
    std::string strWhy;
    if (!ReadVersion(pstDb->pDb, &llVersion, &strWhy)) {
        return Fail(pcErr, ulErrLen, strWhy);
    }
    if (llVersion < ECM_SCHEMA_VERSION) {
        return Fail(pcErr, ulErrLen, "schema version " + std::to_string(llVersion) + " is older than this build's " +
                                         std::to_string(ECM_SCHEMA_VERSION) + " (a script run on the file upgrades it)");
    }
    return true;
}
