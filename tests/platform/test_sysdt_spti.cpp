// The script stack over a real Lua state: type tests, conversions, pushes and library registration.
// What every script function shows anyway (booleans, table lengths, pushed texts with their zero
// byte, signed and unsigned results) is proven by the script-level tests on every engine.
#include "sysdt_spti.h"

#include <gtest/gtest.h>
#include <lua.hpp>

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace {

class ScriptStack : public ::testing::Test {
protected:
    void SetUp() override { L = luaL_newstate(); luaL_openlibs(L); }
    void TearDown() override { lua_close(L); }
    // Runs a chunk and leaves its single result on the stack.
    void Eval(const char *pcChunk)
    {
        std::string strCode = std::string("return ") + pcChunk;
        ASSERT_EQ(luaL_dostring(L, strCode.c_str()), LUA_OK) << lua_tostring(L, -1);
    }
    uint32_t ToUIntOf(const char *pcChunk)
    {
        Eval(pcChunk);
        uint32_t uiValue = SYSDT_SPTI_ToUInt(L, -1);
        lua_pop(L, 1);
        return uiValue;
    }
    lua_State *L = nullptr;
};

uint32_t PushTwo(void *pState)
{
    SYSDT_SPTI_PushUInt(pState, 7);
    SYSDT_SPTI_PushString(pState, "seven", 5);
    return 2;
}

uint32_t PushNothing(void *)
{
    return 0;
}

/* Pushes as many values as it got arguments, then 1000 more, and answers them all. */
uint32_t PushPastTheGuaranteedSlots(void *pState)
{
    int32_t iArgs = SYSDT_SPTI_GetTop(pState);
    for (int32_t i = 0; i < iArgs + 1000; i++) {
        SYSDT_SPTI_PushUInt(pState, static_cast<uint32_t>(i));
    }
    return static_cast<uint32_t>(iArgs + 1000);
}

}  // namespace

// ---- type tests look at the value's own type ----

TEST_F(ScriptStack, NumberIsNotAStringAndIsNotConvertedInPlace)
{
    lua_pushinteger(L, 12);
    EXPECT_TRUE(SYSDT_SPTI_IsNumber(L, 1));
    EXPECT_FALSE(SYSDT_SPTI_IsString(L, 1));
    EXPECT_EQ(SYSDT_SPTI_ToString(L, 1), nullptr);
    EXPECT_EQ(lua_type(L, 1), LUA_TNUMBER) << "the stack value must stay a number";
}

TEST_F(ScriptStack, TypesAreReadAlikeOnBothSidesOfTheGuaranteedSlots)
{
    constexpr int kValues = LUA_MINSTACK + 5;
    for (int i = 1; i <= kValues; i++) {
        if (i % 2 == 0) {
            lua_pushinteger(L, i);
        } else {
            lua_pushstring(L, "s");
        }
    }
    for (int i = 1; i <= kValues; i++) {
        EXPECT_EQ(SYSDT_SPTI_IsNumber(L, i), i % 2 == 0) << "position " << i;
        EXPECT_EQ(SYSDT_SPTI_IsString(L, i - kValues - 1), i % 2 != 0) << "position " << i - kValues - 1;
    }
    EXPECT_FALSE(SYSDT_SPTI_IsString(L, kValues + 1));
    EXPECT_FALSE(SYSDT_SPTI_IsString(L, -kValues - 1));
    lua_settop(L, 2);
    EXPECT_FALSE(SYSDT_SPTI_IsNumber(L, LUA_MINSTACK)) << "a slot that held a value before the pop";
    EXPECT_FALSE(SYSDT_SPTI_IsString(L, LUA_MINSTACK + 1));
}

// ---- conversions to unsigned 32 bits ----

TEST_F(ScriptStack, NumbersGiveTheLow32BitsOfTheirIntegralPartAndEverythingElseZero)
{
    const std::pair<const char *, uint32_t> aCases[] = {
        {"-1", 4294967295u}, {"(1 << 32) + 5", 5u}, {"4294967295", 4294967295u}, {"math.mininteger", 0u},
        {"3.7", 3u}, {"-3.7", 4294967293u}, {"2^32 + 5", 5u}, {"4094.0", 4094u},
        {"0/0", 0u}, {"math.huge", 0u}, {"-math.huge", 0u}, {"2^63", 0u}, {"1e300", 0u},
        {"true", 0u}, {"{}", 0u}, {"'0x10'", 0u},
    };
    for (const auto &[pcChunk, uiWant] : aCases) {
        EXPECT_EQ(ToUIntOf(pcChunk), uiWant) << pcChunk;
    }
}

// ---- pushes ----

