-- A call that runs out of engine memory leaves nothing behind. For every script function, with a
-- set-up that makes it do its whole work, the engine's allocator fails from its n-th allocation on,
-- for n = 1, 2, ... until the call completes. After each failed call: no module memory is live, the
-- tables are as before the call and the journal holds none of its writes (its unit was rolled back
-- whole), another connection gets the write lock at once, and the same call made again answers
-- what a call that never failed answers.
local t = require "testlib"
local cfgdb = require "cfgdb"
local fault = require "allocfault"
local lib = require "libvlanluaext"
local unpack = table.unpack or unpack
if jit then jit.off() end   -- traces compiled while memory fails would only add noise

local VR = 7
local FILE = os.tmpname()
local T = t.T

-- A value as text, tables with their keys sorted, so equal answers read alike.
local function show(v)
  if type(v) ~= "table" then
    return type(v) == "string" and string.format("%q", v) or tostring(v)
  end
  local keys = {}
  for k in pairs(v) do keys[#keys + 1] = k end
  table.sort(keys, function(a, b) return tostring(a) < tostring(b) end)
  local parts = {}
  for _, k in ipairs(keys) do parts[#parts + 1] = tostring(k) .. "=" .. show(v[k]) end
  return "{" .. table.concat(parts, ",") .. "}"
end

local function answer(list, first)
  local parts = {}
  for i = first, list.n do parts[#parts + 1] = show(list[i]) end
  return table.concat(parts, ", ")
end

local function snapshot(db)
  local parts = {}
  for _, tbl in ipairs(cfgdb.tables()) do
    local rows = {}
    for _, r in ipairs(db:rows(tbl.id)) do rows[#rows + 1] = show(r) end
    table.sort(rows)
    parts[#parts + 1] = tbl.name .. ":" .. table.concat(rows, ";")
  end
  table.sort(parts)
  return table.concat(parts, "\n")
end

local function remove_file()
  for _, suffix in ipairs({ "", "-wal", "-shm" }) do os.remove(FILE .. suffix) end
end

-- Opens a fresh file database, binds it and lets the case fill it.
local function prepare(case)
  cfgdb.unbind()
  remove_file()
  local db = cfgdb.open(FILE, { vr = VR, lr = 1 })
  db:bind()
  if case.setup then case.setup(db) end
  db:journal()
  return db
end

local function bitmap_table(ids)
  local bytes = { t.bitmap(ids):byte(1, -1) }
  return bytes
end

local CASES = {
  { "VLAN_spt_CmdParaCheck", { "dis", "display" } },
  { "VLAN_spt_CmdParaCheck", { "dis", "display", "extra" } },
  { "VLAN_spt_GetMainifBySubif", { 0x1001 }, setup = function(db)
      db:insert(T.IF_INFO, { ifIndex = 0x1001, vrId = VR, kind = 11, mainIfIndex = 0x1000 })
    end },
  { "VLAN_spt_CheckL2SuppExist", { 0x1001 }, setup = function(db)
      db:insert(T.L2SUP_CFG, { ifIndex = 0x1001, supMode = 2 })
    end },
  { "VLAN_spt_CheckPwSuppExist", { 0x1001 }, setup = function(db)
      db:insert(T.PWSUP_CFG, { vrId = VR, ifIndex = 0x1001, supMode = 2 })
    end },
  { "VLAN_spt_CheckVlanUsdByPort", { 300, VR, 1, 1 }, setup = function(db)
      db:insert(T.L2_PORT, { ifIndex = 0x101, pvid = 100, vrId = VR })
      db:insert(T.L2_PORT, { ifIndex = 0x102, pvid = 101, vrId = VR })
      db:insert(T.PV_RELATION, { vrId = VR, ifIndex = 0x101, bitmap1 = t.bitmap({ 200 }), bitmap2 = t.bitmap({}) })
      db:insert(T.PV_RELATION, { vrId = VR, ifIndex = 0x102, bitmap1 = t.bitmap({}), bitmap2 = t.bitmap({ 300 }) })
    end },
  { "VLAN_spt_Merg2BitMap", { bitmap_table({ 1, 5, 4094 }), bitmap_table({ 2, 4000 }) } },
  { "VLAN_spt_And2BitMap", { bitmap_table({ 1, 5, 4094 }), bitmap_table({ 5, 4094 }) } },
  { "VLAN_spt_GetFirstFreeValue", { bitmap_table({ 1, 2, 3, 4, 5, 6, 7, 8, 9 }) } },
  { "VLAN_spt_CrtCtrlVidBitMap", { 42, 5000, VR }, setup = function()
      assert(lib.VLAN_spt_CrtCtrlVidBitMap(42, 100, VR) == 0)
    end },
  { "VLAN_spt_UpdataCtrlVidBitMap", { 42, 5001, VR, 100 }, setup = function()
      assert(lib.VLAN_spt_CrtCtrlVidBitMap(42, 100, VR) == 0)
    end },
  { "VLAN_spt_Dot1QMatchMerge", { { 101, 20, 30, 1, VR, 0, 0, 0 } }, setup = function(db)
      db:insert(T.DOT1Q_MATCH_SEG, { ifIndex = 101, segIndex = 9001, vlanBegin = 10, vlanEnd = 19, groupId = 1, vrId = VR })
      db:insert(T.DOT1Q_MATCH_SEG, { ifIndex = 101, segIndex = 9002, vlanBegin = 31, vlanEnd = 40, groupId = 1, vrId = VR })
    end },
  { "VLAN_spt_QinQMatchMerge", { { 201, 0, 100, 100, 11, 20, 200, 0, VR, 0, "demo" } }, setup = function(db)
      db:insert(T.QINQ_MATCH_SEG, { ifIndex = 201, segIndex = 9101, peBegin = 100, peEnd = 100, ceBegin = 1, ceEnd = 10, vrId = VR, mainIfIndex = 200 })
      db:insert(T.QINQ_MATCH_SEG, { ifIndex = 201, segIndex = 9102, peBegin = 100, peEnd = 100, ceBegin = 21, ceEnd = 30, vrId = VR, mainIfIndex = 200 })
    end },
  { "VLAN_spt_UpdataQinQIfSpec", { 200, 5, VR, true }, setup = function(db)
      db:insert(T.QINQ_MATCH_SEG, { ifIndex = 201, segIndex = 9101, peBegin = 100, peEnd = 101, ceBegin = 1, ceEnd = 10, vrId = VR, mainIfIndex = 200 })
    end },
  { "VLAN_spt_GetNextQinQMibQuery", { 0, 0, 0, VR, 6 }, setup = function(db)
      for ifIndex = 201, 203 do
        db:insert(T.IF_INFO, { ifIndex = ifIndex, vrId = VR, kind = 1 })
        db:insert(T.QINQ_MATCH_SEG, { ifIndex = ifIndex, segIndex = ifIndex, peBegin = 100, peEnd = 101, ceBegin = 1, ceEnd = 10, vrId = VR })
      end
    end },
  { "VLAN_spt_SetUserVlanQinQSvc", { { 10, 140, 160, 5, 20, VR, 1, 2, 0, "demo" }, { 8, 3, 1, 9 } },
    setup = function()
      assert(lib.VLAN_spt_SetUserVlanQinQSvc({ 10, 100, 199, 1, 10, VR, 1, 2, 0, "demo" }, { 1, 7 }) == 0)
      assert(lib.VLAN_spt_SetUserVlanQinQSvc({ 10, 150, 249, 12, 30, VR, 1, 2, 0, "demo" }, { 8, 2 }) == 0)
    end },
  { "VLAN_spt_UserVlanDot1qExist", { 10, 105, VR }, setup = function(db)
      db:insert(T.UVLAN_DOT1Q, { ifIndex = 10, vrId = VR, vlanBegin = 100, vlanEnd = 110 })
    end },
  { "VLAN_spt_UserVlanQinqExist", { 20, 301, 10, VR }, setup = function(db)
      db:insert(T.UVLAN_QINQ_SEG, { ifIndex = 20, segIndex = 1, vrId = VR, ceBegin = 1, ceEnd = 10, peBegin = 300, peEnd = 301 })
    end },
  { "VLAN_spt_UserVlanMibQuery", { 0, 0, 0, VR, 8, 1 }, setup = function(db)
      db:insert(T.IF_INFO, { ifIndex = 10, vrId = VR, kind = 11 })
      db:insert(T.UVLAN_DOT1Q, { ifIndex = 10, vrId = VR, vlanBegin = 10, vlanEnd = 12 })
      db:insert(T.UVLAN_QINQ_SEG, { ifIndex = 10, segIndex = 1, vrId = VR, ceBegin = 11, ceEnd = 12, peBegin = 100, peEnd = 101 })
      db:insert(T.UVLAN_DESC, { ifIndex = 10, peVlan = 100, ceVlan = 11, description = "uplink", vrId = VR })
      db:insert(T.UVLAN_DESC, { ifIndex = 10, peVlan = 0, ceVlan = 12, description = "dot1q", vrId = VR })
    end },
  -- A page too large for the frame's own record of its results: the record grows on the engine's memory.
  { "VLAN_spt_UserVlanMibQuery", { 0, 0, 0, VR, 140, 0 }, setup = function(db)
      db:insert("UVLAN_DOT1Q", { ifIndex = 10, vrId = VR, vlanBegin = 1, vlanEnd = 140 })
    end },
}

-- Sweeps one case; answers how many allocations the failing calls covered.
local function sweep(case)
  local name, args = case[1], case[2]
  local fn = lib[name]
  local db = prepare(case)
  local want
  db:dry_run(function() want = answer(t.pack(fn(unpack(args))), 1) end)
  local before = snapshot(db)
  for n = 1, 100000 do
    collectgarbage()
    local r = t.pack(fault.call(n, fn, unpack(args)))
    local seen, ok = r[1], r[2]
    if ok then
      t.eq(answer(r, 3), want, name .. ": answer of the call that completed at n=" .. n)
      if seen < n then
        db:close()
        return n - 1
      end
    else
      local what = name .. " failing from allocation " .. n
      t.eq(db:mem().live, 0, what .. ": live blocks")
      t.eq(#db:journal(), 0, what .. ": journal entries")
      t.eq(snapshot(db), before, what .. ": tables")
      local other = cfgdb.open(FILE, { vr = VR, busy_timeout = 0 })
      other:dry_run(function() end)    -- takes the write lock, and would fail at once without it
      other:close()
      local again
      db:dry_run(function() again = answer(t.pack(fn(unpack(args))), 1) end)
      t.eq(again, want, what .. ": the next call's answer")
    end
  end
  error(name .. ": the sweep did not end")
end

local covered = {}
for _, case in ipairs(CASES) do
  t.case(case[1] .. " out of engine memory at every allocation leaves nothing behind", function()
    covered[#covered + 1] = string.format("%s %d", case[1], sweep(case))
  end)
end
t.case("inside a transaction, a call that fails takes back its own writes and nothing else", function()
  local case
  for _, c in ipairs(CASES) do if c[1] == "VLAN_spt_SetUserVlanQinQSvc" then case = c end end
  local fn, args = lib[case[1]], case[2]
  local db = prepare(case)
  local want
  db:dry_run(function()
    assert(lib.VLAN_spt_CrtCtrlVidBitMap(42, 7, VR) == 0)
    want = snapshot(db)
  end)
  db:transaction(function()
    assert(lib.VLAN_spt_CrtCtrlVidBitMap(42, 7, VR) == 0)
    collectgarbage()
    local _, ok = fault.call(1, fn, unpack(args))
    t.eq(ok, false, case[1] .. " failed")
    t.eq(db:mem().live, 0, "live blocks")
  end)
  t.eq(snapshot(db), want, "tables after the transaction")
  local writes = db:journal()
  t.eq(#writes, 1, "journaled writes")
  t.eq(writes[1].table, T.CTRL_VID_BITMAP, "the write kept")
  db:close()
end)

t.case("a metamethod that raises while an argument is read raises from the call, which leaves nothing", function()
  local db = prepare({})
  local rule = setmetatable({ 101, 20, 30, nil, VR, 0, 0, 0 }, { __index = function() error("index refused") end })
  t.eq(#rule, 8, "the rule's length")
  local ok, err = pcall(lib.VLAN_spt_Dot1QMatchMerge, rule)
  t.eq(ok, false, "the call raised")
  t.check(tostring(err):find("index refused", 1, true) ~= nil, "the metamethod's error, got %s", tostring(err))
  t.eq(db:mem().live, 0, "live blocks")
  t.eq(#db:journal(), 0, "journaled writes")
  t.eq(lib.VLAN_spt_Dot1QMatchMerge({ 101, 20, 30, 1, VR, 0, 0, 0 }), 0, "the next call")
  db:close()
end)

print("allocations covered: " .. table.concat(covered, ", "))
cfgdb.unbind()
remove_file()
t.finish()
