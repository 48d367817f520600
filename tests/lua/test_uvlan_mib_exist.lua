-- Whether an 802.1Q user VLAN or a QinQ pair exists: range ends, the interface rule of each
-- check, VLAN narrowing and refused arguments.
local t = require "testlib"
local F = require "uvlan_util"
local case, eq = t.case, t.eq

local function cfg()
  local c = F.cfg(1)
  c:addDot1q(10, 100, 200)
  c:addQinq(20, 5, 9, 30, 40)
  c:addDot1q(11, 300, 300, 2)
  return c
end

case("an 802.1Q VLAN at either end of a stored range exists; one past either end does not", function()
  local c = cfg()
  local d = F.lib.VLAN_spt_UserVlanDot1qExist
  eq(d(10, 100, 1), 0, "first"); eq(d(10, 200, 1), 0, "last"); eq(d(10, 150, 1), 0, "inside")
  eq(d(10, 99, 1), 1, "below"); eq(d(10, 201, 1), 1, "above")
  c:close()
end)

case("the 802.1Q check asks its own interface and VR only", function()
  local c = cfg()
  local d = F.lib.VLAN_spt_UserVlanDot1qExist
  eq(d(9, 150, 1), 1, "lower interface"); eq(d(11, 150, 1), 1, "higher interface")
  eq(d(11, 300, 1), 1, "row of another VR"); eq(d(11, 300, 2), 0, "its own VR")
  c:close()
end)

case("a QinQ pair on a higher interface counts, one on a lower interface does not", function()
  local c = cfg()
  local q = F.lib.VLAN_spt_UserVlanQinqExist
  eq(q(20, 5, 30, 1), 0, "corner"); eq(q(20, 9, 40, 1), 0, "far corner")
  eq(q(19, 7, 35, 1), 0, "asked from a lower interface"); eq(q(21, 7, 35, 1), 1, "asked from a higher one")
  eq(q(20, 10, 35, 1), 1, "PE outside"); eq(q(20, 7, 29, 1), 1, "CE outside"); eq(q(20, 7, 35, 2), 1, "other VR")
  c:close()
end)

case("VLAN arguments keep their low 16 bits", function()
  local c = cfg()
  eq(F.lib.VLAN_spt_UserVlanDot1qExist(10, 65536 + 150, 1), 0, "802.1Q")
  eq(F.lib.VLAN_spt_UserVlanQinqExist(20, 65536 + 5, 65536 + 30, 1), 0, "QinQ")
  c:close()
end)

case("a success carries an empty message", function()
  local c = cfg()
  local code, msg = F.lib.VLAN_spt_UserVlanDot1qExist(10, 100, 1)
  eq(code, 0, "code"); eq(msg, "\0", "message")
  c:close()
end)

case("refused arguments answer 1 and the reason", function()
  local c = cfg()
  local d, q = F.lib.VLAN_spt_UserVlanDot1qExist, F.lib.VLAN_spt_UserVlanQinqExist
  local function check(want, code, msg) eq(code, 1, "code"); eq(msg, want .. "\0", "message") end
  check("\nVLANLUA_Spt_UserVlanDot1qExist:uiParamNum = 2, Error\n", d(10, 100))
  check("\nVLANLUA_Spt_UserVlanDot1qExist:uiIfIndex is not a number\n", d("a", 100, 1))
  check("\nVLANLUA_Spt_UserVlanDot1qExist:usCeVid is not a number\n", d(10, {}, 1))
  check("\nVLANLUA_Spt_UserVlanDot1qExist:uiVrId is not a number\n", d(10, 100, false))
  check("\nVLANLUA_Spt_UserVlanQinqExist: para is invalid.\n", q(20, "x", 30, 1))
  check("\nVLANLUA_Spt_UserVlanQinqExist: para is invalid.\n", q(20, 5, 30))
  c:close()
end)

case("the checks leave no block behind", function()
  local c = cfg()
  F.lib.VLAN_spt_UserVlanDot1qExist(10, 100, 1); F.lib.VLAN_spt_UserVlanQinqExist(20, 5, 30, 1)
  eq(c.db:mem().live, 0, "live blocks")
  c:close()
end)

t.finish()
