/* The VLAN bitmap against a std::bitset<4096> model: random sets for the set operations and
 * the free search, and the edges at VLAN 0, 4094, 4095 and the word boundaries. */
#include <gtest/gtest.h>

#include <array>
#include <bitset>
#include <cstdint>
#include <random>

#include "bas/vlanlua_bas_bitmap.h"

namespace {

using Bytes = std::array<uint8_t, 512>;
using Model = std::bitset<4096>;

Bytes ToBytes(const Model &m)
{
    Bytes b{};
    for (uint32_t v = 0; v < 4096; v++) {
        if (m[v]) {
            b[v / 8] = static_cast<uint8_t>(b[v / 8] | (1u << (v % 8)));
        }
    }
    return b;
}

Model ToModel(const Bytes &b)
{
    Model m;
    for (uint32_t v = 0; v < 4096; v++) {
        m[v] = ((b[v / 8] >> (v % 8)) & 1u) != 0;
    }
    return m;
}

/* Each bit set with probability p. */
Model RandomModel(std::mt19937 &rng, double p)
{
    std::bernoulli_distribution bit(p);
    Model m;
    for (uint32_t v = 0; v < 4096; v++) {
        m[v] = bit(rng);
    }
    return m;
}

Model FullModel()
{
    Model m;
    for (uint32_t v = 1; v <= 4094; v++) {
        m[v] = true;
    }
    return m;
}

/* Lowest clear ID of 1..4094 in the model, or 0. */
uint32_t ModelFirstFree(const Model &m)
{
    for (uint32_t v = 1; v <= 4094; v++) {
        if (!m[v]) {
            return v;
        }
    }
    return 0;
}

uint32_t FirstFree(const Bytes &b, uint32_t *puiId)
{
    return VlanLua_GetFirstFreeValue(512, b.data(), puiId);
}

}  // namespace

/* ---- single-VLAN operations ---- */

TEST(BitmapSingleVlan, RandomAddDeleteAgreesWithModel)
{
    std::mt19937 rng(11);
    std::uniform_int_distribution<uint32_t> id(0, 70000);
    Bytes b{};
    Model m;
    for (int step = 0; step < 20000; step++) {
        uint32_t v = id(rng);
        uint32_t low = v & 0xFFFF;
        bool valid = low <= 4094;
        if (rng() % 2 == 0) {
            EXPECT_EQ(VlanLua_AddVlanBitMap(b.data(), v), valid ? 0u : 1u);
            if (valid) m[low] = true;
        } else {
            EXPECT_EQ(VlanLua_DelVlanBitMap(b.data(), v), valid ? 0u : 1u);
            if (valid) m[low] = false;
        }
        EXPECT_EQ(VlanLua_IsVlanInBitMap(b.data(), v), valid && m[low] ? 1u : 0u);
    }
    EXPECT_EQ(ToModel(b), m);
}

TEST(BitmapSingleVlan, Vlan4095IsRejectedAndLeavesTheBitmapAlone)
{
    Bytes b{};
    b[511] = 0x80;                                    /* VLAN 4095 set by someone else */
    Bytes before = b;
    EXPECT_EQ(VlanLua_AddVlanBitMap(b.data(), 4095), 1u);
    EXPECT_EQ(VlanLua_DelVlanBitMap(b.data(), 4095), 1u);
    EXPECT_EQ(VlanLua_IsVlanInBitMap(b.data(), 4095), 0u);
    EXPECT_EQ(b, before);
    uint32_t mask = 0, index = 0;
    EXPECT_EQ(VlanLua_GetMaskAndIndex(4095, &mask, &index), 1u);
    EXPECT_EQ(VlanLua_GetMaskAndIndex(4094, &mask, &index), 0u);
    EXPECT_EQ(index, 511u);
    EXPECT_EQ(mask, 0x40u);
}

/* ---- union and intersection ---- */

TEST(BitmapCombine, RandomUnionAndIntersectionOfAnyPrefixLength)
{
    std::mt19937 rng(7);
    for (int round = 0; round < 300; round++) {
        Model ma = RandomModel(rng, 0.3 + 0.4 * (round % 2));
        Model mb = RandomModel(rng, 0.5);
        uint32_t n = 1 + rng() % 512;
        Bytes a = ToBytes(ma), bb = ToBytes(mb);
        Bytes orOut, andOut;
        orOut.fill(0xA5);                             /* bytes from n on must stay untouched */
        andOut.fill(0xA5);
        ASSERT_EQ(VlanLua_Merg2BitMap(n, a.data(), bb.data(), orOut.data()), 0u);
        ASSERT_EQ(VlanLua_And2BitMap(n, a.data(), bb.data(), andOut.data()), 0u);
        Model orM = ma | mb, andM = ma & mb;
        Model orGot = ToModel(orOut), andGot = ToModel(andOut);
        for (uint32_t v = 0; v < 4096; v++) {
            if (v < n * 8) {
                ASSERT_EQ(orGot[v], orM[v]) << "n=" << n << " v=" << v;
                ASSERT_EQ(andGot[v], andM[v]) << "n=" << n << " v=" << v;
            } else {
                ASSERT_EQ(orOut[v / 8], 0xA5) << "n=" << n;
                ASSERT_EQ(andOut[v / 8], 0xA5) << "n=" << n;
            }
        }
    }
}

