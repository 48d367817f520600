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

/* Positive position of the value iPos names among iTop values, or 0 when it names none. */
int AbsPos(int iTop, int32_t iPos)
{
    if (iPos < 0) {
        return -iPos <= iTop ? iTop + 1 + iPos : 0;
    }
    return iPos <= iTop ? iPos : 0;
}

/* The element just fetched is the real top; a number is read now, ToUInt(-1) comes next. */
void NoteFetched(SysdtCallFrame *pstFrame, int iType)
{
    pstFrame->iTopType = iType;
    pstFrame->bTopRead = iType == LUA_TNUMBER;
    if (iType == LUA_TNUMBER) {
        pstFrame->uiTopValue = NumberToUInt(pstFrame->L, pstFrame->iTop);
    }
}

/* Engines whose lua_rawgeti takes an int (5.1) take no larger key. */
constexpr uint32_t kMaxRawKey = LUA_VERSION_NUM >= 503 ? 0xFFFFFFFFu : 0x7FFFFFFFu;

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

/* Whether the real table at iPos has no metatable: looked up once, then known until a step that
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

/* ---- a frame's general paths ---- */

int FrameTypeAt(const SysdtCallFrame *pstFrame, int iAbs)
{
    if (iAbs == 0) {
        return LUA_TNONE;
    }
    if (iAbs <= pstFrame->iBase) {
        if (iAbs == pstFrame->iTop && pstFrame->iTopType != LUA_TNONE) {
            return pstFrame->iTopType;
        }
        return lua_type(pstFrame->L, iAbs);
    }
    return pstFrame->bFailed ? LUA_TNIL : SysdtSpti_TypeOfOp(SysdtSpti_SlotRec(pstFrame, iAbs)->ucOp);
}

/* The deferred value at iAbs when it is one; null for a real value or a failed frame. */
const SysdtTapeRec *DeferredAt(const SysdtCallFrame *pstFrame, int iAbs)
{
    return (iAbs > pstFrame->iBase && !pstFrame->bFailed) ? SysdtSpti_SlotRec(pstFrame, iAbs) : nullptr;
}

/* A failed frame only counts: the engine's stack keeps the failure's error value on top. */
void FailedPop(SysdtCallFrame *pstFrame, int iCount)
{
    int iTop = pstFrame->iTop > iCount ? pstFrame->iTop - iCount : 0;
    SysdtSpti_Moved(pstFrame, iTop - pstFrame->iTop, LUA_TNONE);
    pstFrame->iBase = pstFrame->iBase > iTop ? iTop : pstFrame->iBase;
}

int GetWork(lua_State *L, void *)
{
    lua_gettable(L, 1);
    return 1;
}

int SetWork(lua_State *L, void *)
{
    lua_settable(L, 1);
    return 0;
}

int SetFieldWork(lua_State *L, void *pCtx)
{
    lua_setfield(L, 1, static_cast<const char *>(pCtx));
    return 0;
}

[[gnu::noinline]] void FramedGetTable(SysdtCallFrame *pstFrame, int32_t iPos)
{
    int iAbs = AbsPos(pstFrame->iTop, iPos);
    if (pstFrame->bFailed || pstFrame->iTop < 1 || iAbs == 0 || !SysdtSpti_Materialize(pstFrame)) {
        return;                                          /* a failed frame's top reads as nil */
    }
    lua_State *L = pstFrame->L;
    if (pstFrame->iPlainTable == iAbs || LearnPlainTable(pstFrame, iAbs)) {
        lua_rawget(L, iAbs);
        NoteFetched(pstFrame, lua_type(L, -1));
        return;
    }
    lua_pushvalue(L, iAbs);
    lua_pushvalue(L, -2);
    pstFrame->iPlainTable = 0;                          /* a metamethod may run script code */
    if (SysdtSpti_Protected(pstFrame, GetWork, nullptr, 2, 1)) {
        lua_remove(L, -2);
        NoteFetched(pstFrame, lua_type(L, -1));
    }
}

