/* User-VLAN QinQ segment rows and their base- and VPN-service rows: counting, reading, writing.
 * Uses only the platform's names; every write passes the final argument 1. */
#include "vlanlua_uservlan.h"

#include "bas/vlanlua_bas_mem.h"
#include "bas/vlanlua_bas_segindex.h"
#include "ecm_capi.h"
#include "sec_bound.h"

namespace {

constexpr uint32_t kWriteFlag = 1;
constexpr uint32_t kSvcRowLen = VLANLUA_UVLAN_MAP_LEN * sizeof(uint32_t);
constexpr uint32_t kBaseSvcMap[VLANLUA_UVLAN_MAP_LEN] = {1, 2, 3, 4, 5, 6, 7, 16};
constexpr uint32_t kVpnSvcMap[VLANLUA_UVLAN_MAP_LEN] = {8, 9, 10, 11, 12, 13, 14, 15};

/* A field-value list under construction, on the caller's stack. */
struct FieldList {
    VLANLUA_FIELDVAL_S astField[16];
    uint32_t uiNum = 0;

    void Add(uint32_t uiType, uint16_t usField, uint16_t usWidth, const void *pValue)
    {
        astField[uiNum++] = VLANLUA_FIELDVAL_S{uiType, usField, usWidth, pValue};
    }
    void U32(uint16_t usField, const uint32_t *puiValue) { Add(VLANLUA_TYPE_U32, usField, 4, puiValue); }
    void U16(uint16_t usField, const uint16_t *pusValue) { Add(VLANLUA_TYPE_U16, usField, 2, pusValue); }
    void VrId(uint16_t usField, const uint32_t *puiValue) { Add(VLANLUA_TYPE_VRID, usField, 4, puiValue); }
    const ECM_FIELDVAL_S *Raw() const { return reinterpret_cast<const ECM_FIELDVAL_S *>(astField); }
};

bool CtxUsable(const VLANLUA_CTX_S *pstCtx)
{
    return pstCtx != nullptr && pstCtx->pObj != nullptr;
}

bool IsPresent(const VLANLUA_UVLAN_SVCINFO_S *pstInfo, uint32_t uiType)
{
    return pstInfo->astSvc[uiType].uiSvcType == uiType && pstInfo->astSvc[uiType].uiSvcValue != 0;
}

uint32_t AnyPresent(const VLANLUA_UVLAN_SVCINFO_S *pstInfo, const uint32_t *puiTypes, uint32_t uiNum)
{
    for (uint32_t i = 0; i < uiNum; i++) {
        if (IsPresent(pstInfo, puiTypes[i])) {
            return 1;
        }
    }
    return 0;
}

/* The five conditions of a segment query key, in the order the tables are searched. */
void AddSegQryWhere(VLANLUA_RECORDSET_S *pstRs, const VLANLUA_UVLAN_SEGQRY_S *pstQry)
{
    (void)VLANLUA_RecordSet_Where(pstRs, VLANLUA_OP_EQ, 1, &pstQry->uiIfIndex, 4);
    (void)VLANLUA_RecordSet_Where(pstRs, VLANLUA_OP_GE, 8, &pstQry->usPeLow, 2);
    (void)VLANLUA_RecordSet_Where(pstRs, VLANLUA_OP_LE, 7, &pstQry->usPeHigh, 2);
    (void)VLANLUA_RecordSet_Where(pstRs, VLANLUA_OP_GE, 6, &pstQry->usCeLow, 2);
    (void)VLANLUA_RecordSet_Where(pstRs, VLANLUA_OP_LE, 5, &pstQry->usCeHigh, 2);
}

/* The key fields every service row starts with: 2, 1, 4 (unless skipped), 3, 5. */
void AddSvcKeyFields(FieldList &list, const uint32_t *puiSegIndex, const VLANLUA_UVLAN_KEY_S *pstKey, bool bKeyA)
{
    list.U32(2, puiSegIndex);
    list.U32(1, &pstKey->uiIfIndex);
    if (bKeyA) {
        list.U32(4, &pstKey->uiKeyA);
    }
    list.U32(3, &pstKey->uiKeyB);
    list.VrId(5, &pstKey->uiVrId);
}

uint32_t WriteSvc(VLANLUA_CTX_S *pstCtx, uint32_t uiTable, const FieldList &list, bool bInsert)
{
    return bInsert ? ECM_CAPI_InsertRecord(pstCtx->pObj, uiTable, list.Raw(), list.uiNum, kWriteFlag)
                   : ECM_CAPI_SetRecord(pstCtx->pObj, uiTable, list.Raw(), list.uiNum, kWriteFlag);
}

uint32_t DeleteSvcRow(VLANLUA_CTX_S *pstCtx, uint32_t uiTable, uint32_t uiSegIndex)
{
    if (!CtxUsable(pstCtx)) {
        return 1;
    }
    FieldList list;
    list.U32(2, &uiSegIndex);
    return ECM_CAPI_DeleteRecord(pstCtx->pObj, uiTable, list.Raw(), list.uiNum, kWriteFlag);
}

/* One service table: its rows hold the values of eight service types, column by column. */
struct SvcTable {
    uint32_t uiTable;
    uint32_t uiNoRowFlag;
    const char *pcNewErr;
    const uint32_t *puiTypes;                   /* the service types in column order (the map) */
    uint8_t aucColumns[VLANLUA_UVLAN_MAP_LEN];  /* their field numbers */
    uint32_t uiCreateCheck;                     /* a row is created when one of the first this many is non-zero */
    bool bSetKeyA;                              /* whether an update sends field 4 */
};

constexpr SvcTable kBaseTable = {VLANLUA_TBL_UVLAN_BASE_SVC, UVLAN_SVC_NOBASE,
                                 "vlanLua_UVlanQryBaseSvcBySegindex: VLANLUA_RecordSet_New ERR\n", kBaseSvcMap,
                                 {7, 8, 9, 10, 11, 12, 13, 6}, 7, true};
constexpr SvcTable kVpnTable = {VLANLUA_TBL_UVLAN_VPN_SVC, UVLAN_SVC_NOVPN,
                                "vlanLua_UVlanQryVpnSvcBySegindex: VLANLUA_RecordSet_New ERR\n", kVpnSvcMap,
                                {6, 7, 8, 9, 10, 11, 12, 13}, 8, false};

/* Inserts the table's row for a segment with every column; nothing when the checked values are all 0. */
uint32_t CreateSvcRow(VLANLUA_CTX_S *pstCtx, const SvcTable &tbl, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                      const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex)
{
    if (!CtxUsable(pstCtx) || pstInfo == nullptr || pstKey == nullptr) {
        return 1;
    }
    bool bAny = false;
    for (uint32_t i = 0; i < tbl.uiCreateCheck; i++) {
        bAny = bAny || pstInfo->astSvc[tbl.puiTypes[i]].uiSvcValue != 0;
    }
    if (!bAny) {
        return 0;
    }
    FieldList list;
    AddSvcKeyFields(list, &uiSegIndex, pstKey, true);
    for (uint32_t i = 0; i < VLANLUA_UVLAN_MAP_LEN; i++) {
        list.U32(tbl.aucColumns[i], &pstInfo->astSvc[tbl.puiTypes[i]].uiSvcValue);
    }
    return WriteSvc(pstCtx, tbl.uiTable, list, true);
}

/* Updates the table's row of a segment with the columns whose service entry has a type word. */
uint32_t SetSvcRow(VLANLUA_CTX_S *pstCtx, const SvcTable &tbl, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                   const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex)
{
    if (!CtxUsable(pstCtx) || pstInfo == nullptr || pstKey == nullptr) {
        return 1;
    }
    FieldList list;
    AddSvcKeyFields(list, &uiSegIndex, pstKey, tbl.bSetKeyA);
    for (uint32_t i = 0; i < VLANLUA_UVLAN_MAP_LEN; i++) {
        const VLANLUA_UVLAN_SVC_S &e = pstInfo->astSvc[tbl.puiTypes[i]];
        if (e.uiSvcType != 0) {
            list.U32(tbl.aucColumns[i], &e.uiSvcValue);
        }
    }
    return WriteSvc(pstCtx, tbl.uiTable, list, false);
}

/* Reads one service row of a segment into the record through the map; a missing row, or one
 * whose values are all 0, sets the table's no-row flag. */
void QrySvcRow(VLANLUA_CTX_S *pstCtx, const SvcTable &tbl, uint32_t uiSegIndex, VLANLUA_UVLAN_SVCSEG_S *pstSeg,
               const uint32_t *puiMap)
{
    if (!CtxUsable(pstCtx) || pstSeg == nullptr || puiMap == nullptr) {
        return;
    }
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, tbl.uiTable));
    if (rs.Get() == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "%s", tbl.pcNewErr);
        return;
    }
    for (uint8_t ucField : tbl.aucColumns) {
        VLANLUA_RecordSet_SelectField(rs.Get(), ucField, 4);
    }
    (void)VLANLUA_RecordSet_Where(rs.Get(), VLANLUA_OP_EQ, 2, &uiSegIndex, 4);
    uint32_t uiRet = VLANLUA_RecordSet_Query(rs.Get(), kSvcRowLen, 1);
    if (uiRet != 0 || VLANLUA_RecordSet_GetRecordNum(rs.Get()) == 0) {
        pstSeg->uiFlag |= tbl.uiNoRowFlag;
        vlanLua_UVlanBaseSvcSetInvalid(&pstSeg->stSvcInfo, puiMap);
        return;
    }
    uint32_t auiValues[VLANLUA_UVLAN_MAP_LEN];
    (void)memcpy_s(auiValues, sizeof(auiValues), VLANLUA_RecordSet_GetDataBuff(rs.Get()), kSvcRowLen);
    uint32_t uiAny = 0;
    vlanLua_UVlanBaseSvcCopy(&pstSeg->stSvcInfo, auiValues, puiMap, &uiAny);
    if (uiAny == 0) {
        pstSeg->uiFlag |= tbl.uiNoRowFlag;
    }
}

} // namespace

