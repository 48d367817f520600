/* Writes of a database object: one record by its key, the index counters, the journal of the
 * client's writes. Each write is one statement or one savepoint, so a failed write changes nothing. */
#include <string.h>

#include "ecm_capi.h"
#include "ecm_db.h"

namespace {

/* Shape key and SQL of a statement over one table and a list of fields. */
struct WriteShape {
    const ECM_CTL_TABLE_S *pstTable;
    const ECM_CTL_FIELD_S *apstSet[ECM_SELECT_MAX];
    uint32_t uiSetNum;
};

/* The cache key of a statement that depends on nothing but its kind and table. */
std::string_view TableShape(char cKind, uint32_t uiTableId, char *pcBuf)
{
    pcBuf[0] = cKind;
    memcpy(pcBuf + 1, &uiTableId, sizeof(uint32_t));
    return std::string_view(pcBuf, 1 + sizeof(uint32_t));
}

std::string KeyWhere(const ECM_CTL_TABLE_S *pstTable, uint32_t uiFirstParam)
{
    std::string strSql = " WHERE ";
    for (uint32_t i = 0; i < pstTable->uiKeyNum; i++) {
        strSql += (i == 0) ? "" : " AND ";
        strSql += ECM_CTL_FindField(pstTable, pstTable->aucKey[i])->pcName;
        strSql.append(" = ?").append(std::to_string(uiFirstParam + i));
    }
    return strSql;
}

std::string InsertSql(const void *pCtx)
{
    const ECM_CTL_TABLE_S *pstTable = static_cast<const ECM_CTL_TABLE_S *>(pCtx);
    std::string strCols;
    std::string strParams;
    for (uint32_t i = 0; i < pstTable->uiFieldNum; i++) {
        strCols.append(i == 0 ? "" : ", ").append(pstTable->pstFields[i].pcName);
        strParams.append(i == 0 ? "?" : ", ?").append(std::to_string(i + 1));
    }
    std::string strSql = "INSERT INTO ";
    strSql.append(pstTable->pcName).append("(").append(strCols).append(") VALUES(").append(strParams);
    return strSql.append(")");
}

std::string UpdateSql(const void *pCtx)
{
    const WriteShape *pstShape = static_cast<const WriteShape *>(pCtx);
    std::string strSql = "UPDATE ";
    strSql.append(pstShape->pstTable->pcName).append(" SET ");
    for (uint32_t i = 0; i < pstShape->uiSetNum; i++) {
        strSql.append(i == 0 ? "" : ", ").append(pstShape->apstSet[i]->pcName);
        strSql.append(" = ?").append(std::to_string(i + 1));
    }
    return strSql.append(KeyWhere(pstShape->pstTable, pstShape->uiSetNum + 1));
}

std::string DeleteSql(const void *pCtx)
{
    const ECM_CTL_TABLE_S *pstTable = static_cast<const ECM_CTL_TABLE_S *>(pCtx);
    std::string strSql = "DELETE FROM ";
    return strSql.append(pstTable->pcName).append(KeyWhere(pstTable, 1));
}

const uint8_t *FindVal(const EcmWriteVal *pstVals, uint32_t uiNum, uint32_t uiFieldNo)
{
    for (uint32_t i = 0; i < uiNum; i++) {
        if (pstVals[i].pstField->ucFieldNo == uiFieldNo) {
            return pstVals[i].pucValue;
        }
    }
    return nullptr;
}

bool IsKeyField(const ECM_CTL_TABLE_S *pstTable, uint32_t uiFieldNo)
{
    for (uint32_t i = 0; i < pstTable->uiKeyNum; i++) {
        if (pstTable->aucKey[i] == uiFieldNo) {
            return true;
        }
    }
    return false;
}

int BindKey(EcmDb *pstDb, sqlite3_stmt *pStmt, const ECM_CTL_TABLE_S *pstTable, const EcmWriteVal *pstVals, uint32_t uiNum,
            int iFirstParam)
{
    int iRc = SQLITE_OK;
    for (uint32_t i = 0; i < pstTable->uiKeyNum && iRc == SQLITE_OK; i++) {
        const ECM_CTL_FIELD_S *pstField = ECM_CTL_FindField(pstTable, pstTable->aucKey[i]);
        iRc = Ecm_BindBytes(pstDb, pStmt, iFirstParam + static_cast<int>(i), pstField,
                            FindVal(pstVals, uiNum, pstTable->aucKey[i]));
    }
    return iRc;
}

/* Runs a bound write statement; a key that matches nothing is reported as ECM_ERR_NOTFOUND. */
uint32_t StepWrite(EcmDb *pstDb, sqlite3_stmt *pStmt, bool bMustChange)
{
    int iRc = Ecm_Step(pstDb, pStmt);
    if (iRc == SQLITE_DONE) {
        return (bMustChange && sqlite3_changes(pstDb->pDb) == 0) ? ECM_ERR_NOTFOUND : ECM_OK;
    }
    pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
    if ((iRc & 0xFF) == SQLITE_BUSY) {
        return ECM_ERR_BUSY;
    }
    return (iRc == SQLITE_CONSTRAINT) ? ECM_ERR_EXISTS : ECM_ERR_SQL;
}

}  // namespace

