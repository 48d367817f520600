/* The client operations of the configuration database (ECM_CAPI_*) over a database object.
 * Nothing is read, written or filled before the whole request has been checked against the schema. */
#include <string.h>

#include "ecm_capi.h"
#include "ecm_db.h"

namespace {

/* A read's table, conditions, selected and sort fields, checked against the schema. */
struct ReadShape {
    char cMode;  /* 'S' select, 'E' exists, 'C' count */
    const ECM_CTL_TABLE_S *pstTable;
    uint32_t uiCondNum;
    const ECM_CTL_FIELD_S *apstCond[ECM_COND_MAX];
    uint32_t auiOp[ECM_COND_MAX];
    uint32_t uiSelNum;
    const ECM_CTL_FIELD_S *apstSel[ECM_SELECT_MAX];
    uint32_t uiSortNum;
    const ECM_CTL_FIELD_S *apstSort[ECM_SORT_MAX];
    const EcmSpatialDef *pstSpatial;  /* the index that narrows the read, or null */
};

/* Enough for mode, table, 255 selected fields, 20 conditions, 8 sort fields and the path taken. */
constexpr size_t SHAPE_KEY_MAX = 1 + 4 + 1 + ECM_SELECT_MAX + 1 + 2 * ECM_COND_MAX + 1 + ECM_SORT_MAX + 1;

const char *OpSql(uint32_t uiOp)
{
    switch (uiOp) {
        case ECM_OP_EQ: return " = ?";
        case ECM_OP_NE: return " <> ?";
        case ECM_OP_LE: return " <= ?";
        case ECM_OP_GE: return " >= ?";
        default: return nullptr;
    }
}

EcmSpatialShape SpatialShapeOf(const ReadShape *pstShape)
{
    return {pstShape->pstTable, pstShape->uiCondNum, pstShape->apstCond, pstShape->auiOp};
}

std::string ReadSql(const void *pCtx)
{
    const ReadShape *pstShape = static_cast<const ReadShape *>(pCtx);
    std::string strSql = "SELECT ";
    if (pstShape->cMode == 'C') {
        strSql += "count(*)";
    } else if (pstShape->cMode == 'E' || pstShape->uiSelNum == 0) {
        strSql += "1";
    }
    for (uint32_t i = 0; pstShape->cMode == 'S' && i < pstShape->uiSelNum; i++) {
        strSql.append(i == 0 ? "" : ", ").append(pstShape->apstSel[i]->pcName);
    }
    const char *pcTable = pstShape->pstTable->pcName;
    if (pstShape->pstSpatial != nullptr) {
        strSql.append(Ecm_SpatialFrom(pstShape->pstSpatial, SpatialShapeOf(pstShape)));
    } else {
        strSql.append(" FROM ").append(pcTable);
    }
    for (uint32_t i = 0; i < pstShape->uiCondNum; i++) {
        bool bFirst = i == 0 && pstShape->pstSpatial == nullptr;
        strSql.append(bFirst ? " WHERE " : " AND ").append(pstShape->apstCond[i]->pcName);
        strSql.append(OpSql(pstShape->auiOp[i])).append(std::to_string(i + 1));
    }
    if (pstShape->cMode == 'E') {
        return strSql.append(" LIMIT 1");
    }
    if (pstShape->cMode == 'S') {
        strSql += " ORDER BY ";
        for (uint32_t i = 0; i < pstShape->uiSortNum; i++) {
            strSql.append(pstShape->apstSort[i]->pcName).append(", ");
        }
        strSql.append(pcTable).append(".rowid");  /* ties in insertion order */
        if (pstShape->uiSortNum != 0) {  /* lets the sorter keep only the first records */
            strSql.append(" LIMIT ?").append(std::to_string(pstShape->uiCondNum + 1));
        }
    }
    return strSql;
}

const ECM_CTL_FIELD_S *FieldOf(const ECM_CTL_TABLE_S *pstTable, uint32_t uiFieldNo, char *&pcKey)
{
    *pcKey++ = static_cast<char>(uiFieldNo);
    return ECM_CTL_FindField(pstTable, uiFieldNo);
}

uint32_t ParseConds(const ECM_COND_BLOCK_S *pstWhere, ReadShape *pstShape, char *&pcKey)
{
    uint32_t uiNum = (pstWhere == nullptr) ? 0 : pstWhere->usCondNum;
    if (uiNum > ECM_COND_MAX) {
        return ECM_ERR_PARAM;
    }
    *pcKey++ = static_cast<char>(uiNum);
    for (uint32_t i = 0; i < uiNum; i++) {
        const ECM_COND_S *pstCond = &pstWhere->astCond[i];
        pstShape->apstCond[i] = FieldOf(pstShape->pstTable, pstCond->ucFieldId, pcKey);
        pstShape->auiOp[i] = pstCond->uiOp;
        *pcKey++ = static_cast<char>(pstCond->uiOp);
        if (pstShape->apstCond[i] == nullptr || pstShape->apstCond[i]->usWidth > ECM_COND_VALUE_LEN) {
            return ECM_ERR_FIELD;
        }
        if (OpSql(pstCond->uiOp) == nullptr) {
            return ECM_ERR_OP;
        }
    }
    pstShape->uiCondNum = uiNum;
    return ECM_OK;
}

uint32_t ParseSelect(const ECM_SELECT_S *pstSelect, const ECM_SORT_S *pstSort, ReadShape *pstShape, char *&pcKey)
{
    pstShape->uiSelNum = pstSelect->ucFieldNum;
    *pcKey++ = static_cast<char>(pstShape->uiSelNum);
    for (uint32_t i = 0; i < pstShape->uiSelNum; i++) {
        if ((pstShape->apstSel[i] = FieldOf(pstShape->pstTable, pstSelect->aucFieldId[i], pcKey)) == nullptr) {
            return ECM_ERR_FIELD;
        }
    }
    pstShape->uiSortNum = (pstSort == nullptr) ? 0 : pstSort->ucSortNum;
    if (pstShape->uiSortNum > ECM_SORT_MAX || (pstShape->uiSortNum != 0 && pstSort->pucSortField == nullptr)) {
        return ECM_ERR_PARAM;
    }
    if (pstSort != nullptr && pstSort->uiSortOrder != 0) {
        return ECM_ERR_OP;
    }
    *pcKey++ = static_cast<char>(pstShape->uiSortNum);
    for (uint32_t i = 0; i < pstShape->uiSortNum; i++) {
        if ((pstShape->apstSort[i] = FieldOf(pstShape->pstTable, pstSort->pucSortField[i], pcKey)) == nullptr) {
            return ECM_ERR_FIELD;
        }
    }
    return ECM_OK;
}

/* The cached statement of a read with its conditions bound, or an error code. */
uint32_t PrepareRead(EcmDb *pstDb, uint32_t uiTableId, const ECM_COND_BLOCK_S *pstWhere,
                     const ECM_SELECT_S *pstSelect, const ECM_SORT_S *pstSort, ReadShape *pstShape,
                     sqlite3_stmt **ppStmt)
{
    if ((pstShape->pstTable = ECM_CTL_FindTable(uiTableId)) == nullptr) {
        return ECM_ERR_TABLE;
    }
    char acKey[SHAPE_KEY_MAX];
    char *pcKey = acKey;
    *pcKey++ = pstShape->cMode;
    memcpy(pcKey, &uiTableId, sizeof(uint32_t));
    pcKey += sizeof(uint32_t);
    uint32_t uiRet = ParseConds(pstWhere, pstShape, pcKey);
    if (uiRet == ECM_OK && pstShape->cMode == 'S') {
        uiRet = ParseSelect(pstSelect, pstSort, pstShape, pcKey);
    }
    if (uiRet != ECM_OK) {
        return uiRet;
    }
    pstShape->pstSpatial = pstDb->bPlainReads ? nullptr : Ecm_SpatialFits(SpatialShapeOf(pstShape));
    *pcKey++ = (pstShape->pstSpatial != nullptr) ? 'R' : 'P';
    sqlite3_stmt *pStmt = Ecm_Stmt(pstDb, std::string_view(acKey, static_cast<size_t>(pcKey - acKey)), ReadSql,
                                   pstShape);
    if (pStmt == nullptr) {
        return ECM_ERR_SQL;
    }
    for (uint32_t i = 0; i < pstShape->uiCondNum; i++) {
        if (Ecm_BindBytes(pstDb, pStmt, static_cast<int>(i + 1), pstShape->apstCond[i],
                          pstWhere->astCond[i].aucValue) != SQLITE_OK) {
            sqlite3_reset(pStmt);
            return ECM_ERR_SQL;
        }
    }
    *ppStmt = pStmt;
    return ECM_OK;
}

/* Lays the selected columns of the current row at their schema widths, back to back, into a record
 * of uiRecLen bytes; the last field takes the rest of the record, cut or widened: a lone or last
 * field so comes in the width asked for, an integer as a number of that width. */
void CopyRecord(sqlite3_stmt *pStmt, const ReadShape *pstShape, uint8_t *pucRec, uint32_t uiRecLen)
{
    uint32_t uiOffset = 0;
    for (uint32_t i = 0; i < pstShape->uiSelNum && uiOffset < uiRecLen; i++) {
        uint32_t uiWidth = pstShape->apstSel[i]->usWidth;
        if (i + 1 == pstShape->uiSelNum || uiOffset + uiWidth > uiRecLen) {
            uiWidth = uiRecLen - uiOffset;
        }
        Ecm_ColumnBytes(pStmt, static_cast<int>(i), pstShape->apstSel[i], pucRec + uiOffset, uiWidth);
        uiOffset += uiWidth;
    }
    if (uiOffset < uiRecLen) {
        memset(pucRec + uiOffset, 0, uiRecLen - uiOffset);
    }
}

uint32_t Deliver(EcmDb *pstDb, sqlite3_stmt *pStmt, const ReadShape *pstShape, ECM_RESULT_S *pstResult,
                 uint32_t uiMaxRec)
{
    EcmStmtUse stUse(pStmt);
    uint32_t uiRecLen = pstResult->usRecLen;
    if (pstShape->uiSortNum != 0 &&
        Ecm_BindInt(pstDb, pStmt, static_cast<int>(pstShape->uiCondNum + 1), uiMaxRec) != SQLITE_OK) {
        return ECM_ERR_SQL;
    }
    uint32_t uiNum = 0;
    int iRc = SQLITE_DONE;
    while (uiNum < uiMaxRec && (iRc = Ecm_Step(pstDb, pStmt)) == SQLITE_ROW) {
        CopyRecord(pStmt, pstShape, pstResult->pucData + uiNum * uiRecLen, uiRecLen);
        uiNum++;
    }
    if (uiNum < uiMaxRec && iRc != SQLITE_DONE) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        return ECM_ERR_SQL;
    }
    pstResult->usRecNum = static_cast<uint16_t>(uiNum);
    pstResult->uiDataLen = uiNum * uiRecLen;
    return ECM_OK;
}

