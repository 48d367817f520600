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

// ---- memcpy_s ----

TEST(BoundedCopy, CountEqualToCapacityCopiesEverything)
{
    Dest d;
    EXPECT_EQ(memcpy_s(d.bytes.data(), Dest::kCap, kSource, Dest::kCap), 0);
    EXPECT_EQ(std::memcmp(d.bytes.data(), kSource, Dest::kCap), 0);
    EXPECT_TRUE(d.Untouched(Dest::kCap));
}

TEST(BoundedCopy, CountOneAboveCapacityFailsAndWritesNothing)
{
    Dest d;
    EXPECT_NE(memcpy_s(d.bytes.data(), Dest::kCap, kSource, Dest::kCap + 1), 0);
    EXPECT_TRUE(d.Untouched());
}

TEST(BoundedCopy, NullPointersFailAndZeroCountSucceeds)
{
    Dest d;
    EXPECT_NE(memcpy_s(nullptr, Dest::kCap, kSource, 1), 0);
    EXPECT_NE(memcpy_s(d.bytes.data(), Dest::kCap, nullptr, 1), 0);
    EXPECT_NE(memset_s(nullptr, Dest::kCap, 0, 1), 0);
    EXPECT_EQ(memcpy_s(d.bytes.data(), 0, kSource, 0), 0);
    EXPECT_TRUE(d.Untouched());
}

TEST(BoundedCopy, OverlappingRangesCopyTheOriginalBytes)
{
    char acText[] = "abcdef";
    EXPECT_EQ(memcpy_s(acText + 1, 5, acText, 4), 0);
    EXPECT_STREQ(acText, "aabcdf");
}

// ---- memset_s ----

TEST(BoundedFill, CountEqualToCapacityFillsEverything)
{
    Dest d;
    EXPECT_EQ(memset_s(d.bytes.data(), Dest::kCap, 0, Dest::kCap), 0);
    EXPECT_EQ(std::count(d.bytes.begin(), d.bytes.begin() + Dest::kCap, 0), 8);
    EXPECT_TRUE(d.Untouched(Dest::kCap));
}

TEST(BoundedFill, CountOneAboveCapacityFailsAndWritesNothing)
{
    Dest d;
    EXPECT_NE(memset_s(d.bytes.data(), Dest::kCap, 0, Dest::kCap + 1), 0);
    EXPECT_TRUE(d.Untouched());
}

// ---- snprintf_truncated_s ----

TEST(TruncatingFormat, ShortOutputIsWrittenWhole)
{
    char acBuf[16];
    EXPECT_EQ(snprintf_truncated_s(acBuf, sizeof acBuf, "%u", 4096u), 4);
    EXPECT_STREQ(acBuf, "4096");
}

TEST(TruncatingFormat, OutputOfCapacityMinusOneFitsExactly)
{
    Dest d;
    EXPECT_EQ(snprintf_truncated_s(reinterpret_cast<char *>(d.bytes.data()), Dest::kCap, "%s", "1234567"), 7);
    EXPECT_STREQ(reinterpret_cast<char *>(d.bytes.data()), "1234567");
    EXPECT_TRUE(d.Untouched(Dest::kCap));
}

TEST(TruncatingFormat, LongerOutputIsCutAndCountsOnlyWhatWasWritten)
{
    Dest d;
    EXPECT_EQ(snprintf_truncated_s(reinterpret_cast<char *>(d.bytes.data()), Dest::kCap, "%s-%d", "abcdef", -42), 7);
    EXPECT_STREQ(reinterpret_cast<char *>(d.bytes.data()), "abcdef-");
    EXPECT_TRUE(d.Untouched(Dest::kCap));
}

TEST(TruncatingFormat, CapacityOneWritesOnlyTheTerminator)
{
    Dest d;
    EXPECT_EQ(snprintf_truncated_s(reinterpret_cast<char *>(d.bytes.data()), 1, "\n"), 0);
    EXPECT_EQ(d.bytes[0], 0);
    EXPECT_TRUE(d.Untouched(1));
}

TEST(TruncatingFormat, ZeroCapacityAndNullPointersFailWithoutWriting)
{
    Dest d;
    char *pcDest = reinterpret_cast<char *>(d.bytes.data());
    EXPECT_EQ(snprintf_truncated_s(pcDest, 0, "x"), -1);
    EXPECT_EQ(snprintf_truncated_s(nullptr, 8, "x"), -1);
    const char *pcNoFormat = nullptr;
    EXPECT_EQ(snprintf_truncated_s(pcDest, 8, pcNoFormat), -1);
    EXPECT_TRUE(d.Untouched());
}
