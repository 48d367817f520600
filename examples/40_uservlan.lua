-- User-VLAN QinQ services: set services on overlapping PE x CE rectangles of one interface,
-- remove a rectangle from the middle, and print the stored rows after each step.
local cfgdb = require "cfgdb"
local uv = require "libvlanluaext"

local db = cfgdb.open()
db:bind()

local function show(title)
  print(title)
  local rows = db:rows("UVLAN_QINQ_SEG", {ifIndex = 10})
  table.sort(rows, function(a, b) if a[7] ~= b[7] then return a[7] < b[7] end return a[5] < b[5] end)
  for _, r in ipairs(rows) do
    local base = db:rows("UVLAN_BASE_SVC", {segIndex = r[2]})[1]
    local vpn = db:rows("UVLAN_VPN_SVC", {segIndex = r[2]})[1]
    print(string.format("  PE %4d-%-4d CE %4d-%-4d  type1=%s type8=%s", r[7], r[8], r[5], r[6],
                        base and base[7] or "-", vpn and vpn[6] or "-"))
  end
  if #rows == 0 then print("  (none)") end
end

local function request(what, peb, pee, ceb, cee, svcs)
  local code, chg, text, segchg, adddel =
    uv.VLAN_spt_SetUserVlanQinQSvc({10, peb, pee, ceb, cee, 0, 1, 2, 0, "demo"}, svcs)
  print(string.format("%s PE %d-%d x CE %d-%d: code %d, rows %s, changed %s, added+deleted %s%s", what, peb, pee,
                      ceb, cee, code, tostring(chg), tostring(segchg), tostring(adddel),
                      (text and #text > 1) and (" message:" .. text:gsub("%z$", "")) or ""))
end

show("stored rows at the start:")
request("set type1=7", 100, 199, 1, 10, {1, 7})
request("set type1=7 overlapping", 150, 249, 1, 10, {1, 7})
show("after two equal overlapping requests (merged into one row):")
request("set type8=3 across the middle", 140, 160, 5, 20, {8, 3})
show("after laying a VPN service over part of it:")
request("remove", 120, 129, 1, 10, {255, 1})
show("after removing PE 120-129:")
request("remove beyond the stored rows", 1, 50, 1, 10, {255, 1})
db:close()
