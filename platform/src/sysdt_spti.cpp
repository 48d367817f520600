/* Script-stack services of the platform stand-in over a Lua engine (5.1, 5.3, 5.4 or LuaJIT 2.1).
 * Uses only the public Lua C API: an application could have written every line of it. */
#include "sysdt_spti.h"

#include <cmath>
#include <cstring>

#include "ecm_unit.h"
#include "sysdt_lua.h"
#include "sysdt_spti_bind.h"

namespace {

lua_State *AsLua(void *pState)
{
    return static_cast<lua_State *>(pState);
}

/* Lua guarantees LUA_MINSTACK slots above the base of every C frame (and of a fresh state) and
 * never shrinks a frame, so positions 1..LUA_MINSTACK are always acceptable indices: lua_type
 * answers LUA_TNONE past the top without a separate look at the top. */
constexpr int kAlwaysAcceptable = LUA_MINSTACK;

/* Positive position of a value on the stack, or 0 when iPos names none (0, or beyond the top). */
int AbsStackPos(lua_State *L, int32_t iPos)
{
    int iTop = lua_gettop(L);
    if (iPos < 0) {
        return -iPos <= iTop ? iTop + 1 + iPos : 0;
    }
    return iPos <= iTop ? iPos : 0;
}

/* Out of line so that the common case below needs no frame of its own. */
[[gnu::noinline]] int TypeAtAnyPos(lua_State *L, int32_t iPos)
{
    int iAbs = AbsStackPos(L, iPos);
    return iAbs != 0 ? lua_type(L, iAbs) : LUA_TNONE;
}

inline int TypeAt(void *pState, int32_t iPos)
{
    lua_State *L = AsLua(pState);
    if (L != nullptr && iPos > 0 && iPos <= kAlwaysAcceptable) {
        return lua_type(L, iPos);
    }
    return L != nullptr ? TypeAtAnyPos(L, iPos) : LUA_TNONE;
}

/* Truncates toward zero and keeps the low 32 bits; values with no 64-bit integer part give 0. */
uint32_t FloatToUInt(lua_Number dValue)
{
    constexpr lua_Number kTwoPow63 = 9223372036854775808.0;
    if (!(dValue >= -kTwoPow63 && dValue < kTwoPow63)) {  /* also NaN */
        return 0;
    }
    auto llWhole = static_cast<long long>(std::trunc(dValue));
    return static_cast<uint32_t>(static_cast<unsigned long long>(llWhole));
}

/* Makes room for one more value; raises a script error rather than writing past the stack
 * when it cannot grow. Below LUA_MINSTACK values the room is guaranteed and costs one look. */
[[gnu::noinline]] void GrowForOne(lua_State *L)
{
    if (lua_checkstack(L, 1) == 0) {
        luaL_error(L, "stack overflow (script stack overflow)");
    }
}

inline void ReserveOne(lua_State *L)
{
    if (lua_gettop(L) >= kAlwaysAcceptable) {
        GrowForOne(L);
    }
}

/* Calls the script function stored as the closure's upvalue; its count names the results. The
 * database learns where the call begins and ends, so that the call's writes are one unit. */
int CallScriptFunction(lua_State *L)
{
    SYSDT_SPT_FUNC pfFunc;
    void *pRaw = lua_touserdata(L, lua_upvalueindex(1));
    std::memcpy(&pfFunc, &pRaw, sizeof pfFunc);
    if (g_uiEcmOpenCallUnits.load(std::memory_order_relaxed) != 0) {
        Ecm_CallEnter(L);
    }
    uint32_t uiResults = pfFunc(L);
    if (g_uiEcmOpenCallUnits.load(std::memory_order_relaxed) != 0 && !Ecm_CallLeave(L)) {
        return lua_error(L);
    }
    int iTop = lua_gettop(L);
    return uiResults > static_cast<uint32_t>(iTop) ? iTop : static_cast<int>(uiResults);
}

void *FunctionAsPointer(SYSDT_SPT_FUNC pfFunc)
{
    static_assert(sizeof(void *) == sizeof(SYSDT_SPT_FUNC), "function pointers fit a light userdata");
    void *pRaw;
    std::memcpy(&pRaw, &pfFunc, sizeof pRaw);
    return pRaw;
}

}  // namespace

/* ---- reading the stack ---- */

extern "C" int32_t SYSDT_SPTI_GetTop(void *pState)
{
    return pState != nullptr ? lua_gettop(AsLua(pState)) : 0;
}

extern "C" int32_t SYSDT_SPTI_IsNumber(void *pState, int32_t iPos)
{
    return TypeAt(pState, iPos) == LUA_TNUMBER;
}

extern "C" int32_t SYSDT_SPTI_IsString(void *pState, int32_t iPos)
{
    return TypeAt(pState, iPos) == LUA_TSTRING;
}

extern "C" int32_t SYSDT_SPTI_IsBool(void *pState, int32_t iPos)
{
    return TypeAt(pState, iPos) == LUA_TBOOLEAN;
}

