/* Writes of the configuration database: records found by their key in any field order, fields
 * left out stored as 0, every refused write leaving the table as it was, and index numbers. */
#include "test_ecm_util.h"

using namespace ecmtest;

namespace {

/* ---- Insert, set and delete by key ---- */

class WriteByKey : public EcmTest {};

TEST_F(WriteByKey, InsertStoresListedFieldsAndZeroesTheOthers)
{
    Writes stW;
    stW.U32(3, 9).U32(2, 100).U16(4, 10).Vr(7, 3);
    ASSERT_EQ(0u, ECM_CAPI_InsertRecord(pObj, DOT1Q_MATCH_SEG, stW.Data(), stW.Num(), 1));
    std::vector<Row> vecRows = Rows(pObj, DOT1Q_MATCH_SEG);
    ASSERT_EQ(1u, vecRows.size());
    EXPECT_EQ((Row{{1, Num(0)}, {2, Num(100)}, {3, Num(9)}, {4, Num(10)}, {5, Num(0)}, {6, Num(0)}, {7, Num(3)},
                   {8, Num(0)}, {9, Num(0)}, {10, Num(0)}}),
              vecRows[0]);
}

TEST_F(WriteByKey, SetChangesOnlyTheListedFieldsOfTheKeyedRecordWhateverTheKeyOrder)
{
    Put(pObj, QINQ_IF_SPEC, {{1, 3}, {2, 100}, {3, 5}});
    Put(pObj, QINQ_IF_SPEC, {{1, 3}, {2, 101}, {3, 6}});
    Put(pObj, QINQ_IF_SPEC, {{1, 4}, {2, 100}, {3, 7}});
    Writes stW;
    stW.U32(3, 42).U32(2, 100).Vr(1, 3);  /* the counter first, then the key back to front */
    ASSERT_EQ(0u, ECM_CAPI_SetRecord(pObj, QINQ_IF_SPEC, stW.Data(), stW.Num(), 0));
    std::vector<Row> vecRows = Rows(pObj, QINQ_IF_SPEC);
    ASSERT_EQ(3u, vecRows.size());
    EXPECT_EQ(Num(42), vecRows[0][3]);
    EXPECT_EQ(Num(6), vecRows[1][3]);
    EXPECT_EQ(Num(7), vecRows[2][3]);
}

TEST_F(WriteByKey, SetLeavesFieldsNotListedAsStored)
{
    std::string strMap(512, '\x5A');
    Writes stIns;
    stIns.U32(1, 8).U32(2, 1).Bytes(ECM_TYPE_BITMAP, 3, 512, strMap).Vr(4, 3);
    ASSERT_EQ(0u, ECM_CAPI_InsertRecord(pObj, CTRL_VID_BITMAP, stIns.Data(), stIns.Num(), 0));
    Writes stSet;
    stSet.U32(1, 8).U32(2, 1).U8(5, 1);
    ASSERT_EQ(0u, ECM_CAPI_SetRecord(pObj, CTRL_VID_BITMAP, stSet.Data(), stSet.Num(), 0));
    Row stRow = Rows(pObj, CTRL_VID_BITMAP).at(0);
    EXPECT_EQ(strMap, stRow[3]);
    EXPECT_EQ(Num(3), stRow[4]);
    EXPECT_EQ(Num(1), stRow[5]);
}

TEST_F(WriteByKey, DeleteRemovesExactlyTheKeyedRecord)
{
    Put(pObj, UVLAN_QINQ_SEG, {{1, 5}, {2, 1}});
    Put(pObj, UVLAN_QINQ_SEG, {{1, 5}, {2, 2}});
    Put(pObj, UVLAN_QINQ_SEG, {{1, 6}, {2, 1}});
    Writes stW;
    stW.U32(2, 1).U32(1, 5);
    ASSERT_EQ(0u, ECM_CAPI_DeleteRecord(pObj, UVLAN_QINQ_SEG, stW.Data(), stW.Num(), 1));
    std::vector<Row> vecRows = Rows(pObj, UVLAN_QINQ_SEG);
    ASSERT_EQ(2u, vecRows.size());
    EXPECT_EQ(Num(2), vecRows[0][2]);
    EXPECT_EQ(Num(6), vecRows[1][1]);
}

/* ---- Refused writes change nothing ---- */

class RefusedWrite : public EcmTest {
protected:
    void SetUp() override
    {
        EcmTest::SetUp();
        Put(pObj, QINQ_IF_SPEC, {{1, 3}, {2, 100}, {3, 5}});
        Put(pObj, IF_INFO, {{2, 1}});
        vecBefore = Rows(pObj, QINQ_IF_SPEC);
    }
    void ExpectUnchanged()
    {
        EXPECT_EQ(vecBefore, Rows(pObj, QINQ_IF_SPEC));
        EXPECT_EQ(0u, ECM_CTL_JournalCount(pObj)) << "a refused write is not journaled";
    }
    std::vector<Row> vecBefore;
};

TEST_F(RefusedWrite, UnknownTableOrField)
{
    Writes stW;
    stW.Vr(1, 3).U32(2, 100).U32(3, 9);
    EXPECT_EQ(ECM_ERR_TABLE, ECM_CAPI_SetRecord(pObj, 0x08361A13, stW.Data(), stW.Num(), 0));
    stW.U32(4, 1);
    EXPECT_EQ(ECM_ERR_FIELD, ECM_CAPI_SetRecord(pObj, QINQ_IF_SPEC, stW.Data(), stW.Num(), 0));
    ExpectUnchanged();
}

TEST_F(RefusedWrite, TypeCodeOrWidthDifferentFromTheSchema)
{
    Writes stType;
    stType.U32(1, 3).U32(2, 100).U32(3, 9);  /* field 1 is a VR ID, type 0x20 */
    EXPECT_EQ(ECM_ERR_TYPE, ECM_CAPI_SetRecord(pObj, QINQ_IF_SPEC, stType.Data(), stType.Num(), 0));
    Writes stWidth;
    stWidth.Vr(1, 3).U32(2, 100).Add(ECM_TYPE_U32, 3, 2, 9);
    EXPECT_EQ(ECM_ERR_TYPE, ECM_CAPI_SetRecord(pObj, QINQ_IF_SPEC, stWidth.Data(), stWidth.Num(), 0));
    ExpectUnchanged();
}

TEST_F(RefusedWrite, MissingKeyFieldOrFieldListedTwice)
{
    Writes stNoKey;
    stNoKey.Vr(1, 3).U32(3, 9);
    EXPECT_EQ(ECM_ERR_KEY, ECM_CAPI_SetRecord(pObj, QINQ_IF_SPEC, stNoKey.Data(), stNoKey.Num(), 0));
    EXPECT_EQ(ECM_ERR_KEY, ECM_CAPI_InsertRecord(pObj, QINQ_IF_SPEC, stNoKey.Data(), stNoKey.Num(), 0));
    EXPECT_EQ(ECM_ERR_KEY, ECM_CAPI_DeleteRecord(pObj, QINQ_IF_SPEC, stNoKey.Data(), 1, 0));
    Writes stTwice;
    stTwice.Vr(1, 3).U32(2, 100).U32(3, 9).U32(3, 10);
    EXPECT_EQ(ECM_ERR_FIELD, ECM_CAPI_SetRecord(pObj, QINQ_IF_SPEC, stTwice.Data(), stTwice.Num(), 0));
    ExpectUnchanged();
}

TEST_F(RefusedWrite, InsertOfAnExistingKey)
{
    Writes stW;
    stW.Vr(1, 3).U32(2, 100).U32(3, 77);
    EXPECT_EQ(ECM_ERR_EXISTS, ECM_CAPI_InsertRecord(pObj, QINQ_IF_SPEC, stW.Data(), stW.Num(), 0));
    ExpectUnchanged();
}

TEST_F(RefusedWrite, SetOrDeleteOfAKeyThatMatchesNothing)
{
    Writes stW;
    stW.Vr(1, 3).U32(2, 101).U32(3, 77);
    EXPECT_EQ(ECM_ERR_NOTFOUND, ECM_CAPI_SetRecord(pObj, QINQ_IF_SPEC, stW.Data(), stW.Num(), 0));
    EXPECT_EQ(ECM_ERR_NOTFOUND, ECM_CAPI_SetRecord(pObj, QINQ_IF_SPEC, stW.Data(), 2, 0)) << "key only";
    EXPECT_EQ(ECM_ERR_NOTFOUND, ECM_CAPI_DeleteRecord(pObj, QINQ_IF_SPEC, stW.Data(), 2, 0));
    ExpectUnchanged();
}

TEST_F(RefusedWrite, DeleteWithANonKeyFieldOrOnATableWithoutKey)
{
    Writes stW;
    stW.Vr(1, 3).U32(2, 100).U32(3, 5);
    EXPECT_EQ(ECM_ERR_FIELD, ECM_CAPI_DeleteRecord(pObj, QINQ_IF_SPEC, stW.Data(), stW.Num(), 0));
    Writes stRead;
    stRead.U32(2, 1);
    EXPECT_EQ(ECM_ERR_KEY, ECM_CAPI_DeleteRecord(pObj, IF_INFO, stRead.Data(), stRead.Num(), 0));
    EXPECT_EQ(1u, Rows(pObj, IF_INFO).size());
    ExpectUnchanged();
}

/* ---- Index numbers ---- */

class IndexNumbers : public EcmTest {};

TEST_F(IndexNumbers, StartAtOneAndNeverRepeat)
{
    uint32_t uiFirst = 0;
    ASSERT_EQ(0u, ECM_CAPI_ApplyIndex(pObj, SEG_INDEX, 1, &uiFirst));
    EXPECT_EQ(1u, uiFirst);
    ASSERT_EQ(0u, ECM_CAPI_ApplyIndex(pObj, SEG_INDEX, 3, &uiFirst));
    EXPECT_EQ(2u, uiFirst) << "three numbers from 2 to 4";
    ASSERT_EQ(0u, ECM_CAPI_ApplyIndex(pObj, SEG_INDEX, 1, &uiFirst));
    EXPECT_EQ(5u, uiFirst);
}

TEST_F(IndexNumbers, SkipNumbersAlreadyStoredAsKeys)
{
    Put(pObj, SEG_INDEX, {{1, 40}, {2, 3}});
    uint32_t uiFirst = 0;
    ASSERT_EQ(0u, ECM_CAPI_ApplyIndex(pObj, SEG_INDEX, 1, &uiFirst));
    EXPECT_EQ(41u, uiFirst);
}

TEST(IndexNumbersOnFile, SurviveCloseAndReopen)
{
    TempDb stFile("ecm_index");
    void *pObj = ECM_CTL_Open(stFile.Path(), 0, 0, 0, nullptr, 0);
    ASSERT_NE(nullptr, pObj);
    uint32_t uiFirst = 0;
    ASSERT_EQ(0u, ECM_CAPI_ApplyIndex(pObj, SEG_INDEX, 2, &uiFirst));
    ECM_CTL_Close(pObj);
    pObj = ECM_CTL_Open(stFile.Path(), 0, 0, 0, nullptr, 0);
    ASSERT_NE(nullptr, pObj);
    ASSERT_EQ(0u, ECM_CAPI_ApplyIndex(pObj, SEG_INDEX, 1, &uiFirst));
    EXPECT_EQ(3u, uiFirst);
    ECM_CTL_Close(pObj);
}

}  // namespace
