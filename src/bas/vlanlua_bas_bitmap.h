/* The 4096-bit VLAN bitmap: single-VLAN operations, union, intersection, free search and the
 * full and empty tests. Works on caller-owned 512-byte arrays and allocates nothing. */
#ifndef VLANLUA_BAS_BITMAP_H
#define VLANLUA_BAS_BITMAP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Byte index and bit mask of a VLAN ID (taken modulo 65536); 1 when it exceeds 4094. */
uint32_t VlanLua_GetMaskAndIndex(uint32_t uiVlanId, uint32_t *puiMask, uint32_t *puiIndex);
/* 1 when the ID's bit is set; 0 when clear or the ID is invalid. */
uint32_t VlanLua_IsVlanInBitMap(const uint8_t *pucBitMap, uint32_t uiVlanId);
/* 0, or 1 with the bitmap unchanged when the ID is invalid. */
uint32_t VlanLua_AddVlanBitMap(uint8_t *pucBitMap, uint32_t uiVlanId);
uint32_t VlanLua_DelVlanBitMap(uint8_t *pucBitMap, uint32_t uiVlanId);
/* out[i] = a[i] | b[i] (resp. &) for i < n; 1 when n is outside 1..512 or a pointer is null. */
uint32_t VlanLua_Merg2BitMap(uint32_t uiByteNum, const uint8_t *pucA, const uint8_t *pucB, uint8_t *pucOut);
uint32_t VlanLua_And2BitMap(uint32_t uiByteNum, const uint8_t *pucA, const uint8_t *pucB, uint8_t *pucOut);
/* The lowest clear ID of 1..4094 into *puiVlanId (0 first); 1 when none is free. */
uint32_t VlanLua_GetFirstFreeValue(uint32_t uiByteNum, const uint8_t *pucBitMap, uint32_t *puiVlanId);
/* Answer like result codes: 0 when the bitmap holds exactly 1..4094 (resp. is all zero). */
uint32_t vlanLua_IsBitMapFull(const uint8_t *pucBitMap);
uint32_t vlanLua_IsBitMapAllZero(const uint8_t *pucBitMap);

#ifdef __cplusplus
}
#endif
#endif
