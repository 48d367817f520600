-- Control-VLAN bitmaps through the script functions against a bound database: slice arithmetic
-- at the slice edges, the reserved entries of slice 1, marks moved across and within slices, the
-- full flag, and refused arguments. Every write is checked in order, with its fields and flag 0.
local t = require "testlib"
local cfgdb = require "cfgdb"
local lib = require "libvlanluaext"

local CTRL = 0x083607EF
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

-- The VLAN IDs of a bitmap value, as a short text for messages.
local function show(bitmap)
  local ids = {}
  for v = 0, 4095 do
    local byte = bitmap:byte((v >> 3) + 1) or 0
    if byte & (1 << (v & 7)) ~= 0 then ids[#ids + 1] = v end
  end
  if #ids > 12 then return string.format("%d VLANs", #ids) end
  return "{" .. table.concat(ids, ",") .. "}"
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

-- The writes since the last check must be exactly these, in order.
-- Each wanted write: {op, {field = value}}; bitmaps are given as lists of VLANs.
local function writes(want, what)
  local got = db:journal()
  t.eq(#got, #want, (what or "writes") .. ": number of writes")
  for i, w in ipairs(want) do
    local g = got[i]
    local tag = string.format("%s: write %d", what or "writes", i)
    t.eq(g.op, w[1], tag .. " op")
    t.eq(g.table, CTRL, tag .. " table")
    t.eq(g.flag, 0, tag .. " flag")
    local nwant, ngot = 0, 0
    for _ in pairs(g.fields) do ngot = ngot + 1 end
    for f, v in pairs(w[2]) do
      nwant = nwant + 1
      if type(v) == "table" then
        t.eq(show(g.fields[f]), show(bm(v)), tag .. " field " .. f)
      else
        t.eq(g.fields[f], v, tag .. " field " .. f)
      end
    end
    t.eq(ngot, nwant, tag .. " field count")
  end
end

local function store(key, slice, ids)
  db:insert(CTRL, { [1] = key, [2] = slice, [3] = bm(ids), [4] = VR, [5] = 0 })
  db:journal()
end

t.case("control IDs map to slices at 4094, 4095, 8188 and 8189", function()
  fresh()
  for _, c in ipairs({ { 1, 0, { 1 } }, { 4094, 0, { 4094 } }, { 4095, 1, { 1, 2 } },
                        { 8188, 1, { 1, 2, 4094 } }, { 8189, 2, { 1 } } }) do
    local key = 100 + c[1]
    t.eq(call(create, key, c[1], VR), 0, "create " .. c[1])
    writes({ { "insert", { [1] = key, [2] = c[2], [3] = c[3], [4] = VR } } }, "control ID " .. c[1])
  end
end)

t.case("a new slice 1 carries the reserved VLANs 1 and 2, slice 0 does not", function()
  fresh()
  t.eq(call(create, 9, 5000, VR), 0, "create 5000")
  writes({ { "insert", { [1] = 9, [2] = 1, [3] = { 1, 2, 906 }, [4] = VR } } }, "5000")
  t.eq(call(create, 9, 100, VR), 0, "create 100")
  writes({ { "insert", { [1] = 9, [2] = 0, [3] = { 100 }, [4] = VR } } }, "100")
end)

t.case("marking in a stored slice updates it and adds the reserved VLANs again", function()
  fresh()
  store(9, 1, { 906 })
  t.eq(call(create, 9, 5001, VR), 0, "create 5001")
  writes({ { "set", { [1] = 9, [2] = 1, [3] = { 1, 2, 906, 907 }, [5] = 0 } } }, "5001")
  store(9, 0, { 5 })
  t.eq(call(create, 9, 6, VR), 0, "create 6")
  writes({ { "set", { [1] = 9, [2] = 0, [3] = { 5, 6 }, [5] = 0 } } }, "6")
end)

t.case("keys keep their slices apart", function()
  fresh()
  store(1, 0, { 5 })
  t.eq(call(create, 2, 6, VR), 0, "create under key 2")
  writes({ { "insert", { [1] = 2, [2] = 0, [3] = { 6 }, [4] = VR } } }, "other key")
end)

t.case("moving the last mark out of a slice deletes it and creates the new slice", function()
  fresh()
  store(9, 0, { 100 })
  t.eq(call(move, 9, 5000, VR, 100), 0, "move 100 -> 5000")
  writes({ { "delete", { [1] = 9, [2] = 0 } },
           { "insert", { [1] = 9, [2] = 1, [3] = { 1, 2, 906 }, [4] = VR } } }, "100 -> 5000")
end)

t.case("moving across slices into a stored slice updates both and adds no reserved VLAN", function()
  fresh()
  store(9, 0, { 100, 101 })
  store(9, 1, { 906 })
  t.eq(call(move, 9, 5001, VR, 100), 0, "move 100 -> 5001")
  writes({ { "set", { [1] = 9, [2] = 0, [3] = { 101 }, [5] = 0 } },
           { "set", { [1] = 9, [2] = 1, [3] = { 906, 907 }, [5] = 0 } } }, "100 -> 5001")
end)

t.case("moving from a slice that was never stored only marks the new ID", function()
  fresh()
  store(9, 0, { 7 })
  t.eq(call(move, 9, 8, VR, 9000), 0, "move 9000 -> 8")
  writes({ { "set", { [1] = 9, [2] = 0, [3] = { 7, 8 }, [5] = 0 } } }, "9000 -> 8")
end)

t.case("moving within a slice updates it once, old cleared and new set", function()
  fresh()
  store(9, 0, { 100, 300 })
  t.eq(call(move, 9, 200, VR, 100), 0, "move 100 -> 200")
  writes({ { "set", { [1] = 9, [2] = 0, [3] = { 200, 300 }, [5] = 0 } } }, "100 -> 200")
  store(9, 1, { 906 })
  t.eq(call(move, 9, 5100, VR, 5000), 0, "move 5000 -> 5100 in slice 1")
  writes({ { "set", { [1] = 9, [2] = 1, [3] = { 1006 }, [5] = 0 } } }, "5000 -> 5100")
end)

t.case("moving within a missing slice creates it", function()
  fresh()
  t.eq(call(move, 9, 4200, VR, 4100), 0, "move 4100 -> 4200")
  writes({ { "insert", { [1] = 9, [2] = 1, [3] = { 1, 2, 106 }, [4] = VR } } }, "4100 -> 4200")
end)

t.case("the full flag goes to 1 with the last VLAN and back to 0 when one leaves", function()
  fresh()
  store(9, 0, all_but(4094))
  t.eq(call(create, 9, 4094, VR), 0, "fill slice 0")
  writes({ { "set", { [1] = 9, [2] = 0, [3] = all_but(), [5] = 1 } } }, "full")
  t.eq(call(move, 9, 4095, VR, 17), 0, "move 17 out of slice 0")
  writes({ { "set", { [1] = 9, [2] = 0, [3] = all_but(17), [5] = 0 } },
           { "insert", { [1] = 9, [2] = 1, [3] = { 1, 2 }, [4] = VR } } }, "not full")
  local rows = db:rows(CTRL, { [1] = 9, [2] = 0 })
  t.eq(rows[1][5], 0, "stored full flag")
end)

t.case("refused arguments answer 1 and write nothing", function()
  fresh()
  store(9, 0, { 5 })
  t.eq(call(create, 9, 0, VR), 1, "control ID 0")
  t.eq(call(create, 9, 6), 1, "two arguments")
  t.eq(call(create, "9", 6, VR), 1, "key not a number")
  t.eq(call(create, 9, 6, true), 1, "VR not a number")
  t.eq(call(move, 9, 6, VR, 0), 1, "old control ID 0")
  t.eq(call(move, 9, 0, VR, 5), 1, "new control ID 0")
  t.eq(call(move, 9, 6, VR), 1, "three arguments")
  t.eq(call(move, 9, 6, VR, "5"), 1, "old not a number")
  t.clean(db, "refused")
end)

t.case("extra arguments are ignored", function()
  fresh()
  t.eq(call(create, 9, 3, VR, "extra"), 0, "four arguments to create")
  writes({ { "insert", { [1] = 9, [2] = 0, [3] = { 3 }, [4] = VR } } }, "extra")
end)

t.case("without a bound database the functions answer 1 and write nothing", function()
  fresh()
  cfgdb.unbind()
  t.eq(select("#", create(9, 3, VR)), 1, "create count")
  t.eq(create(9, 3, VR), 1, "create")
  t.eq(move(9, 3, VR, 2), 1, "move")
  db:bind()
  t.clean(db, "unbound")
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
