/* Bitmap script functions against the same functions written in plain Lua, and the port VLAN
 * usage check against a C loop over the same relation records with one prepared statement.
 * One program, one run: each pair is timed side by side and its ratio printed. */
#include <lua.hpp>
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "ecm_ctl.h"

namespace {

constexpr uint32_t kRelationTable = 0x0D49077Du;
constexpr int kRelationNum = 4096;
constexpr uint32_t kVr = 7;
constexpr uint32_t kVlan = 100;

/* What a script writer would write for the three bitmap functions, and the set-up. */
const char *const kLuaSide = R"lua(
local lib = require "libvlanluaext"
local cfgdb = require "cfgdb"

function lua_merge(a, b)
  local r = {}
  for i = 1, #a do r[i] = (a[i] | (b[i] or 0)) & 0xFF end
  return 0, r
end

function lua_and(a, b)
  local r = {}
  for i = 1, #a do r[i] = (a[i] & (b[i] or 0)) & 0xFF end
  return 0, r
end

function lua_firstfree(t)
  for i = 1, 512 do
    local byte = t[i] or 0
    if byte ~= 255 then
      for bit = 0, 7 do
        local v = (i - 1) * 8 + bit
        if v >= 1 and v <= 4094 and byte & (1 << bit) == 0 then return 0, v end
      end
    end
  end
  return 1
end

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
  carried[(vlan >> 3) + 1] = 0xFF & ~(1 << (vlan & 7))
  carried = string.char(table.unpack(carried))
  for i = 1, count do
    db:insert(0x0D49077D, { [1] = vr, [2] = 0x1000 + i, [3] = carried, [4] = zeros })
  end
  db:bind()
  return db
end
)lua";

/* The union through the same per-element stack protocol (push key, get, read, pop; push key,
 * push value, set) straight on the Lua C API, without the platform's stack layer: the floor of
 * any implementation that reads and returns tables element by element. */
int RawProtocolMerge(lua_State *L)
{
    uint8_t aucA[512] = {0};
    uint8_t aucB[512] = {0};
    auto uiNumA = static_cast<lua_Integer>(lua_rawlen(L, 1));
    auto uiNumB = static_cast<lua_Integer>(lua_rawlen(L, 2));
    for (lua_Integer i = 1; i <= uiNumA && i <= 512; i++) {
        lua_pushinteger(L, i);
        lua_gettable(L, 1);
        aucA[i - 1] = static_cast<uint8_t>(lua_tointeger(L, -1));
        lua_pop(L, 1);
    }
    for (lua_Integer i = 1; i <= uiNumB && i <= 512; i++) {
        lua_pushinteger(L, i);
        lua_gettable(L, 2);
        aucB[i - 1] = static_cast<uint8_t>(lua_tointeger(L, -1));
        lua_pop(L, 1);
    }
    lua_pushinteger(L, 0);
    lua_createtable(L, 512, 0);
    for (lua_Integer i = 1; i <= uiNumA && i <= 512; i++) {
        lua_pushinteger(L, i);
        lua_pushinteger(L, aucA[i - 1] | aucB[i - 1]);
        lua_settable(L, -3);
    }
    return 2;
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

void ComparePair(lua_State *L, const char *pcName, const char *pcModule, const char *pcLua, const char *pcArgs,
                 const char *pcGoal = "(goal >= 3x)")
{
    constexpr int kRounds = 20000;
    TimeLua(L, pcModule, kRounds / 10, pcArgs);      /* warm-up */
    TimeLua(L, pcLua, kRounds / 10, pcArgs);
    double dModule = TimeLua(L, pcModule, kRounds, pcArgs);
    double dLua = TimeLua(L, pcLua, kRounds, pcArgs);
    std::printf("%-28s module %7.2f us  plain Lua %7.2f us  speed-up %5.2fx %s\n", pcName,
                dModule / kRounds * 1e6, dLua / kRounds * 1e6, dLua / dModule, pcGoal);
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

int main()
{
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    Check(L, luaL_dostring(L, "package.cpath = '" VLANLUA_LUA_DIR "/?.so'"));
    Check(L, luaL_dostring(L, kLuaSide));

    ComparePair(L, "VLAN_spt_Merg2BitMap", "merge", "lua_merge", "A, B");
    lua_register(L, "raw_protocol_merge", RawProtocolMerge);
    ComparePair(L, "  (raw Lua C API, same steps)", "raw_protocol_merge", "lua_merge", "A, B", "(floor)");
    ComparePair(L, "VLAN_spt_And2BitMap", "both", "lua_and", "A, B");
    ComparePair(L, "VLAN_spt_GetFirstFreeValue", "firstfree", "lua_firstfree", "C");

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
