/* Reads of the client: a select, an existence test or a count, each turned into one SQL statement.
 * The first read of a shape (mode, table, the conditions' fields and operators, the selected and
 * sorted fields) is checked against the schema and planned; later reads of that shape find the plan
 * by a key made from their blocks alone, and only bind and step. Uses only SQLite. */
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

EcmSpatialShape SpatialShapeOf(const ReadShape &stShape)
{
    return {stShape.pstTable, stShape.uiCondNum, stShape.apstCond, stShape.auiOp};
}

std::string ReadSql(const ReadShape &stShape)
{
    std::string strSql = "SELECT ";
    if (stShape.cMode == 'C') {
        strSql += "count(*)";
    } else if (stShape.cMode == 'E' || stShape.uiSelNum == 0) {
        strSql += "1";
    }
    for (uint32_t i = 0; stShape.cMode == 'S' && i < stShape.uiSelNum; i++) {
        strSql.append(i == 0 ? "" : ", ").append(stShape.apstSel[i]->pcName);
    }
    const char *pcTable = stShape.pstTable->pcName;
    if (stShape.pstSpatial != nullptr) {
        strSql.append(Ecm_SpatialFrom(stShape.pstSpatial, SpatialShapeOf(stShape)));
    } else {
        strSql.append(" FROM ").append(pcTable);
    }
    for (uint32_t i = 0; i < stShape.uiCondNum; i++) {
        bool bFirst = i == 0 && stShape.pstSpatial == nullptr;
        strSql.append(bFirst ? " WHERE " : " AND ").append(stShape.apstCond[i]->pcName);
        strSql.append(OpSql(stShape.auiOp[i])).append(std::to_string(i + 1));
    }
    if (stShape.cMode == 'E') {
        return strSql.append(" LIMIT 1");
    }
    if (stShape.cMode == 'S') {
        strSql += " ORDER BY ";
        for (uint32_t i = 0; i < stShape.uiSortNum; i++) {
            strSql.append(stShape.apstSort[i]->pcName).append(", ");
        }
        strSql.append(pcTable).append(".rowid");  /* ties in insertion order */
        if (stShape.uiSortNum != 0) {  /* lets the sorter keep only the first records */
            strSql.append(" LIMIT ?").append(std::to_string(stShape.uiCondNum + 1));
        }
    }
    return strSql;
}

