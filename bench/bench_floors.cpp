/* The database-bound calls of the module against two floors, measured side by side in one run on
 * the same data (the same connection, restored to the same rows before every run):
 * - the replay floor: the statements the call's trace recorded, run directly on the sqlite3 C API
 *   (bench_replay.h): what the module's choice of operations costs at least;
 * - the least-work floor: the least SQLite work, written by hand, that leaves the same rows and
 *   gives the same answer (bench_least.h): what keeping to the prescribed client operations costs.
 * Before timing, each floor is checked once: after it the database holds what it held after the
 * module's call (every table, byte for byte), and the least-work floor answers what the call did.
 * Prints per case the median times, both ratios (goals: module / replay <= 1.3 everywhere, the
 * 1,024-cell merge within 2x of its least-work floor), 4 touched of 10,000 against of 4 (goal
 * <= 1.3), and the peak of the module's tagged memory during one call. */
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "sysdt_lua.h"

#include "bench_least.h"
#include "bench_lua.h"
#include "bench_replay.h"
#include "bench_state.h"
#include "ecm_capi.h"
#include "ecm_ctl.h"
#include "mox_ctl.h"

namespace {

/* Each case's set-up builds its rows on the bound db and defines run(), one call of the module with
 * arguments made beforehand (the timed runs discard its results, so that the script makes no
 * garbage of its own); check() runs it once and sums what it returned, and insists it succeeded. */
const char *const kPrelude = R"LUA(
cfgdb = require "cfgdb"
lib = require "libvlanluaext"
VR = 7
db = cfgdb.open(nil, {vr = VR, lr = 1, cdb = 0})
db:bind()
local seg = 0
function nextseg() seg = seg + 1; db:insert("SEG_INDEX", {segIndex = seg, vrId = VR}); return seg end
function sum(t)
  local s = 0
  for _, v in pairs(t) do s = s + (type(v) == "table" and sum(v) or (type(v) == "number" and v or 0)) end
  return s
end
-- A user-VLAN QinQ segment with its base-service record carrying service 1 = svc1.
function uvseg(ifx, peb, pee, ceb, cee, svc1)
  local s = nextseg()
  db:insert("UVLAN_QINQ_SEG", {ifIndex = ifx, segIndex = s, keyB = 2, vrId = VR, ceBegin = ceb, ceEnd = cee,
                               peBegin = peb, peEnd = pee, keyA = 1, upId = 3, keyName = "bench"})
  db:insert("UVLAN_BASE_SVC", {ifIndex = ifx, segIndex = s, keyB = 2, keyA = 1, vrId = VR, svc1 = svc1})
end
function uvset(ifx, peb, pee, ceb, cee, svcs)
  local key = {ifx, peb, pee, ceb, cee, VR, 1, 2, 3, "bench"}
  return function() return lib.VLAN_spt_SetUserVlanQinQSvc(key, svcs) end
end
function check()
  local last = {run()}
  assert(last[1] == 0, last[3])
  return sum(last)
end
)LUA";

struct FloorCase {
    const char *pcName;
    const char *pcSetup;
    LeastWorkFn pfLeast;
    int64_t allArgs[7];     /* what the least-work floor is asked, as run() asks the module */
    int iReps;
    int iBatch;             /* calls per sample of a case that writes nothing */
    const char *apcKeys[5]; /* a walk's: the fields of each entry the script gets */
};

constexpr const char *kQinqRow[5] = {"ifIndex", "peVlan", "ceVlanBegin", "ceVlanEnd", "groupId"};
constexpr const char *kUvlanRow[5] = {"ifIndex", "ceVlan", "peVlan", "anyOther", "description"};

