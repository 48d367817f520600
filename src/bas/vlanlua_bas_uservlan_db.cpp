/* User-VLAN QinQ segment rows and their base- and VPN-service rows: counting, reading, writing.
 * Uses only the platform's names; every write passes the final argument 1. */
#include "vlanlua_uservlan.h"

#include "bas/vlanlua_bas_query.h"
#include "bas/vlanlua_bas_segindex.h"
#include "ecm_capi.h"
#include "sec_bound.h"

namespace {

using Seg = VlanLuaTbl::UVLAN_QINQ_SEG;
using BaseSvc = VlanLuaTbl::UVLAN_BASE_SVC;
using VpnSvc = VlanLuaTbl::UVLAN_VPN_SVC;

constexpr uint32_t kWriteFlag = 1;
constexpr uint32_t kSvcRowLen = VLANLUA_UVLAN_MAP_LEN * sizeof(uint32_t);
constexpr uint32_t kBaseSvcMap[VLANLUA_UVLAN_MAP_LEN] = {1, 2, 3, 4, 5, 6, 7, 16};
constexpr uint32_t kVpnSvcMap[VLANLUA_UVLAN_MAP_LEN] = {8, 9, 10, 11, 12, 13, 14, 15};

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
void AddSegQryWhere(VlanLuaQuery<Seg> &query, const VLANLUA_UVLAN_SEGQRY_S *pstQry)
{
    query.Where<Seg::ifIndex>(VLANLUA_OP_EQ, pstQry->uiIfIndex);
    query.Where<Seg::peEnd>(VLANLUA_OP_GE, pstQry->usPeLow);
    query.Where<Seg::peBegin>(VLANLUA_OP_LE, pstQry->usPeHigh);
    query.Where<Seg::ceEnd>(VLANLUA_OP_GE, pstQry->usCeLow);
    query.Where<Seg::ceBegin>(VLANLUA_OP_LE, pstQry->usCeHigh);
}

/* The key fields every service row starts with: segment index, interface, key word A (unless
 * skipped), key word B, VR ID. The two service tables number them alike. */
template <class SvcTable>
void AddSvcKeyFields(VlanLuaWriteList<SvcTable> &list, const uint32_t *puiSegIndex, const VLANLUA_UVLAN_KEY_S *pstKey,
                     bool bKeyA)
{
    list.template Add<typename SvcTable::segIndex>(puiSegIndex);
    list.template Add<typename SvcTable::ifIndex>(&pstKey->uiIfIndex);
    if (bKeyA) {
        list.template Add<typename SvcTable::keyA>(&pstKey->uiKeyA);
    }
    list.template Add<typename SvcTable::keyB>(&pstKey->uiKeyB);
    list.template Add<typename SvcTable::vrId>(&pstKey->uiVrId);
}

template <class SvcTable>
uint32_t DeleteSvcRow(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex)
{
    if (!CtxUsable(pstCtx)) {
        return 1;
    }
    VlanLuaWriteList<SvcTable> list;
    list.template Add<typename SvcTable::segIndex>(&uiSegIndex);
    return list.Delete(pstCtx->pObj, kWriteFlag);
}

/* One service table: its rows hold the values of eight service types, column by column. */
struct SvcTableInfo {
    uint32_t uiNoRowFlag;
    const char *pcNewErr;
    const uint32_t *puiTypes;                   /* the service types in column order (the map) */
    uint8_t aucColumns[VLANLUA_UVLAN_MAP_LEN];  /* their fields */
    uint32_t uiCreateCheck;                     /* a row is created when one of the first this many is non-zero */
    bool bSetKeyA;                              /* whether an update sends key word A */
};

constexpr SvcTableInfo kBaseTable = {
    UVLAN_SVC_NOBASE, "vlanLua_UVlanQryBaseSvcBySegindex: VLANLUA_RecordSet_New ERR\n", kBaseSvcMap,
    {BaseSvc::svc1::ucFieldNo, BaseSvc::svc2::ucFieldNo, BaseSvc::svc3::ucFieldNo, BaseSvc::svc4::ucFieldNo,
     BaseSvc::svc5::ucFieldNo, BaseSvc::svc6::ucFieldNo, BaseSvc::svc7::ucFieldNo, BaseSvc::svc16::ucFieldNo},
    7, true};
constexpr SvcTableInfo kVpnTable = {
    UVLAN_SVC_NOVPN, "vlanLua_UVlanQryVpnSvcBySegindex: VLANLUA_RecordSet_New ERR\n", kVpnSvcMap,
    {VpnSvc::svc8::ucFieldNo, VpnSvc::svc9::ucFieldNo, VpnSvc::svc10::ucFieldNo, VpnSvc::svc11::ucFieldNo,
     VpnSvc::svc12::ucFieldNo, VpnSvc::svc13::ucFieldNo, VpnSvc::svc14::ucFieldNo, VpnSvc::svc15::ucFieldNo},
    8, false};

/* Inserts the table's row for a segment with every column; nothing when the checked values are all 0. */
template <class SvcTable>
uint32_t CreateSvcRow(VLANLUA_CTX_S *pstCtx, const SvcTableInfo &tbl, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
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
    VlanLuaWriteList<SvcTable> list;
    AddSvcKeyFields(list, &uiSegIndex, pstKey, true);
    for (uint32_t i = 0; i < VLANLUA_UVLAN_MAP_LEN; i++) {
        list.AddField(tbl.aucColumns[i], &pstInfo->astSvc[tbl.puiTypes[i]].uiSvcValue);
    }
    return list.Insert(pstCtx->pObj, kWriteFlag);
}

/* Updates the table's row of a segment with the columns whose service entry has a type word. */
template <class SvcTable>
uint32_t SetSvcRow(VLANLUA_CTX_S *pstCtx, const SvcTableInfo &tbl, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                   const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex)
{
    if (!CtxUsable(pstCtx) || pstInfo == nullptr || pstKey == nullptr) {
        return 1;
    }
    VlanLuaWriteList<SvcTable> list;
    AddSvcKeyFields(list, &uiSegIndex, pstKey, tbl.bSetKeyA);
    for (uint32_t i = 0; i < VLANLUA_UVLAN_MAP_LEN; i++) {
        const VLANLUA_UVLAN_SVC_S &e = pstInfo->astSvc[tbl.puiTypes[i]];
        if (e.uiSvcType != 0) {
            list.AddField(tbl.aucColumns[i], &e.uiSvcValue);
        }
    }
    return list.Set(pstCtx->pObj, kWriteFlag);
}

/* Reads one service row of a segment into the record through the map; a missing row, or one
 * whose values are all 0, sets the table's no-row flag. */
template <class SvcTable>
void QrySvcRow(VLANLUA_CTX_S *pstCtx, const SvcTableInfo &tbl, uint32_t uiSegIndex, VLANLUA_UVLAN_SVCSEG_S *pstSeg,
               const uint32_t *puiMap)
{
    if (!CtxUsable(pstCtx) || pstSeg == nullptr || puiMap == nullptr) {
        return;
    }
    VlanLuaQuery<SvcTable> query(pstCtx->pObj);
    if (!query.Made()) {
        VLANLUA_Write(pstCtx->pstLog, "%s", tbl.pcNewErr);
        return;
    }
    for (uint8_t ucField : tbl.aucColumns) {
        query.SelectField(ucField);
    }
    query.template Where<typename SvcTable::segIndex>(VLANLUA_OP_EQ, uiSegIndex);
    uint32_t uiRet = query.Query(1);
    if (uiRet != 0 || VLANLUA_RecordSet_GetRecordNum(query.Get()) == 0) {
        pstSeg->uiFlag |= tbl.uiNoRowFlag;
        vlanLua_UVlanBaseSvcSetInvalid(&pstSeg->stSvcInfo, puiMap);
        return;
    }
    uint32_t auiValues[VLANLUA_UVLAN_MAP_LEN];
    (void)memcpy_s(auiValues, sizeof(auiValues), VLANLUA_RecordSet_GetDataBuff(query.Get()), kSvcRowLen);
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
    VlanLuaQuery<Seg> query(pstCtx->pObj);
    if (!query.Made()) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UserVlanCnt: VLANLUA_RecordSet_New rtn ERR\n");
        return 1;
    }
    AddSegQryWhere(query, pstQry);
    return query.Count(puiCnt);
}

