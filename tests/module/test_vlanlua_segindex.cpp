/* Segment indexes: each allocation takes a fresh number and records one SEG_INDEX row with
 * its VR ID; a failed hand-out leaves 0 and records nothing. */
#include <gtest/gtest.h>

#include "bas/vlanlua_bas_segindex.h"
#include "vlanlua_test_db.h"

namespace {

class SegIndex : public VlanLuaDbTest {
protected:
    VLANLUA_LOG_S stLog{};
    VLANLUA_CTX_S stCtx{};

    void SetUp() override
    {
        VlanLuaDbTest::SetUp();
        stCtx = {&stLog, pObj};
    }
};

}  // namespace

TEST_F(SegIndex, EachAllocationRecordsAFreshIndexWithItsVr)
{
    uint32_t uiFirst = 0, uiSecond = 0;
    ASSERT_EQ(VlanLua_AllocSegIndex(&stCtx, 0x1001, 7, &uiFirst), 0u);
    ASSERT_EQ(VlanLua_AllocSegIndex(&stCtx, 0x1001, 9, &uiSecond), 0u);
    EXPECT_NE(uiFirst, uiSecond);
    Lua("local j = db:journal()\n"
        "assert(#j == 2, 'writes: ' .. #j)\n"
        "for i, want in ipairs({{" + std::to_string(uiFirst) + ", 7}, {" + std::to_string(uiSecond) + ", 9}}) do\n"
        "  local w = j[i]\n"
        "  assert(w.op == 'insert' and w.table == 0x083606CA and w.flag == 0, 'write ' .. i)\n"
        "  assert(w.fields[1] == want[1] and w.fields[2] == want[2], 'index and VR of write ' .. i)\n"
        "end");
}

TEST_F(SegIndex, FailedHandOutGivesZeroAndFailedRecordKeepsTheNumber)
{
    uint32_t uiIndex = 55;
    Lua("db:fail_call(1)");
    EXPECT_EQ(VlanLua_AllocSegIndex(&stCtx, 0, 7, &uiIndex), 1u);
    EXPECT_EQ(uiIndex, 0u);
    Lua("db:fail_call(2)");
    EXPECT_NE(VlanLua_AllocSegIndex(&stCtx, 0, 7, &uiIndex), 0u);
    EXPECT_NE(uiIndex, 0u) << "the handed-out number stays with the caller";
    Lua("assert(#db:journal() == 0 and db:count(0x083606CA) == 0)");
    VLANLUA_CTX_S stNoObj{&stLog, nullptr};
    EXPECT_EQ(VlanLua_AllocSegIndex(&stNoObj, 0, 7, &uiIndex), 1u);
    EXPECT_EQ(VlanLua_AllocSegIndex(&stCtx, 0, 7, nullptr), 1u);
}
