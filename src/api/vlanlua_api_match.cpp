/* Script functions of the match rules: the Dot1Q and QinQ merges, the QinQ pair counter and the
 * QinQ match table walk. Each reads its arguments, runs one operation and pushes the results.
 * Uses only the platform's names. */
#include <cstring>

#include "api/vlanlua_api.h"
#include "api/vlanlua_api_frame.h"
#include "api/vlanlua_api_match.h"
#include "kel_avl3.h"
#include "sec_bound.h"

/* Element `key` of the table at position iPos, as an unsigned number. */
static uint32_t TableElementUInt(void *pState, int32_t iPos, uint32_t uiKey)
{
    SYSDT_SPTI_PushUInt(pState, uiKey);
    SYSDT_SPTI_GetTable(pState, iPos);
    uint32_t uiValue = SYSDT_SPTI_ToUInt(pState, -1);
    SYSDT_SPTI_Pop(pState, 1);
    return uiValue;
}

/* ---- VLAN_spt_Dot1QMatchMerge ---- */

#define DOT1Q_ARG_NUM  8u

extern "C" uint32_t VLANLUA_Spt_Dot1QMatchMerge(void *pState)
{
    VlanLuaFrame frame(pState);
    if (!frame.HasDb() || SYSDT_SPTI_ObjLen(pState, 1) != DOT1Q_ARG_NUM) {
        frame.PushCode(1);
        return 1;
    }
    uint32_t auiArg[DOT1Q_ARG_NUM] = {};
    for (uint32_t i = 0; i < DOT1Q_ARG_NUM; i++) {
        auiArg[i] = TableElementUInt(pState, 1, i + 1);
    }
    VLANLUA_DOT1QMATCH_S stNew;
    std::memset(&stNew, 0, sizeof(stNew));
    stNew.uiIfIndex = auiArg[0];
    stNew.usBgn = static_cast<uint16_t>(auiArg[1]);
    stNew.usEnd = static_cast<uint16_t>(auiArg[2]);
    stNew.ucGroupId = static_cast<uint8_t>(auiArg[3]);
    stNew.uiVrId = auiArg[4];
    stNew.uiAttr8 = auiArg[5];
    stNew.uiAttr1 = auiArg[6];
    stNew.ucAttr10 = static_cast<uint8_t>(auiArg[7]);
    frame.PushCode(VLAN_API_Dot1QMatchMerge(frame.Ctx(), &stNew));
    return 1;
}

/* ---- VLAN_spt_QinQMatchMerge ---- */

#define QINQ_ARG_NUM  11u

extern "C" uint32_t VLANLUA_Spt_QinQMatchMergeParse(void *pState, VLANLUA_QINQMATCH_S *pstRec)
{
    pstRec->uiIfIndex = TableElementUInt(pState, 1, 1);
    pstRec->uiAttr1 = TableElementUInt(pState, 1, 2);
    pstRec->usPeBgn = static_cast<uint16_t>(TableElementUInt(pState, 1, 3));
    pstRec->usPeEnd = static_cast<uint16_t>(TableElementUInt(pState, 1, 4));
    pstRec->usCeBgn = static_cast<uint16_t>(TableElementUInt(pState, 1, 5));
    pstRec->usCeEnd = static_cast<uint16_t>(TableElementUInt(pState, 1, 6));
    pstRec->uiMainIfIndex = TableElementUInt(pState, 1, 7);
    pstRec->ucGroupId = static_cast<uint8_t>(TableElementUInt(pState, 1, 8));
    pstRec->uiVrId = TableElementUInt(pState, 1, 9);
    return 0;
}

/* Elements 10 and 11: the UP ID and the key text, copied without its terminator. */
extern "C" uint32_t VLANLUA_Spt_QinQMatchMergeParseUpId(void *pState, VLANLUA_QINQMATCH_S *pstRec)
{
    pstRec->uiUpId = TableElementUInt(pState, 1, 10);
    SYSDT_SPTI_PushUInt(pState, 11);
    SYSDT_SPTI_GetTable(pState, 1);
    const char *pcKey = SYSDT_SPTI_ToString(pState, -1);
    if (pcKey != nullptr) {
        (void)memcpy_s(pstRec->szKeyName, sizeof(pstRec->szKeyName), pcKey, KEL_StrLen(pcKey));
    }
    SYSDT_SPTI_Pop(pState, 1);
    return 0;
}

