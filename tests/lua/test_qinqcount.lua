-- VLAN_spt_UpdataQinQIfSpec against a bound database: updating, inserting and deleting the
-- counter, the recount from stored rectangles, refused arguments and injected failures.
local t = require "testlib"
local m = require "matchlib"
local lib = require "libvlanluaext"

local update = lib.VLAN_spt_UpdataQinQIfSpec
local QINQ, SPEC, VR = m.QINQ, m.QINQ_IF_SPEC, m.VR
local MAIN = 0x4000

local function counter(db, n) db:insert(SPEC, { [1] = VR, [2] = MAIN, [3] = n }) end

local function rect(db, seg, pe1, pe2, ce1, ce2, main, vr)
  db:insert(QINQ, { [2] = 0x4001, [3] = seg, [4] = pe1, [5] = pe2, [6] = ce1, [7] = ce2, [8] = 1,
    [9] = vr or VR, [10] = main or MAIN })
end

local function set_line(n) return m.w("set", SPEC, 0, { [1] = VR, [2] = MAIN, [3] = n }) end
local function insert_line(n) return m.w("insert", SPEC, 0, { [1] = VR, [2] = MAIN, [3] = n }) end
local delete_line = m.w("delete", SPEC, 0, { [1] = VR, [2] = MAIN })

t.case("a stored counter is updated by the delta", function()
  local db = m.fresh()
  counter(db, 10)
  db:journal()
  t.same(t.pack(update(MAIN, 4, VR, true)), { 0, 14 }, "add")
  m.same_lines(m.writes(db), { set_line(14) }, "writes")
  t.same(t.pack(update(MAIN, 5, VR, false)), { 0, 9 }, "remove")
  m.same_lines(m.writes(db), { set_line(9) }, "writes")
  m.no_leak(db)
end)

t.case("a counter that falls to zero or below is deleted", function()
  local db = m.fresh()
  counter(db, 10)
  db:journal()
  t.same(t.pack(update(MAIN, 12, VR, false)), { 0, 0 }, "remove more than stored")
  m.same_lines(m.writes(db), { delete_line }, "writes")
  t.eq(db:count(SPEC), 0, "stored counters")
  counter(db, 3)
  db:journal()
  t.same(t.pack(update(MAIN, 3, VR, false)), { 0, 0 }, "remove exactly")
  m.same_lines(m.writes(db), { delete_line }, "writes")
end)

t.case("the counter wraps in 32 bits, and a wrap to zero deletes it", function()
  local db = m.fresh()
  counter(db, 0xFFFFFFFF)
  db:journal()
  t.same(t.pack(update(MAIN, 1, VR, true)), { 0, 0 }, "wrap")
  m.same_lines(m.writes(db), { delete_line }, "writes")
end)

local function recount_example()
  local db = m.fresh()
  rect(db, 1, 100, 101, 1, 10)
  rect(db, 2, 200, 200, 5, 5)
  rect(db, 3, 1, 50, 1, 50, MAIN + 1)      -- another main interface
  rect(db, 4, 1, 50, 1, 50, MAIN, VR + 1)  -- another VR
  return db
end

t.case("without a stored counter the pairs of the stored rectangles are recounted", function()
  local db = recount_example()
  db:journal()
  t.same(t.pack(update(MAIN, 3, VR, true)), { 0, 24 }, "2 x 10 + 1 x 1 + 3")
  m.same_lines(m.writes(db), { insert_line(24) }, "writes")
  t.same(t.pack(update(MAIN, 1, VR, true)), { 0, 25 }, "now stored")
  m.same_lines(m.writes(db), { set_line(25) }, "writes")
end)

t.case("without a counter or rectangles a removal gives zero and writes nothing", function()
  local db = m.fresh()
  t.same(t.pack(update(MAIN, 5, VR, false)), { 0, 0 }, "remove")
  t.same(t.pack(update(MAIN, 0, VR, true)), { 0, 0 }, "add nothing")
  t.clean(db, "no writes")
end)

t.case("wrong argument counts or types and a missing database give the single result 1", function()
  local db = m.fresh()
  counter(db, 10)
  db:journal()
  t.same(t.pack(update(MAIN, 4, VR)), { 1 }, "three values")
  t.same(t.pack(update(MAIN, 4, VR, true, 1)), { 1 }, "five values")
  t.same(t.pack(update(MAIN, 4, VR, 1)), { 1 }, "a number in position 4")
  t.same(t.pack(update(MAIN, "4", VR, true)), { 1 }, "a string in position 2")
  t.clean(db, "refused")
  require("cfgdb").unbind()
  t.same(t.pack(update(MAIN, 4, VR, true)), { 1 }, "no database")
  db:bind()
  t.clean(db, "no database")
end)

t.case("an unreadable stored counter switches to the recount and an insert that collides", function()
  local db = m.fresh()
  counter(db, 10)
  db:journal()
  db:fail_call(2)            -- the select of the stored counter
  t.same(t.pack(update(MAIN, 4, VR, true)), { 1 }, "insert over the stored counter")
  db:fail_call(0)
  t.clean(db, "after the failure")
end)

t.case("an allocation failing at each site of the recount gives the documented answer", function()
  local n = m.sweep("alloc", recount_example, function() return update(MAIN, 3, VR, true) end, function(n, r, db)
    local lines = m.writes(db)
    if n == 3 or n == 4 or n == 5 then   -- recount: its record set, the count's, the result buffer
      t.same(r, { 1 }, "alloc n=" .. n)
      t.eq(#lines, 0, "alloc n=" .. n .. ": writes")
    else                                 -- 1, 2: the stored counter counts as missing anyway
      t.same(r, { 0, 24 }, "alloc n=" .. n)
      m.same_lines(lines, { insert_line(24) }, "alloc n=" .. n .. ": writes")
      if n > 5 then return "clean" end
    end
  end)
  t.eq(n, 6, "allocations of a recount")
end)

t.case("a client call failing at each site of the recount gives the documented answer", function()
  local fails = { [3] = true, [5] = true, [6] = true }   -- count, select of rectangles, insert
  local n = m.sweep("call", recount_example, function() return update(MAIN, 3, VR, true) end, function(n, r, db)
    local lines = m.writes(db)
    if fails[n] then
      t.same(r, { 1 }, "call n=" .. n)
      t.eq(#lines, 0, "call n=" .. n .. ": writes")
    else
      t.same(r, { 0, 24 }, "call n=" .. n)
      m.same_lines(lines, { insert_line(24) }, "call n=" .. n .. ": writes")
      if n > 6 then return "clean" end
    end
  end)
  t.eq(n, 7, "client calls of a recount")
end)

t.finish()