extern "C" void vlanLua_UVlanQueryQinqSeg(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SEGQRY_S *pstQry,
                                          VLANLUA_UVLAN_SEGLIST_S *pstList)
{
    uint32_t uiCnt = 0;
    if (pstList == nullptr || vlanLua_UVlanGetQinqSegCnt(pstCtx, pstQry, &uiCnt) != 0 || uiCnt == 0) {
        return;
    }
    VlanLuaQuery<Seg> query(pstCtx->pObj);
    if (!query.Made()) {
        VLANLUA_Write(pstCtx->pstLog, "vlanLua_UserVlanQinqQuery: VLANLUA_RecordSet_New ERR\n");
        return;
    }
    query.SelectRecord<VLANLUA_UVLAN_SEGREC_S, Seg::ifIndex, Seg::peBegin, Seg::peEnd, Seg::ceBegin, Seg::ceEnd,
                       Seg::segIndex, Seg::keyA, Seg::keyB>();
    AddSegQryWhere(query, pstQry);
    query.SortBy<Seg::peBegin, Seg::ceBegin>();
    uint16_t usWant = uiCnt > 0xFFFFu ? 0xFFFFu : static_cast<uint16_t>(uiCnt);
    if (query.Query(usWant) != 0) {
        return;
    }
    pstList->uiNum = VLANLUA_RecordSet_GetRecordNum(query.Get());
    pstList->pucData = VLANLUA_RecordSet_GetDataBuff(query.Get());
    pstList->pstRs = query.Release();
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
    VlanLuaWriteList<Seg> list;
    list.Add<Seg::segIndex>(puiSegIndex);
    list.Add<Seg::ifIndex>(&pstKey->uiIfIndex);
    list.Add<Seg::ceBegin>(&pstPair->usCeBgn);
    list.Add<Seg::ceEnd>(&pstPair->usCeEnd);
    list.Add<Seg::peBegin>(&pstPair->usPeBgn);
    list.Add<Seg::peEnd>(&pstPair->usPeEnd);
    list.Add<Seg::keyA>(&pstKey->uiKeyA);
    list.Add<Seg::keyB>(&pstKey->uiKeyB);
    list.Add<Seg::vrId>(&pstKey->uiVrId);
    list.Add<Seg::upId>(&pstKey->uiUpId);
    list.Add<Seg::keyName>(&pstKey->szKeyName);
    return list.Insert(pstCtx->pObj, kWriteFlag);
}

