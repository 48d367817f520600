/* Benchmark of the user-VLAN walk, driven from an embedded script engine like the device's
 * scripts drive it: a page of 64 entries at the end of a VR of 100,000 entries against one at
 * its start, and a page inside a 1,000,000-entry QinQ rectangle against one inside a
 * 1,000-entry rectangle. Prints each ratio with its goal; exits 1 when a goal is missed. */
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "sysdt_lua.h"

namespace {

/* VR 1: 500 interfaces with 802.1Q 1..100 and 500 QinQ interfaces with PE 1..10 x CE 1..10,
 * 100,000 entries in all. VR 2: one 1,000,000-entry rectangle; VR 3: one 1,000-entry one. */
const char *const SETUP = R"(
  package.cpath = VLANLUA_LUA_DIR .. "/?.so;" .. package.cpath
  cfgdb = require "cfgdb"
  require "libvlanluaext"
  db = cfgdb.open()
  db:bind()
  local seg = 0
  for i = 1, 1000 do
    local ifIndex = 1000 + i
    if i % 2 == 1 then
      db:insert('UVLAN_DOT1Q', {ifIndex = ifIndex, vrId = 1, vlanBegin = 1, vlanEnd = 100})
    else
      seg = seg + 1
      db:insert('IF_INFO', {ifIndex = ifIndex, vrId = 1, kind = 11})
      db:insert('UVLAN_QINQ_SEG', {ifIndex = ifIndex, segIndex = seg, vrId = 1, ceBegin = 1, ceEnd = 10, peBegin = 1, peEnd = 10})
    end
  end
  db:insert('IF_INFO', {ifIndex = 7, vrId = 2, kind = 11})
  db:insert('UVLAN_QINQ_SEG', {ifIndex = 7, segIndex = 1, vrId = 2, ceBegin = 1, ceEnd = 1000, peBegin = 1, peEnd = 1000})
  db:insert('IF_INFO', {ifIndex = 8, vrId = 3, kind = 11})
  db:insert('UVLAN_QINQ_SEG', {ifIndex = 8, segIndex = 1, vrId = 3, ceBegin = 1, ceEnd = 1, peBegin = 1, peEnd = 1000})
  local q = libvlanluaext.VLAN_spt_UserVlanMibQuery
  function page(ifIndex, pe, ce, vr)
    local code, t = q(ifIndex, pe, ce, vr, 64, 0)
    assert(code == 0 and #t == 64, "a full page")
  end
)";

/* Best time of one call over the rounds, in microseconds; rounds alternate with the baseline. */
double TimeCall(lua_State *L, const char *pcCall)
{
    luaL_loadstring(L, pcCall);
    auto start = std::chrono::steady_clock::now();
    if (lua_pcall(L, 0, 0, 0) != LUA_OK) {
        std::fprintf(stderr, "%s\n", lua_tostring(L, -1));
        std::exit(2);
    }
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

bool Compare(lua_State *L, const char *pcName, const char *pcBase, const char *pcSubject, double dGoal)
{
    const int ROUNDS = 60;
    std::vector<double> base, subject;
    for (int i = 0; i < ROUNDS; i++) {
        base.push_back(TimeCall(L, pcBase));
        subject.push_back(TimeCall(L, pcSubject));
    }
    std::sort(base.begin(), base.end());
    std::sort(subject.begin(), subject.end());
    double dBase = base[ROUNDS / 2];
    double dSubject = subject[ROUNDS / 2];
    double dRatio = dSubject / dBase;
    bool bMet = dRatio <= dGoal;
    std::printf("%-46s baseline %8.1f us  module %8.1f us  ratio %.2f (goal <= %.1f) %s\n", pcName, dBase, dSubject,
                dRatio, dGoal, bMet ? "met" : "MISSED");
    return bMet;
}

}  // namespace

int main()
{
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    lua_pushstring(L, VLANLUA_LUA_DIR);
    lua_setglobal(L, "VLANLUA_LUA_DIR");
    if (luaL_dostring(L, SETUP) != LUA_OK) {
        std::fprintf(stderr, "setup: %s\n", lua_tostring(L, -1));
        return 2;
    }
    /* The last 64 entries of VR 1 are the QinQ interface 2000: CE 4 PE 7 onwards. */
    bool bOk = Compare(L, "page at the end vs the start of 100,000", "page(0, 0, 0, 1)", "page(2000, 6, 4, 1)", 1.5);
    bOk = Compare(L, "page in 1,000,000-entry vs 1,000-entry row", "page(8, 500, 1, 3)", "page(7, 500, 500, 2)",
                  2.0) && bOk;
    luaL_dostring(L, "db:close()");
    lua_close(L);
    return bOk ? 0 : 1;
}
