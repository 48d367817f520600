/* The configuration database's schema: every table the module reads or writes with its fields and
 * key, made from the module's description (vlanlua_tables.h), and the indexes its queries need. */
#include <stddef.h>
#include <string.h>

#include <algorithm>
#include <array>

#include "ecm_capi.h"
#include "ecm_ctl.h"
#include "ecm_db.h"
#include "vlanlua_tables.h"

namespace {

/* ---- the tables, as vlanlua_tables.h describes them ---- */

#define ECM_FIELD_(T, no, name, type, width, column) {no, ECM_TYPE_##type, width, column, #name},
#define ECM_FIELD_LIST_(T, uiId, pcWhat) const ECM_CTL_FIELD_S g_ast##T##Fields[] = {VLANLUA_FIELDS_##T(ECM_FIELD_, T)};
VLANLUA_TABLE_LIST(ECM_FIELD_LIST_)

#define ECM_KEY_FIELD_(T, name) VLANLUA_FLD_##T##_##name,
#define ECM_KEY_COUNT_(T, name) +1
#define ECM_TABLE_(T, uiId, pcWhat)                                                                   \
    {VLANLUA_TBL_##T, #T, g_ast##T##Fields, sizeof(g_ast##T##Fields) / sizeof(g_ast##T##Fields[0]), \
     {VLANLUA_KEY_##T(ECM_KEY_FIELD_, T)}, 0 VLANLUA_KEY_##T(ECM_KEY_COUNT_, T), pcWhat},
constexpr ECM_CTL_TABLE_S g_astListed[] = {VLANLUA_TABLE_LIST(ECM_TABLE_)};
constexpr uint32_t TABLE_NUM = sizeof(g_astListed) / sizeof(g_astListed[0]);

/* Sorted by identifier for the binary search of ECM_CTL_FindTable. */
constexpr std::array<ECM_CTL_TABLE_S, TABLE_NUM> SortedById()
{
    std::array<ECM_CTL_TABLE_S, TABLE_NUM> astTables{};
    std::copy(std::begin(g_astListed), std::end(g_astListed), astTables.begin());
    std::sort(astTables.begin(), astTables.end(),
              [](const ECM_CTL_TABLE_S &a, const ECM_CTL_TABLE_S &b) { return a.uiTableId < b.uiTableId; });
    return astTables;
}
constexpr std::array<ECM_CTL_TABLE_S, TABLE_NUM> g_astTables = SortedById();

/* A field of a table by its names in vlanlua_tables.h. */
#define ECM_FLD(T, name) VLANLUA_FLD_##T##_##name

/* Indexes beyond the key: the columns the module's conditions and sorts use, equalities first. */
const EcmIndexDef g_astIndexes[] = {
    {VLANLUA_TBL_IF_INFO, {ECM_FLD(IF_INFO, ifIndex)}, 1},
    {VLANLUA_TBL_IF_INFO, {ECM_FLD(IF_INFO, vrId), ECM_FLD(IF_INFO, kind), ECM_FLD(IF_INFO, ifIndex)}, 3},
    {VLANLUA_TBL_L2SUP_CFG, {ECM_FLD(L2SUP_CFG, ifIndex)}, 1},
    {VLANLUA_TBL_PWSUP_CFG, {ECM_FLD(PWSUP_CFG, vrId), ECM_FLD(PWSUP_CFG, ifIndex)}, 2},
    {VLANLUA_TBL_L2QINQ_STACKMAP, {ECM_FLD(L2QINQ_STACKMAP, vlanId), ECM_FLD(L2QINQ_STACKMAP, vrId)}, 2},
    {VLANLUA_TBL_L2_PORT, {ECM_FLD(L2_PORT, ifIndex)}, 1},
    {VLANLUA_TBL_L2_PORT, {ECM_FLD(L2_PORT, vrId), ECM_FLD(L2_PORT, pvid)}, 2},
    {VLANLUA_TBL_PV_RELATION, {ECM_FLD(PV_RELATION, vrId)}, 1},
    {VLANLUA_TBL_IFM_PROTO, {ECM_FLD(IFM_PROTO, ifIndex), ECM_FLD(IFM_PROTO, protocol)}, 2},
    {VLANLUA_TBL_DOT1Q_MATCH_SEG, {ECM_FLD(DOT1Q_MATCH_SEG, ifIndex), ECM_FLD(DOT1Q_MATCH_SEG, groupId)}, 2},
    {VLANLUA_TBL_DOT1Q_MATCH_SEG,
     {ECM_FLD(DOT1Q_MATCH_SEG, ifIndex), ECM_FLD(DOT1Q_MATCH_SEG, vlanEnd), ECM_FLD(DOT1Q_MATCH_SEG, groupId)}, 3},
    {VLANLUA_TBL_DOT1Q_MATCH_SEG,
     {ECM_FLD(DOT1Q_MATCH_SEG, ifIndex), ECM_FLD(DOT1Q_MATCH_SEG, vlanBegin), ECM_FLD(DOT1Q_MATCH_SEG, groupId)}, 3},
    {VLANLUA_TBL_QINQ_MATCH_SEG, {ECM_FLD(QINQ_MATCH_SEG, mainIfIndex), ECM_FLD(QINQ_MATCH_SEG, vrId)}, 2},
    {VLANLUA_TBL_QINQ_MATCH_SEG, {ECM_FLD(QINQ_MATCH_SEG, vrId), ECM_FLD(QINQ_MATCH_SEG, ifIndex)}, 2},
    {VLANLUA_TBL_UVLAN_QINQ_SEG, {ECM_FLD(UVLAN_QINQ_SEG, vrId), ECM_FLD(UVLAN_QINQ_SEG, ifIndex)}, 2},
    {VLANLUA_TBL_UVLAN_DOT1Q, {ECM_FLD(UVLAN_DOT1Q, ifIndex), ECM_FLD(UVLAN_DOT1Q, vrId)}, 2},
    {VLANLUA_TBL_UVLAN_DOT1Q, {ECM_FLD(UVLAN_DOT1Q, vrId), ECM_FLD(UVLAN_DOT1Q, ifIndex), ECM_FLD(UVLAN_DOT1Q, vlanBegin)}, 3},
    {VLANLUA_TBL_UVLAN_DESC, {ECM_FLD(UVLAN_DESC, vrId), ECM_FLD(UVLAN_DESC, ifIndex)}, 2},
    {VLANLUA_TBL_UVLAN_ANYOTHER, {ECM_FLD(UVLAN_ANYOTHER, vrId), ECM_FLD(UVLAN_ANYOTHER, ifIndex)}, 2},
};

/* Interface, PE range, CE range of the segment tables: their reads ask which stored rectangles of
 * one interface overlap a given one. */
const EcmSpatialDef g_astSpatial[] = {
    {VLANLUA_TBL_UVLAN_QINQ_SEG, ECM_FLD(UVLAN_QINQ_SEG, ifIndex),
     {ECM_FLD(UVLAN_QINQ_SEG, peBegin), ECM_FLD(UVLAN_QINQ_SEG, ceBegin)},
     {ECM_FLD(UVLAN_QINQ_SEG, peEnd), ECM_FLD(UVLAN_QINQ_SEG, ceEnd)}},
};
static_assert(VlanLuaTbl::UVLAN_QINQ_SEG::ifIndex::usWidth == 4 && VlanLuaTbl::UVLAN_QINQ_SEG::peBegin::usWidth == 2 &&
                  VlanLuaTbl::UVLAN_QINQ_SEG::peEnd::usWidth == 2 && VlanLuaTbl::UVLAN_QINQ_SEG::ceBegin::usWidth == 2 &&
                  VlanLuaTbl::UVLAN_QINQ_SEG::ceEnd::usWidth == 2,
              "a spatial index folds a u32 key over ranges of 16 bits");

}  // namespace

extern "C" int ECM_CTL_IsByteType(uint32_t uiType)
{
    return Ecm_IsByteType(uiType);
}

extern "C" const ECM_CTL_TABLE_S *ECM_CTL_FindTable(uint32_t uiTableId)
{
    uint32_t uiLo = 0;
    uint32_t uiHi = TABLE_NUM;
    while (uiLo < uiHi) {
        uint32_t uiMid = (uiLo + uiHi) / 2;
        if (g_astTables[uiMid].uiTableId < uiTableId) {
            uiLo = uiMid + 1;
        } else {
            uiHi = uiMid;
        }
    }
    return (uiLo < TABLE_NUM && g_astTables[uiLo].uiTableId == uiTableId) ? &g_astTables[uiLo] : nullptr;
}

extern "C" const ECM_CTL_FIELD_S *ECM_CTL_FindField(const ECM_CTL_TABLE_S *pstTable, uint32_t uiFieldNo)
{
    for (uint32_t i = 0; pstTable != nullptr && i < pstTable->uiFieldNum; i++) {
        if (pstTable->pstFields[i].ucFieldNo == uiFieldNo) {
            return &pstTable->pstFields[i];
        }
    }
    return nullptr;
}

extern "C" const ECM_CTL_TABLE_S *ECM_CTL_FindTableByName(const char *pcName)
{
    for (const ECM_CTL_TABLE_S &stTable : g_astTables) {
        if (pcName != nullptr && strcmp(stTable.pcName, pcName) == 0) {
            return &stTable;
        }
    }
    return nullptr;
}

extern "C" const ECM_CTL_FIELD_S *ECM_CTL_FindFieldByName(const ECM_CTL_TABLE_S *pstTable, const char *pcScriptName)
{
    for (uint32_t i = 0; pstTable != nullptr && pcScriptName != nullptr && i < pstTable->uiFieldNum; i++) {
        if (strcmp(pstTable->pstFields[i].pcScriptName, pcScriptName) == 0) {
            return &pstTable->pstFields[i];
        }
    }
    return nullptr;
}

extern "C" const ECM_CTL_TABLE_S *ECM_CTL_TableAt(uint32_t uiIndex)
{
    return uiIndex < TABLE_NUM ? &g_astTables[uiIndex] : nullptr;
}

const EcmIndexDef *Ecm_IndexAt(uint32_t uiIndex)
{
    return uiIndex < sizeof(g_astIndexes) / sizeof(g_astIndexes[0]) ? &g_astIndexes[uiIndex] : nullptr;
}

const EcmSpatialDef *Ecm_SpatialAt(uint32_t uiIndex)
{
    return uiIndex < sizeof(g_astSpatial) / sizeof(g_astSpatial[0]) ? &g_astSpatial[uiIndex] : nullptr;
}

const EcmSpatialDef *Ecm_SpatialOf(uint32_t uiTableId)
{
    for (uint32_t i = 0; Ecm_SpatialAt(i) != nullptr; i++) {
        if (g_astSpatial[i].uiTableId == uiTableId) {
            return &g_astSpatial[i];
        }
    }
    return nullptr;
}