extern "C" uint32_t SYSDT_SPTI_ToUInt(void *pState, int32_t iPos)
{
    lua_State *L = AsLua(pState);
    if (L == nullptr) {
        return 0;
    }
    if (iPos <= 0 || iPos > kAlwaysAcceptable) {   /* most reads are of -1, just pushed */
        iPos = AbsStackPos(L, iPos);
    }
    if (iPos == 0 || lua_type(L, iPos) != LUA_TNUMBER) {
        return 0;
    }
#if SYSDT_LUA_INTEGERS
    int iIsInteger = 0;
    lua_Integer llValue = lua_tointegerx(L, iPos, &iIsInteger);  /* a number: no string conversion */
    if (iIsInteger != 0) {
        return static_cast<uint32_t>(static_cast<lua_Unsigned>(llValue));
    }
#endif
    return FloatToUInt(lua_tonumber(L, iPos));
}

extern "C" const char *SYSDT_SPTI_ToString(void *pState, int32_t iPos)
{
    if (TypeAt(pState, iPos) != LUA_TSTRING) {
        return nullptr;  /* lua_tostring would turn a number into a string in place */
    }
    return lua_tolstring(AsLua(pState), iPos, nullptr);
}

extern "C" int32_t SYSDT_SPTI_ToBoolean(void *pState, int32_t iPos)
{
    if (TypeAt(pState, iPos) == LUA_TNONE) {
        return 0;
    }
    return lua_toboolean(AsLua(pState), iPos);
}

extern "C" uint32_t SYSDT_SPTI_ObjLen(void *pState, int32_t iPos)
{
    if (TypeAt(pState, iPos) != LUA_TTABLE) {
        return 0;
    }
    return static_cast<uint32_t>(SysdtLua_RawLen(AsLua(pState), iPos));
}

extern "C" void SYSDT_SPTI_GetTable(void *pState, int32_t iPos)
{
    lua_gettable(AsLua(pState), iPos);
}

extern "C" void SYSDT_SPTI_Pop(void *pState, int32_t iCount)
{
    if (iCount <= 0) {
        return;
    }
    lua_State *L = AsLua(pState);
    int iTop = lua_gettop(L);
    lua_settop(L, iCount < iTop ? iTop - iCount : 0);
}

/* ---- pushing and storing ---- */

extern "C" void SYSDT_SPTI_PushUInt(void *pState, uint32_t uiValue)
{
    lua_State *L = AsLua(pState);
    ReserveOne(L);
    lua_pushinteger(L, static_cast<lua_Integer>(uiValue));
}

extern "C" void SYSDT_SPTI_PushInt(void *pState, int32_t iValue)
{
    lua_State *L = AsLua(pState);
    ReserveOne(L);
    lua_pushinteger(L, static_cast<lua_Integer>(iValue));
}

/* Pushes exactly uiLen bytes, zero bytes included; a null text pushes nil. */
extern "C" void SYSDT_SPTI_PushString(void *pState, const char *pcText, uint32_t uiLen)
{
    lua_State *L = AsLua(pState);
    ReserveOne(L);
    if (pcText == nullptr) {
        lua_pushnil(L);
        return;
    }
    lua_pushlstring(L, pcText, uiLen);
}

extern "C" void SYSDT_SPTI_PushNil(void *pState)
{
    lua_State *L = AsLua(pState);
    ReserveOne(L);
    lua_pushnil(L);
}

extern "C" void SYSDT_SPTI_CreateTable(void *pState, int32_t iArraySize, int32_t iRecordSize)
{
    lua_State *L = AsLua(pState);
    ReserveOne(L);
    lua_createtable(L, iArraySize > 0 ? iArraySize : 0, iRecordSize > 0 ? iRecordSize : 0);
}

extern "C" void SYSDT_SPTI_SetTable(void *pState, int32_t iPos)
{
    lua_settable(AsLua(pState), iPos);
}

extern "C" void SYSDT_SPTI_SetField(void *pState, int32_t iPos, const char *pcName)
{
    lua_setfield(AsLua(pState), iPos, pcName);
}

/* ---- library registration ---- */

extern "C" int32_t Script_OpenLib(void *pState, const char *pcLib, const SYSDT_SPT_REG_S *pstTable)
{
    lua_State *L = AsLua(pState);
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
        lua_pushlightuserdata(L, FunctionAsPointer(pstTable[i].pfFunc));
        lua_pushcclosure(L, CallScriptFunction, 1);
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

void *SysdtSpti_BoundObj(void *pState)
{
    lua_State *L = AsLua(pState);
    SysdtLua_RegistryGetP(L, &g_cBindKey);
    void *pObj = lua_touserdata(L, -1);
    lua_pop(L, 1);
    return pObj;
}

void SysdtSpti_SetBoundObj(void *pState, void *pObj)
{
    lua_State *L = AsLua(pState);
    if (pObj != nullptr) {
        lua_pushlightuserdata(L, pObj);
    } else {
        lua_pushnil(L);
    }
    SysdtLua_RegistrySetP(L, &g_cBindKey);
}
