/* The shape every script function shares, written once: the per-call frame (message buffer
 * and context on the caller's stack), table-driven argument readers and result pushes.
 * Uses only the platform's names. */
#ifndef VLANLUA_API_FRAME_H
#define VLANLUA_API_FRAME_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "sec_bound.h"
#include "sysdt_spti.h"
#include "vlanlua_pub.h"

/* Lives in the script function's own frame; cleared whole at the start of every call. */
struct VlanLuaFrame {
    void *pState;
    VLANLUA_LOG_S stLog;
    VLANLUA_CTX_S stCtx;

    /* Clears the buffer, points the context at it and looks up the call's database object. */
    explicit VlanLuaFrame(void *pScriptState);
    /* The same without a database object (script functions that use none). Inline: it is on
     * the path of every call and is no more than the clear. */
    VlanLuaFrame(void *pScriptState, std::nullptr_t) : pState(pScriptState)
    {
        (void)memset_s(&stLog, sizeof(stLog), 0, sizeof(stLog));
        stCtx.pstLog = &stLog;
        stCtx.pObj = nullptr;
    }
    VlanLuaFrame(const VlanLuaFrame &) = delete;
    VlanLuaFrame &operator=(const VlanLuaFrame &) = delete;

    bool HasDb() const { return stCtx.pObj != nullptr; }
    VLANLUA_CTX_S *Ctx() { return &stCtx; }
    int32_t ArgCount() const { return SYSDT_SPTI_GetTop(pState); }

    /* Pushes, in the order of the result convention. */
    void PushCode(uint32_t uiCode) const { SYSDT_SPTI_PushUInt(pState, uiCode); }
    void PushUInt(uint32_t uiValue) const { SYSDT_SPTI_PushUInt(pState, uiValue); }
    void PushNil() const { SYSDT_SPTI_PushNil(pState); }
    /* The message text, pushed with its used length + 1 (the terminating zero counted). */
    void PushText() const { SYSDT_SPTI_PushString(pState, stLog.acText, stLog.usUsedLen + 1u); }
};

/* How one script argument is checked and where it lands in the request record. */
enum class VlanLuaArgKind : uint8_t { Number, Bool };

struct VlanLuaArgRule {
    VlanLuaArgKind eKind;
    uint16_t usOffset;          /* place of the receiving field in the request record */
    uint8_t ucWidth;            /* 1, 2 or 4: the number keeps its low bits of that width */
    const char *pcTypeMsg;      /* appended when the type test fails; null appends nothing */
};

#define VLANLUA_ARG(kind, Rec, field, msg) \
    VlanLuaArgRule{(kind), static_cast<uint16_t>(offsetof(Rec, field)), \
                   static_cast<uint8_t>(sizeof(static_cast<Rec *>(nullptr)->field)), (msg)}
#define VLANLUA_ARG_NUM(Rec, field, msg)  VLANLUA_ARG(VlanLuaArgKind::Number, Rec, field, msg)
#define VLANLUA_ARG_BOOL(Rec, field, msg) VLANLUA_ARG(VlanLuaArgKind::Bool, Rec, field, msg)

/* Checks and reads the arguments at positions 1..rules.size() in ascending order, each read
 * as soon as its type test passes. Returns 0, or 1 at the first argument of the wrong type
 * after appending that argument's message (none with a null buffer). The count is not tested here. */
uint32_t VlanLua_ReadArgs(void *pState, VLANLUA_LOG_S *pstLog, std::span<const VlanLuaArgRule> rules,
                          void *pRecord);
inline uint32_t VlanLua_ReadArgs(VlanLuaFrame &frame, std::span<const VlanLuaArgRule> rules, void *pRecord)
{
    return VlanLua_ReadArgs(frame.pState, &frame.stLog, rules, pRecord);
}

/* Reads elements 1..n of the table at iPos (n = its element count) into out[0..n-1] with
 * SYSDT_SPTI_ToUInt; the caller has checked that n fits. Returns n. */
uint32_t VlanLua_ReadTable(void *pState, int32_t iPos, std::span<uint32_t> out);

/* Stores the value into a field of uiWidth bytes (1, 2 or 4), keeping its low bits. */
void VlanLua_StoreNarrow(void *pField, uint32_t uiWidth, uint32_t uiValue);

/* Array element out[key] = value of a result table on top of the stack. */
void VlanLua_SetArrayUInt(void *pState, uint32_t uiKey, uint32_t uiValue);
void VlanLua_SetFieldUInt(void *pState, const char *pcName, uint32_t uiValue);

#endif
