/* The deferred values of a script call: the tape that records how to make them, its memory, and the
 * protected steps that put them on the engine's stack. Uses only the public Lua C API.
 *
 * The tape is a list of 16-byte records in chunks: the first chunk lives in the frame, further ones
 * come from the engine's own allocator (so they take part in its accounting of memory, and a failing
 * allocator fails them too), each at least twice the last. A record never moves once written, so a
 * deferred value is named by its record. A pushed string is kept in the records right after its
 * own, with a terminating zero; a field name is kept by its address (see SYSDT_SPTI_SetField). Nothing here raises: a step that could runs inside
 * lua_pcall, through one runner function that the engine calls without allocating. */
#include <cstring>

#include "sysdt_spti_frame.h"

namespace {

const char *const kNoMemory = "not enough memory";
const char *const kStackOverflow = "stack overflow (script stack)";

/* Chunk headers take a whole number of records, so the records after them stay aligned. */
constexpr size_t kChunkHead = (sizeof(SysdtTapeChunk) + sizeof(SysdtTapeRec) - 1) / sizeof(SysdtTapeRec) *
                              sizeof(SysdtTapeRec);
constexpr uint32_t kFirstHeapRecs = 4 * kSysdtInlineRecs;

/* ---- memory from the engine's allocator ---- */

void *EngineAlloc(lua_State *L, size_t ulSize)
{
    void *pUd = nullptr;
    lua_Alloc pfAlloc = lua_getallocf(L, &pUd);
    return pfAlloc(pUd, nullptr, 0, ulSize);
}

void EngineFree(lua_State *L, void *pBlock, size_t ulSize)
{
    void *pUd = nullptr;
    lua_Alloc pfAlloc = lua_getallocf(L, &pUd);
    (void)pfAlloc(pUd, pBlock, ulSize, 0);
}

size_t ChunkBytes(uint32_t uiCap)
{
    return kChunkHead + static_cast<size_t>(uiCap) * sizeof(SysdtTapeRec);
}

/* Goes on to a chunk with room for uiNeed records in a row: the next one when it is large enough,
 * else a new one put in before it. false when no memory was had. */
bool NextChunk(SysdtCallFrame *pstFrame, uint32_t uiNeed)
{
    SysdtTapeChunk *pstCur = pstFrame->pstChunk;
    if (pstCur == &pstFrame->stInline) {
        pstCur->pstRecs = pstFrame->astInlineRecs;
        pstCur->uiCap = kSysdtInlineRecs;
    }
    pstCur->uiUsed = static_cast<uint32_t>(pstFrame->pstNext - pstCur->pstRecs);
    SysdtTapeChunk *pstNext = pstCur->pstNext;
    if (pstNext == nullptr || pstNext->uiCap < uiNeed) {
        uint32_t uiCap = pstCur->uiCap * 2 > kFirstHeapRecs ? pstCur->uiCap * 2 : kFirstHeapRecs;
        uiCap = uiCap > uiNeed ? uiCap : uiNeed;
        void *pBlock = EngineAlloc(pstFrame->L, ChunkBytes(uiCap));
        if (pBlock == nullptr) {
            return false;
        }
        pstNext = static_cast<SysdtTapeChunk *>(pBlock);
        pstNext->pstRecs = reinterpret_cast<SysdtTapeRec *>(static_cast<char *>(pBlock) + kChunkHead);
        pstNext->uiCap = uiCap;
        pstNext->pstNext = pstCur->pstNext;
        pstCur->pstNext = pstNext;
        pstFrame->bHeap = true;
    }
    pstFrame->pstChunk = pstNext;
    pstFrame->pstNext = pstNext->pstRecs;
    pstFrame->pstLimit = pstNext->pstRecs + pstNext->uiCap;
    return true;
}

bool GrowSlots(SysdtCallFrame *pstFrame)
{
    int iCap = pstFrame->iSlotCap * 2;
    auto **ppstSlots = static_cast<SysdtTapeRec **>(EngineAlloc(pstFrame->L, iCap * sizeof(SysdtTapeRec *)));
    if (ppstSlots == nullptr) {
        return false;
    }
    std::memcpy(ppstSlots, pstFrame->ppstSlots, pstFrame->iSlotCap * sizeof(SysdtTapeRec *));
    if (pstFrame->ppstSlots != pstFrame->apstInlineSlots) {
        EngineFree(pstFrame->L, pstFrame->ppstSlots, pstFrame->iSlotCap * sizeof(SysdtTapeRec *));
    }
    pstFrame->ppstSlots = ppstSlots;
    pstFrame->iSlotCap = iCap;
    pstFrame->bHeap = true;
    return true;
}

/* Gives back every chunk and slot list the tape took from the engine (only a tape that was set up
 * took any), and leaves a new tape. */
void Release(SysdtCallFrame *pstFrame)
{
    if (pstFrame->bHeap) {
        SysdtTapeChunk *pstChunk = pstFrame->stInline.pstNext;
        while (pstChunk != nullptr) {
            SysdtTapeChunk *pstNext = pstChunk->pstNext;
            EngineFree(pstFrame->L, pstChunk, ChunkBytes(pstChunk->uiCap));
            pstChunk = pstNext;
        }
        if (pstFrame->ppstSlots != pstFrame->apstInlineSlots) {
            EngineFree(pstFrame->L, pstFrame->ppstSlots, pstFrame->iSlotCap * sizeof(SysdtTapeRec *));
        }
    }
    pstFrame->bHeap = false;
    pstFrame->bKeyWaiting = false;
    SysdtSpti_NewTape(pstFrame);
}

/* ---- running steps protected ---- */

struct SysdtJob {
    int (*pfWork)(lua_State *, void *);
    void *pCtx;
};

/* The one function the engine runs protected steps through: argument 1 is the job, the rest are
 * the step's own. */
int JobRunner(lua_State *L)
{
    auto *pstJob = static_cast<SysdtJob *>(lua_touserdata(L, 1));
    lua_remove(L, 1);
    return pstJob->pfWork(L, pstJob->pCtx);
}

#if LUA_VERSION_NUM < 502
char g_cRunnerKey;  /* its address is the registry key of the runner on engines that need one */
#endif
thread_local int tls_iProtectedSteps = 0;

/* Pushes the runner without allocating: engines from 5.2 on push a C function as a plain value;
 * older ones keep a closure made beforehand in the registry. false when there is none. */
bool PushRunner(lua_State *L)
{
#if LUA_VERSION_NUM >= 502
    lua_pushcfunction(L, JobRunner);
    return true;
#else
    SysdtLua_RegistryGetP(L, &g_cRunnerKey);
    if (lua_type(L, -1) == LUA_TFUNCTION) {
        return true;
    }
    lua_pop(L, 1);
    return false;
#endif
}

/* ---- replaying the tape ---- */

void PushInteger(lua_State *L, int64_t llValue)
{
    lua_pushinteger(L, static_cast<lua_Integer>(llValue));
}

/* t[key] = value for the table at iTable, raw: deferred tables are new and have no metatable. */
void RawSetInteger(lua_State *L, int iTable, uint32_t uiKey, int64_t llValue)
{
    PushInteger(L, llValue);
    if (uiKey <= kSysdtMaxRawKey) {
#if LUA_VERSION_NUM >= 503
        lua_rawseti(L, iTable, static_cast<lua_Integer>(uiKey));
#else
        lua_rawseti(L, iTable, static_cast<int>(uiKey));
#endif
        return;
    }
    PushInteger(L, uiKey);
    lua_insert(L, -2);
    lua_rawset(L, iTable);
}

/* Does what one record says; answers how many records it took. */
uint32_t Replay(lua_State *L, const SysdtTapeRec *pstRec)
{
    const char *pcText = reinterpret_cast<const char *>(pstRec + 1);
    switch (pstRec->ucOp) {
        case SYSDT_TAPE_INT: PushInteger(L, pstRec->llValue); return 1;
        case SYSDT_TAPE_NIL: lua_pushnil(L); return 1;
        case SYSDT_TAPE_STR: lua_pushlstring(L, pcText, pstRec->uiArg); return 1 + SysdtSpti_TextRecs(pstRec->uiArg);
        case SYSDT_TAPE_TABLE:
            lua_createtable(L, static_cast<int>(pstRec->uiArg), static_cast<int>(pstRec->llValue));
            return 1;
        case SYSDT_TAPE_SET: lua_rawset(L, static_cast<int>(pstRec->uiArg)); return 1;
        case SYSDT_TAPE_SETI: RawSetInteger(L, pstRec->usTable, pstRec->uiArg, pstRec->llValue); return 1;
        case SYSDT_TAPE_SETFIELD: lua_setfield(L, static_cast<int>(pstRec->uiArg), pstRec->pcName); return 1;
        case SYSDT_TAPE_SETFIELDU:
            PushInteger(L, pstRec->uiArg);
            lua_setfield(L, pstRec->usTable, pstRec->pcName);
            return 1;
        default: lua_pop(L, static_cast<int>(pstRec->uiArg)); return 1;
    }
}

/* The protected step that makes every deferred value, in order, on the runner's own stack; they
 * become its results. */
int ReplayWork(lua_State *L, void *pCtx)
{
    auto *pstFrame = static_cast<SysdtCallFrame *>(pCtx);
    if (lua_checkstack(L, pstFrame->iSlotCap + 2 * kSysdtReserve) == 0) {
        return luaL_error(L, "%s", kStackOverflow);
    }
    pstFrame->stInline.pstRecs = pstFrame->astInlineRecs;
    pstFrame->pstChunk->uiUsed = static_cast<uint32_t>(pstFrame->pstNext - SysdtSpti_ChunkStart(pstFrame));
    for (const SysdtTapeChunk *pstChunk = &pstFrame->stInline;; pstChunk = pstChunk->pstNext) {
        const SysdtTapeRec *pstEnd = pstChunk->pstRecs + pstChunk->uiUsed;
        for (const SysdtTapeRec *pstRec = pstChunk->pstRecs; pstRec < pstEnd;) {
            pstRec += Replay(L, pstRec);
        }
        if (pstChunk == pstFrame->pstChunk) {
            break;
        }
    }
    return lua_gettop(L);
}

[[maybe_unused]] int GrowWork(lua_State *L, void *pCtx)
{
    if (lua_checkstack(L, *static_cast<int *>(pCtx)) == 0) {
        return luaL_error(L, "%s", kStackOverflow);
    }
    return 0;
}

/* The deferred values are on the engine's stack now; their tape is forgotten. */
void BecameReal(SysdtCallFrame *pstFrame)
{
    pstFrame->iBase = pstFrame->iTop;
    pstFrame->iTopType = LUA_TNONE;
    pstFrame->bTopRead = false;
    SysdtSpti_ClearTape(pstFrame);
}

}  // namespace

