-- The bitmap script functions from stock Lua: union and intersection of byte tables, the first
-- free VLAN and refused tables. No database is opened: these functions must work without one.
local t = require "testlib"
local lib = require "libvlanluaext"
local unpack = table.unpack or unpack

local merge, both, firstfree = lib.VLAN_spt_Merg2BitMap, lib.VLAN_spt_And2BitMap, lib.VLAN_spt_GetFirstFreeValue

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

-- Code and every element of the result table, which must be a sequence of exactly n.
local function flat(n, code, tbl)
  t.eq(#tbl, n, "result length")
  return t.pack(code, unpack(tbl))
end

t.case("union and intersection go byte by byte over the first table's length, low 8 bits kept", function()
  t.eq(select("#", merge({ 1 }, { 4 })), 2, "result count")
  t.same(flat(3, merge({ 257, -1, 0x1FF00 }, { 0, 0, 0 })), { 0, 1, 255, 0 }, "narrowed")
  local code, out = merge(filled(512, 0x0F), filled(512, 0xF0))
  t.same(flat(512, code, out), t.pack(0, unpack(filled(512, 255))), "512 elements")
end)

t.case("tables of no element or more than 512, or no table, are refused with result 1 alone", function()
  local REFUSED = {
    { merge, {}, { 1 } }, { merge, { 1 }, {} }, { merge, filled(513, 1), { 1 } }, { both, { 1 }, filled(513, 1) },
    { both, 5, { 1 } }, { merge }, { firstfree, {} }, { firstfree, filled(513, 0) }, { firstfree, "abc" },
  }
  for i, c in ipairs(REFUSED) do t.same(t.pack(c[1](unpack(c, 2))), { 1 }, "refused case " .. i) end
end)

t.case("the first free VLAN skips VLAN 0 and 4095 and finds the edges of each byte", function()
  local CASES = {
    { { 254 }, { 0, 8 } }, { { 255 }, { 0, 8 } }, { { 0 }, { 0, 1 } }, { { 1 }, { 0, 1 } },
    { filled(8, 255), { 0, 64 } }, { { 255, 255, 255, 255, 255, 255, 255, 255, 1 }, { 0, 65 } },
    { full_table(127), { 1 } }, { full_table(255), { 1 } }, { full_table(63), { 0, 4094 } },
    { full_table(0), { 0, 4088 } },
  }
  for i, c in ipairs(CASES) do t.same(t.pack(firstfree(c[1])), c[2], "first-free case " .. i) end
end)

t.case("argument tables are left as they came in", function()
  local a, b = { 1, 2, 3 }, { 4 }
  merge(a, b)
  both(a, b)
  firstfree(a)
  t.same(t.pack(unpack(a)), { 1, 2, 3 }, "a")
  t.same(t.pack(unpack(b)), { 4 }, "b")
end)

t.finish()