[[gnu::noinline]] void FramedPop(SysdtCallFrame *pstFrame, int32_t iCount)
{
    int iDrop = iCount < pstFrame->iTop ? iCount : pstFrame->iTop;
    if (iDrop <= 0) {
        return;
    }
    if (pstFrame->bFailed) {
        FailedPop(pstFrame, iDrop);
        return;
    }
    int iDeferred = SysdtSpti_Deferred(pstFrame);
    int iFromTape = iDrop < iDeferred ? iDrop : iDeferred;
    if (iFromTape > 0) {
        SysdtSpti_PopDeferred(pstFrame, iFromTape);
    }
    int iReal = iDrop - iFromTape;
    if (iReal > 0) {
        pstFrame->iBase -= iReal;
        lua_settop(pstFrame->L, pstFrame->iBase);
        SysdtSpti_Moved(pstFrame, -iReal, LUA_TNONE);
    }
    pstFrame->iPlainTable = pstFrame->iPlainTable > pstFrame->iBase ? 0 : pstFrame->iPlainTable;
}

/* Stores into a real table (its metamethods may run script code): every value real first, then
 * the store runs protected. */
[[gnu::noinline]] void FramedStoreReal(SysdtCallFrame *pstFrame, int iAbs, const char *pcName)
{
    int iValues = pcName == nullptr ? 2 : 1;
    if (!SysdtSpti_Materialize(pstFrame)) {
        FailedPop(pstFrame, iValues);
        return;
    }
    lua_State *L = pstFrame->L;
    lua_pushvalue(L, iAbs);
    for (int i = 0; i < iValues; i++) {
        lua_pushvalue(L, -1 - iValues);
    }
    pstFrame->iPlainTable = 0;
    bool bOk = pcName == nullptr ? SysdtSpti_Protected(pstFrame, SetWork, nullptr, 3, 0)
                                 : SysdtSpti_Protected(pstFrame, SetFieldWork, const_cast<char *>(pcName), 2, 0);
    if (!bOk) {
        FailedPop(pstFrame, iValues);
        return;
    }
    lua_pop(L, iValues);
    pstFrame->iBase -= iValues;
    SysdtSpti_Moved(pstFrame, -iValues, LUA_TNONE);
}

[[gnu::noinline]] void FramedSetTable(SysdtCallFrame *pstFrame, int32_t iPos)
{
    int iAbs = AbsPos(pstFrame->iTop, iPos);
    if (pstFrame->iTop < 2 || iAbs == 0) {
        return;
    }
    if (pstFrame->bFailed) {
        FailedPop(pstFrame, 2);
    } else if (iAbs > pstFrame->iBase && iAbs < pstFrame->iTop - 1) {
        SysdtSpti_DeferSet(pstFrame, iAbs);
    } else {
        FramedStoreReal(pstFrame, iAbs, nullptr);
    }
}

[[gnu::noinline]] void FramedSetField(SysdtCallFrame *pstFrame, int32_t iPos, const char *pcName)
{
    int iAbs = AbsPos(pstFrame->iTop, iPos);
    if (pstFrame->iTop < 1 || iAbs == 0) {
        return;
    }
    if (pstFrame->bFailed || !(iAbs > pstFrame->iBase && iAbs < pstFrame->iTop)) {
        if (pstFrame->bFailed) {
            FailedPop(pstFrame, 1);
        } else {
            FramedStoreReal(pstFrame, iAbs, pcName);
        }
        return;
    }
    int iRelTable = iAbs - pstFrame->iBase;
    SysdtTapeRec *pstRec = SysdtSpti_Append(pstFrame, SYSDT_TAPE_SETFIELD, 0, false);
    SysdtSpti_Moved(pstFrame, -1, LUA_TNONE);
    if (pstRec != nullptr) {
        pstRec->uiArg = static_cast<uint32_t>(iRelTable);
        pstRec->pcName = pcName;
    }
}

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

[[gnu::noinline]] void FramedPushText(SysdtCallFrame *pstFrame, const char *pcText, uint32_t uiLen)
{
    SysdtTapeRec *pstRec = SysdtSpti_Append(pstFrame, SYSDT_TAPE_STR, SysdtSpti_TextRecs(uiLen), true);
    if (pstRec != nullptr) {
        pstRec->uiArg = uiLen;
        auto *pcCopy = reinterpret_cast<char *>(pstRec + 1);
        std::memcpy(pcCopy, pcText, uiLen);
        pcCopy[uiLen] = '\0';
    }
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
    return AbsPos(lua_gettop(L), iPos);
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

[[gnu::noinline]] static int TypeOnStack(void *pState, int32_t iPos)
{
    if (pState == nullptr) {
        return LUA_TNONE;
    }
    SysdtCallFrame *pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame != nullptr) {
        return FrameTypeAt(pstFrame, AbsPos(pstFrame->iTop, iPos));
    }
    return BareTypeAt(static_cast<lua_State *>(pState), iPos);
}

