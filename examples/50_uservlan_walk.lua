-- Walks the user VLANs of a VR page by page, as a management station does with get-next,
-- and prints every entry as a row of a table.
local cfgdb = require "cfgdb"
require "libvlanluaext"
local lib = libvlanluaext

local db = cfgdb.open(nil, {vr = 1})
db:bind()

-- Interface 10: 802.1Q VLANs 10..12 and QinQ PE 100..101 x CE 11; interface 20: QinQ
-- PE 5..6 x CE 3..4; any-other entries on both. Descriptions on a few entries.
db:insert(0x08361117, {[1] = 10, [4] = 1, [5] = 10, [6] = 12})
for _, ifIndex in ipairs({10, 20}) do
  db:insert(0x083606C0, {[2] = ifIndex, [3] = 1, [4] = 11})
  db:insert(0x0836117F, {[1] = ifIndex, [5] = 1})
end
db:insert(0x08361118, {[1] = 10, [2] = 1, [4] = 1, [5] = 11, [6] = 11, [7] = 100, [8] = 101})
db:insert(0x08361118, {[1] = 20, [2] = 2, [4] = 1, [5] = 3, [6] = 4, [7] = 5, [8] = 6})
db:insert(0x0836111B, {[1] = 10, [2] = 0, [3] = 11, [4] = "uplink customers", [5] = 1})
db:insert(0x0836111B, {[1] = 20, [2] = 6, [3] = 4, [4] = "lab rack", [5] = 1})

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
