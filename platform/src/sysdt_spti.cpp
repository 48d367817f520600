/* Script-stack services of the platform stand-in over a Lua engine (5.1, 5.3, 5.4 or LuaJIT 2.1):
 * the stack operations a script function uses. Uses only the public Lua C API: an application
 * could have written every line of it.
 *
 * Each operation has a short path for the frame of a script call (sysdt_spti_frame.h), which asks
 * the engine nothing the frame knows, and a general path for everything else. The short paths
 * serve the per-element table protocol: push a key, get, read the element, pop; push a key and a
 * value, set. */
#include "sysdt_spti.h"

#include <cstdint>

#include "sysdt_spti_frame.h"

namespace {

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

/* The number at iPos as 32 bits: integers keep their low bits, floats go through FloatToUInt. */
uint32_t NumberToUInt(lua_State *L, int iPos)
{
#if SYSDT_LUA_INTEGERS
    int iIsInteger = 0;
    lua_Integer llValue = lua_tointegerx(L, iPos, &iIsInteger);
    if (iIsInteger != 0) {
        return static_cast<uint32_t>(static_cast<lua_Unsigned>(llValue));
    }
#endif
    return FloatToUInt(lua_tonumber(L, iPos));
}

/* The element just fetched replaced the key on top; a number is read now, ToUInt(-1) comes next. */
void NoteFetched(SysdtCallFrame *pstFrame, int iType)
{
    pstFrame->iTopType = iType;
    pstFrame->bTopRead = iType == LUA_TNUMBER;
    if (iType == LUA_TNUMBER) {
        pstFrame->uiTopValue = NumberToUInt(pstFrame->L, -1);
    }
}

/* Engines whose lua_rawgeti takes an int (5.1) take no larger key. */
constexpr uint32_t kMaxRawKey = LUA_VERSION_NUM >= 503 ? 0xFFFFFFFFu : 0x7FFFFFFFu;

/* Stores the value on top into the table at iPos (without a metatable) under an integer key. */
void RawSet(lua_State *L, int iPos, uint32_t uiKey)
{
#if LUA_VERSION_NUM >= 503
    lua_rawseti(L, iPos, static_cast<lua_Integer>(uiKey));
#else
    lua_rawseti(L, iPos, static_cast<int>(uiKey));
#endif
}

/* The element under an integer key of a table without a metatable, pushed; answers its type. */
int RawGetAndType(lua_State *L, int iPos, uint32_t uiKey)
{
#if LUA_VERSION_NUM >= 503
    return lua_rawgeti(L, iPos, static_cast<lua_Integer>(uiKey));
#else
    lua_rawgeti(L, iPos, static_cast<int>(uiKey));
    return lua_type(L, -1);
#endif
}

/* Whether the table at iPos has no metatable: looked up once, then known until an operation that
 * may run script code (or a pop below it). */
[[gnu::noinline]] bool LearnPlainTable(SysdtCallFrame *pstFrame, int iPos)
{
    lua_State *L = pstFrame->L;
    if (lua_type(L, iPos) != LUA_TTABLE) {
        return false;
    }
    if (lua_getmetatable(L, iPos) != 0) {
        lua_pop(L, 1);
        return false;
    }
    pstFrame->iPlainTable = iPos;
    return true;
}

}  // namespace

/* ---- reading the stack ---- */

extern "C" int32_t SYSDT_SPTI_GetTop(void *pState)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
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
    SysdtStack stack(pState);
    return stack.TypeAt(stack.Abs(iPos));
}

/* Type of the value at a position; the arguments of a call are asked for directly. */
static inline int TypeAtPos(void *pState, int32_t iPos)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && iPos > 0 && iPos <= pstFrame->iTop - pstFrame->iPending) {
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
    SysdtStack stack(pState);
    int iAbs = stack.Abs(iPos);
    return stack.TypeAt(iAbs) == LUA_TNUMBER ? NumberToUInt(stack.L(), iAbs) : 0;  /* never a string */
}

extern "C" uint32_t SYSDT_SPTI_ToUInt(void *pState, int32_t iPos)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && iPos == -1 && pstFrame->bTopRead) {   /* the element just fetched */
        return pstFrame->uiTopValue;
    }
    return ToUIntOnStack(pState, iPos);
}

