/* The fuzzing host: a Lua state with the module and the cfgdb binding loaded from the build, a
 * database seeded with realistic rows, and one checked call of a script function at a time.
 * Every call is made through pcall; what it must satisfy: no Lua error, results in one of the
 * shapes the calling conventions allow for that function (with or without a bound database),
 * every message text ending in its zero byte, no assertion, and no live block of the database
 * object's memory left after it. Uses only Lua C API functions that every engine has. */
#ifndef VLANLUA_FUZZ_HOST_H
#define VLANLUA_FUZZ_HOST_H

#include <cstdint>
#include <set>
#include <string>

extern "C" {
#include <lua.h>
}

#include "vlanlua_fuzz_args.h"

/* One script function: its argument template and the result shapes it may answer, '|' between
 * shapes, one letter per result: 0 and 1 those numbers, c a result code (integer >= 0), n an
 * integer in 0..2^32-1, i any integer, ? an integer or nil, z nil, s a text ending in a zero
 * byte, t a table. */
struct VlanFuzzFunc {
    const char *pcName;
    const char *pcArgs;
    const char *pcNoDb;     /* shapes without a bound database */
    const char *pcDb;       /* shapes with one */
};

constexpr uint32_t VLANFUZZ_FUNC_NUM = 18;
extern const VlanFuzzFunc g_astVlanFuzzFuncs[VLANFUZZ_FUNC_NUM];
/* Index of the function in g_astVlanFuzzFuncs, or VLANFUZZ_FUNC_NUM. */
uint32_t VlanFuzz_FindFunc(const char *pcName);

class VlanFuzzHost {
public:
    VlanFuzzHost() = default;
    VlanFuzzHost(const VlanFuzzHost &) = delete;
    VlanFuzzHost &operator=(const VlanFuzzHost &) = delete;
    ~VlanFuzzHost() { Close(); }

    /* Loads libvlanluaext and cfgdb from pcLuaDir and runs the seed script, which opens a
     * database, fills it and binds it as the global db. False with the reason in *pstrErr. */
    bool Open(const char *pcLuaDir, const char *pcSeedScript, std::string *pstrErr);
    void Close();

    /* An episode: a run of calls, on the seeded rows when bFresh (otherwise on what the calls
     * before left), without a database bound to the state when bBound is false.
     * Returns "" or what went wrong. */
    std::string BeginEpisode(bool bBound, bool bFresh);
    void EndEpisode();

    /* One call of function uiFunc with arguments from src (bStrict: see VlanFuzz_PushArgs); when
     * bFaults, one call in eight has an allocation or database call made to fail. Returns ""
     * or a description of what was wrong, with the arguments. */
    std::string Call(uint32_t uiFunc, VlanFuzzSource &src, bool bStrict, bool bFaults);

    uint64_t Calls() const { return m_ulCalls; }

private:
    std::string CheckAfter(uint32_t uiFunc, int iResBase);
    std::string CheckUserVlanRows();
    std::string Reseed();
    std::string RestoreSeed();
    void NoteWrites();
    void NoteTaint(uint32_t uiFunc, int iArgBase, int iArgNum, bool bFault);

    lua_State *L = nullptr;
    std::string m_strSeedScript;
    void *m_pObj = nullptr;
    int m_iLibRef = 0;
    bool m_bBound = true;
    bool m_bTrace = false;      /* VLANFUZZ_TRACE set: every call and its results go to stderr */
    uint64_t m_ulAsserts = 0;
    uint64_t m_ulCalls = 0;
    const uint32_t m_uiSetSvcFunc = VlanFuzz_FindFunc("VLAN_spt_SetUserVlanQinQSvc");
    std::set<uint64_t> m_setTainted;   /* interfaces left out of the overlap check */
    std::set<uint32_t> m_setWritten;   /* tables the calls wrote to since the seed */
};

#endif
