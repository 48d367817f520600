/* The fills of the user-VLAN walk: resumption after every possible key of random rows, the
 * pair buffer, and the position helpers at an interface's end. Expected orders come
 * from a brute-force expansion of the rows, never from the fills themselves. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <tuple>
#include <vector>

#include "vlanlua_uservlan_mib.h"

namespace {

using Entry = std::tuple<uint32_t, uint16_t, uint16_t>;    /* interface, PE, CE */

struct Dot1q { uint32_t uiIf; uint16_t usBgn; uint16_t usEnd; };
struct Qinq { uint32_t uiIf; uint16_t usPeBgn; uint16_t usPeEnd; uint16_t usCeBgn; uint16_t usCeEnd; };

/* A query set over rows held by the test; the pair buffer's nodes are the test's too, so the
 * fills never allocate and need no database object. */
class FillBench {
public:
    FillBench(std::vector<Dot1q> dot1q, std::vector<Qinq> qinq) : m_dot1q(std::move(dot1q)), m_qinq(std::move(qinq))
    {
        std::memset(&m_log, 0, sizeof(m_log));
        m_ctx = {&m_log, nullptr};
        std::memset(&m_set, 0, sizeof(m_set));
        std::sort(m_dot1q.begin(), m_dot1q.end(),
                  [](const Dot1q &a, const Dot1q &b) { return std::tie(a.uiIf, a.usBgn) < std::tie(b.uiIf, b.usBgn); });
        std::stable_sort(m_qinq.begin(), m_qinq.end(), [](const Qinq &a, const Qinq &b) {
            return std::tie(a.uiIf, a.usCeBgn) < std::tie(b.uiIf, b.usCeBgn);
        });
        for (const Dot1q &r : m_dot1q) {
            m_dot1qRows.push_back({r.uiIf, r.usBgn, r.usEnd});
        }
        for (const Qinq &r : m_qinq) {
            m_qinqRows.push_back({r.uiIf, r.usPeBgn, r.usPeEnd, r.usCeBgn, r.usCeEnd});
        }
        m_set.stDot1qList = {nullptr, reinterpret_cast<uint8_t *>(m_dot1qRows.data()),
                             static_cast<uint32_t>(m_dot1qRows.size()), 0};
        m_set.stQinqList = {nullptr, reinterpret_cast<uint8_t *>(m_qinqRows.data()),
                            static_cast<uint32_t>(m_qinqRows.size()), 0};
        m_nodes.resize(VLANLUA_UVLAN_PAIR_MAX);
        m_set.stPairBuf.pstNode = m_nodes.data();
        m_set.stPairBuf.uiMaxNum = VLANLUA_UVLAN_PAIR_MAX;
    }

    /* Entries after (pe, ce) of interface uiIf, as the walk resumes after an entry. */
    std::vector<Entry> ResumeAfter(uint32_t uiIf, uint16_t usPe, uint16_t usCe, uint32_t uiCap)
    {
        vlanLua_UserVlanMibSetKey(&m_set.stDot1qKey, uiIf, 0, usCe, 1, uiCap, 0);
        vlanLua_UserVlanMibSetKey(&m_set.stQinqKey, uiIf, usPe, usCe, 1, uiCap, 0);
        return Run(uiCap, [this](VLANLUA_UVLAN_MIBOUT_S *pstOut) {
            return vlanLua_UserVlanKeyDot1qQinqFill(&m_ctx, &m_set, pstOut);
        });
    }

    /* All entries of the stored rows, ordered by interface, CE, PE: the model. */
    std::vector<Entry> Model() const
    {
        std::vector<Entry> all;
        for (const Dot1q &r : m_dot1q) {
            for (uint32_t v = r.usBgn; v <= r.usEnd; v++) {
                all.emplace_back(r.uiIf, 0, static_cast<uint16_t>(v));
            }
        }
        for (const Qinq &r : m_qinq) {
            for (uint32_t c = r.usCeBgn; c <= r.usCeEnd; c++) {
                for (uint32_t p = r.usPeBgn; p <= r.usPeEnd; p++) {
                    all.emplace_back(r.uiIf, static_cast<uint16_t>(p), static_cast<uint16_t>(c));
                }
            }
        }
        std::sort(all.begin(), all.end(), [](const Entry &a, const Entry &b) {
            return std::make_tuple(std::get<0>(a), std::get<2>(a), std::get<1>(a)) <
                   std::make_tuple(std::get<0>(b), std::get<2>(b), std::get<1>(b));
        });
        return all;
    }

    VLANLUA_LOG_S m_log;
    VLANLUA_UVLAN_QUERYSET_S m_set;

private:
    template <typename F>
    std::vector<Entry> Run(uint32_t uiCap, F fill)
    {
        std::vector<VLANLUA_UVLAN_MIBENTRY_S> buf(uiCap + 1u);
        VLANLUA_UVLAN_MIBOUT_S stOut = {buf.data(), uiCap, 0};
        fill(&stOut);
        std::vector<Entry> got;
        for (uint32_t i = 0; i < stOut.uiCount; i++) {
            got.emplace_back(buf[i].uiIfIndex, buf[i].usPeVlan, buf[i].usCeVlan);
        }
        return got;
    }

