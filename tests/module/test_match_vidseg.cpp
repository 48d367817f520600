// Rectangle geometry and the iterative merge of a new PE/CE rectangle with stored ones: pass
// order, what the output list holds, and no allocation left behind when memory runs out.
#include <gtest/gtest.h>

#include <vector>

#include "bas/vlanlua_bas_vidseg.h"
#include "ecm_ctl.h"
#include "mox_ctl.h"

namespace {

VLANLUA_VIDSEG_S Seg(uint16_t usBgn, uint16_t usEnd) { return VLANLUA_VIDSEG_S{usBgn, usEnd}; }

uint32_t Adjacent(VLANLUA_VIDSEG_S pe1, VLANLUA_VIDSEG_S ce1, VLANLUA_VIDSEG_S pe2, VLANLUA_VIDSEG_S ce2)
{
    return vlanLua_VidSegIsAdjacent(&pe1, &ce1, &pe2, &ce2);
}

TEST(RectangleAdjacency, SharedDimensionAndAbuttingOtherIsAdjacent)
{
    EXPECT_EQ(1u, Adjacent(Seg(100, 100), Seg(10, 20), Seg(100, 100), Seg(21, 30)));
    EXPECT_EQ(1u, Adjacent(Seg(100, 100), Seg(21, 30), Seg(100, 100), Seg(10, 20)));
    EXPECT_EQ(1u, Adjacent(Seg(100, 100), Seg(10, 20), Seg(101, 101), Seg(10, 20)));
    EXPECT_EQ(1u, Adjacent(Seg(101, 105), Seg(10, 20), Seg(100, 100), Seg(10, 20)));
}

TEST(RectangleAdjacency, DiagonalIdenticalAndOverlappingAreNotAdjacent)
{
    EXPECT_EQ(0u, Adjacent(Seg(100, 100), Seg(10, 20), Seg(101, 101), Seg(21, 30)));
    EXPECT_EQ(0u, Adjacent(Seg(100, 100), Seg(10, 20), Seg(100, 100), Seg(10, 20)));
    EXPECT_EQ(0u, Adjacent(Seg(100, 100), Seg(10, 20), Seg(100, 100), Seg(20, 30)));
    EXPECT_EQ(0u, Adjacent(Seg(100, 100), Seg(10, 20), Seg(100, 100), Seg(22, 30)));
    EXPECT_EQ(0u, Adjacent(Seg(100, 101), Seg(10, 20), Seg(100, 100), Seg(21, 30)));
}

TEST(RectangleAdjacency, RangesAtTheEndsOfSixteenBitsDoNotWrap)
{
    EXPECT_EQ(0u, Adjacent(Seg(5, 5), Seg(0, 3), Seg(5, 5), Seg(65535, 65535)));
    EXPECT_EQ(0u, Adjacent(Seg(5, 5), Seg(65535, 65535), Seg(5, 5), Seg(0, 3)));
    EXPECT_EQ(0u, Adjacent(Seg(0, 0), Seg(7, 7), Seg(65535, 65535), Seg(7, 7)));
    EXPECT_EQ(1u, Adjacent(Seg(5, 5), Seg(65534, 65535), Seg(5, 5), Seg(0, 65533)));
}

TEST(RectangleWidening, GrowsOnlyTheDestinationTowardsTheSource)
{
    VLANLUA_VIDSEG_S pe = Seg(100, 100), ce = Seg(10, 20);
    const VLANLUA_VIDSEG_S srcPe = Seg(100, 100), srcCe = Seg(21, 30);
    ASSERT_EQ(1u, vlanLua_VidSegMergePeCeTo(&pe, &ce, &srcPe, &srcCe));
    EXPECT_EQ(10, ce.usBgn);
    EXPECT_EQ(30, ce.usEnd);
    EXPECT_EQ(21, srcCe.usBgn);

    VLANLUA_VIDSEG_S pe2 = Seg(100, 100), ce2 = Seg(10, 20);
    const VLANLUA_VIDSEG_S leftPe = Seg(98, 99), sameCe = Seg(10, 20);
    ASSERT_EQ(1u, vlanLua_VidSegMergePeCeTo(&pe2, &ce2, &leftPe, &sameCe));
    EXPECT_EQ(98, pe2.usBgn);
    EXPECT_EQ(100, pe2.usEnd);

    const VLANLUA_VIDSEG_S farCe = Seg(40, 50);
    EXPECT_EQ(0u, vlanLua_VidSegMergePeCeTo(&pe, &ce, &srcPe, &farCe));
    EXPECT_EQ(10, ce.usBgn);
    EXPECT_EQ(30, ce.usEnd);
}

// A database object supplies the memory handle the merge allocates from.
class IterativeMerge : public ::testing::Test {
protected:
    void SetUp() override
    {
        char acErr[128] = {};
        m_pObj = ECM_CTL_Open(nullptr, 1, 1, 1, acErr, sizeof(acErr));
        ASSERT_NE(nullptr, m_pObj) << acErr;
        m_stCtx = {&m_stLog, m_pObj};
        vlanLua_SegListInit(&m_stStored);
        vlanLua_SegListInit(&m_stOut);
    }
    void TearDown() override
    {
        vlanLua_SegsDestroy(&m_stCtx, &m_stStored);
        vlanLua_SegsDestroy(&m_stCtx, &m_stOut);
        EXPECT_EQ(0u, Stats().ulLiveBlocks);
        ECM_CTL_Close(m_pObj);
    }
    MOX_STATS_S Stats()
    {
        MOX_STATS_S st = {};
        MOX_GetStats(ECM_CTL_MemHandle(m_pObj), &st);
        return st;
    }
    // Stored nodes are plain test memory: the merge never frees the stored list.
    void AddStored(VLANLUA_VIDSEG_S pe, VLANLUA_VIDSEG_S ce, uint32_t uiSegIndex)
    {
        m_nodes.push_back(VLANLUA_SEGNODE_S{{nullptr, nullptr}, VIDSEG_STATE_ORIGIN, 0, pe, ce, uiSegIndex});
    }
    void LinkStored()
    {
        for (auto &node : m_nodes) {
            vlanLua_SegListAppend(&m_stStored, &node);
        }
    }
    uint32_t Merge(VLANLUA_VIDSEG_S pe, VLANLUA_VIDSEG_S ce, uint32_t *puiCount)
    {
        return vlanLua_MergePeCeIterately(&m_stCtx, &pe, &ce, &m_stStored, &m_stOut, puiCount);
    }
    std::vector<VLANLUA_SEGNODE_S> OutNodes() const
    {
        std::vector<VLANLUA_SEGNODE_S> v;
        for (auto *l = m_stOut.pstNext; l != &m_stOut; l = l->pstNext) {
            v.push_back(*reinterpret_cast<VLANLUA_SEGNODE_S *>(l));
        }
        return v;
    }
    void UnlinkStored() { vlanLua_SegListInit(&m_stStored); }

