/* The answer of the user-VLAN walk as the script sees it: an array of entry tables with
 * "ifIndex", "peVlan", "ceVlan", "anyOther" and "description". Uses only the platform's names. */
#include "vlanlua_uservlan_mib.h"

#include "bas/vlanlua_bas_mem.h"
#include "sysdt_spti.h"

namespace {

void SetFieldUInt(void *pState, int32_t iTable, const char *pcName, uint32_t uiValue)
{
    SYSDT_SPTI_PushUInt(pState, uiValue);
    SYSDT_SPTI_SetField(pState, iTable, pcName);
}

/* Entries for uiQueryNum, or null when that many cannot be had; a zero count still gets a
 * block, so that an empty walk is not mistaken for an allocation failure. */
VLANLUA_UVLAN_MIBENTRY_S *AllocEntries(VLANLUA_CTX_S *pstCtx, uint32_t uiQueryNum)
{
    uint64_t ulSize = static_cast<uint64_t>(uiQueryNum) * sizeof(VLANLUA_UVLAN_MIBENTRY_S);
    if (ulSize > 0xFFFFFFFFu) {
        return nullptr;
    }
    uint32_t uiSize = ulSize == 0 ? sizeof(VLANLUA_UVLAN_MIBENTRY_S) : static_cast<uint32_t>(ulSize);
    return static_cast<VLANLUA_UVLAN_MIBENTRY_S *>(VLANLUA_Malloc(pstCtx->pObj, uiSize));
}

void PushEntries(void *pState, VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey,
                 const VLANLUA_UVLAN_MIBOUT_S *pstOut, VLANLUA_UVLAN_DESCLIST_S *pstDesc)
{
    SYSDT_SPTI_CreateTable(pState, 0, 0);
    uint32_t uiTable = static_cast<uint32_t>(SYSDT_SPTI_GetTop(pState));
    if (pstOut->uiCount == 0) {
        return;
    }
    if (pstKey->uiQueryType == VLANLUA_UVLAN_QUERY_DESC) {
        vlanLua_UserVlanDescQuery(pstCtx, pstOut, pstKey->uiVrId, pstDesc);
    }
    for (uint32_t i = 1; i <= pstOut->uiCount; i++) {
        SYSDT_SPTI_PushUInt(pState, i);
        SYSDT_SPTI_CreateTable(pState, 0, 5);
        VLAN_API_UserVlanMibSetOutput(pState, pstCtx, &pstOut->pstEntry[i - 1], pstDesc, uiTable);
    }
}

}  // namespace

void VLAN_API_UserVlanMibSetOutput(void *pState, VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBENTRY_S *pstEntry,
                                   VLANLUA_UVLAN_DESCLIST_S *pstDesc, uint32_t uiIndex)
{
    (void)pstCtx;
    int32_t iEntry = SYSDT_SPTI_GetTop(pState);
    SetFieldUInt(pState, iEntry, "ifIndex", pstEntry->uiIfIndex);
    SetFieldUInt(pState, iEntry, "peVlan", pstEntry->usPeVlan);
    SetFieldUInt(pState, iEntry, "ceVlan", pstEntry->usCeVlan);
    bool bAnyOther = pstEntry->usPeVlan == 0 && pstEntry->usCeVlan == 0;
    SetFieldUInt(pState, iEntry, "anyOther", bAnyOther ? 1u : 0u);
    const char *pcDesc = bAnyOther ? nullptr : vlanLua_UserVlanGetDesc(pstEntry, pstDesc);
    if (pcDesc != nullptr) {
        SYSDT_SPTI_PushString(pState, pcDesc, VLANLUA_UVLAN_DESC_LEN);
    } else {
        SYSDT_SPTI_PushNil(pState);
    }
    SYSDT_SPTI_SetField(pState, iEntry, "description");
    SYSDT_SPTI_SetTable(pState, static_cast<int32_t>(uiIndex));
}

uint32_t VLAN_API_UserVlanMibQuery(void *pState, VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_MIBKEY_S *pstKey)
{
    VlanLuaMemGuard<VLANLUA_UVLAN_MIBENTRY_S> entries(AllocEntries(pstCtx, pstKey->uiQueryNum));
    if (entries.Get() == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "VLAN_API_UserVlanMibQuery : KEL_Malloc fail,qureyNum: %u\n",
                      pstKey->uiQueryNum);
        return 1;
    }
    VLANLUA_UVLAN_MIBOUT_S stOut = {entries.Get(), pstKey->uiQueryNum, 0};
    uint32_t uiRet = vlanLua_UserVlanMibQuery(pstCtx, pstKey, &stOut);
    if (uiRet != 0) {
        VLANLUA_Write(pstCtx->pstLog, "VLAN_API_UserVlanMibQuery: return ERR\n");
        return uiRet;
    }
    VLANLUA_UVLAN_DESCLIST_S stDesc = {};
    SYSDT_SPTI_PushUInt(pState, 0);
    PushEntries(pState, pstCtx, pstKey, &stOut, &stDesc);
    SYSDT_SPTI_PushString(pState, pstCtx->pstLog->acText, pstCtx->pstLog->usUsedLen + 1u);
    VLANLUA_RecordSet_Delete(stDesc.stList.pstRs);
    return 0;
}
