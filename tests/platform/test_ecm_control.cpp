/* The control side of a database object: binding to a script state, the ids it was opened with,
 * the journal of client writes and injected faults that fire once. */
#include <lauxlib.h>
#include <lua.h>

#include "test_ecm_util.h"

using namespace ecmtest;

namespace {

/* ---- Binding and ids ---- */

class Binding : public EcmTest {};

TEST_F(Binding, BoundObjectIsFoundFromTheStateUntilUnboundOrClosed)
{
    lua_State *L = luaL_newstate();
    EXPECT_EQ(nullptr, ECM_CAPI_GetObjExt(L));
    ECM_CTL_Bind(L, pObj);
    EXPECT_EQ(pObj, ECM_CAPI_GetObjExt(L));
    EXPECT_EQ(0, lua_gettop(L)) << "the look-up leaves the stack as it was";
    ECM_CTL_Unbind(L);
    EXPECT_EQ(nullptr, ECM_CAPI_GetObjExt(L));

    void *pOther = ECM_CTL_Open(nullptr, 0, 0, 0, nullptr, 0);
    ECM_CTL_Bind(L, pOther);
    ECM_CTL_Close(pOther);
    EXPECT_EQ(nullptr, ECM_CAPI_GetObjExt(L)) << "closing the bound object unbinds it";
    lua_close(L);
    EXPECT_EQ(nullptr, ECM_CAPI_GetObjExt(nullptr));
}

TEST_F(Binding, IdsAreThoseTheObjectWasOpenedWith)
{
    uint32_t uiLr = 0;
    uint32_t uiVr = 0;
    uint32_t uiCdb = 0;
    ASSERT_EQ(0u, ECM_CAPI_GetLrVrId(pObj, &uiLr, &uiVr));
    ASSERT_EQ(0u, ECM_CAPI_GetCdbID(pObj, &uiCdb));
    EXPECT_EQ(7u, uiLr);
    EXPECT_EQ(3u, uiVr);
    EXPECT_EQ(11u, uiCdb);
    EXPECT_EQ(ECM_CTL_MemHandle(pObj), ECM_CAPI_GetSimpleMemHandle(pObj));
    EXPECT_NE(nullptr, ECM_CAPI_GetSimpleMemHandle(pObj));
}

/* ---- Journal ---- */

class Journal : public EcmTest {
protected:
    ECM_CTL_JOURNAL_S Entry(uint32_t i)
    {
        ECM_CTL_JOURNAL_S stEntry{};
        EXPECT_EQ(ECM_OK, ECM_CTL_JournalGet(pObj, i, &stEntry));
        return stEntry;
    }
};

TEST_F(Journal, RecordsClientWritesInCallOrderWithTheirFieldsAsListed)
{
    Put(pObj, QINQ_IF_SPEC, {{1, 9}, {2, 9}});  /* set-up is not journaled */
    Writes stIns;
    stIns.U32(2, 100).Vr(1, 3).U32(3, 5);
    Writes stSet;
    stSet.Vr(1, 3).U32(2, 100).U32(3, 6);
    Writes stDel;
    stDel.U32(2, 100).Vr(1, 3);
    ASSERT_EQ(0u, ECM_CAPI_InsertRecord(pObj, QINQ_IF_SPEC, stIns.Data(), stIns.Num(), 0));
    ASSERT_EQ(0u, ECM_CAPI_SetRecord(pObj, QINQ_IF_SPEC, stSet.Data(), stSet.Num(), 1));
    ASSERT_EQ(0u, ECM_CAPI_DeleteRecord(pObj, QINQ_IF_SPEC, stDel.Data(), stDel.Num(), 0));
    ASSERT_EQ(3u, ECM_CTL_JournalCount(pObj));
    ECM_CTL_JOURNAL_S stFirst = Entry(0);
    EXPECT_EQ(ECM_JOURNAL_INSERT, stFirst.uiOp);
    EXPECT_EQ(QINQ_IF_SPEC, stFirst.uiTableId);
    ASSERT_EQ(3u, stFirst.uiFieldNum);
    EXPECT_EQ(2u, stFirst.pstFields[0].uiFieldNo);
    EXPECT_EQ(100u, stFirst.pstFields[0].ulNum);
    EXPECT_EQ(1u, stFirst.pstFields[1].uiFieldNo);
    EXPECT_EQ(ECM_JOURNAL_SET, Entry(1).uiOp);
    EXPECT_EQ(1u, Entry(1).uiFlag);
    EXPECT_EQ(6u, Entry(1).pstFields[2].ulNum);
    EXPECT_EQ(ECM_JOURNAL_DELETE, Entry(2).uiOp);
    EXPECT_EQ(2u, Entry(2).uiFieldNum);
    ECM_CTL_JournalClear(pObj);
    EXPECT_EQ(0u, ECM_CTL_JournalCount(pObj));
}

TEST_F(Journal, TextIsCutAtItsFirstZeroAndBitmapsKeepAllBytes)
{
    std::string strMap(512, '\0');
    strMap[0] = 6;
    strMap[511] = 0x40;
    Writes stMap;
    stMap.U32(1, 1).U32(2, 0).Bytes(ECM_TYPE_BITMAP, 3, 512, strMap);
    Writes stText;
    stText.U32(2, 1).U32(3, 1).Bytes(ECM_TYPE_TEXT, 12, 64, "ab");
    ASSERT_EQ(0u, ECM_CAPI_InsertRecord(pObj, CTRL_VID_BITMAP, stMap.Data(), stMap.Num(), 0));
    ASSERT_EQ(0u, ECM_CAPI_InsertRecord(pObj, QINQ_MATCH_SEG, stText.Data(), stText.Num(), 1));
    ECM_CTL_JOURNAL_S stMapEntry = Entry(0);
    EXPECT_EQ(strMap, std::string(reinterpret_cast<const char *>(stMapEntry.pstFields[2].pucBytes),
                                  stMapEntry.pstFields[2].uiLen));
    ECM_CTL_JOURNAL_S stTextEntry = Entry(1);
    EXPECT_EQ("ab", std::string(reinterpret_cast<const char *>(stTextEntry.pstFields[2].pucBytes),
                                stTextEntry.pstFields[2].uiLen));
}

/* ---- Injected faults ---- */

class Faults : public EcmTest {};

TEST_F(Faults, TheNthClientCallFailsOnceThenTheObjectWorksAgain)
{
    Put(pObj, IF_INFO, {{2, 1}, {12, 9}});
    ECM_CTL_FailCall(pObj, 3);
    uint32_t uiLr = 0;
    uint32_t uiVr = 0;
    uint32_t uiCount = 0;
    Query stQ;
    stQ.Select(12).Where32(2, ECM_OP_EQ, 1);
    EXPECT_EQ(0u, ECM_CAPI_GetLrVrId(pObj, &uiLr, &uiVr));
    EXPECT_EQ(0u, ECM_CAPI_QueryCount(pObj, IF_INFO, &stQ.stWhere, 6, &uiCount));
    EXPECT_EQ(ECM_ERR_INJECTED, stQ.Run(pObj, IF_INFO, 4, 1));
    EXPECT_EQ(1u, stQ.stResult.usRecNum) << "a failed select fills nothing";
    EXPECT_EQ(0u, stQ.Run(pObj, IF_INFO, 4, 1));
    EXPECT_EQ(9u, stQ.U32At(0, 0));
    EXPECT_EQ(0u, ECM_CAPI_QueryCount(pObj, IF_INFO, &stQ.stWhere, 6, &uiCount));
}

TEST_F(Faults, ControlCallsAndMemoryHandleLookupsDoNotCount)
{
    ECM_CTL_FailCall(pObj, 1);
    Put(pObj, IF_INFO, {{2, 1}});
    EXPECT_EQ(1u, Rows(pObj, IF_INFO).size());
    EXPECT_NE(nullptr, ECM_CAPI_GetSimpleMemHandle(pObj));
    uint32_t uiCdb = 0;
    EXPECT_EQ(ECM_ERR_INJECTED, ECM_CAPI_GetCdbID(pObj, &uiCdb));
    EXPECT_EQ(0u, uiCdb);
}

TEST_F(Faults, AFailedWriteChangesNothingAndIsNotJournaled)
{
    Writes stW;
    stW.Vr(1, 3).U32(2, 100).U32(3, 5);
    ECM_CTL_FailCall(pObj, 1);
    EXPECT_EQ(ECM_ERR_INJECTED, ECM_CAPI_InsertRecord(pObj, QINQ_IF_SPEC, stW.Data(), stW.Num(), 0));
    EXPECT_TRUE(Rows(pObj, QINQ_IF_SPEC).empty());
    EXPECT_EQ(0u, ECM_CTL_JournalCount(pObj));
    uint32_t uiIndex = 0;
    ECM_CTL_FailCall(pObj, 1);
    EXPECT_EQ(ECM_ERR_INJECTED, ECM_CAPI_ApplyIndex(pObj, SEG_INDEX, 1, &uiIndex));
    ASSERT_EQ(0u, ECM_CAPI_ApplyIndex(pObj, SEG_INDEX, 1, &uiIndex));
    EXPECT_EQ(1u, uiIndex) << "a failed hand-out uses up no number";
}

}  // namespace
