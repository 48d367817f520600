/* The frame of a script call: what the script stack knows about the engine's stack while a script
 * function runs. Private to the script stack's files; uses only the public Lua C API.
 *
 * A script function receives its frame's address with the low bit set; an engine's own state
 * pointer (always aligned) handed in by a host, a test or another module is a bare state, served by
 * asking the engine.
 *
 * Nothing the function does may raise a script error: the engine raises by a long jump, which would
 * skip the function's own frames and whatever they hold (memory, record sets, the call's unit of
 * work). So the values it pushes wait in the frame: the bottom iBase values of the function's stack
 * are on the engine's stack, the ones above are deferred, each kept as a record of the tape that
 * says how to make it. When the function has returned and released everything, the call hands the
 * deferred values over to the engine under protection (SysdtSpti_Deliver). Every step that could
 * raise on the way (a table read through a metamethod, the engine's stack growing, the tape needing
 * memory) runs protected too; its failure marks the frame failed, the function goes on against a
 * stack that answers nothing, and the call raises the failure once it is safe to. */
#ifndef SYSDT_SPTI_FRAME_H
#define SYSDT_SPTI_FRAME_H

#include <cstdint>

#include "sysdt_lua.h"

/* What a record of the tape asks the engine to do, replayed in order on a stack of its own whose
 * position 1 is the first deferred value. */
enum SysdtTapeOp : uint8_t {
    SYSDT_TAPE_INT,       /* push the integer llValue */
    SYSDT_TAPE_NIL,       /* push nil */
    SYSDT_TAPE_STR,       /* push the uiArg bytes kept in the records that follow */
    SYSDT_TAPE_TABLE,     /* push a new table sized for uiArg array and llValue hash entries */
    SYSDT_TAPE_SET,       /* table at uiArg: [key] = value, the two top values, popped */
    SYSDT_TAPE_SETI,      /* table at usTable: [uiArg] = llValue */
    SYSDT_TAPE_SETFIELD,  /* table at uiArg: [pcName] = top value, popped */
    SYSDT_TAPE_SETFIELDU, /* table at usTable: [pcName] = the number uiArg */
    SYSDT_TAPE_POP,       /* pop uiArg values */
};

struct SysdtTapeRec {
    uint8_t ucOp;
    uint8_t ucRsv;
    uint16_t usTable;
    uint32_t uiArg;
    union {
        int64_t llValue;
        const char *pcName;
    };
};
static_assert(sizeof(SysdtTapeRec) == 16, "a record is 16 bytes, so text kept in records is easy to size");

/* A stretch of tape; the first lives in the frame, more come from the engine's allocator. */
struct SysdtTapeChunk {
    SysdtTapeChunk *pstNext;
    SysdtTapeRec *pstRecs;
    uint32_t uiCap;        /* records */
    uint32_t uiUsed;       /* records written, once the tape went on to the next chunk */
};

constexpr int kSysdtInlineRecs = 1024;     /* 16 KB: a page of a walk fits */
constexpr int kSysdtInlineSlots = 24;
/* Arguments whose types the frame learns when the call begins. */
constexpr int kSysdtTypedArgs = 8;
/* Engine stack slots kept free above the real values for the frame's own protected steps. */
constexpr int kSysdtReserve = 8;

