/* Segment indexes: the database hands out the number, the module records it in SEG_INDEX with
 * the VR ID it was taken for. Records of SEG_INDEX are never deleted here. Uses only the
 * platform's names. */
#include "bas/vlanlua_bas_segindex.h"

#include "bas/vlanlua_bas_query.h"

using SegIndex = VlanLuaTbl::SEG_INDEX;

static_assert(sizeof(VLANLUA_FIELDVAL_S) == sizeof(ECM_FIELDVAL_S), "field value lists go to the database as is");

extern "C" uint32_t VlanLua_AllocSegIndex(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint32_t uiVrId,
                                          uint32_t *puiSegIndex)
{
    (void)uiIfIndex;
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || puiSegIndex == nullptr) {
        return 1;
    }
    if (ECM_CAPI_ApplyIndex(pstCtx->pObj, SegIndex::uiId, 1, puiSegIndex) != 0) {
        *puiSegIndex = 0;
        return 1;
    }
    VlanLuaWriteList<SegIndex> list;
    list.Add<SegIndex::segIndex>(puiSegIndex);
    list.Add<SegIndex::vrId>(&uiVrId);
    return list.Insert(pstCtx->pObj, 0);
}
