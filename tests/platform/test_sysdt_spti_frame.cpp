// A script call's frame against the engine's own stack: random runs of stack steps are chosen on a
// bare state, where every step goes straight to the engine, then played again inside a call; every
// answer, every result and every argument table must come out the same. Some runs read through a
// metamethod that replaces an argument of the running function behind its back.
#include "sysdt_spti.h"

#include <gtest/gtest.h>
#include <lua.hpp>

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

enum class StepKind { PushUInt, PushInt, PushNil, PushString, CreateTable, GetTable, SetTable, SetField, Pop, Look };

struct Step {
    StepKind eKind;
    int32_t iPos;
    uint32_t uiValue;
};

struct StepRun {
    std::mt19937 rng;
    bool bChoose = true;                /* choose the steps (bare state) or play them again (call) */
    std::vector<Step> vecSteps;
    std::vector<std::string> vecAnswers;
    uint32_t uiResults = 0;
};
StepRun g_stRun;

constexpr uint32_t kNumbers[] = {0, 1, 7, 4094, 0x7FFFFFFF, 0x80000000u, 0xFFFFFFFFu};
const char *const kNames[] = {"a", "n", "1"};
const std::string kTexts[] = {"", "abc", std::string("a\0b", 3), std::string(40, 'x')};

uint32_t Below(uint32_t uiBound)
{
    return static_cast<uint32_t>(g_stRun.rng() % uiBound);
}

/* A position among iTop values, named from either end. */
int32_t EitherEnd(int32_t iAbs, int32_t iTop)
{
    return Below(2) == 0 ? iAbs : iAbs - iTop - 1;
}

/* A table below position iBelow, or 0. */
int32_t TableBelow(lua_State *L, int32_t iBelow)
{
    std::vector<int32_t> vecTables;
    for (int32_t i = 1; i < iBelow; i++) {
        if (lua_type(L, i) == LUA_TTABLE) {
            vecTables.push_back(i);
        }
    }
    return vecTables.empty() ? 0 : vecTables[Below(static_cast<uint32_t>(vecTables.size()))];
}

/* A key the comparison of tables below can follow. */
bool PlainKey(int iType)
{
    return iType == LUA_TNUMBER || iType == LUA_TSTRING || iType == LUA_TBOOLEAN;
}

/* A step the bare state can take without raising, chosen from what its stack holds. */
Step ChooseStep(lua_State *L)
{
    int32_t iTop = lua_gettop(L);
    auto eKind = static_cast<StepKind>(Below(static_cast<uint32_t>(StepKind::Look) + 3));
    int32_t iTable = 0;
    switch (eKind) {
        case StepKind::GetTable: iTable = TableBelow(L, iTop); break;
        case StepKind::SetTable: iTable = iTop >= 2 && PlainKey(lua_type(L, -2)) ? TableBelow(L, iTop - 1) : 0; break;
        case StepKind::SetField: iTable = TableBelow(L, iTop); break;
        default: break;
    }
    if ((eKind == StepKind::GetTable || eKind == StepKind::SetTable || eKind == StepKind::SetField) && iTable == 0) {
        eKind = StepKind::Look;
    }
    if (eKind > StepKind::Look) {
        eKind = StepKind::Look;
    }
    Step stStep{eKind, iTable != 0 ? EitherEnd(iTable, iTop) : 0, static_cast<uint32_t>(g_stRun.rng())};
    if (eKind == StepKind::Look) {
        int32_t iAny = static_cast<int32_t>(Below(static_cast<uint32_t>(2 * iTop + 5))) - iTop - 2;
        stStep.iPos = Below(2) == 0 ? iAny : EitherEnd(iTop, iTop);  /* the top most often */
    } else if (eKind == StepKind::Pop) {
        stStep.iPos = Below(8) == 0 ? 1000 : static_cast<int32_t>(1 + Below(3));
    }
    return stStep;
}

/* What a look at a position answers, as text. */
std::string Look(void *pState, int32_t iPos, uint32_t uiWhat)
{
    /* appended, not chained from a literal: that draws a false -Wrestrict at -O3 */
    std::string strAt = std::string("@").append(std::to_string(iPos)).append(" ");
    switch (uiWhat % 8) {
        case 0: return std::string("top ").append(std::to_string(SYSDT_SPTI_GetTop(pState)));
        case 1: return strAt + "number " + std::to_string(SYSDT_SPTI_IsNumber(pState, iPos));
        case 2: return strAt + "string " + std::to_string(SYSDT_SPTI_IsString(pState, iPos));
        case 3: return strAt + "bool " + std::to_string(SYSDT_SPTI_IsBool(pState, iPos));
        case 4: return strAt + "uint " + std::to_string(SYSDT_SPTI_ToUInt(pState, iPos));
        case 5: {
            const char *pcText = SYSDT_SPTI_ToString(pState, iPos);
            return strAt + "text " + (pcText != nullptr ? std::string("'").append(pcText).append("'") : "none");
        }
        case 6: return strAt + "true " + std::to_string(SYSDT_SPTI_ToBoolean(pState, iPos));
        default: return strAt + "len " + std::to_string(SYSDT_SPTI_ObjLen(pState, iPos));
    }
}

