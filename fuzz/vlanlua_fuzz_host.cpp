/* The fuzzing host: loads the module and cfgdb into a Lua state, seeds a database, and makes
 * one checked call at a time. Uses only Lua C API functions that every engine has. */
#include "vlanlua_fuzz_host.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <vector>

extern "C" {
#include <lauxlib.h>
#include <lualib.h>
}

#include "ecm_capi.h"
#include "ecm_ctl.h"
#include "mox_ctl.h"
#include "vlanlua_tables.h"

/* The eighteen script functions: argument templates and the result shapes of each outcome. */
const VlanFuzzFunc g_astVlanFuzzFuncs[VLANFUZZ_FUNC_NUM] = {
    {"VLAN_spt_CheckL2SuppExist", "i", "1", "1|0nz"},
    {"VLAN_spt_CheckPwSuppExist", "i", "1", "1|0nz"},
    {"VLAN_spt_GetMainifBySubif", "i", "1", "1|cn"},
    {"VLAN_spt_Merg2BitMap", "BB", "1|0t", "1|0t"},
    {"VLAN_spt_And2BitMap", "BB", "1|0t", "1|0t"},
    {"VLAN_spt_GetFirstFreeValue", "B", "1|0n", "1|0n"},
    {"VLAN_spt_CrtCtrlVidBitMap", "nvr", "1", "c"},
    {"VLAN_spt_UpdataCtrlVidBitMap", "nvrv", "1", "c"},
    {"VLAN_spt_QinQMatchMerge", "Q", "1", "1|cn"},
    {"VLAN_spt_Dot1QMatchMerge", "D", "1", "c"},
    {"VLAN_spt_UserVlanMibQuery", "ivvrnq", "1zs", "czs|0ts"},
    {"VLAN_spt_UserVlanDot1qExist", "ivr", "1s", "cs"},
    {"VLAN_spt_UserVlanQinqExist", "ivvr", "1s", "cs"},
    {"VLAN_spt_SetUserVlanQinQSvc", "US", "1zszz", "1zszz|11szz|0?s??"},
    {"VLAN_spt_CmdParaCheck", "ss", "1s|0z|1z", "1s|0z|1z"},
    {"VLAN_spt_GetNextQinQMibQuery", "ivvrn", "1z", "1z|0t"},
    {"VLAN_spt_UpdataQinQIfSpec", "inrb", "1", "1|0n"},
    {"VLAN_spt_CheckVlanUsdByPort", "vrnn", "1", "cs"},
};

