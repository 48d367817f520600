/* Cost of a script call into the module: VLAN_spt_CmdParaCheck("dis", "display") from a Lua
 * loop against its floor, the same steps written on the engine's C API and registered with
 * lua_pushcfunction (clear of the message buffer, count and type checks, both strings read and
 * compared, two results). Prints both per-call times and their ratio (goal <= 1.2); a trivial C
 * function registered through Script_OpenLib is shown beside them. Also the tagged allocator's
 * malloc + free pair, which every record set pays, against libc's. */
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sysdt_lua.h"

#include "mox.h"
#include "mox_ctl.h"
#include "sysdt_spti.h"
#include "vlanlua_pub.h"

namespace {

/* The baseline: the same result shape (0, nil) with no work behind it. */
uint32_t TrivialScriptFunc(void *pState)
{
    SYSDT_SPTI_PushUInt(pState, 0);
    SYSDT_SPTI_PushNil(pState);
    return 2;
}

/* Pushes 1 and the message buffer's text, as the module answers arguments it refuses. */
int FloorReject(lua_State *L, VLANLUA_LOG_S *pstLog, const char *pcMsg)
{
    int iLen = std::snprintf(pstLog->acText, sizeof(pstLog->acText), "\n%s", pcMsg);
    pstLog->usUsedLen = static_cast<uint16_t>(iLen);
    lua_pushinteger(L, 1);
    lua_pushlstring(L, pstLog->acText, pstLog->usUsedLen + 1u);
    return 2;
}

/* The floor of the command-word check: what any implementation over this engine has to do. */
int FloorCmdParaCheck(lua_State *L)
{
    VLANLUA_LOG_S stLog;
    std::memset(&stLog, 0, sizeof(stLog));
    asm volatile("" : : "r"(&stLog) : "memory");   /* the clear stays, as in the module */
    if (lua_gettop(L) != 2) {
        return FloorReject(L, &stLog, "count\n");
    }
    if (lua_type(L, 1) != LUA_TSTRING || lua_type(L, 2) != LUA_TSTRING) {
        return FloorReject(L, &stLog, "not string\n");
    }
    const char *pcWord = lua_tolstring(L, 1, nullptr);
    const char *pcKeyword = lua_tolstring(L, 2, nullptr);
    while (*pcWord != '\0' && *pcWord == *pcKeyword) {
        pcWord++;
        pcKeyword++;
    }
    lua_pushinteger(L, *pcWord == '\0' ? 0 : 1);
    lua_pushnil(L);
    return 2;
}

void Check(lua_State *L, int iRet)
{
    if (iRet != LUA_OK) {
        std::fprintf(stderr, "lua: %s\n", lua_tostring(L, -1));
        std::exit(1);
    }
}

/* Runs `for i = 1, n do f("dis", "display") end` and returns nanoseconds per call. */
double TimeLoop(lua_State *L, const char *pcFunc, long lCalls)
{
    lua_getglobal(L, "run_loop");
    lua_getglobal(L, pcFunc);
    lua_pushinteger(L, lCalls);
    auto start = std::chrono::steady_clock::now();
    Check(L, lua_pcall(L, 2, 0, 0));
    std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
    return elapsed.count() / static_cast<double>(lCalls);
}

/* Nanoseconds per allocate + free pair of 64 bytes, eight blocks live at a time as in a call
 * that holds a record set and its data. */
template <typename AllocFn, typename FreeFn>
double TimePairs(long lPairs, AllocFn fnAlloc, FreeFn fnFree)
{
    constexpr int kLive = 8;
    void *apBlocks[kLive];
    auto start = std::chrono::steady_clock::now();
    for (long i = 0; i < lPairs / kLive; i++) {
        for (void *&p : apBlocks) {
            p = fnAlloc();
        }
        for (void *p : apBlocks) {
            fnFree(p);
        }
    }
    std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
    return elapsed.count() / static_cast<double>(lPairs / kLive * kLive);
}

void CompareAllocator(long lPairs)
{
    void *pHandle = MOX_HandleCreate("bench");
    auto fnMoxAlloc = [pHandle] { return MOX_Malloc_F(pHandle, g_aucMoxMemPt[0], 64, __FILE__, __LINE__); };
    auto fnMoxFree = [](void *p) { MOX_Free_F(p, __FILE__, __LINE__); };
    auto fnLibcAlloc = [] { return std::malloc(64); };
    auto fnLibcFree = [](void *p) { std::free(p); };
    double dMox = 1e30, dLibc = 1e30;
    for (int i = 0; i < 3; i++) {
        double dm = TimePairs(lPairs, fnMoxAlloc, fnMoxFree);
        double dl = TimePairs(lPairs, fnLibcAlloc, fnLibcFree);
        dMox = dm < dMox ? dm : dMox;
        dLibc = dl < dLibc ? dl : dLibc;
    }
    MOX_HandleDestroy(pHandle);
    std::printf("MOX_Malloc_F + MOX_Free_F (64 bytes):   %8.1f ns/pair\n", dMox);
    std::printf("malloc + free (64 bytes):              %8.1f ns/pair\n", dLibc);
}

}  // namespace

int main(int argc, char **argv)
{
    long lCalls = argc > 1 ? std::atol(argv[1]) : 2000000;
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    Check(L, luaL_dostring(L, "package.cpath = '" VLANLUA_LUA_DIR "/?.so;' .. package.cpath\n"
                              "module_func = require('libvlanluaext').VLAN_spt_CmdParaCheck\n"
                              "function run_loop(f, n)\n"
                              "  for _ = 1, n do f('dis', 'display') end\n"
                              "end"));
    const SYSDT_SPT_REG_S astBase[] = {{"Trivial", TrivialScriptFunc}, {nullptr, nullptr}};
    (void)Script_OpenLib(L, "benchbase", astBase);
    lua_pop(L, 1);
    Check(L, luaL_dostring(L, "base_func = benchbase.Trivial"));
    lua_pushcfunction(L, FloorCmdParaCheck);
    lua_setglobal(L, "floor_func");

    const char *const apcFuncs[] = {"module_func", "floor_func", "base_func"};
    double adBest[3] = {1e30, 1e30, 1e30};
    for (const char *pcFunc : apcFuncs) {
        (void)TimeLoop(L, pcFunc, lCalls / 10);          /* warm-up */
    }
    for (int iRound = 0; iRound < 5; iRound++) {          /* best of five, interleaved */
        for (int i = 0; i < 3; i++) {
            double dTime = TimeLoop(L, apcFuncs[i], lCalls);
            adBest[i] = dTime < adBest[i] ? dTime : adBest[i];
        }
    }
    std::printf("engine:                                %s\n", SYSDT_LUA_ENGINE);
    std::printf("calls per loop:                        %ld\n", lCalls);
    std::printf("VLAN_spt_CmdParaCheck(\"dis\",\"display\"): %8.1f ns/call\n", adBest[0]);
    std::printf("floor (same steps on the C API):       %8.1f ns/call\n", adBest[1]);
    std::printf("trivial function through Script_OpenLib: %6.1f ns/call\n", adBest[2]);
    std::printf("ratio module / floor:                  %8.2f  (goal <= 1.20)\n", adBest[0] / adBest[1]);
    lua_close(L);
    CompareAllocator(lCalls);
    return 0;
}
