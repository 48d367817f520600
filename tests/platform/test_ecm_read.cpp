/* Reads of the configuration database: the block layouts byte by byte, every operator against a
 * brute-force filter, width conversion of selected fields, sort order and record limits. */
#include <algorithm>
#include <random>

#include "test_ecm_util.h"

using namespace ecmtest;

namespace {

std::vector<uint8_t> Hex(std::initializer_list<int> lstBytes)
{
    return std::vector<uint8_t>(lstBytes.begin(), lstBytes.end());
}

/* ---- The blocks as raw bytes ---- */

class BlockLayout : public EcmTest {};

/* The blocks' counts are little-endian on every machine; the condition's value and the records are
 * in the machine's order. */
TEST_F(BlockLayout, ConditionBlockBytesSelectOnlyTheRecordWithFieldTwoEqualTo0x105)
{
    Put(pObj, IF_INFO, {{2, 0x105}, {12, 1}});
    Put(pObj, IF_INFO, {{2, 0x501}, {12, 2}});     /* the low two bytes swapped */
    Put(pObj, IF_INFO, {{2, 0x5010000}, {12, 3}}); /* the value in the other byte order */
    std::vector<uint8_t> vecWhere(sizeof(ECM_COND_BLOCK_S), 0);
    std::vector<uint8_t> vecHead = Hex({0x01, 0, 0, 0, 0x02, 0, 0, 0, 0, 0, 0, 0});
    std::copy(vecHead.begin(), vecHead.end(), vecWhere.begin());
    KEL_PutNum(&vecWhere[12], 4, 0x105);
    std::vector<uint8_t> vecSelect(sizeof(ECM_SELECT_S), 0);
    std::vector<uint8_t> vecSelHead = Hex({0x01, 0, 0, 0, 0x0C});
    std::copy(vecSelHead.begin(), vecSelHead.end(), vecSelect.begin());
    uint8_t aucData[8] = {0};
    uint8_t *pucData = aucData;
    std::vector<uint8_t> vecResult = Hex({4, 0, 2, 0, 8, 0, 0, 0, 8, 0, 0, 0});
    vecResult.resize(sizeof(ECM_RESULT_S), 0);
    memcpy(&vecResult[12], &pucData, sizeof(pucData));
    std::vector<uint8_t> vecSort(sizeof(ECM_SORT_S), 0);

    ECM_COND_BLOCK_S stWhere;
    ECM_SELECT_S stSelect;
    ECM_RESULT_S stResult;
    ECM_SORT_S stSort;
    memcpy(&stWhere, vecWhere.data(), sizeof(stWhere));
    memcpy(&stSelect, vecSelect.data(), sizeof(stSelect));
    memcpy(&stResult, vecResult.data(), sizeof(stResult));
    memcpy(&stSort, vecSort.data(), sizeof(stSort));
    ASSERT_EQ(0u, ECM_CAPI_TPC_SelectAllRecByOrder(pObj, 11, IF_INFO, &stSort, &stWhere, &stSelect, &stResult));

    memcpy(vecResult.data(), &stResult, sizeof(stResult));
    EXPECT_EQ(Hex({4, 0, 1, 0, 8, 0, 0, 0, 4, 0, 0, 0}),
              std::vector<uint8_t>(vecResult.begin(), vecResult.begin() + 12));
    EXPECT_EQ(1u, KEL_GetNum(aucData, 4));
    EXPECT_EQ(0u, KEL_GetNum(aucData + 4, 4));
}

/* ---- Operators against a brute-force filter ---- */

struct Port {
    uint32_t uiIf;
    uint16_t usPvid;
    uint8_t ucNeg;
    uint32_t uiVr;
};

bool Holds(uint64_t ulStored, uint32_t uiOp, uint64_t ulGiven)
{
    return uiOp == ECM_OP_EQ ? ulStored == ulGiven
         : uiOp == ECM_OP_NE ? ulStored != ulGiven
         : uiOp == ECM_OP_LE ? ulStored <= ulGiven
                             : ulStored >= ulGiven;
}

class Operators : public EcmTest {
protected:
    void SetUp() override
    {
        EcmTest::SetUp();
        std::mt19937 stRng(4094);
        for (uint32_t i = 0; i < 200; i++) {
            Port stPort{i + 1, static_cast<uint16_t>(stRng() % 8 == 0 ? 0xFFFF : stRng() % 4096),
                        static_cast<uint8_t>(stRng() % 3 == 0 ? 0 : stRng() % 256),
                        stRng() % 2 == 0 ? 0x80000001u : 5u};
            vecPorts.push_back(stPort);
            Put(pObj, L2_PORT, {{1, stPort.uiIf}, {2, stPort.usPvid}, {6, stPort.uiVr}, {12, stPort.ucNeg}});
        }
    }
    /* Interface indexes the database answers for one condition, in insertion order. */
    std::vector<uint32_t> Ask(Query &stQ)
    {
        stQ.Select(1);
        EXPECT_EQ(0u, stQ.Run(pObj, L2_PORT, 4, 1000));
        std::vector<uint32_t> vecIfs;
        for (uint32_t i = 0; i < stQ.stResult.usRecNum; i++) {
            vecIfs.push_back(stQ.U32At(i, 0));
        }
        return vecIfs;
    }
    template <typename Pred>
    std::vector<uint32_t> Model(Pred fnPred)
    {
        std::vector<uint32_t> vecIfs;
        for (const Port &stPort : vecPorts) {
            if (fnPred(stPort)) {
                vecIfs.push_back(stPort.uiIf);
            }
        }
        return vecIfs;
    }
    std::vector<Port> vecPorts;
};

TEST_F(Operators, EachOperatorOnU16AndU8FieldsMatchesTheModel)
{
    for (uint32_t uiOp : {ECM_OP_EQ, ECM_OP_NE, ECM_OP_LE, ECM_OP_GE}) {
        for (uint16_t usGiven : {0, 1, 100, 2047, 4094, 0xFFFF}) {
            Query stQ;
            stQ.Where16(2, uiOp, usGiven);
            EXPECT_EQ(Model([&](const Port &p) { return Holds(p.usPvid, uiOp, usGiven); }), Ask(stQ))
                << "op " << uiOp << " value " << usGiven;
        }
        for (uint8_t ucGiven : {0, 1, 255}) {
            Query stQ;
            stQ.Where8(12, uiOp, ucGiven);
            EXPECT_EQ(Model([&](const Port &p) { return Holds(p.ucNeg, uiOp, ucGiven); }), Ask(stQ))
                << "op " << uiOp << " u8 value " << unsigned{ucGiven};
        }
    }
}

TEST_F(Operators, U32ComparisonIsUnsignedAboveTheSignBit)
{
    Query stQ;
    stQ.Where32(6, ECM_OP_GE, 0x80000000u);
    EXPECT_EQ(Model([](const Port &p) { return p.uiVr >= 0x80000000u; }), Ask(stQ));
    Query stLe;
    stLe.Where32(6, ECM_OP_LE, 0x7FFFFFFFu);
    EXPECT_EQ(Model([](const Port &p) { return p.uiVr <= 0x7FFFFFFFu; }), Ask(stLe));
}

TEST_F(Operators, ConditionsCombineAsConjunctionAndFeedExistAndCount)
{
    Query stQ;
    stQ.Where16(2, ECM_OP_LE, 3000).Where16(2, ECM_OP_GE, 1000).Where32(6, ECM_OP_EQ, 5);
    std::vector<uint32_t> vecExpected =
        Model([](const Port &p) { return p.usPvid <= 3000 && p.usPvid >= 1000 && p.uiVr == 5; });
    uint32_t uiCount = 99;
    uint32_t uiExist = 99;
    ASSERT_EQ(0u, ECM_CAPI_QueryCount(pObj, L2_PORT, &stQ.stWhere, 6, &uiCount));
    ASSERT_EQ(0u, ECM_CAPI_QueryExist(pObj, L2_PORT, &stQ.stWhere, 6, &uiExist));
    EXPECT_EQ(vecExpected.size(), uiCount);
    EXPECT_EQ(vecExpected.empty() ? 0u : 1u, uiExist);
    EXPECT_EQ(vecExpected, Ask(stQ));

    Query stNone;
    stNone.Where16(2, ECM_OP_EQ, 5000);
    ASSERT_EQ(0u, ECM_CAPI_QueryExist(pObj, L2_PORT, &stNone.stWhere, 6, &uiExist));
    ASSERT_EQ(0u, ECM_CAPI_QueryCount(pObj, L2_PORT, &stNone.stWhere, 6, &uiCount));
    EXPECT_EQ(0u, uiExist);
    EXPECT_EQ(0u, uiCount);
}

TEST_F(Operators, TextConditionsCompareTheBytes)
{
    std::string strA = "key-a";
    std::string strB = "key-b";
    ECM_CTL_VAL_S astA[] = {{2, 0, 1, nullptr}, {3, 0, 1, nullptr},
                            {12, 5, 0, reinterpret_cast<const uint8_t *>(strA.data())}};
    ECM_CTL_VAL_S astB[] = {{2, 0, 1, nullptr}, {3, 0, 2, nullptr},
                            {12, 5, 0, reinterpret_cast<const uint8_t *>(strB.data())}};
    ASSERT_EQ(ECM_OK, ECM_CTL_Insert(pObj, QINQ_MATCH_SEG, astA, 3));
    ASSERT_EQ(ECM_OK, ECM_CTL_Insert(pObj, QINQ_MATCH_SEG, astB, 3));
    char acValue[64] = "key-b";
    const std::vector<std::pair<uint32_t, uint32_t>> vecCases{{ECM_OP_EQ, 2}, {ECM_OP_NE, 1}, {ECM_OP_LE, 0}};
    for (auto [uiOp, uiSeg] : vecCases) {
        Query stQ;
        stQ.Where(12, uiOp, acValue, 64).Select(3).Sort(3);
        ASSERT_EQ(0u, stQ.Run(pObj, QINQ_MATCH_SEG, 4, 4));
        if (uiOp == ECM_OP_LE) {
            EXPECT_EQ(2u, stQ.stResult.usRecNum) << "both sort at or below key-b";
        } else {
            ASSERT_EQ(1u, stQ.stResult.usRecNum);
            EXPECT_EQ(uiSeg, stQ.U32At(0, 0));
        }
    }
}

TEST_F(Operators, OnlyTheSchemaWidthOfAConditionValueCounts)
{
    uint8_t aucValue[4] = {0, 0, 0xFF, 0xFF};  /* a u16 condition followed by stray bytes */
    uint16_t usPvid = vecPorts[0].usPvid;
    memcpy(aucValue, &usPvid, 2);
    Query stQ;
    stQ.Where(2, ECM_OP_EQ, aucValue, 4);
    EXPECT_EQ(Model([&](const Port &p) { return p.usPvid == usPvid; }), Ask(stQ));
}

/* ---- Width of delivered fields ---- */

class SelectWidth : public EcmTest {};

TEST_F(SelectWidth, U32FieldAskedNarrowerOrWiderComesAsANumberOfThatWidth)
{
    Put(pObj, IF_INFO, {{2, 9}, {12, 0xA1B2C3D4u}});
    Query stCut;
    stCut.Select(12).Where32(2, ECM_OP_EQ, 9);
    ASSERT_EQ(0u, stCut.Run(pObj, IF_INFO, 2, 1));
    EXPECT_EQ(0xC3D4u, KEL_GetNum(stCut.vecBuf.data(), 2));
    EXPECT_EQ(0xEE, stCut.vecBuf[2]);
    Query stWide;
    stWide.Select(12).Where32(2, ECM_OP_EQ, 9);
    ASSERT_EQ(0u, stWide.Run(pObj, IF_INFO, 8, 1));
    EXPECT_EQ(0xA1B2C3D4u, KEL_GetNum(stWide.vecBuf.data(), 8));
}

TEST_F(SelectWidth, FieldsSitAtSchemaWidthsAndOnlyTheLastIsStretched)
{
    Put(pObj, L2_PORT, {{1, 0x01020304}, {2, 0xBEEF}, {12, 0xFE}});
    Query stQ;
    stQ.Select(12).Select(2).Select(1);  /* 1 + 2 bytes, then the u32 stretched to 7 */
    ASSERT_EQ(0u, stQ.Run(pObj, L2_PORT, 10, 1));
    EXPECT_EQ(0xFEu, stQ.vecBuf[0]);
    EXPECT_EQ(0xBEEFu, KEL_GetNum(&stQ.vecBuf[1], 2));
    EXPECT_EQ(0x01020304u, KEL_GetNum(&stQ.vecBuf[3], 7));
}

TEST_F(SelectWidth, BitmapOneByteWiderIsZeroPaddedAndNarrowerIsCut)
{
    std::string strMap(512, '\xFF');
    ECM_CTL_VAL_S astVals[] = {{1, 0, 1, nullptr}, {2, 0, 1, nullptr},
                               {3, 512, 0, reinterpret_cast<const uint8_t *>(strMap.data())}};
    ASSERT_EQ(ECM_OK, ECM_CTL_Insert(pObj, CTRL_VID_BITMAP, astVals, 3));
    Query stWide;
    stWide.Select(3).Where32(1, ECM_OP_EQ, 1).Where32(2, ECM_OP_EQ, 1);
    ASSERT_EQ(0u, stWide.Run(pObj, CTRL_VID_BITMAP, 513, 1));
    EXPECT_EQ(513u, stWide.stResult.uiDataLen);
    EXPECT_EQ(strMap, std::string(stWide.vecBuf.begin(), stWide.vecBuf.begin() + 512));
    EXPECT_EQ(0, stWide.vecBuf[512]);
    Query stNarrow;
    stNarrow.Select(3);
    ASSERT_EQ(0u, stNarrow.Run(pObj, CTRL_VID_BITMAP, 100, 1));
    EXPECT_EQ(std::string(100, '\xFF'), std::string(stNarrow.vecBuf.begin(), stNarrow.vecBuf.begin() + 100));
    EXPECT_EQ(0xEE, stNarrow.vecBuf[100]);
}

/* ---- Order and limits ---- */

class SortAndLimit : public EcmTest {};

TEST_F(SortAndLimit, TwoSortFieldsOrderByFirstThenSecondTiesInInsertionOrder)
{
    struct Seg { uint32_t uiIndex; uint16_t usPe; uint16_t usCe; };
    std::vector<Seg> vecSegs;
    std::mt19937 stRng(7);
    for (uint32_t i = 0; i < 120; i++) {
        Seg stSeg{1000 - i * 7 % 997, static_cast<uint16_t>(stRng() % 6), static_cast<uint16_t>(stRng() % 4)};
        vecSegs.push_back(stSeg);
        Put(pObj, UVLAN_QINQ_SEG, {{1, 5}, {2, stSeg.uiIndex}, {7, stSeg.usPe}, {5, stSeg.usCe}});
    }
    std::stable_sort(vecSegs.begin(), vecSegs.end(), [](const Seg &a, const Seg &b) {
        return a.usPe != b.usPe ? a.usPe < b.usPe : a.usCe < b.usCe;
    });
    Query stQ;
    stQ.Select(2).Select(7).Select(5).Where32(1, ECM_OP_EQ, 5).Sort(7).Sort(5);
    ASSERT_EQ(0u, stQ.Run(pObj, UVLAN_QINQ_SEG, 8, 200));
    ASSERT_EQ(vecSegs.size(), stQ.stResult.usRecNum);
    for (size_t i = 0; i < vecSegs.size(); i++) {
        EXPECT_EQ(vecSegs[i].uiIndex, stQ.U32At(i, 0)) << "record " << i;
    }
}

TEST_F(SortAndLimit, WithoutSortFieldsRecordsComeInInsertionOrderNotKeyOrder)
{
    for (uint32_t uiIndex : {50u, 3u, 41u, 7u}) {
        Put(pObj, UVLAN_QINQ_SEG, {{1, 5}, {2, uiIndex}});
    }
    Query stQ;
    stQ.Select(2).Where32(1, ECM_OP_EQ, 5);
    ASSERT_EQ(0u, stQ.Run(pObj, UVLAN_QINQ_SEG, 4, 10));
    ASSERT_EQ(4u, stQ.stResult.usRecNum);
    EXPECT_EQ((std::vector<uint32_t>{50, 3, 41, 7}),
              (std::vector<uint32_t>{stQ.U32At(0, 0), stQ.U32At(1, 0), stQ.U32At(2, 0), stQ.U32At(3, 0)}));
}

TEST_F(SortAndLimit, AtMostRecNumRecordsAndNothingPastThem)
{
    for (uint32_t i = 1; i <= 10; i++) {
        Put(pObj, IF_INFO, {{2, i}, {3, 3}});
    }
    Query stQ;
    stQ.Select(2).Where32(3, ECM_OP_EQ, 3);
    ASSERT_EQ(0u, stQ.Run(pObj, IF_INFO, 4, 3));
    EXPECT_EQ(3u, stQ.stResult.usRecNum);
    EXPECT_EQ(12u, stQ.stResult.uiDataLen);
    EXPECT_EQ(0xEE, stQ.vecBuf[12]);
}

TEST_F(SortAndLimit, ABufferSmallerThanTheCountAskedForBoundsTheRecords)
{
    for (uint32_t i = 1; i <= 5; i++) {
        Put(pObj, IF_INFO, {{2, i}});
    }
    Query stQ;
    stQ.Select(2);
    stQ.vecBuf.assign(13, 0xEE);
    stQ.stResult.usRecLen = 4;
    stQ.stResult.usRecNum = 5;
    stQ.stResult.uiBufLen = 8;                          /* room for two records only */
    stQ.stResult.uiDataLen = 8;
    stQ.stResult.pucData = stQ.vecBuf.data();
    ASSERT_EQ(0u, ECM_CAPI_TPC_SelectAllRecByOrder(pObj, 0, IF_INFO, &stQ.stSort, &stQ.stWhere, &stQ.stSelect,
                                                   &stQ.stResult));
    EXPECT_EQ(2u, stQ.stResult.usRecNum);
    EXPECT_EQ(8u, stQ.stResult.uiDataLen);
    EXPECT_EQ(0xEE, stQ.vecBuf[8]);
}

/* ---- Refused reads ---- */

class RefusedRead : public EcmTest {};

TEST_F(RefusedRead, UnknownTableFieldOperatorOrModeFailWithoutFillingTheResult)
{
    Put(pObj, IF_INFO, {{2, 1}});
    Query stTable;
    stTable.Select(2);
    EXPECT_EQ(ECM_ERR_TABLE, stTable.Run(pObj, 0x12345678, 4, 1));
    Query stField;
    stField.Select(5);
    EXPECT_EQ(ECM_ERR_FIELD, stField.Run(pObj, IF_INFO, 4, 1));
    Query stCond;
    stCond.Select(2).Where32(6, ECM_OP_EQ, 1);
    EXPECT_EQ(ECM_ERR_FIELD, stCond.Run(pObj, IF_INFO, 4, 1));
    Query stOp;
    stOp.Select(2).Where32(2, 2, 1);
    EXPECT_EQ(ECM_ERR_OP, stOp.Run(pObj, IF_INFO, 4, 1));
    EXPECT_EQ(1u, stOp.stResult.usRecNum) << "a refused select leaves the descriptor as it was";
    uint32_t uiCount = 0;
    EXPECT_EQ(ECM_ERR_OP, ECM_CAPI_QueryCount(pObj, IF_INFO, &stOp.stWhere, 5, &uiCount));
}

}  // namespace