void SysdtSpti_Fail(SysdtCallFrame *pstFrame, const char *pcWhy)
{
    pstFrame->bFailed = true;
    pstFrame->bKeyWaiting = false;
    pstFrame->pcFailWhy = pcWhy;
    pstFrame->iErrorAt = pcWhy == nullptr ? lua_gettop(pstFrame->L) : 0;
    pstFrame->bSimpleTape = false;
    pstFrame->pstNext = nullptr;                        /* every later step takes the general path */
    pstFrame->pstLimit = nullptr;
    pstFrame->iTopType = LUA_TNONE;
    pstFrame->bTopRead = false;
    pstFrame->iPlainTable = 0;
}

SysdtTapeRec *SysdtSpti_Append(SysdtCallFrame *pstFrame, uint8_t ucOp, uint32_t uiExtra, bool bValue)
{
    SysdtSpti_SpillKey(pstFrame);
    SysdtSpti_OpenTape(pstFrame);
    SysdtTapeRec *pstRec = nullptr;
    int iSlot = SysdtSpti_Deferred(pstFrame);
    if (!pstFrame->bFailed) {
        bool bSlot = !bValue || iSlot < pstFrame->iSlotCap || GrowSlots(pstFrame);
        bool bRoom = pstFrame->pstLimit - pstFrame->pstNext > static_cast<ptrdiff_t>(uiExtra) ||
                     NextChunk(pstFrame, 1 + uiExtra);
        if (!bSlot || !bRoom) {
            SysdtSpti_Fail(pstFrame, kNoMemory);
        } else {
            pstRec = pstFrame->pstNext;
            pstFrame->pstNext += 1 + uiExtra;
            *pstRec = SysdtTapeRec{ucOp, 0, 0, 0, 0};
            pstFrame->bSimpleTape = pstFrame->bSimpleTape && (ucOp == SYSDT_TAPE_INT || ucOp == SYSDT_TAPE_NIL);
        }
    }
    if (bValue) {
        if (pstRec != nullptr) {
            pstFrame->ppstSlots[iSlot] = pstRec;
        }
        SysdtSpti_Moved(pstFrame, 1, SysdtSpti_TypeOfOp(ucOp));
    }
    return pstRec;
}

