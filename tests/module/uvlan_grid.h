/* Hand-drawn grids for the user-VLAN QinQ cutting and merging tests: rectangles with one service
 * value, a service set built from them without the database, and a cell model to check against. */
#ifndef UVLAN_GRID_H
#define UVLAN_GRID_H

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "mox.h"
#include "ecm_capi.h"
#include "vlanlua_uservlan.h"

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

#endif
