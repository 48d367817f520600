/* Script functions over VLAN bitmaps in script form: union, intersection and the first free
 * VLAN ID. They use no database and return no message. Uses only the platform's names. */
#include "api/vlanlua_api_bitmap.h"

#include <array>

#include "api/vlanlua_api.h"
#include "api/vlanlua_api_frame.h"
#include "bas/vlanlua_bas_bitmap.h"

namespace {

using BitMapFn = uint32_t (*)(uint32_t, const uint8_t *, const uint8_t *, uint8_t *);

/* Reads the table at iPos into the bitmap; 1 when its element count is outside 1..512. */
uint32_t ReadBitMapTable(void *pState, int32_t iPos, uint8_t *pucBitMap, uint32_t *puiNum)
{
    uint32_t uiNum = SYSDT_SPTI_ObjLen(pState, iPos);
    if (uiNum < 1 || uiNum > VLANLUA_BITMAP_LEN) {
        return 1;
    }
    std::array<uint32_t, VLANLUA_BITMAP_LEN> auiElems;
    (void)VlanLua_ReadTable(pState, iPos, auiElems);
    for (uint32_t i = 0; i < uiNum; i++) {
        pucBitMap[i] = static_cast<uint8_t>(auiElems[i]);
    }
    *puiNum = uiNum;
    return 0;
}

/* Pushes 0 and the first n bytes of the bitmap as a script table; returns 2. */
uint32_t PushBitMapResult(void *pState, const uint8_t *pucBitMap, uint32_t uiNum)
{
    SYSDT_SPTI_PushUInt(pState, 0);
    SYSDT_SPTI_CreateTable(pState, VLANLUA_BITMAP_LEN, 0);
    for (uint32_t i = 1; i <= uiNum; i++) {
        VlanLua_SetArrayUInt(pState, i, pucBitMap[i - 1]);
    }
    return 2;
}

/* The shape shared by the union and the intersection. */
uint32_t CombineScriptTables(void *pState, BitMapFn pfCombine)
{
    std::array<uint8_t, VLANLUA_BITMAP_LEN> aucA{};
    std::array<uint8_t, VLANLUA_BITMAP_LEN> aucB{};
    std::array<uint8_t, VLANLUA_BITMAP_LEN> aucOut{};
    uint32_t uiNum = 0;
    if (VlanLua_Get2BitMap(pState, aucA.data(), aucB.data(), &uiNum) != 0 ||
        pfCombine(uiNum, aucA.data(), aucB.data(), aucOut.data()) != 0) {
        SYSDT_SPTI_PushUInt(pState, 1);
        return 1;
    }
    return PushBitMapResult(pState, aucOut.data(), uiNum);
}

}  // namespace

/* ---- reading script tables ---- */

extern "C" uint32_t VlanLua_Get1BitMap(void *pState, uint8_t *pucBitMap, uint32_t *puiNum)
{
    if (pState == nullptr) {
        return 1;
    }
    return ReadBitMapTable(pState, 1, pucBitMap, puiNum);
}

extern "C" uint32_t VlanLua_Get2BitMap(void *pState, uint8_t *pucBitMapA, uint8_t *pucBitMapB, uint32_t *puiNum)
{
    uint32_t uiNumA = 0;
    uint32_t uiNumB = 0;
    if (pState == nullptr || ReadBitMapTable(pState, 1, pucBitMapA, &uiNumA) != 0 ||
        ReadBitMapTable(pState, 2, pucBitMapB, &uiNumB) != 0) {
        return 1;
    }
    *puiNum = uiNumA;                                 /* the result has the first table's length */
    return 0;
}

/* ---- script functions ---- */

extern "C" uint32_t VLANLUA_Spt_Merg2BitMap(void *pState)
{
    return CombineScriptTables(pState, VlanLua_Merg2BitMap);
}

extern "C" uint32_t VLANLUA_Spt_And2BitMap(void *pState)
{
    return CombineScriptTables(pState, VlanLua_And2BitMap);
}

extern "C" uint32_t VLANLUA_Spt_GetFirstFreeValue(void *pState)
{
    std::array<uint8_t, VLANLUA_BITMAP_LEN> aucBitMap{};
    uint32_t uiNum = 0;
    uint32_t uiVlanId = 0;
    if (VlanLua_Get1BitMap(pState, aucBitMap.data(), &uiNum) != 0 ||
        VlanLua_GetFirstFreeValue(VLANLUA_BITMAP_LEN, aucBitMap.data(), &uiVlanId) != 0) {
        SYSDT_SPTI_PushUInt(pState, 1);
        return 1;
    }
    SYSDT_SPTI_PushUInt(pState, 0);
    SYSDT_SPTI_PushUInt(pState, uiVlanId);
    return 2;
}
