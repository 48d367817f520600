/* The VLAN bitmap. VLAN v is bit (v mod 8) of byte (v div 8); read as a little-endian word that
 * is bit (v mod 64) of 64-bit word (v div 64), so the set operations and tests run on whole
 * words and only the edges (VLAN 0, VLAN 4095, a tail shorter than a word) need bytes. Union,
 * intersection and the empty test do not care how a word's bytes are ordered and take them as
 * they lie; the free search and the full test, which care where a bit is, read little-endian
 * words. Uses only the platform's names. */
#include "bas/vlanlua_bas_bitmap.h"

#include <bit>
#include <cstring>

#include "kel_order.h"
#include "vlanlua_pub.h"

namespace {

constexpr uint32_t kWordNum = VLANLUA_BITMAP_LEN / sizeof(uint64_t);
constexpr uint64_t kAllOnes = ~0ULL;
constexpr uint64_t kVlan0Bit = 1ULL;                  /* VLAN 0, lowest bit of word 0 */
constexpr uint64_t kVlan4095Bit = 1ULL << 63;         /* VLAN 4095, highest bit of word 63 */

/* A word as its bytes lie in memory: for operations that treat every bit alike. */
uint64_t LoadWord(const uint8_t *pucBitMap, uint32_t uiWord)
{
    uint64_t ulWord;
    std::memcpy(&ulWord, pucBitMap + uiWord * sizeof(uint64_t), sizeof(ulWord));
    return ulWord;
}

/* A word whose bit k is VLAN 64 * uiWord + k on either byte order. */
uint64_t LoadVlanWord(const uint8_t *pucBitMap, uint32_t uiWord)
{
    return KEL_GetLe64(pucBitMap + uiWord * sizeof(uint64_t));
}

void StoreWord(uint8_t *pucBitMap, uint32_t uiWord, uint64_t ulWord)
{
    std::memcpy(pucBitMap + uiWord * sizeof(uint64_t), &ulWord, sizeof(ulWord));
}

bool ByteCountValid(uint32_t uiByteNum)
{
    return uiByteNum >= 1 && uiByteNum <= VLANLUA_BITMAP_LEN;
}

/* Applies op to the first n bytes, word by word and then the bytes of the tail. */
template <typename Op>
uint32_t CombineBitMaps(uint32_t uiByteNum, const uint8_t *pucA, const uint8_t *pucB, uint8_t *pucOut, Op op)
{
    if (!ByteCountValid(uiByteNum) || pucA == nullptr || pucB == nullptr || pucOut == nullptr) {
        return 1;
    }
    uint32_t uiWords = uiByteNum / sizeof(uint64_t);
    for (uint32_t w = 0; w < uiWords; w++) {
        StoreWord(pucOut, w, op(LoadWord(pucA, w), LoadWord(pucB, w)));
    }
    for (uint32_t i = uiWords * sizeof(uint64_t); i < uiByteNum; i++) {
        pucOut[i] = static_cast<uint8_t>(op(pucA[i], pucB[i]));
    }
    return 0;
}

}  // namespace

/* ---- single VLAN ---- */

extern "C" uint32_t VlanLua_GetMaskAndIndex(uint32_t uiVlanId, uint32_t *puiMask, uint32_t *puiIndex)
{
    uint32_t uiId = uiVlanId & 0xFFFFu;
    if (uiId > VLANLUA_VLAN_MAX) {
        return 1;
    }
    *puiIndex = uiId >> 3;
    *puiMask = 1u << (uiId & 7u);
    return 0;
}

extern "C" uint32_t VlanLua_IsVlanInBitMap(const uint8_t *pucBitMap, uint32_t uiVlanId)
{
    uint32_t uiMask = 0;
    uint32_t uiIndex = 0;
    if (VlanLua_GetMaskAndIndex(uiVlanId, &uiMask, &uiIndex) != 0) {
        return 0;
    }
    return (pucBitMap[uiIndex] & uiMask) != 0 ? 1 : 0;
}

extern "C" uint32_t VlanLua_AddVlanBitMap(uint8_t *pucBitMap, uint32_t uiVlanId)
{
    uint32_t uiMask = 0;
    uint32_t uiIndex = 0;
    if (VlanLua_GetMaskAndIndex(uiVlanId, &uiMask, &uiIndex) != 0) {
        return 1;
    }
    pucBitMap[uiIndex] = static_cast<uint8_t>(pucBitMap[uiIndex] | uiMask);
    return 0;
}

extern "C" uint32_t VlanLua_DelVlanBitMap(uint8_t *pucBitMap, uint32_t uiVlanId)
{
    uint32_t uiMask = 0;
    uint32_t uiIndex = 0;
    if (VlanLua_GetMaskAndIndex(uiVlanId, &uiMask, &uiIndex) != 0) {
        return 1;
    }
    pucBitMap[uiIndex] = static_cast<uint8_t>(pucBitMap[uiIndex] & ~uiMask);
    return 0;
}

/* ---- two bitmaps ---- */

extern "C" uint32_t VlanLua_Merg2BitMap(uint32_t uiByteNum, const uint8_t *pucA, const uint8_t *pucB,
                                        uint8_t *pucOut)
{
    return CombineBitMaps(uiByteNum, pucA, pucB, pucOut, [](uint64_t x, uint64_t y) { return x | y; });
}

extern "C" uint32_t VlanLua_And2BitMap(uint32_t uiByteNum, const uint8_t *pucA, const uint8_t *pucB,
                                       uint8_t *pucOut)
{
    return CombineBitMaps(uiByteNum, pucA, pucB, pucOut, [](uint64_t x, uint64_t y) { return x & y; });
}

/* ---- search and whole-bitmap tests ---- */

extern "C" uint32_t VlanLua_GetFirstFreeValue(uint32_t uiByteNum, const uint8_t *pucBitMap, uint32_t *puiVlanId)
{
    (void)uiByteNum;                                  /* the search always covers the whole bitmap */
    if (pucBitMap == nullptr || puiVlanId == nullptr) {
        return 1;
    }
    *puiVlanId = 0;
    for (uint32_t w = 0; w < kWordNum; w++) {
        uint64_t ulUsed = LoadVlanWord(pucBitMap, w);
        if (w == 0) {
            ulUsed |= kVlan0Bit;                      /* VLAN 0 and 4095 are never handed out */
        }
        if (w == kWordNum - 1) {
            ulUsed |= kVlan4095Bit;
        }
        if (ulUsed != kAllOnes) {
            *puiVlanId = w * 64u + static_cast<uint32_t>(std::countr_one(ulUsed));
            return 0;
        }
    }
    return 1;
}

extern "C" uint32_t vlanLua_IsBitMapFull(const uint8_t *pucBitMap)
{
    if (LoadVlanWord(pucBitMap, 0) != (kAllOnes & ~kVlan0Bit) ||
        LoadVlanWord(pucBitMap, kWordNum - 1) != (kAllOnes & ~kVlan4095Bit)) {
        return 1;
    }
    for (uint32_t w = 1; w < kWordNum - 1; w++) {
        if (LoadWord(pucBitMap, w) != kAllOnes) {
            return 1;
        }
    }
    return 0;
}

extern "C" uint32_t vlanLua_IsBitMapAllZero(const uint8_t *pucBitMap)
{
    uint64_t ulAny = 0;
    for (uint32_t w = 0; w < kWordNum; w++) {
        ulAny |= LoadWord(pucBitMap, w);
    }
    return ulAny == 0 ? 0 : 1;
}
