/* Script-stack services of the platform stand-in over a Lua engine (5.1, 5.3, 5.4 or LuaJIT 2.1):
 * the stack operations a script function uses. Uses only the public Lua C API: an application
 * could have written every line of it.
 *
 * Each operation has a short path for the frame of a script call (sysdt_spti_frame.h), which asks
 * the engine nothing the frame knows, a general path for a frame, and a path for a bare state,
 * which is not inside a script call and may raise like any engine call. In a frame, values pushed
 * wait in the frame and positions are always handed to the engine as absolute ones: above the real
 * values the engine's top is not the function's. The short paths serve the per-element table
 * protocol: push a key, get, read the element, pop; push a key and a value, set. */
#include "sysdt_spti.h"

#include <cstdint>
#include <cstring>

#include "sysdt_spti_frame.h"

namespace {

/* The value on top into the deferred table at iRelTable under a name. A number pushed last turns
 * into the store itself; a table is deferred, so the tape is not simple. */
inline void StoreFieldDeferred(SysdtCallFrame *pstFrame, int iRelTable, const char *pcName)
{
    SysdtTapeRec *pstValue = pstFrame->ppstSlots[SysdtSpti_Deferred(pstFrame) - 1];
    pstFrame->iTop--;
    if (pstValue + 1 == pstFrame->pstNext && pstValue->ucOp == SYSDT_TAPE_INT && iRelTable <= 0xFFFF &&
        static_cast<uint64_t>(pstValue->llValue) <= 0xFFFFFFFFu) {
        pstValue->ucOp = SYSDT_TAPE_SETFIELDU;
        pstValue->usTable = static_cast<uint16_t>(iRelTable);
        pstValue->uiArg = static_cast<uint32_t>(pstValue->llValue);
        pstValue->pcName = pcName;
        return;
    }
    SysdtTapeRec *pstRec = pstFrame->pstNext++;
    pstRec->ucOp = SYSDT_TAPE_SETFIELD;
    pstRec->uiArg = static_cast<uint32_t>(iRelTable);
    pstRec->pcName = pcName;
}

/* ---- a bare state's paths ---- */

/* Makes room for one more value, raising a script error rather than writing past the stack. */
void BareRoomForOne(lua_State *L)
{
    if (lua_checkstack(L, 1) == 0) {
        luaL_error(L, "stack overflow (script stack overflow)");
    }
}

int BareAbs(lua_State *L, int32_t iPos)
{
    return SysdtSpti_AbsPos(lua_gettop(L), iPos);
}

int BareTypeAt(lua_State *L, int32_t iPos)
{
    int iAbs = BareAbs(L, iPos);
    return iAbs != 0 ? lua_type(L, iAbs) : LUA_TNONE;
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

/* The frame behind a handle when iPos names one of its real values by a positive position. */
static inline SysdtCallFrame *FrameOfReal(void *pState, int32_t iPos)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    return pstFrame != nullptr && iPos > 0 && iPos <= pstFrame->iBase ? pstFrame : nullptr;
}

[[gnu::noinline]] static int TypeOnStack(void *pState, int32_t iPos)
{
    if (pState == nullptr) {
        return LUA_TNONE;
    }
    SysdtCallFrame *pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame != nullptr) {
        return SysdtSpti_TypeAt(pstFrame, SysdtSpti_AbsPos(pstFrame->iTop, iPos));
    }
    return BareTypeAt(static_cast<lua_State *>(pState), iPos);
}

