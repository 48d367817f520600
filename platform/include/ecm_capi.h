/* Configuration-database client of the platform. Every operation takes the database object
 * first and returns 0 on success. The four blocks handed to the select are the database's
 * layouts, little-endian, byte for byte as declared here (kel_order.h); the values inside them
 * (a condition's value, the result records) and the values of a write are in the machine's order. */
#ifndef ECM_CAPI_H
#define ECM_CAPI_H

#include <stdint.h>

#include "kel_order.h"

#ifdef __cplusplus
extern "C" {
#endif

#define ECM_COND_MAX        20
#define ECM_COND_VALUE_LEN  256
#define ECM_SELECT_MAX      256
#define ECM_SORT_MAX        8

#define ECM_OP_EQ   0u
#define ECM_OP_NE   1u
#define ECM_OP_LE   3u
#define ECM_OP_GE   5u

#define ECM_TYPE_U8      0x02u
#define ECM_TYPE_U16     0x04u
#define ECM_TYPE_U32     0x06u
#define ECM_TYPE_TEXT    0x19u
#define ECM_TYPE_VRID    0x20u
#define ECM_TYPE_BITMAP  0x29u

typedef struct {
    uint8_t ucFieldId;
    uint8_t aucRsv[3];
    KEL_LE32_S uiOp;
    uint8_t aucValue[ECM_COND_VALUE_LEN];
} ECM_COND_S;

typedef struct {
    KEL_LE16_S usCondNum;
    uint16_t usRsv;
    ECM_COND_S astCond[ECM_COND_MAX];
} ECM_COND_BLOCK_S;

typedef struct {
    uint8_t ucFieldNum;
    uint8_t aucRsv[3];
    uint8_t aucFieldId[ECM_SELECT_MAX];
} ECM_SELECT_S;

typedef struct __attribute__((aligned(4))) {
    KEL_LE16_S usRecLen;
    KEL_LE16_S usRecNum;    /* in: most records wanted; out: records delivered */
    KEL_LE32_S uiBufLen;
    KEL_LE32_S uiDataLen;   /* in: equal to uiBufLen; out: bytes delivered */
    uint8_t *pucData __attribute__((packed));  /* at 12, whatever the pointer's alignment */
} ECM_RESULT_S;

typedef struct {
    uint8_t ucSortNum;
    uint8_t aucRsv[3];
    KEL_LE32_S uiSortOrder; /* always 0: ascending, first sort field most significant */
    uint8_t *pucSortField;
} ECM_SORT_S;

/* One field value of a write. */
typedef struct {
    uint32_t uiTypeCode;
    uint16_t usFieldNo;
    uint16_t usWidth;
    const void *pvValue;
} ECM_FIELDVAL_S;

#ifdef __cplusplus
static_assert(sizeof(ECM_COND_S) == 264, "condition layout");
static_assert(sizeof(ECM_COND_BLOCK_S) == 4 + 20 * 264, "condition block layout");
static_assert(sizeof(ECM_SELECT_S) == 260, "selection block layout");
static_assert(sizeof(ECM_RESULT_S) == 12 + KEL_PTR_SIZE, "result descriptor layout");
static_assert(__builtin_offsetof(ECM_RESULT_S, pucData) == 12, "result descriptor layout");
static_assert(sizeof(ECM_SORT_S) == 8 + KEL_PTR_SIZE, "sort block layout");
static_assert(__builtin_offsetof(ECM_SORT_S, pucSortField) == 8, "sort block layout");
static_assert(sizeof(ECM_FIELDVAL_S) == 8 + KEL_PTR_SIZE, "field value layout");
static_assert(__builtin_offsetof(ECM_FIELDVAL_S, pvValue) == 8, "field value layout");
#endif

void *ECM_CAPI_GetObjExt(void *pState);
void *ECM_CAPI_GetSimpleMemHandle(void *pObj);
uint32_t ECM_CAPI_GetCdbID(void *pObj, uint32_t *puiCdbId);
uint32_t ECM_CAPI_TPC_SelectAllRecByOrder(void *pObj, uint32_t uiCdbId, uint32_t uiTableId, ECM_SORT_S *pstSort,
                                          ECM_COND_BLOCK_S *pstWhere, ECM_SELECT_S *pstSelect,
                                          ECM_RESULT_S *pstResult);
uint32_t ECM_CAPI_QueryExist(void *pObj, uint32_t uiTableId, ECM_COND_BLOCK_S *pstWhere, uint32_t uiMode,
                             uint32_t *puiExist);
uint32_t ECM_CAPI_QueryCount(void *pObj, uint32_t uiTableId, ECM_COND_BLOCK_S *pstWhere, uint32_t uiMode,
                             uint32_t *puiCount);
uint32_t ECM_CAPI_InsertRecord(void *pObj, uint32_t uiTableId, const ECM_FIELDVAL_S *pstFields, uint32_t uiNum,
                               uint32_t uiFlag);
uint32_t ECM_CAPI_SetRecord(void *pObj, uint32_t uiTableId, const ECM_FIELDVAL_S *pstFields, uint32_t uiNum,
                            uint32_t uiFlag);
uint32_t ECM_CAPI_DeleteRecord(void *pObj, uint32_t uiTableId, const ECM_FIELDVAL_S *pstFields, uint32_t uiNum,
                               uint32_t uiFlag);
uint32_t ECM_CAPI_ApplyIndex(void *pObj, uint32_t uiTableId, uint32_t uiCount, uint32_t *puiIndex);
uint32_t ECM_CAPI_GetLrVrId(void *pObj, uint32_t *puiLrId, uint32_t *puiVrId);

#ifdef __cplusplus
}
#endif
#endif