/* Checks the object, counts the call against an armed fault, and inside a script call makes it
 * part of the call's unit of work: ECM_OK to go on, else the code. */
uint32_t EnterCall(EcmDb *pstDb)
{
    if (pstDb == nullptr) {
        return ECM_ERR_PARAM;
    }
    return Ecm_TripFault(pstDb) ? ECM_ERR_INJECTED : Ecm_JoinCallUnit(pstDb);
}

/* Records one client operation in the object's trace while it traces; ends it with its result. */
class TracedOp {
public:
    TracedOp(EcmDb *pstDb, uint32_t uiOp, uint32_t uiTableId)
        : m_pstDb(pstDb != nullptr && pstDb->bTracing ? pstDb : nullptr)
    {
        if (m_pstDb != nullptr) {
            Ecm_TraceOpBegin(m_pstDb, uiOp, uiTableId);
        }
    }
    TracedOp(const TracedOp &) = delete;
    TracedOp &operator=(const TracedOp &) = delete;
    /* ulCounted: what a count counted; the rows of its statements for the other operations. */
    uint32_t End(uint32_t uiRet, uint64_t ulCounted = UINT64_MAX)
    {
        if (m_pstDb != nullptr) {
            Ecm_TraceOpEnd(m_pstDb, uiRet, ulCounted);
        }
        return uiRet;
    }

private:
    EcmDb *m_pstDb;
};

