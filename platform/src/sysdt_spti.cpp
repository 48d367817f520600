/* Script-stack services of the platform stand-in over a Lua engine (5.1, 5.3, 5.4 or LuaJIT 2.1).
 * Uses only the public Lua C API: an application could have written every line of it.
 *
 * A script function does not receive the engine's state itself but its call frame: a small record
 * on the C stack of the call that holds the state, the exact stack top, how far the stack is known
 * to reach and, when known, the type of the top value. Every operation keeps the record exact by
 * its documented effect on the stack, so positions are checked and room is ensured without asking
 * the engine. The handle is the frame's address with its low bit set; a state handed in directly
 * (an engine's own pointer, always aligned) is served by asking the engine for the top instead. */
#include "sysdt_spti.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <utility>

#include "ecm_unit.h"
#include "sysdt_lua.h"
#include "sysdt_spti_bind.h"

namespace {

/* ---- frames ---- */

struct CallFrame {
    lua_State *L;
    int iTop;       /* number of values on the stack */
    int iRoom;      /* positions up to here exist in the stack */
    int iTopType;   /* type of the value at iTop, or LUA_TNONE when not known */
    bool bTopRead;  /* the value at iTop is a number and uiTopValue is what ToUInt answers for it */
    uint32_t uiTopValue;
};

constexpr uintptr_t kFrameTag = 1;
constexpr int kGrowStep = 64;

void *FrameHandle(CallFrame *pstFrame)
{
    return reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(pstFrame) | kFrameTag);
}

/* The frame behind a handle: the call's own, or one read from the engine for a bare state. Lua
 * guarantees LUA_MINSTACK free slots above the top of a fresh state and of every C call. */
class Stack {
public:
    explicit Stack(void *pState)
    {
        auto uiHandle = reinterpret_cast<uintptr_t>(pState);
        if ((uiHandle & kFrameTag) != 0) {
            m_pstFrame = reinterpret_cast<CallFrame *>(uiHandle & ~kFrameTag);
            return;
        }
        lua_State *L = static_cast<lua_State *>(pState);
        int iTop = lua_gettop(L);
        m_stBare = {L, iTop, iTop < LUA_MINSTACK ? LUA_MINSTACK : iTop, LUA_TNONE, false, 0};
        m_pstFrame = &m_stBare;
    }
    Stack(const Stack &) = delete;
    Stack &operator=(const Stack &) = delete;

    lua_State *L() const { return m_pstFrame->L; }
    int Top() const { return m_pstFrame->iTop; }

    /* Positive position of the value iPos names, or 0 when it names none. */
    int Abs(int32_t iPos) const
    {
        int iTop = m_pstFrame->iTop;
        if (iPos < 0) {
            return -iPos <= iTop ? iTop + 1 + iPos : 0;
        }
        return iPos <= iTop ? iPos : 0;
    }

    int TypeAt(int iAbs) const
    {
        if (iAbs == 0) {
            return LUA_TNONE;
        }
        if (iAbs == m_pstFrame->iTop && m_pstFrame->iTopType != LUA_TNONE) {
            return m_pstFrame->iTopType;
        }
        return lua_type(m_pstFrame->L, iAbs);
    }

    /* Before a push: makes room for one more value, raising a script error rather than writing past
     * the stack when it cannot grow. */
    void RoomForOne()
    {
        if (m_pstFrame->iTop >= m_pstFrame->iRoom) {
            Grow();
        }
    }

    /* After the stack changed by iDelta values; iTopType is the new top's type when known. */
    void Moved(int iDelta, int iTopType)
    {
        m_pstFrame->iTop += iDelta;
        m_pstFrame->iTopType = iTopType;
        m_pstFrame->bTopRead = false;
    }

private:
    [[gnu::noinline]] void Grow()
    {
        if (lua_checkstack(m_pstFrame->L, kGrowStep) == 0) {
            luaL_error(m_pstFrame->L, "stack overflow (script stack overflow)");
        }
        m_pstFrame->iRoom = m_pstFrame->iTop + kGrowStep;
    }

    CallFrame *m_pstFrame;
    CallFrame m_stBare;
};

/* The call's frame behind a handle, or null for a bare state. */
inline CallFrame *FrameOf(void *pState)
{
    auto uiHandle = reinterpret_cast<uintptr_t>(pState);
    return (uiHandle & kFrameTag) != 0 ? reinterpret_cast<CallFrame *>(uiHandle & ~kFrameTag) : nullptr;
}

lua_State *StateOf(void *pState)
{
    auto uiHandle = reinterpret_cast<uintptr_t>(pState);
    return (uiHandle & kFrameTag) != 0 ? reinterpret_cast<CallFrame *>(uiHandle & ~kFrameTag)->L
                                       : static_cast<lua_State *>(pState);
}

