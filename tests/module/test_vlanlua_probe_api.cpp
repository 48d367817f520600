/* The exported probe operations as another module calls them: argument order, and the
 * refusal when the script state has no database object. */
#include <gtest/gtest.h>

#include "cor/vlanlua_cor_api.h"
#include "vlanlua_test_db.h"

TEST_F(VlanLuaDbTest, ExportedProbesTakeTheirArgumentsInTheirOwnOrder)
{
    Lua("db:insert('IF_INFO', {ifIndex = 0x1001, mainIfIndex = 0x1000})\n"
        "db:insert('L2SUP_CFG', {ifIndex = 11, supMode = 2})\n"
        "db:insert('PWSUP_CFG', {vrId = 7, ifIndex = 20, supMode = 2})");
    uint32_t uiMain = 77, uiL2 = 77, uiPw = 77;
    EXPECT_EQ(VLAN_API_GetMainIfBySubIf(&uiMain, 0x1001, L), 0u);
    EXPECT_EQ(VLAN_API_CheckL2SuppExist(11, &uiL2, L), 0u);
    EXPECT_EQ(VLAN_API_CheckPwSuppExist(20, &uiPw, L), 0u);
    EXPECT_EQ(uiMain, 0x1000u);
    EXPECT_EQ(uiL2, 1u);
    EXPECT_EQ(uiPw, 1u);
    EXPECT_EQ(VLAN_API_GetMainIfBySubIf(&uiMain, 0x1002, L), 0u);
    EXPECT_EQ(uiMain, 0u) << "a sub-interface without a record has main interface 0";
}

TEST(ExportedProbesWithoutDatabase, RefuseAndLeaveTheOutValue)
{
    lua_State *L = luaL_newstate();             /* no database object was ever bound to it */
    uint32_t uiMain = 77, uiL2 = 78, uiPw = 79;
    EXPECT_EQ(VLAN_API_GetMainIfBySubIf(&uiMain, 0x1001, L), 1u);
    EXPECT_EQ(VLAN_API_CheckL2SuppExist(11, &uiL2, L), 1u);
    EXPECT_EQ(VLAN_API_CheckPwSuppExist(20, &uiPw, L), 1u);
    EXPECT_EQ(uiMain, 77u);
    EXPECT_EQ(uiL2, 78u);
    EXPECT_EQ(uiPw, 79u);
    lua_close(L);
}
