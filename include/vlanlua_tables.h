/* The configuration tables the module reads and writes, each described once: its identifier, its
 * name, what it holds, its key and its fields, each with number, name, type, width and the column
 * that keeps it in a database file. Everything else that names a table or a field is made from
 * this list: the identifiers and field numbers below, the module's typed fields (the width of a
 * condition's value is checked against them when compiling), the database's schema, the names
 * that scripts, cfgdb and the vlanlua command use, and the manual's table list, which a test
 * compares with it.
 *
 * VLANLUA_TABLE_LIST(X) calls X(NAME, identifier, what the table holds) once per table.
 * VLANLUA_FIELDS_<NAME>(F, T) calls F(T, number, name, type, width, column) once per field, in
 * field-number order; type is U8, U16, U32, TEXT, VRID or BITMAP (the type codes of a write).
 * VLANLUA_KEY_<NAME>(K, T) calls K(T, name) for each key field, in key order; a table the module
 * only reads has none. */
#ifndef VLANLUA_TABLES_H
#define VLANLUA_TABLES_H

#include <stdint.h>

#include "ecm_capi.h"

#define VLANLUA_TABLE_LIST(X)                                                                    \
    X(IF_INFO, 0x083606C0u, "interfaces")                                                        \
    X(L2SUP_CFG, 0x0D4B04E9u, "layer-2 support configuration")                                   \
    X(PWSUP_CFG, 0x0D4B12D9u, "pseudowire support configuration")                                \
    X(L2QINQ_STACKMAP, 0x083607EDu, "QinQ stacking map")                                         \
    X(L2_PORT, 0x0D490804u, "layer-2 ports")                                                     \
    X(PV_RELATION, 0x0D49077Du, "port-VLAN relations")                                           \
    X(IFM_PROTO, 0x0852057Bu, "interface protocols")                                             \
    X(CTRL_VID_BITMAP, 0x083607EFu, "control-VLAN bitmaps by slice")                             \
    X(DOT1Q_MATCH_SEG, 0x083606C2u, "Dot1Q match segments")                                      \
    X(SEG_INDEX, 0x083606CAu, "segment indexes handed out")                                      \
    X(QINQ_MATCH_SEG, 0x083606C1u, "QinQ match segments")                                        \
    X(QINQ_IF_SPEC, 0x08361A12u, "QinQ pair counter per main interface")                         \
    X(UVLAN_QINQ_SEG, 0x08361118u, "user-VLAN QinQ segments")                                    \
    X(UVLAN_BASE_SVC, 0x08361119u, "base-service records of user-VLAN QinQ segments")            \
    X(UVLAN_VPN_SVC, 0x08360535u, "VPN-service records of user-VLAN QinQ segments")              \
    X(UVLAN_DOT1Q, 0x08361117u, "user-VLAN 802.1Q ranges")                                       \
    X(UVLAN_DESC, 0x0836111Bu, "user-VLAN descriptions")                                         \
    X(UVLAN_ANYOTHER, 0x0836117Fu, "user-VLAN any-other entries")

#define VLANLUA_FIELDS_IF_INFO(F, T)                                                             \
    F(T, 2, ifIndex, U32, 4, "f2_ifindex")                                                       \
    F(T, 3, vrId, VRID, 4, "f3_vrid")                                                            \
    F(T, 4, kind, U32, 4, "f4_kind")                                                             \
    F(T, 12, mainIfIndex, U32, 4, "f12_main_ifindex")
#define VLANLUA_KEY_IF_INFO(K, T)

#define VLANLUA_FIELDS_L2SUP_CFG(F, T)                                                           \
    F(T, 1, ifIndex, U32, 4, "f1_ifindex")                                                       \
    F(T, 3, supMode, U32, 4, "f3_sup_mode")
#define VLANLUA_KEY_L2SUP_CFG(K, T)

#define VLANLUA_FIELDS_PWSUP_CFG(F, T)                                                           \
    F(T, 1, vrId, VRID, 4, "f1_vrid")                                                            \
    F(T, 2, ifIndex, U32, 4, "f2_ifindex")                                                       \
    F(T, 3, supMode, U32, 4, "f3_sup_mode")
#define VLANLUA_KEY_PWSUP_CFG(K, T)

#define VLANLUA_FIELDS_L2QINQ_STACKMAP(F, T)                                                     \
    F(T, 5, vlanId, U16, 2, "f5_vlan")                                                           \
    F(T, 7, vrId, VRID, 4, "f7_vrid")
#define VLANLUA_KEY_L2QINQ_STACKMAP(K, T)

#define VLANLUA_FIELDS_L2_PORT(F, T)                                                             \
    F(T, 1, ifIndex, U32, 4, "f1_ifindex")                                                       \
    F(T, 2, pvid, U16, 2, "f2_pvid")                                                             \
    F(T, 6, vrId, VRID, 4, "f6_vrid")                                                            \
    F(T, 12, negotiation, U8, 1, "f12_negotiation")