    std::vector<Dot1q> m_dot1q;
    std::vector<Qinq> m_qinq;
    std::vector<VLANLUA_UVLAN_DOT1QREC_S> m_dot1qRows;
    std::vector<VLANLUA_UVLAN_QINQREC_S> m_qinqRows;
    std::vector<VLANLUA_UVLAN_PAIRNODE_S> m_nodes;
    VLANLUA_CTX_S m_ctx;
};

/* Non-overlapping 802.1Q ranges and QinQ rectangles on one interface, VLANs 1..60. */
void RandomRows(std::mt19937 &rng, std::vector<Dot1q> *pDot1q, std::vector<Qinq> *pQinq)
{
    std::vector<uint8_t> dot1qUsed(64, 0);
    std::vector<std::vector<uint8_t>> grid(64, std::vector<uint8_t>(64, 0));
    std::uniform_int_distribution<int> vlan(1, 60), len(0, 4), coin(0, 1);
    for (int i = 0; i < 6; i++) {
        int b = vlan(rng), e = std::min(60, b + len(rng));
        bool free = true;
        for (int v = b; v <= e; v++) free = free && !dot1qUsed[v];
        if (!free || coin(rng)) continue;
        for (int v = b; v <= e; v++) dot1qUsed[v] = 1;
        pDot1q->push_back({5, static_cast<uint16_t>(b), static_cast<uint16_t>(e)});
    }
    for (int i = 0; i < 8; i++) {
        int pb = vlan(rng), pe = std::min(60, pb + len(rng)), cb = vlan(rng), ce = std::min(60, cb + len(rng));
        bool free = true;
        for (int c = cb; c <= ce; c++) for (int p = pb; p <= pe; p++) free = free && !grid[c][p];
        if (!free) continue;
        for (int c = cb; c <= ce; c++) for (int p = pb; p <= pe; p++) grid[c][p] = 1;
        pQinq->push_back({5, static_cast<uint16_t>(pb), static_cast<uint16_t>(pe), static_cast<uint16_t>(cb),
                          static_cast<uint16_t>(ce)});
    }
}

}  // namespace

TEST(UvlanFillResume, AfterEveryEntryTheRestFollowsInModelOrder)
{
    std::mt19937 rng(20261123);
    for (int round = 0; round < 30; round++) {
        std::vector<Dot1q> dot1q;
        std::vector<Qinq> qinq;
        RandomRows(rng, &dot1q, &qinq);
        const std::vector<Entry> model = FillBench(dot1q, qinq).Model();
        for (size_t k = 0; k < model.size(); k++) {
            auto [uiIf, usPe, usCe] = model[k];
            for (uint32_t uiCap : {1u, 3u, 10000u}) {
                FillBench bench(dot1q, qinq);
                std::vector<Entry> got = bench.ResumeAfter(uiIf, usPe, usCe, uiCap);
                size_t n = std::min<size_t>(uiCap, model.size() - k - 1);
                std::vector<Entry> want(model.begin() + static_cast<long>(k) + 1,
                                        model.begin() + static_cast<long>(k + 1 + n));
                ASSERT_EQ(got, want) << "round " << round << " after entry " << k << " capacity " << uiCap;
            }
        }
    }
}

/* ---- pair buffer ---- */

TEST(UvlanPairBuffer, SecondRangeWithTheSameBeginIsRefusedAndNamed)
{
    FillBench bench({}, {});
    VLANLUA_CTX_S ctx = {&bench.m_log, nullptr};
    VLANLUA_UVLAN_PAIRBUF_S *pstBuf = &bench.m_set.stPairBuf;
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
    FillBench bench({}, {});
    VLANLUA_CTX_S ctx = {&bench.m_log, nullptr};
    VLANLUA_UVLAN_PAIRBUF_S *pstBuf = &bench.m_set.stPairBuf;
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

/* ---- positions ---- */

TEST(UvlanFillPosition, NextCeVlanStopsAtAnotherInterface)
{
    FillBench bench({{4, 1, 2}, {5, 3, 3}}, {{4, 1, 1, 7, 8}, {5, 1, 1, 2, 2}});
    uint16_t usCe = 2;
    EXPECT_EQ(vlanLua_UserVlanDot1qGetNextCeVlan(4, &bench.m_set.stDot1qList, &usCe), 1u);
    usCe = 8;
    EXPECT_EQ(vlanLua_UserVlanQinqGetNextCeVlan(4, &bench.m_set.stQinqList, &usCe), 1u);
    usCe = 7;
    bench.m_set.stQinqList.uiCur = 0;
    EXPECT_EQ(vlanLua_UserVlanQinqGetNextCeVlan(4, &bench.m_set.stQinqList, &usCe), 0u);
    EXPECT_EQ(usCe, 8u);
}

TEST(UvlanFillPosition, Dot1qKeyPastTheLastRangeIsExhausted)
{
    FillBench bench({{4, 1, 2}, {5, 3, 3}}, {});
    VLANLUA_UVLAN_MIBKEY_S stKey = {4, 0, 2, 10, 1, 0};
    vlanLua_UserVlanDot1qKeyFill(&stKey, &bench.m_set.stDot1qList);
    EXPECT_EQ(stKey.usCeVid, VLANLUA_UVLAN_CE_DONE);
    EXPECT_EQ(bench.m_set.stDot1qList.uiCur, 1u);    /* left on the next interface's row */
}
