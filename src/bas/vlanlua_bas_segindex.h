/* The one allocator of segment indexes, shared by the match merges and the user-VLAN QinQ
 * segments. Uses only the platform's names. */
#ifndef VLANLUA_BAS_SEGINDEX_H
#define VLANLUA_BAS_SEGINDEX_H

#include <stdint.h>

#include "vlanlua_pub.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Takes one new index of SEG_INDEX into *puiSegIndex and records it with its VR ID.
 * The interface index is not used. On a failed hand-out *puiSegIndex is 0 and the result 1;
 * otherwise the result is the record insert's (the index stays set when the insert fails). */
uint32_t VlanLua_AllocSegIndex(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint32_t uiVrId, uint32_t *puiSegIndex);

#ifdef __cplusplus
}
#endif
#endif