struct SysdtCallFrame {
    lua_State *L;
    int iTop;              /* values the function sees on its stack */
    int iBase;             /* of them, the bottom ones that are really on the engine's stack */
    int iRoom;             /* positions up to here exist in the engine's stack */
    int iTopType;          /* type of the real value at iTop, or LUA_TNONE when not known */
    bool bTopRead;         /* the value at iTop is a real number and uiTopValue is what ToUInt answers */
    bool bKeyWaiting;      /* the one deferred value is the number uiKey, not yet on the tape */
    bool bSimpleTape;      /* the tape holds pushes of numbers and nils only (never in a failed frame) */
    bool bFailed;          /* a step failed: the call raises when the function has returned */
    bool bHeap;            /* the tape took memory from the engine's allocator */
    int iPlainTable;       /* a real table without a metatable is at this position; 0 when not known */
    int iTypedArgs;        /* arguments 1..iTypedArgs are in place and have the types in ascArgType */
    uint32_t uiKey;
    uint32_t uiTopValue;
    SysdtTapeRec *pstNext; /* where the next record goes */
    SysdtTapeRec *pstLimit;
    int8_t ascArgType[kSysdtTypedArgs];
    /* The fields above are set when the call begins (uiKey and uiTopValue when they are), the ones
     * below when first needed. */
    int iErrorAt;          /* where the failed step left its error value, or 0 */
    const char *pcFailWhy; /* the failure when no error value was left */
    SysdtTapeChunk *pstChunk;
    SysdtTapeRec **ppstSlots;  /* the record that makes each deferred value, bottom first */
    int iSlotCap;              /* never below the most values deferred at once */
    SysdtTapeChunk stInline;
    SysdtTapeRec *apstInlineSlots[kSysdtInlineSlots];
    SysdtTapeRec astInlineRecs[kSysdtInlineRecs];
};

constexpr uintptr_t kSysdtFrameTag = 1;

inline void *SysdtSpti_FrameHandle(SysdtCallFrame *pstFrame)
{
    return reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(pstFrame) | kSysdtFrameTag);
}

/* The call's frame behind a handle, or null for a bare state. */
inline SysdtCallFrame *SysdtSpti_FrameOf(void *pState)
{
    auto uiHandle = reinterpret_cast<uintptr_t>(pState);
    if ((uiHandle & kSysdtFrameTag) == 0) {
        return nullptr;
    }
    auto *pstFrame = reinterpret_cast<SysdtCallFrame *>(uiHandle - kSysdtFrameTag);
    if (pstFrame == nullptr) {
        __builtin_unreachable();                        /* a tagged handle is a frame's address */
    }
    return pstFrame;
}

inline lua_State *SysdtSpti_StateOf(void *pState)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    return pstFrame != nullptr ? pstFrame->L : static_cast<lua_State *>(pState);
}

inline int SysdtSpti_Deferred(const SysdtCallFrame *pstFrame)
{
    return pstFrame->iTop - pstFrame->iBase;
}

/* The record that makes the deferred value at position iAbs (above iBase). */
inline const SysdtTapeRec *SysdtSpti_SlotRec(const SysdtCallFrame *pstFrame, int iAbs)
{
    return pstFrame->ppstSlots[iAbs - pstFrame->iBase - 1];
}

inline int SysdtSpti_TypeOfOp(uint8_t ucOp)
{
    switch (ucOp) {
        case SYSDT_TAPE_INT: return LUA_TNUMBER;
        case SYSDT_TAPE_STR: return LUA_TSTRING;
        case SYSDT_TAPE_TABLE: return LUA_TTABLE;
        default: return LUA_TNIL;
    }
}

/* Records taken by ulLen bytes of text and their terminating zero. */
inline uint32_t SysdtSpti_TextRecs(uint64_t ulLen)
{
    return static_cast<uint32_t>((ulLen + sizeof(SysdtTapeRec)) / sizeof(SysdtTapeRec));
}

/* After the function's view of the stack changed by iDelta values. */
inline void SysdtSpti_Moved(SysdtCallFrame *pstFrame, int iDelta, int iTopType)
{
    pstFrame->iTop += iDelta;
    pstFrame->iTopType = iTopType;
    pstFrame->bTopRead = false;
}

/* The first record of the current chunk. The frame's own chunk is told by its address, so that a
 * call that never leaves it sets up nothing for it. */
inline SysdtTapeRec *SysdtSpti_ChunkStart(const SysdtCallFrame *pstFrame)
{
    return pstFrame->pstChunk == &pstFrame->stInline ? const_cast<SysdtTapeRec *>(pstFrame->astInlineRecs)
                                                     : pstFrame->pstChunk->pstRecs;
}

