/* VLAN ID segments and PE/CE rectangles of match rules: equality, adjacency, widening and the
 * iterative merge of a new rectangle with the stored ones. No database access here. */
#ifndef VLANLUA_BAS_VIDSEG_H
#define VLANLUA_BAS_VIDSEG_H

#include <stdint.h>

#include "vlanlua_pub.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One VLAN ID range, inclusive; stored in this exact form inside match records. */
typedef struct {
    uint16_t usBgn;
    uint16_t usEnd;
} VLANLUA_VIDSEG_S;

/* Links of a circular doubly linked segment list; a list head is a bare pair. */
typedef struct VLANLUA_SEGLINK {
    struct VLANLUA_SEGLINK *pstNext;
    struct VLANLUA_SEGLINK *pstPrev;
} VLANLUA_SEGLINK_S;

/* One rectangle in a segment list: a stored one, an absorbed copy or the merge result. */
typedef struct {
    VLANLUA_SEGLINK_S stLink;
    uint32_t uiState;
    uint32_t uiDbOp;
    VLANLUA_VIDSEG_S stPeSeg;
    VLANLUA_VIDSEG_S stCeSeg;
    uint32_t uiSegIndex;
} VLANLUA_SEGNODE_S;

#define VIDSEG_STATE_OLD       1u   /* copy of an absorbed stored segment, to be deleted */
#define VIDSEG_STATE_ABSORBED  2u   /* stored segment already absorbed by the working rectangle */
#define VIDSEG_STATE_ORIGIN    3u   /* stored segment as read, not yet absorbed */
#define VIDSEG_STATE_MERGED    4u   /* the merged rectangle, to be stored */

#define VIDSEG_OP_ADD  0u
#define VIDSEG_OP_DEL  2u

/* ---- list handling ---- */
void vlanLua_SegListInit(VLANLUA_SEGLINK_S *pstHead);
uint32_t vlanLua_SegListIsEmpty(const VLANLUA_SEGLINK_S *pstHead);
void vlanLua_SegListAppend(VLANLUA_SEGLINK_S *pstHead, VLANLUA_SEGNODE_S *pstNode);

/* ---- geometry ---- */
uint32_t vlanLua_VidSegGetSegCopy(const VLANLUA_VIDSEG_S *pstSrc, VLANLUA_VIDSEG_S *pstDst);
uint32_t vlanLua_VidSegIsEqual(const VLANLUA_VIDSEG_S *pstA, const VLANLUA_VIDSEG_S *pstB);
uint32_t vlanLua_VidSegIsAdjacent(const VLANLUA_VIDSEG_S *pstPe1, const VLANLUA_VIDSEG_S *pstCe1,
                                  const VLANLUA_VIDSEG_S *pstPe2, const VLANLUA_VIDSEG_S *pstCe2);
uint32_t vlanLua_VidSegMergePeCeTo(VLANLUA_VIDSEG_S *pstDstPe, VLANLUA_VIDSEG_S *pstDstCe,
                                   const VLANLUA_VIDSEG_S *pstSrcPe, const VLANLUA_VIDSEG_S *pstSrcCe);

/* ---- merge ---- */
uint32_t vlanLua_MergePeCeIterately(VLANLUA_CTX_S *pstCtx, const VLANLUA_VIDSEG_S *pstNewPe,
                                    const VLANLUA_VIDSEG_S *pstNewCe, VLANLUA_SEGLINK_S *pstStored,
                                    VLANLUA_SEGLINK_S *pstOut, uint32_t *puiCount);
uint32_t vlanLua_SegsDestroy(VLANLUA_CTX_S *pstCtx, VLANLUA_SEGLINK_S *pstHead);

#ifdef __cplusplus
}
static_assert(sizeof(VLANLUA_VIDSEG_S) == 4, "segment layout");
static_assert(__builtin_offsetof(VLANLUA_SEGNODE_S, uiState) == 2 * sizeof(void *), "node layout");
static_assert(__builtin_offsetof(VLANLUA_SEGNODE_S, stPeSeg) == 2 * sizeof(void *) + 8, "node layout");
static_assert(__builtin_offsetof(VLANLUA_SEGNODE_S, uiSegIndex) == 2 * sizeof(void *) + 16, "node layout");
#endif
#endif
