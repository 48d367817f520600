// Bounds-checked copy, fill and formatting at their limits; guard bytes catch any write past them.
#include "sec_bound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace {

constexpr unsigned char kGuard = 0xCC;

// A destination of 8 usable bytes followed by guard bytes that must never change.
struct Dest {
    Dest() { bytes.fill(kGuard); }
    bool Untouched(size_t uiFrom = 0) const
    {
        for (size_t i = uiFrom; i < bytes.size(); i++) {
            if (bytes[i] != kGuard) {
                return false;
            }
        }
        return true;
    }
    std::array<unsigned char, 16> bytes;
    static constexpr size_t kCap = 8;
};

const char kSource[] = "0123456789ABCDEF";

}  // namespace

// ---- memcpy_s and memset_s ----

TEST(BoundedCopyAndFill, CountsUpToCapacityAreWrittenAndOneMoreWritesNothing)
{
    for (size_t uiCount : {size_t{0}, Dest::kCap, Dest::kCap + 1}) {
        const bool bFits = uiCount <= Dest::kCap;
        const size_t uiWritten = bFits ? uiCount : 0;
        Dest copy, fill;
        EXPECT_EQ(memcpy_s(copy.bytes.data(), Dest::kCap, kSource, uiCount) == 0, bFits) << uiCount;
        EXPECT_EQ(memset_s(fill.bytes.data(), Dest::kCap, 0, uiCount) == 0, bFits) << uiCount;
        EXPECT_EQ(std::memcmp(copy.bytes.data(), kSource, uiWritten), 0) << uiCount;
        EXPECT_EQ(std::count(fill.bytes.begin(), fill.bytes.begin() + uiWritten, 0), static_cast<long>(uiWritten));
        EXPECT_TRUE(copy.Untouched(uiWritten) && fill.Untouched(uiWritten)) << uiCount;
    }
}

TEST(BoundedCopyAndFill, NullPointersFailAndOverlappingRangesCopyTheOriginalBytes)
{
    Dest d;
    EXPECT_NE(memcpy_s(nullptr, Dest::kCap, kSource, 1), 0);
    EXPECT_NE(memcpy_s(d.bytes.data(), Dest::kCap, nullptr, 1), 0);
    EXPECT_NE(memset_s(nullptr, Dest::kCap, 0, 1), 0);
    EXPECT_EQ(memcpy_s(d.bytes.data(), 0, kSource, 0), 0);
    EXPECT_TRUE(d.Untouched());
    char acText[] = "abcdef";
    EXPECT_EQ(memcpy_s(acText + 1, 5, acText, 4), 0);
    EXPECT_STREQ(acText, "aabcdf");
}

// ---- snprintf_truncated_s ----

TEST(TruncatingFormat, OutputIsCutToCapacityLessOneAndCountsOnlyWhatWasWritten)
{
    const struct {
        size_t uiCap;
        const char *pcText;
        int iWant;
        const char *pcWritten;
    } aCases[] = {{Dest::kCap, "4096", 4, "4096"}, {Dest::kCap, "1234567", 7, "1234567"},
                  {Dest::kCap, "abcdef-42", 7, "abcdef-"}, {1, "\n", 0, ""}};
    for (const auto &c : aCases) {
        Dest d;
        char *pcDest = reinterpret_cast<char *>(d.bytes.data());
        EXPECT_EQ(snprintf_truncated_s(pcDest, c.uiCap, "%s", c.pcText), c.iWant) << c.pcText;
        EXPECT_STREQ(pcDest, c.pcWritten);
        EXPECT_TRUE(d.Untouched(c.uiCap)) << c.pcText;
    }
    char acBuf[16];
    EXPECT_EQ(snprintf_truncated_s(acBuf, sizeof acBuf, "%u-%d", 4096u, -42), 8) << "arguments are formatted";
    EXPECT_STREQ(acBuf, "4096--42");
}

TEST(TruncatingFormat, ZeroCapacityAndNullPointersFailWithoutWriting)
{
    Dest d;
    char *pcDest = reinterpret_cast<char *>(d.bytes.data());
    EXPECT_EQ(snprintf_truncated_s(pcDest, 0, "x"), -1);
    EXPECT_EQ(snprintf_truncated_s(nullptr, 8, "x"), -1);
    const char *pcNoFormat = nullptr;
    EXPECT_EQ(snprintf_truncated_s(pcDest, 8, pcNoFormat, 0), -1);  /* with an argument, as a format is used */
    EXPECT_TRUE(d.Untouched());
}