namespace {

constexpr uint32_t kUserVlanSegTable = VLANLUA_TBL_UVLAN_QINQ_SEG;

bool IsInteger(lua_State *L, int iPos, double dMin, double dMax)
{
    if (lua_type(L, iPos) != LUA_TNUMBER) {
        return false;
    }
    double d = static_cast<double>(lua_tonumber(L, iPos));
    return d == std::floor(d) && d >= dMin && d <= dMax;
}

/* Whether the value at iPos fits one letter of a result shape. */
bool FitsLetter(lua_State *L, int iPos, char cLetter)
{
    switch (cLetter) {
        case '0': return IsInteger(L, iPos, 0, 0);
        case '1': return IsInteger(L, iPos, 1, 1);
        case 'c': return IsInteger(L, iPos, 0, 4294967295.0);
        case 'n': return IsInteger(L, iPos, 0, 4294967295.0);
        case 'i': return IsInteger(L, iPos, -2147483648.0, 4294967295.0);
        case '?': return lua_type(L, iPos) == LUA_TNIL || IsInteger(L, iPos, -2147483648.0, 4294967295.0);
        case 'z': return lua_type(L, iPos) == LUA_TNIL;
        case 't': return lua_type(L, iPos) == LUA_TTABLE;
        case 's': {
            if (lua_type(L, iPos) != LUA_TSTRING) {
                return false;
            }
            size_t ulLen = 0;
            const char *pcText = lua_tolstring(L, iPos, &ulLen);
            return ulLen >= 1 && pcText[ulLen - 1] == '\0';
        }
        default: return false;
    }
}

/* True when the iNum results from iBase on match one of the '|'-separated shapes. */
bool FitsShapes(lua_State *L, int iBase, int iNum, const char *pcShapes)
{
    for (const char *pcShape = pcShapes; pcShape != nullptr;) {
        const char *pcEnd = std::strchr(pcShape, '|');
        int iLen = static_cast<int>(pcEnd != nullptr ? pcEnd - pcShape : std::strlen(pcShape));
        bool bFits = iLen == iNum;
        for (int i = 0; bFits && i < iNum; i++) {
            bFits = FitsLetter(L, iBase + i, pcShape[i]);
        }
        if (bFits) {
            return true;
        }
        pcShape = pcEnd != nullptr ? pcEnd + 1 : nullptr;
    }
    return false;
}

/* A short readable form of the value at iPos, for reports. */
std::string Render(lua_State *L, int iPos, int iDepth)
{
    char acBuf[64];
    switch (lua_type(L, iPos)) {
        case LUA_TNIL: return "nil";
        case LUA_TBOOLEAN: return lua_toboolean(L, iPos) ? "true" : "false";
        case LUA_TNUMBER:
            std::snprintf(acBuf, sizeof(acBuf), "%.17g", static_cast<double>(lua_tonumber(L, iPos)));
            return acBuf;
        case LUA_TSTRING: {
            size_t ulLen = 0;
            const char *pcText = lua_tolstring(L, iPos, &ulLen);
            std::string str = "\"";
            for (size_t i = 0; i < ulLen && i < 24; i++) {
                unsigned char c = static_cast<unsigned char>(pcText[i]);
                std::snprintf(acBuf, sizeof(acBuf), c >= 32 && c < 127 && c != '"' && c != '\\' ? "%c" : "\\%u", c);
                str += acBuf;
            }
            std::snprintf(acBuf, sizeof(acBuf), "\"%s(%zu bytes)", ulLen > 24 ? "..." : "", ulLen);
            return str + acBuf;
        }
        case LUA_TTABLE: {
            if (iDepth > 1) {
                return "{...}";
            }
            std::string str = "{";
            int iShown = 0;
            int iAbs = iPos > 0 ? iPos : lua_gettop(L) + 1 + iPos;
            lua_pushnil(L);
            while (lua_next(L, iAbs) != 0) {
                if (iShown++ < 12) {
                    /* appended, not chained with +: a literal before a temporary draws a false -Wrestrict at -O3 */
                    str.append("[").append(Render(L, -2, iDepth + 1)).append("]=");
                    str.append(Render(L, -1, iDepth + 1)).append(",");
                }
                lua_pop(L, 1);
            }
            std::snprintf(acBuf, sizeof(acBuf), "}(%d entries)", iShown);
            return str + acBuf;
        }
        default: return lua_typename(L, lua_type(L, iPos));
    }
}

std::string RenderRange(lua_State *L, int iBase, int iNum)
{
    std::string str = "(";
    for (int i = 0; i < iNum; i++) {
        str += (i != 0 ? ", " : "") + Render(L, iBase + i, 0);
    }
    return str + ")";
}

/* The number the module reads from the value at iPos: integral part, low 32 bits; 0 for what
 * is not a number or has no 64-bit integral part. */
uint32_t ScriptUInt(lua_State *L, int iPos)
{
    if (lua_type(L, iPos) != LUA_TNUMBER) {
        return 0;
    }
    double d = static_cast<double>(lua_tonumber(L, iPos));
    if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0)) {
        return 0;
    }
    return static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(std::trunc(d))));
}

uint32_t ElementUInt(lua_State *L, int iTable, int iKey)
{
    lua_rawgeti(L, iTable, iKey);
    uint32_t uiValue = ScriptUInt(L, -1);
    lua_pop(L, 1);
    return uiValue;
}

