/* Bitmap script functions against their floor, the same steps written on the engine's C API and
 * registered with lua_pushcfunction (the same argument checks, the same element reads and writes
 * through the per-element table protocol), and, for information, against the same functions in
 * plain Lua; the port VLAN usage check against a C loop over the same relation records with one
 * prepared statement. One program, one run: each pair is timed side by side and its ratio printed. */
#include "sysdt_lua.h"
#include <sqlite3.h>

#include <bit>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "ecm_ctl.h"
#include "kel_order.h"
#include "vlanlua_tables.h"

namespace {

constexpr uint32_t kRelationTable = VLANLUA_TBL_PV_RELATION;
constexpr int kRelationNum = 4096;
constexpr uint32_t kVr = 7;
constexpr uint32_t kVlan = 100;
constexpr lua_Integer kBitMapLen = 512;

/* What a script writer would write for the three bitmap functions with the bit operations of this
 * engine (operators from 5.3, the bit library of LuaJIT, arithmetic on 5.1), and the set-up. */
const char *const kLuaSide = R"lua(
local lib = require "libvlanluaext"
local cfgdb = require "cfgdb"
local unpack = table.unpack or unpack
local compile = loadstring or load

local OR, AND, CLEAR
if compile("return 1 | 2") then
  OR, AND, CLEAR = "(%s | %s)", "(%s & %s)", "(%s & (1 << %s) == 0)"
elseif bit then
  OR, AND, CLEAR = "bit.bor(%s, %s)", "bit.band(%s, %s)", "(bit.band(%s, bit.lshift(1, %s)) == 0)"
else
  function bor(a, b)
    local r, v = 0, 1
    for _ = 1, 8 do
      if a % 2 == 1 or b % 2 == 1 then r = r + v end
      a, b, v = (a - a % 2) / 2, (b - b % 2) / 2, v * 2
    end
    return r
  end
  function band(a, b)
    local r, v = 0, 1
    for _ = 1, 8 do
      if a % 2 == 1 and b % 2 == 1 then r = r + v end
      a, b, v = (a - a % 2) / 2, (b - b % 2) / 2, v * 2
    end
    return r
  end
  OR, AND, CLEAR = "bor(%s, %s)", "band(%s, %s)", "(math.floor(%s / 2 ^ %s) %% 2 == 0)"
end

local function define(src) assert(compile(src))() end
define("function lua_merge(a, b) local r = {} for i = 1, #a do r[i] = " .. OR:format("a[i]", "(b[i] or 0)") ..
       " end return 0, r end")
define("function lua_and(a, b) local r = {} for i = 1, #a do r[i] = " .. AND:format("a[i]", "(b[i] or 0)") ..
       " end return 0, r end")
define([[function lua_firstfree(t)
  for i = 1, 512 do
    local byte = t[i] or 0
    if byte ~= 255 then
      for b = 0, 7 do
        local v = (i - 1) * 8 + b
        if v >= 1 and v <= 4094 and ]] .. CLEAR:format("byte", "b") .. [[ then return 0, v end
      end
    end
  end
  return 1
end]])

function repeat_call(f, n, ...)
  for _ = 1, n do f(...) end
end

-- 512-byte tables: a and b random, c full up to its last word (the free search's worst case).
math.randomseed(1)
A, B, C = {}, {}, {}
for i = 1, 512 do A[i] = math.random(0, 255); B[i] = math.random(0, 255); C[i] = 255 end
C[1], C[512] = 254, 0     -- first free: 4088

merge, both, firstfree = lib.VLAN_spt_Merg2BitMap, lib.VLAN_spt_And2BitMap, lib.VLAN_spt_GetFirstFreeValue
check = lib.VLAN_spt_CheckVlanUsdByPort

-- A VR with 4096 relation records, none carrying the VLAN asked about.
function setup_db(path, vr, count, vlan)
  local db = cfgdb.open(path, { vr = vr, lr = 1, cdb = 0 })
  local zeros = string.rep("\0", 512)
  local carried = {}
  for i = 1, 512 do carried[i] = 0xFF end
  carried[math.floor(vlan / 8) + 1] = 0xFF - 2 ^ (vlan % 8)
  carried = string.char(unpack(carried))
  for i = 1, count do
    db:insert('PV_RELATION', { vrId = vr, ifIndex = 0x1000 + i, bitmap1 = carried, bitmap2 = zeros })
  end
  db:bind()
  return db
end
)lua";

/* ---- the floors: the module's steps straight on the engine's C API ---- */

/* An element read as the module reads it: only a number counts (a string never does); integral
 * values keep their low 32 bits, others are cut toward zero, NaN and infinities read 0. */
uint32_t FloorElement(lua_State *L, int iType)
{
    if (iType != LUA_TNUMBER) {
        return 0;
    }
#if SYSDT_LUA_INTEGERS
    int iIsInteger = 0;
    lua_Integer llValue = lua_tointegerx(L, -1, &iIsInteger);
    if (iIsInteger != 0) {
        return static_cast<uint32_t>(llValue);
    }
#endif
    constexpr lua_Number kTwoPow63 = 9223372036854775808.0;
    lua_Number dValue = lua_tonumber(L, -1);
    return (dValue >= -kTwoPow63 && dValue < kTwoPow63) ? static_cast<uint32_t>(static_cast<long long>(dValue)) : 0;
}

/* The argument check and read of one bitmap table: a table of 1..512 elements, each read by
 * push key, get, read, pop. */
bool FloorReadBitMap(lua_State *L, int iArg, uint8_t *pucOut, lua_Integer *pllNum)
{
    if (lua_type(L, iArg) != LUA_TTABLE) {
        return false;
    }
    auto llNum = static_cast<lua_Integer>(SysdtLua_RawLen(L, iArg));
    if (llNum < 1 || llNum > kBitMapLen) {
        return false;
    }
    for (lua_Integer i = 1; i <= llNum; i++) {
        lua_pushinteger(L, i);
        pucOut[i - 1] = static_cast<uint8_t>(FloorElement(L, SysdtLua_GetTable(L, iArg)));
        lua_pop(L, 1);
    }
    *pllNum = llNum;
    return true;
}

/* Union (bOr) or intersection: 0 and the result table, set by push key, push value, set. */
template <bool bOr>
int FloorCombine(lua_State *L)
{
    uint8_t aucA[kBitMapLen] = {0};
    uint8_t aucB[kBitMapLen] = {0};
    lua_Integer llNumA = 0;
    lua_Integer llNumB = 0;
    if (!FloorReadBitMap(L, 1, aucA, &llNumA) || !FloorReadBitMap(L, 2, aucB, &llNumB)) {
        lua_pushinteger(L, 1);
        return 1;
    }
    lua_pushinteger(L, 0);
    lua_createtable(L, static_cast<int>(kBitMapLen), 0);
    for (lua_Integer i = 1; i <= llNumA; i++) {
        lua_pushinteger(L, i);
        lua_pushinteger(L, bOr ? (aucA[i - 1] | aucB[i - 1]) : (aucA[i - 1] & aucB[i - 1]));
        lua_settable(L, -3);
    }
    return 2;
}

/* The first free VLAN, found as the module finds it: a 64-bit word at a time. */
int FloorFirstFree(lua_State *L)
{
    uint8_t aucMap[kBitMapLen] = {0};
    lua_Integer llNum = 0;
    if (FloorReadBitMap(L, 1, aucMap, &llNum)) {
        for (int w = 0; w < kBitMapLen / 8; w++) {
            uint64_t ulUsed = KEL_GetLe64(aucMap + 8 * w);
            ulUsed |= (w == 0 ? 1u : 0u) | (w == kBitMapLen / 8 - 1 ? 1ull << 63 : 0u);  /* VLAN 0 and 4095 */
            if (ulUsed != ~0ull) {
                lua_pushinteger(L, 0);
                lua_pushinteger(L, w * 64 + std::countr_one(ulUsed));
                return 2;
            }
        }
    }
    lua_pushinteger(L, 1);
    return 1;
}

double Seconds(std::chrono::steady_clock::time_point tStart)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - tStart).count();
}