extern "C" const char *SYSDT_SPTI_ToString(void *pState, int32_t iPos)
{
    if (TypeAtPos(pState, iPos) != LUA_TSTRING) {
        return nullptr;  /* lua_tostring would turn a number into a string in place */
    }
    return lua_tolstring(SysdtSpti_StateOf(pState), iPos, nullptr);
}

extern "C" int32_t SYSDT_SPTI_ToBoolean(void *pState, int32_t iPos)
{
    if (pState == nullptr) {
        return 0;
    }
    SysdtStack stack(pState);
    int iAbs = stack.Abs(iPos);
    return iAbs != 0 ? lua_toboolean(stack.L(), iAbs) : 0;
}

extern "C" uint32_t SYSDT_SPTI_ObjLen(void *pState, int32_t iPos)
{
    if (pState == nullptr) {
        return 0;
    }
    SysdtStack stack(pState);
    int iAbs = stack.Abs(iPos);
    if (stack.TypeAt(iAbs) != LUA_TTABLE) {
        return 0;
    }
    return static_cast<uint32_t>(SysdtLua_RawLen(stack.L(), iAbs));
}

/* Replaces the key on top by the element of the table at iPos; nothing without a key. */
[[gnu::noinline]] static void GetTableOnStack(void *pState, int32_t iPos)
{
    SysdtStack stack(pState);
    int iAbs = stack.Abs(iPos);
    if (stack.Top() < 1 || iAbs == 0) {
        return;
    }
    int iType = SysdtLua_GetTable(stack.L(), iAbs);
    stack.Moved(0, iType);
    NoteFetched(stack.Frame(), iType);
}

/* A key left in the frame over a table without a metatable: the element is read raw. */
extern "C" void SYSDT_SPTI_GetTable(void *pState, int32_t iPos)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame == nullptr || iPos <= 0 || iPos >= pstFrame->iTop) {
        GetTableOnStack(pState, iPos);
        return;
    }
    if (pstFrame->iPending == 1 && pstFrame->auiPending[0] <= kMaxRawKey &&
        (pstFrame->iPlainTable == iPos || LearnPlainTable(pstFrame, iPos))) {
        pstFrame->iPending = 0;
        NoteFetched(pstFrame, RawGetAndType(pstFrame->L, iPos, pstFrame->auiPending[0]));
        return;
    }
    if (pstFrame->iPending != 0) {
        SysdtSpti_PushPending(pstFrame);
    }
    pstFrame->iPlainTable = 0;                          /* a metamethod may run script code */
    NoteFetched(pstFrame, SysdtLua_GetTable(pstFrame->L, iPos));
}

[[gnu::noinline]] static void PopOnStack(void *pState, int32_t iCount)
{
    if (pState == nullptr || iCount <= 0) {
        return;
    }
    SysdtStack stack(pState);
    int iDrop = iCount < stack.Top() ? iCount : stack.Top();
    lua_settop(stack.L(), -iDrop - 1);
    stack.Moved(-iDrop, LUA_TNONE);
}

extern "C" void SYSDT_SPTI_Pop(void *pState, int32_t iCount)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && iCount > 0 && iCount <= pstFrame->iTop && pstFrame->iPending == 0) {
        SysdtSpti_Moved(pstFrame, -iCount, LUA_TNONE);
        if (pstFrame->iPlainTable > pstFrame->iTop) {
            pstFrame->iPlainTable = 0;
        }
        lua_settop(pstFrame->L, -iCount - 1);
        return;
    }
    PopOnStack(pState, iCount);
}

/* ---- pushing and storing ---- */

[[gnu::noinline]] static void PushUIntOnStack(void *pState, uint32_t uiValue)
{
    SysdtStack stack(pState);
    stack.RoomForOne();
    lua_pushinteger(stack.L(), static_cast<lua_Integer>(uiValue));
    stack.Moved(1, LUA_TNUMBER);
}

/* In a call the number stays in the frame: the next operation pushes it, or reads under it. */
extern "C" void SYSDT_SPTI_PushUInt(void *pState, uint32_t uiValue)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && pstFrame->iTop < pstFrame->iRoom) {
        if (pstFrame->iPending == 2) {
            SysdtSpti_PushPending(pstFrame);
        }
        SysdtSpti_Moved(pstFrame, 1, LUA_TNUMBER);
        pstFrame->auiPending[pstFrame->iPending++] = uiValue;
        return;
    }
    PushUIntOnStack(pState, uiValue);
}

