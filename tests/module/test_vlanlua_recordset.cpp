/* The record set: the exact bytes of the blocks it hands to the database and the packing of
 * the selected fields, and that neither a read nor a write runs with fewer conditions or fields
 * than its code names. Its failure paths are swept through every script function. */
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "bas/vlanlua_bas_query.h"
#include "vlanlua_db.h"
#include "vlanlua_test_db.h"

namespace {

constexpr uint32_t kIfInfo = VLANLUA_TBL_IF_INFO;

class RecordSet : public VlanLuaDbTest {
protected:
    VLANLUA_RECORDSET_S *pstRs = nullptr;

    void SetUp() override
    {
        VlanLuaDbTest::SetUp();
        Lua("db:insert('IF_INFO', {ifIndex = 0xBBAA, vrId = 5, mainIfIndex = 0x11223344})");
        pstRs = VLANLUA_RecordSet_New(pObj, kIfInfo);
        ASSERT_NE(pstRs, nullptr);
    }
    void TearDown() override
    {
        VLANLUA_RecordSet_Delete(pstRs);
        VlanLuaDbTest::TearDown();
    }
};

std::vector<uint8_t> Bytes(const void *p, size_t ulLen)
{
    const auto *puc = static_cast<const uint8_t *>(p);
    return std::vector<uint8_t>(puc, puc + ulLen);
}

}  // namespace

TEST_F(RecordSet, WorkedExampleConditionAndSelectionBytes)
{
    uint32_t uiValue = 0x105;
    VLANLUA_RecordSet_SelectField(pstRs, 12, 4);
    ASSERT_EQ(VLANLUA_RecordSet_Where(pstRs, 0, 2, &uiValue, 4), 0u);
    std::vector<uint8_t> want = {1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0};  /* counts little-endian */
    want.resize(4 + 264, 0);
    KEL_PutNum(&want[12], 4, 0x105);                                  /* the value as the machine holds it */
    EXPECT_EQ(Bytes(pstRs->pstWhere, want.size()), want);
    std::vector<uint8_t> wantSel(sizeof(ECM_SELECT_S), 0);
    wantSel[0] = 1;
    wantSel[4] = 12;
    EXPECT_EQ(Bytes(pstRs->pstSelect, wantSel.size()), wantSel);
    EXPECT_EQ(pstRs->stResult.usRecLen, 4);
}

TEST_F(RecordSet, OversizedValueIsRefusedWithoutCounting)
{
    uint8_t aucBig[300] = {0x77};
    EXPECT_NE(VLANLUA_RecordSet_Where(pstRs, 0, 2, aucBig, sizeof(aucBig)), 0u);
    EXPECT_EQ(pstRs->stWhere.usCondNum, 0);
    uint32_t uiValue = 9;                   /* the next condition takes the first place */
    EXPECT_EQ(VLANLUA_RecordSet_Where(pstRs, 1, 3, &uiValue, 4), 0u);
    EXPECT_EQ(pstRs->stWhere.usCondNum, 1);
    EXPECT_EQ(Bytes(&pstRs->stWhere.astCond[0], 8), (std::vector<uint8_t>{3, 0, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(KEL_GetNum(pstRs->stWhere.astCond[0].aucValue, 4), 9u);
}

TEST_F(RecordSet, SelectedFieldsArePackedInSelectionOrderAndWidth)
{
    VLANLUA_RecordSet_SelectField(pstRs, 12, 4);
    VLANLUA_RecordSet_SelectField(pstRs, 2, 2);
    uint64_t ulBytesBefore = Stats().ulLiveBytes;
    ASSERT_EQ(VLANLUA_RecordSet_QueryFld(pstRs, 1), 0u);
    EXPECT_EQ(Stats().ulLiveBytes - ulBytesBefore, 6u) << "buffer of record length x count";
    EXPECT_EQ(pstRs->stResult.usRecLen, 6);
    EXPECT_EQ(VLANLUA_RecordSet_GetRecordNum(pstRs), 1);
    EXPECT_EQ(VLANLUA_RecordSet_GetDataNum(pstRs), 6u);
    EXPECT_EQ(KEL_GetNum(VLANLUA_RecordSet_GetDataBuff(pstRs), 4), 0x11223344u);
    EXPECT_EQ(KEL_GetNum(VLANLUA_RecordSet_GetDataBuff(pstRs) + 4, 2), 0xBBAAu) << "the u32 field asked as a u16";
}

/* Conditions are typed by their fields, so the one way left to lose one is a full condition block;
 * a delete list that overflows is the same for writes. Either must fail without asking the
 * database: an armed call fault would otherwise answer 0x10B instead of 1. */
TEST_F(RecordSet, AConditionOrFieldThatCannotBeAddedFailsWithoutAskingTheDatabase)
{
    using IfInfo = VlanLuaTbl::IF_INFO;
    VlanLuaQuery<IfInfo> query(pObj);
    query.Select<IfInfo::mainIfIndex>();
    for (uint32_t i = 0; i <= ECM_COND_MAX; i++) {
        query.Where<IfInfo::ifIndex>(VLANLUA_OP_NE, i);
    }
    Lua("db:fail_call(1)");
    uint32_t uiCount = 7;
    EXPECT_EQ(query.Query(1), 1u);
    EXPECT_EQ(query.Count(&uiCount), 1u);
    EXPECT_EQ(query.Exist(&uiCount), 1u);
    EXPECT_EQ(uiCount, 7u);

    using Seg = VlanLuaTbl::QINQ_IF_SPEC;
    Lua("db:fail_call(0); db:insert('QINQ_IF_SPEC', {vrId = 7, mainIfIndex = 9, qinqNum = 3})");
    uint32_t uiVrId = 7;
    uint32_t uiMainIf = 9;
    VlanLuaWriteList<Seg, 2> list;
    list.Add<Seg::vrId>(&uiVrId);
    list.Add<Seg::mainIfIndex>(&uiMainIf);
    list.Add<Seg::qinqNum>(&uiMainIf);
    Lua("db:fail_call(1)");
    EXPECT_EQ(list.Delete(pObj, 0), 1u);
    Lua("db:fail_call(0); assert(db:count('QINQ_IF_SPEC') == 1, 'the record stays')");
}