uint32_t Ecm_InsertRow(EcmDb *pstDb, const ECM_CTL_TABLE_S *pstTable, const EcmWriteVal *pstVals, uint32_t uiNum)
{
    char acKey[8];
    EcmStmtUse stUse(Ecm_Stmt(pstDb, TableShape('I', pstTable->uiTableId, acKey), InsertSql, pstTable));
    if (stUse.Get() == nullptr) {
        return ECM_ERR_SQL;
    }
    static const uint8_t aucZero[512] = {0};  /* fields left out are 0 */
    int iRc = SQLITE_OK;
    for (uint32_t i = 0; i < pstTable->uiFieldNum && iRc == SQLITE_OK; i++) {
        const uint8_t *pucValue = FindVal(pstVals, uiNum, pstTable->pstFields[i].ucFieldNo);
        iRc = Ecm_BindBytes(pstDb, stUse.Get(), static_cast<int>(i + 1), &pstTable->pstFields[i],
                            pucValue != nullptr ? pucValue : aucZero);
    }
    return iRc == SQLITE_OK ? StepWrite(pstDb, stUse.Get(), false) : ECM_ERR_SQL;
}

uint32_t Ecm_UpdateRow(EcmDb *pstDb, const ECM_CTL_TABLE_S *pstTable, const EcmWriteVal *pstVals, uint32_t uiNum)
{
    WriteShape stShape{pstTable, {}, 0};
    std::string strKey = "U";
    strKey.append(reinterpret_cast<const char *>(&pstTable->uiTableId), sizeof(uint32_t));
    for (uint32_t i = 0; i < pstTable->uiFieldNum; i++) {  /* schema order: one shape per field set */
        const ECM_CTL_FIELD_S *pstField = &pstTable->pstFields[i];
        if (!IsKeyField(pstTable, pstField->ucFieldNo) && FindVal(pstVals, uiNum, pstField->ucFieldNo) != nullptr) {
            stShape.apstSet[stShape.uiSetNum++] = pstField;
            strKey += static_cast<char>(pstField->ucFieldNo);
        }
    }
    if (stShape.uiSetNum == 0) {  /* nothing to change: rewriting the first key finds the record all the same */
        stShape.apstSet[stShape.uiSetNum++] = ECM_CTL_FindField(pstTable, pstTable->aucKey[0]);
        strKey += '\0';
    }
    EcmStmtUse stUse(Ecm_Stmt(pstDb, strKey, UpdateSql, &stShape));
    if (stUse.Get() == nullptr) {
        return ECM_ERR_SQL;
    }
    int iRc = SQLITE_OK;
    for (uint32_t i = 0; i < stShape.uiSetNum && iRc == SQLITE_OK; i++) {
        iRc = Ecm_BindBytes(pstDb, stUse.Get(), static_cast<int>(i + 1), stShape.apstSet[i],
                            FindVal(pstVals, uiNum, stShape.apstSet[i]->ucFieldNo));
    }
    if (iRc == SQLITE_OK) {
        iRc = BindKey(pstDb, stUse.Get(), pstTable, pstVals, uiNum, static_cast<int>(stShape.uiSetNum + 1));
    }
    return iRc == SQLITE_OK ? StepWrite(pstDb, stUse.Get(), true) : ECM_ERR_SQL;
}