#define VLANLUA_KEY_L2_PORT(K, T)

#define VLANLUA_FIELDS_PV_RELATION(F, T)                                                         \
    F(T, 1, vrId, VRID, 4, "f1_vrid")                                                            \
    F(T, 2, ifIndex, U32, 4, "f2_ifindex")                                                       \
    F(T, 3, bitmap1, BITMAP, 512, "f3_bitmap1")                                                  \
    F(T, 4, bitmap2, BITMAP, 512, "f4_bitmap2")
#define VLANLUA_KEY_PV_RELATION(K, T)

#define VLANLUA_FIELDS_IFM_PROTO(F, T)                                                           \
    F(T, 1, ifIndex, U32, 4, "f1_ifindex")                                                       \
    F(T, 2, protocol, U8, 1, "f2_proto")                                                         \
    F(T, 3, subCode, U8, 1, "f3_subcode")                                                        \
    F(T, 5, furtherKey, U32, 4, "f5_key")
#define VLANLUA_KEY_IFM_PROTO(K, T)

#define VLANLUA_FIELDS_CTRL_VID_BITMAP(F, T)                                                     \
    F(T, 1, ctrlKey, U32, 4, "f1_ctrl_key")                                                      \
    F(T, 2, slice, U32, 4, "f2_slice")                                                           \
    F(T, 3, bitmap, BITMAP, 512, "f3_bitmap")                                                    \
    F(T, 4, vrId, VRID, 4, "f4_vrid")                                                            \
    F(T, 5, full, U8, 1, "f5_full")
#define VLANLUA_KEY_CTRL_VID_BITMAP(K, T) K(T, ctrlKey) K(T, slice)

#define VLANLUA_FIELDS_DOT1Q_MATCH_SEG(F, T)                                                     \
    F(T, 1, attr1, U32, 4, "f1_attr1")                                                           \
    F(T, 2, ifIndex, U32, 4, "f2_ifindex")                                                       \
    F(T, 3, segIndex, U32, 4, "f3_seg_index")                                                    \
    F(T, 4, vlanBegin, U16, 2, "f4_vlan_begin")                                                  \
    F(T, 5, vlanEnd, U16, 2, "f5_vlan_end")                                                      \
    F(T, 6, groupId, U8, 1, "f6_group_id")                                                       \
    F(T, 7, vrId, VRID, 4, "f7_vrid")                                                            \
    F(T, 8, attr8, U32, 4, "f8_attr8")                                                           \
    F(T, 9, attr9, U32, 4, "f9_attr9")                                                           \
    F(T, 10, attr10, U8, 1, "f10_attr10")
#define VLANLUA_KEY_DOT1Q_MATCH_SEG(K, T) K(T, ifIndex) K(T, segIndex)

#define VLANLUA_FIELDS_SEG_INDEX(F, T)                                                           \
    F(T, 1, segIndex, U32, 4, "f1_seg_index")                                                    \
    F(T, 2, vrId, VRID, 4, "f2_vrid")
#define VLANLUA_KEY_SEG_INDEX(K, T) K(T, segIndex)

#define VLANLUA_FIELDS_QINQ_MATCH_SEG(F, T)                                                      \
    F(T, 1, attr1, U32, 4, "f1_attr1")                                                           \
    F(T, 2, ifIndex, U32, 4, "f2_ifindex")                                                       \
    F(T, 3, segIndex, U32, 4, "f3_seg_index")                                                    \
    F(T, 4, peBegin, U16, 2, "f4_pe_begin")                                                      \
    F(T, 5, peEnd, U16, 2, "f5_pe_end")                                                          \
    F(T, 6, ceBegin, U16, 2, "f6_ce_begin")                                                      \
    F(T, 7, ceEnd, U16, 2, "f7_ce_end")                                                          \
    F(T, 8, groupId, U8, 1, "f8_group_id")                                                       \
    F(T, 9, vrId, VRID, 4, "f9_vrid")                                                            \
    F(T, 10, mainIfIndex, U32, 4, "f10_main_ifindex")                                            \
    F(T, 11, upId, U32, 4, "f11_up_id")                                                          \
    F(T, 12, keyName, TEXT, 64, "f12_key_name")
#define VLANLUA_KEY_QINQ_MATCH_SEG(K, T) K(T, ifIndex) K(T, segIndex)

#define VLANLUA_FIELDS_QINQ_IF_SPEC(F, T)                                                        \
    F(T, 1, vrId, VRID, 4, "f1_vrid")                                                            \
    F(T, 2, mainIfIndex, U32, 4, "f2_main_ifindex")                                              \
    F(T, 3, qinqNum, U32, 4, "f3_qinq_num")
