/* Cutting stored user-VLAN QinQ segments and a request on one grid, and merging the pieces back:
 * hand-drawn grids with known answers, and random small grids checked against a cell model. */
#include <random>

#include "uvlan_grid.h"
#include "vlanlua_test_db.h"

namespace {

class UvlanGrid : public VlanLuaDbTest {
protected:
    void SetUp() override
    {
        VlanLuaDbTest::SetUp();
        env = {&stLog, pObj};
    }
    VLANLUA_LOG_S stLog{};
    VLANLUA_CTX_S env{};
};

using Rects = std::vector<Rect>;

/* ---- where the cut points fall ---- */

TEST_F(UvlanGrid, StoredSegmentWiderAlongPeIsCutAtBothRequestEdges)
{
    GridRun run(env, {{5, 50, 1, 5, 3}}, Rect{10, 20, 1, 5, 7});
    ASSERT_EQ(run.Split(), 0u);
    EXPECT_EQ(run.CutPoints(), (std::vector<uint16_t>{10, 21, 51}));
    EXPECT_EQ(ListOf(run.Set()->stFinalSegs), (Rects{{5, 9, 1, 5, 3}, {10, 20, 1, 5, 7}, {21, 50, 1, 5, 3}}));
    EXPECT_NE(run.Set()->uiFlag & UVLAN_SET_ALLCOVERED, 0u) << "the request fell wholly on a stored piece";
}

TEST_F(UvlanGrid, PeEndAtTheLastVlanGivesTheCutPointPastIt)
{
    GridRun run(env, {{4000, 4094, 1, 5, 3}}, Rect{4090, 4094, 1, 5, 7});
    ASSERT_EQ(run.Split(), 0u);
    EXPECT_EQ(run.CutPoints(), (std::vector<uint16_t>{4090, 4095}));
    EXPECT_EQ(ListOf(run.Set()->stFinalSegs), (Rects{{4000, 4089, 1, 5, 3}, {4090, 4094, 1, 5, 7}}));
}

/* Two stored segments cover the request's PE range, the one with the lower PE begin holding the
 * higher CE range: visiting them by CE begin keeps the request's pieces apart from both. */
TEST_F(UvlanGrid, CoveringSegmentsOutOfCeOrderStillGiveDisjointPieces)
{
    GridRun run(env, {{5, 20, 50, 60, 3}, {10, 20, 1, 10, 4}}, Rect{10, 20, 1, 100, 7});
    ASSERT_EQ(run.Split(), 0u);
    Rects final = ListOf(run.Set()->stFinalSegs);
    EXPECT_EQ(final, (Rects{{5, 9, 50, 60, 3}, {10, 20, 1, 10, 7}, {10, 20, 11, 49, 7}, {10, 20, 50, 60, 7},
                            {10, 20, 61, 100, 7}}));
    PaintPieces(final);
}

TEST_F(UvlanGrid, FourQuartersWithEqualServicesMergeIntoOneRectangle)
{
    GridRun run(env, {{1, 4, 1, 4, 7}, {1, 4, 5, 8, 7}, {5, 8, 1, 4, 7}}, Rect{5, 8, 5, 8, 7});
    ASSERT_EQ(run.Split(), 0u);
    run.Merge();
    EXPECT_EQ(ListOf(run.Set()->stFinalSegs), (Rects{{1, 8, 1, 8, 7}}));
}

/* ---- random grids against the cell model ---- */

/* Lays random disjoint rectangles on a 12 x 12 window: each new one must miss every cell taken. */
Rects RandomStored(std::mt19937 &rng, uint32_t uiTries)
{
    std::uniform_int_distribution<int> pos(1, 12);
    std::uniform_int_distribution<int> svc(0, 3);
    Rects out;
    CellMap taken;
    for (uint32_t t = 0; t < uiTries; t++) {
        int a = pos(rng), b = pos(rng), c = pos(rng), d = pos(rng);
        Rect r{static_cast<uint16_t>(std::min(a, b)), static_cast<uint16_t>(std::max(a, b)),
               static_cast<uint16_t>(std::min(c, d)), static_cast<uint16_t>(std::max(c, d)),
               static_cast<uint32_t>(svc(rng))};
        CellMap mine;
        Paint(mine, r, 0);
        bool bFree = true;
        for (auto &cell : mine) {
            bFree = bFree && taken.count(cell.first) == 0;
        }
        if (bFree) {
            Paint(taken, r, 0);
            out.push_back(r);
        }
    }
    std::sort(out.begin(), out.end(), [](const Rect &x, const Rect &y) {
        return x.peb != y.peb ? x.peb < y.peb : x.ceb < y.ceb;
    });
    return out;
}

TEST_F(UvlanGrid, RandomGridsGiveDisjointMaximalPiecesThatPaintTheExpectedCells)
{
    std::mt19937 rng(20261123);
    std::uniform_int_distribution<int> pos(1, 12);
    for (int round = 0; round < 400; round++) {
        Rects stored = RandomStored(rng, 6);
        int a = pos(rng), b = pos(rng), c = pos(rng), d = pos(rng);
        Rect req{static_cast<uint16_t>(std::min(a, b)), static_cast<uint16_t>(std::max(a, b)),
                 static_cast<uint16_t>(std::min(c, d)), static_cast<uint16_t>(std::max(c, d)),
                 static_cast<uint32_t>(round % 4)};
        CellMap want;
        for (const Rect &r : stored) {
            Paint(want, r, r.svc);
        }
        Paint(want, req, req.svc);
        GridRun run(env, stored, req);
        ASSERT_EQ(run.Split(), 0u);
        run.Merge();
        Rects pieces = ListOf(run.Set()->stFinalSegs);
        SCOPED_TRACE(::testing::Message() << "round " << round << " request " << req);
        CellMap got = PaintPieces(pieces);
        /* Only cells near the request are loaded; compare those the pieces paint. */
        for (auto &cell : got) {
            EXPECT_EQ(cell.second, want[cell.first]) << "PE " << cell.first.first << " CE " << cell.first.second;
        }
        CellMap reqCells;
        Paint(reqCells, req, 0);
        for (auto &cell : reqCells) {
            EXPECT_EQ(got.count(cell.first), 1u) << "request cell lost";
        }
        for (size_t i = 0; i < pieces.size(); i++) {
            for (size_t j = 0; j < pieces.size(); j++) {
                const Rect &x = pieces[i], &y = pieces[j];
                bool bPeNext = x.pee + 1 == y.peb && x.ceb == y.ceb && x.cee == y.cee;
                EXPECT_FALSE(bPeNext && x.svc == y.svc) << x << " and " << y << " should have merged";
            }
        }
    }
}

} // namespace
