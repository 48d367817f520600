/* The general paths of the stack operations on a call's frame: steps the short paths do not
 * serve, among them every step that asks the engine for more than a read (run protected) and the
 * answers of a frame whose step failed. Uses only the public Lua C API. */
#include "sysdt_spti_frame.h"

#include <cstring>

bool SysdtSpti_LearnPlainTable(SysdtCallFrame *pstFrame, int iPos)
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

namespace {

/* A failed frame only counts: the engine's stack keeps the failure's error value on top. */
void FailedPop(SysdtCallFrame *pstFrame, int iCount)
{
    int iTop = pstFrame->iTop > iCount ? pstFrame->iTop - iCount : 0;
    SysdtSpti_Moved(pstFrame, iTop - pstFrame->iTop, LUA_TNONE);
    pstFrame->iBase = pstFrame->iBase > iTop ? iTop : pstFrame->iBase;
    SysdtSpti_BaseLowered(pstFrame);
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

/* Stores into a real table (its metamethods may run script code): every value real first, then
 * the store runs protected. */
void FramedStoreReal(SysdtCallFrame *pstFrame, int iAbs, const char *pcName)
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
    SysdtSpti_BaseLowered(pstFrame);
}

}  // namespace

int SysdtSpti_TypeAt(const SysdtCallFrame *pstFrame, int iAbs)
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

const SysdtTapeRec *SysdtSpti_DeferredAt(const SysdtCallFrame *pstFrame, int iAbs)
{
    return (iAbs > pstFrame->iBase && !pstFrame->bFailed) ? SysdtSpti_SlotRec(pstFrame, iAbs) : nullptr;
}

void SysdtSpti_GetTableGeneral(SysdtCallFrame *pstFrame, int32_t iPos)
{
    int iAbs = SysdtSpti_AbsPos(pstFrame->iTop, iPos);
    if (pstFrame->bFailed || pstFrame->iTop < 1 || iAbs == 0 || !SysdtSpti_Materialize(pstFrame)) {
        return;                                          /* a failed frame's top reads as nil */
    }
    lua_State *L = pstFrame->L;
    if (pstFrame->iPlainTable == iAbs || SysdtSpti_LearnPlainTable(pstFrame, iAbs)) {
        SysdtSpti_TopReplaced(pstFrame);
        lua_rawget(L, iAbs);
        SysdtSpti_NoteFetched(pstFrame, lua_type(L, -1));
        return;
    }
    lua_pushvalue(L, iAbs);
    lua_pushvalue(L, -2);
    pstFrame->iPlainTable = 0;                          /* a metamethod may run script code */
    if (SysdtSpti_Protected(pstFrame, GetWork, nullptr, 2, 1)) {
        lua_remove(L, -2);
        SysdtSpti_NoteFetched(pstFrame, lua_type(L, -1));
    }
}

void SysdtSpti_PopGeneral(SysdtCallFrame *pstFrame, int32_t iCount)
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
        SysdtSpti_BaseLowered(pstFrame);
    }
}

void SysdtSpti_SetTableGeneral(SysdtCallFrame *pstFrame, int32_t iPos)
{
    int iAbs = SysdtSpti_AbsPos(pstFrame->iTop, iPos);
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

void SysdtSpti_SetFieldGeneral(SysdtCallFrame *pstFrame, int32_t iPos, const char *pcName)
{
    int iAbs = SysdtSpti_AbsPos(pstFrame->iTop, iPos);
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

void SysdtSpti_PushTextGeneral(SysdtCallFrame *pstFrame, const char *pcText, uint32_t uiLen)
{
    SysdtTapeRec *pstRec = SysdtSpti_Append(pstFrame, SYSDT_TAPE_STR, SysdtSpti_TextRecs(uiLen), true);
    if (pstRec != nullptr) {
        pstRec->uiArg = uiLen;
        auto *pcCopy = reinterpret_cast<char *>(pstRec + 1);
        std::memcpy(pcCopy, pcText, uiLen);
        pcCopy[uiLen] = '\0';
    }
}

