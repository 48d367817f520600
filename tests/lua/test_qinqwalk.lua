-- VLAN_spt_GetNextQinQMibQuery against a bound database: the get-next order, pages of every size
-- against a brute-force expansion of the stored rectangles, the interface window, the
-- all-ones interface and injected failures.
local t = require "testlib"
local lib = require "libvlanluaext"

local walk = lib.VLAN_spt_GetNextQinQMibQuery
local QINQ, IF_INFO, VR = t.QINQ, t.IF_INFO, t.VR

local function iface(db, ifx, vr, kind)
  db:insert(IF_INFO, { ifIndex = ifx, vrId = vr or VR, kind = kind or 1 })
end

local seg = 0
local function rect(db, ifx, pe1, pe2, ce1, ce2, group, vr)
  seg = seg + 1
  db:insert(QINQ, { [2] = ifx, [3] = seg, [4] = pe1, [5] = pe2, [6] = ce1, [7] = ce2, [8] = group or 0,
    [9] = vr or VR })
end

local function fmt(r) return string.format("(%d,%d,%d-%d,g%d)", r.ifIndex, r.peVlan, r.ceVlanBegin, r.ceVlanEnd, r.groupId) end

-- Calls the walk and returns its rows as text; the result code must be 0.
local function page(ifx, pe, ce, num)
  local r = t.pack(walk(ifx, pe, ce, VR, num))
  t.eq(r.n, 2, "result count")
  t.eq(r[1], 0, "result code")
  local out = {}
  for i, row in ipairs(r[2]) do out[i] = fmt(row) end
  return out, r[2]
end

local function worked_example()
  local db = t.fresh()
  iface(db, 7)
  iface(db, 9)
  rect(db, 7, 10, 11, 1, 5)
  rect(db, 9, 3, 3, 8, 9)
  return db
end

local R1, R2, R3 = "(7,10,1-5,g0)", "(7,11,1-5,g0)", "(9,3,8-9,g0)"

-- Walks from the start and pages resumed after their last row: the random paging case below.
t.case("rows follow the position in (interface, PE VLAN, first CE VLAN) order", function()
  local db = worked_example()
  t.lines(page(7, 10, 1, 10), { R2, R3 }, "after (7,10,1)")
  t.lines(page(7, 10, 0, 10), { R1, R2, R3 }, "before (7,10,1)")
  t.lines(page(0, 0, 0, 0), {}, "none")
  t.clean(db, "walk")
end)

t.case("the row fields, up to the top of their ranges, and PE and CE positions cut to 16 bits", function()
  local db = t.fresh()
  iface(db, 5)
  rect(db, 5, 4094, 4094, 4000, 4094, 3)
  rect(db, 5, 65535, 65535, 65534, 65535, 255)
  local rows, raw = page(5, 0x10000 + 4093, 0, 10)
  t.lines(rows, { "(5,4094,4000-4094,g3)", "(5,65535,65534-65535,g255)" }, "rows")
  t.eq(raw[1].ifIndex, 5, "ifIndex")
  t.eq(raw[2].ceVlanEnd, 65535, "ceVlanEnd")
end)

t.case("a CE range beginning at 4095 never follows a position on its own PE VLAN", function()
  local db = t.fresh()
  iface(db, 5)
  rect(db, 5, 10, 10, 4095, 4095)
  t.lines(page(5, 10, 0, 10), {}, "same PE VLAN")
  t.lines(page(5, 9, 4094, 10), { "(5,10,4095-4095,g0)" }, "earlier PE VLAN")
  t.lines(page(4, 10, 0, 10), { "(5,10,4095-4095,g0)" }, "earlier interface")
end)

t.case("only kind-1 interfaces of the VR are walked, and only that VR's records", function()
  local db = t.fresh()
  iface(db, 3, VR, 2)
  iface(db, 4, VR + 1, 1)
  iface(db, 5)
  rect(db, 3, 1, 1, 1, 1)
  rect(db, 4, 1, 1, 1, 1)
  rect(db, 5, 1, 1, 1, 1, 0, VR + 1)
  rect(db, 5, 2, 2, 1, 1)
  t.lines(page(0, 0, 0, 10), { "(5,2,1-1,g0)" }, "rows")
end)

t.case("one call looks at the first 64 interfaces at or after the position only", function()
  local db = t.fresh()
  for i = 1, 64 do iface(db, 100 + i) end
  iface(db, 500)
  rect(db, 500, 1, 1, 1, 1)
  t.lines(page(0, 0, 0, 10), {}, "64 empty interfaces first")
  t.lines(page(101, 0, 0, 10), {}, "from the first one")
  t.lines(page(102, 0, 0, 10), { "(500,1,1-1,g0)" }, "from the second one")
end)