/* ---- segment rows ---- */

extern "C" uint32_t vlanLua_UVlanGetQinqSegCnt(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SEGQRY_S *pstQry,
                                               uint32_t *puiCnt)
{
    if (!CtxUsable(pstCtx) || pstQry == nullptr || puiCnt == nullptr) {
        return 1;
    }
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_UVLAN_QINQ_SEG));
    if (rs.Get() == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UserVlanCnt: VLANLUA_RecordSet_New rtn ERR\n");
        return 1;
    }
    AddSegQryWhere(rs.Get(), pstQry);
    return ECM_CAPI_QueryCount(pstCtx->pObj, VLANLUA_TBL_UVLAN_QINQ_SEG, rs.Get()->pstWhere, VLANLUA_QUERY_MODE,
                               puiCnt);
}

extern "C" void vlanLua_UVlanQueryQinqSeg(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SEGQRY_S *pstQry,
                                          VLANLUA_UVLAN_SEGLIST_S *pstList)
{
    uint32_t uiCnt = 0;
    if (pstList == nullptr || vlanLua_UVlanGetQinqSegCnt(pstCtx, pstQry, &uiCnt) != 0 || uiCnt == 0) {
        return;
    }
    VlanLuaRsGuard rs(VLANLUA_RecordSet_New(pstCtx->pObj, VLANLUA_TBL_UVLAN_QINQ_SEG));
    if (rs.Get() == nullptr) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UserVlanQinqQuery: VLANLUA_RecordSet_New ERR\n");
        return;
    }
    static constexpr struct { uint8_t ucField; uint16_t usWidth; } kColumns[] = {
        {1, 4}, {7, 2}, {8, 2}, {5, 2}, {6, 2}, {2, 4}, {9, 4}, {3, 4}};
    for (const auto &col : kColumns) {
        VLANLUA_RecordSet_SelectField(rs.Get(), col.ucField, col.usWidth);
    }
    AddSegQryWhere(rs.Get(), pstQry);
    VLANLUA_RecordSet_SortField(rs.Get(), 7);
    VLANLUA_RecordSet_SortField(rs.Get(), 5);
    uint16_t usWant = uiCnt > 0xFFFFu ? 0xFFFFu : static_cast<uint16_t>(uiCnt);
    if (VLANLUA_RecordSet_Query(rs.Get(), sizeof(VLANLUA_UVLAN_SEGREC_S), usWant) != 0) {
        return;
    }
    pstList->uiNum = VLANLUA_RecordSet_GetRecordNum(rs.Get());
    pstList->pucData = VLANLUA_RecordSet_GetDataBuff(rs.Get());
    pstList->pstRs = rs.Release();
}

