-- Control-VLAN bitmaps through the script functions against a bound database: slice arithmetic
-- at the slice edges, the reserved entries of slice 1, marks moved across and within slices, the
-- full flag, and control ID 0. Every write is checked in order, with its fields and flag 0.
local t = require "testlib"
local cfgdb = require "cfgdb"
local lib = require "libvlanluaext"

local CTRL = t.T.CTRL_VID_BITMAP
local VR = 7
local create, move = lib.VLAN_spt_CrtCtrlVidBitMap, lib.VLAN_spt_UpdataCtrlVidBitMap

local db = cfgdb.open(nil, { vr = VR, lr = 3, cdb = 0 })
db:bind()

local bm = t.bitmap

-- VLANs 1..4094 except the listed ones.
local function all_but(...)
  local skip, ids = {}, {}
  for _, v in ipairs({ ... }) do skip[v] = true end
  for v = 1, 4094 do
    if not skip[v] then ids[#ids + 1] = v end
  end
  return ids
end

local function fresh()
  db:delete(CTRL)
  db:journal()
end

-- Runs a script function; it must answer exactly one value and leave no module memory.
local function call(f, ...)
  local r = t.pack(f(...))
  t.eq(r.n, 1, "result count")
  t.eq(db:mem().live, 0, "live blocks")
  return r[1]
end

-- The writes since the last check must be exactly these, in order, with flag 0.
-- Each wanted write: {op, {field = value}}; bitmaps are given as lists of VLANs.
local function writes(want, what)
  local lines = {}
  for i, w in ipairs(want) do
    local fields = {}
    for f, v in pairs(w[2]) do fields[f] = type(v) == "table" and bm(v) or v end
    lines[i] = t.w(w[1], CTRL, 0, fields)
  end
  t.lines(t.writes(db), lines, what)
end

local function store(key, slice, ids)
  db:insert(CTRL, { ctrlKey = key, slice = slice, bitmap = bm(ids), vrId = VR, full = 0 })
  db:journal()
end

-- Each case: stored slices {key, slice, VLANs}, one call, and the writes it must make in order.
local C, M = "create", "move"
local CASES = {
  { "control ID 1 falls in slice 0", {}, { C, 101, 1 }, { { "insert", { [1] = 101, [2] = 0, [3] = { 1 }, [4] = VR } } } },
  { "control ID 4094 is the last of slice 0", {}, { C, 102, 4094 }, { { "insert", { [1] = 102, [2] = 0, [3] = { 4094 }, [4] = VR } } } },
  { "control ID 4095 opens slice 1, which gets the reserved VLANs 1 and 2", {}, { C, 103, 4095 },
    { { "insert", { [1] = 103, [2] = 1, [3] = { 1, 2 }, [4] = VR } } } },
  { "control ID 8188 is the last of slice 1", {}, { C, 104, 8188 }, { { "insert", { [1] = 104, [2] = 1, [3] = { 1, 2, 4094 }, [4] = VR } } } },
  { "control ID 8189 opens slice 2", {}, { C, 105, 8189 }, { { "insert", { [1] = 105, [2] = 2, [3] = { 1 }, [4] = VR } } } },
  { "marking in a stored slice 1 adds the reserved VLANs again", { { 9, 1, { 906 } } }, { C, 9, 5001 },
    { { "set", { [1] = 9, [2] = 1, [3] = { 1, 2, 906, 907 }, [5] = 0 } } } },
  { "marking in a stored slice 0", { { 9, 0, { 5 } } }, { C, 9, 6 },
    { { "set", { [1] = 9, [2] = 0, [3] = { 5, 6 }, [5] = 0 } } } },
  { "keys keep their slices apart", { { 1, 0, { 5 } } }, { C, 2, 6 },
    { { "insert", { [1] = 2, [2] = 0, [3] = { 6 }, [4] = VR } } } },
  { "extra arguments are ignored", {}, { C, 9, 3, "extra" }, { { "insert", { [1] = 9, [2] = 0, [3] = { 3 }, [4] = VR } } } },
  { "moving the last mark out of a slice deletes it, then creates the new slice", { { 9, 0, { 100 } } },
    { M, 9, 5000, 100 }, { { "delete", { [1] = 9, [2] = 0 } },
                           { "insert", { [1] = 9, [2] = 1, [3] = { 1, 2, 906 }, [4] = VR } } } },
  { "moving across into a stored slice updates both, no reserved VLAN added",
    { { 9, 0, { 100, 101 } }, { 9, 1, { 906 } } }, { M, 9, 5001, 100 },
    { { "set", { [1] = 9, [2] = 0, [3] = { 101 }, [5] = 0 } }, { "set", { [1] = 9, [2] = 1, [3] = { 906, 907 }, [5] = 0 } } } },
  { "moving from a slice never stored only marks the new ID", { { 9, 0, { 7 } } }, { M, 9, 8, 9000 },
    { { "set", { [1] = 9, [2] = 0, [3] = { 7, 8 }, [5] = 0 } } } },
  { "moving within a slice updates it once", { { 9, 0, { 100, 300 } } }, { M, 9, 200, 100 },
    { { "set", { [1] = 9, [2] = 0, [3] = { 200, 300 }, [5] = 0 } } } },
  { "moving within slice 1", { { 9, 1, { 906 } } }, { M, 9, 5100, 5000 },
    { { "set", { [1] = 9, [2] = 1, [3] = { 1006 }, [5] = 0 } } } },
  { "moving within a missing slice creates it", {}, { M, 9, 4200, 4100 },
    { { "insert", { [1] = 9, [2] = 1, [3] = { 1, 2, 106 }, [4] = VR } } } },
}

t.case("marks and moves write the slices at their edges in order", function()
  for i, c in ipairs(CASES) do
    fresh()
    for _, st in ipairs(c[2]) do store(st[1], st[2], st[3]) end
    local a = c[3]
    t.eq(call(a[1] == C and create or move, a[2], a[3], VR, a[4]), 0, "case " .. i .. " result")
    writes(c[4], string.format("case %d (%s)", i, c[1]))
  end
end)

t.case("the full flag goes to 1 with the last VLAN and back to 0 when one leaves", function()
  fresh()
  store(9, 0, all_but(4094))
  t.eq(call(create, 9, 4094, VR), 0, "fill slice 0")
  writes({ { "set", { [1] = 9, [2] = 0, [3] = all_but(), [5] = 1 } } }, "full")
  t.eq(call(move, 9, 4095, VR, 17), 0, "move 17 out of slice 0")
  writes({ { "set", { [1] = 9, [2] = 0, [3] = all_but(17), [5] = 0 } },
           { "insert", { [1] = 9, [2] = 1, [3] = { 1, 2 }, [4] = VR } } }, "not full")
  local rows = db:rows(CTRL, { ctrlKey = 9, slice = 0 })
  t.eq(rows[1][5], 0, "stored full flag")
end)

t.case("control ID 0 is refused with 1 and no write", function()
  fresh()
  store(9, 0, { 5 })
  t.eq(call(create, 9, 0, VR), 1, "control ID 0")
  t.eq(call(move, 9, 6, VR, 0), 1, "old control ID 0")
  t.eq(call(move, 9, 0, VR, 5), 1, "new control ID 0")
  t.clean(db, "refused")
end)

t.case("failures injected at every allocation and call end clean", function()
  for _, kind in ipairs({ "fail_alloc", "fail_call" }) do
    for n = 1, 20 do
      fresh()
      store(9, 0, { 100 })
      store(9, 1, { 906 })
      db[kind](db, n)
      local code = call(move, 9, 5000, VR, 100)
      db[kind](db, 0)
      t.eq(code, 0, kind .. " " .. n .. " result")
      db:journal()
    end
  end
end)

t.finish()