TEST(BitmapCombine, RejectsCountsOutside1To512AndNullPointers)
{
    Bytes a{}, b{}, out{};
    out.fill(0x11);
    for (uint32_t n : {0u, 513u, 0xFFFFFFFFu}) {
        EXPECT_EQ(VlanLua_Merg2BitMap(n, a.data(), b.data(), out.data()), 1u);
        EXPECT_EQ(VlanLua_And2BitMap(n, a.data(), b.data(), out.data()), 1u);
    }
    EXPECT_EQ(VlanLua_Merg2BitMap(4, nullptr, b.data(), out.data()), 1u);
    EXPECT_EQ(VlanLua_And2BitMap(4, a.data(), nullptr, out.data()), 1u);
    EXPECT_EQ(VlanLua_Merg2BitMap(4, a.data(), b.data(), nullptr), 1u);
    EXPECT_EQ(out[0], 0x11);
}

/* ---- free search ---- */

TEST(BitmapFreeSearch, RandomDenseBitmapsFindTheModelsFirstFreeId)
{
    std::mt19937 rng(5);
    std::uniform_int_distribution<uint32_t> id(0, 4095);
    for (int round = 0; round < 500; round++) {
        Model m = FullModel();
        m[0] = rng() % 2 != 0;
        m[4095] = rng() % 2 != 0;
        for (int holes = round % 4; holes > 0; holes--) {
            m[id(rng)] = false;
        }
        uint32_t got = 12345;
        uint32_t want = ModelFirstFree(m);
        ASSERT_EQ(FirstFree(ToBytes(m), &got), want == 0 ? 1u : 0u);
        ASSERT_EQ(got, want);
    }
}

TEST(BitmapFreeSearch, EveryIdIsFoundWhenItIsTheOnlyHole)
{
    Bytes allSet;
    allSet.fill(0xFF);
    for (uint32_t v = 1; v <= 4094; v++) {
        Bytes b = allSet;
        b[v / 8] = static_cast<uint8_t>(b[v / 8] & ~(1u << (v % 8)));
        uint32_t got = 0;
        ASSERT_EQ(FirstFree(b, &got), 0u);
        ASSERT_EQ(got, v);
    }
}

/* ---- full and empty tests ---- */

TEST(BitmapWholeTests, FullExactlyWhenHolding1To4094)
{
    Bytes full = ToBytes(FullModel());
    EXPECT_EQ(full[0], 0xFE);
    EXPECT_EQ(full[511], 0x7F);
    EXPECT_EQ(vlanLua_IsBitMapFull(full.data()), 0u);
    for (uint32_t v = 1; v <= 4094; v++) {
        Bytes b = full;
        ASSERT_EQ(VlanLua_DelVlanBitMap(b.data(), v), 0u);
        ASSERT_EQ(vlanLua_IsBitMapFull(b.data()), 1u) << v;
        ASSERT_EQ(VlanLua_AddVlanBitMap(b.data(), v), 0u);
        ASSERT_EQ(vlanLua_IsBitMapFull(b.data()), 0u) << v;
    }
    Bytes with0 = full;
    with0[0] = 0xFF;
    EXPECT_EQ(vlanLua_IsBitMapFull(with0.data()), 1u);
    Bytes with4095 = full;
    with4095[511] = 0xFF;
    EXPECT_EQ(vlanLua_IsBitMapFull(with4095.data()), 1u);
}

TEST(BitmapWholeTests, EmptyOnlyWhenNoBitAtAllIsSet)
{
    Bytes zero{};
    EXPECT_EQ(vlanLua_IsBitMapAllZero(zero.data()), 0u);
    for (uint32_t v = 0; v < 4096; v++) {
        Bytes b{};
        b[v / 8] = static_cast<uint8_t>(1u << (v % 8));
        ASSERT_EQ(vlanLua_IsBitMapAllZero(b.data()), 1u) << v;
    }
}
