/* Exchange of VLAN bitmaps with script tables: a table of 1..512 byte values at stack
 * positions 1 (and 2) read into 512-byte bitmaps. Uses only the platform's names. */
#ifndef VLANLUA_API_BITMAP_H
#define VLANLUA_API_BITMAP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Table at position 1 into the bitmap's first n bytes (low 8 bits of each element); n into
 * *puiNum. 1 when the state is null or n lies outside 1..512. */
uint32_t VlanLua_Get1BitMap(void *pState, uint8_t *pucBitMap, uint32_t *puiNum);
/* Tables at positions 1 and 2 into a and b; *puiNum is the first table's count. */
uint32_t VlanLua_Get2BitMap(void *pState, uint8_t *pucBitMapA, uint8_t *pucBitMapB, uint32_t *puiNum);

#ifdef __cplusplus
}
#endif
#endif
