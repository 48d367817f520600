/* The script function that sets or removes user-VLAN QinQ services on a PE x CE rectangle, and
 * its driver. Uses only the platform's names; five results are pushed on every path. */
#include "api/vlanlua_api.h"
#include "api/vlanlua_api_frame.h"
#include "vlanlua_uservlan.h"

#include "kel_avl3.h"
#include "sec_bound.h"

namespace {

constexpr uint32_t kFirstArrayLen = 10;
constexpr uint32_t kResultNum = 5;

uint32_t ReadElem(void *pState, int32_t iTable, uint32_t uiKey)
{
    SYSDT_SPTI_PushUInt(pState, uiKey);
    SYSDT_SPTI_GetTable(pState, iTable);
    uint32_t uiValue = SYSDT_SPTI_ToUInt(pState, -1);
    SYSDT_SPTI_Pop(pState, 1);
    return uiValue;
}

/* The key text: copied when it fits the 64-byte field, else the field stays empty. */
void ReadKeyName(void *pState, char *pcDest)
{
    SYSDT_SPTI_PushUInt(pState, 10);
    SYSDT_SPTI_GetTable(pState, 1);
    const char *pcText = SYSDT_SPTI_ToString(pState, -1);
    if (pcText != nullptr) {
        uint32_t uiLen = KEL_StrLen(pcText);
        if (uiLen <= VLANLUA_UVLAN_KEYNAME_LEN) {
            (void)memcpy_s(pcDest, VLANLUA_UVLAN_KEYNAME_LEN, pcText, uiLen);
        }
    }
    SYSDT_SPTI_Pop(pState, 1);
}

void PushText(void *pState, const VLANLUA_CTX_S *pstCtx)
{
    SYSDT_SPTI_PushString(pState, pstCtx->pstLog->acText, pstCtx->pstLog->usUsedLen + 1u);
}

void PushIntOrNil(void *pState, bool bPush, int32_t iValue)
{
    if (bPush) {
        SYSDT_SPTI_PushInt(pState, iValue);
    } else {
        SYSDT_SPTI_PushNil(pState);
    }
}

/* 1, then 1 (refused by the check flag) or nil, the text, nil, nil. */
uint32_t PushFailure(void *pState, const VLANLUA_CTX_S *pstCtx, bool bCheckFlag)
{
    SYSDT_SPTI_PushUInt(pState, 1);
    if (bCheckFlag) {
        SYSDT_SPTI_PushUInt(pState, 1);
    } else {
        SYSDT_SPTI_PushNil(pState);
    }
    PushText(pState, pstCtx);
    SYSDT_SPTI_PushNil(pState);
    SYSDT_SPTI_PushNil(pState);
    return 1;
}

void PushSuccess(void *pState, const VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    SYSDT_SPTI_PushUInt(pState, 0);
    PushIntOrNil(pState, pstSet->uiSegNumChg != 0, static_cast<int32_t>(pstSet->uiSegNumChg));
    PushText(pState, pstCtx);
    PushIntOrNil(pState, (pstSet->uiFlag & UVLAN_SET_SEGCHG) != 0, 2);
    PushIntOrNil(pState, (pstSet->uiFlag & UVLAN_SET_SEGADDDEL) != 0, 4);
}

uint32_t DestroyAndFail(void *pState, VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet, const char *pcMsg,
                        bool bCheckFlag = false)
{
    vlanLua_UVlanQinqSvcSetDestroy(pstCtx, pstSet);
    VLANLUA_Write(pstCtx->pstLog, "%s", pcMsg);
    return PushFailure(pState, pstCtx, bCheckFlag);
}

/* Reads the service pairs of argument 2 into the request; 1 after appending the reason. */
uint32_t ParseServices(void *pState, VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCINFO_S *pstInfo)
{
    uint32_t uiNum = SYSDT_SPTI_ObjLen(pState, 2);
    if ((uiNum & 1u) != 0) {
        VLANLUA_Write(pstCtx->pstLog, "VLANLUA_Spt_SetUserVlanQinQSvc:second array uiParamNum = %u, Error\n", uiNum);
        return 1;
    }
    for (uint32_t i = 1; i < uiNum; i += 2) {
        uint32_t uiType = ReadElem(pState, 2, i);
        uint32_t uiValue = ReadElem(pState, 2, i + 1);
        if (uiType == VLANLUA_UVLAN_SVC_SCRIPT_REMOVE) {
            uiType = VLANLUA_UVLAN_SVC_REMOVE;
        }
        if (uiType > VLANLUA_UVLAN_SVC_MAX) {
            VLANLUA_Write(pstCtx->pstLog, "VLANLUA_Spt_SetUserVlanQinQSvc:uiServiceType = %u, Error\n", uiType);
            return 1;
        }
        pstInfo->astSvc[uiType] = VLANLUA_UVLAN_SVC_S{uiType, uiValue};
    }
    return 0;
}

uint32_t ParseArgs(void *pState, VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSEG_S *pstReq, VLANLUA_UVLAN_KEY_S *pstKey)
{
    uint32_t uiNum = SYSDT_SPTI_ObjLen(pState, 1);
    if (uiNum != kFirstArrayLen) {
        VLANLUA_Write(pstCtx->pstLog, "VLANLUA_Spt_SetUserVlanQinQSvc:first array uiParamNum = %u, Error\n", uiNum);
        return 1;
    }
    pstKey->uiIfIndex = ReadElem(pState, 1, 1);
    if (pstKey->uiIfIndex == 0xFFFFFFFFu) {
        VLANLUA_Write(pstCtx->pstLog, "VLANLUA_Spt_SetUserVlanQinQSvc:uiIfIndex is not valid\n");
        return 1;
    }
    (void)VLAN_SetUserVlanQinQSvcParseVlanPair(pState, &pstReq->stPair);
    (void)VLAN_SetUserVlanQinQSvcParseVrId(pState, pstKey);
    (void)VLAN_SetUserVlanQinQSvcParseUpId(pState, pstKey);
    return ParseServices(pState, pstCtx, &pstReq->stSvcInfo);
}

/* Loading, cut points and both cutting runs; the line of the failing step is appended. */
uint32_t SplitAll(VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet, VLANLUA_UVLAN_SVCSEG_S *pstReq,
                  const char **ppcMsg)
{
    if (vlanLua_UVlanQinqGetSegSvc(pstCtx, pstReq, pstSet) != 0) {
        *ppcMsg = "VLAN_API_SetUserVlanQinQSvc: GetSegSvc return ERR\n";
        return 1;
    }
    if (vlanLua_UVlanQinqGetSplitPelist(pstCtx, pstSet, pstReq) != 0) {
        *ppcMsg = "VLAN_API_SetUserVlanQinQSvc: GetSplitPelist return ERR\n";
        return 1;
    }
    VLANLUA_UVLAN_SEGARRAY_S stReqArray = {1, pstReq};
    pstSet->pstNewSvcSeg = pstReq;
    uint32_t uiRet = vlanLua_UVlanQinqSplitSegsByPeCe(pstCtx, pstSet, &pstSet->stSvcSegs, &stReqArray,
                                                      &pstSet->stDbSplitTree);
    if (uiRet != 0) {
        *ppcMsg = "VLAN_API_SetUserVlanQinQSvc: Split DB return ERR\n";
        return uiRet;
    }
    uiRet = vlanLua_UVlanQinqSplitSegsByPeCe(pstCtx, pstSet, &stReqArray, &pstSet->stSvcSegsOrg,
                                             &pstSet->stCfgSplitTree);
    if (uiRet != 0) {
        *ppcMsg = "VLAN_API_SetUserVlanQinQSvc: Split CFG return ERR\n";
        return uiRet;
    }
    vlanLua_UVlanQinqGenFinalSplitedSegs(pstCtx, pstSet);
    return 0;
}

} // namespace