uint32_t ParseConds(const ECM_COND_BLOCK_S *pstWhere, ReadShape *pstShape)
{
    uint32_t uiNum = (pstWhere == nullptr) ? 0 : pstWhere->usCondNum;
    if (uiNum > ECM_COND_MAX) {
        return ECM_ERR_PARAM;
    }
    for (uint32_t i = 0; i < uiNum; i++) {
        const ECM_COND_S *pstCond = &pstWhere->astCond[i];
        pstShape->apstCond[i] = ECM_CTL_FindField(pstShape->pstTable, pstCond->ucFieldId);
        pstShape->auiOp[i] = pstCond->uiOp;
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

uint32_t ParseSelect(const ECM_SELECT_S *pstSelect, const ECM_SORT_S *pstSort, ReadShape *pstShape)
{
    pstShape->uiSelNum = pstSelect->ucFieldNum;
    for (uint32_t i = 0; i < pstShape->uiSelNum; i++) {
        if ((pstShape->apstSel[i] = ECM_CTL_FindField(pstShape->pstTable, pstSelect->aucFieldId[i])) == nullptr) {
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
    for (uint32_t i = 0; i < pstShape->uiSortNum; i++) {
        if ((pstShape->apstSort[i] = ECM_CTL_FindField(pstShape->pstTable, pstSort->pucSortField[i])) == nullptr) {
            return ECM_ERR_FIELD;
        }
    }
    return ECM_OK;
}

/* Whether the blocks' counts and operators fit in a shape key; a read that does not is checked the
 * long way, which refuses it with the code the first wrong thing calls for. */
bool FitsKey(char cMode, const ECM_COND_BLOCK_S *pstWhere, const ECM_SORT_S *pstSort)
{
    uint32_t uiNum = (pstWhere == nullptr) ? 0 : pstWhere->usCondNum;
    if (uiNum > ECM_COND_MAX || (cMode == 'S' && pstSort != nullptr && pstSort->ucSortNum > ECM_SORT_MAX)) {
        return false;
    }
    for (uint32_t i = 0; i < uiNum; i++) {
        if (pstWhere->astCond[i].uiOp > 0xFF) {
            return false;
        }
    }
    return true;
}

/* The shape key of a read, from its blocks alone. */
std::string_view ReadKey(EcmDb *pstDb, char cMode, uint32_t uiTableId, const ECM_COND_BLOCK_S *pstWhere,
                         const ECM_SELECT_S *pstSelect, const ECM_SORT_S *pstSort, char *pcKey)
{
    char *pcAt = pcKey;
    *pcAt++ = cMode;
    memcpy(pcAt, &uiTableId, sizeof(uint32_t));
    pcAt += sizeof(uint32_t);
    uint32_t uiNum = (pstWhere == nullptr) ? 0 : pstWhere->usCondNum;
    *pcAt++ = static_cast<char>(uiNum);
    for (uint32_t i = 0; i < uiNum; i++) {
        *pcAt++ = static_cast<char>(pstWhere->astCond[i].ucFieldId);
        *pcAt++ = static_cast<char>(pstWhere->astCond[i].uiOp);
    }
    if (cMode == 'S') {
        *pcAt++ = static_cast<char>(pstSelect->ucFieldNum);
        memcpy(pcAt, pstSelect->aucFieldId, pstSelect->ucFieldNum);
        pcAt += pstSelect->ucFieldNum;
        uint32_t uiSortNum = (pstSort == nullptr || pstSort->pucSortField == nullptr) ? 0 : pstSort->ucSortNum;
        *pcAt++ = static_cast<char>(uiSortNum);
        memcpy(pcAt, uiSortNum != 0 ? pstSort->pucSortField : pstSelect->aucFieldId, uiSortNum);
        pcAt += uiSortNum;
    }
    *pcAt++ = pstDb->bPlainReads ? 'P' : 'R';
    return std::string_view(pcKey, static_cast<size_t>(pcAt - pcKey));
}

/* The first read of a shape: checked against the schema, turned into SQL, planned. */
uint32_t PlanRead(EcmDb *pstDb, char cMode, uint32_t uiTableId, const ECM_COND_BLOCK_S *pstWhere,
                  const ECM_SELECT_S *pstSelect, const ECM_SORT_S *pstSort, std::string_view svKey,
                  const EcmPlan **ppstPlan)
{
    ReadShape stShape;
    stShape.cMode = cMode;
    if ((stShape.pstTable = ECM_CTL_FindTable(uiTableId)) == nullptr) {
        return ECM_ERR_TABLE;
    }
    uint32_t uiRet = ParseConds(pstWhere, &stShape);
    stShape.uiSelNum = 0;
    stShape.uiSortNum = 0;
    if (uiRet == ECM_OK && cMode == 'S') {
        uiRet = ParseSelect(pstSelect, pstSort, &stShape);
    }
    if (uiRet != ECM_OK) {
        return uiRet;
    }
    stShape.pstSpatial = pstDb->bPlainReads ? nullptr : Ecm_SpatialFits(SpatialShapeOf(stShape));
    EcmPlan stPlan;
    stPlan.pstTable = stShape.pstTable;
    stPlan.vecParams.assign(stShape.apstCond, stShape.apstCond + stShape.uiCondNum);
    stPlan.vecFields.assign(stShape.apstSel, stShape.apstSel + stShape.uiSelNum);
    stPlan.uiLimitParam = stShape.uiSortNum != 0 ? stShape.uiCondNum + 1 : 0;
    *ppstPlan = Ecm_AddPlan(pstDb, svKey, ReadSql(stShape), std::move(stPlan));
    return *ppstPlan != nullptr ? ECM_OK : ECM_ERR_SQL;
}

/* Lays the selected columns of the current row at their schema widths, back to back, into a record
 * of uiRecLen bytes; the last field takes the rest of the record, cut or widened: a lone or last
 * field so comes in the width asked for, an integer as a number of that width. */
void CopyRecord(sqlite3_stmt *pStmt, const EcmPlan &stPlan, uint8_t *pucRec, uint32_t uiRecLen)
{
    uint32_t uiOffset = 0;
    uint32_t uiSelNum = static_cast<uint32_t>(stPlan.vecFields.size());
    for (uint32_t i = 0; i < uiSelNum && uiOffset < uiRecLen; i++) {
        uint32_t uiWidth = stPlan.vecFields[i]->usWidth;
        if (i + 1 == uiSelNum || uiOffset + uiWidth > uiRecLen) {
            uiWidth = uiRecLen - uiOffset;
        }
        Ecm_ColumnBytes(pStmt, static_cast<int>(i), stPlan.vecFields[i], pucRec + uiOffset, uiWidth);
        uiOffset += uiWidth;
    }
    if (uiOffset < uiRecLen) {
        memset(pucRec + uiOffset, 0, uiRecLen - uiOffset);
    }
}

}  // namespace

uint32_t Ecm_PrepareRead(EcmDb *pstDb, char cMode, uint32_t uiTableId, const ECM_COND_BLOCK_S *pstWhere,
                         const ECM_SELECT_S *pstSelect, const ECM_SORT_S *pstSort, const EcmPlan **ppstPlan)
{
    if (!FitsKey(cMode, pstWhere, pstSort)) {
        ReadShape stShape;
        stShape.cMode = cMode;
        stShape.pstTable = ECM_CTL_FindTable(uiTableId);
        uint32_t uiRet = stShape.pstTable == nullptr ? ECM_ERR_TABLE : ParseConds(pstWhere, &stShape);
        if (uiRet == ECM_OK && cMode == 'S') {
            uiRet = ParseSelect(pstSelect, pstSort, &stShape);
        }
        return uiRet != ECM_OK ? uiRet : ECM_ERR_PARAM;  /* one of them refuses it */
    }
    char acKey[SHAPE_KEY_MAX];
    std::string_view svKey = ReadKey(pstDb, cMode, uiTableId, pstWhere, pstSelect, pstSort, acKey);
    const EcmPlan *pstPlan = Ecm_FindPlan(pstDb, svKey);
    if (pstPlan == nullptr) {
        uint32_t uiRet = PlanRead(pstDb, cMode, uiTableId, pstWhere, pstSelect, pstSort, svKey, &pstPlan);
        if (uiRet != ECM_OK) {
            return uiRet;
        }
    } else if (cMode == 'S' && pstSort != nullptr) {  /* what the key leaves out, checked as ParseSelect does */
        if (pstSort->ucSortNum != 0 && pstSort->pucSortField == nullptr) {
            return ECM_ERR_PARAM;
        }
        if (pstSort->uiSortOrder != 0) {
            return ECM_ERR_OP;
        }
    }
    for (size_t i = 0; i < pstPlan->vecParams.size(); i++) {
        if (Ecm_BindBytes(pstDb, pstPlan->pStmt, static_cast<int>(i + 1), pstPlan->vecParams[i],
                          pstWhere->astCond[i].aucValue) != SQLITE_OK) {
            sqlite3_reset(pstPlan->pStmt);
            return ECM_ERR_SQL;
        }
    }
    *ppstPlan = pstPlan;
    return ECM_OK;
}

uint32_t Ecm_DeliverRecords(EcmDb *pstDb, const EcmPlan *pstPlan, ECM_RESULT_S *pstResult, uint32_t uiMaxRec)
{
    sqlite3_stmt *pStmt = pstPlan->pStmt;
    EcmStmtUse stUse(pStmt);
    uint32_t uiRecLen = pstResult->usRecLen;
    if (pstPlan->uiLimitParam != 0 &&
        Ecm_BindInt(pstDb, pStmt, static_cast<int>(pstPlan->uiLimitParam), uiMaxRec) != SQLITE_OK) {
        return ECM_ERR_SQL;
    }
    uint32_t uiNum = 0;
    int iRc = SQLITE_DONE;
    while (uiNum < uiMaxRec && (iRc = Ecm_Step(pstDb, pStmt)) == SQLITE_ROW) {
        CopyRecord(pStmt, *pstPlan, pstResult->pucData + uiNum * uiRecLen, uiRecLen);
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
