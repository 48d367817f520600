// Rectangle adjacency of PE/CE ranges where the script-level random merges never reach: identical
// and overlapping rectangles, and no wrap at the ends of 16 bits. Abutting in general, widening
// and the merge passes are proven from scripts against a cell model (test_qinqmerge.lua).
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

/* Identical and overlapping rectangles do not abut; 0 never abuts 65535, a range ending at 65535
 * abuts one beginning at 65534 like any other. */
TEST(RectangleAdjacency, IdenticalOverlappingAndWrappingRectanglesDoNotAbut)
{
    const AdjacencyCase cases[] = {
        {Seg(100, 100), Seg(10, 20), Seg(100, 100), Seg(10, 20), 0},
        {Seg(100, 100), Seg(10, 20), Seg(100, 100), Seg(20, 30), 0},
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

}  // namespace