/* Forgets the tape: no value is deferred any more. */
inline void SysdtSpti_ClearTape(SysdtCallFrame *pstFrame)
{
    pstFrame->pstChunk = &pstFrame->stInline;
    pstFrame->pstNext = pstFrame->astInlineRecs;
    pstFrame->pstLimit = pstFrame->astInlineRecs + kSysdtInlineRecs;
    pstFrame->bSimpleTape = true;
}

/* A tape nothing was recorded on yet: no room, so that the first record takes the general path,
 * which sets the tape up (most calls defer nothing, and their frame stays this small). */
inline void SysdtSpti_NewTape(SysdtCallFrame *pstFrame)
{
    pstFrame->pstNext = pstFrame->astInlineRecs;
    pstFrame->pstLimit = pstFrame->astInlineRecs;
    pstFrame->bSimpleTape = true;
}

/* Sets up a new tape before its first record: the frame's own chunk and slots. */
inline void SysdtSpti_OpenTape(SysdtCallFrame *pstFrame)
{
    if (pstFrame->pstLimit == pstFrame->astInlineRecs) {
        pstFrame->ppstSlots = pstFrame->apstInlineSlots;
        pstFrame->iSlotCap = kSysdtInlineSlots;
        pstFrame->stInline.pstNext = nullptr;           /* its records and size: SysdtSpti_ChunkStart */
        SysdtSpti_ClearTape(pstFrame);
    }
}

/* A number pushed on an empty deferred zone is most often a key that the next step reads under: it
 * waits in the frame, and any other step first puts it on the tape as the zone's one record. */
inline void SysdtSpti_SpillKey(SysdtCallFrame *pstFrame)
{
    if (pstFrame->bKeyWaiting) {
        SysdtSpti_OpenTape(pstFrame);
        SysdtTapeRec *pstRec = pstFrame->astInlineRecs;
        pstRec->ucOp = SYSDT_TAPE_INT;
        pstRec->llValue = pstFrame->uiKey;
        pstFrame->ppstSlots[0] = pstRec;
        pstFrame->pstNext = pstRec + 1;
        pstFrame->bKeyWaiting = false;
    }
}

/* The frame behind a handle with no key waiting, or null for a bare state. */
inline SysdtCallFrame *SysdtSpti_TapedFrameOf(void *pState)
{
    SysdtCallFrame *pstFrame = SysdtSpti_FrameOf(pState);
    if (pstFrame != nullptr) {
        SysdtSpti_SpillKey(pstFrame);
    }
    return pstFrame;
}

/* A frame over the iTop values of L's stack, with positions up to iRoom in existence; the types of
 * the first arguments are learnt now, in one go, so that their checks and reads ask the engine once. */
inline void SysdtSpti_InitFrame(SysdtCallFrame *pstFrame, lua_State *L, int iTop, int iRoom)
{
    pstFrame->L = L;
    pstFrame->iTop = iTop;
    pstFrame->iBase = iTop;
    pstFrame->iRoom = iRoom;
    pstFrame->iTopType = LUA_TNONE;
    pstFrame->bTopRead = false;
    pstFrame->bKeyWaiting = false;
    pstFrame->bFailed = false;
    pstFrame->bHeap = false;
    pstFrame->iPlainTable = 0;
    pstFrame->iTypedArgs = iTop < kSysdtTypedArgs ? iTop : kSysdtTypedArgs;
    SysdtSpti_NewTape(pstFrame);
    for (int i = 0; i < pstFrame->iTypedArgs; i++) {
        pstFrame->ascArgType[i] = static_cast<int8_t>(lua_type(L, i + 1));
    }
}

/* Whether the deferred values are numbers and nils only, in the frame's own memory, with their
 * slots on the engine's stack: they can be pushed at once, with no memory and nothing to raise. */
inline bool SysdtSpti_SimpleResults(const SysdtCallFrame *pstFrame)
{
    return pstFrame->bSimpleTape && !pstFrame->bHeap && pstFrame->iTop + kSysdtReserve <= pstFrame->iRoom;
}

