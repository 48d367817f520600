-- VLAN_spt_UpdataQinQIfSpec against a bound database: updating, inserting and deleting the
-- counter, the recount from stored rectangles and injected failures.
local t = require "testlib"
local lib = require "libvlanluaext"

local update = lib.VLAN_spt_UpdataQinQIfSpec
local QINQ, IFCNT, VR = t.QINQ, t.QINQ_IF_SPEC, t.VR
local MAIN = 0x4000

local function counter(db, n) db:insert(IFCNT, { [1] = VR, [2] = MAIN, [3] = n }) end

local function rect(db, seg, pe1, pe2, ce1, ce2, main, vr)
  db:insert(QINQ, { [2] = 0x4001, [3] = seg, [4] = pe1, [5] = pe2, [6] = ce1, [7] = ce2, [8] = 1,
    [9] = vr or VR, [10] = main or MAIN })
end

local function set_line(n) return t.w("set", IFCNT, 0, { [1] = VR, [2] = MAIN, [3] = n }) end
local function insert_line(n) return t.w("insert", IFCNT, 0, { [1] = VR, [2] = MAIN, [3] = n }) end
local delete_line = t.w("delete", IFCNT, 0, { [1] = VR, [2] = MAIN })

-- Each case: the stored counter (nil: none), delta, add?, the new count and the one write.
local UPDATES = {
  { 10, 4, true, 14, set_line(14) },
  { 10, 5, false, 5, set_line(5) },
  { 10, 12, false, 0, delete_line },           -- below zero: deleted
  { 3, 3, false, 0, delete_line },             -- exactly zero
  { 0xFFFFFFFF, 1, true, 0, delete_line },     -- wraps in 32 bits to zero
  { nil, 5, false, 0 },                        -- nothing stored, nothing to recount: no write
  { nil, 0, true, 0 },
}

t.case("a stored counter moves by the delta and is deleted at zero", function()
  for i, c in ipairs(UPDATES) do
    local db = t.fresh()
    if c[1] then counter(db, c[1]) end
    db:journal()
    t.same(t.pack(update(MAIN, c[2], VR, c[3])), { 0, c[4] }, "case " .. i)
    t.lines(t.writes(db), { c[5] }, "case " .. i .. ": writes")
    t.no_leak(db)
  end
end)

local function recount_example()
  local db = t.fresh()
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
  t.lines(t.writes(db), { insert_line(24) }, "writes")
  t.same(t.pack(update(MAIN, 1, VR, true)), { 0, 25 }, "now stored")
  t.lines(t.writes(db), { set_line(25) }, "writes")
end)

t.case("an unreadable stored counter switches to the recount and an insert that collides", function()
  local db = t.fresh()
  counter(db, 10)
  db:journal()
  db:fail_call(2)            -- the select of the stored counter
  t.same(t.pack(update(MAIN, 4, VR, true)), { 1 }, "insert over the stored counter")
  db:fail_call(0)
  t.clean(db, "after the failure")
end)

-- The sites whose failure fails the recount; any other failure leaves the recount intact (the
-- stored counter counts as missing anyway). Allocations: the counter read's record set and
-- buffer, then the recount's record set, the count's and the result buffer. Client calls: the
-- counter's id and select, then the count, the id and select of rectangles, and the insert.
for kind, want in pairs({ alloc = { fails = { [3] = true, [4] = true, [5] = true }, n = 6 },
                          call = { fails = { [3] = true, [5] = true, [6] = true }, n = 7 } }) do
  t.case("a " .. kind .. " failing at each site of the recount gives the documented answer", function()
    local n = t.sweep(kind, recount_example, function() return update(MAIN, 3, VR, true) end, function(n, r, db)
      local what = kind .. " n=" .. n
      t.same(r, want.fails[n] and { 1 } or { 0, 24 }, what)
      t.lines(t.writes(db), { not want.fails[n] and insert_line(24) or nil }, what .. ": writes")
      if n >= want.n then return "clean" end
    end)
    t.eq(n, want.n, kind .. " sites of a recount")
  end)
end

t.finish()
