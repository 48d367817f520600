-- VLAN_spt_Dot1QMatchMerge against a bound database: which ranges count as neighbours, the ends
-- at 1 and 4094, a random sequence against a range model, and every injected allocation or
-- client-call failure. The writes of the worked example and their order are pinned by the
-- manual's example (test_manual.lua).
local t = require "testlib"
local lib = require "libvlanluaext"
local unpack = table.unpack or unpack

local merge = lib.VLAN_spt_Dot1QMatchMerge
local DOT1Q, SEG_INDEX, VR = t.DOT1Q, t.SEG_INDEX, t.VR
local IF = 0x2001

local function store(db, ifx, seg, bgn, fin, group)
  db:insert(DOT1Q, { [1] = 0, [2] = ifx, [3] = seg, [4] = bgn, [5] = fin, [6] = group, [7] = VR })
end

local function ranges(db, ifx)
  return t.rows(db, DOT1Q, function(r) return string.format("%d %d [%d,%d]", r[2], r[6], r[4], r[5]) end,
    ifx and { [2] = ifx } or nil)
end

-- arguments: interface, begin, end, group, VR, attr8, attr1, attr10
local function args(bgn, fin, group, ifx)
  return { ifx or IF, bgn, fin, group or 1, VR, 88, 11, 10 }
end

-- The inserted Dot1Q record carrying every attribute of the request.
local function dot1q_insert(seg, bgn, fin)
  return t.w("insert", DOT1Q, 1, { [1] = 11, [2] = IF, [3] = seg, [4] = bgn, [5] = fin, [6] = 1, [7] = VR,
    [8] = 88, [9] = 0, [10] = 10 })
end

local function seg_insert(seg) return t.w("insert", SEG_INDEX, 0, { [1] = seg, [2] = VR }) end

-- The index the last call took, read from its SEG_INDEX write.
local function taken_index(lines)
  return tonumber(lines[1]:match("1=(%d+)"))
end

local function worked_example()
  local db = t.fresh()
  store(db, IF, 900, 10, 19, 1)
  store(db, IF, 901, 31, 40, 1)
  return db
end

t.case("only abutting ranges are neighbours, and only one step is taken", function()
  local db = t.fresh()
  store(db, IF, 900, 10, 18, 1)     -- ends two before: a gap
  store(db, IF, 901, 32, 40, 1)
  store(db, IF, 902, 20, 25, 1)     -- overlaps the new range: not looked for
  t.same(t.pack(merge(args(20, 30))), { 0 }, "result")
  local lines = t.writes(db)
  t.lines(lines, { seg_insert(taken_index(lines)), dot1q_insert(taken_index(lines), 20, 30) }, "writes")
end)