/* Type of the value at a position; the arguments of a call are asked for directly. */
static inline int TypeAtPos(void *pState, int32_t iPos)
{
    SysdtCallFrame *pstFrame = FrameOfReal(pState, iPos);
    if (pstFrame != nullptr) {
        return SysdtSpti_RealType(pstFrame, iPos);
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
    SysdtCallFrame *pstFrame = FrameOfReal(pState, iPos);
    if (pstFrame != nullptr) {                                        /* an argument, never a string */
        return SysdtSpti_RealType(pstFrame, iPos) == LUA_TNUMBER ? SysdtSpti_NumberToUInt(pstFrame->L, iPos) : 0;
    }
    pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame == nullptr) {
        auto *L = static_cast<lua_State *>(pState);
        return BareTypeAt(L, iPos) == LUA_TNUMBER ? SysdtSpti_NumberToUInt(L, BareAbs(L, iPos)) : 0;  /* never a string */
    }
    int iAbs = SysdtSpti_AbsPos(pstFrame->iTop, iPos);
    if (iAbs > pstFrame->iBase) {
        const SysdtTapeRec *pstRec = SysdtSpti_DeferredAt(pstFrame, iAbs);
        return pstRec != nullptr && pstRec->ucOp == SYSDT_TAPE_INT ? static_cast<uint32_t>(pstRec->llValue) : 0;
    }
    return SysdtSpti_TypeAt(pstFrame, iAbs) == LUA_TNUMBER ? SysdtSpti_NumberToUInt(pstFrame->L, iAbs) : 0;
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
    SysdtCallFrame *pstFrame = FrameOfReal(pState, iPos);
    if (pstFrame != nullptr) {                                        /* an argument */
        return SysdtSpti_RealType(pstFrame, iPos) == LUA_TSTRING ? lua_tolstring(pstFrame->L, iPos, nullptr) : nullptr;
    }
    pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (TypeAtPos(pState, iPos) != LUA_TSTRING) {
        return nullptr;  /* lua_tostring would turn a number into a string in place */
    }
    if (pstFrame == nullptr) {
        return lua_tolstring(static_cast<lua_State *>(pState), iPos, nullptr);
    }
    int iAbs = SysdtSpti_AbsPos(pstFrame->iTop, iPos);
    const SysdtTapeRec *pstRec = SysdtSpti_DeferredAt(pstFrame, iAbs);
    return pstRec != nullptr ? reinterpret_cast<const char *>(pstRec + 1) : lua_tolstring(pstFrame->L, iAbs, nullptr);
}

extern "C" int32_t SYSDT_SPTI_ToBoolean(void *pState, int32_t iPos)
{
    if (pState == nullptr) {
        return 0;
    }
    SysdtCallFrame *pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame == nullptr) {
        auto *L = static_cast<lua_State *>(pState);
        int iAbs = BareAbs(L, iPos);
        return iAbs != 0 ? lua_toboolean(L, iAbs) : 0;
    }
    int iAbs = SysdtSpti_AbsPos(pstFrame->iTop, iPos);
    if (iAbs > pstFrame->iBase || iAbs == 0) {
        return SysdtSpti_TypeAt(pstFrame, iAbs) > LUA_TNIL;    /* deferred values are never false */
    }
    return lua_toboolean(pstFrame->L, iAbs);
}

extern "C" uint32_t SYSDT_SPTI_ObjLen(void *pState, int32_t iPos)
{
    if (pState == nullptr || (SysdtSpti_TapedFrameOf(pState), TypeAtPos(pState, iPos)) != LUA_TTABLE) {
        return 0;
    }
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame == nullptr) {
        auto *L = static_cast<lua_State *>(pState);
        return static_cast<uint32_t>(SysdtLua_RawLen(L, BareAbs(L, iPos)));
    }
    int iAbs = SysdtSpti_AbsPos(pstFrame->iTop, iPos);
    if (iAbs > pstFrame->iBase && !SysdtSpti_Materialize(pstFrame)) {
        return 0;
    }
    return static_cast<uint32_t>(SysdtLua_RawLen(pstFrame->L, iAbs));
}

/* Replaces the key on top by the element of the table at iPos; nothing without a key. */
[[gnu::noinline]] static void GetTableOnStack(void *pState, int32_t iPos)
{
    SysdtCallFrame *pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame != nullptr) {
        SysdtSpti_GetTableGeneral(pstFrame, iPos);
        return;
    }
    auto *L = static_cast<lua_State *>(pState);
    int iAbs = BareAbs(L, iPos);
    if (lua_gettop(L) >= 1 && iAbs != 0) {
        (void)SysdtLua_GetTable(L, iAbs);
    }
}

/* A number key over a real table without a metatable: the element is read raw, and the key never
 * reaches the engine. */
