/* Control-VLAN bitmap records: one CTRL_VID_BITMAP record per (key, slice), read and written
 * whole. Uses only the platform's names. */
#ifndef VLANLUA_BAS_CTRLVID_H
#define VLANLUA_BAS_CTRLVID_H

#include <stdint.h>

#include "vlanlua_pub.h"

#ifdef __cplusplus
extern "C" {
#endif

/* 0 when the record (key, slice) was read and its bitmap copied out; 1 otherwise (the out
 * bitmap is then untouched). uiSize must be 512. */
uint32_t vlanLua_GetBitmapByIndex(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice, uint8_t *pucBitMap,
                                  uint32_t uiSize);
/* Writes the bitmap and its full flag into the record (key, slice); the database's result. */
uint32_t vlanLua_SetCtrlVidBitmap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice, const uint8_t *pucBitMap);
/* Inserts the record (key, slice, bitmap, VR ID); the database's result. */
uint32_t vlanLua_InsertCtrlVidBitmap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice, uint32_t uiVrId,
                                     const uint8_t *pucBitMap);
/* Deletes the record (key, slice); the database's result. */
uint32_t vlanLua_DelCtrlVidBitmap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice);

#ifdef __cplusplus
}
#endif
#endif