/* Truncates toward zero and keeps the low 32 bits; values with no 64-bit integer part give 0. */
uint32_t FloatToUInt(lua_Number dValue)
{
    constexpr lua_Number kTwoPow63 = 9223372036854775808.0;
    if (!(dValue >= -kTwoPow63 && dValue < kTwoPow63)) {  /* also NaN */
        return 0;
    }
    auto llWhole = static_cast<long long>(dValue);     /* the conversion itself cuts toward zero */
    return static_cast<uint32_t>(static_cast<unsigned long long>(llWhole));
}

/* The number at iAbs as 32 bits: integers keep their low bits, floats go through FloatToUInt. */
uint32_t NumberToUInt(lua_State *L, int iAbs)
{
#if SYSDT_LUA_INTEGERS
    int iIsInteger = 0;
    lua_Integer llValue = lua_tointegerx(L, iAbs, &iIsInteger);
    if (iIsInteger != 0) {
        return static_cast<uint32_t>(static_cast<lua_Unsigned>(llValue));
    }
#endif
    return FloatToUInt(lua_tonumber(L, iAbs));
}

/* lua_gettable answers the type of what it pushed from 5.3 on; older engines are asked. */
int GetTableAndType(lua_State *L, int iPos)
{
#if LUA_VERSION_NUM >= 503
    return lua_gettable(L, iPos);
#else
    lua_gettable(L, iPos);
    return lua_type(L, -1);
#endif
}

/* ---- calling script functions ---- */

/* Runs a script function with a frame of this call; its count names the results. The database
 * learns where the call begins and ends, so that the call's writes are one unit. */
