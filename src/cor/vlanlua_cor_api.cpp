/* The interface probes as exported operations: a message buffer and context of their own,
 * the probe, and the messages discarded. Uses only the platform's names. */
#include "cor/vlanlua_cor_api.h"

#include "bas/vlanlua_bas_ifm.h"
#include "ecm_capi.h"
#include "sec_bound.h"
#include "vlanlua_pub.h"

namespace {

/* A cleared message buffer and a context on the caller's database object. */
struct ApiFrame {
    VLANLUA_LOG_S stLog;
    VLANLUA_CTX_S stCtx;

    explicit ApiFrame(void *pState)
    {
        (void)memset_s(&stLog, sizeof(stLog), 0, sizeof(stLog));
        stCtx.pstLog = &stLog;
        stCtx.pObj = ECM_CAPI_GetObjExt(pState);
    }
    ApiFrame(const ApiFrame &) = delete;
    ApiFrame &operator=(const ApiFrame &) = delete;
};

using SupTest = uint32_t (*)(VLANLUA_CTX_S *, uint32_t);

uint32_t CheckSupport(SupTest pfTest, uint32_t uiIfIndex, uint32_t *puiExist, void *pState)
{
    ApiFrame frame(pState);
    if (frame.stCtx.pObj == nullptr || puiExist == nullptr) {
        return 1;
    }
    *puiExist = pfTest(&frame.stCtx, uiIfIndex);
    return 0;
}

}  // namespace

extern "C" uint32_t VLAN_API_GetMainIfBySubIf(uint32_t *puiMainIfIndex, uint32_t uiSubIfIndex, void *pState)
{
    ApiFrame frame(pState);
    if (frame.stCtx.pObj == nullptr) {
        return 1;
    }
    return vlanLua_GetMainifBySubif(&frame.stCtx, uiSubIfIndex, puiMainIfIndex);
}

extern "C" uint32_t VLAN_API_CheckL2SuppExist(uint32_t uiIfIndex, uint32_t *puiExist, void *pState)
{
    return CheckSupport(VlanLua_IsL2SupConfig, uiIfIndex, puiExist, pState);
}

extern "C" uint32_t VLAN_API_CheckPwSuppExist(uint32_t uiIfIndex, uint32_t *puiExist, void *pState)
{
    return CheckSupport(VlanLua_IsPwSupConfig, uiIfIndex, puiExist, pState);
}
