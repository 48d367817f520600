/* Cost of a database probe from a script: VLAN_spt_GetMainifBySubif against an IF_INFO table
 * of 100,000 interfaces, next to one raw SQLite prepared select of the same row from C on the
 * same file. Prints both per-call times and their ratio (goal <= 1.3). */
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "sysdt_lua.h"

#include "ecm_ctl.h"
#include "vlanlua_tables.h"

namespace {

constexpr uint32_t kIfInfo = VLANLUA_TBL_IF_INFO;
constexpr uint32_t kRows = 100000;
constexpr uint32_t kFirstSub = 0x100000;
constexpr uint32_t kVrId = 7;

[[noreturn]] void Die(const std::string &strWhy)
{
    std::fprintf(stderr, "bench_probe: %s\n", strWhy.c_str());
    std::exit(1);
}

std::string Column(uint32_t uiField)
{
    return ECM_CTL_FindField(ECM_CTL_FindTable(kIfInfo), uiField)->pcName;
}

uint32_t MainOf(uint32_t uiSub)
{
    return 0x1000 + (uiSub - kFirstSub) / 8;
}

/* Creates the database file with the stand-in's schema, then fills IF_INFO in one transaction. */
void BuildFile(const std::string &strPath)
{
    char acErr[256];
    void *pObj = ECM_CTL_Open(strPath.c_str(), 1, kVrId, 0, acErr, sizeof(acErr));
    if (pObj == nullptr) {
        Die(acErr);
    }
    ECM_CTL_Close(pObj);
    sqlite3 *pDb = nullptr;
    sqlite3_stmt *pStmt = nullptr;
    std::string strSql = "INSERT INTO " + std::string(ECM_CTL_FindTable(kIfInfo)->pcName) + "(" + Column(2) + ", " +
                         Column(3) + ", " + Column(4) + ", " + Column(12) + ") VALUES (?, ?, 11, ?)";
    if (sqlite3_open(strPath.c_str(), &pDb) != SQLITE_OK ||
        sqlite3_exec(pDb, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(pDb, strSql.c_str(), -1, &pStmt, nullptr) != SQLITE_OK) {
        Die(sqlite3_errmsg(pDb));
    }
    for (uint32_t i = 0; i < kRows; i++) {
        sqlite3_bind_int64(pStmt, 1, kFirstSub + i);
        sqlite3_bind_int64(pStmt, 2, kVrId);
        sqlite3_bind_int64(pStmt, 3, MainOf(kFirstSub + i));
        if (sqlite3_step(pStmt) != SQLITE_DONE) {
            Die(sqlite3_errmsg(pDb));
        }
        sqlite3_reset(pStmt);
    }
    sqlite3_finalize(pStmt);
    if (sqlite3_exec(pDb, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK) {
        Die(sqlite3_errmsg(pDb));
    }
    sqlite3_close(pDb);
}

/* The n-th key of both loops: spread over the whole table. */
uint32_t KeyAt(uint32_t i)
{
    return kFirstSub + static_cast<uint32_t>((static_cast<uint64_t>(i) * 7919u) % kRows);
}

double NsPerCall(std::chrono::steady_clock::time_point start, uint32_t uiCalls)
{
    std::chrono::duration<double, std::nano> elapsed = std::chrono::steady_clock::now() - start;
    return elapsed.count() / uiCalls;
}

/* The baseline: one prepared select per lookup, from C. Returns ns per lookup and the sum. */
double TimeRawSelect(const std::string &strPath, uint32_t uiCalls, uint64_t *pulSum)
{
    sqlite3 *pDb = nullptr;
    sqlite3_stmt *pStmt = nullptr;
    std::string strSql = "SELECT " + Column(12) + " FROM " + ECM_CTL_FindTable(kIfInfo)->pcName + " WHERE " +
                         Column(2) + " = ?";
    if (sqlite3_open_v2(strPath.c_str(), &pDb, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(pDb, strSql.c_str(), -1, &pStmt, nullptr) != SQLITE_OK) {
        Die(sqlite3_errmsg(pDb));
    }
    uint64_t ulSum = 0;
    auto start = std::chrono::steady_clock::now();
    for (uint32_t i = 0; i < uiCalls; i++) {
        sqlite3_bind_int64(pStmt, 1, KeyAt(i));
        if (sqlite3_step(pStmt) == SQLITE_ROW) {
            ulSum += static_cast<uint64_t>(sqlite3_column_int64(pStmt, 0));
        }
        sqlite3_reset(pStmt);
    }
    double dNs = NsPerCall(start, uiCalls);
    sqlite3_finalize(pStmt);
    sqlite3_close(pDb);
    *pulSum = ulSum;
    return dNs;
}

void Check(lua_State *L, int iRet)
{
    if (iRet != LUA_OK) {
        Die(lua_tostring(L, -1));
    }
}

/* The module: the same lookups through the script function, from a Lua loop. */
double TimeProbe(lua_State *L, uint32_t uiCalls, uint64_t *pulSum)
{
    lua_getglobal(L, "run_probe");
    lua_pushinteger(L, uiCalls);
    auto start = std::chrono::steady_clock::now();
    Check(L, lua_pcall(L, 1, 1, 0));
    double dNs = NsPerCall(start, uiCalls);
    *pulSum = static_cast<uint64_t>(lua_tointeger(L, -1));
    lua_pop(L, 1);
    return dNs;
}

}  // namespace

int main(int argc, char **argv)
{
    uint32_t uiCalls = argc > 1 ? static_cast<uint32_t>(std::atol(argv[1])) : 100000;
    std::string strPath = "/tmp/vlanlua_bench_probe_" + std::to_string(getpid()) + ".db";
    BuildFile(strPath);

    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    std::string strChunk = "package.cpath = '" VLANLUA_LUA_DIR "/?.so;' .. package.cpath\n"
                           "local probe = require('libvlanluaext').VLAN_spt_GetMainifBySubif\n"
                           "function run_probe(n)\n"
                           "  local sum = 0\n"
                           "  for i = 0, n - 1 do\n"
                           "    local code, main = probe(" + std::to_string(kFirstSub) + " + (i * 7919) % " +
                           std::to_string(kRows) + ")\n"
                           "    if code == 0 then sum = sum + main end\n"
                           "  end\n"
                           "  return sum\n"
                           "end";
    Check(L, luaL_dostring(L, strChunk.c_str()));
    char acErr[256];
    void *pObj = ECM_CTL_Open(strPath.c_str(), 1, kVrId, 0, acErr, sizeof(acErr));
    if (pObj == nullptr) {
        Die(acErr);
    }
    ECM_CTL_Bind(L, pObj);

    uint64_t ulProbeSum = 0, ulRawSum = 0;
    (void)TimeProbe(L, uiCalls / 10, &ulProbeSum);            /* warm-up */
    (void)TimeRawSelect(strPath, uiCalls / 10, &ulRawSum);
    double dProbe = 1e30, dRaw = 1e30;
    for (int i = 0; i < 3; i++) {                              /* best of three, interleaved */
        double dp = TimeProbe(L, uiCalls, &ulProbeSum);
        double dr = TimeRawSelect(strPath, uiCalls, &ulRawSum);
        dProbe = dp < dProbe ? dp : dProbe;
        dRaw = dr < dRaw ? dr : dRaw;
    }
    if (ulProbeSum != ulRawSum) {
        Die("the probe and the raw select disagree");
    }
    std::printf("IF_INFO rows: %u, lookups per loop: %u\n", kRows, uiCalls);
    std::printf("VLAN_spt_GetMainifBySubif from Lua: %8.1f ns/call\n", dProbe);
    std::printf("raw prepared SQLite select from C:  %8.1f ns/call\n", dRaw);
    std::printf("ratio probe / raw select:           %8.2f  (goal <= 1.30)\n", dProbe / dRaw);

    ECM_CTL_Close(pObj);
    lua_close(L);
    for (const char *pcSuffix : {"", "-wal", "-shm"}) {
        (void)std::remove((strPath + pcSuffix).c_str());
    }
    return 0;
}