/* Runs an exists or count read and gives back its one integer. */
uint32_t ReadScalar(EcmDb *pstDb, char cMode, uint32_t uiTableId, const ECM_COND_BLOCK_S *pstWhere,
                    uint32_t uiMode, uint32_t *puiOut)
{
    if (puiOut == nullptr) {
        return ECM_ERR_PARAM;
    }
    if (uiMode != 6) {
        return ECM_ERR_OP;
    }
    ReadShape stShape;
    stShape.cMode = cMode;
    sqlite3_stmt *pStmt = nullptr;
    uint32_t uiRet = PrepareRead(pstDb, uiTableId, pstWhere, nullptr, nullptr, &stShape, &pStmt);
    if (uiRet != ECM_OK) {
        return uiRet;
    }
    EcmStmtUse stUse(pStmt);
    int iRc = Ecm_Step(pstDb, pStmt);
    if (iRc != SQLITE_ROW && iRc != SQLITE_DONE) {
        pstDb->strLastError = sqlite3_errmsg(pstDb->pDb);
        return ECM_ERR_SQL;
    }
    *puiOut = (iRc == SQLITE_ROW) ? static_cast<uint32_t>(sqlite3_column_int64(pStmt, 0)) : 0;
    return ECM_OK;
}

/* Checks a write's field list against the schema into pstOut; bKeyOnly refuses non-key fields. */
uint32_t CheckWriteList(const ECM_CTL_TABLE_S *pstTable, const ECM_FIELDVAL_S *pstFields, uint32_t uiNum,
                        bool bNeedKey, bool bKeyOnly, EcmWriteVal *pstOut)
{
    if (pstFields == nullptr || uiNum == 0 || uiNum > pstTable->uiFieldNum) {
        return (uiNum > pstTable->uiFieldNum) ? ECM_ERR_FIELD : ECM_ERR_PARAM;
    }
    uint32_t uiKeysSeen = 0;
    for (uint32_t i = 0; i < uiNum; i++) {
        const ECM_CTL_FIELD_S *pstField = ECM_CTL_FindField(pstTable, pstFields[i].usFieldNo);
        bool bKey = pstField != nullptr && (pstTable->aucKey[0] == pstField->ucFieldNo ||
                                            (pstTable->uiKeyNum == 2 && pstTable->aucKey[1] == pstField->ucFieldNo));
        bKey = bKey && pstTable->uiKeyNum != 0;
        for (uint32_t j = 0; pstField != nullptr && j < i; j++) {
            pstField = (pstOut[j].pstField == pstField) ? nullptr : pstField;  /* listed twice */
        }
        if (pstField == nullptr || (bKeyOnly && !bKey)) {
            return ECM_ERR_FIELD;
        }
        if (pstFields[i].uiTypeCode != pstField->ucType || pstFields[i].usWidth != pstField->usWidth) {
            return ECM_ERR_TYPE;
        }
        if (pstFields[i].pvValue == nullptr) {
            return ECM_ERR_PARAM;
        }
        pstOut[i] = {pstField, static_cast<const uint8_t *>(pstFields[i].pvValue)};
        uiKeysSeen += bKey ? 1 : 0;
    }
    if (bNeedKey && (pstTable->uiKeyNum == 0 || uiKeysSeen != pstTable->uiKeyNum)) {
        return ECM_ERR_KEY;
    }
    return ECM_OK;
}

