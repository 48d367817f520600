-- The bitmap script functions from stock Lua: union and intersection of byte tables, the first
-- free VLAN and refused tables. No database is opened: these functions must work without one.
local t = require "testlib"
local lib = require "libvlanluaext"

local merge, both, firstfree = lib.VLAN_spt_Merg2BitMap, lib.VLAN_spt_And2BitMap, lib.VLAN_spt_GetFirstFreeValue

-- The results of f(...) must be exactly the wanted list.
local function returns(want, what, f, ...)
  t.same(t.pack(f(...)), want, what)
end

local function filled(n, v)
  local r = {}
  for i = 1, n do r[i] = v end
  return r
end

-- A full bitmap in script form (VLANs 1..4094), with the last byte given.
local function full_table(last)
  local r = filled(512, 255)
  r[1], r[512] = 254, last
  return r
end

-- The table's result as a plain sequence, checking that it has exactly n elements.
local function elems(tbl, n)
  t.eq(type(tbl), "table", "result type")
  t.eq(#tbl, n, "result length")
  return tbl
end

t.case("union and intersection combine byte by byte with the first table's length", function()
  local r = t.pack(merge({ 1, 2 }, { 4 }))
  t.eq(r.n, 2, "count")
  t.eq(r[1], 0, "code")
  t.same(t.pack(table.unpack(elems(r[2], 2))), { 5, 2 }, "{1,2} | {4}")
  r = t.pack(both({ 1, 2 }, { 4 }))
  t.same(t.pack(r[1], table.unpack(elems(r[2], 2))), { 0, 0, 0 }, "{1,2} & {4}")
  r = t.pack(merge({ 4 }, { 1, 2 }))
  t.same(t.pack(r[1], table.unpack(elems(r[2], 1))), { 0, 5 }, "{4} | {1,2}")
end)

t.case("elements keep their low 8 bits", function()
  local r = t.pack(merge({ 257, -1, 0x1FF00 }, { 0, 0, 0 }))
  t.same(t.pack(r[1], table.unpack(elems(r[2], 3))), { 0, 1, 255, 0 }, "narrowed")
end)

t.case("tables of no element or more than 512 are refused with result 1 alone", function()
  returns({ 1 }, "empty first", merge, {}, { 1 })
  returns({ 1 }, "empty second", merge, { 1 }, {})
  returns({ 1 }, "513 first", merge, filled(513, 1), { 1 })
  returns({ 1 }, "513 second", both, { 1 }, filled(513, 1))
  returns({ 1 }, "not a table", both, 5, { 1 })
  returns({ 1 }, "no argument", merge)
  returns({ 1 }, "empty", firstfree, {})
  returns({ 1 }, "513", firstfree, filled(513, 0))
  returns({ 1 }, "string", firstfree, "abc")
end)

t.case("512-element tables are the largest accepted", function()
  local r = t.pack(merge(filled(512, 0x0F), filled(512, 0xF0)))
  t.eq(r[1], 0, "code")
  local out = elems(r[2], 512)
  for i = 1, 512 do t.eq(out[i], 255, "byte " .. i) end
end)

t.case("the first free VLAN skips VLAN 0 and the used IDs of byte 0", function()
  returns({ 0, 8 }, "{254}", firstfree, { 254 })
  returns({ 0, 8 }, "{255}", firstfree, { 255 })
  returns({ 0, 1 }, "{0}", firstfree, { 0 })
  returns({ 0, 1 }, "{1}", firstfree, { 1 })
  returns({ 0, 64 }, "first word full", firstfree, filled(8, 255))
  returns({ 0, 65 }, "VLAN 64 used", firstfree, { 255, 255, 255, 255, 255, 255, 255, 255, 1 })
end)

t.case("VLAN 4095 is never free and never makes a bitmap less full", function()
  returns({ 1 }, "1..4094 used", firstfree, full_table(127))
  returns({ 1 }, "1..4095 used", firstfree, full_table(255))
  returns({ 0, 4094 }, "4094 free", firstfree, full_table(63))
  returns({ 0, 4088 }, "last byte empty", firstfree, full_table(0))
end)

t.case("argument tables are left as they came in", function()
  local a, b = { 1, 2, 3 }, { 4 }
  merge(a, b)
  both(a, b)
  firstfree(a)
  t.same(t.pack(table.unpack(a)), { 1, 2, 3 }, "a")
  t.same(t.pack(table.unpack(b)), { 4 }, "b")
end)

t.finish()