extern "C" uint32_t vlanLua_UVlanInsertQinqSeg(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_PAIR_S *pstPair,
                                               const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t *puiSegIndex)
{
    if (!CtxUsable(pstCtx) || pstPair == nullptr || pstKey == nullptr || puiSegIndex == nullptr) {
        return 1;
    }
    uint32_t uiSegIndex = 0;
    if (VlanLua_AllocSegIndex(pstCtx, 0, pstKey->uiVrId, &uiSegIndex) != 0) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UVlanInsertQinqSeg: VlanLua_AllocSegIndex fail\n");
        return 1;
    }
    *puiSegIndex = uiSegIndex;
    FieldList list;
    list.U32(2, puiSegIndex);
    list.U32(1, &pstKey->uiIfIndex);
    list.U16(5, &pstPair->usCeBgn);
    list.U16(6, &pstPair->usCeEnd);
    list.U16(7, &pstPair->usPeBgn);
    list.U16(8, &pstPair->usPeEnd);
    list.U32(9, &pstKey->uiKeyA);
    list.U32(3, &pstKey->uiKeyB);
    list.VrId(4, &pstKey->uiVrId);
    list.U32(10, &pstKey->uiUpId);
    list.Add(VLANLUA_TYPE_TEXT, 11, VLANLUA_UVLAN_KEYNAME_LEN, pstKey->szKeyName);
    return ECM_CAPI_InsertRecord(pstCtx->pObj, VLANLUA_TBL_UVLAN_QINQ_SEG, list.Raw(), list.uiNum, kWriteFlag);
}

