-- The port VLAN usage check against a bound database: each of the stacking map, the PVIDs, the
-- relations and the protocol/negotiation settings deciding the answer in turn, refused
-- arguments with their reasons, and allocation and call failures injected at every site until the call runs clean.
local t = require "testlib"
local cfgdb = require "cfgdb"
local lib = require "libvlanluaext"
local unpack = table.unpack or unpack

local STACKMAP, L2_PORT, PV_REL, IFM_PROTO = t.T.L2QINQ_STACKMAP, t.T.L2_PORT, t.T.PV_RELATION, t.T.IFM_PROTO
local VR, OTHER_VR = 7, 8
local check = lib.VLAN_spt_CheckVlanUsdByPort
local EMPTY = "\0"          -- an empty message is pushed with its terminating zero

local db = cfgdb.open(nil, { vr = VR, lr = 3, cdb = 0 })
db:bind()

local bm = t.bitmap

local function fresh()
  for _, tid in ipairs({ STACKMAP, L2_PORT, PV_REL, IFM_PROTO }) do db:delete(tid) end
  db:journal()
end

local function port(ifindex, pvid, negotiation, vr)
  db:insert(L2_PORT, { ifIndex = ifindex, pvid = pvid, vrId = vr or VR, negotiation = negotiation or 0 })
end

local function relation(ifindex, first, second, vr)
  db:insert(PV_REL, { vrId = vr or VR, ifIndex = ifindex, bitmap1 = bm(first or {}), bitmap2 = bm(second or {}) })
end

local function proto(ifindex, code, sub)
  db:insert(IFM_PROTO, { ifIndex = ifindex, protocol = code, subCode = sub or 0, furtherKey = 0 })
end

-- The check's answer and text; every call leaves no module memory and writes nothing.
local function ask(...)
  local r = t.pack(check(...))
  t.clean(db, "check")
  return r
end

local function expect(code, text, what, ...)
  t.same(ask(...), { code, text }, what)
end

-- Each group: what is stored, then checks {answer, VLAN, arg 3, arg 4, what}; all with the VR
-- asked for and an empty message.
local GROUPS = {
  { "a VLAN of the stacking map counts only when argument 3 asks for it", function()
      db:insert(STACKMAP, { vlanId = 300, vrId = VR })
      db:insert(STACKMAP, { vlanId = 301, vrId = OTHER_VR })
    end, { { 0, 300, 1, 0, "asked" }, { 1, 300, 0, 0, "not asked" }, { 1, 301, 1, 0, "other VR" } } },
  { "a PVID of the VR counts even without a relation, whatever the negotiation", function()
      port(11, 200, 1)
      port(12, 201, 0, OTHER_VR)
    end, { { 0, 200, 0, 0, "PVID" }, { 0, 200, 1, 1, "PVID, all asked" }, { 0, 200 + 65536, 0, 0, "low 16 bits" },
           { 1, 201, 0, 0, "PVID of another VR" }, { 1, 199, 0, 0, "neighbour VLAN" } } },
  { "a VLAN carried in either bitmap of a relation counts", function()
      port(11, 1, 0)
      port(12, 1, 0)
      relation(11, { 100 }, {})
      relation(12, {}, { 4094 })
      relation(13, { 500 }, {}, OTHER_VR)
    end, { { 0, 100, 0, 0, "first bitmap" }, { 0, 4094, 0, 0, "second bitmap" },
           { 1, 500, 0, 0, "another VR's relation" }, { 1, 101, 0, 0, "carried by none" } } },
  { "ports with negotiation on do not count", function()
      port(11, 1, 1)
      relation(11, { 100 }, {})
    end, { { 1, 100, 0, 0, "only a negotiating port" } } },
  { "a later port without negotiation counts", function()
      port(11, 1, 1)
      relation(11, { 100 }, {})
      port(12, 1, 0)
      relation(12, { 100 }, {})
    end, { { 0, 100, 0, 0, "a later port counts" } } },
  { "ports with protocol 37 do not count when argument 4 asks so", function()
      port(11, 1, 0)
      relation(11, { 100 }, {})
      proto(11, 37, 0)
      proto(11, 36, 0)
    end, { { 1, 100, 0, 1, "checked" }, { 0, 100, 0, 0, "not checked" } } },
  { "protocol 37 with another sub-code does not stop a port", function()
      port(11, 1, 0)
      relation(11, { 100 }, {})
      proto(11, 37, 5)
    end, { { 0, 100, 0, 1, "other sub-code" } } },
}