/* Whether a SetUserVlanQinQSvc request names its rectangle as its callers must: VLAN IDs 1 to
 * 4094, begin <= end. Others are not validated by the module, and their rows may overlap. */
bool IsValidRectangle(lua_State *L, int iTable)
{
    uint16_t ausVlan[4];
    for (int i = 0; i < 4; i++) {
        ausVlan[i] = static_cast<uint16_t>(ElementUInt(L, iTable, 2 + i));
        if (ausVlan[i] < 1 || ausVlan[i] > 4094) {
            return false;
        }
    }
    return ausVlan[0] <= ausVlan[1] && ausVlan[2] <= ausVlan[3];
}

struct SegRow {
    uint64_t ulIf, ulVr, ulPeb, ulPee, ulCeb, ulCee;
};

void CollectSeg(void *pCtx, const ECM_CTL_VAL_S *pstFields, uint32_t uiNum)
{
    uint64_t aulBy[16] = {};
    for (uint32_t i = 0; i < uiNum; i++) {
        if (pstFields[i].uiFieldNo < 16) {
            aulBy[pstFields[i].uiFieldNo] = pstFields[i].ulNum;
        }
    }
    static_cast<std::vector<SegRow> *>(pCtx)->push_back(SegRow{aulBy[1], aulBy[4], aulBy[7], aulBy[8], aulBy[5], aulBy[6]});
}

/* Rows with a range given backwards (the module does not validate VLAN values) take no part. */
bool Overlap(const SegRow &a, const SegRow &b)
{
    if (a.ulPeb > a.ulPee || a.ulCeb > a.ulCee || b.ulPeb > b.ulPee || b.ulCeb > b.ulCee) {
        return false;
    }
    return a.ulIf == b.ulIf && a.ulPeb <= b.ulPee && b.ulPeb <= a.ulPee && a.ulCeb <= b.ulCee && b.ulCeb <= a.ulCee;
}

}  // namespace

uint32_t VlanFuzz_FindFunc(const char *pcName)
{
    for (uint32_t i = 0; i < VLANFUZZ_FUNC_NUM; i++) {
        if (std::strcmp(g_astVlanFuzzFuncs[i].pcName, pcName) == 0) {
            return i;
        }
    }
    return VLANFUZZ_FUNC_NUM;
}

/* ---- lifetime ---- */

bool VlanFuzzHost::Open(const char *pcLuaDir, const char *pcSeedScript, std::string *pstrErr)
{
    L = luaL_newstate();
    luaL_openlibs(L);
    m_strSeedScript = pcSeedScript;
    m_bTrace = std::getenv("VLANFUZZ_TRACE") != nullptr;
    std::string strPath = std::string("package.cpath = '") + pcLuaDir + "/?.so;' .. package.cpath";
    if (luaL_dostring(L, strPath.c_str()) != 0) {
        *pstrErr = lua_tostring(L, -1);
        Close();
        return false;
    }
    *pstrErr = Reseed();
    if (!pstrErr->empty()) {
        Close();
        return false;
    }
    lua_getglobal(L, "libvlanluaext");
    m_iLibRef = luaL_ref(L, LUA_REGISTRYINDEX);
    return true;
}

void VlanFuzzHost::Close()
{
    if (L == nullptr) {
        return;
    }
    (void)luaL_dostring(L, "if db then db:close() end");   /* closing unbinds it */
    lua_close(L);
    L = nullptr;
    m_pObj = nullptr;
}

/* Closes the database of the last seeding and runs the seed script again; "" or the reason. */
std::string VlanFuzzHost::Reseed()
{
    if (luaL_dostring(L, "if db then db:close() end") != 0 || luaL_dofile(L, m_strSeedScript.c_str()) != 0) {
        std::string strErr = lua_tostring(L, -1) != nullptr ? lua_tostring(L, -1) : "seeding failed";
        lua_pop(L, 1);
        return strErr;
    }
    m_pObj = ECM_CAPI_GetObjExt(L);
    if (m_pObj == nullptr) {
        return "the seed script bound no database";
    }
    m_setTainted.clear();
    m_setWritten.clear();
    MOX_STATS_S stStats{};
    MOX_GetStats(ECM_CAPI_GetSimpleMemHandle(m_pObj), &stStats);
    m_ulAsserts = stStats.ulAsserts;
    return "";
}

