/* Weak stand-ins for the script functions that are not built yet: each answers exactly as the
 * real one does without a database object (the bitmap functions, which use none, as for rejected
 * arguments), so the library is complete from the start. A real definition elsewhere overrides
 * its stand-in; delete the stand-in when it lands. Uses only the platform's names. */
#include "api/vlanlua_api.h"

#include "api/vlanlua_api_frame.h"

#define VLANLUA_WEAK extern "C" __attribute__((weak))

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

/* 1, nil, text, nil, nil. */
VLANLUA_WEAK uint32_t VLANLUA_Spt_SetUserVlanQinQSvc(void *pState)
{
    return PushNoDbText(pState, "VLANLUA_Spt_SetUserVlanQinQSvc", 1, 2);
}