extern "C" uint32_t vlanLua_UVlanDeleteQinqSeg(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex,
                                               const VLANLUA_UVLAN_KEY_S *pstKey)
{
    if (!CtxUsable(pstCtx) || pstKey == nullptr) {
        return 1;
    }
    FieldList list;
    list.U32(2, &uiSegIndex);
    list.U32(1, &pstKey->uiIfIndex);
    return ECM_CAPI_DeleteRecord(pstCtx->pObj, VLANLUA_TBL_UVLAN_QINQ_SEG, list.Raw(), list.uiNum, kWriteFlag);
}

/* ---- service info ---- */

extern "C" void vlanLua_UVlanInitBaseSvcMap(uint32_t *puiMap)
{
    (void)memcpy_s(puiMap, sizeof(kBaseSvcMap), kBaseSvcMap, sizeof(kBaseSvcMap));
}

extern "C" void vlanLua_UVlanInitVpnSvcMap(uint32_t *puiMap)
{
    (void)memcpy_s(puiMap, sizeof(kVpnSvcMap), kVpnSvcMap, sizeof(kVpnSvcMap));
}

extern "C" void vlanLua_UVlanBaseSvcSetInvalid(VLANLUA_UVLAN_SVCINFO_S *pstInfo, const uint32_t *puiMap)
{
    for (uint32_t i = 0; i < VLANLUA_UVLAN_MAP_LEN; i++) {
        pstInfo->astSvc[puiMap[i]] = VLANLUA_UVLAN_SVC_S{puiMap[i], 0};
    }
}