extern "C" uint32_t VLANLUA_Spt_QinQMatchMerge(void *pState)
{
    VlanLuaFrame frame(pState);
    VLANLUA_QINQMATCH_S stNew;
    std::memset(&stNew, 0, sizeof(stNew));
    uint32_t uiNodes = 0;
    if (!frame.HasDb() || SYSDT_SPTI_ObjLen(pState, 1) != QINQ_ARG_NUM) {
        frame.PushCode(1);
        return 1;
    }
    (void)VLANLUA_Spt_QinQMatchMergeParse(pState, &stNew);
    (void)VLANLUA_Spt_QinQMatchMergeParseUpId(pState, &stNew);
    frame.PushCode(VLAN_API_QinQMatchMerge(frame.Ctx(), &stNew, &uiNodes));
    frame.PushUInt(uiNodes > 1 ? 1u : 0u);
    return 2;
}

/* ---- VLAN_spt_UpdataQinQIfSpec ---- */

extern "C" uint32_t vlanLua_UpdataQinQIfSpecParse(void *pState, VLANLUA_QINQIFSPEC_S *pstReq)
{
    static const VlanLuaArgRule astArgs[] = {
        VLANLUA_ARG_NUM(VLANLUA_QINQIFSPEC_S, uiMainIfIndex, nullptr),
        VLANLUA_ARG_NUM(VLANLUA_QINQIFSPEC_S, uiQinQNum, nullptr),
        VLANLUA_ARG_NUM(VLANLUA_QINQIFSPEC_S, uiVrId, nullptr),
        VLANLUA_ARG_BOOL(VLANLUA_QINQIFSPEC_S, uiIsAdd, nullptr),
    };
    VlanLuaFrame frame(pState, nullptr);
    if (frame.ArgCount() != 4) {
        return 1;
    }
    return VlanLua_ReadArgs(frame, astArgs, pstReq);
}

extern "C" uint32_t VLANLUA_Spt_UpdataQinQIfSpec(void *pState)
{
    VlanLuaFrame frame(pState);
    VLANLUA_QINQIFSPEC_S stReq = {};
    if (!frame.HasDb() || vlanLua_UpdataQinQIfSpecParse(pState, &stReq) != 0 ||
        vlanLua_UpdataQinQIfSpec(&frame.stLog, frame.stCtx.pObj, &stReq) != 0) {
        frame.PushCode(1);
        return 1;
    }
    frame.PushCode(0);
    frame.PushUInt(stReq.uiQinQNum);
    return 2;
}

/* ---- VLAN_spt_GetNextQinQMibQuery ---- */

/* The script's five numbers, narrowed as the request keeps them. */
struct QinQMibArgs {
    uint32_t uiIfIndex;
    uint16_t usPeVid;
    uint16_t usCeVid;
    uint32_t uiVrId;
    uint32_t uiQueryNum;
};

extern "C" uint32_t VLANLUA_Spt_GetNextQinQMibParse(void *pState, VLANLUA_QINQMIBKEY_S *pstReq)
{
    static const VlanLuaArgRule astArgs[] = {
        VLANLUA_ARG_NUM(QinQMibArgs, uiIfIndex, nullptr), VLANLUA_ARG_NUM(QinQMibArgs, usPeVid, nullptr),
        VLANLUA_ARG_NUM(QinQMibArgs, usCeVid, nullptr),   VLANLUA_ARG_NUM(QinQMibArgs, uiVrId, nullptr),
        VLANLUA_ARG_NUM(QinQMibArgs, uiQueryNum, nullptr),
    };
    VlanLuaFrame frame(pState, nullptr);
    QinQMibArgs stArgs = {};
    if (frame.ArgCount() != 5 || VlanLua_ReadArgs(frame, astArgs, &stArgs) != 0 || stArgs.uiIfIndex == UINT32_MAX) {
        return 1;
    }
    pstReq->uiIfIndex = stArgs.uiIfIndex;
    pstReq->uiPeVid = stArgs.usPeVid;
    pstReq->uiCeVid = stArgs.usCeVid;
    pstReq->uiVrId = stArgs.uiVrId;
    pstReq->uiQueryNum = stArgs.uiQueryNum;
    return 0;
}

extern "C" uint32_t VLANLUA_Spt_GetNextQinQMibQuery(void *pState)
{
    VlanLuaFrame frame(pState);
    VLANLUA_QINQMIBKEY_S stReq = {};
    if (frame.HasDb() && VLANLUA_Spt_GetNextQinQMibParse(pState, &stReq) == 0 &&
        VLAN_API_QinQMibQuery(pState, frame.Ctx(), &stReq) == 0) {
        return 2;
    }
    frame.PushCode(1);
    frame.PushNil();
    return 2;
}
