/* Overlap reads of the segment table through its spatial index: the same records, order, counts and
 * limits as the plain table and as a brute-force filter, across writes, deletes and reopening a file. */
#include <sqlite3.h>

#include <algorithm>
#include <random>

#include "test_ecm_util.h"

using namespace ecmtest;

namespace {

/* One stored segment as the model keeps it, in insertion order. */
struct Seg {
    uint32_t uiIf;
    uint32_t uiSeg;
    uint32_t uiVr;
    uint16_t usPeBgn, usPeEnd, usCeBgn, usCeEnd;
};

/* The read of a segment query: one interface, PE and CE windows. */
struct Window {
    uint32_t uiIf;
    uint16_t usPeLow, usPeHigh, usCeLow, usCeHigh;
};

bool Overlaps(const Seg &stSeg, const Window &stWin)
{
    return stSeg.uiIf == stWin.uiIf && stSeg.usPeEnd >= stWin.usPeLow && stSeg.usPeBgn <= stWin.usPeHigh &&
           stSeg.usCeEnd >= stWin.usCeLow && stSeg.usCeBgn <= stWin.usCeHigh;
}

/* What the table should answer: matching segments by PE begin, CE begin, then insertion. */
std::vector<uint32_t> Expected(const std::vector<Seg> &vecSegs, const Window &stWin, size_t ulLimit)
{
    std::vector<Seg> vecHit;
    std::copy_if(vecSegs.begin(), vecSegs.end(), std::back_inserter(vecHit),
                 [&](const Seg &s) { return Overlaps(s, stWin); });
    std::stable_sort(vecHit.begin(), vecHit.end(), [](const Seg &a, const Seg &b) {
        return a.usPeBgn != b.usPeBgn ? a.usPeBgn < b.usPeBgn : a.usCeBgn < b.usCeBgn;
    });
    std::vector<uint32_t> vecSegIdx;
    for (size_t i = 0; i < vecHit.size() && i < ulLimit; i++) {
        vecSegIdx.push_back(vecHit[i].uiSeg);
    }
    return vecSegIdx;
}

class SpatialRead : public EcmTest {
protected:
    void Insert(const Seg &stSeg)
    {
        Writes w;
        w.U32(1, stSeg.uiIf).U32(2, stSeg.uiSeg).Vr(4, stSeg.uiVr);
        w.U16(5, stSeg.usCeBgn).U16(6, stSeg.usCeEnd).U16(7, stSeg.usPeBgn).U16(8, stSeg.usPeEnd);
        ASSERT_EQ(ECM_OK, ECM_CAPI_InsertRecord(pObj, UVLAN_QINQ_SEG, w.Data(), w.Num(), 0));
        vecSegs.push_back(stSeg);
    }
    static Query WindowQuery(const Window &stWin)
    {
        Query q;
        q.Where32(1, ECM_OP_EQ, stWin.uiIf).Where16(8, ECM_OP_GE, stWin.usPeLow);
        q.Where16(7, ECM_OP_LE, stWin.usPeHigh).Where16(6, ECM_OP_GE, stWin.usCeLow);
        q.Where16(5, ECM_OP_LE, stWin.usCeHigh);
        return q;
    }
    std::vector<uint32_t> Read(const Window &stWin, uint16_t usLimit)
    {
        Query q = WindowQuery(stWin);
        q.Select(2).Sort(7).Sort(5);
        EXPECT_EQ(ECM_OK, q.Run(pObj, UVLAN_QINQ_SEG, 4, usLimit));
        std::vector<uint32_t> vecSegIdx;
        for (size_t i = 0; i < q.stResult.usRecNum; i++) {
            vecSegIdx.push_back(q.U32At(i, 0));
        }
        return vecSegIdx;
    }
    uint32_t Count(const Window &stWin)
    {
        Query q = WindowQuery(stWin);
        uint32_t uiCount = 0xFFFFFFFFu;
        EXPECT_EQ(ECM_OK, ECM_CAPI_QueryCount(pObj, UVLAN_QINQ_SEG, &q.stWhere, 6, &uiCount));
        return uiCount;
    }
    /* The probe for one PE/CE point on an interface or above, in one VR. */
    uint32_t Probe(uint32_t uiIf, uint32_t uiVr, uint16_t usPe, uint16_t usCe)
    {
        Query q;
        q.Where32(1, ECM_OP_GE, uiIf).Where32(4, ECM_OP_EQ, uiVr).Where16(7, ECM_OP_LE, usPe);
        q.Where16(8, ECM_OP_GE, usPe).Where16(5, ECM_OP_LE, usCe).Where16(6, ECM_OP_GE, usCe);
        uint32_t uiExist = 0xFFFFFFFFu;
        EXPECT_EQ(ECM_OK, ECM_CAPI_QueryExist(pObj, UVLAN_QINQ_SEG, &q.stWhere, 6, &uiExist));
        return uiExist;
    }
    bool ModelProbe(uint32_t uiIf, uint32_t uiVr, uint16_t usPe, uint16_t usCe) const
    {
        return std::any_of(vecSegs.begin(), vecSegs.end(), [&](const Seg &s) {
            return s.uiIf >= uiIf && s.uiVr == uiVr && s.usPeBgn <= usPe && s.usPeEnd >= usPe &&
                   s.usCeBgn <= usCe && s.usCeEnd >= usCe;
        });
    }
    /* Both paths and the model agree on the window's records, limited and not, and its count. */
    void ExpectSameAnswers(const Window &stWin, uint16_t usLimit)
    {
        std::vector<uint32_t> vecSpatial = Read(stWin, usLimit);
        uint32_t uiSpatialCount = Count(stWin);
        ECM_CTL_SpatialReads(pObj, 0);
        std::vector<uint32_t> vecPlain = Read(stWin, usLimit);
        uint32_t uiPlainCount = Count(stWin);
        ECM_CTL_SpatialReads(pObj, 1);
        std::vector<uint32_t> vecModel = Expected(vecSegs, stWin, usLimit);
        EXPECT_EQ(vecModel, vecSpatial);
        EXPECT_EQ(vecModel, vecPlain);
        EXPECT_EQ(Expected(vecSegs, stWin, SIZE_MAX).size(), uiSpatialCount);
        EXPECT_EQ(uiPlainCount, uiSpatialCount);
    }
    std::vector<Seg> vecSegs;
};

/* ---- Edges (bounds, ties and limits are drawn by the random test below) ---- */

TEST_F(SpatialRead, ExtremeInterfacesAndVlansSurviveTheShiftIntoTheIndex)
{
    Insert({0xFFFFFFFFu, 1, 0, 0, 65535, 0, 65535});
    Insert({0x80000000u, 2, 0, 65535, 65535, 0, 0});
    Insert({0x7FFFFFFFu, 3, 0, 0, 0, 65535, 65535});
    Insert({0, 4, 0, 0, 0, 0, 0});
    ExpectSameAnswers({0xFFFFFFFFu, 65535, 65535, 65535, 65535}, 10);
    ExpectSameAnswers({0x80000000u, 65535, 65535, 0, 0}, 10);
    ExpectSameAnswers({0x7FFFFFFFu, 0, 0, 65535, 65535}, 10);
    ExpectSameAnswers({0, 0, 0, 0, 0}, 10);
    EXPECT_EQ(std::vector<uint32_t>{2}, Read({0x80000000u, 0, 65535, 0, 65535}, 10));
    EXPECT_EQ(1u, Probe(0x80000000u, 0, 65535, 0));
    EXPECT_EQ(1u, Probe(0xFFFFFFFFu, 0, 0, 65535));
    EXPECT_EQ(1u, Probe(0x80000001u, 0, 0, 0));  /* interface 0xFFFFFFFF lies above and covers it */
    EXPECT_EQ(0u, Probe(0x80000001u, 1, 0, 0));  /* but not in another VR */
}

/* A row stored with its ends the wrong way round matches no overlap on the plain table either, but
 * must not be lost or break the index. */
TEST_F(SpatialRead, ReversedRangesAreStoredAndAnsweredLikeThePlainTable)
{
    Insert({5, 1, 0, 20, 10, 5, 5});
    Insert({5, 2, 0, 10, 20, 9, 1});
    for (uint16_t usPe = 8; usPe <= 22; usPe++) {
        ExpectSameAnswers({5, usPe, usPe, 0, 10}, 10);
        ExpectSameAnswers({5, 0, usPe, 5, 5}, 10);
    }
}

/* The index folds an interface's low 30 bits into its coordinates: interfaces that agree in them
 * share coordinates, and the conditions still tell their rows apart. */
TEST_F(SpatialRead, InterfacesThatShareTheIndexsCoordinatesAreToldApart)
{
    for (uint32_t k = 0; k < 4; k++) {
        Insert({5u + (k << 30), k + 1, 0, 10, 20, 10, 20});
    }
    Insert({5u + (1u << 15), 9, 0, 10, 20, 10, 20});
    for (uint32_t k = 0; k < 4; k++) {
        ExpectSameAnswers({5u + (k << 30), 15, 15, 15, 15}, 10);
    }
    ExpectSameAnswers({5u + (1u << 15), 0, 65535, 0, 65535}, 10);
}

/* ---- Writes keep the index in step ---- */

TEST_F(SpatialRead, MovedAndDeletedSegmentsAreFoundOnlyWhereTheyNowAre)
{
    Insert({5, 1, 0, 10, 10, 10, 10});
    Insert({5, 2, 0, 10, 10, 10, 10});
    Writes w;
    w.U32(1, 5).U32(2, 1).U16(7, 30).U16(8, 31);
    ASSERT_EQ(ECM_OK, ECM_CAPI_SetRecord(pObj, UVLAN_QINQ_SEG, w.Data(), w.Num(), 0));
    EXPECT_EQ(std::vector<uint32_t>{2}, Read({5, 10, 10, 10, 10}, 10));
    EXPECT_EQ(std::vector<uint32_t>{1}, Read({5, 31, 40, 0, 10}, 10));
    Writes k;
    k.U32(1, 5).U32(2, 2);
    ASSERT_EQ(ECM_OK, ECM_CAPI_DeleteRecord(pObj, UVLAN_QINQ_SEG, k.Data(), k.Num(), 0));
    EXPECT_TRUE(Read({5, 10, 10, 10, 10}, 10).empty());
    ECM_CTL_VAL_S stIf = {1, 0, 5, nullptr};
    uint64_t ulDeleted = 0;
    ASSERT_EQ(ECM_OK, ECM_CTL_Delete(pObj, UVLAN_QINQ_SEG, &stIf, 1, &ulDeleted));
    EXPECT_TRUE(Read({5, 0, 65535, 0, 65535}, 10).empty());
    EXPECT_EQ(0u, Probe(0, 0, 30, 10));
}

TEST_F(SpatialRead, RandomWindowsAndProbesAgreeWithThePlainTableAndABruteForceFilter)
{
    std::mt19937 rng(1234);
    auto Pick = [&](uint32_t uiMax) { return static_cast<uint16_t>(rng() % (uiMax + 1)); };
    uint32_t uiNextSeg = 1;
    for (int iRound = 0; iRound < 6; iRound++) {
        for (int i = 0; i < 60; i++) {
            uint16_t usPe = Pick(30);
            uint16_t usCe = Pick(30);
            Insert({Pick(2) + 1u, uiNextSeg++, Pick(1), usPe, static_cast<uint16_t>(usPe + Pick(4)), usCe,
                    static_cast<uint16_t>(usCe + Pick(4))});
        }
        for (int i = 0; i < 15 && !vecSegs.empty(); i++) {  /* deletes leave holes in the rowids */
            size_t ulAt = rng() % vecSegs.size();
            Writes k;
            k.U32(1, vecSegs[ulAt].uiIf).U32(2, vecSegs[ulAt].uiSeg);
            ASSERT_EQ(ECM_OK, ECM_CAPI_DeleteRecord(pObj, UVLAN_QINQ_SEG, k.Data(), k.Num(), 0));
            vecSegs.erase(vecSegs.begin() + static_cast<long>(ulAt));
        }
        for (int i = 0; i < 25; i++) {
            uint16_t usPe = Pick(36);
            uint16_t usCe = Pick(36);
            ExpectSameAnswers({Pick(3), usPe, static_cast<uint16_t>(usPe + Pick(6)), usCe,
                               static_cast<uint16_t>(usCe + Pick(6))},
                              static_cast<uint16_t>(1 + Pick(12)));
            uint32_t uiIf = Pick(3);
            uint32_t uiVr = Pick(1);
            EXPECT_EQ(ModelProbe(uiIf, uiVr, usPe, usCe) ? 1u : 0u, Probe(uiIf, uiVr, usPe, usCe));
        }
    }
}

/* ---- Files ---- */

TEST(SpatialFile, ReopenedFileAnswersOverlapsForOldAndNewRows)
{
    TempDb stFile("ecm_spatial");
    const char *pcPath = stFile.Path();
    auto Segs = [](void *pObj, uint16_t usPe) {
        Query q;
        q.Where32(1, ECM_OP_EQ, 5).Where16(8, ECM_OP_GE, usPe).Where16(7, ECM_OP_LE, usPe);
        q.Where16(6, ECM_OP_GE, 0).Where16(5, ECM_OP_LE, 100).Select(2).Sort(7).Sort(5);
        EXPECT_EQ(ECM_OK, q.Run(pObj, UVLAN_QINQ_SEG, 4, 10));
        return q.stResult.usRecNum == 1 ? q.U32At(0, 0) : 0u;
    };
    void *pObj = ECM_CTL_Open(pcPath, 0, 0, 0, nullptr, 0);
    ASSERT_NE(nullptr, pObj);
    Put(pObj, UVLAN_QINQ_SEG, {{1, 5}, {2, 1}, {7, 10}, {8, 19}, {5, 1}, {6, 1}});
    ECM_CTL_Close(pObj);
    pObj = ECM_CTL_Open(pcPath, 0, 0, 0, nullptr, 0);
    ASSERT_NE(nullptr, pObj);
    Put(pObj, UVLAN_QINQ_SEG, {{1, 5}, {2, 2}, {7, 20}, {8, 29}, {5, 1}, {6, 1}});
    EXPECT_EQ(1u, Segs(pObj, 19));
    EXPECT_EQ(2u, Segs(pObj, 20));
    ECM_CTL_Close(pObj);
    pObj = ECM_CTL_Open(pcPath, 0, 0, 0, nullptr, 0);
    ASSERT_NE(nullptr, pObj);
    EXPECT_EQ(1u, Segs(pObj, 10));
    EXPECT_EQ(2u, Segs(pObj, 29));
    ECM_CTL_Close(pObj);
}

/* Schema version 1 kept the interface as a dimension of the index of its own, and sorted the
 * user-VLAN walk's Dot1Q page outside any index: a file of it gets both indexes made again, in the
 * present form and with every row, when it is opened. */
TEST(SpatialFile, AVersionOneIndexIsMadeAgainWhenTheFileIsOpened)
{
    TempDb stFile("ecm_spatial_v1");
    void *pObj = ECM_CTL_Open(stFile.Path(), 0, 0, 0, nullptr, 0);
    ASSERT_NE(nullptr, pObj);
    Put(pObj, UVLAN_QINQ_SEG, {{1, 5}, {2, 1}, {7, 10}, {8, 19}, {5, 1}, {6, 1}});
    ECM_CTL_Close(pObj);
    const char *pcBox = "new.rowid, new.f1_ifindex - 2147483648, new.f1_ifindex - 2147483648, "
                        "min(new.f7_pe_begin, new.f8_pe_end) - 2147483648, max(new.f7_pe_begin, new.f8_pe_end) - 2147483648, "
                        "min(new.f5_ce_begin, new.f6_ce_end) - 2147483648, max(new.f5_ce_begin, new.f6_ce_end) - 2147483648";
    std::string strV1 = "DROP TRIGGER UVLAN_QINQ_SEG_rt_ins; DROP TRIGGER UVLAN_QINQ_SEG_rt_upd; DROP TRIGGER UVLAN_QINQ_SEG_rt_del;"
                        "DROP TABLE UVLAN_QINQ_SEG_rt;"
                        "CREATE VIRTUAL TABLE UVLAN_QINQ_SEG_rt USING rtree_i32(id, lo0, hi0, lo1, hi1, lo2, hi2);"
                        "CREATE TRIGGER UVLAN_QINQ_SEG_rt_ins AFTER INSERT ON UVLAN_QINQ_SEG BEGIN INSERT INTO UVLAN_QINQ_SEG_rt VALUES(";
    strV1.append(pcBox).append("); END; CREATE TRIGGER UVLAN_QINQ_SEG_rt_del AFTER DELETE ON UVLAN_QINQ_SEG BEGIN DELETE ");
    strV1.append("FROM UVLAN_QINQ_SEG_rt WHERE id = old.rowid; END; PRAGMA user_version = 1;");
    strV1.append("DROP INDEX UVLAN_DOT1Q_by_4_1_5; CREATE INDEX UVLAN_DOT1Q_by_4_1 ON UVLAN_DOT1Q(f4_vrid, f1_ifindex);");
    sqlite3 *pDb = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(stFile.Path(), &pDb));
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(pDb, strV1.c_str(), nullptr, nullptr, nullptr)) << sqlite3_errmsg(pDb);
    ASSERT_EQ(SQLITE_OK, sqlite3_exec(pDb, "INSERT INTO UVLAN_QINQ_SEG(f1_ifindex, f2_seg_index, f7_pe_begin, f8_pe_end, "
                                           "f5_ce_begin, f6_ce_end, f11_key_name) VALUES(5, 2, 20, 29, 1, 1, x'')",
                                      nullptr, nullptr, nullptr)) << sqlite3_errmsg(pDb);
    sqlite3_close(pDb);
    pObj = ECM_CTL_Open(stFile.Path(), 0, 0, 0, nullptr, 0);
    ASSERT_NE(nullptr, pObj);
    Put(pObj, UVLAN_QINQ_SEG, {{1, 5}, {2, 3}, {7, 30}, {8, 39}, {5, 1}, {6, 1}});
    for (uint32_t uiSeg = 1; uiSeg <= 3; uiSeg++) {
        Query q;
        uint16_t usPe = static_cast<uint16_t>(10 * uiSeg);
        q.Where32(1, ECM_OP_EQ, 5).Where16(8, ECM_OP_GE, usPe).Where16(7, ECM_OP_LE, usPe);
        q.Where16(6, ECM_OP_GE, 1).Where16(5, ECM_OP_LE, 1).Select(2);
        ASSERT_EQ(ECM_OK, q.Run(pObj, UVLAN_QINQ_SEG, 4, 10));
        ASSERT_EQ(1u, q.stResult.usRecNum) << "segment " << uiSeg;
        EXPECT_EQ(uiSeg, q.U32At(0, 0));
    }
    ECM_CTL_Close(pObj);
    ASSERT_EQ(SQLITE_OK, sqlite3_open(stFile.Path(), &pDb));
    sqlite3_stmt *pStmt = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_prepare_v2(pDb, "SELECT * FROM UVLAN_QINQ_SEG_rt", -1, &pStmt, nullptr));
    EXPECT_EQ(5, sqlite3_column_count(pStmt)) << "the index in its present form";
    int iBoxes = 0;
    while (sqlite3_step(pStmt) == SQLITE_ROW) {
        iBoxes++;
    }
    EXPECT_EQ(3, iBoxes);
    sqlite3_finalize(pStmt);
    ASSERT_EQ(SQLITE_OK, sqlite3_prepare_v2(pDb, "SELECT group_concat(name, ' ') FROM (SELECT name FROM sqlite_master "
                                                 "WHERE tbl_name = 'UVLAN_DOT1Q' AND type = 'index' ORDER BY name)",
                                            -1, &pStmt, nullptr));
    ASSERT_EQ(SQLITE_ROW, sqlite3_step(pStmt));
    EXPECT_STREQ("UVLAN_DOT1Q_by_1_4 UVLAN_DOT1Q_by_4_1_5", reinterpret_cast<const char *>(sqlite3_column_text(pStmt, 0)))
        << "the walk's index of user-VLAN Dot1Q ranges in its present form, the old one gone";
    sqlite3_finalize(pStmt);
    sqlite3_close(pDb);
}

}  // namespace
