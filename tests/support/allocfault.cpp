/* Lua module "allocfault" for the script-level tests: runs a function with the engine's allocator
 * failing from the n-th allocation it is asked for on, as a machine out of memory does. Loading it
 * puts a counting allocator in front of the engine's own; it passes everything through while
 * nothing is armed. Uses only Lua C API functions that every engine has. */
#include "sysdt_lua.h"

namespace {

struct FaultingAlloc {
    lua_Alloc pfInner = nullptr;
    void *pInnerUd = nullptr;
    bool bArmed = false;
    long lFailFrom = 0;     /* the first allocation to fail, counted from arming */
    long lSeen = 0;         /* allocations asked for since arming */
};

/* One state per process in the tests; it lives as long as the process, so the state can close. */
FaultingAlloc g_stAlloc;

void *Allocate(void *pUd, void *pBlock, size_t ulOld, size_t ulNew)
{
    auto *pstAlloc = static_cast<FaultingAlloc *>(pUd);
    bool bTakes = ulNew > 0 && (pBlock == nullptr || ulNew > ulOld);
    if (pstAlloc->bArmed && bTakes && ++pstAlloc->lSeen >= pstAlloc->lFailFrom) {
        return nullptr;
    }
    return pstAlloc->pfInner(pstAlloc->pInnerUd, pBlock, ulOld, ulNew);
}

/* call(n, f, ...) -> allocations asked for, then true and f's results, or false and its error. */
int Call(lua_State *L)
{
    long lFailFrom = static_cast<long>(SysdtLua_CheckInteger(L, 1));
    luaL_checktype(L, 2, LUA_TFUNCTION);
    int iArgs = lua_gettop(L) - 2;
    g_stAlloc.lSeen = 0;
    g_stAlloc.lFailFrom = lFailFrom;
    g_stAlloc.bArmed = true;
    int iStatus = lua_pcall(L, iArgs, LUA_MULTRET, 0);
    g_stAlloc.bArmed = false;
    luaL_checkstack(L, 2, "allocfault");
    lua_pushinteger(L, g_stAlloc.lSeen);
    lua_replace(L, 1);
    lua_pushboolean(L, iStatus == LUA_OK);
    lua_insert(L, 2);
    return lua_gettop(L);
}

const luaL_Reg g_astFuncs[] = {{"call", Call}, {nullptr, nullptr}};

}  // namespace

extern "C" int luaopen_allocfault(lua_State *L)
{
    if (g_stAlloc.pfInner == nullptr) {
        g_stAlloc.pfInner = lua_getallocf(L, &g_stAlloc.pInnerUd);
        lua_setallocf(L, Allocate, &g_stAlloc);
    }
    SysdtLua_NewLib(L, g_astFuncs);
    return 1;
}
