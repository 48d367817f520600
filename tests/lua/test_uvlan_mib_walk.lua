-- The user-VLAN walk seen from a script: its order, where each kind of start key resumes,
-- any-other walks, descriptions, the interface limit of one call and refused arguments.
local t = require "testlib"
local F = require "uvlan_util"
local case, eq, list = t.case, t.eq, t.lines

-- Interface 10: 802.1Q 10..12 and a QinQ row PE 100..101 x CE 11. Interface 20: 802.1Q 5 and
-- listed as a QinQ interface without QinQ rows. Interface 25: a QinQ interface without rows.
-- Interface 30: PE 5..6 x CE 3..4. Rows of VR 2 must never show.
local function small()
  local c = F.cfg(1)
  c:addDot1q(10, 10, 12)
  c:addQinqIf(10); c:addQinq(10, 100, 101, 11, 11)
  c:addDot1q(20, 5, 5); c:addQinqIf(20)
  c:addQinqIf(25)
  c:addQinqIf(30); c:addQinq(30, 5, 6, 3, 4)
  c:addDot1q(15, 1, 4094, 2); c:addQinqIf(15, 2); c:addQinq(15, 1, 1, 1, 1, 2)
  c:addAnyOther(10); c:addAnyOther(30); c:addAnyOther(40); c:addAnyOther(12, 2)
  return c
end

local ALL = {"10:0:10", "10:0:11", "10:100:11", "10:101:11", "10:0:12", "20:0:5",
             "30:5:3", "30:6:3", "30:5:4", "30:6:4"}

case("a whole walk orders interfaces, then CE, then PE with 802.1Q as PE 0", function()
  local c = small()
  local code, keys, _, msg = c:page(0, 0, 0, 100)
  eq(code, 0, "code"); list(keys, ALL); eq(msg, "\0", "message")
  list(keys, c:model(), "model")
  c:close()
end)

case("resuming after a QinQ entry gives its next PE, then the next CE", function()
  local c = small()
  local _, first = c:page(10, 0, 0, 3)
  list(first, {"10:0:10", "10:0:11", "10:100:11"})
  local _, second = c:page(10, 100, 11, 4)
  list(second, {"10:101:11", "10:0:12", "20:0:5", "30:5:3"})
  c:close()
end)

case("resuming after an 802.1Q entry gives the QinQ entries of the same CE first", function()
  local c = small()
  local _, keys = c:page(10, 0, 11, 3)
  list(keys, {"10:100:11", "10:101:11", "10:0:12"})
  local _, tail = c:page(20, 0, 5, 100)
  list(tail, {"30:5:3", "30:6:3", "30:5:4", "30:6:4"})
  c:close()
end)

case("a start key with a PE VLAN but no CE VLAN fails the call", function()
  local c = small()
  local code, tbl, msg = F.lib.VLAN_spt_UserVlanMibQuery(10, 100, 0, 1, 10, 0)
  eq(code, 1, "code"); eq(tbl, nil, "table")
  eq(msg, "\nVLAN_API_UserVlanMibQuery: return ERR\n\0", "message")
  c:close()
end)

case("an interface-only start key starts with that interface in an 802.1Q/QinQ walk", function()
  local c = small()
  local _, keys = c:page(20, 0, 0, 3)
  list(keys, {"20:0:5", "30:5:3", "30:6:3"})
  local _, from10 = c:page(10, 0, 0, 1)
  list(from10, {"10:0:10"})
  c:close()
end)

case("an any-other walk gives one entry per interface of the VR, after the start interface", function()
  local c = small()
  local code, keys, tbl = c:page(0, 0, 0, 10, 2)
  eq(code, 0, "code")
  list(keys, {"10:0:0", "30:0:0", "40:0:0"})
  for _, e in ipairs(tbl) do eq(e.anyOther, 1, "anyOther"); eq(e.description, nil, "description") end
  local _, after = c:page(10, 0, 0, 10, 2)
  list(after, {"30:0:0", "40:0:0"})
  local _, paged = c:page(30, 0, 0, 1, 2)
  list(paged, {"40:0:0"})
  c:close()
end)

case("entries of an 802.1Q/QinQ walk say anyOther 0", function()
  local c = small()
  local _, _, tbl = c:page(0, 0, 0, 100)
  for _, e in ipairs(tbl) do eq(e.anyOther, 0, "anyOther") end
  c:close()
end)