/* Type of the value at a position; the arguments of a call are asked for directly. */
static inline int TypeAtPos(void *pState, int32_t iPos)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && iPos > 0 && iPos <= pstFrame->iBase) {
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
    SysdtCallFrame *pstFrame = SysdtSpti_TapedFrameOf(pState);
    if (pstFrame == nullptr) {
        auto *L = static_cast<lua_State *>(pState);
        return BareTypeAt(L, iPos) == LUA_TNUMBER ? NumberToUInt(L, BareAbs(L, iPos)) : 0;  /* never a string */
    }
    int iAbs = AbsPos(pstFrame->iTop, iPos);
    if (iAbs > pstFrame->iBase) {
        const SysdtTapeRec *pstRec = DeferredAt(pstFrame, iAbs);
        return pstRec != nullptr && pstRec->ucOp == SYSDT_TAPE_INT ? static_cast<uint32_t>(pstRec->llValue) : 0;
    }
    return FrameTypeAt(pstFrame, iAbs) == LUA_TNUMBER ? NumberToUInt(pstFrame->L, iAbs) : 0;
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
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && iPos > 0 && iPos <= pstFrame->iBase) {   /* an argument */
        lua_State *L = pstFrame->L;
        return lua_type(L, iPos) == LUA_TSTRING ? lua_tolstring(L, iPos, nullptr) : nullptr;
    }
    SysdtSpti_TapedFrameOf(pState);
    if (TypeAtPos(pState, iPos) != LUA_TSTRING) {
        return nullptr;  /* lua_tostring would turn a number into a string in place */
    }
    if (pstFrame == nullptr) {
        return lua_tolstring(static_cast<lua_State *>(pState), iPos, nullptr);
    }
    int iAbs = AbsPos(pstFrame->iTop, iPos);
    const SysdtTapeRec *pstRec = DeferredAt(pstFrame, iAbs);
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
    int iAbs = AbsPos(pstFrame->iTop, iPos);
    if (iAbs > pstFrame->iBase || iAbs == 0) {
        return FrameTypeAt(pstFrame, iAbs) > LUA_TNIL;    /* deferred values are never false */
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
    int iAbs = AbsPos(pstFrame->iTop, iPos);
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
        FramedGetTable(pstFrame, iPos);
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
        pstFrame->uiKey <= kMaxRawKey && pstFrame->iBase + 1 + kSysdtReserve <= pstFrame->iRoom &&
        (pstFrame->iPlainTable == iPos || LearnPlainTable(pstFrame, iPos))) {
        pstFrame->bKeyWaiting = false;
        pstFrame->iBase++;
        NoteFetched(pstFrame, RawGetAndType(pstFrame->L, iPos, pstFrame->uiKey));
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
        FramedPop(pstFrame, iCount);
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
        if (pstFrame->iPlainTable > pstFrame->iTop) {
            pstFrame->iPlainTable = 0;
        }
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
    if (pstFrame != nullptr && SysdtSpti_DeferSimple(pstFrame, SYSDT_TAPE_INT, uiValue)) {
        return;
    }
    PushIntegerOnStack(pState, uiValue);
}

extern "C" void SYSDT_SPTI_PushInt(void *pState, int32_t iValue)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr && SysdtSpti_DeferSimple(pstFrame, SYSDT_TAPE_INT, iValue)) {
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
        FramedPushText(pstFrame, pcText, uiLen);
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
        FramedSetTable(pstFrame, iPos);
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
        FramedSetField(pstFrame, iPos, pcName);
        return;
    }
    auto *L = static_cast<lua_State *>(pState);
    int iAbs = BareAbs(L, iPos);
    if (lua_gettop(L) >= 1 && iAbs != 0) {
        lua_setfield(L, iAbs, pcName);
    }
}