extern "C" void SYSDT_SPTI_GetTable(void *pState, int32_t iPos)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && pstFrame->bKeyWaiting && iPos > 0 && iPos <= pstFrame->iBase &&
        pstFrame->uiKey <= kSysdtMaxRawKey && pstFrame->iBase + 1 + kSysdtReserve <= pstFrame->iRoom &&
        (pstFrame->iPlainTable == iPos || SysdtSpti_LearnPlainTable(pstFrame, iPos))) {
        pstFrame->bKeyWaiting = false;
        pstFrame->iBase++;
        SysdtSpti_NoteFetched(pstFrame, SysdtSpti_RawGetAndType(pstFrame->L, iPos, pstFrame->uiKey));
        return;
    }
    GetTableOnStack(pState, iPos);
}

[[gnu::noinline]] static void PopOnStack(void *pState, int32_t iCount)
{
    if (pState == nullptr || iCount <= 0) {
        return;
    }
    SysdtCallFrame *pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame != nullptr) {
        SysdtSpti_PopGeneral(pstFrame, iCount);
        return;
    }
    auto *L = static_cast<lua_State *>(pState);
    int iTop = lua_gettop(L);
    lua_settop(L, iCount < iTop ? iTop - iCount : 0);
}

extern "C" void SYSDT_SPTI_Pop(void *pState, int32_t iCount)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && iCount > 0 && iCount <= pstFrame->iTop && pstFrame->iTop == pstFrame->iBase &&
        !pstFrame->bFailed) {
        pstFrame->iBase -= iCount;
        SysdtSpti_Moved(pstFrame, -iCount, LUA_TNONE);
        SysdtSpti_BaseLowered(pstFrame);
        lua_settop(pstFrame->L, -iCount - 1);
        return;
    }
    PopOnStack(pState, iCount);
}

/* ---- pushing and storing ---- */

[[gnu::noinline]] static void PushIntegerOnStack(void *pState, int64_t llValue)
{
    SysdtCallFrame *pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame != nullptr) {
        SysdtTapeRec *pstRec = SysdtSpti_Append(pstFrame, SYSDT_TAPE_INT, 0, true);
        if (pstRec != nullptr) {
            pstRec->llValue = llValue;
        }
        return;
    }
    auto *L = static_cast<lua_State *>(pState);
    BareRoomForOne(L);
    lua_pushinteger(L, static_cast<lua_Integer>(llValue));
}

/* Pushes a number at once (SysdtSpti_MayPushNow); apart, so that the short paths that call it set up
 * no registers of their own. */
[[gnu::noinline]] static void PushNumberNow(SysdtCallFrame *pstFrame, int64_t llValue)
{
    SysdtSpti_PushingNow(pstFrame, LUA_TNUMBER);
    lua_pushinteger(pstFrame->L, static_cast<lua_Integer>(llValue));
}

[[gnu::noinline]] static void PushNilNow(SysdtCallFrame *pstFrame)
{
    SysdtSpti_PushingNow(pstFrame, LUA_TNIL);
    lua_pushnil(pstFrame->L);
}

/* A number pushed in a call: on the engine's stack now, or deferred; false sends it to the general path. */
static inline bool PushedNumber(SysdtCallFrame *pstFrame, int64_t llValue)
{
    if (SysdtSpti_MayPushNow(pstFrame)) {
        PushNumberNow(pstFrame, llValue);
        return true;
    }
    return SysdtSpti_DeferSimple(pstFrame, SYSDT_TAPE_INT, llValue);
}

/* In a call the number waits in the frame: the next step reads under it, stores it or hands it over. */
extern "C" void SYSDT_SPTI_PushUInt(void *pState, uint32_t uiValue)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && pstFrame->iTop == pstFrame->iBase && pstFrame->pstNext == pstFrame->astInlineRecs) {
        pstFrame->uiKey = uiValue;                      /* an empty zone and tape, not failed */
        pstFrame->bKeyWaiting = true;
        pstFrame->iTop++;
        pstFrame->bTopRead = false;
        return;
    }
    if (pstFrame != nullptr && PushedNumber(pstFrame, uiValue)) {
        return;
    }
    PushIntegerOnStack(pState, uiValue);
}

extern "C" void SYSDT_SPTI_PushInt(void *pState, int32_t iValue)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && PushedNumber(pstFrame, iValue)) {
        return;
    }
    PushIntegerOnStack(pState, iValue);
}

