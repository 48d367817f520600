/* Control-side set-up and inspection of a database object's tables: equality filters, whole
 * records, no fault counting and no journal. Used by tests and the script binding. */
#include <string.h>

#include "ecm_capi.h"
#include "ecm_db.h"

namespace {

/* Values of a control call converted to the fields' bytes at schema width. */
struct CtlVals {
    const ECM_CTL_TABLE_S *pstTable = nullptr;
    std::vector<EcmWriteVal> vecVals;
    std::vector<uint8_t> vecBytes;
};

uint32_t Fail(EcmDb *pstDb, uint32_t uiRet, const std::string &strWhy)
{
    pstDb->strLastError = strWhy;
    return uiRet;
}

uint32_t CheckValue(EcmDb *pstDb, const ECM_CTL_FIELD_S *pstField, const ECM_CTL_VAL_S *pstVal)
{
    if (ECM_CTL_IsByteType(pstField->ucType)) {
        if (pstVal->uiLen > pstField->usWidth || (pstVal->uiLen != 0 && pstVal->pucBytes == nullptr)) {
            return Fail(pstDb, ECM_ERR_RANGE, std::string(pstField->pcName)
                                                  .append(": value longer than ")
                                                  .append(std::to_string(pstField->usWidth))
                                                  .append(" bytes"));
        }
    } else if (pstField->usWidth < 8 && (pstVal->ulNum >> (8 * pstField->usWidth)) != 0) {
        return Fail(pstDb, ECM_ERR_RANGE, std::string(pstField->pcName).append(": value out of range"));
    }
    return ECM_OK;
}

uint32_t Convert(EcmDb *pstDb, uint32_t uiTableId, const ECM_CTL_VAL_S *pstVals, uint32_t uiNum, CtlVals *pstOut)
{
    if ((pstOut->pstTable = ECM_CTL_FindTable(uiTableId)) == nullptr) {
        return Fail(pstDb, ECM_ERR_TABLE, std::string("unknown table ").append(std::to_string(uiTableId)));
    }
    std::vector<uint32_t> vecOffsets;
    for (uint32_t i = 0; i < uiNum; i++) {
        const ECM_CTL_FIELD_S *pstField = ECM_CTL_FindField(pstOut->pstTable, pstVals[i].uiFieldNo);
        if (pstField == nullptr) {
            return Fail(pstDb, ECM_ERR_FIELD, std::string(pstOut->pstTable->pcName)
                                                  .append(" has no field ")
                                                  .append(std::to_string(pstVals[i].uiFieldNo)));
        }
        for (const EcmWriteVal &stSeen : pstOut->vecVals) {
            if (stSeen.pstField == pstField) {
                return Fail(pstDb, ECM_ERR_FIELD, std::string(pstField->pcName).append(" given twice"));
            }
        }
        uint32_t uiRet = CheckValue(pstDb, pstField, &pstVals[i]);
        if (uiRet != ECM_OK) {
            return uiRet;
        }
        size_t ulAt = pstOut->vecBytes.size();
        pstOut->vecBytes.resize(ulAt + pstField->usWidth, 0);
        if (!ECM_CTL_IsByteType(pstField->ucType)) {
            KEL_PutNum(&pstOut->vecBytes[ulAt], pstField->usWidth, pstVals[i].ulNum);
        } else if (pstVals[i].uiLen != 0) {
            memcpy(&pstOut->vecBytes[ulAt], pstVals[i].pucBytes, pstVals[i].uiLen);
        }
        pstOut->vecVals.push_back({pstField, nullptr});
        vecOffsets.push_back(static_cast<uint32_t>(ulAt));
    }
    for (size_t i = 0; i < vecOffsets.size(); i++) {  /* the byte buffer is final now */
        pstOut->vecVals[i].pucValue = pstOut->vecBytes.data() + vecOffsets[i];
    }
    return ECM_OK;
}

/* An equality filter statement: 'R' all fields in key then insertion order, 'K' count, 'X' delete. */
struct FilterShape {
    char cMode;
    const CtlVals *pstVals;
};

std::string FilterSql(const void *pCtx)
{
    const FilterShape *pstShape = static_cast<const FilterShape *>(pCtx);
    const ECM_CTL_TABLE_S *pstTable = pstShape->pstVals->pstTable;
    std::string strSql = (pstShape->cMode == 'X') ? "DELETE" : (pstShape->cMode == 'K') ? "SELECT count(*)" : "SELECT ";
    for (uint32_t i = 0; pstShape->cMode == 'R' && i < pstTable->uiFieldNum; i++) {
        strSql.append(i == 0 ? "" : ", ").append(pstTable->pstFields[i].pcName);
    }
    strSql.append(" FROM ").append(pstTable->pcName);
    const std::vector<EcmWriteVal> &vecVals = pstShape->pstVals->vecVals;
    for (size_t i = 0; i < vecVals.size(); i++) {
        strSql.append(i == 0 ? " WHERE " : " AND ").append(vecVals[i].pstField->pcName);
        strSql.append(" = ?").append(std::to_string(i + 1));
    }
    if (pstShape->cMode == 'R') {
        strSql += " ORDER BY ";
        for (uint32_t i = 0; i < pstTable->uiKeyNum; i++) {
            strSql.append(ECM_CTL_FindField(pstTable, pstTable->aucKey[i])->pcName).append(", ");
        }
        strSql += "rowid";
    }
    return strSql;
}

sqlite3_stmt *FilterStmt(EcmDb *pstDb, char cMode, const CtlVals &stVals)
{
    FilterShape stShape{cMode, &stVals};
    std::string strKey(1, cMode);
    strKey.append(reinterpret_cast<const char *>(&stVals.pstTable->uiTableId), sizeof(uint32_t));
    for (const EcmWriteVal &stVal : stVals.vecVals) {
        strKey += static_cast<char>(stVal.pstField->ucFieldNo);
    }
    sqlite3_stmt *pStmt = Ecm_Stmt(pstDb, strKey, FilterSql, &stShape);
    for (size_t i = 0; pStmt != nullptr && i < stVals.vecVals.size(); i++) {
        if (Ecm_BindBytes(pstDb, pStmt, static_cast<int>(i + 1), stVals.vecVals[i].pstField, stVals.vecVals[i].pucValue) !=
            SQLITE_OK) {
            sqlite3_reset(pStmt);
            sqlite3_clear_bindings(pStmt);
            return nullptr;
        }
    }
    return pStmt;
}

/* Hands the current row to the receiver as every schema field, byte fields at full width. */
void EmitRow(sqlite3_stmt *pStmt, const ECM_CTL_TABLE_S *pstTable, ECM_CTL_ROW_FN pfRow, void *pCtx)
{
    std::vector<ECM_CTL_VAL_S> vecFields(pstTable->uiFieldNum);
    for (uint32_t i = 0; i < pstTable->uiFieldNum; i++) {
        const ECM_CTL_FIELD_S *pstField = &pstTable->pstFields[i];
        vecFields[i] = {pstField->ucFieldNo, 0, 0, nullptr};
        if (ECM_CTL_IsByteType(pstField->ucType)) {
            vecFields[i].pucBytes = static_cast<const uint8_t *>(sqlite3_column_blob(pStmt, static_cast<int>(i)));
            vecFields[i].uiLen = static_cast<uint32_t>(sqlite3_column_bytes(pStmt, static_cast<int>(i)));
        } else {
            vecFields[i].ulNum = static_cast<uint64_t>(sqlite3_column_int64(pStmt, static_cast<int>(i)));
        }
    }
    pfRow(pCtx, vecFields.data(), pstTable->uiFieldNum);
}

uint32_t StepError(EcmDb *pstDb)
{
    return Fail(pstDb, ECM_ERR_SQL, sqlite3_errmsg(pstDb->pDb));
}

/* Counts ('K') or deletes ('X') the records equal to the filter; the number goes to *pulOut. */
uint32_t FilterScalar(EcmDb *pstDb, char cMode, uint32_t uiTableId, const ECM_CTL_VAL_S *pstWhere, uint32_t uiNum,
                      uint64_t *pulOut)
{
    Ecm_SettleCallUnits(pstDb);
    CtlVals stVals;
    uint32_t uiRet = Convert(pstDb, uiTableId, pstWhere, uiNum, &stVals);
    if (uiRet != ECM_OK) {
        return uiRet;
    }
    EcmStmtUse stUse(FilterStmt(pstDb, cMode, stVals));
    int iWant = (cMode == 'K') ? SQLITE_ROW : SQLITE_DONE;
    if (stUse.Get() == nullptr || Ecm_Step(pstDb, stUse.Get()) != iWant) {
        return StepError(pstDb);
    }
    sqlite3_int64 llNum = (cMode == 'K') ? sqlite3_column_int64(stUse.Get(), 0) : sqlite3_changes64(pstDb->pDb);
    *pulOut = static_cast<uint64_t>(llNum);
    return ECM_OK;
}

}  // namespace

