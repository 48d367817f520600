-- VLAN_spt_QinQMatchMerge against a bound database: chained absorption, the writes and their
-- order, the key text, random sequences checked against a cell model, and
-- every injected allocation or client-call failure.
local t = require "testlib"
local lib = require "libvlanluaext"

local merge = lib.VLAN_spt_QinQMatchMerge
local QINQ, SEG_INDEX, VR = t.QINQ, t.SEG_INDEX, t.VR
local IF, MAIN = 0x3001, 0x3000

local function store(db, seg, pe1, pe2, ce1, ce2, opts)
  opts = opts or {}
  db:insert(QINQ, { [1] = 5, [2] = opts.ifx or IF, [3] = seg, [4] = pe1, [5] = pe2, [6] = ce1, [7] = ce2,
    [8] = opts.group or 1, [9] = opts.vr or VR, [10] = MAIN, [11] = 77, [12] = "old" })
end

-- arguments: interface, attr1, PE begin, PE end, CE begin, CE end, main interface, group, VR, UP ID, key
local function args(pe1, pe2, ce1, ce2, opts)
  opts = opts or {}
  return { opts.ifx or IF, 9, pe1, pe2, ce1, ce2, MAIN, opts.group or 1, opts.vr or VR, 42, opts.key or "key-a" }
end

local function rects(db, where)
  return t.rows(db, QINQ, function(r)
    return string.format("%d/%d/%d PE[%d,%d] CE[%d,%d]", r[2], r[9], r[8], r[4], r[5], r[6], r[7])
  end, where)
end

local function taken_index(lines)
  for _, l in ipairs(lines) do
    if l:find(string.format("%08X", SEG_INDEX)) then return tonumber(l:match("1=(%d+)")) end
  end
end

local function qinq_insert(seg, pe1, pe2, ce1, ce2)
  return t.w("insert", QINQ, 1, { [1] = 9, [2] = IF, [3] = seg, [4] = pe1, [5] = pe2, [6] = ce1, [7] = ce2,
    [8] = 1, [9] = VR, [10] = MAIN, [11] = 42, [12] = "key-a" })
end
local function qinq_delete(seg) return t.w("delete", QINQ, 1, { [2] = IF, [3] = seg }) end
local function seg_insert(seg) return t.w("insert", SEG_INDEX, 0, { [1] = seg, [2] = VR }) end

local function worked_example()
  local db = t.fresh()
  store(db, 900, 100, 100, 1, 10)
  store(db, 901, 100, 100, 21, 30)
  return db
end

t.case("a rectangle between two stored ones fuses with both: deletes first, then the insert", function()
  local db = worked_example()
  t.same(t.pack(merge(args(100, 100, 11, 20))), { 0, 1 }, "result and merged flag")
  local lines = t.writes(db)
  local seg = taken_index(lines)
  t.lines(lines, { qinq_delete(900), qinq_delete(901), seg_insert(seg), qinq_insert(seg, 100, 100, 1, 30) },
    "writes: the merged record carries the new record's attributes")
  t.lines(rects(db), { string.format("%d/%d/1 PE[100,100] CE[1,30]", IF, VR) }, "stored")
  t.no_leak(db)
end)

-- (Other groups and interfaces are mixed by the random run below.)
t.case("records of another VR ID are not read", function()
  local db = t.fresh()
  store(db, 900, 100, 100, 1, 10, { vr = VR + 1 })
  t.same(t.pack(merge(args(100, 100, 11, 20))), { 0, 0 }, "result")
  local lines = t.writes(db)
  t.lines(lines, { seg_insert(taken_index(lines)), qinq_insert(taken_index(lines), 100, 100, 11, 20) }, "stored alone")
end)