inline int RunScriptFunction(lua_State *L, SYSDT_SPT_FUNC pfFunc)
{
    if (g_uiEcmOpenCallUnits.load(std::memory_order_relaxed) != 0) {
        Ecm_CallEnter(L);
    }
    int iArgs = lua_gettop(L);
    CallFrame stFrame{L, iArgs, iArgs + LUA_MINSTACK, LUA_TNONE, false, 0};
    uint32_t uiResults = pfFunc(FrameHandle(&stFrame));
    int iTop = stFrame.iTop;
    if (g_uiEcmOpenCallUnits.load(std::memory_order_relaxed) != 0 && !Ecm_CallLeave(L)) {
        return lua_error(L);
    }
    return uiResults > static_cast<uint32_t>(iTop) ? iTop : static_cast<int>(uiResults);
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

/* ---- reading the stack ---- */

extern "C" int32_t SYSDT_SPTI_GetTop(void *pState)
{
    CallFrame *pstFrame = FrameOf(pState);
    if (pstFrame != nullptr) {
        return pstFrame->iTop;
    }
    return pState != nullptr ? lua_gettop(static_cast<lua_State *>(pState)) : 0;
}

[[gnu::noinline]] static int TypeOnStack(void *pState, int32_t iPos)
{
    if (pState == nullptr) {
        return LUA_TNONE;
    }
    Stack stack(pState);
    return stack.TypeAt(stack.Abs(iPos));
}

/* Type of the value at a position; arguments (positive positions) of a call are asked directly. */
static inline int TypeAtPos(void *pState, int32_t iPos)
{
    CallFrame *pstFrame = FrameOf(pState);
    if (pstFrame != nullptr && iPos > 0 && iPos <= pstFrame->iTop) {
        return lua_type(pstFrame->L, iPos);
    }
    return TypeOnStack(pState, iPos);
}

extern "C" int32_t SYSDT_SPTI_IsNumber(void *pState, int32_t iPos)
{
    return TypeAtPos(pState, iPos) == LUA_TNUMBER;
}

extern "C" int32_t SYSDT_SPTI_IsString(void *pState, int32_t iPos)
{
    return TypeAtPos(pState, iPos) == LUA_TSTRING;
}

extern "C" int32_t SYSDT_SPTI_IsBool(void *pState, int32_t iPos)
{
    return TypeAtPos(pState, iPos) == LUA_TBOOLEAN;
}

[[gnu::noinline]] static uint32_t ToUIntOnStack(void *pState, int32_t iPos)
{
    if (pState == nullptr) {
        return 0;
    }
    Stack stack(pState);
    int iAbs = stack.Abs(iPos);
    return stack.TypeAt(iAbs) == LUA_TNUMBER ? NumberToUInt(stack.L(), iAbs) : 0;  /* never a string */
}

extern "C" uint32_t SYSDT_SPTI_ToUInt(void *pState, int32_t iPos)
{
    CallFrame *pstFrame = FrameOf(pState);
    if (pstFrame != nullptr && iPos == -1 && pstFrame->iTop > 0) {     /* the element just read */
        if (pstFrame->bTopRead) {
            return pstFrame->uiTopValue;
        }
        int iType = pstFrame->iTopType != LUA_TNONE ? pstFrame->iTopType : lua_type(pstFrame->L, -1);
        return iType == LUA_TNUMBER ? NumberToUInt(pstFrame->L, -1) : 0;
    }
    return ToUIntOnStack(pState, iPos);
}

extern "C" const char *SYSDT_SPTI_ToString(void *pState, int32_t iPos)
{
    if (TypeAtPos(pState, iPos) != LUA_TSTRING) {
        return nullptr;  /* lua_tostring would turn a number into a string in place */
    }
    return lua_tolstring(StateOf(pState), iPos, nullptr);
}

extern "C" int32_t SYSDT_SPTI_ToBoolean(void *pState, int32_t iPos)
{
    if (pState == nullptr) {
        return 0;
    }
    Stack stack(pState);
    int iAbs = stack.Abs(iPos);
    return iAbs != 0 ? lua_toboolean(stack.L(), iAbs) : 0;
}

extern "C" uint32_t SYSDT_SPTI_ObjLen(void *pState, int32_t iPos)
{
    if (pState == nullptr) {
        return 0;
    }
    Stack stack(pState);
    int iAbs = stack.Abs(iPos);
    if (stack.TypeAt(iAbs) != LUA_TTABLE) {
        return 0;
    }
    return static_cast<uint32_t>(SysdtLua_RawLen(stack.L(), iAbs));
}

/* Replaces the key on top by the element of the table at iPos; nothing without a key. */
[[gnu::noinline]] static void GetTableOnStack(void *pState, int32_t iPos)
{
    Stack stack(pState);
    int iAbs = stack.Abs(iPos);
    if (stack.Top() < 1 || iAbs == 0) {
        return;
    }
    stack.Moved(0, GetTableAndType(stack.L(), iAbs));
}

extern "C" void SYSDT_SPTI_GetTable(void *pState, int32_t iPos)
{
    CallFrame *pstFrame = FrameOf(pState);
    if (pstFrame != nullptr && iPos > 0 && iPos <= pstFrame->iTop) {
        int iType = GetTableAndType(pstFrame->L, iPos);
        pstFrame->iTopType = iType;
        pstFrame->bTopRead = iType == LUA_TNUMBER;       /* read now: ToUInt(-1) comes next */
        if (iType == LUA_TNUMBER) {
            pstFrame->uiTopValue = NumberToUInt(pstFrame->L, -1);
        }
        return;
    }
    GetTableOnStack(pState, iPos);
}

[[gnu::noinline]] static void PopOnStack(void *pState, int32_t iCount)
{
    if (pState == nullptr || iCount <= 0) {
        return;
    }
    Stack stack(pState);
    int iDrop = iCount < stack.Top() ? iCount : stack.Top();
    lua_settop(stack.L(), -iDrop - 1);
    stack.Moved(-iDrop, LUA_TNONE);
}

extern "C" void SYSDT_SPTI_Pop(void *pState, int32_t iCount)
{
    CallFrame *pstFrame = FrameOf(pState);
    if (pstFrame != nullptr && iCount > 0 && iCount <= pstFrame->iTop) {
        pstFrame->iTop -= iCount;
        pstFrame->iTopType = LUA_TNONE;
        pstFrame->bTopRead = false;
        lua_settop(pstFrame->L, -iCount - 1);
        return;
    }
    PopOnStack(pState, iCount);
}

/* ---- pushing and storing ---- */

[[gnu::noinline]] static void PushUIntOnStack(void *pState, uint32_t uiValue)
{
    Stack stack(pState);
    stack.RoomForOne();
    lua_pushinteger(stack.L(), static_cast<lua_Integer>(uiValue));
    stack.Moved(1, LUA_TNUMBER);
}

extern "C" void SYSDT_SPTI_PushUInt(void *pState, uint32_t uiValue)
{
    CallFrame *pstFrame = FrameOf(pState);
    if (pstFrame != nullptr && pstFrame->iTop < pstFrame->iRoom) {
        pstFrame->iTop++;
        pstFrame->iTopType = LUA_TNUMBER;
        pstFrame->bTopRead = true;
        pstFrame->uiTopValue = uiValue;
        lua_pushinteger(pstFrame->L, static_cast<lua_Integer>(uiValue));
        return;
    }
    PushUIntOnStack(pState, uiValue);
}

extern "C" void SYSDT_SPTI_PushInt(void *pState, int32_t iValue)
{
    Stack stack(pState);
    stack.RoomForOne();
    lua_pushinteger(stack.L(), static_cast<lua_Integer>(iValue));
    stack.Moved(1, LUA_TNUMBER);
}

/* Pushes exactly uiLen bytes, zero bytes included; a null text pushes nil. */
extern "C" void SYSDT_SPTI_PushString(void *pState, const char *pcText, uint32_t uiLen)
{
    Stack stack(pState);
    stack.RoomForOne();
    if (pcText == nullptr) {
        lua_pushnil(stack.L());
        stack.Moved(1, LUA_TNIL);
        return;
    }
    lua_pushlstring(stack.L(), pcText, uiLen);
    stack.Moved(1, LUA_TSTRING);
}

[[gnu::noinline]] static void PushNilOnStack(void *pState)
{
    Stack stack(pState);
    stack.RoomForOne();
    lua_pushnil(stack.L());
    stack.Moved(1, LUA_TNIL);
}

extern "C" void SYSDT_SPTI_PushNil(void *pState)
{
    CallFrame *pstFrame = FrameOf(pState);
    if (pstFrame != nullptr && pstFrame->iTop < pstFrame->iRoom) {
        pstFrame->iTop++;
        pstFrame->iTopType = LUA_TNIL;
        pstFrame->bTopRead = false;
        lua_pushnil(pstFrame->L);
        return;
    }
    PushNilOnStack(pState);
}

extern "C" void SYSDT_SPTI_CreateTable(void *pState, int32_t iArraySize, int32_t iRecordSize)
{
    Stack stack(pState);
    stack.RoomForOne();
    lua_createtable(stack.L(), iArraySize > 0 ? iArraySize : 0, iRecordSize > 0 ? iRecordSize : 0);
    stack.Moved(1, LUA_TTABLE);
}

/* Stores the value on top under the key below it in the table at iPos; nothing without both. */
[[gnu::noinline]] static void SetTableOnStack(void *pState, int32_t iPos)
{
    Stack stack(pState);
    int iAbs = stack.Abs(iPos);
    if (stack.Top() < 2 || iAbs == 0) {
        return;
    }
    lua_settable(stack.L(), iAbs);
    stack.Moved(-2, LUA_TNONE);
}

extern "C" void SYSDT_SPTI_SetTable(void *pState, int32_t iPos)
{
    CallFrame *pstFrame = FrameOf(pState);
    if (pstFrame != nullptr && pstFrame->iTop >= 2 && iPos < 0 && -iPos <= pstFrame->iTop) {
        pstFrame->iTop -= 2;
        pstFrame->iTopType = LUA_TNONE;
        pstFrame->bTopRead = false;
        lua_settable(pstFrame->L, iPos);
        return;
    }
    SetTableOnStack(pState, iPos);
}

/* Stores the value on top under the name in the table at iPos; nothing without a value. */
extern "C" void SYSDT_SPTI_SetField(void *pState, int32_t iPos, const char *pcName)
{
    Stack stack(pState);
    int iAbs = stack.Abs(iPos);
    if (stack.Top() < 1 || iAbs == 0) {
        return;
    }
    lua_setfield(stack.L(), iAbs, pcName);
    stack.Moved(-1, LUA_TNONE);
}

/* ---- library registration ---- */

extern "C" int32_t Script_OpenLib(void *pState, const char *pcLib, const SYSDT_SPT_REG_S *pstTable)
{
    lua_State *L = StateOf(pState);
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
    if (pcLib != nullptr) {
        lua_pushvalue(L, -1);
        lua_setglobal(L, pcLib);
    }
    return 0;
}

/* ---- the database object bound to an engine ---- */

namespace {
char g_cBindKey;  /* its address is the registry key of the bound object */
}

/* Looks the object up with one value pushed and popped again: the frame's record stays exact. */
void *SysdtSpti_BoundObj(void *pState)
{
    Stack stack(pState);
    stack.RoomForOne();
    lua_State *L = stack.L();
    SysdtLua_RegistryGetP(L, &g_cBindKey);
    void *pObj = lua_touserdata(L, -1);
    lua_pop(L, 1);
    return pObj;
}

void SysdtSpti_SetBoundObj(void *pState, void *pObj)
{
    lua_State *L = StateOf(pState);
    luaL_checkstack(L, 2, "script stack overflow");
    if (pObj != nullptr) {
        lua_pushlightuserdata(L, pObj);
    } else {
        lua_pushnil(L);
    }
    SysdtLua_RegistrySetP(L, &g_cBindKey);
}
