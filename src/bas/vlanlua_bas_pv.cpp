/* Table probes behind the port VLAN usage check. Each builds one record set, asks the database
 * and deletes the set before answering, except the relation read, which hands its set to the
 * list. Uses only the platform's names. */
#include "bas/vlanlua_bas_pv.h"

#include "bas/vlanlua_bas_query.h"

namespace {

using StackMap = VlanLuaTbl::L2QINQ_STACKMAP;
using Port = VlanLuaTbl::L2_PORT;
using Relation = VlanLuaTbl::PV_RELATION;
using Proto = VlanLuaTbl::IFM_PROTO;

static_assert(Relation::ifIndex::usWidth + Relation::bitmap1::usWidth + Relation::bitmap2::usWidth ==
                  VLANLUA_PV_REC_LEN, "a relation record as read");

constexpr uint8_t kSubCodeAny = 0x30;                 /* the character '0': any sub-code */

bool CtxUsable(const VLANLUA_CTX_S *pstCtx)
{
    return pstCtx != nullptr && pstCtx->pObj != nullptr;
}

/* Whether the probe's record set was made; if not, the probe's line is appended. */
bool ProbeMade(VLANLUA_CTX_S *pstCtx, bool bMade, const char *pcFailMsg)
{
    if (!bMade) {
        VLANLUA_Write(pstCtx->pstLog, "%s", pcFailMsg);
    }
    return bMade;
}

/* The database's existence answer for the query's conditions; 0 when it cannot answer. */
template <class Table>
uint32_t AskExist(VlanLuaQuery<Table> &query)
{
    uint32_t uiExist = 0;
    return query.Exist(&uiExist) != 0 ? 0 : uiExist;
}

}  // namespace

/* ---- existence probes ---- */

extern "C" uint32_t VLANLUA_L2QinQBuild_IsStackMapVidExist(VLANLUA_CTX_S *pstCtx, uint16_t usVlanId, uint32_t uiVrId)
{
    if (!CtxUsable(pstCtx)) {
        return 0;
    }
    VlanLuaQuery<StackMap> query(pstCtx->pObj);
    if (!ProbeMade(pstCtx, query.Made(), "VLANLUA_L2QinQBuild_IsStackMapVidExist: VLANLUA_RecordSet_New ERR\n")) {
        return 0;
    }
    query.Where<StackMap::vlanId>(VLANLUA_OP_EQ, usVlanId);
    query.Where<StackMap::vrId>(VLANLUA_OP_EQ, uiVrId);
    return AskExist(query);
}

extern "C" uint32_t VLANLUA_L2Port_IsNegotiationEnabled(VLANLUA_CTX_S *pstCtx, uint32_t uiPortIndex)
{
    if (!CtxUsable(pstCtx)) {
        return 0;
    }
    VlanLuaQuery<Port> query(pstCtx->pObj);
    if (!ProbeMade(pstCtx, query.Made(), "VLANLUA_L2Port_IsNegotiationEnabled: VLANLUA_RecordSet_New ERR\n")) {
        return 0;
    }
    query.Where<Port::ifIndex>(VLANLUA_OP_EQ, uiPortIndex);
    query.Where<Port::negotiation>(VLANLUA_OP_NE, uint8_t{0});
    return AskExist(query);
}

extern "C" uint32_t VLANLUA_IFM_IsProtocolEnabled(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint8_t ucProto,
                                                  uint8_t ucSubCode, uint32_t uiKey)
{
    if (!CtxUsable(pstCtx)) {
        return 0;
    }
    VlanLuaQuery<Proto> query(pstCtx->pObj);
    if (!ProbeMade(pstCtx, query.Made(), "VLANLUA_IFM_IsProtocolEnabled: VLANLUA_RecordSet_New ERR\n")) {
        return 0;
    }
    query.Where<Proto::ifIndex>(VLANLUA_OP_EQ, uiIfIndex);
    query.Where<Proto::protocol>(VLANLUA_OP_EQ, ucProto);
    if (ucSubCode != kSubCodeAny) {
        query.Where<Proto::subCode>(VLANLUA_OP_EQ, ucSubCode);
    }
    if (uiKey != 0) {
        query.Where<Proto::furtherKey>(VLANLUA_OP_EQ, uiKey);
    }
    return AskExist(query);
}