extern "C" uint32_t vlanLua_UVlanDeleteQinqSeg(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex,
                                               const VLANLUA_UVLAN_KEY_S *pstKey)
{
    if (!CtxUsable(pstCtx) || pstKey == nullptr) {
        return 1;
    }
    VlanLuaWriteList<Seg> list;
    list.Add<Seg::segIndex>(&uiSegIndex);
    list.Add<Seg::ifIndex>(&pstKey->uiIfIndex);
    return list.Delete(pstCtx->pObj, kWriteFlag);
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
    return CreateSvcRow<BaseSvc>(pstCtx, kBaseTable, pstInfo, pstKey, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanCreateVpnSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                              const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex)
{
    return CreateSvcRow<VpnSvc>(pstCtx, kVpnTable, pstInfo, pstKey, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanSetBaseSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                            const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex)
{
    return SetSvcRow<BaseSvc>(pstCtx, kBaseTable, pstInfo, pstKey, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanSetVpnSvc(VLANLUA_CTX_S *pstCtx, const VLANLUA_UVLAN_SVCINFO_S *pstInfo,
                                           const VLANLUA_UVLAN_KEY_S *pstKey, uint32_t uiSegIndex)
{
    return SetSvcRow<VpnSvc>(pstCtx, kVpnTable, pstInfo, pstKey, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanDeleteBaseSvc(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex)
{
    return DeleteSvcRow<BaseSvc>(pstCtx, uiSegIndex);
}

extern "C" uint32_t vlanLua_UVlanDeleteVpnSvc(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex)
{
    return DeleteSvcRow<VpnSvc>(pstCtx, uiSegIndex);
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
    QrySvcRow<BaseSvc>(pstCtx, kBaseTable, uiSegIndex, pstSeg, puiMap);
}

extern "C" void vlanLua_UVlanQryVpnSvcBySegindex(VLANLUA_CTX_S *pstCtx, uint32_t uiSegIndex,
                                                 VLANLUA_UVLAN_SVCSEG_S *pstSeg, const uint32_t *puiMap)
{
    QrySvcRow<VpnSvc>(pstCtx, kVpnTable, uiSegIndex, pstSeg, puiMap);
}
