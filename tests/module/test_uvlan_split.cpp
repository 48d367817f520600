/* Cutting stored user-VLAN QinQ segments and a request on one grid, and merging the pieces back:
 * the cases a random run rarely draws (4094, CE order, four quarters), and random small grids
 * checked against a cell model. */
#include <cstdint>
#include <map>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "ecm_capi.h"
#include "mox.h"
#include "vlanlua_test_db.h"
#include "vlanlua_uservlan.h"

namespace {

/* Rectangles with one service value (type 1; 0 = none), built into a service set without the
 * database, and a cell model to check against. */
struct Rect {
    uint16_t peb, pee, ceb, cee;
    uint32_t svc;       /* value of service type 1; 0 = no service entry */
    bool operator==(const Rect &o) const
    {
        return peb == o.peb && pee == o.pee && ceb == o.ceb && cee == o.cee && svc == o.svc;
    }
};

inline std::ostream &operator<<(std::ostream &os, const Rect &r)
{
    return os << "PE[" << r.peb << "-" << r.pee << "]xCE[" << r.ceb << "-" << r.cee << "] svc " << r.svc;
}

inline VLANLUA_UVLAN_SVCSEG_S MakeSeg(const Rect &r, uint32_t uiSegIndex, bool bStored)
{
    VLANLUA_UVLAN_SVCSEG_S seg = {};
    seg.uiSegIndex = uiSegIndex;
    seg.stPair = {r.peb, r.pee, r.ceb, r.cee};
    if (bStored) {      /* a stored segment carries every mapped entry, as loading leaves it */
        for (uint32_t k = 1; k <= 16; k++) {
            seg.stSvcInfo.astSvc[k] = {k, 0};
        }
    }
    if (r.svc != 0 || !bStored) {
        seg.stSvcInfo.astSvc[1] = {1, r.svc};
    }
    if (bStored && r.svc == 0) {
        seg.uiFlag = UVLAN_SVC_NONE | UVLAN_SVC_NOBASE | UVLAN_SVC_NOVPN;
    } else if (bStored) {
        seg.uiFlag = UVLAN_SVC_NOVPN;
    }
    return seg;
}

inline Rect RectOf(const VLANLUA_UVLAN_SVCSEG_S &seg)
{
    const auto &e = seg.stSvcInfo.astSvc[1];
    return Rect{seg.stPair.usPeBgn, seg.stPair.usPeEnd, seg.stPair.usCeBgn, seg.stPair.usCeEnd,
                e.uiSvcType == 1 ? e.uiSvcValue : 0};
}

inline std::vector<Rect> ListOf(const VLANLUA_UVLAN_SVCSEG_S &head)
{
    std::vector<Rect> out;
    for (const VLANLUA_UVLAN_SVCSEG_S *p = head.pstNext; p != nullptr; p = p->pstNext) {
        out.push_back(RectOf(*p));
    }
    return out;
}

/* A service set over stored rectangles (sorted by PE begin, then CE begin, as loading gives them),
 * cut against one request. Everything is freed with the set. */
class GridRun {
public:
    GridRun(VLANLUA_CTX_S &ctx, const std::vector<Rect> &stored, const Rect &req) : m_ctx(ctx)
    {
        m_req = MakeSeg(req, 0, false);
        EXPECT_EQ(vlanLua_UVlanQinqSvcSetInit(&ctx, &m_pstSet), 0u);
        LoadStored(stored);
        m_pstSet->pstNewSvcSeg = &m_req;
    }
    ~GridRun() { vlanLua_UVlanQinqSvcSetDestroy(&m_ctx, m_pstSet); }

