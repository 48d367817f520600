/* The per-call frame, argument readers and result pushes shared by all script functions.
 * Uses only the platform's names. */
#include "api/vlanlua_api_frame.h"

#include <algorithm>
#include <cstring>

#include "ecm_capi.h"

VlanLuaFrame::VlanLuaFrame(void *pScriptState) : VlanLuaFrame(pScriptState, nullptr)
{
    stCtx.pObj = ECM_CAPI_GetObjExt(pScriptState);
}

void VlanLua_StoreNarrow(void *pField, uint32_t uiWidth, uint32_t uiValue)
{
    switch (uiWidth) {
        case 1: { uint8_t v = static_cast<uint8_t>(uiValue); std::memcpy(pField, &v, 1); break; }
        case 2: { uint16_t v = static_cast<uint16_t>(uiValue); std::memcpy(pField, &v, 2); break; }
        default: std::memcpy(pField, &uiValue, 4); break;
    }
}

static bool ArgHasKind(void *pState, int32_t iPos, VlanLuaArgKind eKind)
{
    return eKind == VlanLuaArgKind::Bool ? SYSDT_SPTI_IsBool(pState, iPos) != 0
                                         : SYSDT_SPTI_IsNumber(pState, iPos) != 0;
}

static uint32_t ReadArgValue(void *pState, int32_t iPos, VlanLuaArgKind eKind)
{
    return eKind == VlanLuaArgKind::Bool ? static_cast<uint32_t>(SYSDT_SPTI_ToBoolean(pState, iPos))
                                         : SYSDT_SPTI_ToUInt(pState, iPos);
}

uint32_t VlanLua_ReadArgs(void *pState, VLANLUA_LOG_S *pstLog, std::span<const VlanLuaArgRule> rules, void *pRecord)
{
    auto *pucRecord = static_cast<uint8_t *>(pRecord);
    int32_t iPos = 1;
    for (const VlanLuaArgRule &rule : rules) {
        if (!ArgHasKind(pState, iPos, rule.eKind)) {
            if (rule.pcTypeMsg != nullptr) {
                VLANLUA_Write(pstLog, "%s", rule.pcTypeMsg);
            }
            return 1;
        }
        VlanLua_StoreNarrow(pucRecord + rule.usOffset, rule.ucWidth, ReadArgValue(pState, iPos, rule.eKind));
        iPos++;
    }
    return 0;
}

uint32_t VlanLua_ReadTable(void *pState, int32_t iPos, std::span<uint32_t> out)
{
    uint32_t uiNum = SYSDT_SPTI_ObjLen(pState, iPos);
    uint32_t *puiOut = out.data();
    size_t uiRead = std::min<size_t>(uiNum, out.size());
    for (uint32_t i = 1; i <= uiRead; i++) {
        SYSDT_SPTI_PushUInt(pState, i);
        SYSDT_SPTI_GetTable(pState, iPos);
        puiOut[i - 1] = SYSDT_SPTI_ToUInt(pState, -1);
        SYSDT_SPTI_Pop(pState, 1);
    }
    return uiNum;
}

void VlanLua_SetArrayUInt(void *pState, uint32_t uiKey, uint32_t uiValue)
{
    SYSDT_SPTI_PushUInt(pState, uiKey);
    SYSDT_SPTI_PushUInt(pState, uiValue);
    SYSDT_SPTI_SetTable(pState, -3);
}

void VlanLua_SetFieldUInt(void *pState, const char *pcName, uint32_t uiValue)
{
    SYSDT_SPTI_PushUInt(pState, uiValue);
    SYSDT_SPTI_SetField(pState, -2, pcName);
}