/* Numbers and nils popped from the end of the tape just take their records back; anything else is
 * popped when the tape is replayed. */
void SysdtSpti_PopDeferred(SysdtCallFrame *pstFrame, int iCount)
{
    int iDeferred = SysdtSpti_Deferred(pstFrame);
    SysdtSpti_Moved(pstFrame, -iCount, LUA_TNONE);
    if (iCount == iDeferred) {
        SysdtSpti_ClearTape(pstFrame);
        return;
    }
    SysdtTapeRec *pstFirst = pstFrame->pstNext - iCount;
    bool bAtEnd = pstFirst >= SysdtSpti_ChunkStart(pstFrame);
    for (int i = 0; bAtEnd && i < iCount; i++) {
        const SysdtTapeRec *pstRec = pstFrame->ppstSlots[iDeferred - iCount + i];
        bAtEnd = pstRec == pstFirst + i && (pstRec->ucOp == SYSDT_TAPE_INT || pstRec->ucOp == SYSDT_TAPE_NIL);
    }
    if (bAtEnd) {
        pstFrame->pstNext = pstFirst;
        return;
    }
    SysdtTapeRec *pstRec = SysdtSpti_Append(pstFrame, SYSDT_TAPE_POP, 0, false);
    if (pstRec != nullptr) {
        pstRec->uiArg = static_cast<uint32_t>(iCount);
    }
}