#define VLANLUA_KEY_QINQ_IF_SPEC(K, T) K(T, vrId) K(T, mainIfIndex)

#define VLANLUA_FIELDS_UVLAN_QINQ_SEG(F, T)                                                      \
    F(T, 1, ifIndex, U32, 4, "f1_ifindex")                                                       \
    F(T, 2, segIndex, U32, 4, "f2_seg_index")                                                    \
    F(T, 3, keyB, U32, 4, "f3_key_b")                                                            \
    F(T, 4, vrId, VRID, 4, "f4_vrid")                                                            \
    F(T, 5, ceBegin, U16, 2, "f5_ce_begin")                                                      \
    F(T, 6, ceEnd, U16, 2, "f6_ce_end")                                                          \
    F(T, 7, peBegin, U16, 2, "f7_pe_begin")                                                      \
    F(T, 8, peEnd, U16, 2, "f8_pe_end")                                                          \
    F(T, 9, keyA, U32, 4, "f9_key_a")                                                            \
    F(T, 10, upId, U32, 4, "f10_up_id")                                                          \
    F(T, 11, keyName, TEXT, 64, "f11_key_name")
#define VLANLUA_KEY_UVLAN_QINQ_SEG(K, T) K(T, ifIndex) K(T, segIndex)

/* The two service tables share their first five fields; the value of service type n is svc<n>. */
#define VLANLUA_FIELDS_UVLAN_SVC_HEAD_(F, T)                                                     \
    F(T, 1, ifIndex, U32, 4, "f1_ifindex")                                                       \
    F(T, 2, segIndex, U32, 4, "f2_seg_index")                                                    \
    F(T, 3, keyB, U32, 4, "f3_key_b")                                                            \
    F(T, 4, keyA, U32, 4, "f4_key_a")                                                            \
    F(T, 5, vrId, VRID, 4, "f5_vrid")

#define VLANLUA_FIELDS_UVLAN_BASE_SVC(F, T)                                                      \
    VLANLUA_FIELDS_UVLAN_SVC_HEAD_(F, T)                                                         \
    F(T, 6, svc16, U32, 4, "f6_svc16")                                                           \
    F(T, 7, svc1, U32, 4, "f7_svc1")                                                             \
    F(T, 8, svc2, U32, 4, "f8_svc2")                                                             \
    F(T, 9, svc3, U32, 4, "f9_svc3")                                                             \
    F(T, 10, svc4, U32, 4, "f10_svc4")                                                           \
    F(T, 11, svc5, U32, 4, "f11_svc5")                                                           \
    F(T, 12, svc6, U32, 4, "f12_svc6")                                                           \
    F(T, 13, svc7, U32, 4, "f13_svc7")
#define VLANLUA_KEY_UVLAN_BASE_SVC(K, T) K(T, segIndex)

#define VLANLUA_FIELDS_UVLAN_VPN_SVC(F, T)                                                       \
    VLANLUA_FIELDS_UVLAN_SVC_HEAD_(F, T)                                                         \
    F(T, 6, svc8, U32, 4, "f6_svc8")                                                             \
    F(T, 7, svc9, U32, 4, "f7_svc9")                                                             \
    F(T, 8, svc10, U32, 4, "f8_svc10")                                                           \
    F(T, 9, svc11, U32, 4, "f9_svc11")                                                           \
    F(T, 10, svc12, U32, 4, "f10_svc12")                                                         \
    F(T, 11, svc13, U32, 4, "f11_svc13")                                                         \
    F(T, 12, svc14, U32, 4, "f12_svc14")                                                         \
    F(T, 13, svc15, U32, 4, "f13_svc15")
#define VLANLUA_KEY_UVLAN_VPN_SVC(K, T) K(T, segIndex)

#define VLANLUA_FIELDS_UVLAN_DOT1Q(F, T)                                                         \
    F(T, 1, ifIndex, U32, 4, "f1_ifindex")                                                       \
    F(T, 2, attr2, U32, 4, "f2_attr2")                                                           \
    F(T, 3, attr3, U32, 4, "f3_attr3")                                                           \
    F(T, 4, vrId, VRID, 4, "f4_vrid")                                                            \
    F(T, 5, vlanBegin, U16, 2, "f5_vlan_begin")                                                  \
    F(T, 6, vlanEnd, U16, 2, "f6_vlan_end")
#define VLANLUA_KEY_UVLAN_DOT1Q(K, T)

#define VLANLUA_FIELDS_UVLAN_DESC(F, T)                                                          \
    F(T, 1, ifIndex, U32, 4, "f1_ifindex")                                                       \
    F(T, 2, peVlan, U16, 2, "f2_pe_vlan")                                                        \
    F(T, 3, ceVlan, U16, 2, "f3_ce_vlan")                                                        \
    F(T, 4, description, TEXT, 129, "f4_description")                                           \
    F(T, 5, vrId, VRID, 4, "f5_vrid")
