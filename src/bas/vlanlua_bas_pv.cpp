/* Table probes behind the port VLAN usage check. Each builds one record set, asks the database
 * and deletes the set before answering, except the relation read, which hands its set to the
 * list. Uses only the platform's names. */
#include "bas/vlanlua_bas_pv.h"

#include "bas/vlanlua_bas_mem.h"

namespace {

/* Fields of the probed tables. */
constexpr uint8_t kStackMapFldVlan = 5;
constexpr uint8_t kStackMapFldVr = 7;
constexpr uint8_t kPortFldIndex = 1;
constexpr uint8_t kPortFldPvid = 2;
constexpr uint8_t kPortFldVr = 6;
constexpr uint8_t kPortFldNegotiation = 12;
constexpr uint8_t kRelFldVr = 1;
constexpr uint8_t kRelFldPort = 2;
constexpr uint8_t kRelFldBmp1 = 3;
constexpr uint8_t kRelFldBmp2 = 4;
constexpr uint8_t kProtoFldIf = 1;
constexpr uint8_t kProtoFldProto = 2;
constexpr uint8_t kProtoFldSub = 3;
constexpr uint8_t kProtoFldKey = 5;

constexpr uint8_t kSubCodeAny = 0x30;                 /* the character '0': any sub-code */

/* A record set on the table, or null after appending "<probe>: <pcFail>". */
VLANLUA_RECORDSET_S *NewProbeSet(VLANLUA_CTX_S *pstCtx, uint32_t uiTable, const char *pcFailMsg)
{
    if (pstCtx == nullptr || pstCtx->pObj == nullptr) {
        return nullptr;
    }
    VLANLUA_RECORDSET_S *pstRs = VLANLUA_RecordSet_New(pstCtx->pObj, uiTable);
    if (pstRs == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "%s", pcFailMsg);
    }
    return pstRs;
}

/* The database's existence answer for the set's conditions; 0 when it cannot answer. */
uint32_t AskExist(const VLANLUA_CTX_S *pstCtx, VLANLUA_RECORDSET_S *pstRs)
{
    uint32_t uiExist = 0;
    if (ECM_CAPI_QueryExist(pstCtx->pObj, pstRs->uiTableId, pstRs->pstWhere, VLANLUA_QUERY_MODE, &uiExist) != 0) {
        return 0;
    }
    return uiExist;
}

void WhereEq(VLANLUA_RECORDSET_S *pstRs, uint8_t ucField, const void *pValue, uint32_t uiWidth)
{
    (void)VLANLUA_RecordSet_Where(pstRs, VLANLUA_OP_EQ, ucField, pValue, uiWidth);
}

}  // namespace

/* ---- existence probes ---- */

extern "C" uint32_t VLANLUA_L2QinQBuild_IsStackMapVidExist(VLANLUA_CTX_S *pstCtx, uint16_t usVlanId, uint32_t uiVrId)
{
    VlanLuaRsGuard rs(NewProbeSet(pstCtx, VLANLUA_TBL_L2QINQ_STACKMAP,
                                  "VLANLUA_L2QinQBuild_IsStackMapVidExist: VLANLUA_RecordSet_New ERR\n"));
    if (rs.Get() == nullptr) {
        return 0;
    }
    WhereEq(rs.Get(), kStackMapFldVlan, &usVlanId, sizeof(usVlanId));
    WhereEq(rs.Get(), kStackMapFldVr, &uiVrId, sizeof(uiVrId));
    return AskExist(pstCtx, rs.Get());
}

extern "C" uint32_t VLANLUA_L2Port_IsNegotiationEnabled(VLANLUA_CTX_S *pstCtx, uint32_t uiPortIndex)
{
    VlanLuaRsGuard rs(NewProbeSet(pstCtx, VLANLUA_TBL_L2_PORT,
                                  "VLANLUA_L2Port_IsNegotiationEnabled: VLANLUA_RecordSet_New ERR\n"));
    if (rs.Get() == nullptr) {
        return 0;
    }
    uint8_t ucOff = 0;
    WhereEq(rs.Get(), kPortFldIndex, &uiPortIndex, sizeof(uiPortIndex));
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_NE, kPortFldNegotiation, &ucOff, sizeof(ucOff));
    return AskExist(pstCtx, rs.Get());
}

