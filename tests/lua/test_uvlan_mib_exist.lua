-- Whether an 802.1Q user VLAN or a QinQ pair exists: range ends, the interface rule of each
-- check, VLAN narrowing and refused arguments with their exact messages.
local t = require "testlib"
local F = require "uvlan_util"
local unpack = table.unpack or unpack

local d, q = F.lib.VLAN_spt_UserVlanDot1qExist, F.lib.VLAN_spt_UserVlanQinqExist
local c = F.cfg(1)
c:addDot1q(10, 100, 200)
c:addQinq(20, 5, 9, 30, 40)
c:addDot1q(11, 300, 300, 2)

t.case("existence at the range ends, one past them, per interface and VR, VLANs cut to 16 bits", function()
  local CASES = {
    { d, { 10, 100, 1 }, 0 }, { d, { 10, 200, 1 }, 0 }, { d, { 10, 99, 1 }, 1 }, { d, { 10, 201, 1 }, 1 },
    { d, { 9, 150, 1 }, 1 }, { d, { 11, 150, 1 }, 1 }, { d, { 11, 300, 1 }, 1 }, { d, { 11, 300, 2 }, 0 },
    { d, { 10, 65536 + 150, 1 }, 0 },
    -- a QinQ pair counts when asked from its own or a lower interface, not a higher one
    { q, { 20, 5, 30, 1 }, 0 }, { q, { 20, 9, 40, 1 }, 0 }, { q, { 19, 7, 35, 1 }, 0 }, { q, { 21, 7, 35, 1 }, 1 },
    { q, { 20, 10, 35, 1 }, 1 }, { q, { 20, 7, 29, 1 }, 1 }, { q, { 20, 7, 35, 2 }, 1 },
    { q, { 20, 65536 + 5, 65536 + 30, 1 }, 0 },
  }
  for i, k in ipairs(CASES) do t.same(t.pack(k[1](unpack(k[2]))), { k[3], "\0" }, "case " .. i) end
  t.clean(c.db, "checks")
end)

t.case("refused arguments answer 1 and the reason", function()
  local function refused(want, ...) t.same(t.pack(...), { 1, want .. "\0" }, want) end
  refused("\nVLANLUA_Spt_UserVlanDot1qExist:uiIfIndex is not a number\n", d("a", 100, 1))
  refused("\nVLANLUA_Spt_UserVlanDot1qExist:usCeVid is not a number\n", d(10, {}, 1))
  refused("\nVLANLUA_Spt_UserVlanDot1qExist:uiVrId is not a number\n", d(10, 100, false))
  refused("\nVLANLUA_Spt_UserVlanQinqExist: para is invalid.\n", q(20, 5, 30))
end)

t.case("a failing database call makes a check answer no, silently and without a leak", function()
  local answers = {}
  for n = 1, 3 do
    c.db:fail_call(n)
    local r = t.pack(d(10, 150, 1))
    c.db:fail_call(0)
    t.eq(r[2], "\0", "message with call " .. n .. " failing")
    answers[#answers + 1] = r[1]
    t.clean(c.db, "call " .. n)
  end
  t.check(table.concat(answers):find("1"), "no failing call made the check answer no: %s", table.concat(answers, ","))
end)

t.finish()
