/* Script functions of the user-VLAN queries: the two existence checks and the get-next walk.
 * Each reads its numbers into a query key and hands it to the operation behind it.
 * Uses only the platform's names. */
#include "api/vlanlua_api.h"
#include "api/vlanlua_api_frame.h"
#include "vlanlua_uservlan_mib.h"

namespace {

using Key = VLANLUA_UVLAN_MIBKEY_S;

constexpr VlanLuaArgRule DOT1Q_EXIST_ARGS[] = {
    VLANLUA_ARG_NUM(Key, uiIfIndex, "VLANLUA_Spt_UserVlanDot1qExist:uiIfIndex is not a number\n"),
    VLANLUA_ARG_NUM(Key, usCeVid, "VLANLUA_Spt_UserVlanDot1qExist:usCeVid is not a number\n"),
    VLANLUA_ARG_NUM(Key, uiVrId, "VLANLUA_Spt_UserVlanDot1qExist:uiVrId is not a number\n"),
};

constexpr VlanLuaArgRule QINQ_EXIST_ARGS[] = {
    VLANLUA_ARG_NUM(Key, uiIfIndex, nullptr),
    VLANLUA_ARG_NUM(Key, usPeVid, nullptr),
    VLANLUA_ARG_NUM(Key, usCeVid, nullptr),
    VLANLUA_ARG_NUM(Key, uiVrId, nullptr),
};

constexpr const char *PEVID_MSG = "VLAN_UserVlanMibQueryParse:usPeVid or usCeVid is not a number\n";
constexpr const char *QUERYNUM_MSG = "VLAN_UserVlanMibQueryParse:uiQueryNum is not a number\n";
constexpr VlanLuaArgRule MIB_QUERY_ARGS[] = {
    VLANLUA_ARG_NUM(Key, uiIfIndex, "VLAN_UserVlanMibQueryParse:uiIfIndex is not valid\n"),
    VLANLUA_ARG_NUM(Key, usPeVid, PEVID_MSG),
    VLANLUA_ARG_NUM(Key, usCeVid, PEVID_MSG),
    VLANLUA_ARG_NUM(Key, uiVrId, "VLAN_UserVlanMibQueryParse:uiVrId is not a number\n"),
    VLANLUA_ARG_NUM(Key, uiQueryNum, QUERYNUM_MSG),
    VLANLUA_ARG_NUM(Key, uiQueryType, QUERYNUM_MSG),
};

constexpr int32_t MIB_QUERY_ARGC = 6;

uint32_t PushCodeAndText(const VlanLuaFrame &frame, uint32_t uiCode)
{
    frame.PushCode(uiCode);
    frame.PushText();
    return 2;
}

uint32_t PushMibFailure(const VlanLuaFrame &frame, uint32_t uiCode)
{
    frame.PushCode(uiCode);
    frame.PushNil();
    frame.PushText();
    return 3;
}

}  // namespace

extern "C" uint32_t VLANLUA_Spt_UserVlanDot1qExist(void *pState)
{
    VlanLuaFrame frame(pState);
    Key stKey = {};
    if (!frame.HasDb()) {
        VLANLUA_Write(&frame.stLog, "VLANLUA_Spt_UserVlanDot1qExist:call ECM_CAPI_GetObjExt ERR\n");
        return PushCodeAndText(frame, 1);
    }
    int32_t iArgc = frame.ArgCount();
    if (iArgc != 3) {
        VLANLUA_Write(&frame.stLog, "VLANLUA_Spt_UserVlanDot1qExist:uiParamNum = %u, Error\n",
                      static_cast<uint32_t>(iArgc));
        return PushCodeAndText(frame, 1);
    }
    if (VlanLua_ReadArgs(frame, DOT1Q_EXIST_ARGS, &stKey) != 0) {
        return PushCodeAndText(frame, 1);
    }
    return PushCodeAndText(frame, vlanLua_UserVlanDot1qExist(frame.Ctx(), &stKey));
}

extern "C" uint32_t VLAN_UserVlanQinqParaCheck(void *pState)
{
    if (SYSDT_SPTI_GetTop(pState) != 4) {
        return 1;
    }
    for (int32_t iPos = 1; iPos <= 4; iPos++) {
        if (SYSDT_SPTI_IsNumber(pState, iPos) == 0) {
            return 1;
        }
    }
    return 0;
}

extern "C" uint32_t VLANLUA_Spt_UserVlanQinqExist(void *pState)
{
    VlanLuaFrame frame(pState);
    Key stKey = {};
    if (!frame.HasDb()) {
        VLANLUA_Write(&frame.stLog, "VLANLUA_Spt_UserVlanQinqExist:call ECM_CAPI_GetObjExt ERR\n");
        return PushCodeAndText(frame, 1);
    }
    if (VLAN_UserVlanQinqParaCheck(pState) != 0) {
        VLANLUA_Write(&frame.stLog, "VLANLUA_Spt_UserVlanQinqExist: para is invalid.\n");
        return PushCodeAndText(frame, 1);
    }
    (void)VlanLua_ReadArgs(frame, QINQ_EXIST_ARGS, &stKey);
    return PushCodeAndText(frame, vlanLua_UserVlanQinqExist(frame.Ctx(), &stKey));
}

/* Pushes 1, nil and the message itself when an argument is refused. */
extern "C" uint32_t VLAN_UserVlanMibQueryParse(void *pState, VLANLUA_UVLAN_MIBKEY_S *pstKey, VLANLUA_LOG_S *pstLog)
{
    int32_t iPos = 1;
    for (const VlanLuaArgRule &rule : MIB_QUERY_ARGS) {
        bool bValid = SYSDT_SPTI_IsNumber(pState, iPos) != 0;
        uint32_t uiValue = bValid ? SYSDT_SPTI_ToUInt(pState, iPos) : 0;
        if (!bValid || (iPos == 1 && uiValue == 0xFFFFFFFFu)) {    /* all ones names no interface */
            VLANLUA_Write(pstLog, "%s", rule.pcTypeMsg);
            SYSDT_SPTI_PushUInt(pState, 1);
            SYSDT_SPTI_PushNil(pState);
            SYSDT_SPTI_PushString(pState, pstLog->acText, pstLog->usUsedLen + 1u);
            return 1;
        }
        VlanLua_StoreNarrow(reinterpret_cast<uint8_t *>(pstKey) + rule.usOffset, rule.ucWidth, uiValue);
        iPos++;
    }
    return 0;
}

extern "C" uint32_t VLANLUA_Spt_UserVlanMibQuery(void *pState)
{
    VlanLuaFrame frame(pState);
    Key stKey = {};
    if (!frame.HasDb()) {
        VLANLUA_Write(&frame.stLog, "VLANLUA_Spt_UserVlanMibQuery:call ECM_CAPI_GetObjExt ERR\n");
        return PushMibFailure(frame, 1);
    }
    int32_t iArgc = frame.ArgCount();
    if (iArgc != MIB_QUERY_ARGC) {
        VLANLUA_Write(&frame.stLog, "VLANLUA_Spt_UserVlanMibQuery:uiParamNum = %u, Error\n",
                      static_cast<uint32_t>(iArgc));
        return PushMibFailure(frame, 1);
    }
    if (VLAN_UserVlanMibQueryParse(pState, &stKey, &frame.stLog) != 0) {
        return 3;
    }
    uint32_t uiRet = VLAN_API_UserVlanMibQuery(pState, frame.Ctx(), &stKey);
    return uiRet == 0 ? 3 : PushMibFailure(frame, uiRet);
}
