-- The user-VLAN walk seen from a script: its order, where each kind of start key resumes,
-- any-other walks, descriptions, the interface limit of one call and refused arguments.
local t = require "testlib"
local F = require "uvlan_util"
local unpack = table.unpack or unpack
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

-- Each page: start key (interface, PE, CE), size, query type, and the entries it must give.
local PAGES = {
  {"a whole walk orders interfaces, then CE, then PE with 802.1Q as PE 0", {0, 0, 0, 100}, ALL},
  {"after a QinQ entry: its next PE, then the next CE", {10, 100, 11, 4}, {"10:101:11", "10:0:12", "20:0:5", "30:5:3"}},
  {"after an 802.1Q entry: the QinQ entries of the same CE first", {10, 0, 11, 3}, {"10:100:11", "10:101:11", "10:0:12"}},
  {"after an interface's last entry", {20, 0, 5, 100}, {"30:5:3", "30:6:3", "30:5:4", "30:6:4"}},
  {"an interface-only key starts with that interface", {20, 0, 0, 3}, {"20:0:5", "30:5:3", "30:6:3"}},
  {"a page of one", {10, 0, 0, 1}, {"10:0:10"}},
  {"a page of zero entries succeeds empty", {0, 0, 0, 0}, {}},
  {"any-other: one entry per interface of the VR", {0, 0, 0, 10, 2}, {"10:0:0", "30:0:0", "40:0:0"}},
  {"any-other: after the start interface", {10, 0, 0, 10, 2}, {"30:0:0", "40:0:0"}},
  {"any-other: paged", {30, 0, 0, 1, 2}, {"40:0:0"}},
}

case("pages resume after any key in model order, write nothing and leave no block", function()
  local c = small()
  list(c:model(), ALL, "model")
  c.db:journal()
  for _, p in ipairs(PAGES) do
    local code, keys, tbl, msg = c:page(unpack(p[2]))
    eq(code, 0, p[1]); eq(msg, "\0", p[1]); eq(type(tbl), "table", p[1])
    list(keys, p[3], p[1])
    for _, e in ipairs(tbl) do eq(e.anyOther, p[2][5] == 2 and 1 or 0, p[1] .. ": anyOther") end
  end
  t.clean(c.db, "walks")
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
end)

case("refused arguments answer 1, nil and the reason", function()
  local c = small()
  local q = F.lib.VLAN_spt_UserVlanMibQuery
  local function check(want, ...)
    local code, tbl, msg = q(...)
    eq(code, 1, "code"); eq(tbl, nil, "table"); eq(msg, want .. "\0", "message")
  end
  check("\nVLAN_UserVlanMibQueryParse:uiIfIndex is not valid\n", 4294967295, 0, 0, 1, 10, 0)
  check("\nVLAN_UserVlanMibQueryParse:uiIfIndex is not valid\n", "x", 0, 0, 1, 10, 0)
  check("\nVLAN_UserVlanMibQueryParse:usPeVid or usCeVid is not a number\n", 0, 0, {}, 1, 10, 0)
  check("\nVLAN_UserVlanMibQueryParse:uiVrId is not a number\n", 0, 0, 0, nil, 10, 0)
  check("\nVLAN_UserVlanMibQueryParse:uiQueryNum is not a number\n", 0, 0, 0, 1, 10, true)
end)

case("a description row of an interface without entries ends the lookups after it", function()
  local c = small()
  c:addDesc(10, 0, 10, "ten")
  c:addDesc(15, 1, 1, "orphan")
  c:addDesc(30, 6, 4, "last")
  local _, _, tbl = c:page(0, 0, 0, 100, 1)
  eq(tbl[1].description:match("^[^%z]*"), "ten", "before the orphan row")
  eq(tbl[10].description, nil, "after the orphan row")
end)

case("an interface with QinQ rows under two VRs shows each VR only its own, from any start key", function()
  local one = F.cfg(1)
  local two = setmetatable({db = one.db, vr = 2, seg = 1000, dot1q = {}, qinq = {}, qinqIf = {}, anyOther = {}},
    getmetatable(one))
  for _, c in ipairs({one, two}) do c:addQinqIf(50); c:addQinqIf(60) end
  one:addQinq(50, 20, 21, 7, 7); one:addQinq(50, 5, 5, 9, 9); one:addDot1q(50, 8, 8)
  two:addQinq(50, 1, 1, 1, 1); two:addQinq(50, 30, 30, 8, 8); two:addQinq(50, 6, 6, 9, 9); two:addDot1q(50, 2, 2)
  one:addQinq(60, 3, 3, 3, 3); two:addQinq(60, 2, 2, 2, 2)
  list(one:model(), {"50:20:7", "50:21:7", "50:0:8", "50:5:9", "60:3:3"}, "model of VR 1")
  for _, c in ipairs({one, two}) do
    local model = c:model()
    for _, size in ipairs({1, 2, 100}) do list(c:walk(size), model, "VR " .. c.vr .. ", pages of " .. size) end
  end
  t.clean(one.db, "walks")
end)

t.finish()
