/* Reads and writes of control-VLAN bitmap records. Every write passes flag 0 and its fields in
 * the table's order: insert 1,2,3,4; update 1,2,3,5; delete 1,2. Uses only the platform's names. */
#include "bas/vlanlua_bas_ctrlvid.h"

#include "bas/vlanlua_bas_bitmap.h"
#include "bas/vlanlua_bas_mem.h"
#include "sec_bound.h"
#include "vlanlua_db.h"

namespace {

/* One more than the bitmap: the select asks for the stored field with a byte to spare. */
constexpr uint16_t kSelectWidth = VLANLUA_BITMAP_LEN + 1;

const ECM_FIELDVAL_S *AsEcm(const VLANLUA_FIELDVAL_S *pstFields)
{
    return reinterpret_cast<const ECM_FIELDVAL_S *>(pstFields);
}

VLANLUA_FIELDVAL_S U32Field(uint16_t usField, const uint32_t *puiValue)
{
    return VLANLUA_FIELDVAL_S{VLANLUA_TYPE_U32, usField, sizeof(uint32_t), puiValue};
}

bool CtxUsable(const VLANLUA_CTX_S *pstCtx)
{
    return pstCtx != nullptr && pstCtx->pObj != nullptr;
}

/* Copies the record's bitmap out when the query delivered one; 0 on success. */
uint32_t CopyQueriedBitMap(const VLANLUA_RECORDSET_S *pstRs, uint32_t uiQueryRet, uint8_t *pucBitMap)
{
    const uint8_t *pucData = VLANLUA_RecordSet_GetDataBuff(pstRs);
    if (uiQueryRet != 0 || VLANLUA_RecordSet_GetDataNum(pstRs) == 0 || pucData == nullptr) {
        return 1;
    }
    return memcpy_s(pucBitMap, VLANLUA_BITMAP_LEN, pucData, VLANLUA_BITMAP_LEN) == 0 ? 0 : 1;
}

}  // namespace

extern "C" uint32_t vlanLua_GetBitmapByIndex(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice,
                                             uint8_t *pucBitMap, uint32_t uiSize)
{
    if (!CtxUsable(pstCtx) || uiSize != VLANLUA_BITMAP_LEN || pucBitMap == nullptr || pstCtx->pstLog == nullptr) {
        return 1;
    }
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_CTRL_VID_BITMAP));
    if (rs.Get() == nullptr) {
        return 1;
    }
    VLANLUA_RecordSet_SelectField(rs.Get(), VLANLUA_CTRLVID_FLD_BITMAP, kSelectWidth);
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, VLANLUA_CTRLVID_FLD_KEY, &uiKey, sizeof(uiKey));
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, VLANLUA_CTRLVID_FLD_SLICE, &uiSlice, sizeof(uiSlice));
    uint32_t uiRet = VLANLUA_RecordSet_QueryFld(rs.Get(), 1);
    return CopyQueriedBitMap(rs.Get(), uiRet, pucBitMap);
}

extern "C" uint32_t vlanLua_SetCtrlVidBitmap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice,
                                             const uint8_t *pucBitMap)
{
    if (!CtxUsable(pstCtx) || pucBitMap == nullptr) {
        return 1;
    }
    uint8_t ucFull = vlanLua_IsBitMapFull(pucBitMap) == 0 ? 1 : 0;
    const VLANLUA_FIELDVAL_S astFields[] = {
        U32Field(VLANLUA_CTRLVID_FLD_KEY, &uiKey),
        U32Field(VLANLUA_CTRLVID_FLD_SLICE, &uiSlice),
        {VLANLUA_TYPE_BITMAP, VLANLUA_CTRLVID_FLD_BITMAP, VLANLUA_BITMAP_LEN, pucBitMap},
        {VLANLUA_TYPE_U8, VLANLUA_CTRLVID_FLD_FULL, sizeof(ucFull), &ucFull},
    };
    return ECM_CAPI_SetRecord(pstCtx->pObj, VLANLUA_TBL_CTRL_VID_BITMAP, AsEcm(astFields), 4, 0);
}

extern "C" uint32_t vlanLua_InsertCtrlVidBitmap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice,
                                                uint32_t uiVrId, const uint8_t *pucBitMap)
{
    if (!CtxUsable(pstCtx) || pucBitMap == nullptr) {
        return 1;
    }
    const VLANLUA_FIELDVAL_S astFields[] = {
        U32Field(VLANLUA_CTRLVID_FLD_KEY, &uiKey),
        U32Field(VLANLUA_CTRLVID_FLD_SLICE, &uiSlice),
        {VLANLUA_TYPE_BITMAP, VLANLUA_CTRLVID_FLD_BITMAP, VLANLUA_BITMAP_LEN, pucBitMap},
        {VLANLUA_TYPE_VRID, VLANLUA_CTRLVID_FLD_VRID, sizeof(uiVrId), &uiVrId},
    };
    return ECM_CAPI_InsertRecord(pstCtx->pObj, VLANLUA_TBL_CTRL_VID_BITMAP, AsEcm(astFields), 4, 0);
}

extern "C" uint32_t vlanLua_DelCtrlVidBitmap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice)
{
    if (!CtxUsable(pstCtx)) {
        return 1;
    }
    const VLANLUA_FIELDVAL_S astFields[] = {
        U32Field(VLANLUA_CTRLVID_FLD_KEY, &uiKey),
        U32Field(VLANLUA_CTRLVID_FLD_SLICE, &uiSlice),
    };
    return ECM_CAPI_DeleteRecord(pstCtx->pObj, VLANLUA_TBL_CTRL_VID_BITMAP, AsEcm(astFields), 2, 0);
}
