/* The Lua C API across the engines the script stack is built for (Lua 5.1, 5.3, 5.4, LuaJIT 2.1):
 * one name for each thing that is spelled differently. Owned by the script stack; the cfgdb binding,
 * benchmarks and test hosts use it instead of asking which engine they are on. */
#ifndef SYSDT_LUA_H
#define SYSDT_LUA_H

#include <lua.hpp>

#include <cmath>
#include <cstddef>

#ifndef LUA_OK
#define LUA_OK 0
#endif

/* The engine's name and version, for reports. */
#ifdef LUA_JITLIBNAME
#include <luajit.h>
#define SYSDT_LUA_ENGINE LUAJIT_VERSION
#else
#define SYSDT_LUA_ENGINE LUA_RELEASE
#endif

/* 1 when the engine has an integer subtype beside its floats (5.3, 5.4); 0 when every number is a
 * double (5.1, LuaJIT). */
#if LUA_VERSION_NUM >= 503
#define SYSDT_LUA_INTEGERS 1
#else
#define SYSDT_LUA_INTEGERS 0
#endif

/* lua_gettable of 5.3: replaces the key on top by the element and answers its type (older
 * engines are asked for it). */
inline int SysdtLua_GetTable(lua_State *L, int iIdx)
{
#if LUA_VERSION_NUM >= 503
    return lua_gettable(L, iIdx);
#else
    lua_gettable(L, iIdx);
    return lua_type(L, -1);
#endif
}

/* Element count of the table (or length of the string) at iIdx, without metamethods. */
inline size_t SysdtLua_RawLen(lua_State *L, int iIdx)
{
#if LUA_VERSION_NUM >= 502
    return lua_rawlen(L, iIdx);
#else
    return lua_objlen(L, iIdx);
#endif
}

/* lua_tointegerx of 5.3: the value at iIdx (a number, or a string that converts to one) as an
 * integer, *piIsNum non-zero only when its value is integral and fits a 64-bit integer. */
inline lua_Integer SysdtLua_ToIntegerX(lua_State *L, int iIdx, int *piIsNum)
{
#if SYSDT_LUA_INTEGERS
    return lua_tointegerx(L, iIdx, piIsNum);
#else
    constexpr lua_Number kTwoPow63 = 9223372036854775808.0;
    lua_Number dValue = lua_isnumber(L, iIdx) ? lua_tonumber(L, iIdx) : 0.5;
    bool bIntegral = dValue >= -kTwoPow63 && dValue < kTwoPow63 && std::floor(dValue) == dValue;
    if (piIsNum != nullptr) {
        *piIsNum = bIntegral ? 1 : 0;
    }
    return bIntegral ? static_cast<lua_Integer>(static_cast<long long>(dValue)) : 0;
#endif
}

/* luaL_checkinteger of 5.3: argument iArg as an integer, or the usual argument error. */
inline lua_Integer SysdtLua_CheckInteger(lua_State *L, int iArg)
{
    int iIsNum = 0;
    lua_Integer llValue = SysdtLua_ToIntegerX(L, iArg, &iIsNum);
    if (iIsNum == 0) {
        luaL_argerror(L, iArg, lua_isnumber(L, iArg) ? "number has no integer representation"
                                                      : lua_pushfstring(L, "number expected, got %s",
                                                                        luaL_typename(L, iArg)));
    }
    return llValue;
}

/* Raises "<tname> expected, got <type>" for argument iArg. */
inline int SysdtLua_TypeError(lua_State *L, int iArg, const char *pcTypeName)
{
    return luaL_argerror(L, iArg, lua_pushfstring(L, "%s expected, got %s", pcTypeName, luaL_typename(L, iArg)));
}

/* A full userdata of ulSize bytes with no user values, pushed. */
inline void *SysdtLua_NewUserdata(lua_State *L, size_t ulSize)
{
#if LUA_VERSION_NUM >= 504
    return lua_newuserdatauv(L, ulSize, 0);
#else
    return lua_newuserdata(L, ulSize);
#endif
}

/* Sets the metatable registered as pcName on the value at the top. */
inline void SysdtLua_SetMetatable(lua_State *L, const char *pcName)
{
    luaL_getmetatable(L, pcName);
    lua_setmetatable(L, -2);
}