extern "C" uint32_t VLANLUA_IFM_IsProtocolEnabled(VLANLUA_CTX_S *pstCtx, uint32_t uiIfIndex, uint8_t ucProto,
                                                  uint8_t ucSubCode, uint32_t uiKey)
{
    VlanLuaRsGuard rs(NewProbeSet(pstCtx, VLANLUA_TBL_IFM_PROTO,
                                  "VLANLUA_IFM_IsProtocolEnabled: VLANLUA_RecordSet_New ERR\n"));
    if (rs.Get() == nullptr) {
        return 0;
    }
    WhereEq(rs.Get(), kProtoFldIf, &uiIfIndex, sizeof(uiIfIndex));
    WhereEq(rs.Get(), kProtoFldProto, &ucProto, sizeof(ucProto));
    if (ucSubCode != kSubCodeAny) {
        WhereEq(rs.Get(), kProtoFldSub, &ucSubCode, sizeof(ucSubCode));
    }
    if (uiKey != 0) {
        WhereEq(rs.Get(), kProtoFldKey, &uiKey, sizeof(uiKey));
    }
    return AskExist(pstCtx, rs.Get());
}

/* ---- PVID probe ---- */

extern "C" uint32_t VLANLUA_L2Port_IsPvIdExistByVlanSeg(VLANLUA_CTX_S *pstCtx, uint16_t usFirstVlan,
                                                        uint16_t usLastVlan, uint32_t uiVrId)
{
    VlanLuaRsGuard rs(NewProbeSet(pstCtx, VLANLUA_TBL_L2_PORT,
                                  "VLANLUA_L2Port_IsPvIdExistByVlanSeg: VLANLUA_RecordSet_New ERR\n"));
    if (rs.Get() == nullptr) {
        return 0;
    }
    VLANLUA_RecordSet_SelectField(rs.Get(), kPortFldIndex, sizeof(uint32_t));
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_LE, kPortFldPvid, &usLastVlan, sizeof(usLastVlan));
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_GE, kPortFldPvid, &usFirstVlan, sizeof(usFirstVlan));
    WhereEq(rs.Get(), kPortFldVr, &uiVrId, sizeof(uiVrId));
    if (VLANLUA_RecordSet_Query(rs.Get(), sizeof(uint32_t), 1) != 0) {
        return 0;
    }
    return VLANLUA_RecordSet_GetRecordNum(rs.Get()) == 1 ? 1 : 0;
}

/* ---- relations ---- */

extern "C" uint32_t VLANLUA_PvRelation_L2PortCnt(VLANLUA_CTX_S *pstCtx, uint32_t uiVrId)
{
    VlanLuaRsGuard rs(NewProbeSet(pstCtx, VLANLUA_TBL_PV_RELATION,
                                  "VLANLUA_PvRelation_L2PortCnt: VLANLUA_RecordSet_New rtn ERR\n"));
    if (rs.Get() == nullptr) {
        return 0;
    }
    WhereEq(rs.Get(), kRelFldVr, &uiVrId, sizeof(uiVrId));
    uint32_t uiCount = 0;
    if (ECM_CAPI_QueryCount(pstCtx->pObj, rs.Get()->uiTableId, rs.Get()->pstWhere, VLANLUA_QUERY_MODE,
                            &uiCount) != 0) {
        return 0;
    }
    return uiCount;
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
    VlanLuaRsGuard rs(NewProbeSet(pstCtx, VLANLUA_TBL_PV_RELATION,
                                  "VLANLUA_PvRelation_QueryAll: VLANLUA_RecordSet_New ERR\n"));
    if (rs.Get() == nullptr) {
        return;
    }
    VLANLUA_RecordSet_SelectField(rs.Get(), kRelFldPort, sizeof(uint32_t));
    VLANLUA_RecordSet_SelectField(rs.Get(), kRelFldBmp1, VLANLUA_BITMAP_LEN);
    VLANLUA_RecordSet_SelectField(rs.Get(), kRelFldBmp2, VLANLUA_BITMAP_LEN);
    WhereEq(rs.Get(), kRelFldVr, &uiVrId, sizeof(uiVrId));
    if (VLANLUA_RecordSet_Query(rs.Get(), VLANLUA_PV_REC_LEN, static_cast<uint16_t>(uiNum)) != 0) {
        return;
    }
    pstList->uiRecNum = VLANLUA_RecordSet_GetRecordNum(rs.Get());
    pstList->pucRec = VLANLUA_RecordSet_GetDataBuff(rs.Get());
    pstList->pstRs = rs.Release();
}

extern "C" void VLANLUA_PvRelation_Free(VLANLUA_PV_LIST_S *pstList)
{
    if (pstList == nullptr) {
        return;
    }
    VLANLUA_RecordSet_Delete(pstList->pstRs);
    *pstList = VLANLUA_PV_LIST_S{nullptr, nullptr, 0};
}
