/* A call context for the user-VLAN QinQ tests: a Lua state with a bound cfgdb database, its
 * database object and a message buffer, plus the live-block count of the object's memory. */
#ifndef UVLAN_TEST_ENV_H
#define UVLAN_TEST_ENV_H

#include <cstdint>
#include <cstring>
#include <string>

#include <lua.hpp>
#include <unistd.h>

#include "ecm_capi.h"
#include "mox_ctl.h"
#include "vlanlua_pub.h"

/* Where the build puts the Lua modules: beside the test binary's folder, in lua/. */
inline std::string UvlanLuaDir()
{
    char acPath[4096] = {};
    ssize_t len = readlink("/proc/self/exe", acPath, sizeof(acPath) - 1);
    std::string exe(acPath, len > 0 ? static_cast<size_t>(len) : 0);
    std::string dir = exe.substr(0, exe.rfind('/'));
    return dir.substr(0, dir.rfind('/')) + "/lua";
}

class UvlanEnv {
public:
    UvlanEnv()
    {
        L = luaL_newstate();
        luaL_openlibs(L);
        std::string chunk = "package.cpath = '" + UvlanLuaDir() + "/?.so;' .. package.cpath\n"
                            "local cfgdb = require 'cfgdb'\n"
                            "uvlan_db = cfgdb.open()\n"
                            "uvlan_db:bind()\n";
        bOk = luaL_dostring(L, chunk.c_str()) == LUA_OK;
        if (!bOk) {
            strError = lua_tostring(L, -1);
        }
        std::memset(&stLog, 0, sizeof(stLog));
        stCtx.pstLog = &stLog;
        stCtx.pObj = bOk ? ECM_CAPI_GetObjExt(L) : nullptr;
    }
    ~UvlanEnv()
    {
        (void)luaL_dostring(L, "uvlan_db:close()");
        lua_close(L);
    }
    UvlanEnv(const UvlanEnv &) = delete;
    UvlanEnv &operator=(const UvlanEnv &) = delete;

    uint64_t Live() const
    {
        MOX_STATS_S stStats = {};
        MOX_GetStats(ECM_CAPI_GetSimpleMemHandle(stCtx.pObj), &stStats);
        return stStats.ulLiveBlocks;
    }
    std::string Text() const { return std::string(stLog.acText, stLog.usUsedLen); }

    lua_State *L = nullptr;
    bool bOk = false;
    std::string strError;
    VLANLUA_LOG_S stLog;
    VLANLUA_CTX_S stCtx;
};

#endif