/* The entry check of a call on one table: counts the call (and fails it when a fault is armed),
 * then finds the table's schema. */
uint32_t EnterTableCall(EcmDb *pstDb, uint32_t uiTableId, const ECM_CTL_TABLE_S **ppstTable)
{
    uint32_t uiEnter = EnterCall(pstDb);
    if (uiEnter != ECM_OK) {
        return uiEnter;
    }
    *ppstTable = ECM_CTL_FindTable(uiTableId);
    return (*ppstTable == nullptr) ? ECM_ERR_TABLE : ECM_OK;
}

enum WriteKind { WRITE_INSERT, WRITE_SET, WRITE_DELETE };

uint32_t CheckedWrite(EcmDb *pstDb, WriteKind eKind, uint32_t uiTableId, const ECM_FIELDVAL_S *pstFields,
                      uint32_t uiNum, uint32_t uiFlag)
{
    const ECM_CTL_TABLE_S *pstTable = nullptr;
    uint32_t uiEnter = EnterTableCall(pstDb, uiTableId, &pstTable);
    if (uiEnter != ECM_OK) {
        return uiEnter;
    }
    if (eKind != WRITE_INSERT && pstTable->uiKeyNum == 0) {
        return ECM_ERR_KEY;  /* a table the module only reads has no record identity */
    }
    EcmWriteVal astVals[ECM_SELECT_MAX];
    bool bNeedKey = pstTable->uiKeyNum != 0;  /* an insert into an unkeyed table names no key */
    uint32_t uiRet = CheckWriteList(pstTable, pstFields, uiNum, bNeedKey, eKind == WRITE_DELETE, astVals);
    if (uiRet == ECM_OK) {
        uiRet = Ecm_JoinCallWrite(pstDb);
    }
    if (uiRet != ECM_OK) {
        return uiRet;
    }
    static const uint32_t auiJournalOp[] = {ECM_JOURNAL_INSERT, ECM_JOURNAL_SET, ECM_JOURNAL_DELETE};
    uiRet = (eKind == WRITE_INSERT) ? Ecm_InsertRow(pstDb, pstTable, astVals, uiNum)
            : (eKind == WRITE_SET)  ? Ecm_UpdateRow(pstDb, pstTable, astVals, uiNum)
                                    : Ecm_DeleteRow(pstDb, pstTable, astVals, uiNum);
    if (uiRet == ECM_OK) {
        Ecm_Journal(pstDb, auiJournalOp[eKind], uiTableId, uiFlag, astVals, uiNum);
    }
    return Ecm_CallOutcome(pstDb, uiRet);
}

