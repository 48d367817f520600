/* How the engine calls script functions: library registration, the call of a script function on
 * a frame of its own, and the database object bound to an engine. Uses only the public Lua C API. */
#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <utility>

#include "ecm_unit.h"
#include "sysdt_spti.h"
#include "sysdt_spti_bind.h"
#include "sysdt_spti_frame.h"

namespace {

/* ---- calling script functions ---- */

/* Hands a finished call's deferred results to the engine; answers their count, cut to what the
 * stack holds, or -1 when the call failed (nothing is held any more either way). */
int HandOver(SysdtCallFrame *pstFrame, uint32_t uiResults)
{
    if (!SysdtSpti_Deliver(pstFrame)) {
        return -1;
    }
    int iTop = pstFrame->iTop;
    return uiResults > static_cast<uint32_t>(iTop) ? iTop : static_cast<int>(uiResults);
}

/* Runs a script function on a fresh frame with no unit of work around it. */
[[gnu::always_inline]] inline int RunOnFrame(lua_State *L, SYSDT_SPT_FUNC pfFunc, int iArgs)
{
    SysdtCallFrame stFrame;
    SysdtSpti_InitFrame(&stFrame, L, iArgs, iArgs + LUA_MINSTACK);
    uint32_t uiResults = pfFunc(SysdtSpti_FrameHandle(&stFrame));
    if (SysdtSpti_SimpleResults(&stFrame)) {
        SysdtSpti_PushSimple(&stFrame);
        return uiResults > static_cast<uint32_t>(stFrame.iTop) ? stFrame.iTop : static_cast<int>(uiResults);
    }
    int iResults = HandOver(&stFrame, uiResults);
    if (iResults < 0) {
        SysdtSpti_RaiseFailure(&stFrame);
    }
    return iResults;
}

[[noreturn]] void RaiseCallFailure(lua_State *L, const char *pcWhy)
{
    lua_pushstring(L, pcWhy);
    lua_error(L);
    __builtin_unreachable();
}

/* Runs a script function as one unit of work on the database: the database learns where the call
 * begins and ends. A call whose unit lost the race for the write lock runs once more on its own
 * arguments. A call whose results cannot be handed over (the engine is out of memory, a metamethod
 * raised) is rolled back whole before the error is raised; so is one whose commit fails. */
[[gnu::noinline]] int RunInUnit(lua_State *L, SYSDT_SPT_FUNC pfFunc, int iArgs)
{
    for (;;) {
        Ecm_CallEnter(L, SysdtSpti_InProtectedStep());
        SysdtCallFrame stFrame;
        SysdtSpti_InitFrame(&stFrame, L, iArgs, iArgs + LUA_MINSTACK);
        uint32_t uiResults = pfFunc(SysdtSpti_FrameHandle(&stFrame));
        if (!stFrame.bFailed && Ecm_CallLostRace()) {
            SysdtSpti_Drop(&stFrame, iArgs);            /* the void run's results go */
            continue;
        }
        int iResults = HandOver(&stFrame, uiResults);
        const char *pcWhy = nullptr;
        bool bCommitted = Ecm_CallLeave(iResults >= 0, &pcWhy);
        if (iResults < 0) {
            SysdtSpti_RaiseFailure(&stFrame);
        }
        if (!bCommitted) {
            RaiseCallFailure(L, pcWhy);
        }
        return iResults;
    }
}

/* While no database object takes part in units, a call costs one load more than the function. */
inline int RunScriptFunction(lua_State *L, SYSDT_SPT_FUNC pfFunc)
{
    int iArgs = lua_gettop(L);
    if (g_uiEcmOpenCallUnits.load(std::memory_order_relaxed) == 0) {
        return RunOnFrame(L, pfFunc, iArgs);
    }
    return RunInUnit(L, pfFunc, iArgs);
}

/* A script function the engine calls directly: entry N runs the function of slot N. Slots are
 * taken at registration, one per distinct function over the process, and never given back; the
 * engine then calls a plain C function, as for any function a library registers, with no
 * upvalue to look up. When every slot is taken, a function is registered as a closure instead. */
constexpr int kDirectSlots = 64;
std::atomic<SYSDT_SPT_FUNC> g_apfDirect[kDirectSlots];
std::mutex g_mtxDirect;

template <int N>
int CallDirect(lua_State *L)
{
    return RunScriptFunction(L, g_apfDirect[N].load(std::memory_order_acquire));
}

template <int... N>
constexpr std::array<lua_CFunction, sizeof...(N)> DirectEntries(std::integer_sequence<int, N...>)
{
    return {CallDirect<N>...};
}

constexpr std::array<lua_CFunction, kDirectSlots> g_apfnDirectEntries =
    DirectEntries(std::make_integer_sequence<int, kDirectSlots>{});

/* The direct entry of pfFunc: the slot that already holds it, else a free one; null when full. */
lua_CFunction DirectEntryOf(SYSDT_SPT_FUNC pfFunc)
{
    std::lock_guard<std::mutex> lock(g_mtxDirect);
    for (int i = 0; i < kDirectSlots; i++) {
        SYSDT_SPT_FUNC pfSlot = g_apfDirect[i].load(std::memory_order_relaxed);
        if (pfSlot == nullptr) {
            g_apfDirect[i].store(pfFunc, std::memory_order_release);
            return g_apfnDirectEntries[i];
        }
        if (pfSlot == pfFunc) {
            return g_apfnDirectEntries[i];
        }
    }
    return nullptr;
}

/* Calls the script function stored as the closure's upvalue. */
int CallClosure(lua_State *L)
{
    SYSDT_SPT_FUNC pfFunc;
    void *pRaw = lua_touserdata(L, lua_upvalueindex(1));
    std::memcpy(&pfFunc, &pRaw, sizeof pfFunc);
    return RunScriptFunction(L, pfFunc);
}

void *FunctionAsPointer(SYSDT_SPT_FUNC pfFunc)
{
    static_assert(sizeof(void *) == sizeof(SYSDT_SPT_FUNC), "function pointers fit a light userdata");
    void *pRaw;
    std::memcpy(&pRaw, &pfFunc, sizeof pRaw);
    return pRaw;
}

/* Pushes the script function as the engine will call it. */
void PushScriptFunction(lua_State *L, SYSDT_SPT_FUNC pfFunc)
{
    lua_CFunction pfnDirect = DirectEntryOf(pfFunc);
    if (pfnDirect != nullptr) {
        lua_pushcfunction(L, pfnDirect);
        return;
    }
    lua_pushlightuserdata(L, FunctionAsPointer(pfFunc));
    lua_pushcclosure(L, CallClosure, 1);
}

}  // namespace