void Check(lua_State *L, int iRet)
{
    if (iRet != LUA_OK) {
        std::fprintf(stderr, "lua: %s\n", lua_tostring(L, -1));
        std::exit(1);
    }
}

/* Runs repeat_call(fname, n, args...) once and returns its time in seconds. */
double TimeLua(lua_State *L, const char *pcFunc, int iRounds, const char *pcArgs)
{
    std::string strChunk = std::string("repeat_call(") + pcFunc + ", " + std::to_string(iRounds) + ", " + pcArgs + ")";
    auto tStart = std::chrono::steady_clock::now();
    Check(L, luaL_dostring(L, strChunk.c_str()));
    return Seconds(tStart);
}

/* Best time in seconds of rounds interleaved runs of each function. */
int g_iCalls = 20000;

void BestOfInterleaved(lua_State *L, const char *const *apcFuncs, double *adBest, int iNum, const char *pcArgs)
{
    const int kCalls = g_iCalls;
    for (int i = 0; i < iNum; i++) {
        TimeLua(L, apcFuncs[i], kCalls / 10, pcArgs);       /* warm-up */
        adBest[i] = 1e30;
    }
    for (int iRound = 0; iRound < 5; iRound++) {
        for (int i = 0; i < iNum; i++) {
            double dTime = TimeLua(L, apcFuncs[i], kCalls, pcArgs) / kCalls;
            adBest[i] = dTime < adBest[i] ? dTime : adBest[i];
        }
    }
}

