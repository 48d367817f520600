-- Walks the user VLANs of a VR page by page, as a management station does with get-next,
-- and prints every entry as a row of a table.
local cfgdb = require "cfgdb"
require "libvlanluaext"
local lib = libvlanluaext

local db = cfgdb.open(nil, {vr = 1})
db:bind()

-- Interface 10: 802.1Q VLANs 10..12 and QinQ PE 100..101 x CE 11; interface 20: QinQ
-- PE 5..6 x CE 3..4; any-other entries on both. Descriptions on a few entries.
db:insert("UVLAN_DOT1Q", {ifIndex = 10, vrId = 1, vlanBegin = 10, vlanEnd = 12})
for _, ifIndex in ipairs({10, 20}) do
  db:insert("IF_INFO", {ifIndex = ifIndex, vrId = 1, kind = 11})
  db:insert("UVLAN_ANYOTHER", {ifIndex = ifIndex, vrId = 1})
end
db:insert("UVLAN_QINQ_SEG", {ifIndex = 10, segIndex = 1, vrId = 1, ceBegin = 11, ceEnd = 11, peBegin = 100, peEnd = 101})
db:insert("UVLAN_QINQ_SEG", {ifIndex = 20, segIndex = 2, vrId = 1, ceBegin = 3, ceEnd = 4, peBegin = 5, peEnd = 6})
db:insert("UVLAN_DESC", {ifIndex = 10, peVlan = 0, ceVlan = 11, description = "uplink customers", vrId = 1})
db:insert("UVLAN_DESC", {ifIndex = 20, peVlan = 6, ceVlan = 4, description = "lab rack", vrId = 1})

local function walk(title, queryType, pageSize)
  print(title .. string.format(" (pages of %d)", pageSize))
  print(string.format("  %-5s %-8s %-7s %-7s %-8s %s", "page", "ifIndex", "peVlan", "ceVlan", "anyOther", "description"))
  local ifIndex, pe, ce, pageNo = 0, 0, 0, 0
  repeat
    pageNo = pageNo + 1
    local code, entries, msg = lib.VLAN_spt_UserVlanMibQuery(ifIndex, pe, ce, 1, pageSize, queryType)
    assert(code == 0, msg)
    for _, e in ipairs(entries) do
      local desc = e.description and e.description:match("^[^%z]*") or "-"
      print(string.format("  %-5d %-8d %-7d %-7d %-8d %s", pageNo, e.ifIndex, e.peVlan, e.ceVlan, e.anyOther, desc))
      ifIndex, pe, ce = e.ifIndex, e.peVlan, e.ceVlan
    end
  until #entries < pageSize
  print()
end

walk("802.1Q and QinQ user VLANs with descriptions", 1, 3)
walk("Any-other user VLANs", 2, 1)

db:close()
