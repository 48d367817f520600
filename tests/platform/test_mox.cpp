// Tagged memory: per-handle figures, leak reports, injected failures and the aborts on bad frees.
#include "mox.h"
#include "mox_ctl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

class TaggedMemory : public ::testing::Test {
protected:
    void TearDown() override
    {
        MOX_HandleDestroy(handle);
        MOX_HandleDestroy(other);
    }
    void *Alloc(void *pHandle, uint32_t uiSize, uint32_t uiLine = 1)
    {
        return MOX_Malloc_F(pHandle, g_aucMoxMemPt[0], uiSize, "alloc.c", uiLine);
    }
    MOX_STATS_S Stats(void *pHandle)
    {
        MOX_STATS_S st;
        std::memset(&st, 0xEE, sizeof st);
        MOX_GetStats(pHandle, &st);
        return st;
    }
    std::string Report(void *pHandle, uint64_t &ulCount)
    {
        char *pcText = nullptr;
        size_t uiLen = 0;
        FILE *pstOut = open_memstream(&pcText, &uiLen);
        ulCount = MOX_LeakReport(pHandle, pstOut);
        std::fclose(pstOut);
        std::string strText(pcText, uiLen);
        std::free(pcText);
        return strText;
    }
    void *handle = MOX_HandleCreate("test");
    void *other = MOX_HandleCreate("other");
};

}  // namespace

TEST_F(TaggedMemory, FiguresFollowAllocationsAndFrees)
{
    void *a = Alloc(handle, 10);
    void *b = Alloc(handle, 20);
    void *c = Alloc(handle, 30);
    MOX_STATS_S st = Stats(handle);
    EXPECT_EQ(st.ulLiveBlocks, 3u);
    EXPECT_EQ(st.ulLiveBytes, 60u);
    EXPECT_EQ(st.ulPeakBytes, 60u);
    EXPECT_EQ(st.ulTotalAllocs, 3u);
    MOX_Free_F(b, "free.c", 1);
    void *d = Alloc(handle, 5);
    st = Stats(handle);
    EXPECT_EQ(st.ulLiveBlocks, 3u);
    EXPECT_EQ(st.ulLiveBytes, 45u);
    EXPECT_EQ(st.ulPeakBytes, 60u) << "the peak keeps the highest figure";
    EXPECT_EQ(st.ulTotalAllocs, 4u);
    for (void *p : {a, c, d}) {
        MOX_Free_F(p, "free.c", 2);
    }
    st = Stats(handle);
    EXPECT_EQ(st.ulLiveBlocks, 0u);
    EXPECT_EQ(st.ulLiveBytes, 0u);
}

TEST_F(TaggedMemory, HandlesAreChargedSeparately)
{
    void *a = Alloc(handle, 100);
    void *b = Alloc(other, 7);
    EXPECT_EQ(Stats(handle).ulLiveBytes, 100u);
    EXPECT_EQ(Stats(other).ulLiveBytes, 7u);
    MOX_Free_F(a, "free.c", 1);  // the free names no handle, yet the right one is credited
    EXPECT_EQ(Stats(handle).ulLiveBlocks, 0u);
    EXPECT_EQ(Stats(other).ulLiveBlocks, 1u);
    MOX_Free_F(b, "free.c", 2);
}

TEST_F(TaggedMemory, ZeroSizeBlocksAreDistinctAndCounted)
{
    void *a = Alloc(handle, 0);
    void *b = Alloc(handle, 0);
    ASSERT_TRUE(a != nullptr && b != nullptr);
    EXPECT_NE(a, b);
    EXPECT_EQ(Stats(handle).ulLiveBlocks, 2u);
    MOX_Free_F(a, "free.c", 1);
    MOX_Free_F(b, "free.c", 2);
    MOX_Free_F(nullptr, "free.c", 3);  // like free(): nothing to give back
}

TEST_F(TaggedMemory, LeakReportListsEachLiveBlockWithSizeFileAndLine)
{
    void *a = Alloc(handle, 24, 41);
    void *b = Alloc(handle, 8, 42);
    void *c = Alloc(other, 99, 43);
    uint64_t ulCount = 0;
    std::string strText = Report(handle, ulCount);
    EXPECT_EQ(ulCount, 2u);
    EXPECT_NE(strText.find("size 24 allocated at alloc.c:41"), std::string::npos) << strText;
    EXPECT_NE(strText.find("size 8 allocated at alloc.c:42"), std::string::npos) << strText;
    EXPECT_EQ(strText.find("alloc.c:43"), std::string::npos) << "another handle's block was reported";
    MOX_Free_F(a, "free.c", 1);
    MOX_Free_F(b, "free.c", 2);
    EXPECT_EQ(Report(handle, ulCount), "");
    EXPECT_EQ(ulCount, 0u);
    MOX_Free_F(c, "free.c", 3);
}

