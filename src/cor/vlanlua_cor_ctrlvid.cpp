/* Marking and moving control IDs in the control-VLAN bitmaps. Failed slice reads count as a
 * missing record; write results are not reported once issued. Uses only the platform's names. */
#include "cor/vlanlua_cor_ctrlvid.h"

#include <array>

#include "bas/vlanlua_bas_bitmap.h"
#include "bas/vlanlua_bas_ctrlvid.h"

namespace {

using BitMap = std::array<uint8_t, VLANLUA_BITMAP_LEN>;

constexpr uint32_t kSliceSize = VLANLUA_VLAN_MAX;     /* control IDs per slice */
constexpr uint32_t kReservedSlice = 1;

struct CtrlSlot {
    uint32_t uiSlice;
    uint32_t uiVlanId;      /* 1..4094 */
};

/* Control ID c >= 1 into its slice and VLAN ID. */
CtrlSlot MapCtrlId(uint32_t uiCtrlId)
{
    uint32_t uiQuot = uiCtrlId / kSliceSize;
    uint32_t uiRem = uiCtrlId % kSliceSize;
    if (uiRem == 0) {
        return CtrlSlot{uiQuot - 1, kSliceSize};
    }
    return CtrlSlot{uiQuot, uiRem};
}

uint32_t ReadSlice(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice, BitMap &aucBitMap)
{
    return vlanLua_GetBitmapByIndex(pstCtx, uiKey, uiSlice, aucBitMap.data(), VLANLUA_BITMAP_LEN);
}

/* A slice that had no record: only the new VLAN and the reserved entries. */
uint32_t CreateSlice(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, CtrlSlot stSlot, uint32_t uiVrId)
{
    BitMap aucBitMap{};
    (void)VlanLua_AddVlanBitMap(aucBitMap.data(), stSlot.uiVlanId);
    VLAN_API_AddReserveCtrlVid(aucBitMap.data(), stSlot.uiSlice);
    (void)vlanLua_InsertCtrlVidBitmap(pstCtx, uiKey, stSlot.uiSlice, uiVrId, aucBitMap.data());
    return 0;
}

/* Sets the VLAN in a slice read from the database and writes it back. */
uint32_t AddToStoredSlice(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, CtrlSlot stSlot, BitMap &aucBitMap)
{
    if (VlanLua_AddVlanBitMap(aucBitMap.data(), stSlot.uiVlanId) != 0) {
        return 1;
    }
    (void)vlanLua_SetCtrlVidBitmap(pstCtx, uiKey, stSlot.uiSlice, aucBitMap.data());
    return 0;
}

}  // namespace

extern "C" void VLAN_API_AddReserveCtrlVid(uint8_t *pucBitMap, uint32_t uiSlice)
{
    if (uiSlice == kReservedSlice) {
        (void)VlanLua_AddVlanBitMap(pucBitMap, 1);
        (void)VlanLua_AddVlanBitMap(pucBitMap, 2);
    }
}

extern "C" uint32_t VLAN_API_CrtCtrlVidBitMap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiCtrlId,
                                              uint32_t uiVrId)
{
    CtrlSlot stSlot = MapCtrlId(uiCtrlId);
    BitMap aucBitMap{};
    if (ReadSlice(pstCtx, uiKey, stSlot.uiSlice, aucBitMap) != 0) {
        return CreateSlice(pstCtx, uiKey, stSlot, uiVrId);
    }
    if (VlanLua_AddVlanBitMap(aucBitMap.data(), stSlot.uiVlanId) != 0) {
        return 1;
    }
    VLAN_API_AddReserveCtrlVid(aucBitMap.data(), stSlot.uiSlice);
    (void)vlanLua_SetCtrlVidBitmap(pstCtx, uiKey, stSlot.uiSlice, aucBitMap.data());
    return 0;
}

extern "C" uint32_t DeleteCtrlVidFromCtrlBitmap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice,
                                                uint32_t uiVlanId)
{
    BitMap aucBitMap{};
    if (ReadSlice(pstCtx, uiKey, uiSlice, aucBitMap) != 0) {
        return 0;
    }
    if (VlanLua_DelVlanBitMap(aucBitMap.data(), uiVlanId) != 0) {
        return 1;
    }
    if (vlanLua_IsBitMapAllZero(aucBitMap.data()) != 0) {
        (void)vlanLua_SetCtrlVidBitmap(pstCtx, uiKey, uiSlice, aucBitMap.data());
    } else {
        (void)vlanLua_DelCtrlVidBitmap(pstCtx, uiKey, uiSlice);
    }
    return 0;
}

extern "C" uint32_t VLAN_API_UpdataCtrlVidBitMap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiNewCtrlId,
                                                 uint32_t uiOldCtrlId, uint32_t uiVrId)
{
    CtrlSlot stNew = MapCtrlId(uiNewCtrlId);
    CtrlSlot stOld = MapCtrlId(uiOldCtrlId);
    BitMap aucBitMap{};
    if (stOld.uiSlice != stNew.uiSlice) {
        (void)DeleteCtrlVidFromCtrlBitmap(pstCtx, uiKey, stOld.uiSlice, stOld.uiVlanId);
        if (ReadSlice(pstCtx, uiKey, stNew.uiSlice, aucBitMap) == 0) {
            return AddToStoredSlice(pstCtx, uiKey, stNew, aucBitMap);
        }
        return CreateSlice(pstCtx, uiKey, stNew, uiVrId);
    }
    if (ReadSlice(pstCtx, uiKey, stNew.uiSlice, aucBitMap) == 0) {
        (void)VlanLua_DelVlanBitMap(aucBitMap.data(), stOld.uiVlanId);
        return AddToStoredSlice(pstCtx, uiKey, stNew, aucBitMap);
    }
    return CreateSlice(pstCtx, uiKey, stNew, uiVrId);
}