[[gnu::noinline]] static void PushNilOnStack(void *pState)
{
    SysdtCallFrame *pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame != nullptr) {
        (void)SysdtSpti_Append(pstFrame, SYSDT_TAPE_NIL, 0, true);
        return;
    }
    auto *L = static_cast<lua_State *>(pState);
    BareRoomForOne(L);
    lua_pushnil(L);
}

extern "C" void SYSDT_SPTI_PushNil(void *pState)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && SysdtSpti_MayPushNow(pstFrame)) {
        PushNilNow(pstFrame);
        return;
    }
    if (pstFrame != nullptr && SysdtSpti_DeferSimple(pstFrame, SYSDT_TAPE_NIL, 0)) {
        return;
    }
    PushNilOnStack(pState);
}

/* Pushes exactly uiLen bytes, zero bytes included; a null text pushes nil. */
extern "C" void SYSDT_SPTI_PushString(void *pState, const char *pcText, uint32_t uiLen)
{
    if (pcText == nullptr) {
        SYSDT_SPTI_PushNil(pState);
        return;
    }
    SysdtCallFrame *pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame != nullptr) {
        SysdtSpti_PushTextGeneral(pstFrame, pcText, uiLen);
        return;
    }
    auto *L = static_cast<lua_State *>(pState);
    BareRoomForOne(L);
    lua_pushlstring(L, pcText, uiLen);
}

extern "C" void SYSDT_SPTI_CreateTable(void *pState, int32_t iArraySize, int32_t iRecordSize)
{
    int iArray = iArraySize > 0 ? iArraySize : 0;
    int iRecord = iRecordSize > 0 ? iRecordSize : 0;
    SysdtCallFrame *pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame != nullptr) {
        SysdtTapeRec *pstRec = SysdtSpti_PushRec(pstFrame, SYSDT_TAPE_TABLE);
        if (pstRec != nullptr) {
            pstFrame->bSimpleTape = false;
        } else {
            pstRec = SysdtSpti_Append(pstFrame, SYSDT_TAPE_TABLE, 0, true);
        }
        if (pstRec != nullptr) {
            pstRec->uiArg = static_cast<uint32_t>(iArray);
            pstRec->llValue = iRecord;
        }
        return;
    }
    auto *L = static_cast<lua_State *>(pState);
    BareRoomForOne(L);
    lua_createtable(L, iArray, iRecord);
}

/* Stores the value on top under the key below it in the table at iPos; nothing without both. */
[[gnu::noinline]] static void SetTableOnStack(void *pState, int32_t iPos)
{
    SysdtCallFrame *pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame != nullptr) {
        SysdtSpti_SetTableGeneral(pstFrame, iPos);
        return;
    }
    auto *L = static_cast<lua_State *>(pState);
    int iAbs = BareAbs(L, iPos);
    if (lua_gettop(L) >= 2 && iAbs != 0) {
        lua_settable(L, iAbs);
    }
}

/* A key and a value pushed over a table made in the same call: the store waits in the frame too. */
extern "C" void SYSDT_SPTI_SetTable(void *pState, int32_t iPos)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && iPos == -3 && SysdtSpti_FuseSet(pstFrame)) {
        return;
    }
    SetTableOnStack(pState, iPos);
}

/* Stores the value on top under the name in the table at iPos; nothing without a value. A value
 * stored into a table made in the same call waits in the frame. */
extern "C" void SYSDT_SPTI_SetField(void *pState, int32_t iPos, const char *pcName)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr) {
        int iAbs = iPos < 0 ? pstFrame->iTop + 1 + iPos : iPos;
        if (iAbs > pstFrame->iBase && iAbs < pstFrame->iTop && pstFrame->pstNext != pstFrame->pstLimit) {
            StoreFieldDeferred(pstFrame, iAbs - pstFrame->iBase, pcName);
            return;
        }
        SysdtSpti_SpillKey(pstFrame);
        SysdtSpti_SetFieldGeneral(pstFrame, iPos, pcName);
        return;
    }
    auto *L = static_cast<lua_State *>(pState);
    int iAbs = BareAbs(L, iPos);
    if (lua_gettop(L) >= 1 && iAbs != 0) {
        lua_setfield(L, iAbs, pcName);
    }
}