TEST_F(ScriptStack, ManyPushesGrowTheStackInsteadOfOverflowingIt)
{
    constexpr uint32_t kCount = 50000;
    for (uint32_t i = 0; i < kCount; i++) {
        SYSDT_SPTI_PushUInt(L, i);
    }
    ASSERT_EQ(SYSDT_SPTI_GetTop(L), static_cast<int32_t>(kCount));
    EXPECT_EQ(SYSDT_SPTI_ToUInt(L, 1), 0u);
    EXPECT_EQ(SYSDT_SPTI_ToUInt(L, -1), kCount - 1);
    SYSDT_SPTI_Pop(L, static_cast<int32_t>(kCount));
    EXPECT_EQ(SYSDT_SPTI_GetTop(L), 0);
}

// ---- library registration ----

TEST_F(ScriptStack, OpenLibLeavesTheLibraryOnTheStackAndAsGlobal)
{
    const SYSDT_SPT_REG_S astTable[] = {{"two", PushTwo}, {"none", PushNothing}, {nullptr, nullptr},
                                        {"hidden", PushTwo}};
    EXPECT_EQ(Script_OpenLib(L, "testlib", astTable), 0);
    ASSERT_EQ(lua_gettop(L), 1);
    ASSERT_EQ(lua_type(L, 1), LUA_TTABLE);
    lua_getglobal(L, "testlib");
    EXPECT_TRUE(lua_rawequal(L, 1, 2));
    int iEntries = 0;
    lua_pushnil(L);
    while (lua_next(L, 1) != 0) {
        iEntries++;
        lua_pop(L, 1);
    }
    EXPECT_EQ(iEntries, 2) << "nothing after the terminating entry is registered";
}

TEST_F(ScriptStack, ScriptFunctionsMayPushPastTheSlotsLuaGuarantees)
{
    const SYSDT_SPT_REG_S astTable[] = {{"many", PushPastTheGuaranteedSlots}, {nullptr, nullptr}};
    Script_OpenLib(L, "testlib", astTable);
    Eval("(function() local t = {testlib.many(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19)}"
         " return #t == 1019 and t[20] == 19 and t[1019] == 1018 end)()");
    EXPECT_TRUE(lua_toboolean(L, -1));
}

TEST_F(ScriptStack, RegistrationTableNeedNotOutliveTheCall)
{
    {
        SYSDT_SPT_REG_S astTable[] = {{"two", PushTwo}, {nullptr, nullptr}};
        Script_OpenLib(L, "testlib", astTable);
        astTable[0] = {"gone", PushNothing};
    }
    Eval("select('#', testlib.two())");
    EXPECT_EQ(lua_tointeger(L, -1), 2);
}

// ---- inside a script call ----

namespace {

/* Sums elements 1..n of the table at 1 (n at 2) through the module's protocol: push key, get,
 * read, pop. Answers the sum, or nothing when the stack top ever differs from what it should be. */
uint32_t SumThroughProtocol(void *pState)
{
    uint32_t uiNum = SYSDT_SPTI_ToUInt(pState, 2);
    uint32_t uiSum = 0;
    for (uint32_t i = 1; i <= uiNum; i++) {
        SYSDT_SPTI_PushUInt(pState, i);
        SYSDT_SPTI_GetTable(pState, 1);
        uiSum += SYSDT_SPTI_ToUInt(pState, -1);
        SYSDT_SPTI_Pop(pState, 1);
        if (SYSDT_SPTI_GetTop(pState) != 2) {
            return 0;
        }
    }
    SYSDT_SPTI_PushUInt(pState, uiSum);
    return 1;
}

/* Pushes 30 values past its arguments, checks positions from both ends, pops 25: answers 1 when
 * every look agreed with the stack. */
uint32_t WalkPositions(void *pState)
{
    int32_t iArgs = SYSDT_SPTI_GetTop(pState);
    for (uint32_t i = 0; i < 30; i++) {
        SYSDT_SPTI_PushUInt(pState, i);
    }
    bool bOk = SYSDT_SPTI_GetTop(pState) == iArgs + 30 && SYSDT_SPTI_ToUInt(pState, -30) == 0 &&
               SYSDT_SPTI_ToUInt(pState, iArgs + 30) == 29 && !SYSDT_SPTI_IsNumber(pState, iArgs + 31) &&
               !SYSDT_SPTI_IsNumber(pState, -(iArgs + 31)) && SYSDT_SPTI_IsString(pState, 1);
    SYSDT_SPTI_Pop(pState, 25);
    bOk = bOk && SYSDT_SPTI_GetTop(pState) == iArgs + 5 && SYSDT_SPTI_ToUInt(pState, -1) == 4;
    SYSDT_SPTI_Pop(pState, 1000);
    bOk = bOk && SYSDT_SPTI_GetTop(pState) == 0 && SYSDT_SPTI_ToUInt(pState, -1) == 0;
    SYSDT_SPTI_PushUInt(pState, bOk ? 1 : 0);
    return 1;
}

/* Stores t[i] = i * i for i = 1..3 into its only argument, then into a new table that also gets
 * [2^32 - 1] = 7; answers the new table. */
uint32_t StoreSquares(void *pState)
{
    for (int iRound = 0; iRound < 2; iRound++) {
        if (iRound == 1) {
            SYSDT_SPTI_Pop(pState, 1);
            SYSDT_SPTI_CreateTable(pState, 3, 0);
        }
        for (uint32_t i = 1; i <= 3; i++) {
            SYSDT_SPTI_PushUInt(pState, i);
            SYSDT_SPTI_PushUInt(pState, i * i);
            SYSDT_SPTI_SetTable(pState, -3);
        }
    }
    SYSDT_SPTI_PushUInt(pState, 0xFFFFFFFFu);
    SYSDT_SPTI_PushUInt(pState, 7);
    SYSDT_SPTI_SetTable(pState, -3);
    return 1;
}

template <int N>
uint32_t PushOwnNumber(void *pState)
{
    SYSDT_SPTI_PushUInt(pState, N);
    return 1;
}

template <int... N>
std::vector<SYSDT_SPT_REG_S> NumberedFunctions(std::integer_sequence<int, N...>, std::vector<std::string> &vecNames)
{
    vecNames = {std::string("f").append(std::to_string(N))...};  /* not "f" + ...: a false -Wrestrict at -O3 */
    std::vector<SYSDT_SPT_REG_S> vecTable = {SYSDT_SPT_REG_S{vecNames[N].c_str(), PushOwnNumber<N>}...};
    vecTable.push_back({nullptr, nullptr});
    return vecTable;
}

}  // namespace