#define VLANLUA_KEY_UVLAN_DESC(K, T)

#define VLANLUA_FIELDS_UVLAN_ANYOTHER(F, T)                                                      \
    F(T, 1, ifIndex, U32, 4, "f1_ifindex")                                                       \
    F(T, 5, vrId, VRID, 4, "f5_vrid")
#define VLANLUA_KEY_UVLAN_ANYOTHER(K, T)

/* ---- what the list makes: identifiers and field numbers ---- */

#define VLANLUA_TBL_ID_(T, uiId, pcWhat) VLANLUA_TBL_##T = uiId,
enum { VLANLUA_TABLE_LIST(VLANLUA_TBL_ID_) };

#define VLANLUA_FLD_NO_(T, no, name, type, width, column) VLANLUA_FLD_##T##_##name = no,
#define VLANLUA_TBL_FIELD_NOS_(T, uiId, pcWhat) VLANLUA_FIELDS_##T(VLANLUA_FLD_NO_, T)
enum { VLANLUA_TABLE_LIST(VLANLUA_TBL_FIELD_NOS_) };

#ifdef __cplusplus
/* ---- typed fields for C++: VlanLuaTbl::UVLAN_QINQ_SEG::peBegin carries its number, type code and
 * width, and its value's C type, so that a value of another width is refused when compiling ---- */

template <uint32_t TableId, uint8_t FieldNo, uint32_t TypeCode, uint16_t Width>
struct VlanLuaField {
    static constexpr uint32_t uiTableId = TableId;
    static constexpr uint8_t ucFieldNo = FieldNo;
    static constexpr uint32_t uiTypeCode = TypeCode;
    static constexpr uint16_t usWidth = Width;
};

namespace VlanLuaTbl {
#define VLANLUA_TYPED_FIELD_(T, no, name, type, width, column) \
    using name = VlanLuaField<VLANLUA_TBL_##T, no, ECM_TYPE_##type, width>;
#define VLANLUA_TYPED_TABLE_(T, id, pcWhat)                    \
    struct T {                                                 \
        static constexpr uint32_t uiId = VLANLUA_TBL_##T;      \
        VLANLUA_FIELDS_##T(VLANLUA_TYPED_FIELD_, T)            \
    };
VLANLUA_TABLE_LIST(VLANLUA_TYPED_TABLE_)
#undef VLANLUA_TYPED_TABLE_
#undef VLANLUA_TYPED_FIELD_

/* Every field's type code and width, for fields named at run time. */
struct FieldEntry {
    uint32_t uiTableId;
    uint8_t ucFieldNo;
    uint32_t uiTypeCode;
    uint16_t usWidth;
};
#define VLANLUA_FIELD_ENTRY_(T, no, name, type, width, column) {VLANLUA_TBL_##T, no, ECM_TYPE_##type, width},
#define VLANLUA_TABLE_ENTRIES_(T, id, pcWhat) VLANLUA_FIELDS_##T(VLANLUA_FIELD_ENTRY_, T)
inline constexpr FieldEntry kFieldEntries[] = {VLANLUA_TABLE_LIST(VLANLUA_TABLE_ENTRIES_)};
#undef VLANLUA_TABLE_ENTRIES_
#undef VLANLUA_FIELD_ENTRY_

/* A field of a table, or null when the table has no such field. */
constexpr const FieldEntry *FindField(uint32_t uiTableId, uint8_t ucFieldNo)
{
    for (const FieldEntry &stEntry : kFieldEntries) {
        if (stEntry.uiTableId == uiTableId && stEntry.ucFieldNo == ucFieldNo) {
            return &stEntry;
        }
    }
    return nullptr;
}

/* The width of a field of a table, or 0 when the table has no such field. */
constexpr uint16_t FieldWidth(uint32_t uiTableId, uint8_t ucFieldNo)
{
    const FieldEntry *pstEntry = FindField(uiTableId, ucFieldNo);
    return pstEntry != nullptr ? pstEntry->usWidth : 0;
}

/* The fields of one table by field number, made when compiling, for code that names a field of a
 * known table at run time: an entry of width 0 is a field the table does not have. */
template <uint32_t TableId>
struct FieldsByNo {
    static constexpr auto Make()
    {
        struct ByNo {
            FieldEntry astEntry[256];
        } stByNo{};
        for (const FieldEntry &stEntry : kFieldEntries) {
            if (stEntry.uiTableId == TableId) {
                stByNo.astEntry[stEntry.ucFieldNo] = stEntry;
            }
        }
        return stByNo;
    }
    static constexpr auto kByNo = Make();
    static constexpr const FieldEntry &Of(uint8_t ucFieldNo) { return kByNo.astEntry[ucFieldNo]; }
};
}  // namespace VlanLuaTbl
#endif

#endif
