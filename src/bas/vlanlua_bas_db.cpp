/* The record set: a query builder over one table of the configuration database. The set holds
 * the condition, selection, sort and result blocks in the database's own layouts; the result
 * buffer is allocated by the one query and freed with the set. Uses only the platform's names. */
#include "vlanlua_db.h"

#include <cstddef>

#include "bas/vlanlua_bas_mem.h"
#include "sec_bound.h"

static_assert(__builtin_offsetof(VLANLUA_RECORDSET_S, uiTableId) == 0, "record set layout");
static_assert(__builtin_offsetof(VLANLUA_RECORDSET_S, pObj) == KEL_PTR_ALIGN(4), "record set layout");
static_assert(__builtin_offsetof(VLANLUA_RECORDSET_S, stWhere) == KEL_PTR_ALIGN(4) + KEL_PTR_SIZE, "record set layout");

/* ---- creation and deletion ---- */

extern "C" VLANLUA_RECORDSET_S *VLANLUA_RecordSet_New(void *pObj, uint32_t uiTableId)
{
    auto *pstRs = static_cast<VLANLUA_RECORDSET_S *>(VLANLUA_Malloc(pObj, sizeof(VLANLUA_RECORDSET_S)));
    if (pstRs == nullptr) {
        return nullptr;
    }
    /* Everything but the conditions, which Where clears one by one as it fills them: the database
     * reads no more of the block than usCondNum conditions. */
    (void)memset_s(pstRs, offsetof(VLANLUA_RECORDSET_S, stWhere.astCond), 0, offsetof(VLANLUA_RECORDSET_S, stWhere.astCond));
    auto *pucAfterWhere = reinterpret_cast<uint8_t *>(&pstRs->stSelect);
    size_t ulAfterWhere = sizeof(*pstRs) - offsetof(VLANLUA_RECORDSET_S, stSelect);
    (void)memset_s(pucAfterWhere, ulAfterWhere, 0, ulAfterWhere);
    pstRs->uiTableId = uiTableId;
    pstRs->pObj = pObj;
    pstRs->pstWhere = &pstRs->stWhere;
    pstRs->pstSelect = &pstRs->stSelect;
    pstRs->pstSort = &pstRs->stSort;
    pstRs->stSort.pucSortField = pstRs->aucSortField;
    return pstRs;
}

extern "C" void VLANLUA_RecordSet_Delete(VLANLUA_RECORDSET_S *pstRs)
{
    if (pstRs == nullptr) {
        return;
    }
    if (pstRs->stResult.pucData != nullptr) {
        VLANLUA_Free(pstRs->stResult.pucData);
        pstRs->stResult.pucData = nullptr;
    }
    VLANLUA_Free(pstRs);
}

/* ---- building the query ---- */

extern "C" void VLANLUA_RecordSet_SelectField(VLANLUA_RECORDSET_S *pstRs, uint8_t ucField, uint16_t usWidth)
{
    ECM_SELECT_S *pstSel = &pstRs->stSelect;
    pstSel->aucFieldId[pstSel->ucFieldNum] = ucField;    /* a u8 count always indexes inside 256 */
    pstSel->ucFieldNum++;
    pstRs->stResult.usRecLen = static_cast<uint16_t>(pstRs->stResult.usRecLen + usWidth);
}

extern "C" uint32_t VLANLUA_RecordSet_Where(VLANLUA_RECORDSET_S *pstRs, uint32_t uiOp, uint8_t ucField,
                                            const void *pValue, uint32_t uiWidth)
{
    ECM_COND_BLOCK_S *pstWhere = &pstRs->stWhere;
    if (pstWhere->usCondNum >= ECM_COND_MAX) {     /* the block is full: never write past it */
        VLANLUA_Assert();
        return 1;
    }
    ECM_COND_S *pstCond = &pstWhere->astCond[pstWhere->usCondNum];
    (void)memset_s(pstCond, sizeof(*pstCond), 0, sizeof(*pstCond));
    pstCond->ucFieldId = ucField;
    pstCond->uiOp = uiOp;
    int iRet = memcpy_s(pstCond->aucValue, sizeof(pstCond->aucValue), pValue, uiWidth);
    if (iRet != 0) {
        return static_cast<uint32_t>(iRet);
    }
    pstWhere->usCondNum++;
    return 0;
}

extern "C" void VLANLUA_RecordSet_SortField(VLANLUA_RECORDSET_S *pstRs, uint8_t ucField)
{
    ECM_SORT_S *pstSort = &pstRs->stSort;
    pstSort->uiSortOrder = 0;
    if (pstSort->ucSortNum >= ECM_SORT_MAX) {       /* the list is full: never write past it */
        VLANLUA_Assert();
        return;
    }
    pstRs->aucSortField[pstSort->ucSortNum] = ucField;
    pstSort->ucSortNum++;
}

/* ---- running the query ---- */

extern "C" uint32_t VLANLUA_RecordSet_Query(VLANLUA_RECORDSET_S *pstRs, uint16_t usRecLen, uint16_t usRecNum)
{
    if (usRecLen == 0) {
        VLANLUA_Assert();
    }
    if (usRecNum == 0) {
        VLANLUA_Assert();
    }
    ECM_RESULT_S *pstResult = &pstRs->stResult;
    pstResult->usRecLen = usRecLen;
    pstResult->usRecNum = usRecNum;
    pstResult->uiBufLen = static_cast<uint32_t>(usRecLen) * usRecNum;
    pstResult->uiDataLen = pstResult->uiBufLen;
    pstResult->pucData = static_cast<uint8_t *>(VLANLUA_Malloc(pstRs->pObj, pstResult->uiBufLen));
    if (pstResult->pucData == nullptr) {
        return 1;
    }
    uint32_t uiCdbId = 0;
    (void)ECM_CAPI_GetCdbID(pstRs->pObj, &uiCdbId);
    return ECM_CAPI_TPC_SelectAllRecByOrder(pstRs->pObj, uiCdbId, pstRs->uiTableId, pstRs->pstSort,
                                            pstRs->pstWhere, pstRs->pstSelect, pstResult);
}

extern "C" uint32_t VLANLUA_RecordSet_QueryFld(VLANLUA_RECORDSET_S *pstRs, uint16_t usRecNum)
{
    if (pstRs->stResult.usRecLen == 0) {
        VLANLUA_Assert();
    }
    return VLANLUA_RecordSet_Query(pstRs, pstRs->stResult.usRecLen, usRecNum);
}

/* ---- reading the result ---- */

extern "C" uint16_t VLANLUA_RecordSet_GetRecordNum(const VLANLUA_RECORDSET_S *pstRs)
{
    return pstRs->stResult.usRecNum;
}

extern "C" uint32_t VLANLUA_RecordSet_GetDataNum(const VLANLUA_RECORDSET_S *pstRs)
{
    return pstRs->stResult.uiDataLen;
}

extern "C" uint8_t *VLANLUA_RecordSet_GetDataBuff(const VLANLUA_RECORDSET_S *pstRs)
{
    return pstRs->stResult.pucData;
}
