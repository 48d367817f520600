/* Segment indexes: the database hands out the number, the module records it in SEG_INDEX with
 * the VR ID it was taken for. Records of SEG_INDEX are never deleted here. Uses only the
 * platform's names. */
#include "bas/vlanlua_bas_segindex.h"

#include "ecm_capi.h"

static_assert(sizeof(VLANLUA_FIELDVAL_S) == sizeof(ECM_FIELDVAL_S), "field value lists go to the database as is");

extern "C" uint32_t VlanLua_AllocSegIndex(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint32_t uiVrId,
                                          uint32_t *puiSegIndex)
{
    (void)uiIfIndex;
    if (pstCtx == nullptr || pstCtx->pObj == nullptr || puiSegIndex == nullptr) {
        return 1;
    }
    if (ECM_CAPI_ApplyIndex(pstCtx->pObj, VLANLUA_TBL_SEG_INDEX, 1, puiSegIndex) != 0) {
        *puiSegIndex = 0;
        return 1;
    }
    const VLANLUA_FIELDVAL_S astFields[] = {
        {VLANLUA_TYPE_U32, 1, sizeof(uint32_t), puiSegIndex},
        {VLANLUA_TYPE_VRID, 2, sizeof(uint32_t), &uiVrId},
    };
    return ECM_CAPI_InsertRecord(pstCtx->pObj, VLANLUA_TBL_SEG_INDEX,
                                 reinterpret_cast<const ECM_FIELDVAL_S *>(astFields), 2, 0);
}
