/* The configuration database's schema: every table the module reads or writes, its fields with
 * type code and width, its key and the indexes its queries need. Data only. */
#include <stddef.h>

#include "ecm_capi.h"
#include "ecm_ctl.h"
#include "ecm_db.h"

namespace {

constexpr uint8_t U8 = ECM_TYPE_U8;
constexpr uint8_t U16 = ECM_TYPE_U16;
constexpr uint8_t U32 = ECM_TYPE_U32;
constexpr uint8_t TXT = ECM_TYPE_TEXT;
constexpr uint8_t VR = ECM_TYPE_VRID;
constexpr uint8_t BMP = ECM_TYPE_BITMAP;

const ECM_CTL_FIELD_S g_astIfInfo[] = {
    {2, U32, 4, "f2_ifindex"}, {3, VR, 4, "f3_vrid"}, {4, U32, 4, "f4_kind"}, {12, U32, 4, "f12_main_ifindex"}};
const ECM_CTL_FIELD_S g_astL2Sup[] = {{1, U32, 4, "f1_ifindex"}, {3, U32, 4, "f3_sup_mode"}};
const ECM_CTL_FIELD_S g_astPwSup[] = {
    {1, VR, 4, "f1_vrid"}, {2, U32, 4, "f2_ifindex"}, {3, U32, 4, "f3_sup_mode"}};
const ECM_CTL_FIELD_S g_astStackMap[] = {{5, U16, 2, "f5_vlan"}, {7, VR, 4, "f7_vrid"}};
const ECM_CTL_FIELD_S g_astL2Port[] = {
    {1, U32, 4, "f1_ifindex"}, {2, U16, 2, "f2_pvid"}, {6, VR, 4, "f6_vrid"}, {12, U8, 1, "f12_negotiation"}};
const ECM_CTL_FIELD_S g_astPvRelation[] = {
    {1, VR, 4, "f1_vrid"}, {2, U32, 4, "f2_ifindex"}, {3, BMP, 512, "f3_bitmap1"}, {4, BMP, 512, "f4_bitmap2"}};
const ECM_CTL_FIELD_S g_astIfmProto[] = {
    {1, U32, 4, "f1_ifindex"}, {2, U8, 1, "f2_proto"}, {3, U8, 1, "f3_subcode"}, {5, U32, 4, "f5_key"}};
const ECM_CTL_FIELD_S g_astCtrlVid[] = {{1, U32, 4, "f1_ctrl_key"}, {2, U32, 4, "f2_slice"},
                                        {3, BMP, 512, "f3_bitmap"},  {4, VR, 4, "f4_vrid"},
                                        {5, U8, 1, "f5_full"}};
const ECM_CTL_FIELD_S g_astDot1qSeg[] = {
    {1, U32, 4, "f1_attr1"},     {2, U32, 4, "f2_ifindex"},  {3, U32, 4, "f3_seg_index"}, {4, U16, 2, "f4_vlan_begin"},
    {5, U16, 2, "f5_vlan_end"},  {6, U8, 1, "f6_group_id"},  {7, VR, 4, "f7_vrid"},       {8, U32, 4, "f8_attr8"},
    {9, U32, 4, "f9_attr9"},     {10, U8, 1, "f10_attr10"}};
const ECM_CTL_FIELD_S g_astSegIndex[] = {{1, U32, 4, "f1_seg_index"}, {2, VR, 4, "f2_vrid"}};
const ECM_CTL_FIELD_S g_astQinqSeg[] = {
    {1, U32, 4, "f1_attr1"},       {2, U32, 4, "f2_ifindex"},        {3, U32, 4, "f3_seg_index"},
    {4, U16, 2, "f4_pe_begin"},    {5, U16, 2, "f5_pe_end"},         {6, U16, 2, "f6_ce_begin"},
    {7, U16, 2, "f7_ce_end"},      {8, U8, 1, "f8_group_id"},        {9, VR, 4, "f9_vrid"},
    {10, U32, 4, "f10_main_ifindex"}, {11, U32, 4, "f11_up_id"},     {12, TXT, 64, "f12_key_name"}};
const ECM_CTL_FIELD_S g_astQinqIfSpec[] = {
    {1, VR, 4, "f1_vrid"}, {2, U32, 4, "f2_main_ifindex"}, {3, U32, 4, "f3_qinq_num"}};
const ECM_CTL_FIELD_S g_astUvlanQinqSeg[] = {
    {1, U32, 4, "f1_ifindex"},  {2, U32, 4, "f2_seg_index"}, {3, U32, 4, "f3_key_b"}, {4, VR, 4, "f4_vrid"},
    {5, U16, 2, "f5_ce_begin"}, {6, U16, 2, "f6_ce_end"},    {7, U16, 2, "f7_pe_begin"},
    {8, U16, 2, "f8_pe_end"},   {9, U32, 4, "f9_key_a"},     {10, U32, 4, "f10_up_id"},
    {11, TXT, 64, "f11_key_name"}};
const ECM_CTL_FIELD_S g_astBaseSvc[] = {
    {1, U32, 4, "f1_ifindex"}, {2, U32, 4, "f2_seg_index"}, {3, U32, 4, "f3_key_b"}, {4, U32, 4, "f4_key_a"},
    {5, VR, 4, "f5_vrid"},     {6, U32, 4, "f6_svc16"},     {7, U32, 4, "f7_svc1"},  {8, U32, 4, "f8_svc2"},
    {9, U32, 4, "f9_svc3"},    {10, U32, 4, "f10_svc4"},    {11, U32, 4, "f11_svc5"}, {12, U32, 4, "f12_svc6"},
    {13, U32, 4, "f13_svc7"}};
const ECM_CTL_FIELD_S g_astVpnSvc[] = {
    {1, U32, 4, "f1_ifindex"}, {2, U32, 4, "f2_seg_index"}, {3, U32, 4, "f3_key_b"},  {4, U32, 4, "f4_key_a"},
    {5, VR, 4, "f5_vrid"},     {6, U32, 4, "f6_svc8"},      {7, U32, 4, "f7_svc9"},   {8, U32, 4, "f8_svc10"},
    {9, U32, 4, "f9_svc11"},   {10, U32, 4, "f10_svc12"},   {11, U32, 4, "f11_svc13"}, {12, U32, 4, "f12_svc14"},
    {13, U32, 4, "f13_svc15"}};
const ECM_CTL_FIELD_S g_astUvlanDot1q[] = {
    {1, U32, 4, "f1_ifindex"}, {2, U32, 4, "f2_attr2"},       {3, U32, 4, "f3_attr3"},
    {4, VR, 4, "f4_vrid"},     {5, U16, 2, "f5_vlan_begin"},  {6, U16, 2, "f6_vlan_end"}};
const ECM_CTL_FIELD_S g_astUvlanDesc[] = {{1, U32, 4, "f1_ifindex"},
                                          {2, U16, 2, "f2_pe_vlan"},
                                          {3, U16, 2, "f3_ce_vlan"},
                                          {4, TXT, 129, "f4_description"},
                                          {5, VR, 4, "f5_vrid"}};
const ECM_CTL_FIELD_S g_astUvlanAnyOther[] = {{1, U32, 4, "f1_ifindex"}, {5, VR, 4, "f5_vrid"}};

#define ECM_FIELDS(a) a, sizeof(a) / sizeof((a)[0])

/* Sorted by identifier for the binary search of ECM_CTL_FindTable. */
const ECM_CTL_TABLE_S g_astTables[] = {
    {0x08360535u, "UVLAN_VPN_SVC", ECM_FIELDS(g_astVpnSvc), {2, 0}, 1},
    {0x083606C0u, "IF_INFO", ECM_FIELDS(g_astIfInfo), {0, 0}, 0},
    {0x083606C1u, "QINQ_MATCH_SEG", ECM_FIELDS(g_astQinqSeg), {2, 3}, 2},
    {0x083606C2u, "DOT1Q_MATCH_SEG", ECM_FIELDS(g_astDot1qSeg), {2, 3}, 2},
    {0x083606CAu, "SEG_INDEX", ECM_FIELDS(g_astSegIndex), {1, 0}, 1},
    {0x083607EDu, "L2QINQ_STACKMAP", ECM_FIELDS(g_astStackMap), {0, 0}, 0},
    {0x083607EFu, "CTRL_VID_BITMAP", ECM_FIELDS(g_astCtrlVid), {1, 2}, 2},
    {0x08361117u, "UVLAN_DOT1Q", ECM_FIELDS(g_astUvlanDot1q), {0, 0}, 0},
    {0x08361118u, "UVLAN_QINQ_SEG", ECM_FIELDS(g_astUvlanQinqSeg), {1, 2}, 2},
    {0x08361119u, "UVLAN_BASE_SVC", ECM_FIELDS(g_astBaseSvc), {2, 0}, 1},
    {0x0836111Bu, "UVLAN_DESC", ECM_FIELDS(g_astUvlanDesc), {0, 0}, 0},
    {0x0836117Fu, "UVLAN_ANYOTHER", ECM_FIELDS(g_astUvlanAnyOther), {0, 0}, 0},
    {0x08361A12u, "QINQ_IF_SPEC", ECM_FIELDS(g_astQinqIfSpec), {1, 2}, 2},
    {0x0852057Bu, "IFM_PROTO", ECM_FIELDS(g_astIfmProto), {0, 0}, 0},
    {0x0D49077Du, "PV_RELATION", ECM_FIELDS(g_astPvRelation), {0, 0}, 0},
    {0x0D490804u, "L2_PORT", ECM_FIELDS(g_astL2Port), {0, 0}, 0},
    {0x0D4B04E9u, "L2SUP_CFG", ECM_FIELDS(g_astL2Sup), {0, 0}, 0},
    {0x0D4B12D9u, "PWSUP_CFG", ECM_FIELDS(g_astPwSup), {0, 0}, 0},
};
constexpr uint32_t TABLE_NUM = sizeof(g_astTables) / sizeof(g_astTables[0]);
static_assert(TABLE_NUM == 18, "one entry per table of the configuration");

/* Indexes beyond the key: the columns the module's conditions and sorts use, equalities first. */
const EcmIndexDef g_astIndexes[] = {
    {0x083606C0u, {2}, 1},        {0x083606C0u, {3, 4, 2}, 3}, {0x0D4B04E9u, {1}, 1},
    {0x0D4B12D9u, {1, 2}, 2},     {0x083607EDu, {5, 7}, 2},    {0x0D490804u, {1}, 1},
    {0x0D490804u, {6, 2}, 2},     {0x0D49077Du, {1}, 1},       {0x0852057Bu, {1, 2}, 2},
    {0x083606C2u, {2, 6}, 2},     {0x083606C2u, {2, 5, 6}, 3}, {0x083606C2u, {2, 4, 6}, 3},
    {0x083606C1u, {10, 9}, 2},    {0x083606C1u, {9, 2}, 2},
    {0x08361118u, {4, 1}, 2},     {0x08361117u, {1, 4}, 2},    {0x08361117u, {4, 1}, 2},
    {0x0836111Bu, {5, 1}, 2},     {0x0836117Fu, {5, 1}, 2},
};

/* Interface, PE range, CE range of the segment tables: their reads ask which stored rectangles of
 * one interface overlap a given one. */
const EcmSpatialDef g_astSpatial[] = {
    {0x08361118u, {1, 7, 5}, {1, 8, 6}, 3},
};

}  // namespace

extern "C" int ECM_CTL_IsByteType(uint32_t uiType)
{
    return uiType == ECM_TYPE_TEXT || uiType == ECM_TYPE_BITMAP;
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