/* ---- PVID probe ---- */

extern "C" uint32_t VLANLUA_L2Port_IsPvIdExistByVlanSeg(VLANLUA_CTX_S *pstCtx, uint16_t usFirstVlan,
                                                        uint16_t usLastVlan, uint32_t uiVrId)
{
    if (!CtxUsable(pstCtx)) {
        return 0;
    }
    VlanLuaQuery<Port> query(pstCtx->pObj);
    if (!ProbeMade(pstCtx, query.Made(), "VLANLUA_L2Port_IsPvIdExistByVlanSeg: VLANLUA_RecordSet_New ERR\n")) {
        return 0;
    }
    query.Select<Port::ifIndex>();
    query.Where<Port::pvid>(VLANLUA_OP_LE, usLastVlan);
    query.Where<Port::pvid>(VLANLUA_OP_GE, usFirstVlan);
    query.Where<Port::vrId>(VLANLUA_OP_EQ, uiVrId);
    if (query.Query(1) != 0) {
        return 0;
    }
    return VLANLUA_RecordSet_GetRecordNum(query.Get()) == 1 ? 1 : 0;
}

/* ---- relations ---- */

extern "C" uint32_t VLANLUA_PvRelation_L2PortCnt(VLANLUA_CTX_S *pstCtx, uint32_t uiVrId)
{
    if (!CtxUsable(pstCtx)) {
        return 0;
    }
    VlanLuaQuery<Relation> query(pstCtx->pObj);
    if (!ProbeMade(pstCtx, query.Made(), "VLANLUA_PvRelation_L2PortCnt: VLANLUA_RecordSet_New rtn ERR\n")) {
        return 0;
    }
    query.Where<Relation::vrId>(VLANLUA_OP_EQ, uiVrId);
    uint32_t uiCount = 0;
    return query.Count(&uiCount) != 0 ? 0 : uiCount;
}

extern "C" void VLANLUA_PvRelation_QueryAll(VLANLUA_CTX_S *pstCtx, uint32_t uiVrId, VLANLUA_PV_LIST_S *pstList)
{
    if (pstList == nullptr) {
        return;
    }
    *pstList = VLANLUA_PV_LIST_S{nullptr, nullptr, 0};
    uint32_t uiNum = VLANLUA_PvRelation_L2PortCnt(pstCtx, uiVrId);
    if (uiNum == 0) {
        return;
    }
    VlanLuaQuery<Relation> query(pstCtx->pObj);
    if (!ProbeMade(pstCtx, query.Made(), "VLANLUA_PvRelation_QueryAll: VLANLUA_RecordSet_New ERR\n")) {
        return;
    }
    query.Select<Relation::ifIndex, Relation::bitmap1, Relation::bitmap2>();
    query.Where<Relation::vrId>(VLANLUA_OP_EQ, uiVrId);
    if (query.Query(static_cast<uint16_t>(uiNum)) != 0) {
        return;
    }
    pstList->uiRecNum = VLANLUA_RecordSet_GetRecordNum(query.Get());
    pstList->pucRec = VLANLUA_RecordSet_GetDataBuff(query.Get());
    pstList->pstRs = query.Release();
}

extern "C" void VLANLUA_PvRelation_Free(VLANLUA_PV_LIST_S *pstList)
{
    if (pstList == nullptr) {
        return;
    }
    VLANLUA_RecordSet_Delete(pstList->pstRs);
    *pstList = VLANLUA_PV_LIST_S{nullptr, nullptr, 0};
}