extern "C" void vlanLua_UVlanVpnSvcSetInvalid(VLANLUA_UVLAN_SVCINFO_S *pstInfo, const uint32_t *puiMap)
{
    vlanLua_UVlanBaseSvcSetInvalid(pstInfo, puiMap);
}

extern "C" void vlanLua_UVlanBaseSvcCopy(VLANLUA_UVLAN_SVCINFO_S *pstInfo, const uint32_t *puiValues,
                                         const uint32_t *puiMap, uint32_t *puiAnyNonZero)
{
    *puiAnyNonZero = 0;
    for (uint32_t i = 0; i < VLANLUA_UVLAN_MAP_LEN; i++) {
        pstInfo->astSvc[puiMap[i]] = VLANLUA_UVLAN_SVC_S{puiMap[i], puiValues[i]};
        if (puiValues[i] != 0) {
            *puiAnyNonZero = 1;
        }
    }
}

extern "C" void vlanLua_UVlanVpnSvcCopy(VLANLUA_UVLAN_SVCINFO_S *pstInfo, const uint32_t *puiValues,
                                        const uint32_t *puiMap, uint32_t *puiAnyNonZero)
{
    vlanLua_UVlanBaseSvcCopy(pstInfo, puiValues, puiMap, puiAnyNonZero);
}

extern "C" void vlanLua_UVlanCoverSvcInfo(VLANLUA_UVLAN_SVCINFO_S *pstDst, const VLANLUA_UVLAN_SVCINFO_S *pstSrc)
{
    for (uint32_t k = 1; k <= VLANLUA_UVLAN_SVC_MAX; k++) {
        if (pstSrc->astSvc[k].uiSvcType == k) {
            pstDst->astSvc[k] = pstSrc->astSvc[k];
        }
    }
}

extern "C" uint32_t vlanLua_UVlanIsSvcSameEX(const VLANLUA_UVLAN_SVCINFO_S *pstA, const VLANLUA_UVLAN_SVCINFO_S *pstB)
{
    for (uint32_t k = 1; k <= VLANLUA_UVLAN_SVC_MAX; k++) {
        const VLANLUA_UVLAN_SVC_S &a = pstA->astSvc[k];
        const VLANLUA_UVLAN_SVC_S &b = pstB->astSvc[k];
        if (a.uiSvcType == b.uiSvcType && a.uiSvcValue == b.uiSvcValue) {
            continue;
        }
        /* An entry with a zero type word or a zero value carries nothing. */
        bool bAFull = a.uiSvcType != 0 && a.uiSvcValue != 0;
        bool bBFull = b.uiSvcType != 0 && b.uiSvcValue != 0;
        if (bAFull || bBFull) {
            return 1;
        }
    }
    return 0;
}

