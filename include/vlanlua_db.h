/* The record set: a query builder over one table of the configuration database. A caller
 * selects fields with widths, adds conditions and sort fields, queries once, reads the packed
 * records and deletes the set, which frees its result buffer with it. */
#ifndef VLANLUA_DB_H
#define VLANLUA_DB_H

#include "vlanlua_pub.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    uint32_t uiTableId;
    void *pObj;
    ECM_COND_BLOCK_S stWhere;
    ECM_SELECT_S stSelect;
    ECM_RESULT_S stResult;
    ECM_SORT_S stSort;
    uint8_t aucSortField[ECM_SORT_MAX];
    ECM_SORT_S *pstSort;
    ECM_SELECT_S *pstSelect;
    ECM_COND_BLOCK_S *pstWhere;
} VLANLUA_RECORDSET_S;

VLANLUA_RECORDSET_S *VLANLUA_RecordSet_New(void *pObj, uint32_t uiTableId);
void VLANLUA_RecordSet_Delete(VLANLUA_RECORDSET_S *pstRs);
void VLANLUA_RecordSet_SelectField(VLANLUA_RECORDSET_S *pstRs, uint8_t ucField, uint16_t usWidth);
uint32_t VLANLUA_RecordSet_Where(VLANLUA_RECORDSET_S *pstRs, uint32_t uiOp, uint8_t ucField, const void *pValue,
                                 uint32_t uiWidth);
void VLANLUA_RecordSet_SortField(VLANLUA_RECORDSET_S *pstRs, uint8_t ucField);
uint32_t VLANLUA_RecordSet_Query(VLANLUA_RECORDSET_S *pstRs, uint16_t usRecLen, uint16_t usRecNum);
uint32_t VLANLUA_RecordSet_QueryFld(VLANLUA_RECORDSET_S *pstRs, uint16_t usRecNum);
uint16_t VLANLUA_RecordSet_GetRecordNum(const VLANLUA_RECORDSET_S *pstRs);
uint32_t VLANLUA_RecordSet_GetDataNum(const VLANLUA_RECORDSET_S *pstRs);
uint8_t *VLANLUA_RecordSet_GetDataBuff(const VLANLUA_RECORDSET_S *pstRs);

#ifdef __cplusplus
}
#endif
#endif