void CompareToFloor(lua_State *L, const char *pcName, const char *pcModule, const char *pcFloor, const char *pcLua,
                    const char *pcArgs)
{
    const char *const apcFuncs[] = {pcModule, pcFloor, pcLua};
    double adBest[3];
    BestOfInterleaved(L, apcFuncs, adBest, 3, pcArgs);
    std::printf("%-27s module %6.2f us  floor %6.2f us  module/floor %5.2f (goal <= 1.20)  plain Lua %6.2f us"
                "  speed vs Lua %5.2fx\n", pcName, adBest[0] * 1e6, adBest[1] * 1e6, adBest[0] / adBest[1],
                adBest[2] * 1e6, adBest[2] / adBest[0]);
}

/* The baseline of the port check: one prepared statement over the VR's relation records,
 * testing the VLAN's bit in both bitmaps. */
class RelationScan {
public:
    explicit RelationScan(const char *pcPath)
    {
        const ECM_CTL_TABLE_S *pstTable = ECM_CTL_FindTable(kRelationTable);
        std::string strSql = std::string("SELECT ") + ECM_CTL_FindField(pstTable, 2)->pcName + ", " +
                             ECM_CTL_FindField(pstTable, 3)->pcName + ", " + ECM_CTL_FindField(pstTable, 4)->pcName +
                             " FROM " + pstTable->pcName + " WHERE " + ECM_CTL_FindField(pstTable, 1)->pcName + " = ?";
        if (sqlite3_open_v2(pcPath, &m_pDb, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
            sqlite3_prepare_v2(m_pDb, strSql.c_str(), -1, &m_pStmt, nullptr) != SQLITE_OK) {
            std::fprintf(stderr, "sqlite: %s\n", sqlite3_errmsg(m_pDb));
            std::exit(1);
        }
    }
    ~RelationScan()
    {
        sqlite3_finalize(m_pStmt);
        sqlite3_close(m_pDb);
    }
    RelationScan(const RelationScan &) = delete;
    RelationScan &operator=(const RelationScan &) = delete;

    /* Number of records read; *pbUsed when one carries the VLAN. */
    int Run(uint32_t uiVr, uint32_t uiVlan, bool *pbUsed)
    {
        int iRows = 0;
        *pbUsed = false;
        sqlite3_bind_int64(m_pStmt, 1, uiVr);
        while (sqlite3_step(m_pStmt) == SQLITE_ROW) {
            iRows++;
            for (int iCol = 1; iCol <= 2; iCol++) {
                auto *pucBitMap = static_cast<const uint8_t *>(sqlite3_column_blob(m_pStmt, iCol));
                if (pucBitMap != nullptr && sqlite3_column_bytes(m_pStmt, iCol) > static_cast<int>(uiVlan / 8) &&
                    (pucBitMap[uiVlan / 8] & (1u << (uiVlan % 8))) != 0) {
                    *pbUsed = true;
                }
            }
        }
        sqlite3_reset(m_pStmt);
        return iRows;
    }

private:
    sqlite3 *m_pDb = nullptr;
    sqlite3_stmt *m_pStmt = nullptr;
};

void ComparePortCheck(lua_State *L, const std::string &strPath)
{
    constexpr int kRounds = 200;
    std::string strSetup = "DB = setup_db('" + strPath + "', " + std::to_string(kVr) + ", " +
                           std::to_string(kRelationNum) + ", " + std::to_string(kVlan) + ")";
    Check(L, luaL_dostring(L, strSetup.c_str()));
    std::string strArgs = std::to_string(kVlan) + ", " + std::to_string(kVr) + ", 0, 0";
    Check(L, luaL_dostring(L, ("assert(check(" + strArgs + ") == 1)").c_str()));

    RelationScan scan(strPath.c_str());
    bool bUsed = true;
    if (scan.Run(kVr, kVlan, &bUsed) != kRelationNum || bUsed) {
        std::fprintf(stderr, "baseline does not see %d free records\n", kRelationNum);
        std::exit(1);
    }
    TimeLua(L, "check", kRounds / 10, strArgs.c_str());
    double dModule = TimeLua(L, "check", kRounds, strArgs.c_str());
    auto tStart = std::chrono::steady_clock::now();
    for (int i = 0; i < kRounds; i++) {
        (void)scan.Run(kVr, kVlan, &bUsed);
    }
    double dScan = Seconds(tStart);
    std::printf("%-28s module %7.1f us  C scan    %7.1f us  ratio    %5.2fx (goal <= 1.5x)\n", "CheckVlanUsdByPort",
                dModule / kRounds * 1e6, dScan / kRounds * 1e6, dModule / dScan);
    Check(L, luaL_dostring(L, "DB:close()"));
}

}  // namespace

