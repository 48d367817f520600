-- Sets up a file database with cfgdb, binds it to this script, and asks the interface probes.
local cfgdb = require "cfgdb"
local lib = require "libvlanluaext"

local FILE = "probes.db"
for _, suffix in ipairs({ "", "-wal", "-shm" }) do
  os.remove(FILE .. suffix)
end

local db = cfgdb.open(FILE, { vr = 7, lr = 1, cdb = 0 })
db:bind()
print("database " .. FILE .. " opened for VR 7 and bound to this script")

-- Interface 0x1000 with two sub-interfaces; support configuration on some of them.
db:insert("IF_INFO", { ifIndex = 0x1000, vrId = 7, kind = 1, mainIfIndex = 0 })
db:insert("IF_INFO", { ifIndex = 0x1001, vrId = 7, kind = 11, mainIfIndex = 0x1000 })
db:insert("IF_INFO", { ifIndex = 0x1002, vrId = 7, kind = 11, mainIfIndex = 0x1000 })
db:insert("L2SUP_CFG", { ifIndex = 0x1001, supMode = 2 })
db:insert("L2SUP_CFG", { ifIndex = 0x1002, supMode = 1 })
db:insert("PWSUP_CFG", { vrId = 7, ifIndex = 0x1001, supMode = 2 })
db:insert("PWSUP_CFG", { vrId = 9, ifIndex = 0x1002, supMode = 2 })
print(string.format("IF_INFO %d rows, L2SUP_CFG %d rows, PWSUP_CFG %d rows",
  db:count("IF_INFO"), db:count("L2SUP_CFG"), db:count("PWSUP_CFG")))

print("\nmain interface of each sub-interface (result code, main interface):")
for _, sub in ipairs({ 0x1001, 0x1002, 0x1003 }) do
  local code, main = lib.VLAN_spt_GetMainifBySubif(sub)
  print(string.format("  0x%04X -> %d, 0x%04X%s", sub, code, main, main == 0 and "  (no record)" or ""))
end

print("\nsupport configuration (layer-2 mode 1 means not configured; pseudowire only in VR 7):")
for _, ifindex in ipairs({ 0x1001, 0x1002, 0x1003 }) do
  local _, l2 = lib.VLAN_spt_CheckL2SuppExist(ifindex)
  local _, pw = lib.VLAN_spt_CheckPwSuppExist(ifindex)
  print(string.format("  0x%04X  layer-2 %s  pseudowire %s", ifindex, l2 == 1 and "yes" or "no ",
    pw == 1 and "yes" or "no"))
end

print("\na wrong argument is refused with a lone 1: VLAN_spt_GetMainifBySubif('4097') -> "
  .. table.concat({ lib.VLAN_spt_GetMainifBySubif("4097") }, ", "))
local mem = db:mem()
print(string.format("module memory after the calls: %d live blocks, %d allocations in all", mem.live, mem.total))

cfgdb.unbind()
db:close()
print("\nthe database stays in " .. FILE .. "; look at it with:  sqlite3 " .. FILE .. " .tables")
if os.execute("command -v sqlite3 >/dev/null 2>&1") then
  print("$ sqlite3 " .. FILE .. " .tables")
  os.execute("sqlite3 " .. FILE .. " .tables")
  print("$ sqlite3 -header -column " .. FILE .. " 'SELECT * FROM IF_INFO'")
  os.execute("sqlite3 -header -column " .. FILE .. " 'SELECT * FROM IF_INFO'")
end