uint32_t Ecm_DeleteRow(EcmDb *pstDb, const ECM_CTL_TABLE_S *pstTable, const EcmWriteVal *pstVals, uint32_t uiNum)
{
    char acKey[8];
    EcmStmtUse stUse(Ecm_Stmt(pstDb, TableShape('D', pstTable->uiTableId, acKey), DeleteSql, pstTable));
    if (stUse.Get() == nullptr) {
        return ECM_ERR_SQL;
    }
    if (BindKey(pstDb, stUse.Get(), pstTable, pstVals, uiNum, 1) != SQLITE_OK) {
        return ECM_ERR_SQL;
    }
    return StepWrite(pstDb, stUse.Get(), true);
}

/* ---- Planned writes of the client ---- */

namespace {

int32_t ListEntryOf(const EcmWriteVal *pstVals, uint32_t uiNum, const ECM_CTL_FIELD_S *pstField)
{
    for (uint32_t i = 0; i < uiNum; i++) {
        if (pstVals[i].pstField == pstField) {
            return static_cast<int32_t>(i);
        }
    }
    return -1;
}

/* Parameter after parameter, the field it binds and the list entry that gives its value. */
void AddParam(EcmPlan *pstPlan, const ECM_CTL_FIELD_S *pstField, const EcmWriteVal *pstVals, uint32_t uiNum)
{
    pstPlan->vecParams.push_back(pstField);
    pstPlan->vecFrom.push_back(ListEntryOf(pstVals, uiNum, pstField));
}

void AddKeyParams(EcmPlan *pstPlan, const EcmWriteVal *pstVals, uint32_t uiNum)
{
    const ECM_CTL_TABLE_S *pstTable = pstPlan->pstTable;
    for (uint32_t i = 0; i < pstTable->uiKeyNum; i++) {
        AddParam(pstPlan, ECM_CTL_FindField(pstTable, pstTable->aucKey[i]), pstVals, uiNum);
    }
}

}  // namespace

const EcmPlan *Ecm_PlanWrite(EcmDb *pstDb, char cKind, const ECM_CTL_TABLE_S *pstTable, const EcmWriteVal *pstVals,
                             uint32_t uiNum, std::string_view svKey)
{
    EcmPlan stPlan;
    stPlan.pstTable = pstTable;
    for (uint32_t i = 0; i < uiNum; i++) {
        stPlan.vecFields.push_back(pstVals[i].pstField);
    }
    std::string strSql;
    if (cKind == 'I') {
        for (uint32_t i = 0; i < pstTable->uiFieldNum; i++) {
            AddParam(&stPlan, &pstTable->pstFields[i], pstVals, uiNum);
        }
        strSql = InsertSql(pstTable);
    } else if (cKind == 'S') {
        WriteShape stShape{pstTable, {}, 0};
        for (uint32_t i = 0; i < pstTable->uiFieldNum; i++) {
            const ECM_CTL_FIELD_S *pstField = &pstTable->pstFields[i];
            if (!IsKeyField(pstTable, pstField->ucFieldNo) && ListEntryOf(pstVals, uiNum, pstField) >= 0) {
                stShape.apstSet[stShape.uiSetNum++] = pstField;
            }
        }
        if (stShape.uiSetNum == 0) {  /* nothing to change: rewriting the first key finds the record all the same */
            stShape.apstSet[stShape.uiSetNum++] = ECM_CTL_FindField(pstTable, pstTable->aucKey[0]);
        }
        for (uint32_t i = 0; i < stShape.uiSetNum; i++) {
            AddParam(&stPlan, stShape.apstSet[i], pstVals, uiNum);
        }
        AddKeyParams(&stPlan, pstVals, uiNum);
        strSql = UpdateSql(&stShape);
    } else {
        AddKeyParams(&stPlan, pstVals, uiNum);
        strSql = DeleteSql(pstTable);
    }
    return Ecm_AddPlan(pstDb, svKey, strSql, std::move(stPlan));
}

uint32_t Ecm_RunWrite(EcmDb *pstDb, const EcmPlan *pstPlan, bool bMustChange, const EcmWriteVal *pstVals)
{
    static const uint8_t aucZero[512] = {0};  /* fields left out are 0 */
    EcmStmtUse stUse(pstPlan->pStmt);
    for (size_t i = 0; i < pstPlan->vecParams.size(); i++) {
        int32_t iFrom = pstPlan->vecFrom[i];
        if (Ecm_BindBytes(pstDb, stUse.Get(), static_cast<int>(i + 1), pstPlan->vecParams[i],
                          iFrom >= 0 ? pstVals[iFrom].pucValue : aucZero) != SQLITE_OK) {
            return ECM_ERR_SQL;
        }
    }
    return StepWrite(pstDb, stUse.Get(), bMustChange);
}