extern "C" uint32_t ECM_CTL_Insert(void *pObj, uint32_t uiTableId, const ECM_CTL_VAL_S *pstVals, uint32_t uiNum)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    Ecm_SettleCallUnits(pstDb);
    CtlVals stVals;
    uint32_t uiRet = Convert(pstDb, uiTableId, pstVals, uiNum, &stVals);
    if (uiRet != ECM_OK) {
        return uiRet;
    }
    uiRet = Ecm_InsertRow(pstDb, stVals.pstTable, stVals.vecVals.data(), uiNum);
    return (uiRet == ECM_ERR_EXISTS) ? Fail(pstDb, uiRet, "a record with this key exists")
                                     : uiRet;
}

extern "C" uint32_t ECM_CTL_Rows(void *pObj, uint32_t uiTableId, const ECM_CTL_VAL_S *pstWhere, uint32_t uiNum,
                                 ECM_CTL_ROW_FN pfRow, void *pCtx)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    Ecm_SettleCallUnits(pstDb);
    CtlVals stVals;
    uint32_t uiRet = Convert(pstDb, uiTableId, pstWhere, uiNum, &stVals);
    if (uiRet != ECM_OK) {
        return uiRet;
    }
    EcmStmtUse stUse(FilterStmt(pstDb, 'R', stVals));
    if (stUse.Get() == nullptr) {
        return StepError(pstDb);
    }
    int iRc;
    while ((iRc = Ecm_Step(pstDb, stUse.Get())) == SQLITE_ROW) {
        EmitRow(stUse.Get(), stVals.pstTable, pfRow, pCtx);
    }
    return (iRc == SQLITE_DONE) ? ECM_OK : StepError(pstDb);
}

extern "C" uint32_t ECM_CTL_Count(void *pObj, uint32_t uiTableId, const ECM_CTL_VAL_S *pstWhere, uint32_t uiNum,
                                  uint64_t *pulCount)
{
    return FilterScalar(static_cast<EcmDb *>(pObj), 'K', uiTableId, pstWhere, uiNum, pulCount);
}

extern "C" uint32_t ECM_CTL_Delete(void *pObj, uint32_t uiTableId, const ECM_CTL_VAL_S *pstWhere, uint32_t uiNum,
                                   uint64_t *pulDeleted)
{
    return FilterScalar(static_cast<EcmDb *>(pObj), 'X', uiTableId, pstWhere, uiNum, pulDeleted);
}