    uint32_t Split()
    {
        VLANLUA_CTX_S *ctx = &m_ctx;
        VLANLUA_UVLAN_SEGARRAY_S reqArray = {1, &m_req};
        uint32_t uiRet = vlanLua_UVlanQinqGetSplitPelist(ctx, m_pstSet, &m_req);
        if (uiRet == 0) {
            uiRet = vlanLua_UVlanQinqSplitSegsByPeCe(ctx, m_pstSet, &m_pstSet->stSvcSegs, &reqArray,
                                                     &m_pstSet->stDbSplitTree);
        }
        if (uiRet == 0) {
            uiRet = vlanLua_UVlanQinqSplitSegsByPeCe(ctx, m_pstSet, &reqArray, &m_pstSet->stSvcSegsOrg,
                                                     &m_pstSet->stCfgSplitTree);
        }
        if (uiRet == 0) {
            vlanLua_UVlanQinqGenFinalSplitedSegs(ctx, m_pstSet);
        }
        return uiRet;
    }
    void Merge()
    {
        vlanLua_UVlanQinqMergePeSameSegs(&m_ctx, m_pstSet);
        vlanLua_UVlanQinqMergeCeSameSegs(&m_ctx, m_pstSet);
    }

    std::vector<uint16_t> CutPoints() const
    {
        std::vector<uint16_t> out;
        auto &t = m_pstSet->stPeList;
        for (void *p = KEL_AVL3_First(&t.stTree, &t.stInfo); p != nullptr;
             p = KEL_AVL3_Next(static_cast<KEL_AVL3_NODE_S *>(p), &t.stInfo)) {
            out.push_back(static_cast<VLANLUA_UVLAN_PENODE_S *>(p)->usVlanId);
        }
        return out;
    }

    VLANLUA_UVLAN_SVCSET_S *Set() { return m_pstSet; }

private:
    void LoadStored(const std::vector<Rect> &stored)
    {
        if (stored.empty()) {
            return;
        }
        uint32_t uiBytes = static_cast<uint32_t>(stored.size() * sizeof(VLANLUA_UVLAN_SVCSEG_S));
        void *pHandle = ECM_CAPI_GetSimpleMemHandle(m_ctx.pObj);
        auto *segs = static_cast<VLANLUA_UVLAN_SVCSEG_S *>(MOX_Malloc_F(pHandle, 0, uiBytes, "grid", 1));
        auto *org = static_cast<VLANLUA_UVLAN_SVCSEG_S *>(MOX_Malloc_F(pHandle, 0, uiBytes, "grid", 2));
        for (size_t i = 0; i < stored.size(); i++) {
            segs[i] = MakeSeg(stored[i], static_cast<uint32_t>(100 + i), true);
            org[i] = segs[i];
            KEL_AVL3_INIT_NODE(org[i].stNode);
            auto &t = m_pstSet->stSvcTree;
            EXPECT_EQ(KEL_AVL3_Insert_Or_Find(&t.stTree, &org[i].stNode, &t.stInfo), nullptr);
        }
        m_pstSet->stSvcSegs = {static_cast<uint32_t>(stored.size()), segs};
        m_pstSet->stSvcSegsOrg = {static_cast<uint32_t>(stored.size()), org};
    }

    VLANLUA_CTX_S &m_ctx;
    VLANLUA_UVLAN_SVCSEG_S m_req;
    VLANLUA_UVLAN_SVCSET_S *m_pstSet = nullptr;
};

/* The cell model: which service each (PE, CE) cell carries, -1 for an empty cell. */
using CellMap = std::map<std::pair<int, int>, int64_t>;

inline void Paint(CellMap &cells, const Rect &r, int64_t value)
{
    for (int pe = r.peb; pe <= r.pee; pe++) {
        for (int ce = r.ceb; ce <= r.cee; ce++) {
            cells[{pe, ce}] = value;
        }
    }
}

/* Paints the pieces, failing on any cell painted twice. */
inline CellMap PaintPieces(const std::vector<Rect> &pieces)
{
    CellMap cells;
    for (const Rect &r : pieces) {
        for (int pe = r.peb; pe <= r.pee; pe++) {
            for (int ce = r.ceb; ce <= r.cee; ce++) {
                EXPECT_EQ(cells.count({pe, ce}), 0u) << "cell PE " << pe << " CE " << ce << " twice, at " << r;
                cells[{pe, ce}] = r.svc;
            }
        }
    }
    return cells;
}


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
