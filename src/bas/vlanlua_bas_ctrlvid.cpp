/* Reads and writes of control-VLAN bitmap records. Every write passes flag 0 and its fields in
 * the table's order: insert 1,2,3,4; update 1,2,3,5; delete 1,2. Uses only the platform's names. */
#include "bas/vlanlua_bas_ctrlvid.h"

#include "bas/vlanlua_bas_bitmap.h"
#include "bas/vlanlua_bas_query.h"
#include "sec_bound.h"

namespace {

using Ctrl = VlanLuaTbl::CTRL_VID_BITMAP;

/* One more than the bitmap: the select asks for the stored field with a byte to spare. */
constexpr uint16_t kSelectWidth = VLANLUA_BITMAP_LEN + 1;

/* The first fields of every write: the key and slice that find the record. */
void AddKey(VlanLuaWriteList<Ctrl> &list, const uint32_t *puiKey, const uint32_t *puiSlice)
{
    list.Add<Ctrl::ctrlKey>(puiKey);
    list.Add<Ctrl::slice>(puiSlice);
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
    VlanLuaQuery<Ctrl> query(pstCtx->pObj);
    if (!query.Made()) {
        return 1;
    }
    query.SelectWidth<Ctrl::bitmap>(kSelectWidth);
    query.Where<Ctrl::ctrlKey>(VLANLUA_OP_EQ, uiKey);
    query.Where<Ctrl::slice>(VLANLUA_OP_EQ, uiSlice);
    uint32_t uiRet = query.Query(1);
    return CopyQueriedBitMap(query.Get(), uiRet, pucBitMap);
}

extern "C" uint32_t vlanLua_SetCtrlVidBitmap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice,
                                             const uint8_t *pucBitMap)
{
    if (!CtxUsable(pstCtx) || pucBitMap == nullptr) {
        return 1;
    }
    uint8_t ucFull = vlanLua_IsBitMapFull(pucBitMap) == 0 ? 1 : 0;
    VlanLuaWriteList<Ctrl> list;
    AddKey(list, &uiKey, &uiSlice);
    list.AddBytes<Ctrl::bitmap>(pucBitMap);
    list.Add<Ctrl::full>(&ucFull);
    return list.Set(pstCtx->pObj, 0);
}

extern "C" uint32_t vlanLua_InsertCtrlVidBitmap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice,
                                                uint32_t uiVrId, const uint8_t *pucBitMap)
{
    if (!CtxUsable(pstCtx) || pucBitMap == nullptr) {
        return 1;
    }
    VlanLuaWriteList<Ctrl> list;
    AddKey(list, &uiKey, &uiSlice);
    list.AddBytes<Ctrl::bitmap>(pucBitMap);
    list.Add<Ctrl::vrId>(&uiVrId);
    return list.Insert(pstCtx->pObj, 0);
}

extern "C" uint32_t vlanLua_DelCtrlVidBitmap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice)
{
    if (!CtxUsable(pstCtx)) {
        return 1;
    }
    VlanLuaWriteList<Ctrl> list;
    AddKey(list, &uiKey, &uiSlice);
    return list.Delete(pstCtx->pObj, 0);
}