/* The store of the two top deferred values into a deferred table, recorded. */
void SysdtSpti_DeferSet(SysdtCallFrame *pstFrame, int iTable)
{
    if (iTable == pstFrame->iTop - 2 && SysdtSpti_FuseSet(pstFrame)) {
        return;
    }
    int iRelTable = iTable - pstFrame->iBase;
    SysdtSpti_Moved(pstFrame, -2, LUA_TNONE);
    SysdtTapeRec *pstRec = SysdtSpti_Append(pstFrame, SYSDT_TAPE_SET, 0, false);
    if (pstRec != nullptr) {
        pstRec->uiArg = static_cast<uint32_t>(iRelTable);
    }
}

bool SysdtSpti_Protected(SysdtCallFrame *pstFrame, int (*pfWork)(lua_State *, void *), void *pCtx, int iArgs,
                         int iResults)
{
    lua_State *L = pstFrame->L;
    SysdtJob stJob{pfWork, pCtx};
    pstFrame->iTypedArgs = 0;                           /* script code can replace an argument (debug.setlocal) */
    if (!PushRunner(L)) {
        lua_pop(L, iArgs);
        SysdtSpti_Fail(pstFrame, "script stack: the engine was not prepared for script functions");
        return false;
    }
    lua_pushlightuserdata(L, &stJob);
    lua_insert(L, -(iArgs + 2));
    lua_insert(L, -(iArgs + 2));
    tls_iProtectedSteps++;
    int iStatus = lua_pcall(L, iArgs + 1, iResults, 0);
    tls_iProtectedSteps--;
    if (iStatus != LUA_OK) {
        SysdtSpti_Fail(pstFrame, nullptr);
        return false;
    }
    return true;
}