TEST_F(ScriptStack, ElementsReadInACallGoThroughMetamethodsAndConversions)
{
    const SYSDT_SPT_REG_S astTable[] = {{"sum", SumThroughProtocol}, {nullptr, nullptr}};
    Script_OpenLib(L, "testlib", astTable);
    Eval("testlib.sum({1, 2, 3}, 3)");
    EXPECT_EQ(lua_tointeger(L, -1), 6);
    Eval("testlib.sum(setmetatable({1}, {__index = function(_, k) return k * 10 end}), 3)");
    EXPECT_EQ(lua_tointeger(L, -1), 51) << "1 + 20 + 30: missing elements come from __index";
    Eval("testlib.sum({2.9, '7', -1.5, true}, 4)");
    EXPECT_EQ(lua_tointeger(L, -1), 1) << "2 + 0 + (2^32 - 1) + 0, in 32 bits: a string or boolean reads as 0";
}

TEST_F(ScriptStack, ElementsStoredInACallGoThroughMetamethodsAndKeepEveryKey)
{
    const SYSDT_SPT_REG_S astTable[] = {{"squares", StoreSquares}, {nullptr, nullptr}};
    Script_OpenLib(L, "testlib", astTable);
    Eval("(function() local log = {}"
         " local t = setmetatable({}, {__newindex = function(t, k, v) log[#log + 1] = k .. '=' .. v; rawset(t, k, v) end})"
         " local r = testlib.squares(t)"
         " return table.concat(log, ',') == '1=1,2=4,3=9' and r[1] == 1 and r[2] == 4 and r[3] == 9"
         " and r[4294967295] == 7 end)()");
    EXPECT_TRUE(lua_toboolean(L, -1));
}

TEST_F(ScriptStack, PositionsInACallFollowEveryPushAndPop)
{
    const SYSDT_SPT_REG_S astTable[] = {{"walk", WalkPositions}, {nullptr, nullptr}};
    Script_OpenLib(L, "testlib", astTable);
    Eval("testlib.walk('a', 2, 3)");
    EXPECT_EQ(lua_tointeger(L, -1), 1);
}

TEST_F(ScriptStack, FunctionsBeyondTheDirectEntriesStillAnswer)
{
    constexpr int kFunctions = 80;  /* more distinct functions than the direct entries */
    std::vector<std::string> vecNames;
    std::vector<SYSDT_SPT_REG_S> vecTable = NumberedFunctions(std::make_integer_sequence<int, kFunctions>{}, vecNames);
    Script_OpenLib(L, "many", vecTable.data());
    Script_OpenLib(L, "again", vecTable.data());
    Eval("(function() for i = 0, 79 do if many['f' .. i]() ~= i or again['f' .. i]() ~= i then return i end end"
         " return -1 end)()");
    EXPECT_EQ(lua_tointeger(L, -1), -1) << "the first function answering wrong";
}
