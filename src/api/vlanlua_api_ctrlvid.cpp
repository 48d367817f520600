/* Script functions that mark and move control IDs in the control-VLAN bitmaps. They answer a
 * result code only, never a message. Uses only the platform's names. */
#include <array>

#include "api/vlanlua_api.h"
#include "api/vlanlua_api_frame.h"
#include "cor/vlanlua_cor_ctrlvid.h"

namespace {

constexpr uint32_t kModeCreate = 1;

/* Positions 1..4: key, control ID, VR ID, old control ID (moving only). */
constexpr std::array<VlanLuaArgRule, 4> kCtrlVidArgs = {
    VLANLUA_ARG_NUM(VLANLUA_CTRLVID_REQ_S, uiCtrlKey, nullptr),
    VLANLUA_ARG_NUM(VLANLUA_CTRLVID_REQ_S, uiCtrlId, nullptr),
    VLANLUA_ARG_NUM(VLANLUA_CTRLVID_REQ_S, uiVrId, nullptr),
    VLANLUA_ARG_NUM(VLANLUA_CTRLVID_REQ_S, uiOldCtrlId, nullptr),
};

/* The shared shape of both script functions; pfRun runs once the arguments are accepted. */
template <typename Run>
uint32_t RunCtrlVidScript(void *pState, uint32_t uiMode, Run pfRun)
{
    VlanLuaFrame frame(pState);
    VLANLUA_CTRLVID_REQ_S stReq{};
    uint32_t uiRet = 1;
    if (frame.HasDb() && VLANLUA_Spt_CrtOrUpdataCtrlVidBitMapParse(pState, &stReq, uiMode) == 0) {
        uiRet = pfRun(frame.Ctx(), stReq);
    }
    frame.PushCode(uiRet);
    return 1;
}

}  // namespace

extern "C" uint32_t VLANLUA_Spt_CrtOrUpdataCtrlVidBitMapParse(void *pState, VLANLUA_CTRLVID_REQ_S *pstReq,
                                                             uint32_t uiMode)
{
    uint32_t uiArgNum = uiMode == kModeCreate ? 3 : 4;
    if (SYSDT_SPTI_GetTop(pState) < static_cast<int32_t>(uiArgNum) ||
        VlanLua_ReadArgs(pState, nullptr, std::span(kCtrlVidArgs).first(uiArgNum), pstReq) != 0) {
        return 1;
    }
    if (pstReq->uiCtrlId == 0 || (uiMode != kModeCreate && pstReq->uiOldCtrlId == 0)) {
        return 1;
    }
    return 0;
}

extern "C" uint32_t VLANLUA_Spt_CrtCtrlVidBitMap(void *pState)
{
    return RunCtrlVidScript(pState, kModeCreate, [](VLANLUA_CTX_S *pstCtx, const VLANLUA_CTRLVID_REQ_S &stReq) {
        return VLAN_API_CrtCtrlVidBitMap(pstCtx, stReq.uiCtrlKey, stReq.uiCtrlId, stReq.uiVrId);
    });
}

extern "C" uint32_t VLANLUA_Spt_UpdataCtrlVidBitMap(void *pState)
{
    return RunCtrlVidScript(pState, 0, [](VLANLUA_CTX_S *pstCtx, const VLANLUA_CTRLVID_REQ_S &stReq) {
        return VLAN_API_UpdataCtrlVidBitMap(pstCtx, stReq.uiCtrlKey, stReq.uiCtrlId, stReq.uiOldCtrlId,
                                            stReq.uiVrId);
    });
}
