-- The interface probes against a bound database: which main interface a sub-interface has,
-- whether layer-2 or pseudowire support is configured, numbers cut to 32 bits, and every injected
-- allocation or client-call failure ending in the documented answer without a leak.
local t = require "testlib"
local cfgdb = require "cfgdb"
local lib = require "libvlanluaext"
local unpack = table.unpack or unpack

local IF_INFO, L2SUP_CFG, PWSUP_CFG = t.T.IF_INFO, t.T.L2SUP_CFG, t.T.PWSUP_CFG
local OWN_VR, OWN_LR = 7, 8      -- distinct, so a probe that reads the wrong one of the two shows
local mainif, l2sup, pwsup = lib.VLAN_spt_GetMainifBySubif, lib.VLAN_spt_CheckL2SuppExist,
  lib.VLAN_spt_CheckPwSuppExist
local YES, NO = { n = 3, 0, 1, nil }, { n = 3, 0, 0, nil }

local db = cfgdb.open(nil, { vr = OWN_VR, lr = OWN_LR, cdb = 0 })
db:bind()
db:insert(IF_INFO, { ifIndex = 0x1001, vrId = OWN_VR, kind = 1, mainIfIndex = 0x1000 })
db:insert(IF_INFO, { ifIndex = 0x2001, vrId = OWN_VR, kind = 1, mainIfIndex = 0x2000 })
db:insert(IF_INFO, { ifIndex = 0xFFFFFFFF, vrId = OWN_VR, kind = 1, mainIfIndex = 0xFFFFFFFE })
db:insert(L2SUP_CFG, { ifIndex = 10, supMode = 1 })
db:insert(L2SUP_CFG, { ifIndex = 11, supMode = 2 })
db:insert(L2SUP_CFG, { ifIndex = 12, supMode = 0 })
db:insert(PWSUP_CFG, { vrId = OWN_VR, ifIndex = 20, supMode = 2 })
db:insert(PWSUP_CFG, { vrId = OWN_VR, ifIndex = 21, supMode = 1 })
db:insert(PWSUP_CFG, { vrId = OWN_LR, ifIndex = 22, supMode = 2 })   -- configured, but in another VR
db:insert(PWSUP_CFG, { vrId = 99, ifIndex = OWN_VR, supMode = 2 })   -- interface index equal to the own VR

-- The results of one call, which must leave no module memory and make no write.
local function expect(want, what, f, ...)
  t.same(t.pack(f(...)), want, what)
  t.clean(db, what)
end

t.case("a main interface is no sub-interface, and -1 reads as the all-ones index", function()
  expect({ 0, 0x2000 }, "0x2001", mainif, 0x2001)
  expect({ 0, 0 }, "a main interface is not a sub-interface", mainif, 0x1000)
  expect({ 0, 0xFFFFFFFE }, "-1 read as the all-ones index", mainif, -1)
end)

-- Engines with an integer subtype keep every digit of a literal above 2^53; on the others every
-- number is a double and 2^53 + 1 rounds to 2^53.
local INTEGERS = 9007199254740993 ~= 9007199254740992

t.case("a number argument arrives as the low 32 bits of its integral part, on every engine", function()
  for sub, main in pairs({ [0] = 0x10, [1] = 0x11, [5] = 0x15, [4294967293] = 0x13 }) do
    db:insert(IF_INFO, { ifIndex = sub, vrId = OWN_VR, kind = 1, mainIfIndex = main })
  end
  local CASES = {
    { 2 ^ 32 + 5, 0x15, "2^32 + 5" }, { 5.99, 0x15, "5.99" }, { -3.7, 0x13, "-3.7" }, { -0.5, 0x10, "-0.5" },
    { 0 / 0, 0x10, "NaN" }, { math.huge, 0x10, "infinity" }, { -math.huge, 0x10, "-infinity" },
    { 2 ^ 63, 0x10, "2^63" }, { -2 ^ 32 + 1, 0x11, "-2^32 + 1" },
    { 9007199254740993, INTEGERS and 0x11 or 0x10, "2^53 + 1" },
  }
  for _, c in ipairs(CASES) do expect({ 0, c[2] }, c[3], mainif, c[1]) end
  db:delete(IF_INFO, { mainIfIndex = 0x10 })
  for _, main in ipairs({ 0x11, 0x13, 0x15 }) do db:delete(IF_INFO, { mainIfIndex = main }) end
end)

t.case("layer-2 support counts as configured for every mode but 1", function()
  expect(NO, "mode 1", l2sup, 10)
  expect(YES, "mode 2", l2sup, 11)
  expect(YES, "mode 0", l2sup, 12)
  expect(NO, "no record", l2sup, 13)
end)

t.case("pseudowire support is seen only in the database object's own VR", function()
  expect(YES, "own VR, mode 2", pwsup, 20)
  expect(NO, "own VR, mode 1", pwsup, 21)
  expect(NO, "record of the VR equal to the LR id", pwsup, 22)
  expect(NO, "interface index equal to the VR", pwsup, OWN_VR)
  local other = cfgdb.open(nil, { vr = OWN_LR, lr = OWN_VR, cdb = 0 })
  other:insert(PWSUP_CFG, { vrId = OWN_LR, ifIndex = 22, supMode = 2 })
  other:bind()
  local r = t.pack(pwsup(22))
  db:bind()
  other:close()
  t.same(r, YES, "the same record seen from an object of its VR")
end)

-- Failure sweeps: the n-th allocation (or client call) of a call fails, for n = 1, 2, ...
-- until the fault lies beyond the call. The client calls of a probe, in order: (pseudowire
-- only: the VR lookup,) the database identifier, whose failure is ignored, then the select.
local PROBES = {
  { "main interface", mainif, 0x1001, { 0, 0x1000 }, { 1, 0 }, { "clean", "fail" } },
  { "layer-2 support", l2sup, 11, YES, NO, { "clean", "fail" } },
  { "pseudowire support", pwsup, 20, YES, NO, { "fail", "clean", "fail" } },
}

local function sweep(arm, name, f, arg, good, failed, outcomes)
  for n = 1, #outcomes + 1 do
    arm(db, n)
    local r = t.pack(f(arg))
    arm(db, 0)
    local what = string.format("%s with failure %d", name, n)
    t.same(r, outcomes[n] == "fail" and failed or good, what)
    t.clean(db, what)
  end
end

t.case("each failed allocation (record set, result buffer) gives the failure answer", function()
  for _, p in ipairs(PROBES) do
    sweep(db.fail_alloc, p[1], p[2], p[3], p[4], p[5], { "fail", "fail" })
  end
end)

t.case("each failed client call gives the failure answer, or the clean one where ignored", function()
  for _, p in ipairs(PROBES) do
    sweep(db.fail_call, unpack(p))
  end
end)

t.finish()