uint32_t Write(void *pObj, WriteKind eKind, uint32_t uiTableId, const ECM_FIELDVAL_S *pstFields, uint32_t uiNum,
               uint32_t uiFlag)
{
    static const uint32_t auiTraceOp[] = {ECM_CTL_TRACE_INSERT, ECM_CTL_TRACE_SET, ECM_CTL_TRACE_DELETE};
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    TracedOp stOp(pstDb, auiTraceOp[eKind], uiTableId);
    return stOp.End(CheckedWrite(pstDb, eKind, uiTableId, pstFields, uiNum, uiFlag));
}

}  // namespace

/* ---- Object and ids ---- */

extern "C" void *ECM_CAPI_GetSimpleMemHandle(void *pObj)
{
    return (pObj == nullptr) ? nullptr : static_cast<EcmDb *>(pObj)->pMem;
}

extern "C" uint32_t ECM_CAPI_GetCdbID(void *pObj, uint32_t *puiCdbId)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    TracedOp stOp(pstDb, ECM_CTL_TRACE_CDB_ID, 0);
    uint32_t uiEnter = EnterCall(pstDb);
    if (uiEnter != ECM_OK || puiCdbId == nullptr) {
        return stOp.End(uiEnter != ECM_OK ? uiEnter : ECM_ERR_PARAM);
    }
    *puiCdbId = pstDb->uiCdbId;
    return stOp.End(ECM_OK);
}

extern "C" uint32_t ECM_CAPI_GetLrVrId(void *pObj, uint32_t *puiLrId, uint32_t *puiVrId)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    TracedOp stOp(pstDb, ECM_CTL_TRACE_LR_VR_ID, 0);
    uint32_t uiEnter = EnterCall(pstDb);
    if (uiEnter != ECM_OK || puiLrId == nullptr || puiVrId == nullptr) {
        return stOp.End(uiEnter != ECM_OK ? uiEnter : ECM_ERR_PARAM);
    }
    *puiLrId = pstDb->uiLrId;
    *puiVrId = pstDb->uiVrId;
    return stOp.End(ECM_OK);
}

/* ---- Reads ---- */

namespace {

uint32_t Select(EcmDb *pstDb, uint32_t uiTableId, ECM_SORT_S *pstSort, ECM_COND_BLOCK_S *pstWhere,
                ECM_SELECT_S *pstSelect, ECM_RESULT_S *pstResult)
{
    uint32_t uiEnter = EnterCall(pstDb);
    if (uiEnter != ECM_OK) {
        return uiEnter;
    }
    if (pstSelect == nullptr || pstResult == nullptr) {
        return ECM_ERR_PARAM;
    }
    uint32_t uiRecLen = pstResult->usRecLen;
    uint32_t uiMaxRec = (uiRecLen == 0) ? 0 : pstResult->uiBufLen / uiRecLen;
    uiMaxRec = (pstResult->usRecNum < uiMaxRec) ? pstResult->usRecNum : uiMaxRec;
    if (uiMaxRec != 0 && pstResult->pucData == nullptr) {
        return ECM_ERR_PARAM;
    }
    ReadShape stShape;
    stShape.cMode = 'S';
    sqlite3_stmt *pStmt = nullptr;
    uint32_t uiRet = PrepareRead(pstDb, uiTableId, pstWhere, pstSelect, pstSort, &stShape, &pStmt);
    return (uiRet != ECM_OK) ? uiRet : Deliver(pstDb, pStmt, &stShape, pstResult, uiMaxRec);
}

/* An exists ('E') or count ('C') read as one traced operation. */
uint32_t Scalar(void *pObj, char cMode, uint32_t uiTableId, ECM_COND_BLOCK_S *pstWhere, uint32_t uiMode,
                uint32_t *puiOut)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    TracedOp stOp(pstDb, cMode == 'C' ? ECM_CTL_TRACE_COUNT : ECM_CTL_TRACE_EXIST, uiTableId);
    uint32_t uiRet = EnterCall(pstDb);
    if (uiRet == ECM_OK) {
        uiRet = ReadScalar(pstDb, cMode, uiTableId, pstWhere, uiMode, puiOut);
    }
    return stOp.End(uiRet, (cMode == 'C' && uiRet == ECM_OK) ? *puiOut : UINT64_MAX);
}

}  // namespace

