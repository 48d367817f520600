/* Script function asking whether a VLAN is in use on any layer-2 port of a VR, with its
 * argument reading. Uses only the platform's names. */
#include <array>

#include "api/vlanlua_api.h"
#include "api/vlanlua_api_frame.h"
#include "cor/vlanlua_cor_pv.h"

namespace {

constexpr int32_t kPvArgNum = 4;

/* Positions 1..4 and the message appended when one is not a number. */
constexpr std::array<VlanLuaArgRule, kPvArgNum> kPvArgs = {
    VLANLUA_ARG_NUM(VLANLUA_PV_REQ_S, usVlanId, "VLANLUA_COR_PV_VlanInPortParse:vlanId is not a number\n"),
    VLANLUA_ARG_NUM(VLANLUA_PV_REQ_S, uiVrId, "VLANLUA_COR_PV_VlanInPortParse:vrId is not a number\n"),
    VLANLUA_ARG_NUM(VLANLUA_PV_REQ_S, uiStackMapCheck,
                    "VLANLUA_COR_PV_VlanInPortParse:checkPeerLink is not a number\n"),
    VLANLUA_ARG_NUM(VLANLUA_PV_REQ_S, uiPortProtoCheck,
                    "VLANLUA_COR_PV_VlanInPortParse:checkStackMap is not a number\n"),
};

}  // namespace

extern "C" uint32_t VLANLUA_COR_PV_VlanInPortParse(void *pState, VLANLUA_CTX_S *pstCtx, VLANLUA_PV_REQ_S *pstReq)
{
    int32_t iArgNum = SYSDT_SPTI_GetTop(pState);
    if (iArgNum != kPvArgNum) {
        VLANLUA_Write(pstCtx->pstLog, "VLANLUA_COR_PV_VlanInPortParse:paraCnt = %u, Error\n",
                      static_cast<uint32_t>(iArgNum));
        return 1;
    }
    return VlanLua_ReadArgs(pState, pstCtx->pstLog, kPvArgs, pstReq);
}

extern "C" uint32_t VLANLUA_Spt_CheckVlanUsdByPort(void *pState)
{
    VLANLUA_PV_REQ_S stReq{};
    VlanLuaFrame frame(pState);
    if (!frame.HasDb()) {
        frame.PushCode(1);
        return 1;
    }
    uint32_t uiRet = 1;
    if (VLANLUA_COR_PV_VlanInPortParse(pState, frame.Ctx(), &stReq) == 0) {
        uiRet = VLANLUA_COR_PV_VlanInPort(frame.Ctx(), &stReq) != 0 ? 0 : 1;
    }
    frame.PushCode(uiRet);
    frame.PushText();
    return 2;
}