/* Pushes the simple results (see above); in a simple tape the records are the values, in order. */
inline void SysdtSpti_PushSimple(SysdtCallFrame *pstFrame)
{
    lua_State *L = pstFrame->L;
    if (pstFrame->bKeyWaiting) {                        /* the one result, off the tape */
        lua_pushinteger(L, static_cast<lua_Integer>(pstFrame->uiKey));
        pstFrame->bKeyWaiting = false;
    }
    for (const SysdtTapeRec *pstRec = pstFrame->astInlineRecs; pstRec < pstFrame->pstNext; pstRec++) {
        if (pstRec->ucOp == SYSDT_TAPE_INT) {
            lua_pushinteger(L, static_cast<lua_Integer>(pstRec->llValue));
        } else {
            lua_pushnil(L);
        }
    }
    pstFrame->iBase = pstFrame->iTop;
}

/* A number or nil pushed on an empty deferred zone (a waiting key aside) need not wait when the
 * engine's stack has room for it: like the simple results, it goes on the engine's stack at once,
 * the key before it, and nothing can raise. Also false for a failed frame, whose tape is closed. */
inline bool SysdtSpti_MayPushNow(const SysdtCallFrame *pstFrame)
{
    return pstFrame->iTop - (pstFrame->bKeyWaiting ? 1 : 0) == pstFrame->iBase &&
           pstFrame->pstNext == pstFrame->astInlineRecs && pstFrame->iTop + 1 + kSysdtReserve <= pstFrame->iRoom;
}

/* Counts the value of type iType about to be pushed at once (see above) and pushes the waiting key. */
inline void SysdtSpti_PushingNow(SysdtCallFrame *pstFrame, int iType)
{
    bool bKey = pstFrame->bKeyWaiting;
    pstFrame->bKeyWaiting = false;
    pstFrame->iBase = pstFrame->iTop + 1;
    SysdtSpti_Moved(pstFrame, 1, iType);
    if (bKey) {
        lua_pushinteger(pstFrame->L, static_cast<lua_Integer>(pstFrame->uiKey));
    }
}

/* Appends a record that makes a value when the current chunk and the slot list have room; null
 * sends the caller to the general path (which also serves a failed frame, whose tape is closed). */
inline SysdtTapeRec *SysdtSpti_PushRec(SysdtCallFrame *pstFrame, uint8_t ucOp)
{
    SysdtSpti_SpillKey(pstFrame);
    int iSlot = pstFrame->iTop - pstFrame->iBase;
    if (pstFrame->pstNext == pstFrame->pstLimit || iSlot >= pstFrame->iSlotCap) {
        return nullptr;
    }
    SysdtTapeRec *pstRec = pstFrame->pstNext++;
    pstRec->ucOp = ucOp;
    pstFrame->ppstSlots[iSlot] = pstRec;
    pstFrame->iTop++;                                   /* the cached top type is of real tops only */
    pstFrame->bTopRead = false;
    return pstRec;
}

/* Defers a push of a number or nil; false sends the caller to the general path. */
inline bool SysdtSpti_DeferSimple(SysdtCallFrame *pstFrame, uint8_t ucOp, int64_t llValue)
{
    SysdtTapeRec *pstRec = SysdtSpti_PushRec(pstFrame, ucOp);
    if (pstRec == nullptr) {
        return false;
    }
    pstRec->llValue = llValue;
    return true;
}

/* A number stored under a number key into the deferred table just below them becomes one record,
 * when the two were the last records pushed; false leaves everything to the general path. */
inline bool SysdtSpti_FuseSet(SysdtCallFrame *pstFrame)
{
    int iDeferred = SysdtSpti_Deferred(pstFrame);
    if (pstFrame->bFailed || iDeferred < 3 || iDeferred - 2 > 0xFFFF ||
        pstFrame->pstNext - SysdtSpti_ChunkStart(pstFrame) < 2) {
        return false;
    }
    SysdtTapeRec *pstKey = pstFrame->pstNext - 2;
    const SysdtTapeRec *pstValue = pstFrame->pstNext - 1;
    SysdtTapeRec *const *ppstSlot = pstFrame->ppstSlots + iDeferred - 3;
    if (ppstSlot[1] != pstKey || ppstSlot[2] != pstValue || pstKey->ucOp != SYSDT_TAPE_INT ||
        pstValue->ucOp != SYSDT_TAPE_INT || ppstSlot[0]->ucOp != SYSDT_TAPE_TABLE ||
        static_cast<uint64_t>(pstKey->llValue) > 0xFFFFFFFFu) {
        return false;
    }
    pstKey->ucOp = SYSDT_TAPE_SETI;
    pstKey->usTable = static_cast<uint16_t>(iDeferred - 2);
    pstKey->uiArg = static_cast<uint32_t>(pstKey->llValue);
    pstKey->llValue = pstValue->llValue;
    pstFrame->pstNext--;
    pstFrame->iTop -= 2;
    return true;
}

