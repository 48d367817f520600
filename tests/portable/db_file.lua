-- One side of the file check between two machines (test_db_file.sh): `write FILE` makes a
-- configuration through the module that stores every kind of value the tables hold (numbers of each
-- width, bitmaps, names, descriptions); `change FILE` changes part of it; `dump FILE` prints every
-- row of every table, byte fields in hex, then the module's answers about the configuration.
local cfgdb = require "cfgdb"
local lib = require "libvlanluaext"

local mode, path = arg[1], arg[2]
local VR = 3
local IF_INFO, L2_PORT, PV_RELATION = "IF_INFO", "L2_PORT", "PV_RELATION"
local DOT1Q_MATCH, QINQ_MATCH = "DOT1Q_MATCH_SEG", "QINQ_MATCH_SEG"
local UVLAN_DOT1Q, UVLAN_DESC, UVLAN_ANYOTHER = "UVLAN_DOT1Q", "UVLAN_DESC", "UVLAN_ANYOTHER"
local TABLES = {}                               -- every table, in the order the description lists them
for i, tbl in ipairs(cfgdb.tables()) do TABLES[i] = tbl.id end

local db = assert(cfgdb.open(path, { vr = VR, lr = 1, cdb = 0 }))
db:bind()

local function check(code, ...)
  local rest = { n = select("#", ...), ... }
  for i = 1, rest.n do rest[i] = tostring(rest[i]) end
  assert(code == 0, mode .. ": a module call failed: " .. tostring(code) .. " " .. table.concat(rest, " "))
end

-- A bitmap string of the VLANs given.
local function bitmap(vlans)
  local bytes = {}
  for i = 1, 512 do bytes[i] = 0 end
  for _, v in ipairs(vlans) do bytes[v // 8 + 1] = bytes[v // 8 + 1] | 1 << v % 8 end
  return string.char(table.unpack(bytes))
end

local function set_services(ifx, peb, pee, ceb, cee, svcs)
  check(lib.VLAN_spt_SetUserVlanQinQSvc({ ifx, peb, pee, ceb, cee, VR, 0x01020304, 0xA0B0C0D0, 77, "cust-" .. ifx },
    svcs))
end

local function write()
  db:insert(IF_INFO, { ifIndex = 0x2001, vrId = VR, kind = 1, mainIfIndex = 0x2000 })
  db:insert(L2_PORT, { ifIndex = 0x101, pvid = 300, vrId = VR, negotiation = 1 })
  db:insert(PV_RELATION, { vrId = VR, ifIndex = 0x101, bitmap1 = bitmap({ 1, 300, 4094 }), bitmap2 = bitmap({ 7 }) })
  for _, id in ipairs({ 1, 100, 4094, 4095, 5000, 8188, 8189 }) do check(lib.VLAN_spt_CrtCtrlVidBitMap(42, id, VR)) end
  db:insert(DOT1Q_MATCH, { ifIndex = 0x2001, segIndex = 9001, vlanBegin = 10, vlanEnd = 19, groupId = 1, vrId = VR })
  check(lib.VLAN_spt_Dot1QMatchMerge({ 0x2001, 20, 30, 1, VR, 0, 0, 0 }))
  db:insert(QINQ_MATCH, { ifIndex = 0x2001, segIndex = 9101, peBegin = 100, peEnd = 100, ceBegin = 1, ceEnd = 10, vrId = VR, mainIfIndex = 0x2000 })
  check(lib.VLAN_spt_QinQMatchMerge({ 0x2001, 0, 100, 100, 11, 20, 0x2000, 5, VR, 0, "rule-x" }))
  check(lib.VLAN_spt_UpdataQinQIfSpec(0x2000, 5, VR, true))
  db:insert(IF_INFO, { ifIndex = 0x3001, vrId = VR, kind = 11 })
  set_services(0x3001, 100, 199, 1, 10, { 1, 7, 9, 0x10000 })
  set_services(0x3001, 150, 160, 5, 20, { 8, 3 })
  db:insert(UVLAN_DOT1Q, { ifIndex = 0x3001, vrId = VR, vlanBegin = 2, vlanEnd = 4 })
  db:insert(UVLAN_DESC, { ifIndex = 0x3001, peVlan = 155, ceVlan = 5, description = "rack 7, top", vrId = VR })
  db:insert(UVLAN_ANYOTHER, { ifIndex = 0x3001, vrId = VR })
end

local function change()
  check(lib.VLAN_spt_UpdataCtrlVidBitMap(42, 200, VR, 100))
  set_services(0x3001, 120, 129, 1, 10, { 255, 1 })
end

-- The bytes in hex, trailing zero bytes left out.
local function hex(s)
  return #s .. ":" .. s:gsub("%z+$", ""):gsub(".", function(c) return string.format("%02x", c:byte()) end)
end

local function answers()
  print("main interface", lib.VLAN_spt_GetMainifBySubif(0x2001))
  for _, v in ipairs({ 1, 7, 300, 301, 4094 }) do print("VLAN " .. v .. " used by a port", lib.VLAN_spt_CheckVlanUsdByPort(v, VR, 0, 0)) end
  local code, rows = lib.VLAN_spt_GetNextQinQMibQuery(0, 0, 0, VR, 1000)
  print("QinQ match walk", code, #rows)
  for _, r in ipairs(rows) do print("", r.ifIndex, r.peVlan, r.ceVlanBegin, r.ceVlanEnd, r.groupId) end
  local code2, entries = lib.VLAN_spt_UserVlanMibQuery(0, 0, 0, VR, 100000, 1)
  print("user-VLAN walk", code2, #entries)
  for i, e in ipairs(entries) do
    if i <= 3 or e.description then print("", e.ifIndex, e.peVlan, e.ceVlan, e.description and hex(e.description)) end
  end
  print("QinQ user VLAN 155/5 stored", lib.VLAN_spt_UserVlanQinqExist(0x3001, 155, 5, VR))
  print("802.1Q user VLAN 3 stored", lib.VLAN_spt_UserVlanDot1qExist(0x3001, 3, VR))
end

local function dump()
  for _, id in ipairs(TABLES) do
    for _, r in ipairs(db:rows(id)) do
      local cells = {}
      for f = 1, 13 do
        if r[f] ~= nil then cells[#cells + 1] = f .. "=" .. (type(r[f]) == "string" and hex(r[f]) or tostring(r[f])) end
      end
      print(string.format("%08X", id), table.concat(cells, " "))
    end
  end
  answers()
end

({ write = write, change = change, dump = dump })[mode]()
db:close()
