/* The get-next walk over the QinQ match table of one VR: one row per sub-interface, PE VLAN ID and
 * CE range, in ascending (interface, PE VLAN, first CE VLAN) order. Uses only the platform's names. */
#ifndef VLANLUA_COR_QINQ_MIB_H
#define VLANLUA_COR_QINQ_MIB_H

#include <stdint.h>

#include "bas/vlanlua_bas_vidseg.h"
#include "vlanlua_db.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The position of the last row seen and the size of the page wanted. */
typedef struct {
    uint32_t uiIfIndex;
    uint32_t uiPeVid;       /* 16 bits used */
    uint32_t uiCeVid;       /* 16 bits used */
    uint32_t uiQueryNum;
    uint32_t uiVrId;
} VLANLUA_QINQMIBKEY_S;

/* One row of the walk. */
typedef struct {
    VLANLUA_SEGLINK_S stLink;
    uint32_t uiIfIndex;
    uint16_t usPeVlan;
    uint16_t usCeVlanBegin;
    uint16_t usCeVlanEnd;
    uint8_t ucGroupId;
} VLANLUA_QINQMIB_S;

/* The rows collected so far, sorted at all times. */
typedef struct {
    VLANLUA_SEGLINK_S stHead;
    uint32_t uiQueryNum;
    uint32_t uiCount;       /* rows that followed the position, inserted so far */
} VLANLUA_QINQMIBLIST_S;

uint32_t vlanLua_QinQMibCheckIsNeedInsert(const VLANLUA_QINQMIB_S *pstRow, const VLANLUA_QINQMIBKEY_S *pstReq);
VLANLUA_SEGLINK_S *vlanLua_QinQMibGetInsertPosition(const VLANLUA_QINQMIB_S *pstRow, VLANLUA_QINQMIBLIST_S *pstList);
uint32_t vlanLua_QinQMibInsert(VLANLUA_QINQMIB_S *pstRow, VLANLUA_QINQMIBLIST_S *pstList,
                               const VLANLUA_QINQMIBKEY_S *pstReq);
uint32_t vlanLua_QinQMibInsertList(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMIBKEY_S *pstReq, const uint8_t *pucBuf,
                                   uint32_t uiRecNum, VLANLUA_QINQMIBLIST_S *pstList);
uint32_t vlanLua_GetQinQMatchTableByIfIndex(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint32_t uiVrId,
                                            VLANLUA_RECORDSET_S **ppstRs, uint32_t *puiCount);
uint32_t vlanLua_QinQMibQueryByIfIndex(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, const VLANLUA_QINQMIBKEY_S *pstReq,
                                       VLANLUA_QINQMIBLIST_S *pstList);
uint32_t vlanLua_QinQMibQuery(VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMIBKEY_S *pstReq,
                              VLANLUA_QINQMIBLIST_S *pstList);
uint32_t vlanLua_QinQMibDestroy(VLANLUA_QINQMIBLIST_S *pstList);
uint32_t vlanLua_QinQMibSetOutput(void *pState, const VLANLUA_QINQMIB_S *pstRow, int32_t iTableIdx);
uint32_t VLAN_API_QinQMibQuery(void *pState, VLANLUA_CTX_S *pstCtx, const VLANLUA_QINQMIBKEY_S *pstReq);

#ifdef __cplusplus
}
static_assert(sizeof(VLANLUA_QINQMIBKEY_S) == 20, "walk request layout");
#endif
#endif
