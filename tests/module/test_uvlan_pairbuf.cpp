/* The pair buffer behind the QinQ part of the user-VLAN walk: a second range with the same
 * begin is refused and named, and ranges come back in begin order whatever the insert order.
 * The walk order itself is proven from scripts against a brute-force model. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "vlanlua_uservlan_mib.h"

namespace {

/* A pair buffer over nodes held by the test, so it needs no database object. */
struct PairBench {
    PairBench() : m_nodes(VLANLUA_UVLAN_PAIR_MAX)
    {
        std::memset(&m_log, 0, sizeof(m_log));
        std::memset(&m_buf, 0, sizeof(m_buf));
        m_buf.pstNode = m_nodes.data();
        m_buf.uiMaxNum = VLANLUA_UVLAN_PAIR_MAX;
    }
    std::vector<VLANLUA_UVLAN_PAIRNODE_S> m_nodes;
    VLANLUA_LOG_S m_log;
    VLANLUA_UVLAN_PAIRBUF_S m_buf;
};

}  // namespace

TEST(UvlanPairBuffer, SecondRangeWithTheSameBeginIsRefusedAndNamed)
{
    PairBench bench;
    VLANLUA_CTX_S ctx = {&bench.m_log, nullptr};
    VLANLUA_UVLAN_PAIRBUF_S *pstBuf = &bench.m_buf;
    vlanLua_VlanPairBuffReset(&ctx, pstBuf);
    EXPECT_EQ(vlanLua_VlanPairAdd(&ctx, pstBuf, 20, 30), 0u);
    EXPECT_EQ(vlanLua_VlanPairAdd(&ctx, pstBuf, 20, 25), 1u);
    EXPECT_EQ(pstBuf->uiNodeNum, 1u);
    EXPECT_STREQ(bench.m_log.acText, "\nvlanLua_VlanPairAdd: usCeBgn:20, usCeEnd:25, add error\n");
    auto *pstFirst = static_cast<VLANLUA_UVLAN_PAIRNODE_S *>(KEL_AVL3_First(&pstBuf->stTree, &pstBuf->stTreeInfo));
    ASSERT_NE(pstFirst, nullptr);
    EXPECT_EQ(pstFirst->usCeEnd, 30u);
}

TEST(UvlanPairBuffer, RangesComeBackInBeginOrderWhateverTheInsertOrder)
{
    PairBench bench;
    VLANLUA_CTX_S ctx = {&bench.m_log, nullptr};
    VLANLUA_UVLAN_PAIRBUF_S *pstBuf = &bench.m_buf;
    vlanLua_VlanPairBuffReset(&ctx, pstBuf);
    std::vector<uint16_t> begins(4094);
    for (uint16_t i = 0; i < 4094; i++) begins[i] = static_cast<uint16_t>(i + 1);
    std::shuffle(begins.begin(), begins.end(), std::mt19937(7));
    for (uint16_t b : begins) {
        ASSERT_EQ(vlanLua_VlanPairAdd(&ctx, pstBuf, b, b), 0u);
    }
    std::vector<VLANLUA_UVLAN_MIBENTRY_S> buf(5000);
    VLANLUA_UVLAN_MIBOUT_S stOut = {buf.data(), 5000, 0};
    EXPECT_EQ(vlanLua_UserVlanQinqFillRec(4, 9, pstBuf, &stOut), 0u);
    ASSERT_EQ(stOut.uiCount, 4094u);
    for (uint32_t i = 0; i < 4094; i++) {
        ASSERT_EQ(buf[i].usPeVlan, i + 1) << i;
    }
}
