/* The module's entry point with its registration table, the command-word check, and the
 * script functions of the interface probes. Uses only the platform's names. */
#include "api/vlanlua_api.h"

#include "api/vlanlua_api_frame.h"
#include "bas/vlanlua_bas_ifm.h"
#include "sec_bound.h"
#include "sysdt_spti.h"

/* ---- entry point ---- */

/* Eighteen script functions and the null entry that ends the table, in registration order. */
static const SYSDT_SPT_REG_S g_astVlanLuaRegTable[] = {
    {"VLAN_spt_CheckL2SuppExist", VLANLUA_Spt_CheckL2SuppExist},
    {"VLAN_spt_CheckPwSuppExist", VLANLUA_Spt_CheckPwSuppExist},
    {"VLAN_spt_GetMainifBySubif", VLANLUA_Spt_GetMainifBySubif},
    {"VLAN_spt_Merg2BitMap", VLANLUA_Spt_Merg2BitMap},
    {"VLAN_spt_And2BitMap", VLANLUA_Spt_And2BitMap},
    {"VLAN_spt_GetFirstFreeValue", VLANLUA_Spt_GetFirstFreeValue},
    {"VLAN_spt_CrtCtrlVidBitMap", VLANLUA_Spt_CrtCtrlVidBitMap},
    {"VLAN_spt_UpdataCtrlVidBitMap", VLANLUA_Spt_UpdataCtrlVidBitMap},
    {"VLAN_spt_QinQMatchMerge", VLANLUA_Spt_QinQMatchMerge},
    {"VLAN_spt_Dot1QMatchMerge", VLANLUA_Spt_Dot1QMatchMerge},
    {"VLAN_spt_UserVlanMibQuery", VLANLUA_Spt_UserVlanMibQuery},
    {"VLAN_spt_UserVlanDot1qExist", VLANLUA_Spt_UserVlanDot1qExist},
    {"VLAN_spt_UserVlanQinqExist", VLANLUA_Spt_UserVlanQinqExist},
    {"VLAN_spt_SetUserVlanQinQSvc", VLANLUA_Spt_SetUserVlanQinQSvc},
    {"VLAN_spt_CmdParaCheck", VLANLUA_Spt_CmdParaCheck},
    {"VLAN_spt_GetNextQinQMibQuery", VLANLUA_Spt_GetNextQinQMibQuery},
    {"VLAN_spt_UpdataQinQIfSpec", VLANLUA_Spt_UpdataQinQIfSpec},
    {"VLAN_spt_CheckVlanUsdByPort", VLANLUA_Spt_CheckVlanUsdByPort},
    {nullptr, nullptr},
};
static_assert(sizeof(g_astVlanLuaRegTable) / sizeof(g_astVlanLuaRegTable[0]) == 19, "18 functions and the end");

extern "C" __attribute__((visibility("default"))) int luaopen_libvlanluaext(void *pState)
{
    SYSDT_SPT_REG_S astLocal[sizeof(g_astVlanLuaRegTable) / sizeof(g_astVlanLuaRegTable[0])];
    (void)memcpy_s(astLocal, sizeof(astLocal), g_astVlanLuaRegTable, sizeof(g_astVlanLuaRegTable));
    (void)Script_OpenLib(pState, "libvlanluaext", astLocal);
    return 1;
}

/* The module's release, for tools that report which module they load. */
extern "C" __attribute__((visibility("default"))) const char *VLANLUA_Version(void)
{
    return VLANLUA_VERSION_TEXT;
}

/* ---- command-word check ---- */

/* Pushes 1 and the message text: the answer to arguments that cannot be compared. */
static uint32_t CmdParaReject(const VlanLuaFrame &frame)
{
    frame.PushCode(1);
    frame.PushText();
    return 2;
}