extern "C" uint32_t VLAN_SetUserVlanQinQSvcParseVlanPair(void *pState, VLANLUA_UVLAN_PAIR_S *pstPair)
{
    pstPair->usPeBgn = static_cast<uint16_t>(ReadElem(pState, 1, 2));
    pstPair->usPeEnd = static_cast<uint16_t>(ReadElem(pState, 1, 3));
    pstPair->usCeBgn = static_cast<uint16_t>(ReadElem(pState, 1, 4));
    pstPair->usCeEnd = static_cast<uint16_t>(ReadElem(pState, 1, 5));
    return 0;
}

extern "C" uint32_t VLAN_SetUserVlanQinQSvcParseVrId(void *pState, VLANLUA_UVLAN_KEY_S *pstKey)
{
    pstKey->uiVrId = ReadElem(pState, 1, 6);
    pstKey->uiKeyA = ReadElem(pState, 1, 7);
    pstKey->uiKeyB = ReadElem(pState, 1, 8);
    return 0;
}

extern "C" uint32_t VLAN_SetUserVlanQinQSvcParseUpId(void *pState, VLANLUA_UVLAN_KEY_S *pstKey)
{
    pstKey->uiUpId = ReadElem(pState, 1, 9);
    ReadKeyName(pState, pstKey->szKeyName);
    return 0;
}