const FloorCase kCases[] = {
    {"1,024-cell merge", R"LUA(
      for p = 1, 32 do for c = 1, 32 do uvseg(1, p, p, c, c, 1 + (p + c) % 2) end end
      run = uvset(1, 1, 32, 1, 32, {1, 9})
    )LUA", LeastMerge, {1, 1, 32, 1, 32, 7, 9}, 15, 1},
    {"4 touched of 10,000", R"LUA(
      for bi = 0, 49 do for bj = 0, 49 do for q = 0, 3 do
        local pe, ce = 5 * bi + 1 + 2 * math.floor(q / 2), 5 * bj + 1 + 2 * (q % 2)
        uvseg(200, pe, pe + 1, ce, ce + 1, 1 + q)
      end end end
      run = uvset(200, 126, 129, 126, 129, {2, 5})
    )LUA", LeastTouch4, {200, 126, 129, 126, 129, 7, 5}, 41, 1},
    {"4 touched of 4", R"LUA(
      for q = 0, 3 do
        local pe, ce = 1 + 2 * math.floor(q / 2), 1 + 2 * (q % 2)
        uvseg(201, pe, pe + 1, ce, ce + 1, 1 + q)
      end
      run = uvset(201, 1, 4, 1, 4, {2, 5})
    )LUA", LeastTouch4, {201, 1, 4, 1, 4, 7, 5}, 41, 1},
    {"Dot1QMatchMerge into 10,000", R"LUA(
      for g = 1, 5 do for k = 1, 2000 do
        db:insert("DOT1Q_MATCH_SEG", {ifIndex = 11, segIndex = nextseg(), vlanBegin = 2 * k, vlanEnd = 2 * k, groupId = g, vrId = VR})
      end end
      local rule = {11, 3, 3, 1, VR, 0, 0, 0}
      function run() return lib.VLAN_spt_Dot1QMatchMerge(rule) end
    )LUA", LeastDot1q, {11, 3, 1, 7}, 41, 1},
    {"QinQMatchMerge over 1,024", R"LUA(
      for k = 1, 1024 do
        db:insert("QINQ_MATCH_SEG", {ifIndex = 21, segIndex = nextseg(), peBegin = 2 * k - 1, peEnd = 2 * k - 1,
                                     ceBegin = 1, ceEnd = 1, groupId = 1, vrId = VR})
      end
      local rule = {21, 0, 2, 2, 1, 1, 0, 1, VR, 0, ""}
      function run() return lib.VLAN_spt_QinQMatchMerge(rule) end
    )LUA", LeastQinq, {21, 2, 1, 1, 7, 1}, 21, 1},
    {"QinQ walk page of 100,000", R"LUA(
      for i = 1, 1000 do
        db:insert("IF_INFO", {ifIndex = i, vrId = VR, kind = 1})
        db:insert("QINQ_MATCH_SEG", {ifIndex = i, segIndex = nextseg(), peBegin = 1, peEnd = 100, ceBegin = 1, ceEnd = 1, vrId = VR})
      end
      function run() return lib.VLAN_spt_GetNextQinQMibQuery(500, 50, 1, VR, 64) end
    )LUA", LeastQinqWalk, {500, 50, 1, 7, 64}, 31, 20,
     {kQinqRow[0], kQinqRow[1], kQinqRow[2], kQinqRow[3], kQinqRow[4]}},
    {"user-VLAN walk page of 100,000", R"LUA(
      for i = 1, 1000 do
        local ifx = 1000 + i
        if i % 2 == 1 then
          db:insert("UVLAN_DOT1Q", {ifIndex = ifx, vrId = VR, vlanBegin = 1, vlanEnd = 100})
        else
          db:insert("IF_INFO", {ifIndex = ifx, vrId = VR, kind = 11})
          db:insert("UVLAN_QINQ_SEG", {ifIndex = ifx, segIndex = nextseg(), vrId = VR, ceBegin = 1, ceEnd = 10, peBegin = 1, peEnd = 10})
        end
      end
      function run() return lib.VLAN_spt_UserVlanMibQuery(1500, 3, 5, VR, 64, 0) end
    )LUA", LeastUvlanWalk, {1500, 3, 5, 7, 64}, 31, 20,
     {kUvlanRow[0], kUvlanRow[1], kUvlanRow[2], kUvlanRow[3], kUvlanRow[4]}},
    {"one-record probe", R"LUA(
      for i = 0, 99999 do db:insert("IF_INFO", {ifIndex = 0x100000 + i, vrId = VR, kind = 11, mainIfIndex = 0x1000 + math.floor(i / 8)}) end
      local probe = lib.VLAN_spt_GetMainifBySubif
      function run() return probe(0x100000 + 54321) end
    )LUA", LeastProbe, {0x100000 + 54321}, 31, 2000},
};