/* Puts the tables that calls wrote to back as the seed left them (the seed script's restore);
 * seeds a new database when that fails. */
std::string VlanFuzzHost::RestoreSeed()
{
    for (uint32_t uiTable : m_setWritten) {
        lua_getglobal(L, "restore");
        lua_pushinteger(L, static_cast<lua_Integer>(uiTable));
        if (lua_pcall(L, 1, 0, 0) != 0) {
            if (m_bTrace) {
                std::fprintf(stderr, "restoring table 0x%08X failed: %s\n", uiTable, lua_tostring(L, -1));
            }
            lua_pop(L, 1);
            return Reseed();
        }
    }
    m_setWritten.clear();
    m_setTainted.clear();
    return "";
}

void VlanFuzzHost::NoteWrites()
{
    uint32_t uiNum = ECM_CTL_JournalCount(m_pObj);
    for (uint32_t i = 0; i < uiNum; i++) {
        ECM_CTL_JOURNAL_S stEntry;
        if (ECM_CTL_JournalGet(m_pObj, i, &stEntry) == 0) {
            m_setWritten.insert(stEntry.uiTableId);
        }
    }
}

/* ---- episodes ---- */

std::string VlanFuzzHost::BeginEpisode(bool bBound, bool bFresh)
{
    std::string strErr = bFresh ? RestoreSeed() : "";
    m_bBound = bBound;
    if (!bBound) {
        ECM_CTL_Unbind(L);
    }
    return strErr;
}

void VlanFuzzHost::EndEpisode()
{
    if (!m_bBound) {
        ECM_CTL_Bind(L, m_pObj);
        m_bBound = true;
    }
}

/* ---- one call ---- */

std::string VlanFuzzHost::Call(uint32_t uiFunc, VlanFuzzSource &src, bool bStrict, bool bFaults)
{
    const VlanFuzzFunc &stFunc = g_astVlanFuzzFuncs[uiFunc];
    int iArgBase = lua_gettop(L) + 1;
    int iArgNum = VlanFuzz_PushArgs(L, src, stFunc.pcArgs, bStrict);
    lua_rawgeti(L, LUA_REGISTRYINDEX, m_iLibRef);
    lua_getfield(L, -1, stFunc.pcName);
    lua_remove(L, -2);
    for (int i = 0; i < iArgNum; i++) {
        lua_pushvalue(L, iArgBase + i);   /* the originals stay below for the report */
    }
    bool bFault = bFaults && src.OneIn(8);
    NoteTaint(uiFunc, iArgBase, iArgNum, bFault);
    if (bFault) {
        uint32_t uiNth = 1 + src.Below(40);
        if (src.OneIn(2)) {
            ECM_CTL_FailAlloc(m_pObj, uiNth);
        } else {
            ECM_CTL_FailCall(m_pObj, uiNth);
        }
    }
    int iResBase = iArgBase + iArgNum;
    int iStatus = lua_pcall(L, iArgNum, LUA_MULTRET, 0);
    ECM_CTL_FailAlloc(m_pObj, 0);
    ECM_CTL_FailCall(m_pObj, 0);
    NoteWrites();
    ECM_CTL_JournalClear(m_pObj);
    m_ulCalls++;
    if (m_bTrace) {
        std::fprintf(stderr, "%s%s%s -> %s\n", stFunc.pcName, RenderRange(L, iArgBase, iArgNum).c_str(),
                     m_bBound ? "" : " unbound", RenderRange(L, iResBase, lua_gettop(L) - iResBase + 1).c_str());
    }
    std::string strFinding;
    if (iStatus != 0) {
        const char *pcErr = lua_tostring(L, -1);
        strFinding = std::string("Lua error: ") + (pcErr != nullptr ? pcErr : "(not a string)");
    } else {
        strFinding = CheckAfter(uiFunc, iResBase);
    }
    if (!strFinding.empty()) {
        strFinding = std::string(stFunc.pcName) + RenderRange(L, iArgBase, iArgNum) + (m_bBound ? "" : " unbound") +
                     ": " + strFinding;
    }
    lua_settop(L, iArgBase - 1);
    return strFinding;
}

