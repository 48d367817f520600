/* The QinQ match record and table QINQ_MATCH_SEG: field selection, counting and reading of an
 * interface's stored rectangles, single-record insert and delete. Uses only the platform's names. */
#ifndef VLANLUA_BAS_QINQMATCH_H
#define VLANLUA_BAS_QINQMATCH_H

#include <stdint.h>

#include "bas/vlanlua_bas_vidseg.h"
#include "vlanlua_db.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VLANLUA_QINQ_KEYNAME_LEN  64

/* One QinQ match record: the script's request, the source of an insert and one record of a
 * query that selects the fields as vlanLua_SetQinQMatchField does. */
typedef struct __attribute__((packed)) {
    uint32_t uiAttr1;           /* field 1 */
    uint32_t uiIfIndex;         /* field 2 */
    uint32_t uiSegIndex;        /* field 3 */
    uint16_t usPeBgn;           /* field 4 */
    uint16_t usPeEnd;           /* field 5 */
    uint16_t usCeBgn;           /* field 6 */
    uint16_t usCeEnd;           /* field 7 */
    uint32_t uiVrId;            /* field 9 */
    uint32_t uiMainIfIndex;     /* field 10 */
    uint8_t ucGroupId;          /* field 8 */
    uint32_t uiUpId;            /* field 11 */
    char szKeyName[VLANLUA_QINQ_KEYNAME_LEN];   /* field 12, not terminated when full */
} VLANLUA_QINQMATCH_S;

void vlanLua_SetQinQMatchField(VLANLUA_RECORDSET_S *pstRs);
uint32_t vlanLua_QinQRecordCnt(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMATCH_S *pstRec, uint32_t *puiCount);
uint32_t vlanLua_QinQReadIfSegs(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMATCH_S *pstNew, VLANLUA_SEGLINK_S *pstList,
                                uint32_t *puiAdjCount);
uint32_t vlanLua_QinQInsertSegs(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMATCH_S *pstRec);
uint32_t vlanLua_QinQDeleteSegs(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint32_t uiSegIndex);
uint32_t vlanLua_QinQAddQSegTo(const VLANLUA_QINQMATCH_S *pstRec, uint32_t uiState, VLANLUA_SEGNODE_S *pstNode);

#ifdef __cplusplus
}
static_assert(sizeof(VLANLUA_QINQMATCH_S) == 97, "QinQ match record layout");
static_assert(__builtin_offsetof(VLANLUA_QINQMATCH_S, usPeBgn) == 12, "QinQ match record layout");
static_assert(__builtin_offsetof(VLANLUA_QINQMATCH_S, uiVrId) == 20, "QinQ match record layout");
static_assert(__builtin_offsetof(VLANLUA_QINQMATCH_S, ucGroupId) == 28, "QinQ match record layout");
static_assert(__builtin_offsetof(VLANLUA_QINQMATCH_S, uiUpId) == 29, "QinQ match record layout");
static_assert(__builtin_offsetof(VLANLUA_QINQMATCH_S, szKeyName) == 33, "QinQ match record layout");
#endif
#endif