extern "C" uint32_t VLAN_API_UserVlanQinQMerge(void *pState, VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSET_S *pstSet)
{
    uint32_t uiRet = VLAN_API_UVlanQinqMergeProcess(pstCtx, pstSet);
    if (uiRet != 0) {
        (void)DestroyAndFail(pState, pstCtx, pstSet, "VLAN_API_SetUserVlanQinQSvc:  DistinctOpSegs return ERR\n");
        return uiRet;
    }
    PushSuccess(pState, pstCtx, pstSet);
    vlanLua_UVlanQinqSvcSetDestroy(pstCtx, pstSet);
    return 0;
}

extern "C" uint32_t VLAN_API_SetUserVlanQinQSvc(void *pState, VLANLUA_CTX_S *pstCtx, VLANLUA_UVLAN_SVCSEG_S *pstReq,
                                                const VLANLUA_UVLAN_KEY_S *pstKey)
{
    VLANLUA_UVLAN_SVCSET_S *pstSet = nullptr;
    if (vlanLua_UVlanQinqSvcSetInit(pstCtx, &pstSet) != 0) {
        return DestroyAndFail(pState, pstCtx, nullptr, "VLAN_API_SetUserVlanQinQSvc: QinqSvcSetInit fail\n");
    }
    const VLANLUA_UVLAN_SVC_S &stRemove = pstReq->stSvcInfo.astSvc[VLANLUA_UVLAN_SVC_REMOVE];
    if (stRemove.uiSvcType != 0 && stRemove.uiSvcValue != 0) {
        pstSet->uiFlag |= UVLAN_SET_REMOVE;
    }
    pstSet->stKey = *pstKey;
    const char *pcMsg = nullptr;
    uint32_t uiRet = SplitAll(pstCtx, pstSet, pstReq, &pcMsg);
    if (uiRet != 0) {
        (void)DestroyAndFail(pState, pstCtx, pstSet, pcMsg);
        return uiRet;
    }
    if ((pstSet->uiFlag & UVLAN_SET_REMOVE) != 0 && (pstSet->uiFlag & UVLAN_SET_ALLCOVERED) == 0) {
        return DestroyAndFail(pState, pstCtx, pstSet, "VLAN_API_SetUserVlanQinQSvc:  check flag return ERR\n", true);
    }
    return VLAN_API_UserVlanQinQMerge(pState, pstCtx, pstSet);
}

extern "C" uint32_t VLANLUA_Spt_SetUserVlanQinQSvc(void *pState)
{
    VlanLuaFrame frame(pState);
    VLANLUA_UVLAN_KEY_S stKey = {};
    VLANLUA_UVLAN_SVCSEG_S stReq = {};
    if (!frame.HasDb()) {
        VLANLUA_Write(&frame.stLog, "VLANLUA_Spt_SetUserVlanQinQSvc:call ECM_CAPI_GetObjExt ERR\n");
        (void)PushFailure(pState, frame.Ctx(), false);
        return kResultNum;
    }
    if (ParseArgs(pState, frame.Ctx(), &stReq, &stKey) != 0) {
        (void)PushFailure(pState, frame.Ctx(), false);
        return kResultNum;
    }
    (void)VLAN_API_SetUserVlanQinQSvc(pState, frame.Ctx(), &stReq, &stKey);
    return kResultNum;
}