/* ---- Index counters ---- */

namespace {

std::string IndexBaseSql(const void *pCtx)
{
    const ECM_CTL_TABLE_S *pstTable = static_cast<const ECM_CTL_TABLE_S *>(pCtx);
    std::string strSql = "SELECT max(coalesce((SELECT last FROM ecm_index_counter WHERE table_id = ?1), 0)";
    const ECM_CTL_FIELD_S *pstKey = ECM_CTL_FindField(pstTable, pstTable->aucKey[0]);
    if (pstTable->uiKeyNum == 1 && !ECM_CTL_IsByteType(pstKey->ucType)) {  /* never collide with a stored key */
        strSql.append(", (SELECT coalesce(max(").append(pstKey->pcName).append("), 0) FROM ");
        strSql.append(pstTable->pcName).append(")");
    } else {
        strSql.append(", 0");
    }
    return strSql.append(")");
}

std::string IndexStoreSql(const void *)
{
    return "INSERT OR REPLACE INTO ecm_index_counter(table_id, last) VALUES(?1, ?2)";
}

std::string FixedSql(const void *pCtx)
{
    return static_cast<const char *>(pCtx);
}

bool RunFixed(EcmDb *pstDb, const char *pcSql)
{
    EcmStmtUse stUse(Ecm_Stmt(pstDb, pcSql, FixedSql, pcSql));
    return stUse.Get() != nullptr && Ecm_Step(pstDb, stUse.Get()) == SQLITE_DONE;
}

/* The last number handed out so far, inside the open transaction; false when the storage fails. */
bool ReadIndexBase(EcmDb *pstDb, const ECM_CTL_TABLE_S *pstTable, uint64_t *pulBase)
{
    char acKey[8];
    EcmStmtUse stUse(Ecm_Stmt(pstDb, TableShape('N', pstTable->uiTableId, acKey), IndexBaseSql, pstTable));
    if (stUse.Get() == nullptr || Ecm_BindInt(pstDb, stUse.Get(), 1, pstTable->uiTableId) != SQLITE_OK ||
        Ecm_Step(pstDb, stUse.Get()) != SQLITE_ROW) {
        return false;
    }
    *pulBase = static_cast<uint64_t>(sqlite3_column_int64(stUse.Get(), 0));
    return true;
}

bool StoreIndexLast(EcmDb *pstDb, uint32_t uiTableId, uint64_t ulLast)
{
    EcmStmtUse stUse(Ecm_Stmt(pstDb, "Nstore", IndexStoreSql, nullptr));
    return stUse.Get() != nullptr && Ecm_BindInt(pstDb, stUse.Get(), 1, uiTableId) == SQLITE_OK &&
           Ecm_BindInt(pstDb, stUse.Get(), 2, static_cast<int64_t>(ulLast)) == SQLITE_OK &&
           Ecm_Step(pstDb, stUse.Get()) == SQLITE_DONE;
}

}  // namespace

/* Reading the counter and storing it are one step: a transaction of their own outside a unit,
 * a savepoint inside one. */
uint32_t Ecm_NextIndex(EcmDb *pstDb, const ECM_CTL_TABLE_S *pstTable, uint32_t uiCount, uint32_t *puiFirst)
{
    bool bAlone = sqlite3_get_autocommit(pstDb->pDb) != 0;
    if (!RunFixed(pstDb, bAlone ? "BEGIN IMMEDIATE" : "SAVEPOINT ecm_index")) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        return (sqlite3_errcode(pstDb->pDb) & 0xFF) == SQLITE_BUSY ? ECM_ERR_BUSY : ECM_ERR_SQL;
    }
    uint64_t ulBase = 0;
    uint32_t uiRet = ECM_OK;
    if (!ReadIndexBase(pstDb, pstTable, &ulBase)) {
        uiRet = ECM_ERR_SQL;
    } else if (ulBase + uiCount > UINT32_MAX) {
        uiRet = ECM_ERR_RANGE;
    } else if (!StoreIndexLast(pstDb, pstTable->uiTableId, ulBase + uiCount)) {
        uiRet = (sqlite3_errcode(pstDb->pDb) & 0xFF) == SQLITE_BUSY ? ECM_ERR_BUSY : ECM_ERR_SQL;
    }
    if (uiRet != ECM_OK || !RunFixed(pstDb, bAlone ? "COMMIT" : "RELEASE ecm_index")) {
        RunFixed(pstDb, bAlone ? "ROLLBACK" : "ROLLBACK TO ecm_index");
        if (!bAlone) {
            RunFixed(pstDb, "RELEASE ecm_index");
        }
        return uiRet != ECM_OK ? uiRet : ECM_ERR_SQL;
    }
    *puiFirst = static_cast<uint32_t>(ulBase + 1);
    return ECM_OK;
}

