/* The client operations of the configuration database (ECM_CAPI_*) over a database object.
 * Nothing is read, written or filled before the whole request has been checked against the schema. */
#include <string.h>

#include "ecm_capi.h"
#include "ecm_db.h"

namespace {

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
    const EcmPlan *pstPlan = nullptr;
    uint32_t uiRet = Ecm_PrepareRead(pstDb, cMode, uiTableId, pstWhere, nullptr, nullptr, &pstPlan);
    if (uiRet != ECM_OK) {
        return uiRet;
    }
    sqlite3_stmt *pStmt = pstPlan->pStmt;
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

/* Enough for kind, table, count and 255 entries of field number, type code and width. */
constexpr size_t WRITE_KEY_MAX = 1 + 4 + 1 + 4 * ECM_SELECT_MAX;

/* The shape key of a write: kind, table and each entry's field number, type code and width; empty
 * when an entry cannot be a field of the schema (the long check refuses it). */
std::string_view WriteKey(WriteKind eKind, uint32_t uiTableId, const ECM_FIELDVAL_S *pstFields, uint32_t uiNum,
                          char *pcKey)
{
    if (pstFields == nullptr || uiNum == 0 || uiNum >= ECM_SELECT_MAX) {
        return {};
    }
    char *pcAt = pcKey;
    *pcAt++ = "ISD"[eKind];
    memcpy(pcAt, &uiTableId, sizeof(uint32_t));
    pcAt += sizeof(uint32_t);
    *pcAt++ = static_cast<char>(uiNum);
    for (uint32_t i = 0; i < uiNum; i++) {
        if (pstFields[i].usFieldNo > 0xFF || pstFields[i].uiTypeCode > 0xFF) {
            return {};
        }
        *pcAt++ = static_cast<char>(pstFields[i].usFieldNo);
        *pcAt++ = static_cast<char>(pstFields[i].uiTypeCode);
        memcpy(pcAt, &pstFields[i].usWidth, sizeof(uint16_t));
        pcAt += sizeof(uint16_t);
    }
    return std::string_view(pcKey, static_cast<size_t>(pcAt - pcKey));
}

/* The values of a write of a planned shape, which needs only its values present. */
uint32_t PlannedValues(const EcmPlan *pstPlan, const ECM_FIELDVAL_S *pstFields, uint32_t uiNum, EcmWriteVal *pstVals)
{
    for (uint32_t i = 0; i < uiNum; i++) {
        if (pstFields[i].pvValue == nullptr) {
            return ECM_ERR_PARAM;
        }
        pstVals[i] = {pstPlan->vecFields[i], static_cast<const uint8_t *>(pstFields[i].pvValue)};
    }
    return ECM_OK;
}

/* A write of a shape not met before: its table and list checked against the schema, then planned. */
uint32_t PlanNewWrite(EcmDb *pstDb, WriteKind eKind, uint32_t uiTableId, const ECM_FIELDVAL_S *pstFields,
                      uint32_t uiNum, std::string_view svKey, EcmWriteVal *pstVals, const EcmPlan **ppstPlan)
{
    const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTable(uiTableId);
    if (pstTable == nullptr) {
        return ECM_ERR_TABLE;
    }
    if (eKind != WRITE_INSERT && pstTable->uiKeyNum == 0) {
        return ECM_ERR_KEY;  /* a table the module only reads has no record identity */
    }
    bool bNeedKey = pstTable->uiKeyNum != 0;  /* an insert into an unkeyed table names no key */
    uint32_t uiRet = CheckWriteList(pstTable, pstFields, uiNum, bNeedKey, eKind == WRITE_DELETE, pstVals);
    if (uiRet != ECM_OK) {
        return uiRet;
    }
    *ppstPlan = Ecm_PlanWrite(pstDb, "ISD"[eKind], pstTable, pstVals, uiNum, svKey);
    return *ppstPlan != nullptr ? ECM_OK : ECM_ERR_SQL;
}

uint32_t CheckedWrite(EcmDb *pstDb, WriteKind eKind, uint32_t uiTableId, const ECM_FIELDVAL_S *pstFields,
                      uint32_t uiNum, uint32_t uiFlag)
{
    uint32_t uiRet = EnterCall(pstDb);
    if (uiRet != ECM_OK) {
        return uiRet;
    }
    char acKey[WRITE_KEY_MAX];
    std::string_view svKey = WriteKey(eKind, uiTableId, pstFields, uiNum, acKey);
    const EcmPlan *pstPlan = svKey.empty() ? nullptr : Ecm_FindPlan(pstDb, svKey);
    EcmWriteVal astVals[ECM_SELECT_MAX];
    uiRet = pstPlan != nullptr ? PlannedValues(pstPlan, pstFields, uiNum, astVals)
                               : PlanNewWrite(pstDb, eKind, uiTableId, pstFields, uiNum, svKey, astVals, &pstPlan);
    if (uiRet == ECM_OK) {
        uiRet = Ecm_JoinCallWrite(pstDb);
    }
    if (uiRet != ECM_OK) {
        return uiRet;
    }
    static const uint32_t auiJournalOp[] = {ECM_JOURNAL_INSERT, ECM_JOURNAL_SET, ECM_JOURNAL_DELETE};
    uiRet = Ecm_RunWrite(pstDb, pstPlan, eKind != WRITE_INSERT, astVals);
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
    const EcmPlan *pstPlan = nullptr;
    uint32_t uiRet = Ecm_PrepareRead(pstDb, 'S', uiTableId, pstWhere, pstSelect, pstSort, &pstPlan);
    return (uiRet != ECM_OK) ? uiRet : Ecm_DeliverRecords(pstDb, pstPlan, pstResult, uiMaxRec);
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