/* ---- shared by the stack operations' files ---- */

/* Truncates toward zero and keeps the low 32 bits; values with no 64-bit integer part give 0. */
inline uint32_t SysdtSpti_FloatToUInt(lua_Number dValue)
{
    constexpr lua_Number kTwoPow63 = 9223372036854775808.0;
    if (!(dValue >= -kTwoPow63 && dValue < kTwoPow63)) {  /* also NaN */
        return 0;
    }
    auto llWhole = static_cast<long long>(dValue);     /* the conversion itself cuts toward zero */
    return static_cast<uint32_t>(static_cast<unsigned long long>(llWhole));
}

/* The number at iPos as 32 bits: integers keep their low bits, floats are cut as above. */
inline uint32_t SysdtSpti_NumberToUInt(lua_State *L, int iPos)
{
#if SYSDT_LUA_INTEGERS
    int iIsInteger = 0;
    lua_Integer llValue = lua_tointegerx(L, iPos, &iIsInteger);
    if (iIsInteger != 0) {
        return static_cast<uint32_t>(static_cast<lua_Unsigned>(llValue));
    }
#endif
    return SysdtSpti_FloatToUInt(lua_tonumber(L, iPos));
}

/* Positive position of the value iPos names among iTop values, or 0 when it names none. */
inline int SysdtSpti_AbsPos(int iTop, int32_t iPos)
{
    if (iPos < 0) {
        return -iPos <= iTop ? iTop + 1 + iPos : 0;
    }
    return iPos <= iTop ? iPos : 0;
}

/* The type of the real value at iPos (1 <= iPos <= iBase): an argument's is known from the start. */
inline int SysdtSpti_RealType(const SysdtCallFrame *pstFrame, int iPos)
{
    return iPos <= pstFrame->iTypedArgs ? pstFrame->ascArgType[iPos - 1] : lua_type(pstFrame->L, iPos);
}

/* Real values were popped down to iBase: what the frame knew of positions above it goes. A position
 * refilled later keeps no argument type, since a value pushed there can change in place (a fetched
 * element replaces its key). */
inline void SysdtSpti_BaseLowered(SysdtCallFrame *pstFrame)
{
    if (pstFrame->iPlainTable > pstFrame->iBase) {
        pstFrame->iPlainTable = 0;
    }
    if (pstFrame->iTypedArgs > pstFrame->iBase) {
        pstFrame->iTypedArgs = pstFrame->iBase;
    }
}

/* The real top is about to be replaced in place (a key by its element): when it is an argument, its
 * type is no longer the one learnt. */
inline void SysdtSpti_TopReplaced(SysdtCallFrame *pstFrame)
{
    if (pstFrame->iTypedArgs >= pstFrame->iTop) {
        pstFrame->iTypedArgs = pstFrame->iTop - 1;
    }
}

/* The element just fetched is the real top; a number is read now, ToUInt(-1) comes next. */
inline void SysdtSpti_NoteFetched(SysdtCallFrame *pstFrame, int iType)
{
    pstFrame->iTopType = iType;
    pstFrame->bTopRead = iType == LUA_TNUMBER;
    if (iType == LUA_TNUMBER) {
        pstFrame->uiTopValue = SysdtSpti_NumberToUInt(pstFrame->L, pstFrame->iTop);
    }
}

/* Engines whose lua_rawgeti and lua_rawseti take an int (5.1, LuaJIT) take no larger key. */
constexpr uint32_t kSysdtMaxRawKey = LUA_VERSION_NUM >= 503 ? 0xFFFFFFFFu : 0x7FFFFFFFu;

