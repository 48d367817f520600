-- VLAN bitmaps from a configuration script: merging two VLAN sets, moving a control-VLAN mark
-- from one slice to another, and asking whether a VLAN is still in use on a layer-2 port, all
-- against a configuration database kept in a file.
local cfgdb = require "cfgdb"
local lib = require "libvlanluaext"

local VR = 1

-- A bitmap in script form (a table of bytes) from a list of VLAN IDs, and back.
local function to_table(ids, bytes)
  local t = {}
  for i = 1, bytes do t[i] = 0 end
  for _, v in ipairs(ids) do t[(v >> 3) + 1] = t[(v >> 3) + 1] | (1 << (v & 7)) end
  return t
end

local function vlans_of(bytes_at, count)
  local ids = {}
  for i = 1, count do
    local b = bytes_at(i)
    for bit = 0, 7 do
      if b & (1 << bit) ~= 0 then ids[#ids + 1] = (i - 1) * 8 + bit end
    end
  end
  return table.concat(ids, " ")
end

local function table_vlans(t) return vlans_of(function(i) return t[i] end, #t) end
local function blob_vlans(s) return vlans_of(function(i) return s:byte(i) end, #s) end

print("-- merging two VLAN sets")
local a, b = to_table({ 10, 11, 12 }, 4), to_table({ 12, 20, 30 }, 4)
local code, union = lib.VLAN_spt_Merg2BitMap(a, b)
print(string.format("  {%s} | {%s} -> code %d, {%s}", table_vlans(a), table_vlans(b), code, table_vlans(union)))
local _, common = lib.VLAN_spt_And2BitMap(a, b)
print(string.format("  {%s} & {%s} -> {%s}", table_vlans(a), table_vlans(b), table_vlans(common)))
local _, free = lib.VLAN_spt_GetFirstFreeValue({ 254, 255, 0x7F })
print(string.format("  first free VLAN of {1..22}: %d", free))

local path = "vlan_demo.db"
os.remove(path); os.remove(path .. "-wal"); os.remove(path .. "-shm")
local db = cfgdb.open(path, { vr = VR, lr = 1, cdb = 0 })
db:bind()

local function show_slices(key)
  for _, row in ipairs(db:rows("CTRL_VID_BITMAP", { ctrlKey = key })) do
    print(string.format("    slice %d: VLANs {%s}, full flag %d", row[2], blob_vlans(row[3]), row[5] or 0))
  end
end

print("-- control VLANs under key 42")
print("  mark control ID 100:", lib.VLAN_spt_CrtCtrlVidBitMap(42, 100, VR))
show_slices(42)
print("  move 100 -> 5000:   ", lib.VLAN_spt_UpdataCtrlVidBitMap(42, 5000, VR, 100))
show_slices(42)

print("-- is VLAN 300 in use on a port of VR " .. VR .. "?")
local zeros = string.rep("\0", 512)
db:insert("L2_PORT", { ifIndex = 0x101, pvid = 1, vrId = VR, negotiation = 0 })
local carries = {}
for i = 1, 512 do carries[i] = 0 end
carries[(300 >> 3) + 1] = 1 << (300 & 7)
local function answer()
  local c = lib.VLAN_spt_CheckVlanUsdByPort(300, VR, 0, 0)
  return c == 0 and "in use" or "free"
end
print("  no port carries it: " .. answer())
db:insert("PV_RELATION", { vrId = VR, ifIndex = 0x101, bitmap1 = string.char(table.unpack(carries)), bitmap2 = zeros })
print("  port 0x101 carries it: " .. answer())

db:close()
os.remove(path); os.remove(path .. "-wal"); os.remove(path .. "-shm")