int main(int argc, char **argv)
{
    g_iCalls = argc > 1 ? std::atoi(argv[1]) : g_iCalls;   /* calls per timed loop */
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    Check(L, luaL_dostring(L, "package.cpath = '" VLANLUA_LUA_DIR "/?.so'"));
    Check(L, luaL_dostring(L, kLuaSide));
    lua_register(L, "floor_merge", FloorCombine<true>);
    lua_register(L, "floor_and", FloorCombine<false>);
    lua_register(L, "floor_firstfree", FloorFirstFree);

    std::printf("engine: %s\n", SYSDT_LUA_ENGINE);
    CompareToFloor(L, "VLAN_spt_Merg2BitMap", "merge", "floor_merge", "lua_merge", "A, B");
    CompareToFloor(L, "VLAN_spt_And2BitMap", "both", "floor_and", "lua_and", "A, B");
    CompareToFloor(L, "VLAN_spt_GetFirstFreeValue", "firstfree", "floor_firstfree", "lua_firstfree", "C");

    char acDir[] = "/tmp/bench_bitmap_XXXXXX";
    if (mkdtemp(acDir) == nullptr) {
        return 1;
    }
    std::string strPath = std::string(acDir) + "/cfg.db";
    ComparePortCheck(L, strPath);
    lua_close(L);
    std::filesystem::remove_all(acDir);
    return 0;
}
