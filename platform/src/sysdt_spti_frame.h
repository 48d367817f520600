/* The frame of a script call: what the script stack knows about the engine's stack while a script
 * function runs, so that its operations check positions and ensure room without asking the engine.
 * Private to the script stack's files; uses only the public Lua C API.
 *
 * A script function receives its frame's address with the low bit set; an engine's own state
 * pointer (always aligned) handed in by a host, a test or another module is a bare state, served by
 * asking the engine. Every operation on a frame keeps it exact by the operation's documented
 * effect on the stack.
 *
 * The numbers PushUInt pushes (up to two) stay in the frame until an operation needs them on the
 * engine's stack. On a table without a metatable, GetTable then reads the element under a waiting
 * key raw and SetTable stores a waiting value under a waiting key raw: what the engine would do
 * through a metatable too, without pushing the key. */
#ifndef SYSDT_SPTI_FRAME_H
#define SYSDT_SPTI_FRAME_H

#include <cstdint>

#include "sysdt_lua.h"

struct SysdtCallFrame {
    lua_State *L;
    int iTop;              /* number of values on the stack */
    int iRoom;             /* positions up to here exist in the stack */
    int iTopType;          /* type of the value at iTop, or LUA_TNONE when not known */
    bool bTopRead;         /* the value at iTop is a number and uiTopValue is what ToUInt answers */
    int iPending;          /* 0..2: the top values are these integers, not pushed yet */
    uint32_t auiPending[2];
    uint32_t uiTopValue;
    int iPlainTable;       /* a table without a metatable is at this position; 0 when not known */
};

constexpr uintptr_t kSysdtFrameTag = 1;

inline SysdtCallFrame SysdtSpti_NewFrame(lua_State *L, int iTop, int iRoom)
{
    return SysdtCallFrame{L, iTop, iRoom, LUA_TNONE, false, 0, {0, 0}, 0, 0};
}

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

/* Pushes the numbers PushUInt left in the frame (their room was made then). */
[[gnu::noinline]] inline void SysdtSpti_PushPending(SysdtCallFrame *pstFrame)
{
    for (int i = 0; i < pstFrame->iPending; i++) {
        lua_pushinteger(pstFrame->L, static_cast<lua_Integer>(pstFrame->auiPending[i]));
    }
    pstFrame->iPending = 0;
}

/* After the stack changed by iDelta values; iTopType is the new top's type when known. */
inline void SysdtSpti_Moved(SysdtCallFrame *pstFrame, int iDelta, int iTopType)
{
    pstFrame->iTop += iDelta;
    pstFrame->iTopType = iTopType;
    pstFrame->bTopRead = false;
}

/* The frame behind any handle, for the general path of an operation: a call's own, or one read
 * from the engine for a bare state. Lua guarantees LUA_MINSTACK free slots above the top of
 * a fresh state and of every C call. */
class SysdtStack {
public:
    explicit SysdtStack(void *pState)
    {
        m_pstFrame = SysdtSpti_FrameOf(pState);
        if (m_pstFrame != nullptr) {
            if (m_pstFrame->iPending != 0) {
                SysdtSpti_PushPending(m_pstFrame);
            }
            m_pstFrame->iPlainTable = 0;                /* the operation may run script code */
            return;
        }
        lua_State *L = static_cast<lua_State *>(pState);
        int iTop = lua_gettop(L);
        m_stBare = SysdtSpti_NewFrame(L, iTop, iTop < LUA_MINSTACK ? LUA_MINSTACK : iTop);
        m_pstFrame = &m_stBare;
    }
    SysdtStack(const SysdtStack &) = delete;
    SysdtStack &operator=(const SysdtStack &) = delete;

    lua_State *L() const { return m_pstFrame->L; }
    int Top() const { return m_pstFrame->iTop; }
    SysdtCallFrame *Frame() const { return m_pstFrame; }

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

    void Moved(int iDelta, int iTopType) { SysdtSpti_Moved(m_pstFrame, iDelta, iTopType); }

private:
    [[gnu::noinline]] void Grow()
    {
        constexpr int kGrowStep = 64;
        if (lua_checkstack(m_pstFrame->L, kGrowStep) == 0) {
            luaL_error(m_pstFrame->L, "stack overflow (script stack overflow)");
        }
        m_pstFrame->iRoom = m_pstFrame->iTop + kGrowStep;
    }

    SysdtCallFrame *m_pstFrame;
    SysdtCallFrame m_stBare;
};

#endif