t.case("an overlapping stored rectangle is left beside the new one", function()
  local db = t.fresh()
  store(db, 900, 100, 100, 5, 15)
  t.same(t.pack(merge(args(100, 100, 11, 20))), { 0, 0 }, "result")
  t.eq(#rects(db), 2, "both stored")
end)

t.case("a rectangle abutting only the widened one is absorbed, in the same or a later pass", function()
  local db = t.fresh()
  store(db, 900, 5, 5, 3, 3)        -- abuts only after CE [2,2] is absorbed: second pass
  store(db, 901, 5, 5, 2, 2)
  store(db, 902, 6, 6, 1, 3)        -- abuts only after both: third pass, widening PE
  t.same(t.pack(merge(args(5, 5, 1, 1))), { 0, 1 }, "result")
  local lines = t.writes(db)
  local seg = taken_index(lines)
  t.lines(lines, { qinq_delete(901), qinq_delete(900), qinq_delete(902), seg_insert(seg),
    qinq_insert(seg, 5, 6, 1, 3) }, "absorbed in pass order")
  local db2 = t.fresh()
  store(db2, 900, 5, 5, 2, 2)
  store(db2, 901, 5, 5, 3, 3)       -- later in the list: same pass
  t.same(t.pack(merge(args(5, 5, 1, 1))), { 0, 1 }, "result")
  t.lines(rects(db2), { string.format("%d/%d/1 PE[5,5] CE[1,3]", IF, VR) }, "stored")
end)

t.case("the key text is copied without terminator up to 64 characters, else left zero", function()
  local db = t.fresh()
  local k64, k65 = string.rep("k", 64), string.rep("z", 65)
  t.same(t.pack(merge(args(1, 1, 1, 1, { key = k64 }))), { 0, 0 }, "64")
  t.same(t.pack(merge(args(3, 3, 1, 1, { key = k65 }))), { 0, 0 }, "65")
  t.same(t.pack(merge(args(5, 5, 1, 1, { key = {} }))), { 0, 0 }, "not a text")
  local keys = {}
  for _, r in ipairs(db:rows(QINQ)) do keys[r[4]] = r[12] end
  t.eq(keys[1], k64, "64 characters")
  t.eq(keys[3], "", "65 characters")
  t.eq(keys[5], "", "a table")
end)

-- Random disjoint rectangles on two interfaces and two groups of a small grid. After each call
-- the stored rectangles of the scope must tile exactly the cells configured so far; a new
-- rectangle that abutted a stored one must end up inside a rectangle that abuts no other one.
local function abut(a, b)
  local function eq(x1, x2, y1, y2) return x1 == y1 and x2 == y2 end
  local function touch(x1, x2, y1, y2) return x1 - 1 == y2 or x2 + 1 == y1 end
  return (eq(a[1], a[2], b[1], b[2]) and touch(a[3], a[4], b[3], b[4])) or
         (eq(a[3], a[4], b[3], b[4]) and touch(a[1], a[2], b[1], b[2]))
end

local function scope_rects(db, ifx, group)
  local out = {}
  for _, r in ipairs(db:rows(QINQ, { [2] = ifx, [8] = group })) do out[#out + 1] = { r[4], r[5], r[6], r[7] } end
  return out
end

t.case("random merges tile exactly the configured cells and leave no abutting pair behind", function()
  local db = t.fresh()
  math.randomseed(7)
  local cells = {}
  local merged_calls = 0
  for step = 1, 250 do
    local ifx, group = IF + math.random(0, 1), math.random(1, 2)
    local key = ifx .. "/" .. group
    cells[key] = cells[key] or {}
    local before = scope_rects(db, ifx, group)
    local p1, c1 = math.random(1, 8), math.random(1, 8)
    local r = { p1, p1 + math.random(0, 2), c1, c1 + math.random(0, 2) }
    if #before > 0 and math.random() < 0.6 then   -- aim at a stored rectangle's side
      local s, len = before[math.random(#before)], math.random(0, 2)
      local side = math.random(4)
      if side == 1 then r = { s[1], s[2], s[4] + 1, s[4] + 1 + len }
      elseif side == 2 then r = { s[1], s[2], s[3] - 1 - len, s[3] - 1 }
      elseif side == 3 then r = { s[2] + 1, s[2] + 1 + len, s[3], s[4] }
      else r = { s[1] - 1 - len, s[1] - 1, s[3], s[4] } end
    end
    local free = r[1] >= 1 and r[3] >= 1
    for p = r[1], r[2] do for c = r[3], r[4] do if cells[key][p * 100 + c] then free = false end end end
    if free then
      local adjacent = false
      for _, s in ipairs(before) do if abut(r, s) then adjacent = true end end
      local res = t.pack(merge(args(r[1], r[2], r[3], r[4], { ifx = ifx, group = group })))
      t.same(res, { 0, adjacent and 1 or 0 }, "step " .. step)
      if adjacent then merged_calls = merged_calls + 1 end
      for p = r[1], r[2] do for c = r[3], r[4] do cells[key][p * 100 + c] = true end end
      local after = scope_rects(db, ifx, group)
      local seen, n = {}, 0
      for _, s in ipairs(after) do
        for p = s[1], s[2] do
          for c = s[3], s[4] do
            t.check(not seen[p * 100 + c], "step " .. step .. ": cell stored twice")
            t.check(cells[key][p * 100 + c], "step " .. step .. ": cell never configured")
            seen[p * 100 + c] = true
            n = n + 1
          end
        end
      end
      local want = 0
      for _ in pairs(cells[key]) do want = want + 1 end
      t.eq(n, want, "step " .. step .. ": cells stored")
      if adjacent then
        local home
        for _, s in ipairs(after) do
          if s[1] <= r[1] and s[2] >= r[2] and s[3] <= r[3] and s[4] >= r[4] then home = s end
        end
        t.check(home, "step " .. step .. ": no rectangle holds the new one")
        for _, s in ipairs(after) do
          t.check(s == home or not abut(home, s), "step " .. step .. ": merge stopped early")
        end
        t.check(#after < #before + 1, "step " .. step .. ": nothing absorbed")
      end
    end
  end
  t.check(merged_calls > 20, "the sequence merged too rarely to prove anything")
  db:journal()
  t.no_leak(db)
end)

-- Failure sites of the worked example. Nothing is rolled back: absorbed records deleted before
-- a failure stay deleted.
local function expect_state(db, r, what, want_rects, want_code)
  t.same(r, { want_code, want_code == 0 and 1 or 0 }, what)
  local got = {}
  for _, s in ipairs(scope_rects(db, IF, 1)) do got[#got + 1] = string.format("%d-%d", s[3], s[4]) end
  table.sort(got)
  t.lines(got, want_rects, what .. ": stored CE ranges")
end

local untouched, fused = { "1-10", "21-30" }, { "1-30" }

t.case("an allocation failing at each site fails before any write, without a leak", function()
  local n = t.sweep("alloc", worked_example, function() return merge(args(100, 100, 11, 20)) end,
    function(n, r, db)
      if n <= 7 then   -- record set, result buffer, two stored nodes, two copies, the merged node
        expect_state(db, r, "alloc n=" .. n, untouched, 1)
        t.eq(#t.writes(db), 0, "alloc n=" .. n .. ": writes")
      else
        expect_state(db, r, "alloc n=" .. n, fused, 0)
        return "clean"
      end
    end)
  t.eq(n, 8, "allocations of a merge")
end)

t.case("a client call failing at each site leaves only the writes made before it", function()
  local plan = {
    { untouched, 1 },           -- count of stored records
    { fused, 0 },               -- database id: its result is not tested
    { untouched, 1 },           -- select of stored records
    { untouched, 1 },           -- first delete
    { { "21-30" }, 1 },         -- second delete: the first one stays done
    { {}, 1 },                  -- index hand-out: both absorbed records are gone
    { {}, 1 },                  -- SEG_INDEX record
    { {}, 1 },                  -- insert of the merged rectangle
  }
  local n = t.sweep("call", worked_example, function() return merge(args(100, 100, 11, 20)) end,
    function(n, r, db)
      local p = plan[n] or { fused, 0 }
      expect_state(db, r, "call n=" .. n, p[1], p[2])
      if not plan[n] then return "clean" end
    end)
  t.eq(n, 9, "client calls of a merge")
end)

t.finish()