/* 0 when pcWord is a prefix of pcKeyword (bytes compared as they are), else 1. */
static uint32_t CmdWordMismatch(const char *pcWord, const char *pcKeyword)
{
    for (; *pcWord != '\0'; pcWord++, pcKeyword++) {
        if (*pcKeyword == '\0' || *pcKeyword != *pcWord) {
            return 1;
        }
    }
    return 0;
}

extern "C" uint32_t VLANLUA_Spt_CmdParaCheck(void *pState)
{
    VlanLuaFrame frame(pState, nullptr);
    int32_t iArgNum = frame.ArgCount();
    if (iArgNum != 2) {
        VLANLUA_Write(&frame.stLog, "VLANLUA_Spt_CmdParaCheck:uiParamNum ERR, uiParamNum=%d\n", iArgNum);
        return CmdParaReject(frame);
    }
    for (int32_t iPos = 1; iPos <= 2; iPos++) {
        if (SYSDT_SPTI_IsString(pState, iPos) == 0) {
            VLANLUA_Write(&frame.stLog, "VLANLUA_Spt_CmdParaCheck:PARA  not string\n");
            return CmdParaReject(frame);
        }
    }
    const char *pcWord = SYSDT_SPTI_ToString(pState, 1);
    if (pcWord == nullptr) {
        VLANLUA_Write(&frame.stLog, "VLANLUA_Spt_CmdParaCheck:PARA 1 NULL\n");
        return CmdParaReject(frame);
    }
    const char *pcKeyword = SYSDT_SPTI_ToString(pState, 2);
    if (pcKeyword == nullptr) {
        VLANLUA_Write(&frame.stLog, "VLANLUA_Spt_CmdParaCheck:PARA 2 NULL\n");
        return CmdParaReject(frame);
    }
    frame.PushCode(CmdWordMismatch(pcWord, pcKeyword));
    frame.PushNil();
    return 2;
}

/* ---- interface probes ---- */

/* The probes take exactly one number and need the database object; the index lands in
 * *puiIndex. Returns false when the call is to be refused with a lone 1. */
static bool ProbeArgAccepted(const VlanLuaFrame &frame, uint32_t *puiIndex)
{
    if (!frame.HasDb() || frame.ArgCount() != 1 || SYSDT_SPTI_IsNumber(frame.pState, 1) == 0) {
        frame.PushCode(1);
        return false;
    }
    *puiIndex = SYSDT_SPTI_ToUInt(frame.pState, 1);
    return true;
}

using VlanLuaSupTest = uint32_t (*)(VLANLUA_CTX_S *, uint32_t);

/* Pushes 0, the test's answer and nil. */
static uint32_t ProbeSupport(void *pState, VlanLuaSupTest pfTest)
{
    VlanLuaFrame frame(pState);
    uint32_t uiIfIndex = 0;
    if (!ProbeArgAccepted(frame, &uiIfIndex)) {
        return 1;
    }
    uint32_t uiAnswer = pfTest(frame.Ctx(), uiIfIndex);
    frame.PushCode(0);
    frame.PushUInt(uiAnswer);
    frame.PushNil();
    return 3;
}

extern "C" uint32_t VLANLUA_Spt_GetMainifBySubif(void *pState)
{
    VlanLuaFrame frame(pState);
    uint32_t uiSubIfIndex = 0;
    if (!ProbeArgAccepted(frame, &uiSubIfIndex)) {
        return 1;
    }
    uint32_t uiMainIfIndex = 0;
    uint32_t uiRet = vlanLua_GetMainifBySubif(frame.Ctx(), uiSubIfIndex, &uiMainIfIndex);
    frame.PushCode(uiRet);
    frame.PushUInt(uiMainIfIndex);
    return 2;
}

extern "C" uint32_t VLANLUA_Spt_CheckL2SuppExist(void *pState)
{
    return ProbeSupport(pState, VlanLua_IsL2SupConfig);
}

extern "C" uint32_t VLANLUA_Spt_CheckPwSuppExist(void *pState)
{
    return ProbeSupport(pState, VlanLua_IsPwSupConfig);
}