double NowUs()
{
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double Median(std::vector<double> vec)
{
    std::sort(vec.begin(), vec.end());
    return vec[vec.size() / 2];
}

/* Runs the module's call once; false when the script raised. */
bool RunModule(lua_State *L)
{
    lua_getglobal(L, "run");
    if (lua_pcall(L, 0, 0, 0) != LUA_OK) {
        std::fprintf(stderr, "bench_floors: %s\n", lua_tostring(L, -1));
        lua_pop(L, 1);
        return false;
    }
    return true;
}

/* The call once more, its results summed; 0 (and a message) when it failed. */
uint64_t ModuleAnswer(lua_State *L)
{
    lua_getglobal(L, "check");
    if (lua_pcall(L, 0, 1, 0) != LUA_OK) {
        std::fprintf(stderr, "bench_floors: %s\n", lua_tostring(L, -1));
    }
    uint64_t ulSum = static_cast<uint64_t>(lua_tonumber(L, -1));
    lua_pop(L, 1);
    return ulSum;
}

struct Result {
    double dModule = 0, dReplay = 0, dLeast = 0;
    uint64_t ulPeak = 0;
    double dResults = 0;    /* a walk's: its page made as the script gets it, with the raw Lua C API */
};

/* The last least-work page as the walk hands it to the script: 0, then a table of one table per
 * entry with its fields; a description, which this page has none of, is set to nil. */
void BuildPage(lua_State *L, const char *const *ppcKeys)
{
    lua_pushinteger(L, 0);
    lua_createtable(L, 0, 0);
    int iIndex = 0;
    for (const least::WalkEntry &e : least::g_vecLastPage) {
        lua_pushinteger(L, ++iIndex);
        lua_createtable(L, 0, 5);
        const int64_t allValues[5] = {e.llIf, e.llKey1, e.llKey2, e.llRest, e.llRest2};
        for (int k = 0; k < 5; k++) {
            if (std::strcmp(ppcKeys[k], "description") == 0) {
                lua_pushnil(L);
            } else {
                lua_pushinteger(L, static_cast<lua_Integer>(allValues[k]));
            }
            lua_setfield(L, -2, ppcKeys[k]);
        }
        lua_settable(L, -3);
    }
    lua_settop(L, 0);
}

/* Checks both floors once against the module's call, then times the three in turn. */
bool Measure(lua_State *L, void *pObj, const FloorCase &stCase, Result *pstResult)
{
    sqlite3 *pDb = static_cast<sqlite3 *>(ECM_CTL_Storage(pObj));
    BenchState stState(pDb);
    ECM_CTL_Trace(pObj, 1, nullptr);
    uint64_t ulAnswer = ModuleAnswer(L);
    ECM_CTL_Trace(pObj, 0, nullptr);
    bool bOk = Lua(L, "db:journal(); collectgarbage(); collectgarbage('stop')");
    stState.NoteWrites(pObj);
    std::string strAfter = stState.Digest();
    TraceReplay stReplay(pDb, pObj);
    LeastWork stLeast(pDb);
    uint64_t ulSink = 0;
    stState.Restore();
    bOk = bOk && stReplay.Ready() && stReplay.Run(&ulSink) == 0 && stState.Digest() == strAfter;
    if (!bOk) {
        std::fprintf(stderr, "bench_floors: %s: the replay does not leave what the call left\n", stCase.pcName);
        return false;
    }
    stState.Restore();
    uint64_t ulLeast = stCase.pfLeast(stLeast, stCase.allArgs);
    if (ulLeast != ulAnswer || stState.Digest() != strAfter) {
        std::fprintf(stderr, "bench_floors: %s: the least-work floor answers %llu (the call %llu)%s\n", stCase.pcName,
                     static_cast<unsigned long long>(ulLeast), static_cast<unsigned long long>(ulAnswer),
                     stState.Digest() != strAfter ? " and leaves other rows" : "");
        return false;
    }
    std::vector<double> vecModule, vecReplay, vecLeast;
    const char *pcReps = std::getenv("FLOOR_REPS");
    int iReps = pcReps != nullptr ? std::atoi(pcReps) : stCase.iReps;
    for (int r = -1; r < iReps && bOk; r++) {  /* the first round warms up and is not kept */
        double dStart = NowUs();
        for (int i = 0; i < stCase.iBatch && bOk; i++) {
            stState.Restore();
            bOk = RunModule(L);
        }
        vecModule.push_back((NowUs() - dStart - stState.TakeRestoreUs()) / stCase.iBatch);
        dStart = NowUs();
        for (int i = 0; i < stCase.iBatch; i++) {
            stState.Restore();
            (void)stReplay.Run(&ulSink);
        }
        vecReplay.push_back((NowUs() - dStart - stState.TakeRestoreUs()) / stCase.iBatch);
        dStart = NowUs();
        for (int i = 0; i < stCase.iBatch; i++) {
            stState.Restore();
            ulSink += stCase.pfLeast(stLeast, stCase.allArgs);
        }
        vecLeast.push_back((NowUs() - dStart - stState.TakeRestoreUs()) / stCase.iBatch);
        if (r < 0) {
            vecModule.clear();
            vecReplay.clear();
            vecLeast.clear();
        }
        (void)Lua(L, "db:journal(); collectgarbage(); collectgarbage('stop')");  /* its memory is used again */
    }
    (void)Lua(L, "collectgarbage('restart')");
    std::vector<double> vecResults;
    for (int r = 0; stCase.apcKeys[0] != nullptr && r < iReps; r++) {
        double dStart = NowUs();
        for (int i = 0; i < stCase.iBatch; i++) {
            BuildPage(L, stCase.apcKeys);
        }
        vecResults.push_back((NowUs() - dStart) / stCase.iBatch);
        (void)Lua(L, "collectgarbage(); collectgarbage('stop')");
    }
    stState.Restore();
    MOX_ResetPeak(ECM_CTL_MemHandle(pObj));
    bOk = bOk && RunModule(L);
    MOX_STATS_S stStats;
    MOX_GetStats(ECM_CTL_MemHandle(pObj), &stStats);
    *pstResult = {Median(vecModule), Median(vecReplay), Median(vecLeast), stStats.ulPeakBytes,
                  vecResults.empty() ? 0.0 : Median(vecResults)};
    return bOk && ulSink != 1;  /* the sink keeps the floors' reads from being optimised away */
}

bool RunCase(const FloorCase &stCase, Result *pstResult)
{
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    bool bOk = Lua(L, std::string("package.cpath = '") + VLANLUA_LUA_DIR + "/?.so;' .. package.cpath") &&
               Lua(L, kPrelude) && Lua(L, stCase.pcSetup);
    bOk = bOk && Measure(L, ECM_CAPI_GetObjExt(L), stCase, pstResult);
    (void)Lua(L, "db:close()");
    lua_close(L);
    return bOk;
}

}  // namespace