extern "C" void SYSDT_SPTI_PushInt(void *pState, int32_t iValue)
{
    SysdtStack stack(pState);
    stack.RoomForOne();
    lua_pushinteger(stack.L(), static_cast<lua_Integer>(iValue));
    stack.Moved(1, LUA_TNUMBER);
}

/* Pushes exactly uiLen bytes, zero bytes included; a null text pushes nil. */
extern "C" void SYSDT_SPTI_PushString(void *pState, const char *pcText, uint32_t uiLen)
{
    SysdtStack stack(pState);
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
    SysdtStack stack(pState);
    stack.RoomForOne();
    lua_pushnil(stack.L());
    stack.Moved(1, LUA_TNIL);
}

extern "C" void SYSDT_SPTI_PushNil(void *pState)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && pstFrame->iTop < pstFrame->iRoom) {
        if (pstFrame->iPending != 0) {
            SysdtSpti_PushPending(pstFrame);
        }
        SysdtSpti_Moved(pstFrame, 1, LUA_TNIL);
        lua_pushnil(pstFrame->L);
        return;
    }
    PushNilOnStack(pState);
}

extern "C" void SYSDT_SPTI_CreateTable(void *pState, int32_t iArraySize, int32_t iRecordSize)
{
    SysdtStack stack(pState);
    stack.RoomForOne();
    lua_createtable(stack.L(), iArraySize > 0 ? iArraySize : 0, iRecordSize > 0 ? iRecordSize : 0);
    stack.Moved(1, LUA_TTABLE);
    stack.Frame()->iPlainTable = stack.Top();           /* a new table has no metatable */
}

/* Stores the value on top under the key below it in the table at iPos; nothing without both. */
[[gnu::noinline]] static void SetTableOnStack(void *pState, int32_t iPos)
{
    SysdtStack stack(pState);
    int iAbs = stack.Abs(iPos);
    if (stack.Top() < 2 || iAbs == 0) {
        return;
    }
    lua_settable(stack.L(), iAbs);
    stack.Moved(-2, LUA_TNONE);
}

/* Key and value waiting over a table without a metatable: the value is stored raw under the key. */
static inline bool StoresRaw(SysdtCallFrame *pstFrame, int32_t iPos)
{
    int iTable = pstFrame->iTop - 2;
    return iPos == -3 && pstFrame->iPending == 2 && iTable > 0 && pstFrame->auiPending[0] <= kMaxRawKey &&
           (pstFrame->iPlainTable == iTable || LearnPlainTable(pstFrame, iTable));
}

extern "C" void SYSDT_SPTI_SetTable(void *pState, int32_t iPos)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && StoresRaw(pstFrame, iPos)) {
        pstFrame->iPending = 0;
        lua_pushinteger(pstFrame->L, static_cast<lua_Integer>(pstFrame->auiPending[1]));
        RawSet(pstFrame->L, -2, pstFrame->auiPending[0]);
        SysdtSpti_Moved(pstFrame, -2, LUA_TNONE);
        return;
    }
    if (pstFrame != nullptr && pstFrame->iTop >= 2 && iPos < 0 && -iPos <= pstFrame->iTop) {
        if (pstFrame->iPending != 0) {
            SysdtSpti_PushPending(pstFrame);
        }
        SysdtSpti_Moved(pstFrame, -2, LUA_TNONE);
        pstFrame->iPlainTable = 0;                      /* a metamethod may run script code */
        lua_settable(pstFrame->L, iPos);
        return;
    }
    SetTableOnStack(pState, iPos);
}

/* Stores the value on top under the name in the table at iPos; nothing without a value. */
extern "C" void SYSDT_SPTI_SetField(void *pState, int32_t iPos, const char *pcName)
{
    SysdtStack stack(pState);
    int iAbs = stack.Abs(iPos);
    if (stack.Top() < 1 || iAbs == 0) {
        return;
    }
    lua_setfield(stack.L(), iAbs, pcName);
    stack.Moved(-1, LUA_TNONE);
}
