/* Cost growth of the match-rule operations, each against its own small case in the same run:
 * the QinQ walk's last page of a 100,000-row table against its first page (goal <= 1.5), a page
 * over an interface of 32,768 rows against one of 4,096 (<= 10), a Dot1Q merge among 10,000
 * stored ranges against one among 10 (<= 3), and a QinQ merge among 4n stored rectangles
 * against one among n (<= 5). Prints the times and ratios. */
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "sysdt_lua.h"

namespace {

int Now(lua_State *L)
{
    std::chrono::duration<double> t = std::chrono::steady_clock::now().time_since_epoch();
    lua_pushnumber(L, t.count());
    return 1;
}

/* The cases, driven from Lua so that both sides go through the same script calls. */
const char *const kScript = R"LUA(
local cfgdb = require "cfgdb"
local lib = require "libvlanluaext"
local IF_INFO, DOT1Q, QINQ = "IF_INFO", "DOT1Q_MATCH_SEG", "QINQ_MATCH_SEG"
local VR = 7
local db = cfgdb.open(nil, { vr = VR, lr = 1, cdb = 0 })
db:bind()
local seg = 0
local function nextseg() seg = seg + 1; return seg end

-- Best of `rounds` of `reps` calls of f(), each preceded by an untimed prepare().
local function best(rounds, reps, f, prepare)
  local b = math.huge
  for _ = 1, rounds do
    local total = 0
    for _ = 1, reps do
      if prepare then prepare() end
      local t0 = bench_now()
      f()
      total = total + (bench_now() - t0)
    end
    b = math.min(b, total / reps)
  end
  return b
end

local failed = 0
local function report(what, small, large, goal)
  local ratio = large / small
  print(string.format("%-44s %9.1f us %9.1f us  ratio %5.2f  goal <= %.1f  %s", what, small * 1e6, large * 1e6,
    ratio, goal, ratio <= goal and "ok" or "MISSED"))
  if ratio > goal then failed = failed + 1 end
end

local function page(ifx, pe, ce, n)
  local r, rows = lib.VLAN_spt_GetNextQinQMibQuery(ifx, pe, ce, VR, n)
  assert(r == 0 and #rows == n, "walk page")
end

-- Walk: 1,000 interfaces of 100 rows each (PE 1..100, one CE range).
for i = 1, 1000 do
  db:insert(IF_INFO, { ifIndex = i, vrId = VR, kind = 1 })
  db:insert(QINQ, { ifIndex = i, segIndex = nextseg(), peBegin = 1, peEnd = 100, ceBegin = 1, ceEnd = 1, vrId = VR })
end
local first = best(5, 200, function() page(0, 0, 0, 64) end)
local last = best(5, 200, function() page(1000, 36, 1, 64) end)
report("walk: last page / first page (100,000 rows)", first, last, 1.5)

-- Growth: one interface of 8 or 64 records of 512 PE VLANs each, stored in descending order.
local function grow_iface(ifx, records)
  db:insert(IF_INFO, { ifIndex = ifx, vrId = VR, kind = 1 })
  for k = records, 1, -1 do
    db:insert(QINQ, { ifIndex = ifx, segIndex = nextseg(), peBegin = (k - 1) * 512 + 1, peEnd = k * 512, ceBegin = 1, ceEnd = 1,
      vrId = VR })
  end
end
grow_iface(2000001, 8)
grow_iface(2000002, 64)
local small = best(5, 20, function() page(2000000, 0, 0, 64) end)
local large = best(5, 20, function() page(2000001, 0xFFFF, 0, 64) end)
report("walk: page over 32,768 rows / over 4,096", small, large, 10)

-- Dot1Q merge: single VLANs 2, 4, 6, ... stored in five groups; [3,3] in group 1 fuses [2,2]
-- and [4,4], and the three records are put back after each timed call.
local function dot1q_iface(ifx, per_group, groups)
  for g = 1, groups do
    for k = 1, per_group do
      db:insert(DOT1Q, { ifIndex = ifx, segIndex = nextseg(), vlanBegin = 2 * k, vlanEnd = 2 * k, groupId = g, vrId = VR })
    end
  end
end
dot1q_iface(10, 10, 1)
dot1q_iface(11, 2000, 5)
local function dot1q_case(ifx)
  return best(5, 100, function()
    assert(lib.VLAN_spt_Dot1QMatchMerge({ ifx, 3, 3, 1, VR, 0, 0, 0 }) == 0)
  end, function()
    db:delete(DOT1Q, { ifIndex = ifx, vlanBegin = 2, groupId = 1 })
    db:delete(DOT1Q, { ifIndex = ifx, vlanEnd = 4, groupId = 1 })
    db:insert(DOT1Q, { ifIndex = ifx, segIndex = nextseg(), vlanBegin = 2, vlanEnd = 2, groupId = 1, vrId = VR })
    db:insert(DOT1Q, { ifIndex = ifx, segIndex = nextseg(), vlanBegin = 4, vlanEnd = 4, groupId = 1, vrId = VR })
  end)
end
report("Dot1Q merge: 10,000 stored ranges / 10", dot1q_case(10), dot1q_case(11), 3)

-- QinQ merge: PE 1, 3, 5, ... with CE [1,1]; PE [2,2] fuses PE 1 and 3, then is put back.
local function qinq_iface(ifx, n)
  for k = 1, n do
    db:insert(QINQ, { ifIndex = ifx, segIndex = nextseg(), peBegin = 2 * k - 1, peEnd = 2 * k - 1, ceBegin = 1, ceEnd = 1, groupId = 1,
      vrId = VR })
  end
end
qinq_iface(20, 500)
qinq_iface(21, 2000)
local function qinq_case(ifx)
  return best(3, 30, function()
    local r, merged = lib.VLAN_spt_QinQMatchMerge({ ifx, 0, 2, 2, 1, 1, 0, 1, VR, 0, "" })
    assert(r == 0 and merged == 1)
  end, function()
    db:delete(QINQ, { ifIndex = ifx, peBegin = 1, peEnd = 3 })
    db:delete(QINQ, { ifIndex = ifx, peBegin = 1, peEnd = 1 })
    db:delete(QINQ, { ifIndex = ifx, peBegin = 3, peEnd = 3 })
    db:insert(QINQ, { ifIndex = ifx, segIndex = nextseg(), peBegin = 1, peEnd = 1, ceBegin = 1, ceEnd = 1, groupId = 1, vrId = VR })
    db:insert(QINQ, { ifIndex = ifx, segIndex = nextseg(), peBegin = 3, peEnd = 3, ceBegin = 1, ceEnd = 1, groupId = 1, vrId = VR })
  end)
end
report("QinQ merge: 2,000 stored rectangles / 500", qinq_case(20), qinq_case(21), 5)
assert(db:mem().live == 0, "module memory left live")
return failed
)LUA";

}  // namespace

int main()
{
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    lua_register(L, "bench_now", Now);
    if (luaL_dostring(L, "package.cpath = '" VLANLUA_LUA_DIR "/?.so;' .. package.cpath") != LUA_OK ||
        luaL_dostring(L, kScript) != LUA_OK) {
        std::fprintf(stderr, "bench_match: %s\n", lua_tostring(L, -1));
        lua_close(L);
        return 1;
    }
    long lMissed = static_cast<long>(lua_tointeger(L, -1));
    lua_close(L);
    std::printf("bench_match: %ld goal(s) missed\n", lMissed);
    return 0;
}