/* The element under an integer key of a table without a metatable, pushed; answers its type. */
inline int SysdtSpti_RawGetAndType(lua_State *L, int iPos, uint32_t uiKey)
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
bool SysdtSpti_LearnPlainTable(SysdtCallFrame *pstFrame, int iPos);
/* The type of the value at iAbs (0: none) as the function sees it. */
int SysdtSpti_TypeAt(const SysdtCallFrame *pstFrame, int iAbs);
/* The deferred value at iAbs when it is one; null for a real value or a failed frame. */
const SysdtTapeRec *SysdtSpti_DeferredAt(const SysdtCallFrame *pstFrame, int iAbs);
/* The operations' general paths on a frame whose key, if one waited, is on the tape. */
void SysdtSpti_GetTableGeneral(SysdtCallFrame *pstFrame, int32_t iPos);
void SysdtSpti_PopGeneral(SysdtCallFrame *pstFrame, int32_t iCount);
void SysdtSpti_SetTableGeneral(SysdtCallFrame *pstFrame, int32_t iPos);
void SysdtSpti_SetFieldGeneral(SysdtCallFrame *pstFrame, int32_t iPos, const char *pcName);
void SysdtSpti_PushTextGeneral(SysdtCallFrame *pstFrame, const char *pcText, uint32_t uiLen);

/* ---- the tape's general paths (sysdt_spti_defer.cpp) ---- */

/* Appends a record (and room for uiExtra more after it) and makes it the top deferred value when
 * bValue; null when the frame failed or could not get memory (it is then failed). */
SysdtTapeRec *SysdtSpti_Append(SysdtCallFrame *pstFrame, uint8_t ucOp, uint32_t uiExtra, bool bValue);
/* Deferred values popped: records them, or forgets the tape when none is left. */
void SysdtSpti_PopDeferred(SysdtCallFrame *pstFrame, int iCount);
/* Stores the two top deferred values into the deferred table at iTable (a position). */
void SysdtSpti_DeferSet(SysdtCallFrame *pstFrame, int iTable);
/* Puts every deferred value on the engine's stack, protected; false when that failed (the frame is
 * then failed). The tape's memory stays for further use until SysdtSpti_Release. */
bool SysdtSpti_Materialize(SysdtCallFrame *pstFrame);
/* Makes sure iNeed more engine slots exist above the real values; false when they cannot. */
bool SysdtSpti_RoomFor(SysdtCallFrame *pstFrame, int iNeed);
/* Runs pfWork(L, pCtx) protected on a stack holding the iArgs values on top of the engine's stack
 * (they are taken), leaving iResults results there; false when it raised (the frame is then failed
 * and the error value kept). */
bool SysdtSpti_Protected(SysdtCallFrame *pstFrame, int (*pfWork)(lua_State *, void *), void *pCtx, int iArgs,
                         int iResults);
/* Whether a protected step of a frame is running on this thread (a call made now is nested). */
bool SysdtSpti_InProtectedStep();
/* Marks the frame failed; pcWhy is the reason when no error value is on top of the engine's stack. */
void SysdtSpti_Fail(SysdtCallFrame *pstFrame, const char *pcWhy);

/* ---- the end of a call (sysdt_spti_defer.cpp) ---- */

/* Hands the deferred values over to the engine (true), or finds that the call failed (false); the
 * tape's memory is given back either way. Nothing here raises. */
bool SysdtSpti_Deliver(SysdtCallFrame *pstFrame);
/* Gives the tape's memory back and leaves the engine's stack at the iKeep values of the arguments. */
void SysdtSpti_Drop(SysdtCallFrame *pstFrame, int iKeep);
/* Raises the failure of a failed frame whose tape was given back. */
[[noreturn]] void SysdtSpti_RaiseFailure(SysdtCallFrame *pstFrame);
/* Makes the engine able to run protected steps on L (the runner they go through); may raise. */
void SysdtSpti_PrepareEngine(lua_State *L);

#endif