    void *m_pObj = nullptr;
    VLANLUA_LOG_S m_stLog = {};
    VLANLUA_CTX_S m_stCtx = {};
    VLANLUA_SEGLINK_S m_stStored = {};
    VLANLUA_SEGLINK_S m_stOut = {};
    std::vector<VLANLUA_SEGNODE_S> m_nodes;
};

TEST_F(IterativeMerge, SegmentAdjacentOnlyToTheWidenedRectangleIsAbsorbedInALaterPass)
{
    m_nodes.reserve(4);
    AddStored(Seg(5, 5), Seg(3, 3), 30);
    AddStored(Seg(5, 5), Seg(2, 2), 20);
    LinkStored();
    uint32_t uiCount = 0;
    ASSERT_EQ(0u, Merge(Seg(5, 5), Seg(1, 1), &uiCount));
    EXPECT_EQ(3u, uiCount);
    auto out = OutNodes();
    ASSERT_EQ(3u, out.size());
    EXPECT_EQ(VIDSEG_STATE_MERGED, out[0].uiState);
    EXPECT_EQ(VIDSEG_OP_ADD, out[0].uiDbOp);
    EXPECT_EQ(1, out[0].stCeSeg.usBgn);
    EXPECT_EQ(3, out[0].stCeSeg.usEnd);
    EXPECT_EQ(0u, out[0].uiSegIndex);
    EXPECT_EQ(20u, out[1].uiSegIndex);   // absorbed in the first pass
    EXPECT_EQ(30u, out[2].uiSegIndex);   // absorbed in the second
    for (size_t i = 1; i < 3; i++) {
        EXPECT_EQ(VIDSEG_STATE_OLD, out[i].uiState);
        EXPECT_EQ(VIDSEG_OP_DEL, out[i].uiDbOp);
        EXPECT_EQ(out[i].stCeSeg.usBgn, out[i].stCeSeg.usEnd);   // the unwidened copy
    }
    EXPECT_EQ(VIDSEG_STATE_ABSORBED, m_nodes[0].uiState);
    EXPECT_EQ(VIDSEG_STATE_ABSORBED, m_nodes[1].uiState);
    UnlinkStored();
}

TEST_F(IterativeMerge, NothingAdjacentOrNothingStoredLeavesOutputEmptyWithoutAllocating)
{
    uint32_t uiCount = 7;
    uint64_t ulBefore = Stats().ulTotalAllocs;
    ASSERT_EQ(0u, Merge(Seg(5, 5), Seg(1, 1), &uiCount));
    EXPECT_EQ(0u, uiCount);
    EXPECT_EQ(ulBefore, Stats().ulTotalAllocs);

    m_nodes.reserve(2);
    AddStored(Seg(5, 5), Seg(3, 3), 30);
    LinkStored();
    ASSERT_EQ(0u, Merge(Seg(5, 5), Seg(1, 1), &uiCount));
    EXPECT_EQ(0u, uiCount);
    EXPECT_EQ(1u, vlanLua_SegListIsEmpty(&m_stOut));
    EXPECT_EQ(ulBefore, Stats().ulTotalAllocs);
    UnlinkStored();
}

TEST_F(IterativeMerge, RunningOutOfMemoryAtAnyAllocationFreesTheOutput)
{
    for (uint32_t n = 1;; n++) {
        m_nodes.clear();
        m_nodes.reserve(4);
        AddStored(Seg(5, 5), Seg(3, 3), 30);
        AddStored(Seg(5, 5), Seg(2, 2), 20);
        AddStored(Seg(6, 6), Seg(1, 3), 40);
        UnlinkStored();
        LinkStored();
        ECM_CTL_FailAlloc(m_pObj, n);
        uint32_t uiCount = 0;
        uint32_t uiRet = Merge(Seg(5, 5), Seg(1, 1), &uiCount);
        ECM_CTL_FailAlloc(m_pObj, 0);
        if (uiRet == 0) {
            EXPECT_EQ(4u, uiCount);
            EXPECT_EQ(5u, n);   // three copies and the merged node were allocated
            vlanLua_SegsDestroy(&m_stCtx, &m_stOut);
            break;
        }
        EXPECT_EQ(1u, vlanLua_SegListIsEmpty(&m_stOut)) << "n=" << n;
        EXPECT_EQ(0u, Stats().ulLiveBlocks) << "n=" << n;
    }
    UnlinkStored();
}

}  // namespace
