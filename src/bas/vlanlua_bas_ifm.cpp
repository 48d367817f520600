/* Interface and layer-2 probes. Each is one single-record read; no probe writes a message,
 * so a failure shows only in the result. Uses only the platform's names. */
#include "bas/vlanlua_bas_ifm.h"

#include <cstring>

#include "bas/vlanlua_bas_query.h"
#include "ecm_capi.h"

using VlanLuaTbl::IF_INFO;
using VlanLuaTbl::L2SUP_CFG;
using VlanLuaTbl::PWSUP_CFG;

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
    VlanLuaQuery<IF_INFO> query(pstCtx->pObj);
    if (!query.Made()) {
        return 1;
    }
    query.Select<IF_INFO::mainIfIndex>();
    query.Where<IF_INFO::ifIndex>(VLANLUA_OP_EQ, uiSubIfIndex);
    if (query.Query(1) != 0) {
        return 1;
    }
    const uint8_t *pucData = VLANLUA_RecordSet_GetDataBuff(query.Get());
    if (VLANLUA_RecordSet_GetDataNum(query.Get()) != 0 && pucData != nullptr) {
        *puiMainIfIndex = FirstU32(pucData);
    }
    return 0;
}

/* Runs the prepared one-field query and answers whether a support mode other than "not
 * configured" came back. A failed query and a missing record both answer 0. */
template <class Table>
static uint32_t SupModeConfigured(VlanLuaQuery<Table> &query)
{
    if (query.Query(1) != 0 || VLANLUA_RecordSet_GetDataNum(query.Get()) == 0) {
        return 0;
    }
    const uint8_t *pucData = VLANLUA_RecordSet_GetDataBuff(query.Get());
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
    VlanLuaQuery<L2SUP_CFG> query(pstCtx->pObj);
    if (!query.Made()) {
        return 0;
    }
    query.Select<L2SUP_CFG::supMode>();
    query.Where<L2SUP_CFG::ifIndex>(VLANLUA_OP_EQ, uiIfIndex);
    return SupModeConfigured(query);
}

extern "C" uint32_t VlanLua_IsPwSupConfig(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex)
{
    if (!CtxComplete(pstCtx)) {
        return 0;
    }
    VlanLuaQuery<PWSUP_CFG> query(pstCtx->pObj);
    if (!query.Made()) {
        return 0;
    }
    uint32_t uiLrId = 0;
    uint32_t uiVrId = 0;
    if (ECM_CAPI_GetLrVrId(pstCtx->pObj, &uiLrId, &uiVrId) != 0) {
        return 0;               /* without the object's VR a record of another VR could answer */
    }
    query.Select<PWSUP_CFG::supMode>();
    query.Where<PWSUP_CFG::vrId>(VLANLUA_OP_EQ, uiVrId);
    query.Where<PWSUP_CFG::ifIndex>(VLANLUA_OP_EQ, uiIfIndex);
    return SupModeConfigured(query);
}