/* Stores every function of the null-terminated list into the table at the top. */
inline void SysdtLua_SetFuncs(lua_State *L, const luaL_Reg *pstFuncs)
{
    for (; pstFuncs->name != nullptr; pstFuncs++) {
        lua_pushcfunction(L, pstFuncs->func);
        lua_setfield(L, -2, pstFuncs->name);
    }
}

/* Pushes a new table holding every function of the list. */
inline void SysdtLua_NewLib(lua_State *L, const luaL_Reg *pstFuncs)
{
    int iCount = 0;
    while (pstFuncs[iCount].name != nullptr) {
        iCount++;
    }
    lua_createtable(L, 0, iCount);
    SysdtLua_SetFuncs(L, pstFuncs);
}

/* registry[key] for a light-userdata key (pushes the value), and registry[key] = top (pops it). */
inline void SysdtLua_RegistryGetP(lua_State *L, const void *pKey)
{
#if LUA_VERSION_NUM >= 502
    lua_rawgetp(L, LUA_REGISTRYINDEX, pKey);
#else
    lua_pushlightuserdata(L, const_cast<void *>(pKey));
    lua_rawget(L, LUA_REGISTRYINDEX);
#endif
}

inline void SysdtLua_RegistrySetP(lua_State *L, const void *pKey)
{
#if LUA_VERSION_NUM >= 502
    lua_rawsetp(L, LUA_REGISTRYINDEX, pKey);
#else
    lua_pushlightuserdata(L, const_cast<void *>(pKey));
    lua_insert(L, -2);
    lua_rawset(L, LUA_REGISTRYINDEX);
#endif
}

/* Registry field under which 5.1-style engines keep the main thread, since they have no slot for it. */
#define SYSDT_LUA_MAIN_THREAD_FIELD "sysdt.mainthread"

/* Remembers L as the main thread when it is the main thread (5.1-style engines offer no other way
 * to find it from a coroutine later); a no-op on engines that keep it themselves. */
inline void SysdtLua_NoteMainThread(lua_State *L)
{
#if LUA_VERSION_NUM < 502
    if (lua_pushthread(L) == 1) {
        lua_setfield(L, LUA_REGISTRYINDEX, SYSDT_LUA_MAIN_THREAD_FIELD);
    } else {
        lua_pop(L, 1);
    }
#else
    (void)L;
#endif
}

/* The main thread of L's state: the one thread that lives as long as the state. On 5.1-style engines
 * it is the thread noted by SysdtLua_NoteMainThread, or L itself when none was noted. */
inline lua_State *SysdtLua_MainThread(lua_State *L)
{
#if LUA_VERSION_NUM >= 502
    lua_rawgeti(L, LUA_REGISTRYINDEX, LUA_RIDX_MAINTHREAD);
#else
    if (lua_pushthread(L) == 1) {
        lua_pop(L, 1);
        return L;
    }
    lua_pop(L, 1);
    lua_getfield(L, LUA_REGISTRYINDEX, SYSDT_LUA_MAIN_THREAD_FIELD);
#endif
    lua_State *pMain = lua_tothread(L, -1);
    lua_pop(L, 1);
    return pMain != nullptr ? pMain : L;
}

/* The name under which the state's script calls the C function running on it, as a function of
 * the ECM_CTL_CALL_NAME_FN kind (pState a lua_State): "lib.VLAN_spt_X(...)" names it
 * VLAN_spt_X, "local f = lib.VLAN_spt_X; f(...)" names it f; "" when the call names none (the
 * engine's "?" for a function found under a computed key). Raises nothing. */
inline void SysdtLua_CallName(void *pState, char *pcName, size_t ulLen)
{
    lua_Debug stAr;
    lua_State *L = static_cast<lua_State *>(pState);
    const char *pcFound = nullptr;
    if (lua_getstack(L, 0, &stAr) != 0 && lua_getinfo(L, "n", &stAr) != 0 && stAr.name != nullptr &&
        !(stAr.name[0] == '?' && stAr.name[1] == '\0')) {
        pcFound = stAr.name;
    }
    size_t i = 0;
    for (; pcFound != nullptr && pcFound[i] != '\0' && i + 1 < ulLen; i++) {
        pcName[i] = pcFound[i];
    }
    if (ulLen != 0) {
        pcName[i] = '\0';
    }
}

#endif