bool SysdtSpti_InProtectedStep()
{
    return tls_iProtectedSteps != 0;
}

bool SysdtSpti_RoomFor(SysdtCallFrame *pstFrame, int iNeed)
{
    if (pstFrame->iBase + iNeed + kSysdtReserve <= pstFrame->iRoom) {
        return true;
    }
    if (pstFrame->bFailed) {
        return false;
    }
    int iGrow = iNeed + 4 * kSysdtReserve;
#if LUA_VERSION_NUM < 503
    /* lua_checkstack raises on these engines when memory runs out: the stack grows inside a
     * protected step first, and the frame's own check then finds the room there. */
    int iGrowTo = iGrow + kSysdtReserve;
    if (!SysdtSpti_Protected(pstFrame, GrowWork, &iGrowTo, 0, 0)) {
        return false;
    }
#endif
    if (lua_checkstack(pstFrame->L, iGrow) == 0) {
        SysdtSpti_Fail(pstFrame, kStackOverflow);
        return false;
    }
    pstFrame->iRoom = pstFrame->iBase + iGrow;
    return true;
}

bool SysdtSpti_Materialize(SysdtCallFrame *pstFrame)
{
    SysdtSpti_SpillKey(pstFrame);
    if (pstFrame->bFailed) {
        return false;
    }
    int iDeferred = SysdtSpti_Deferred(pstFrame);
    if (iDeferred == 0) {
        return true;
    }
    if (SysdtSpti_SimpleResults(pstFrame)) {
        SysdtSpti_PushSimple(pstFrame);
        BecameReal(pstFrame);
        return true;
    }
    if (!SysdtSpti_Protected(pstFrame, ReplayWork, pstFrame, 0, LUA_MULTRET)) {
        return false;
    }
    BecameReal(pstFrame);
    /* The replay grew the engine's stack past these values: claiming room above them allocates nothing. */
    if (lua_checkstack(pstFrame->L, kSysdtReserve) == 0) {
        SysdtSpti_Fail(pstFrame, kStackOverflow);
        return false;
    }
    pstFrame->iRoom = pstFrame->iBase + kSysdtReserve;
    return true;
}

bool SysdtSpti_Deliver(SysdtCallFrame *pstFrame)
{
    bool bOk = SysdtSpti_Materialize(pstFrame);
    Release(pstFrame);
    return bOk;
}

void SysdtSpti_Drop(SysdtCallFrame *pstFrame, int iKeep)
{
    Release(pstFrame);
    lua_settop(pstFrame->L, iKeep);
}

void SysdtSpti_RaiseFailure(SysdtCallFrame *pstFrame)
{
    lua_State *L = pstFrame->L;
    if (pstFrame->iErrorAt != 0) {
        lua_settop(L, pstFrame->iErrorAt);
    } else {
        lua_pushstring(L, pstFrame->pcFailWhy);
    }
    lua_error(L);
    __builtin_unreachable();
}

void SysdtSpti_PrepareEngine(lua_State *L)
{
#if LUA_VERSION_NUM < 502
    luaL_checkstack(L, 2, "script stack overflow");
    SysdtLua_RegistryGetP(L, &g_cRunnerKey);
    bool bHave = lua_type(L, -1) == LUA_TFUNCTION;
    lua_pop(L, 1);
    if (!bHave) {
        lua_pushcfunction(L, JobRunner);
        SysdtLua_RegistrySetP(L, &g_cRunnerKey);
    }
#else
    (void)L;
#endif
}
