/* A Lua state with a bound in-memory configuration database, for module tests that need a
 * database object: set-up goes through the cfgdb binding, the module is called from C. */
#ifndef VLANLUA_TEST_DB_H
#define VLANLUA_TEST_DB_H

#include <gtest/gtest.h>

#include <string>

extern "C" {
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
}

#include "ecm_capi.h"
#include "mox_ctl.h"

class VlanLuaDbTest : public ::testing::Test {
protected:
    lua_State *L = nullptr;
    void *pObj = nullptr;

    void SetUp() override
    {
        L = luaL_newstate();
        luaL_openlibs(L);
        Lua("package.cpath = '" VLANLUA_LUA_DIR "/?.so;' .. package.cpath\n"
            "cfgdb = require 'cfgdb'\n"
            "db = cfgdb.open(nil, {vr = 7, lr = 8, cdb = 0})\n"
            "db:bind()");
        pObj = ECM_CAPI_GetObjExt(L);
        ASSERT_NE(pObj, nullptr);
    }

    void TearDown() override
    {
        EXPECT_EQ(Stats().ulLiveBlocks, 0u) << "module memory left live";
        Lua("db:fail_call(0); cfgdb.unbind(); db:close()");
        lua_close(L);
    }

    /* Runs a chunk; a Lua error fails the test with its message. */
    void Lua(const std::string &code)
    {
        if (luaL_dostring(L, code.c_str()) != LUA_OK) {
            ADD_FAILURE() << lua_tostring(L, -1);
            lua_pop(L, 1);
        }
    }

    MOX_STATS_S Stats() const
    {
        MOX_STATS_S st{};
        MOX_GetStats(ECM_CAPI_GetSimpleMemHandle(pObj), &st);
        return st;
    }
};

#endif