/* ---- library registration ---- */

namespace {

struct OpenLibJob {
    const char *pcLib;
    const SYSDT_SPT_REG_S *pstTable;
};

/* Pushes the library table with every function of the table registered. */
int OpenLibWork(lua_State *L, void *pCtx)
{
    const auto *pstJob = static_cast<const OpenLibJob *>(pCtx);
    const SYSDT_SPT_REG_S *pstTable = pstJob->pstTable;
    int iCount = 0;
    while (pstTable != nullptr && (pstTable[iCount].pcName != nullptr || pstTable[iCount].pfFunc != nullptr)) {
        iCount++;
    }
    luaL_checkstack(L, 3, "script stack overflow");
    lua_createtable(L, 0, iCount);
    for (int i = 0; i < iCount; i++) {
        if (pstTable[i].pcName == nullptr || pstTable[i].pfFunc == nullptr) {
            continue;  /* half an entry registers nothing */
        }
        PushScriptFunction(L, pstTable[i].pfFunc);
        lua_setfield(L, -2, pstTable[i].pcName);
    }
    if (pstJob->pcLib != nullptr) {
        lua_pushvalue(L, -1);
        lua_setglobal(L, pstJob->pcLib);
    }
    return 1;
}

}  // namespace

/* Inside a script call the registration runs protected, like every step there that may raise. */
extern "C" int32_t Script_OpenLib(void *pState, const char *pcLib, const SYSDT_SPT_REG_S *pstTable)
{
    OpenLibJob stJob{pcLib, pstTable};
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame == nullptr) {
        auto *L = static_cast<lua_State *>(pState);
        SysdtSpti_PrepareEngine(L);
        (void)OpenLibWork(L, &stJob);
        return 0;
    }
    if (SysdtSpti_Materialize(pstFrame) && SysdtSpti_Protected(pstFrame, OpenLibWork, &stJob, 0, 1)) {
        pstFrame->iBase++;
        SysdtSpti_Moved(pstFrame, 1, LUA_TTABLE);
    } else {
        SysdtSpti_Moved(pstFrame, 1, LUA_TNIL);         /* a failed frame counts the table it lacks */
    }
    return 0;
}

/* ---- the database object bound to an engine ---- */

namespace {
char g_cBindKey;  /* its address is the registry key of the bound object */
}

/* Looks the object up with one value pushed on the engine's stack and popped again, in a frame
 * within the room it keeps for its own steps. */
void *SysdtSpti_BoundObj(void *pState)
{
    lua_State *L = SysdtSpti_StateOf(pState);
    if (SysdtSpti_FrameOf(pState) == nullptr) {
        luaL_checkstack(L, 2, "script stack overflow");
    }
    SysdtLua_RegistryGetP(L, &g_cBindKey);
    void *pObj = lua_touserdata(L, -1);
    lua_pop(L, 1);
    return pObj;
}

/* The control side binds outside script calls, where raising is safe. */
void SysdtSpti_SetBoundObj(void *pState, void *pObj)
{
    lua_State *L = SysdtSpti_StateOf(pState);
    luaL_checkstack(L, 2, "script stack overflow");
    if (pObj != nullptr) {
        lua_pushlightuserdata(L, pObj);
    } else {
        lua_pushnil(L);
    }
    SysdtLua_RegistrySetP(L, &g_cBindKey);
}
