/* Weak stand-ins for the script functions that are not built yet: each answers exactly as the
 * real one does without a database object (the bitmap functions, which use none, as for rejected
 * arguments), so the library is complete from the start. A real definition elsewhere overrides
 * its stand-in; delete the stand-in when it lands. Uses only the platform's names. */
#include "api/vlanlua_api.h"

#include "api/vlanlua_api_frame.h"

#define VLANLUA_WEAK extern "C" __attribute__((weak))

/* Pushes a lone 1. */
static uint32_t PushFailOnly(void *pState)
{
    VlanLuaFrame frame(pState, nullptr);
    frame.PushCode(1);
    return 1;
}

/* Pushes 1, uiNilsBefore nils, the message "<function>:call ECM_CAPI_GetObjExt ERR\n" and
 * uiNilsAfter nils. Returns the count pushed. */
static uint32_t PushNoDbText(void *pState, const char *pcFunc, uint32_t uiNilsBefore, uint32_t uiNilsAfter)
{
    VlanLuaFrame frame(pState, nullptr);
    VLANLUA_Write(&frame.stLog, "%s:call ECM_CAPI_GetObjExt ERR\n", pcFunc);
    frame.PushCode(1);
    for (uint32_t i = 0; i < uiNilsBefore; i++) {
        frame.PushNil();
    }
    frame.PushText();
    for (uint32_t i = 0; i < uiNilsAfter; i++) {
        frame.PushNil();
    }
    return 2 + uiNilsBefore + uiNilsAfter;
}

VLANLUA_WEAK uint32_t VLANLUA_Spt_Merg2BitMap(void *pState) { return PushFailOnly(pState); }
VLANLUA_WEAK uint32_t VLANLUA_Spt_And2BitMap(void *pState) { return PushFailOnly(pState); }
VLANLUA_WEAK uint32_t VLANLUA_Spt_GetFirstFreeValue(void *pState) { return PushFailOnly(pState); }
VLANLUA_WEAK uint32_t VLANLUA_Spt_CrtCtrlVidBitMap(void *pState) { return PushFailOnly(pState); }
VLANLUA_WEAK uint32_t VLANLUA_Spt_UpdataCtrlVidBitMap(void *pState) { return PushFailOnly(pState); }
VLANLUA_WEAK uint32_t VLANLUA_Spt_QinQMatchMerge(void *pState) { return PushFailOnly(pState); }
VLANLUA_WEAK uint32_t VLANLUA_Spt_Dot1QMatchMerge(void *pState) { return PushFailOnly(pState); }
VLANLUA_WEAK uint32_t VLANLUA_Spt_UpdataQinQIfSpec(void *pState) { return PushFailOnly(pState); }
VLANLUA_WEAK uint32_t VLANLUA_Spt_CheckVlanUsdByPort(void *pState) { return PushFailOnly(pState); }

VLANLUA_WEAK uint32_t VLANLUA_Spt_UserVlanDot1qExist(void *pState)
{
    return PushNoDbText(pState, "VLANLUA_Spt_UserVlanDot1qExist", 0, 0);
}

VLANLUA_WEAK uint32_t VLANLUA_Spt_UserVlanQinqExist(void *pState)
{
    return PushNoDbText(pState, "VLANLUA_Spt_UserVlanQinqExist", 0, 0);
}

VLANLUA_WEAK uint32_t VLANLUA_Spt_UserVlanMibQuery(void *pState)
{
    return PushNoDbText(pState, "VLANLUA_Spt_UserVlanMibQuery", 1, 0);
}

/* 1, nil, text, nil, nil. */
VLANLUA_WEAK uint32_t VLANLUA_Spt_SetUserVlanQinQSvc(void *pState)
{
    return PushNoDbText(pState, "VLANLUA_Spt_SetUserVlanQinQSvc", 1, 2);
}

/* 1, nil. */
VLANLUA_WEAK uint32_t VLANLUA_Spt_GetNextQinQMibQuery(void *pState)
{
    VlanLuaFrame frame(pState, nullptr);
    frame.PushCode(1);
    frame.PushNil();
    return 2;
}
