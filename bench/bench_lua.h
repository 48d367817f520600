/* Runs a chunk of Lua text in a benchmark's state; a failure is printed and answers false. */
#ifndef BENCH_LUA_H
#define BENCH_LUA_H

#include <cstdio>
#include <string>

#include "sysdt_lua.h"

inline bool Lua(lua_State *L, const std::string &strChunk)
{
    if (luaL_dostring(L, strChunk.c_str()) != LUA_OK) {
        std::fprintf(stderr, "lua: %s\n", lua_tostring(L, -1));
        lua_pop(L, 1);
        return false;
    }
    return true;
}

#endif