std::string VlanFuzzHost::CheckAfter(uint32_t uiFunc, int iResBase)
{
    const VlanFuzzFunc &stFunc = g_astVlanFuzzFuncs[uiFunc];
    int iResNum = lua_gettop(L) - iResBase + 1;
    if (!FitsShapes(L, iResBase, iResNum, m_bBound ? stFunc.pcDb : stFunc.pcNoDb)) {
        return "results " + RenderRange(L, iResBase, iResNum) + " fit none of the shapes " +
               (m_bBound ? stFunc.pcDb : stFunc.pcNoDb);
    }
    MOX_STATS_S stStats{};
    MOX_GetStats(ECM_CAPI_GetSimpleMemHandle(m_pObj), &stStats);
    if (stStats.ulLiveBlocks != 0) {
        uint64_t ulLive = stStats.ulLiveBlocks;
        (void)MOX_LeakReport(ECM_CAPI_GetSimpleMemHandle(m_pObj), stderr);
        return std::to_string(ulLive) + " blocks left live";
    }
    if (stStats.ulAsserts != m_ulAsserts) {
        m_ulAsserts = stStats.ulAsserts;
        return "an assertion was reported";
    }
    if (m_bBound && uiFunc == m_uiSetSvcFunc) {
        return CheckUserVlanRows();
    }
    return "";
}

/* Rows of the interface that a request is about to touch may overlap from now on when the request
 * names an invalid rectangle, or when a failure is injected into it (writes made before a failing
 * write stay): the overlap check leaves that interface out until the next seeding. */
void VlanFuzzHost::NoteTaint(uint32_t uiFunc, int iArgBase, int iArgNum, bool bFault)
{
    if (uiFunc != m_uiSetSvcFunc || iArgNum < 1 || lua_type(L, iArgBase) != LUA_TTABLE) {
        return;
    }
    if (bFault || !IsValidRectangle(L, iArgBase)) {
        m_setTainted.insert(ElementUInt(L, iArgBase, 1));
    }
}

/* The stored user-VLAN segments of an interface never overlap: a request is cut and merged
 * against what is stored, so no two rows may claim one (PE, CE) pair. */
std::string VlanFuzzHost::CheckUserVlanRows()
{
    std::vector<SegRow> rows;
    if (ECM_CTL_Rows(m_pObj, kUserVlanSegTable, nullptr, 0, CollectSeg, &rows) != ECM_OK) {
        return std::string("reading the segment rows failed: ") + ECM_CTL_LastError(m_pObj);
    }
    for (size_t i = 0; i < rows.size(); i++) {
        for (size_t j = i + 1; j < rows.size(); j++) {
            if (Overlap(rows[i], rows[j]) && m_setTainted.count(rows[i].ulIf) == 0) {
                char acBuf[200];
                std::snprintf(acBuf, sizeof(acBuf), "stored segments overlap on interface %llu: PE %llu-%llu CE %llu-%llu"
                              " and PE %llu-%llu CE %llu-%llu", static_cast<unsigned long long>(rows[i].ulIf),
                              static_cast<unsigned long long>(rows[i].ulPeb), static_cast<unsigned long long>(rows[i].ulPee),
                              static_cast<unsigned long long>(rows[i].ulCeb), static_cast<unsigned long long>(rows[i].ulCee),
                              static_cast<unsigned long long>(rows[j].ulPeb), static_cast<unsigned long long>(rows[j].ulPee),
                              static_cast<unsigned long long>(rows[j].ulCeb), static_cast<unsigned long long>(rows[j].ulCee));
                return acBuf;
            }
        }
    }
    return "";
}