void Play(void *pState, const Step &stStep)
{
    uint32_t uiValue = stStep.uiValue;
    switch (stStep.eKind) {
        case StepKind::PushUInt: SYSDT_SPTI_PushUInt(pState, kNumbers[uiValue % 7]); break;
        case StepKind::PushInt: SYSDT_SPTI_PushInt(pState, static_cast<int32_t>(kNumbers[uiValue % 7])); break;
        case StepKind::PushNil: SYSDT_SPTI_PushNil(pState); break;
        case StepKind::PushString: {
            const std::string &strText = kTexts[uiValue % 4];
            SYSDT_SPTI_PushString(pState, strText.data(), static_cast<uint32_t>(strText.size()));
            break;
        }
        case StepKind::CreateTable: SYSDT_SPTI_CreateTable(pState, uiValue % 4, uiValue / 4 % 4); break;
        case StepKind::GetTable: SYSDT_SPTI_GetTable(pState, stStep.iPos); break;
        case StepKind::SetTable: SYSDT_SPTI_SetTable(pState, stStep.iPos); break;
        case StepKind::SetField: SYSDT_SPTI_SetField(pState, stStep.iPos, kNames[uiValue % 3]); break;
        case StepKind::Pop: SYSDT_SPTI_Pop(pState, stStep.iPos); break;
        case StepKind::Look: g_stRun.vecAnswers.push_back(Look(pState, stStep.iPos, uiValue)); break;
    }
}

constexpr int kStepsPerRun = 60;

uint32_t PlayRun(void *pState)
{
    g_stRun.vecAnswers.clear();
    if (g_stRun.bChoose) {
        g_stRun.vecSteps.clear();
        int iSteps = 1 + static_cast<int>(Below(kStepsPerRun));
        for (int i = 0; i < iSteps; i++) {
            g_stRun.vecSteps.push_back(ChooseStep(static_cast<lua_State *>(pState)));
            Play(pState, g_stRun.vecSteps.back());
        }
        g_stRun.uiResults = Below(static_cast<uint32_t>(SYSDT_SPTI_GetTop(pState) + 1));
    } else {
        for (const Step &stStep : g_stRun.vecSteps) {
            Play(pState, stStep);
        }
    }
    return g_stRun.uiResults;
}

int PlayOnBareState(lua_State *L)
{
    return static_cast<int>(PlayRun(L));
}

/* Fresh arguments for each run (the steps store into them); the tables with a metatable send reads
 * of missing elements and every store through script code, and in the fourth and fifth lists a read
 * through one gives the running function a new second argument. */
const char *const kLuaSide = R"(
local function replace_second()
  for level = 2, 30 do
    local info = debug.getinfo(level, 'f')
    if info == nil then return end
    if info.func == bare or info.func == framed then
      local name, v = debug.getlocal(level, 2)
      if name ~= nil then debug.setlocal(level, 2, type(v) == 'number' and 'was a number' or 42) end
      return
    end
  end
end
local function with_meta(t, replaces)
  return setmetatable(t, {
    __index = function(_, k) if replaces then replace_second() end return type(k) == 'number' and k * 10 or nil end,
    __newindex = function(t, k, v) rawset(t, k, v) end})
end
function make_args(k)
  local lists = {
    function() return {n = 6, {1, 2, 'x', true}, 2, 'abc', true, nil, 3.5} end,
    function() return {n = 3, with_meta({5}), 'k', 7} end,
    function() return {n = 0} end,
    function() return {n = 4, with_meta({}, true), 9, {1, 2}, 'tail'} end,
    function() return {n = 2, {}, with_meta({3, 4}, true)} end,
    function() return {n = 4, {10, 20, 30, x = 'y'}, 'x', 2, 3} end,
    function() return {n = 3, {'a', 'b', [true] = 1.5}, 2, true} end,
  }
  return lists[k % #lists + 1]()
end
local function same(a, b, seen)
  if type(a) ~= 'table' or type(b) ~= 'table' then return a == b end
  if seen[a] ~= nil then return seen[a] == b end
  seen[a] = b
  local n = 0
  for key, v in pairs(a) do
    if not same(v, rawget(b, key), seen) then return false end
    n = n + 1
  end
  for _ in pairs(b) do n = n - 1 end
  return n == 0
end
function run(f, k)
  local args = make_args(k)
  return {results = table.pack(f(table.unpack(args, 1, args.n))), args = args}
end
function same_runs(a, b) return same(a.results, b.results, {}) and same(a.args, b.args, {}) end
)";

}  // namespace

TEST(ScriptCallFrame, EveryStepAnswersAsOnTheEnginesOwnStack)
{
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    const SYSDT_SPT_REG_S astTable[] = {{"play", PlayRun}, {nullptr, nullptr}};
    Script_OpenLib(L, "testlib", astTable);
    lua_pushcfunction(L, PlayOnBareState);
    lua_setglobal(L, "bare");
    ASSERT_EQ(luaL_dostring(L, "framed = testlib.play"), LUA_OK);
    ASSERT_EQ(luaL_dostring(L, kLuaSide), LUA_OK) << lua_tostring(L, -1);
    for (uint32_t uiSeed = 1; uiSeed <= 4000; uiSeed++) {
        g_stRun.rng.seed(uiSeed);
        g_stRun.bChoose = true;
        std::string strRun = std::string("run(bare, ").append(std::to_string(uiSeed)).append(")");
        ASSERT_EQ(luaL_dostring(L, ("bare_run = " + strRun).c_str()), LUA_OK) << lua_tostring(L, -1);
        std::vector<std::string> vecBare = g_stRun.vecAnswers;
        g_stRun.bChoose = false;
        ASSERT_EQ(luaL_dostring(L, std::string("framed_run = run(framed, ").append(std::to_string(uiSeed)).append(")").c_str()), LUA_OK)
            << lua_tostring(L, -1);
        ASSERT_EQ(g_stRun.vecAnswers, vecBare) << "seed " << uiSeed;
        ASSERT_EQ(luaL_dostring(L, "return same_runs(bare_run, framed_run)"), LUA_OK);
        ASSERT_TRUE(lua_toboolean(L, -1)) << "results or argument tables differ, seed " << uiSeed;
        lua_settop(L, 0);
    }
    lua_close(L);
}