for _, g in ipairs(GROUPS) do
  t.case(g[1], function()
    fresh()
    g[2]()
    for _, c in ipairs(g[3]) do expect(c[1], EMPTY, c[5], c[2], VR, c[3], c[4]) end
  end)
end

t.case("refused arguments answer 1 with the reason", function()
  fresh()
  expect(1, "\nVLANLUA_COR_PV_VlanInPortParse:paraCnt = 5, Error\n\0", "five", 100, VR, 0, 0, 0)
  expect(1, "\nVLANLUA_COR_PV_VlanInPortParse:vlanId is not a number\n\0", "vlan", "x", VR, 0, 0)
  expect(1, "\nVLANLUA_COR_PV_VlanInPortParse:vrId is not a number\n\0", "vr", 100, {}, 0, 0)
  expect(1, "\nVLANLUA_COR_PV_VlanInPortParse:checkPeerLink is not a number\n\0", "arg 3", 100, VR, true, 0)
  expect(1, "\nVLANLUA_COR_PV_VlanInPortParse:checkStackMap is not a number\n\0", "arg 4", 100, VR, 0, nil)
end)

-- Sweeps the n-th allocation (or client call) for n = 1, 2, ... until a run meets no fault.
-- sites[n] is what the n-th site's failure must produce: {code, message or nil}.
local function sweep(kind, sites, clean_code, args)
  local n = 0
  while true do
    n = n + 1
    assert(n <= #sites + 1, kind .. ": more sites than expected")
    db[kind](db, n)
    local r = ask(unpack(args))
    db[kind](db, 0)
    if n > #sites then
      t.same(r, { clean_code, EMPTY }, kind .. " clean run")
      return
    end
    local want = sites[n]
    local text = want[2] and ("\n" .. want[2] .. "\0") or EMPTY
    t.same(r, { want[1], text }, kind .. " " .. n)
  end
end

local MSG = {
  stack = "VLANLUA_L2QinQBuild_IsStackMapVidExist: VLANLUA_RecordSet_New ERR\n",
  pvid = "VLANLUA_L2Port_IsPvIdExistByVlanSeg: VLANLUA_RecordSet_New ERR\n",
  count = "VLANLUA_PvRelation_L2PortCnt: VLANLUA_RecordSet_New rtn ERR\n",
  all = "VLANLUA_PvRelation_QueryAll: VLANLUA_RecordSet_New ERR\n",
  proto = "VLANLUA_IFM_IsProtocolEnabled: VLANLUA_RecordSet_New ERR\n",
  neg = "VLANLUA_L2Port_IsNegotiationEnabled: VLANLUA_RecordSet_New ERR\n",
}

t.case("a negotiating port: every failure ends in the answer of the probe that failed", function()
  fresh()
  port(11, 1, 1)
  relation(11, { 100 }, {})
  -- allocations: stacking map set; PVID set and buffer; count set; relation set and buffer;
  -- protocol set; negotiation set (whose failure makes the port count)
  sweep("fail_alloc", { { 1, MSG.stack }, { 1, MSG.pvid }, { 1 }, { 1, MSG.count }, { 1, MSG.all }, { 1 },
                        { 1, MSG.proto }, { 0, MSG.neg } }, 1, { 100, VR, 1, 1 })
  -- client calls: stacking map exist; PVID cdb id and select; count; relation cdb id and select;
  -- protocol exist; negotiation exist
  sweep("fail_call", { { 1 }, { 1 }, { 1 }, { 1 }, { 1 }, { 1 }, { 1 }, { 0 } }, 1, { 100, VR, 1, 1 })
end)

t.case("a protocol-37 port: a failing protocol probe lets the port count", function()
  fresh()
  port(11, 1, 0)
  relation(11, { 100 }, {})
  proto(11, 37, 0)
  sweep("fail_alloc", { { 1, MSG.stack }, { 1, MSG.pvid }, { 1 }, { 1, MSG.count }, { 1, MSG.all }, { 1 },
                        { 0, MSG.proto } }, 1, { 100, VR, 1, 1 })
  sweep("fail_call", { { 1 }, { 1 }, { 1 }, { 1 }, { 1 }, { 1 }, { 0 } }, 1, { 100, VR, 1, 1 })
end)

t.case("a used PVID: failures before the PVID answer hide it, later ones are never reached", function()
  fresh()
  port(11, 100, 0)
  sweep("fail_alloc", { { 0, MSG.stack }, { 1, MSG.pvid }, { 1 } }, 0, { 100, VR, 1, 0 })
end)

t.finish()