TEST_F(TaggedMemory, BlocksOutliveTheirDestroyedHandle)
{
    void *p = Alloc(handle, 16);
    MOX_STATS_S before = Stats(nullptr);
    MOX_HandleDestroy(handle);
    handle = nullptr;
    EXPECT_EQ(Stats(nullptr).ulLiveBlocks, before.ulLiveBlocks) << "still live, charged to no handle";
    MOX_Free_F(p, "free.c", 1);
    EXPECT_EQ(Stats(nullptr).ulLiveBlocks, before.ulLiveBlocks - 1);
}

TEST_F(TaggedMemory, ManyBlocksFreedInScrambledOrderStayFindableAndReportedInOrder)
{
    constexpr uint32_t kBlocks = 9000;   // more than the registry holds before it first grows
    std::vector<void *> blocks;
    for (uint32_t i = 0; i < kBlocks; i++) {
        blocks.push_back(Alloc(handle, (i * 37) % 301, i));   // scattered sizes scatter addresses
    }
    std::vector<bool> live(kBlocks, true);   // the model: which blocks are still held
    for (uint32_t k = 0; k < kBlocks; k++) {
        uint32_t i = static_cast<uint32_t>((k * 7919ull) % kBlocks);   // a fixed permutation
        if (i % 3 != 0) {
            MOX_Free_F(blocks[i], "free.c", i);
            live[i] = false;
        }
    }
    uint64_t ulCount = 0;
    std::string strText = Report(handle, ulCount);
    EXPECT_EQ(ulCount, static_cast<uint64_t>(std::count(live.begin(), live.end(), true)));
    EXPECT_EQ(Stats(handle).ulLiveBlocks, ulCount);
    size_t uiAt = 0;
    for (uint32_t i = 0; i < kBlocks; i += 3) {   // oldest first, each survivor once
        std::string strLine = "allocated at alloc.c:" + std::to_string(i) + " ";
        size_t uiFound = strText.find(strLine, uiAt);
        ASSERT_NE(uiFound, std::string::npos) << "block " << i << " missing or out of order";
        uiAt = uiFound + strLine.size();
    }
    for (uint32_t i = 0; i < kBlocks; i++) {   // reuse the freed addresses, then free all
        if (!live[i]) {
            blocks[i] = Alloc(handle, (i * 53) % 301, i);
        }
    }
    for (uint32_t k = 0; k < kBlocks; k++) {
        MOX_Free_F(blocks[(k * 4001ull) % kBlocks], "free.c", k);
    }
    EXPECT_EQ(Stats(handle).ulLiveBlocks, 0u);
    EXPECT_EQ(Stats(handle).ulLiveBytes, 0u);
}

// ---- fault injection ----

TEST_F(TaggedMemory, NthNextAllocationFailsOnceThenDisarms)
{
    MOX_FailAlloc(other, 1);
    MOX_FailAlloc(other, 0);  // disarmed before it fired
    MOX_FailAlloc(handle, 3);
    std::vector<void *> mine;
    std::vector<void *> theirs;
    for (int i = 0; i < 5; i++) {
        mine.push_back(Alloc(handle, 8));
        theirs.push_back(Alloc(other, 8));
    }
    EXPECT_EQ(mine, (std::vector<void *>{mine[0], mine[1], nullptr, mine[3], mine[4]}));
    EXPECT_EQ(std::count(mine.begin(), mine.end(), nullptr), 1) << "fires once";
    EXPECT_EQ(std::count(theirs.begin(), theirs.end(), nullptr), 0) << "other handles are not affected";
    EXPECT_EQ(Stats(handle).ulTotalAllocs, 4u) << "a refused allocation is not an allocation";
    for (void *p : mine) {
        MOX_Free_F(p, "free.c", 1);
    }
    for (void *p : theirs) {
        MOX_Free_F(p, "free.c", 2);
    }
}

// ---- assertions ----

TEST_F(TaggedMemory, AssertCountsAndNamesFileAndLineOnlyWhenViolated)
{
    uint64_t ulBefore = MOX_AssertCount();
    testing::internal::CaptureStderr();
    MOX_Assert("vlanlua_bas_log", 77, 1);
    MOX_Assert("vlanlua_bas_log", 78, 0);
    std::string strErr = testing::internal::GetCapturedStderr();
    EXPECT_EQ(MOX_AssertCount(), ulBefore + 1);
    EXPECT_EQ(strErr, "MOX_Assert: vlanlua_bas_log:78\n");
    EXPECT_EQ(Stats(handle).ulAsserts, 1u);
    void *fresh = MOX_HandleCreate("fresh");
    EXPECT_EQ(Stats(fresh).ulAsserts, 0u) << "earlier assertions belong to earlier handles";
    MOX_HandleDestroy(fresh);
}