extern "C" uint32_t vlanLua_UVlanIsNullSvcInfo(const VLANLUA_UVLAN_SVCINFO_S *pstInfo)
{
    static constexpr uint32_t kAll[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    return AnyPresent(pstInfo, kAll, 16);
}

extern "C" uint32_t vlanLua_UVlanIsNullBaseSvcInfo(const VLANLUA_UVLAN_SVCINFO_S *pstInfo)
{
    return AnyPresent(pstInfo, kBaseSvcMap, VLANLUA_UVLAN_MAP_LEN);
}

extern "C" uint32_t vlanLua_UVlanIsNullVpnSvcInfo(const VLANLUA_UVLAN_SVCINFO_S *pstInfo)
{
    return AnyPresent(pstInfo, kVpnSvcMap, VLANLUA_UVLAN_MAP_LEN);
}

/* ---- service rows ---- */

extern "C" uint32_t vlanLua_UVlanCreateBaseSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                               const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex)
{
    return CreateSvcRow(pstCtx, kBaseTable, pstInfo, pstKey, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanCreateVpnSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                              const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex)
{
    return CreateSvcRow(pstCtx, kVpnTable, pstInfo, pstKey, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanSetBaseSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                            const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex)
{
    return SetSvcRow(pstCtx, kBaseTable, pstInfo, pstKey, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanSetVpnSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                           const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex)
{
    return SetSvcRow(pstCtx, kVpnTable, pstInfo, pstKey, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanDeleteBaseSvc(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex)
{
    return DeleteSvcRow(pstCtx, VLANLUA_TBL_UVLAN_BASE_SVC, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanDeleteVpnSvc(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex)
{
    return DeleteSvcRow(pstCtx, VLANLUA_TBL_UVLAN_VPN_SVC, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanCreateSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                           const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex)
{
    uint32_t uiRet = vlanLua_UVlanCreateBaseSvc(pstCtx, pstInfo, pstKey, uiSegIndex);
    if (uiRet != 0) {
        return uiRet;
    }
    return vlanLua_UVlanCreateVpnSvc(pstCtx, pstInfo, pstKey, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanSetSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                        const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex, uint32_t uiFlag)
{
    uint32_t uiRet;
    if ((uiFlag & UVLAN_SVC_NOBASE) != 0) {
        uiRet = vlanLua_UVlanCreateBaseSvc(pstCtx, pstInfo, pstKey, uiSegIndex);
    } else if (vlanLua_UVlanIsNullBaseSvcInfo(pstInfo) != 0) {
        uiRet = vlanLua_UVlanSetBaseSvc(pstCtx, pstInfo, pstKey, uiSegIndex);
    } else {
        uiRet = vlanLua_UVlanDeleteBaseSvc(pstCtx, uiSegIndex);
    }
    if (uiRet != 0) {
        return uiRet;
    }
    if ((uiFlag & UVLAN_SVC_NOVPN) != 0) {
        return vlanLua_UVlanCreateVpnSvc(pstCtx, pstInfo, pstKey, uiSegIndex);
    }
    if (vlanLua_UVlanIsNullVpnSvcInfo(pstInfo) != 0) {
        return vlanLua_UVlanSetVpnSvc(pstCtx, pstInfo, pstKey, uiSegIndex);
    }
    return vlanLua_UVlanDeleteVpnSvc(pstCtx, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanDeleteSvc(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex, uint32_t uiFlag)
{
    if ((uiFlag & UVLAN_SVC_NOBASE) == 0) {
        uint32_t uiRet = vlanLua_UVlanDeleteBaseSvc(pstCtx, uiSegIndex);
        if (uiRet != 0) {
            return uiRet;
        }
    }
    if ((uiFlag & UVLAN_SVC_NOVPN) == 0) {
        return vlanLua_UVlanDeleteVpnSvc(pstCtx, uiSegIndex);
    }
    return 0;
}

extern "C" void vlanLua_UVlanQryBaseSvcBySegindex(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex,
                                                  VLANLUA_UVLAN_SVCSEG_S *pstSeg, const uint32_t *puiMap)
{
    QrySvcRow(pstCtx, kBaseTable, uiSegIndex, pstSeg, puiMap);
}

extern "C" void vlanLua_UVlanQryVpnSvcBySegindex(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex,
                                                 VLANLUA_UVLAN_SVCSEG_S *pstSeg, const uint32_t *puiMap)
{
    QrySvcRow(pstCtx, kVpnTable, uiSegIndex, pstSeg, puiMap);
}
