/* Control-VLAN bitmaps by slice: marking a control ID as used and moving a mark. Control ID c
 * lives in slice (c - 1) div 4094 as VLAN ((c - 1) mod 4094) + 1. Uses only the platform's names. */
#ifndef VLANLUA_COR_CTRLVID_H
#define VLANLUA_COR_CTRLVID_H

#include <stdint.h>

#include "vlanlua_pub.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Arguments of the two control-VLAN script functions, in this order. */
typedef struct {
    uint32_t uiCtrlKey;     /* argument 1 */
    uint32_t uiCtrlId;      /* argument 2: the control ID, or the new one when moving */
    uint32_t uiOldCtrlId;   /* argument 4, moving only */
    uint32_t uiVrId;        /* argument 3 */
} VLANLUA_CTRLVID_REQ_S;

/* Adds the reserved VLAN IDs 1 and 2 when the slice is 1. */
void VLAN_API_AddReserveCtrlVid(uint8_t *pucBitMap, uint32_t uiSlice);
/* Marks the control ID in its slice, creating the slice's record if needed; 0, or 1 when the
 * VLAN ID cannot be added. */
uint32_t VLAN_API_CrtCtrlVidBitMap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiCtrlId, uint32_t uiVrId);
/* Clears a VLAN ID of a stored slice, deleting the record once it is empty; 0, or 1 when
 * the ID is invalid. A missing slice is nothing to clear. */
uint32_t DeleteCtrlVidFromCtrlBitmap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiSlice, uint32_t uiVlanId);
/* Moves the mark from the old control ID to the new one; 0, or 1 when the new VLAN ID
 * cannot be added. Note the order: new before old, VR ID last. */
uint32_t VLAN_API_UpdataCtrlVidBitMap(VLANLUA_CTX_S *pstCtx, uint32_t uiKey, uint32_t uiNewCtrlId,
                                      uint32_t uiOldCtrlId, uint32_t uiVrId);

/* Reads the script arguments (mode 1 create: key, control ID, VR ID; mode 0 move: also the old
 * control ID at position 4); 1 when one is missing, not a number or a zero control ID. */
uint32_t VLANLUA_Spt_CrtOrUpdataCtrlVidBitMapParse(void *pState, VLANLUA_CTRLVID_REQ_S *pstReq, uint32_t uiMode);

#ifdef __cplusplus
}
#endif
#endif
