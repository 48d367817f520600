// Rectangle geometry of PE/CE ranges: which rectangles abut, how widening grows only the
// destination, and no wrap at the ends of 16 bits. The merge passes are proven from scripts.
#include <gtest/gtest.h>

#include "bas/vlanlua_bas_vidseg.h"

namespace {

VLANLUA_VIDSEG_S Seg(uint16_t usBgn, uint16_t usEnd) { return VLANLUA_VIDSEG_S{usBgn, usEnd}; }

uint32_t Adjacent(VLANLUA_VIDSEG_S pe1, VLANLUA_VIDSEG_S ce1, VLANLUA_VIDSEG_S pe2, VLANLUA_VIDSEG_S ce2)
{
    return vlanLua_VidSegIsAdjacent(&pe1, &ce1, &pe2, &ce2);
}

struct AdjacencyCase {
    VLANLUA_VIDSEG_S pe1, ce1, pe2, ce2;
    uint32_t uiWant;
};

/* Adjacent means one dimension equal and the other abutting, in either order; diagonal,
 * identical and overlapping rectangles are not, and 0 never abuts 65535. */
TEST(RectangleAdjacency, SharedDimensionAndAbuttingOtherOnly)
{
    const AdjacencyCase cases[] = {
        {Seg(100, 100), Seg(10, 20), Seg(100, 100), Seg(21, 30), 1},
        {Seg(100, 100), Seg(21, 30), Seg(100, 100), Seg(10, 20), 1},
        {Seg(100, 100), Seg(10, 20), Seg(101, 101), Seg(10, 20), 1},
        {Seg(101, 105), Seg(10, 20), Seg(100, 100), Seg(10, 20), 1},
        {Seg(100, 100), Seg(10, 20), Seg(101, 101), Seg(21, 30), 0},
        {Seg(100, 100), Seg(10, 20), Seg(100, 100), Seg(10, 20), 0},
        {Seg(100, 100), Seg(10, 20), Seg(100, 100), Seg(20, 30), 0},
        {Seg(100, 100), Seg(10, 20), Seg(100, 100), Seg(22, 30), 0},
        {Seg(100, 101), Seg(10, 20), Seg(100, 100), Seg(21, 30), 0},
        {Seg(5, 5), Seg(0, 3), Seg(5, 5), Seg(65535, 65535), 0},
        {Seg(5, 5), Seg(65535, 65535), Seg(5, 5), Seg(0, 3), 0},
        {Seg(0, 0), Seg(7, 7), Seg(65535, 65535), Seg(7, 7), 0},
        {Seg(5, 5), Seg(65534, 65535), Seg(5, 5), Seg(0, 65533), 1},
    };
    int i = 0;
    for (const auto &c : cases) {
        EXPECT_EQ(c.uiWant, Adjacent(c.pe1, c.ce1, c.pe2, c.ce2)) << "case " << i++;
    }
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

}  // namespace
