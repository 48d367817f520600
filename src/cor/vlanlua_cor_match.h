/* Match-rule merges behind the script functions: the Dot1Q range merge, the QinQ rectangle merge
 * and the per-main-interface QinQ pair counter. Uses only the platform's names. */
#ifndef VLANLUA_COR_MATCH_H
#define VLANLUA_COR_MATCH_H

#include <stdint.h>

#include "bas/vlanlua_bas_qinqmatch.h"
#include "vlanlua_pub.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Dot1Q match segments (DOT1Q_MATCH_SEG, keyed by fields 2 and 3) ---- */

typedef struct {
    uint32_t uiIfIndex;     /* field 2 */
    uint32_t uiAttr1;       /* field 1 */
    uint32_t uiSegIndex;    /* field 3 */
    uint16_t usBgn;         /* field 4 */
    uint16_t usEnd;         /* field 5 */
    uint32_t uiVrId;        /* field 7 */
    uint32_t uiAttr8;       /* field 8 */
    uint32_t uiAttr9;       /* field 9, always written as 0 */
    uint8_t ucGroupId;      /* field 6: ranges fuse only within one interface and group */
    uint8_t ucAttr10;       /* field 10 */
} VLANLUA_DOT1QMATCH_S;

uint32_t vlanLua_Dot1QReadSegLeft(VLANLUA_CTX_S *pstCtx, const VLANLUA_DOT1QMATCH_S *pstNew,
                                  VLANLUA_DOT1QMATCH_S *pstOut);
uint32_t vlanLua_Dot1QReadSegRight(VLANLUA_CTX_S *pstCtx, const VLANLUA_DOT1QMATCH_S *pstNew,
                                   VLANLUA_DOT1QMATCH_S *pstOut);
uint32_t vlanLua_Dot1QInsertSeg(VLANLUA_CTX_S *pstCtx, const VLANLUA_DOT1QMATCH_S *pstRec);
uint32_t vlanLua_Dot1QDeleteSeg(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint32_t uiSegIndex);
uint32_t VLAN_API_Dot1QMatchMerge(VLANLUA_CTX_S *pstCtx, const VLANLUA_DOT1QMATCH_S *pstNew);

/* ---- QinQ match merge ---- */

uint32_t vlanLua_UpdateSequence(VLANLUA_CTX_S *pstCtx, VLANLUA_QINQMATCH_S *pstNew, VLANLUA_SEGLINK_S *pstOut,
                                uint32_t *puiNodeCount);
uint32_t VLAN_API_QinQMatchMerge(VLANLUA_CTX_S *pstCtx, VLANLUA_QINQMATCH_S *pstNew, uint32_t *puiNodeCount);

/* ---- QinQ pair counter per main interface (QINQ_IF_SPEC, keyed by fields 1 and 2) ---- */

typedef struct {
    uint32_t uiMainIfIndex;
    uint32_t uiQinQNum;     /* in: the delta; out: the new counter */
    uint32_t uiVrId;
    uint32_t uiIsAdd;       /* 1 adds the delta, anything else subtracts it */
} VLANLUA_QINQIFSPEC_S;

uint32_t vlanLua_GetQinQTotalNumByMainIf(VLANLUA_CTX_S *pstCtx, uint32_t uiVrId, uint32_t uiMainIfIndex,
                                         uint32_t *puiTotal);
uint32_t vlanLua_GetQinQMatchCntByMainIf(VLANLUA_CTX_S *pstCtx, uint32_t uiMainIfIndex, uint32_t uiVrId,
                                         uint32_t *puiCount);
uint32_t vlanLua_GetQinQNumsByMainIf(VLANLUA_CTX_S *pstCtx, uint32_t uiVrId, uint32_t uiMainIfIndex,
                                     uint32_t *puiTotal);
void vlanLua_UpDataQinQNum(VLANLUA_QINQIFSPEC_S *pstReq, uint32_t uiStored);
uint32_t vlanLua_UpDataDimByMainIf(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQIFSPEC_S *pstReq, uint32_t uiExists);
uint32_t vlanLua_CreatorSetQinQIfSpecRs(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQIFSPEC_S *pstReq,
                                        uint32_t uiExists);
uint32_t vlanLua_DeleteQinQIfSpecRs(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQIFSPEC_S *pstReq);
uint32_t vlanLua_UpdataQinQIfSpec(VLANLUA_LOG_S *pstLog, void *pObj, VLANLUA_QINQIFSPEC_S *pstReq);

#ifdef __cplusplus
}
static_assert(sizeof(VLANLUA_DOT1QMATCH_S) == 32, "Dot1Q match record layout");
static_assert(__builtin_offsetof(VLANLUA_DOT1QMATCH_S, usBgn) == 12, "Dot1Q match record layout");
static_assert(__builtin_offsetof(VLANLUA_DOT1QMATCH_S, ucGroupId) == 28, "Dot1Q match record layout");
static_assert(sizeof(VLANLUA_QINQIFSPEC_S) == 16, "QinQ counter request layout");
#endif
#endif
