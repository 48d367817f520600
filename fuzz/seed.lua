-- Realistic rows for the fuzzing driver: interfaces with sub-interfaces, layer-2 and pseudowire
-- support, ports with their VLANs, user-VLAN 802.1Q ranges, QinQ services and walk rows, Dot1Q and
-- QinQ match rules, a QinQ counter and control-VLAN bitmaps, in VR 7 (the object's) and VR 1.
-- Runs on every engine: no integer division, no bitwise operators.
local cfgdb = require "cfgdb"
uv = require "libvlanluaext"
db = cfgdb.open(nil, {vr = 7, lr = 3, cdb = 0})
db:bind()

local IF_INFO, L2SUP, PWSUP = "IF_INFO", "L2SUP_CFG", "PWSUP_CFG"
local STACKMAP, L2PORT, PVREL, IFMPROTO = "L2QINQ_STACKMAP", "L2_PORT", "PV_RELATION", "IFM_PROTO"
local UDOT1Q, UDESC, UANY = "UVLAN_DOT1Q", "UVLAN_DESC", "UVLAN_ANYOTHER"

-- A 512-byte VLAN bitmap holding the given VLAN IDs.
local function bitmap(ids)
  local bytes = {}
  for i = 1, 512 do bytes[i] = 0 end
  for _, v in ipairs(ids) do
    local i, bit = math.floor(v / 8) + 1, v % 8
    if math.floor(bytes[i] / 2 ^ bit) % 2 == 0 then bytes[i] = bytes[i] + 2 ^ bit end
  end
  local parts = {}
  for i = 1, 512 do parts[i] = string.char(bytes[i]) end
  return table.concat(parts)
end

local function ok(what, code, ...)
  if code ~= 0 then error(what .. " failed: " .. tostring(code) .. " " .. tostring((...))) end
end

for _, vr in ipairs({7, 1}) do
  local main = vr * 0x1000
  db:insert(IF_INFO, {ifIndex = main, vrId = vr, kind = 1, mainIfIndex = 0})
  for sub = 1, 4 do
    db:insert(IF_INFO, {ifIndex = main + sub, vrId = vr, kind = 11, mainIfIndex = main})
    db:insert(L2SUP, {[1] = main + sub, [3] = sub % 3})
    db:insert(PWSUP, {[1] = vr, [2] = main + sub, [3] = 2})
    db:insert(UDOT1Q, {[1] = main + sub, [4] = vr, [5] = 10 * sub, [6] = 10 * sub + 2})
    db:insert(UDESC, {[1] = main + sub, [2] = 0, [3] = 10 * sub, [4] = "uplink " .. sub, [5] = vr})
    db:insert(UDESC, {[1] = main + sub, [2] = 100, [3] = 5, [4] = string.rep("d", 129), [5] = vr})
    db:insert(L2PORT, {[1] = main + sub, [2] = sub, [6] = vr, [12] = sub % 2})
    db:insert(PVREL, {[1] = vr, [2] = main + sub, [3] = bitmap({1, 10 * sub, 4094}), [4] = bitmap({20 + sub})})
    db:insert(IFMPROTO, {[1] = main + sub, [2] = sub, [3] = 1, [5] = sub})
  end
  db:insert(UANY, {[1] = main + 1, [5] = vr})
  db:insert(UANY, {[1] = main + 3, [5] = vr})
  db:insert(STACKMAP, {[5] = 30, [7] = vr})
end

-- Rows the module writes itself, so that they are exactly as it keeps them.
for _, svc in ipairs({
  {{0x7001, 100, 199, 1, 10, 7, 11, 22, 33, "svc"}, {1, 7, 9, 3}},
  {{0x7001, 200, 249, 1, 10, 7, 11, 22, 33, "svc"}, {2, 5}},
  {{0x7001, 100, 149, 11, 20, 7, 11, 22, 33, "svc"}, {1, 7, 16, 0}},
  {{0x7002, 5, 5, 5, 6, 7, 1, 2, 3, string.rep("k", 64)}, {15, 4}},
  {{0x7003, 1, 4094, 4094, 4094, 1, 1, 2, 3, "edge"}, {}},
  {{0x1001, 100, 101, 11, 11, 1, 1, 2, 3, "vr1"}, {3, 1}},
}) do
  local code, _, text = uv.VLAN_spt_SetUserVlanQinQSvc(svc[1], svc[2])
  ok("user-VLAN service", code, text)
end
ok("Dot1Q match", uv.VLAN_spt_Dot1QMatchMerge({0x7002, 10, 20, 1, 7, 0, 0, 0}))
ok("Dot1Q match", uv.VLAN_spt_Dot1QMatchMerge({0x7002, 21, 30, 1, 7, 0, 0, 0}))
ok("QinQ match", uv.VLAN_spt_QinQMatchMerge({0x7003, 0, 100, 110, 5, 6, 0x7000, 1, 7, 33, "key"}))
ok("QinQ match", uv.VLAN_spt_QinQMatchMerge({0x7003, 0, 111, 120, 5, 6, 0x7000, 1, 7, 33, "key"}))
ok("QinQ counter", uv.VLAN_spt_UpdataQinQIfSpec(0x7000, 22, 7, true))
ok("control VLAN", uv.VLAN_spt_CrtCtrlVidBitMap(42, 10, 7))
ok("control VLAN", uv.VLAN_spt_CrtCtrlVidBitMap(42, 3000, 7))
db:journal()
assert(db:mem().live == 0, "seed left module memory live")

-- What every table holds now; restore(table) puts a table back as it was, which is much cheaper
-- than seeding a new database when the calls wrote to few tables.
local snapshot = {}
for _, tbl in ipairs(cfgdb.tables()) do
  snapshot[tbl.id] = db:rows(tbl.id)
end

function restore(tid)
  db:delete(tid)
  for _, row in ipairs(snapshot[tid]) do db:insert(tid, row) end
end