/* ---- Journal ---- */

void Ecm_Journal(EcmDb *pstDb, uint32_t uiOp, uint32_t uiTableId, uint32_t uiFlag, const EcmWriteVal *pstVals,
                 uint32_t uiNum)
{
    pstDb->vecJournal.push_back({uiOp, uiTableId, uiFlag, static_cast<uint32_t>(pstDb->vecJournalVals.size()), uiNum,
                                 static_cast<uint32_t>(pstDb->strJournalBytes.size())});
    for (uint32_t i = 0; i < uiNum; i++) {
        const ECM_CTL_FIELD_S *pstField = pstVals[i].pstField;
        ECM_CTL_VAL_S stVal{pstField->ucFieldNo, 0, 0, nullptr};
        uint32_t uiOffset = static_cast<uint32_t>(pstDb->strJournalBytes.size());
        if (!Ecm_IsBytes(pstField)) {
            stVal.ulNum = KEL_GetNum(pstVals[i].pucValue, pstField->usWidth);
        } else {
            const char *pcBytes = reinterpret_cast<const char *>(pstVals[i].pucValue);
            stVal.uiLen = pstField->usWidth;
            if (pstField->ucType == ECM_TYPE_TEXT) {
                stVal.uiLen = static_cast<uint32_t>(strnlen(pcBytes, pstField->usWidth));
            }
            pstDb->strJournalBytes.append(pcBytes, stVal.uiLen);
        }
        pstDb->vecJournalVals.push_back(stVal);
        pstDb->vecJournalOffsets.push_back(uiOffset);
    }
}

uint32_t Ecm_JournalLength(const EcmDb *pstDb)
{
    return static_cast<uint32_t>(pstDb->vecJournal.size());
}

void Ecm_JournalKeep(EcmDb *pstDb, uint32_t uiKeep)
{
    if (uiKeep >= pstDb->vecJournal.size()) {
        return;
    }
    const EcmJournalEntry &stFirstGone = pstDb->vecJournal[uiKeep];
    pstDb->vecJournalVals.resize(stFirstGone.uiFirstVal);
    pstDb->vecJournalOffsets.resize(stFirstGone.uiFirstVal);
    pstDb->strJournalBytes.resize(stFirstGone.uiFirstByte);
    pstDb->vecJournal.resize(uiKeep);
}

extern "C" uint32_t ECM_CTL_JournalCount(void *pObj)
{
    return Ecm_JournalLength(static_cast<EcmDb *>(pObj));
}

extern "C" uint32_t ECM_CTL_JournalGet(void *pObj, uint32_t uiIndex, ECM_CTL_JOURNAL_S *pstEntry)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    if (uiIndex >= pstDb->vecJournal.size() || pstEntry == nullptr) {
        return ECM_ERR_PARAM;
    }
    const EcmJournalEntry &stEntry = pstDb->vecJournal[uiIndex];
    ECM_CTL_VAL_S *pstVals = pstDb->vecJournalVals.data() + stEntry.uiFirstVal;
    for (uint32_t i = 0; i < stEntry.uiValNum; i++) {  /* the byte buffer may have moved since */
        if (pstVals[i].uiLen != 0) {
            pstVals[i].pucBytes = reinterpret_cast<const uint8_t *>(pstDb->strJournalBytes.data()) +
                                  pstDb->vecJournalOffsets[stEntry.uiFirstVal + i];
        }
    }
    *pstEntry = {stEntry.uiOp, stEntry.uiTableId, stEntry.uiFlag, stEntry.uiValNum, pstVals};
    return ECM_OK;
}

extern "C" void ECM_CTL_JournalClear(void *pObj)
{
    Ecm_JournalKeep(static_cast<EcmDb *>(pObj), 0);
}

extern "C" void ECM_CTL_JournalTruncate(void *pObj, uint32_t uiKeep)
{
    Ecm_JournalKeep(static_cast<EcmDb *>(pObj), uiKeep);
}