extern "C" uint32_t ECM_CAPI_TPC_SelectAllRecByOrder(void *pObj, uint32_t, uint32_t uiTableId, ECM_SORT_S *pstSort,
                                                     ECM_COND_BLOCK_S *pstWhere, ECM_SELECT_S *pstSelect,
                                                     ECM_RESULT_S *pstResult)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    TracedOp stOp(pstDb, ECM_CTL_TRACE_SELECT, uiTableId);
    return stOp.End(Select(pstDb, uiTableId, pstSort, pstWhere, pstSelect, pstResult));
}

extern "C" uint32_t ECM_CAPI_QueryExist(void *pObj, uint32_t uiTableId, ECM_COND_BLOCK_S *pstWhere, uint32_t uiMode,
                                        uint32_t *puiExist)
{
    return Scalar(pObj, 'E', uiTableId, pstWhere, uiMode, puiExist);
}

extern "C" uint32_t ECM_CAPI_QueryCount(void *pObj, uint32_t uiTableId, ECM_COND_BLOCK_S *pstWhere, uint32_t uiMode,
                                        uint32_t *puiCount)
{
    return Scalar(pObj, 'C', uiTableId, pstWhere, uiMode, puiCount);
}

/* ---- Writes ---- */

extern "C" uint32_t ECM_CAPI_InsertRecord(void *pObj, uint32_t uiTableId, const ECM_FIELDVAL_S *pstFields,
                                          uint32_t uiNum, uint32_t uiFlag)
{
    return Write(pObj, WRITE_INSERT, uiTableId, pstFields, uiNum, uiFlag);
}

extern "C" uint32_t ECM_CAPI_SetRecord(void *pObj, uint32_t uiTableId, const ECM_FIELDVAL_S *pstFields,
                                       uint32_t uiNum, uint32_t uiFlag)
{
    return Write(pObj, WRITE_SET, uiTableId, pstFields, uiNum, uiFlag);
}

extern "C" uint32_t ECM_CAPI_DeleteRecord(void *pObj, uint32_t uiTableId, const ECM_FIELDVAL_S *pstFields,
                                          uint32_t uiNum, uint32_t uiFlag)
{
    return Write(pObj, WRITE_DELETE, uiTableId, pstFields, uiNum, uiFlag);
}

namespace {

uint32_t ApplyIndex(EcmDb *pstDb, uint32_t uiTableId, uint32_t uiCount, uint32_t *puiIndex)
{
    const ECM_CTL_TABLE_S *pstTable = nullptr;
    uint32_t uiEnter = EnterTableCall(pstDb, uiTableId, &pstTable);
    if (uiEnter != ECM_OK) {
        return uiEnter;
    }
    if (uiCount == 0 || puiIndex == nullptr) {
        return ECM_ERR_PARAM;
    }
    uint32_t uiJoin = Ecm_JoinCallWrite(pstDb);
    if (uiJoin != ECM_OK) {
        return uiJoin;
    }
    return Ecm_CallOutcome(pstDb, Ecm_NextIndex(pstDb, pstTable, uiCount, puiIndex));
}

}  // namespace

extern "C" uint32_t ECM_CAPI_ApplyIndex(void *pObj, uint32_t uiTableId, uint32_t uiCount, uint32_t *puiIndex)
{
    EcmDb *pstDb = static_cast<EcmDb *>(pObj);
    TracedOp stOp(pstDb, ECM_CTL_TRACE_APPLY_INDEX, uiTableId);
    return stOp.End(ApplyIndex(pstDb, uiTableId, uiCount, puiIndex));
}
