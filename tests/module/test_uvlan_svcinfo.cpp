/* Service info of user-VLAN QinQ segments: what counts as equal, as present, and what laying one
 * service info over another keeps. */
#include <cstring>

#include <gtest/gtest.h>

#include "vlanlua_uservlan.h"

namespace {

VLANLUA_UVLAN_SVCINFO_S Info(std::initializer_list<std::pair<uint32_t, uint32_t>> entries)
{
    VLANLUA_UVLAN_SVCINFO_S info = {};
    for (auto [type, value] : entries) {
        info.astSvc[type] = {type, value};
    }
    return info;
}

TEST(UvlanSvcInfo, AnEntrySetToZeroEqualsAnUnsetOne)
{
    VLANLUA_UVLAN_SVCINFO_S a = Info({{3, 0}, {9, 5}});
    VLANLUA_UVLAN_SVCINFO_S b = Info({{9, 5}});
    EXPECT_EQ(vlanLua_UVlanIsSvcSameEX(&a, &b), 0u);
    b.astSvc[9].uiSvcValue = 6;
    EXPECT_EQ(vlanLua_UVlanIsSvcSameEX(&a, &b), 1u);
}

TEST(UvlanSvcInfo, EntryZeroIsNeverCompared)
{
    VLANLUA_UVLAN_SVCINFO_S a = Info({{0, 4}});
    VLANLUA_UVLAN_SVCINFO_S b = Info({});
    EXPECT_EQ(vlanLua_UVlanIsSvcSameEX(&a, &b), 0u);
}

TEST(UvlanSvcInfo, PresenceTestsSplitBaseTypesFromVpnTypes)
{
    VLANLUA_UVLAN_SVCINFO_S only16 = Info({{16, 1}});
    EXPECT_EQ(vlanLua_UVlanIsNullSvcInfo(&only16), 1u);
    EXPECT_EQ(vlanLua_UVlanIsNullBaseSvcInfo(&only16), 1u);
    EXPECT_EQ(vlanLua_UVlanIsNullVpnSvcInfo(&only16), 0u);
    VLANLUA_UVLAN_SVCINFO_S vpn15 = Info({{15, 2}, {7, 0}});
    EXPECT_EQ(vlanLua_UVlanIsNullBaseSvcInfo(&vpn15), 0u) << "a zero value is not present";
    EXPECT_EQ(vlanLua_UVlanIsNullVpnSvcInfo(&vpn15), 1u);
    VLANLUA_UVLAN_SVCINFO_S wrongType = {};
    wrongType.astSvc[4] = {5, 9};  /* a type word that is not its index does not count */
    EXPECT_EQ(vlanLua_UVlanIsNullSvcInfo(&wrongType), 0u);
}

TEST(UvlanSvcInfo, CoverReplacesOnlyTheEntriesSetInTheSourceZeroIncluded)
{
    VLANLUA_UVLAN_SVCINFO_S dst = Info({{1, 7}, {2, 8}, {9, 3}});
    VLANLUA_UVLAN_SVCINFO_S src = Info({{2, 0}, {10, 4}});
    vlanLua_UVlanCoverSvcInfo(&dst, &src);
    VLANLUA_UVLAN_SVCINFO_S want = Info({{1, 7}, {2, 0}, {9, 3}, {10, 4}});
    EXPECT_EQ(0, memcmp(&dst, &want, sizeof(want)));
}

TEST(UvlanSvcInfo, CopyThroughTheMapSetsEveryMappedEntryAndTellsWhetherAnyValueIsNonZero)
{
    uint32_t map[8];
    vlanLua_UVlanInitBaseSvcMap(map);
    EXPECT_EQ(map[7], 16u);
    VLANLUA_UVLAN_SVCINFO_S info = {};
    const uint32_t zeros[8] = {};
    uint32_t any = 7;
    vlanLua_UVlanBaseSvcCopy(&info, zeros, map, &any);
    EXPECT_EQ(any, 0u);
    EXPECT_EQ(info.astSvc[16].uiSvcType, 16u) << "a zero value is copied as a set entry";
    const uint32_t values[8] = {0, 0, 0, 0, 0, 0, 0, 5};
    vlanLua_UVlanBaseSvcCopy(&info, values, map, &any);
    EXPECT_EQ(any, 1u);
    EXPECT_EQ(info.astSvc[16].uiSvcValue, 5u);
}

} // namespace
