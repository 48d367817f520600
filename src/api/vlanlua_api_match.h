/* Argument readers of the match-rule script functions, exported beside the script functions
 * themselves. Uses only the platform's names. */
#ifndef VLANLUA_API_MATCH_H
#define VLANLUA_API_MATCH_H

#include <stdint.h>

#include "cor/vlanlua_cor_match.h"
#include "cor/vlanlua_cor_qinq_mib.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Elements 1 to 9 of the table at position 1 into the QinQ match record. */
uint32_t VLANLUA_Spt_QinQMatchMergeParse(void *pState, VLANLUA_QINQMATCH_S *pstRec);
/* Elements 10 (UP ID) and 11 (key text) of the table at position 1. */
uint32_t VLANLUA_Spt_QinQMatchMergeParseUpId(void *pState, VLANLUA_QINQMATCH_S *pstRec);
/* Exactly four values: three numbers and a boolean; 0 or 1. */
uint32_t vlanLua_UpdataQinQIfSpecParse(void *pState, VLANLUA_QINQIFSPEC_S *pstReq);
/* Exactly five numbers, the interface index not all ones; 0 or 1. */
uint32_t VLANLUA_Spt_GetNextQinQMibParse(void *pState, VLANLUA_QINQMIBKEY_S *pstReq);

#ifdef __cplusplus
}
#endif
#endif