/* FLOOR_CASES=text runs only the cases whose name holds the text; FLOOR_REPS=n times each n times (for
 * profiling one of them). */
int main()
{
    const char *pcOnly = std::getenv("FLOOR_CASES");
    std::printf("%-32s %11s %11s %11s %8s %8s %9s\n", "case (median per call)", "module", "replay", "least-work",
                "/replay", "/least", "peak mem");
    bool bMet = true;
    double dTouchMany = 0, dTouchFew = 0;
    for (const FloorCase &stCase : kCases) {
        if (pcOnly != nullptr && std::strstr(stCase.pcName, pcOnly) == nullptr) {
            continue;
        }
        Result stRes;
        if (!RunCase(stCase, &stRes)) {
            std::printf("%-32s FAILED\n", stCase.pcName);
            bMet = false;
            continue;
        }
        double dReplayRatio = stRes.dModule / stRes.dReplay;
        double dLeastRatio = stRes.dModule / stRes.dLeast;
        std::printf("%-32s %8.1f us %8.1f us %8.1f us %8.2f %8.2f %7.1f KB\n", stCase.pcName, stRes.dModule,
                    stRes.dReplay, stRes.dLeast, dReplayRatio, dLeastRatio, stRes.ulPeak / 1024.0);
        if (stRes.dResults > 0) {
            std::printf("  its page made with the raw Lua C API alone: %.1f us; module / (replay + that) = %.2f\n",
                        stRes.dResults, stRes.dModule / (stRes.dReplay + stRes.dResults));
        }
        bMet = bMet && dReplayRatio <= 1.3;
        if (stCase.pfLeast == LeastMerge) {
            bMet = bMet && dLeastRatio <= 2.0;
        }
        if (std::string(stCase.pcName) == "4 touched of 10,000") {
            dTouchMany = stRes.dModule;
        } else if (std::string(stCase.pcName) == "4 touched of 4") {
            dTouchFew = stRes.dModule;
        }
    }
    if (dTouchMany > 0 && dTouchFew > 0) {
        double dLocality = dTouchMany / dTouchFew;
        std::printf("4 touched of 10,000 / of 4: %.2f (goal <= 1.3)\n", dLocality);
        bMet = bMet && dLocality <= 1.3;
    }
    std::printf("goals: module / replay <= 1.3, 1,024-cell merge / least-work <= 2.0: %s\n",
                bMet ? "all met" : "GOAL MISSED");
    return 0;
}