t.case("no left neighbour below VLAN 1 and no right neighbour above 4094", function()
  local db = t.fresh()
  store(db, IF, 900, 0, 0, 1)
  store(db, IF, 901, 4095, 4095, 1)
  t.same(t.pack(merge(args(1, 5))), { 0 }, "at 1")
  t.same(t.pack(merge(args(4090, 4094))), { 0 }, "at 4094")
  local lines = t.writes(db)
  t.eq(#lines, 4, "two inserts each, no delete")
  t.eq(#ranges(db), 4, "stored ranges")
  local db2 = t.fresh()
  store(db2, IF, 900, 1, 1, 1)
  store(db2, IF, 901, 4094, 4094, 1)
  t.same(t.pack(merge(args(2, 4093))), { 0 }, "between the ends")
  t.lines(ranges(db2), { string.format("%d 1 [1,4094]", IF) }, "fused across the whole range")
end)

t.case("values are cut to their field widths and not validated", function()
  local db = t.fresh()
  t.same(t.pack(merge({ IF, 0x10000 + 30, 20, 0x102, VR, 1, 2, 0x1FF })), { 0 }, "result")
  local r = db:rows(DOT1Q)[1]
  t.eq(r[4], 30, "begin")
  t.eq(r[5], 20, "end below begin kept")
  t.eq(r[6], 2, "group")
  t.eq(r[10], 0xFF, "attr10")
end)

-- Random non-overlapping ranges on two interfaces and two groups; the model fuses a new range
-- with the model range ending just before it and the one beginning just after it.
t.case("random merges keep every VLAN once and fuse exactly the abutting neighbours", function()
  local db = t.fresh()
  local model = {}           -- key "if group" -> list of {bgn, fin}
  math.randomseed(42)
  local function owner(key, v)
    for i, r in ipairs(model[key] or {}) do
      if v >= r[1] and v <= r[2] then return i end
    end
  end
  for step = 1, 300 do
    local ifx, group = IF + math.random(0, 1), math.random(1, 2)
    local key = ifx .. " " .. group
    local lo = math.random(0, 1) == 0 and 1 or 4070
    local bgn = lo + math.random(0, 24)
    local fin = math.min(bgn + math.random(0, 3), 4094)
    local free = true
    for v = bgn, fin do if owner(key, v) then free = false end end
    if free then
      t.same(t.pack(merge(args(bgn, fin, group, ifx))), { 0 }, "step " .. step)
      local list = model[key] or {}
      model[key] = list
      local nb, nf = bgn, fin
      local left = bgn > 1 and owner(key, bgn - 1)
      local right = fin < 4094 and owner(key, fin + 1)
      local keep = {}
      for i, r in ipairs(list) do
        if i == left and r[2] == bgn - 1 then nb = r[1]
        elseif i == right and r[1] == fin + 1 then nf = r[2]
        else keep[#keep + 1] = r end
      end
      keep[#keep + 1] = { nb, nf }
      model[key] = keep
      local want = {}
      for k, l in pairs(model) do
        for _, r in ipairs(l) do want[#want + 1] = string.format("%s [%d,%d]", k, r[1], r[2]) end
      end
      table.sort(want)
      t.lines(ranges(db), want, "after step " .. step)
    end
  end
  db:journal()
  t.no_leak(db)
end)

-- Failure sites of the worked example, in call order: the code and the ranges left stored. A
-- failed neighbour read counts as no neighbour; a failed index or insert writes no Dot1Q record;
-- failed deletes are ignored.
local FAIL, FUSED = { 1, "10,19", "31,40" }, { 0, "10,40" }
local NO_LEFT, NO_RIGHT = { 0, "10,19", "20,40" }, { 0, "10,30", "31,40" }

local function outcome(r, db)
  local got = { r[1] }
  for _, row in ipairs(db:rows(DOT1Q, { [2] = IF })) do got[#got + 1] = row[4] .. "," .. row[5] end
  table.sort(got, function(a, b) return tostring(a) < tostring(b) end)
  return got
end

local function sorted(want)
  local w = { unpack(want) }
  table.sort(w, function(a, b) return tostring(a) < tostring(b) end)
  return w
end

local function sweep(kind, plan, want_n)
  local n = t.sweep(kind, worked_example, function() return merge(args(20, 30)) end, function(n, r, db)
    t.eq(r.n, 1, kind .. " n=" .. n .. ": result count")
    local lines = t.writes(db)
    t.lines(outcome(r, db), sorted(plan[n] or FUSED), kind .. " n=" .. n)
    if kind == "call" and (n == 5 or n == 6) then t.eq(#lines, 0, "no write after a failed hand-out") end
    if kind == "call" and n == 7 then t.lines(lines, { seg_insert(taken_index(lines)) }, "only the index record") end
    if n > #plan then return "clean" end
  end)
  t.eq(n, want_n, kind .. " sites of a merge")
end

t.case("an allocation failing at each site gives the documented outcome without a leak", function()
  -- left read: record set, result buffer; right read: the same
  sweep("alloc", { NO_LEFT, NO_LEFT, NO_RIGHT, NO_RIGHT }, 5)
end)

t.case("a client call failing at each site gives the documented outcome", function()
  -- database id and select of each read (the id's result is not tested), index hand-out,
  -- SEG_INDEX record, Dot1Q insert, then the deletes of the two neighbours
  sweep("call", { FUSED, NO_LEFT, FUSED, NO_RIGHT, FAIL, FAIL, FAIL, { 0, "10,40", "10,19" },
                  { 0, "10,40", "31,40" } }, 10)
end)

t.finish()
