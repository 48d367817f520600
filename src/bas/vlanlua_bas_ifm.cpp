/* Interface and layer-2 probes. Each is one single-record read; no probe writes a message,
 * so a failure shows only in the result. Uses only the platform's names. */
#include "bas/vlanlua_bas_ifm.h"

#include <cstring>

#include "bas/vlanlua_bas_mem.h"
#include "ecm_capi.h"
#include "vlanlua_db.h"

#define VLANLUA_L2SUP_FLD_IFINDEX   1
#define VLANLUA_L2SUP_FLD_MODE      3
#define VLANLUA_PWSUP_FLD_VRID      1
#define VLANLUA_PWSUP_FLD_IFINDEX   2
#define VLANLUA_PWSUP_FLD_MODE      3
#define VLANLUA_SUPMODE_NONE        1u      /* the support mode that means "not configured" */

static bool CtxComplete(const VLANLUA_CTX_S *pstCtx)
{
    return pstCtx != nullptr && pstCtx->pObj != nullptr && pstCtx->pstLog != nullptr;
}

static uint32_t FirstU32(const uint8_t *pucData)
{
    uint32_t uiValue;
    std::memcpy(&uiValue, pucData, sizeof(uiValue));
    return uiValue;
}

extern "C" uint32_t vlanLua_GetMainifBySubif(VLANLUA_CTX_S *pstCtx, uint32_t uiSubIfIndex, uint32_t *puiMainIfIndex)
{
    if (!CtxComplete(pstCtx) || puiMainIfIndex == nullptr) {
        return 1;
    }
    *puiMainIfIndex = 0;
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_IF_INFO));
    if (rs.Get() == nullptr) {
        return 1;
    }
    VLANLUA_RecordSet_SelectField(rs.Get(), VLANLUA_IFINFO_FLD_MAINIF, sizeof(uint32_t));
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, VLANLUA_IFINFO_FLD_IFINDEX, &uiSubIfIndex,
                                  sizeof(uiSubIfIndex));
    if (VLANLUA_RecordSet_QueryFld(rs.Get(), 1) != 0) {
        return 1;
    }
    const uint8_t *pucData = VLANLUA_RecordSet_GetDataBuff(rs.Get());
    if (VLANLUA_RecordSet_GetDataNum(rs.Get()) != 0 && pucData != nullptr) {
        *puiMainIfIndex = FirstU32(pucData);
    }
    return 0;
}

/* Runs the prepared one-field query and answers whether a support mode other than "not
 * configured" came back. A failed query and a missing record both answer 0. */
static uint32_t SupModeConfigured(VLANLUA_RECORDSET_S *pstRs)
{
    if (VLANLUA_RecordSet_QueryFld(pstRs, 1) != 0 || VLANLUA_RecordSet_GetDataNum(pstRs) == 0) {
        return 0;
    }
    const uint8_t *pucData = VLANLUA_RecordSet_GetDataBuff(pstRs);
    if (pucData == nullptr) {
        return 1;
    }
    return FirstU32(pucData) == VLANLUA_SUPMODE_NONE ? 0 : 1;
}

extern "C" uint32_t VlanLua_IsL2SupConfig(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex)
{
    if (!CtxComplete(pstCtx)) {
        return 0;
    }
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_L2SUP_CFG));
    if (rs.Get() == nullptr) {
        return 0;
    }
    VLANLUA_RecordSet_SelectField(rs.Get(), VLANLUA_L2SUP_FLD_MODE, sizeof(uint32_t));
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, VLANLUA_L2SUP_FLD_IFINDEX, &uiIfIndex, sizeof(uiIfIndex));
    return SupModeConfigured(rs.Get());
}

extern "C" uint32_t VlanLua_IsPwSupConfig(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex)
{
    if (!CtxComplete(pstCtx)) {
        return 0;
    }
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_PWSUP_CFG));
    if (rs.Get() == nullptr) {
        return 0;
    }
    uint32_t uiLrId = 0;
    uint32_t uiVrId = 0;
    if (ECM_CAPI_GetLrVrId(pstCtx->pObj, &uiLrId, &uiVrId) != 0) {
        return 0;               /* without the object's VR a record of another VR could answer */
    }
    VLANLUA_RecordSet_SelectField(rs.Get(), VLANLUA_PWSUP_FLD_MODE, sizeof(uint32_t));
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, VLANLUA_PWSUP_FLD_VRID, &uiVrId, sizeof(uiVrId));
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, VLANLUA_PWSUP_FLD_IFINDEX, &uiIfIndex, sizeof(uiIfIndex));
    return SupModeConfigured(rs.Get());
}