t.case("the all-ones interface is refused with 1 and nil, the one below it is walked", function()
  local db = worked_example()
  t.same(t.pack(walk(0xFFFFFFFF, 0, 0, VR, 10)), { n = 2, 1, nil }, "all-ones interface")
  t.lines(page(0xFFFFFFFE, 0, 0, 10), {}, "just below")
  t.clean(db, "refused")
end)

-- Random disjoint rectangles on a dozen interfaces, some of another VR or kind, expanded by
-- brute force; paging through with any page size must give the expansion's rows in order.
t.case("paging with 1, 7 and 64 rows gives the brute-force expansion, as one large page does", function()
  local db = t.fresh()
  math.randomseed(99)
  local want = {}
  local taken = {}
  for ifx = 1, 12 do
    local walked = ifx % 5 ~= 0
    iface(db, ifx * 10, walked and VR or VR + 1)
    for _ = 1, math.random(0, 12) do
      local p, c = math.random(1, 30), math.random(1, 30)
      local r = { p, p + math.random(0, 6), c, c + math.random(0, 3) }
      local free = true
      for pe = r[1], r[2] do for ce = r[3], r[4] do if taken[ifx * 100000 + pe * 100 + ce] then free = false end end end
      if free then
        local g = math.random(0, 3)
        rect(db, ifx * 10, r[1], r[2], r[3], r[4], g)
        for pe = r[1], r[2] do
          for ce = r[3], r[4] do taken[ifx * 100000 + pe * 100 + ce] = true end
          if walked then want[#want + 1] = { ifx * 10, pe, r[3], r[4], g } end
        end
      end
    end
  end
  table.sort(want, function(a, b)
    if a[1] ~= b[1] then return a[1] < b[1] end
    if a[2] ~= b[2] then return a[2] < b[2] end
    return a[3] < b[3]
  end)
  local expected = {}
  for i, w in ipairs(want) do expected[i] = string.format("(%d,%d,%d-%d,g%d)", w[1], w[2], w[3], w[4], w[5]) end
  t.check(#expected > 100, "too few rows to page through")
  t.lines(page(0, 0, 0, 100000), expected, "one large page")
  for _, size in ipairs({ 1, 7, 64 }) do
    local got, pos = {}, { 0, 0, 0 }
    for _ = 1, #expected + 2 do
      local rows, raw = page(pos[1], pos[2], pos[3], size)
      if #rows == 0 then break end
      t.check(#rows <= size, "page larger than asked")
      for _, r in ipairs(rows) do got[#got + 1] = r end
      local last = raw[#raw]
      pos = { last.ifIndex, last.peVlan, last.ceVlanBegin }
    end
    t.lines(got, expected, "pages of " .. size)
  end
  t.no_leak(db)
end)

-- Failure sites of the worked example's first page: the interface query fails the walk; a
-- failure inside one interface skips that interface and keeps the rows it already gave.
local function sweep_check(plan, kind)
  return function(n, r, db)
    local p = plan[n]
    if p == "fail" then
      t.same(r, { n = 2, 1, nil }, kind .. " n=" .. n)
    else
      t.eq(r[1], 0, kind .. " n=" .. n)
      local rows = {}
      for i, row in ipairs(r[2]) do rows[i] = fmt(row) end
      t.lines(rows, p or { R1, R2, R3 }, kind .. " n=" .. n)
    end
    t.clean(db, kind .. " n=" .. n)
    if not p then return "clean" end
  end
end

t.case("an allocation failing at each site of a page gives the documented rows", function()
  local plan = {
    "fail", "fail",             -- interface query: record set, result buffer
    { R3 }, { R3 },             -- interface 7: record set, result buffer
    { R3 },                     -- its first row
    { R1, R3 },                 -- its second row: the first stays
    { R1, R2 }, { R1, R2 },     -- interface 9: record set, result buffer
    { R1, R2 },                 -- its row
  }
  local n = t.sweep("alloc", worked_example, function() return walk(0, 0, 0, VR, 10) end, sweep_check(plan, "alloc"))
  t.eq(n, 10, "allocations of a page")
end)

t.case("a client call failing at each site of a page gives the documented rows", function()
  local plan = {
    { R1, R2, R3 },             -- database id of the interface query: not tested
    "fail",                     -- interface query
    { R3 },                     -- interface 7: count
    { R1, R2, R3 },             -- database id
    { R3 },                     -- select
    { R1, R2 },                 -- interface 9: count
    { R1, R2, R3 },             -- database id
    { R1, R2 },                 -- select
  }
  local check = sweep_check(plan, "call")
  local n = t.sweep("call", worked_example, function() return walk(0, 0, 0, VR, 10) end, function(n, r, db)
    check(n, r, db)
    if n > #plan then return "clean" end
  end)
  t.eq(n, 9, "client calls of a page")
end)

t.finish()