// ---- concurrency ----

TEST_F(TaggedMemory, ConcurrentUseKeepsFiguresExact)
{
    auto churn = [this](void *pHandle) {
        std::vector<void *> blocks;
        for (int i = 0; i < 2000; i++) {
            blocks.push_back(Alloc(pHandle, 3));
            if (i % 2 == 1) {
                MOX_Free_F(blocks[i - 1], "free.c", 1);
                blocks[i - 1] = nullptr;
            }
        }
        for (void *p : blocks) {
            MOX_Free_F(p, "free.c", 2);
        }
    };
    std::thread t1(churn, handle);
    std::thread t2(churn, other);
    t1.join();
    t2.join();
    EXPECT_EQ(Stats(handle).ulTotalAllocs, 2000u);
    EXPECT_EQ(Stats(handle).ulLiveBlocks, 0u);
    EXPECT_EQ(Stats(other).ulLiveBytes, 0u);
}

// ---- faults of the caller end the process ----

using TaggedMemoryDeathTest = TaggedMemory;

TEST_F(TaggedMemoryDeathTest, FreeOfAPointerNeverAllocatedAborts)
{
    static int iNotABlock;
    EXPECT_DEATH(MOX_Free_F(&iNotABlock, "wild.c", 12), "free of an unknown pointer .* at wild.c:12");
}

TEST_F(TaggedMemoryDeathTest, FreeOfAnAddressInsideALiveBlockAborts)
{
    auto *pucBlock = static_cast<unsigned char *>(Alloc(handle, 256));
    EXPECT_DEATH(MOX_Free_F(pucBlock + 128, "inner.c", 5), "free of an unknown pointer .* at inner.c:5");
    MOX_Free_F(pucBlock, "free.c", 1);
}

TEST_F(TaggedMemoryDeathTest, DoubleFreeAbortsNamingBothFrees)
{
    void *p = Alloc(handle, 8);
    MOX_Free_F(p, "first.c", 8);
    EXPECT_DEATH(MOX_Free_F(p, "second.c", 9), "double free of .* at second.c:9 \\(already freed at first.c:8\\)");
}

// ---- guard bytes around every block ----

TEST_F(TaggedMemory, WritesFillingABlockLeaveItsGuardsIntactAtEverySize)
{
    for (uint32_t uiSize = 0; uiSize <= 48; uiSize++) {
        auto *pucBlock = static_cast<unsigned char *>(Alloc(handle, uiSize));
        ASSERT_EQ(reinterpret_cast<uintptr_t>(pucBlock) % alignof(std::max_align_t), 0u) << "size " << uiSize;
        std::memset(pucBlock, 0xFF, uiSize);
        std::memset(pucBlock, 0x00, uiSize);
        MOX_Free_F(pucBlock, "free.c", uiSize);   // aborts if a guard were hit
    }
    EXPECT_EQ(Stats(handle).ulLiveBlocks, 0u);
}

/* Changes the byte at pucAt, expects the free to abort with the message, then repairs the byte
 * and frees the block for real. */
static void ExpectFreeAbortsAfterWriteAt(unsigned char *pucBlock, unsigned char *pucAt, const char *pcMessage)
{
    unsigned char ucSaved = *pucAt;
    *pucAt = static_cast<unsigned char>(ucSaved ^ 0x01);   // the smallest change that must be seen
    EXPECT_DEATH(MOX_Free_F(pucBlock, "free.c", 3), pcMessage);
    *pucAt = ucSaved;
    MOX_Free_F(pucBlock, "free.c", 4);
}

/* Both ends of the guard before a block and of the one after it, at sizes that put the tail guard
 * at every alignment. */
TEST_F(TaggedMemoryDeathTest, WriteOneByteBeforeOrPastABlockAbortsNamingWhereItWasAllocated)
{
    for (uint32_t uiSize : {0u, 1u, 24u, 333u}) {
        const std::string strWhere = " .* allocated at alloc.c:" + std::to_string(70 + uiSize);
        const std::string strBefore = "write before the block" + strWhere;
        const std::string strPast = "write past the end of the block" + strWhere;
        for (long lAt : {-1L, -8L, static_cast<long>(uiSize), static_cast<long>(uiSize) + 7}) {
            auto *pucBlock = static_cast<unsigned char *>(Alloc(handle, uiSize, 70 + uiSize));
            ExpectFreeAbortsAfterWriteAt(pucBlock, pucBlock + lAt, (lAt < 0 ? strBefore : strPast).c_str());
        }
    }
}
