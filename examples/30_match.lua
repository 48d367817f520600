-- Match rules: a Dot1Q range fused with its stored neighbours, a QinQ rectangle fused with
-- two stored ones, the QinQ pair counter, and one page of the QinQ match table walk.
local cfgdb = require "cfgdb"
local lib = require "libvlanluaext"

local VR = 1
local db = cfgdb.open(nil, { vr = VR, lr = 1, cdb = 0 })
db:bind()

local function show_ranges()
  for _, r in ipairs(db:rows("DOT1Q_MATCH_SEG")) do
    print(string.format("  Dot1Q  if %d group %d: VLAN %d-%d (segment %d)", r[2], r[6], r[4], r[5], r[3]))
  end
end

print("Dot1Q: stored 10-19 and 31-40, configuring 20-30")
db:insert("DOT1Q_MATCH_SEG", { ifIndex = 101, segIndex = 9001, vlanBegin = 10, vlanEnd = 19, groupId = 1, vrId = VR })
db:insert("DOT1Q_MATCH_SEG", { ifIndex = 101, segIndex = 9002, vlanBegin = 31, vlanEnd = 40, groupId = 1, vrId = VR })
print("  result", lib.VLAN_spt_Dot1QMatchMerge({ 101, 20, 30, 1, VR, 0, 0, 0 }))
show_ranges()

print("QinQ: stored PE 100 x CE 1-10 and PE 100 x CE 21-30, configuring PE 100 x CE 11-20")
db:insert("IF_INFO", { ifIndex = 201, vrId = VR, kind = 1 })
db:insert("QINQ_MATCH_SEG", { ifIndex = 201, segIndex = 9101, peBegin = 100, peEnd = 100, ceBegin = 1, ceEnd = 10, groupId = 0, vrId = VR, mainIfIndex = 200 })
db:insert("QINQ_MATCH_SEG", { ifIndex = 201, segIndex = 9102, peBegin = 100, peEnd = 100, ceBegin = 21, ceEnd = 30, groupId = 0, vrId = VR, mainIfIndex = 200 })
print("  result, merged", lib.VLAN_spt_QinQMatchMerge({ 201, 0, 100, 100, 11, 20, 200, 0, VR, 0, "demo" }))
print("  a second rectangle PE 101-102 x CE 1-30:",
  lib.VLAN_spt_QinQMatchMerge({ 201, 0, 101, 102, 1, 30, 200, 0, VR, 0, "demo" }))
for _, r in ipairs(db:rows("QINQ_MATCH_SEG")) do
  print(string.format("  QinQ   if %d: PE %d-%d x CE %d-%d (segment %d)", r[2], r[4], r[5], r[6], r[7], r[3]))
end

print("QinQ pairs of main interface 200 (recounted, then 5 added):",
  lib.VLAN_spt_UpdataQinQIfSpec(200, 5, VR, true))

print("Walk from the start, pages of 2 rows:")
local pos = { 0, 0, 0 }
for n = 1, 3 do
  local r, rows = lib.VLAN_spt_GetNextQinQMibQuery(pos[1], pos[2], pos[3], VR, 2)
  if r ~= 0 or #rows == 0 then break end
  for _, row in ipairs(rows) do
    print(string.format("  page %d: if %d PE %d CE %d-%d group %d", n, row.ifIndex, row.peVlan, row.ceVlanBegin,
      row.ceVlanEnd, row.groupId))
    pos = { row.ifIndex, row.peVlan, row.ceVlanBegin }
  end
end

cfgdb.unbind()
db:close()