case("descriptions are looked up with query type 1 only, nil where none is stored", function()
  local c = small()
  c:addDesc(10, 0, 10, "ten")
  c:addDesc(10, 100, 11, "hundred")
  c:addDesc(30, 6, 4, "last")
  local _, keys, tbl = c:page(0, 0, 0, 100, 1)
  list(keys, ALL)
  local want = {[1] = "ten", [3] = "hundred", [10] = "last"}
  for i, e in ipairs(tbl) do
    if want[i] then
      eq(#e.description, 129, "pushed length of entry " .. i)
      eq(e.description:match("^[^%z]*"), want[i], "description of entry " .. i)
    else
      eq(e.description, nil, "description of entry " .. i)
    end
  end
  local _, _, plain = c:page(0, 0, 0, 100, 0)
  for i, e in ipairs(plain) do eq(e.description, nil, "type 0 description " .. i) end
  c:close()
end)

case("one call visits the QinQ entries of at most 64 interfaces; the next call goes on", function()
  local c = F.cfg(1)
  for i = 1, 70 do c:addQinqIf(100 + i); c:addQinq(100 + i, 7, 7, 9, 9) end
  local _, keys, tbl = c:page(0, 0, 0, 1000)
  eq(#keys, 64, "entries of the first call")
  eq(keys[64], "164:7:9", "last entry of the first call")
  local last = tbl[#tbl]
  local _, rest = c:page(last.ifIndex, last.peVlan, last.ceVlan, 1000)
  eq(#rest, 6, "entries of the second call")
  eq(rest[1], "165:7:9", "first entry of the second call")
  c:close()
end)

case("a page of zero entries succeeds empty", function()
  local c = small()
  local code, keys, tbl = c:page(0, 0, 0, 0)
  eq(code, 0, "code"); eq(#keys, 0, "entries"); eq(type(tbl), "table", "result")
  c:close()
end)

case("refused arguments answer 1, nil and the reason", function()
  local c = small()
  local q = F.lib.VLAN_spt_UserVlanMibQuery
  local function check(want, ...)
    local code, tbl, msg = q(...)
    eq(code, 1, "code"); eq(tbl, nil, "table"); eq(msg, want .. "\0", "message")
  end
  check("\nVLANLUA_Spt_UserVlanMibQuery:uiParamNum = 5, Error\n", 0, 0, 0, 1, 10)
  check("\nVLAN_UserVlanMibQueryParse:uiIfIndex is not valid\n", 4294967295, 0, 0, 1, 10, 0)
  check("\nVLAN_UserVlanMibQueryParse:uiIfIndex is not valid\n", "x", 0, 0, 1, 10, 0)
  check("\nVLAN_UserVlanMibQueryParse:usPeVid or usCeVid is not a number\n", 0, 0, {}, 1, 10, 0)
  check("\nVLAN_UserVlanMibQueryParse:uiVrId is not a number\n", 0, 0, 0, nil, 10, 0)
  check("\nVLAN_UserVlanMibQueryParse:uiQueryNum is not a number\n", 0, 0, 0, 1, 10, true)
  c:close()
end)

case("the walk writes nothing and leaves no block behind", function()
  local c = small()
  c.db:journal()
  c:page(0, 0, 0, 100, 1); c:page(10, 100, 11, 2); c:page(10, 0, 11, 2); c:page(0, 0, 0, 5, 2)
  eq(#c.db:journal(), 0, "journal entries")
  eq(c.db:mem().live, 0, "live blocks")
  c:close()
end)

case("a description row of an interface without entries ends the lookups after it", function()
  local c = small()
  c:addDesc(10, 0, 10, "ten")
  c:addDesc(15, 1, 1, "orphan")
  c:addDesc(30, 6, 4, "last")
  local _, _, tbl = c:page(0, 0, 0, 100, 1)
  eq(tbl[1].description:match("^[^%z]*"), "ten", "before the orphan row")
  eq(tbl[10].description, nil, "after the orphan row")
  c:close()
end)

case("without a bound database every function answers 1 and names the missing object", function()
  local c = small()
  require("cfgdb").unbind()
  local code, tbl, msg = F.lib.VLAN_spt_UserVlanMibQuery(0, 0, 0, 1, 10, 0)
  eq(code, 1, "walk code"); eq(tbl, nil, "walk table")
  eq(msg, "\nVLANLUA_Spt_UserVlanMibQuery:call ECM_CAPI_GetObjExt ERR\n\0", "walk message")
  code, msg = F.lib.VLAN_spt_UserVlanDot1qExist(10, 10, 1)
  eq(code, 1, "802.1Q code"); eq(msg, "\nVLANLUA_Spt_UserVlanDot1qExist:call ECM_CAPI_GetObjExt ERR\n\0", "802.1Q")
  code, msg = F.lib.VLAN_spt_UserVlanQinqExist(10, 100, 11, 1)
  eq(code, 1, "QinQ code"); eq(msg, "\nVLANLUA_Spt_UserVlanQinqExist:call ECM_CAPI_GetObjExt ERR\n\0", "QinQ")
  c.db:bind()
  c:close()
end)

t.finish()
