-- Failures injected at every allocation and every database call of one walk: each run gives
-- the documented answer for the site that failed and leaves no block behind.
local t = require "testlib"
local F = require "uvlan_util"
local unpack = table.unpack or unpack
local case, eq = t.case, t.eq

local function cfg()
  local c = F.cfg(1)
  c:addDot1q(10, 10, 12); c:addQinqIf(10); c:addQinq(10, 100, 101, 11, 11)
  c:addDot1q(20, 5, 6)
  c:addQinqIf(30); c:addQinq(30, 5, 6, 3, 4)
  c:addDesc(10, 0, 10, "ten"); c:addDesc(30, 6, 4, "last")
  return c
end

local function isSubsequence(sub, full)
  local j = 1
  for _, k in ipairs(sub) do
    while full[j] and full[j] ~= k do j = j + 1 end
    if not full[j] then return false end
    j = j + 1
  end
  return true
end

local function descCount(tbl)
  local n = 0
  for _, e in ipairs(tbl or {}) do if e.description then n = n + 1 end end
  return n
end

local MALLOC = "\nVLAN_API_UserVlanMibQuery : KEL_Malloc fail,qureyNum: 100\n\0"
local PAIRBUF = "\nvlanLua_VlanPairBuffCreate FAIL: uiMaxNum=4096\n\nVLAN_API_UserVlanMibQuery: return ERR\n\0"
local SOURCE_MSGS = {
  ["\nvlanLua_UserVlanCnt: VLANLUA_RecordSet_New rtn ERR\n\0"] = "count",
  ["\nvlanLua_UserVlanDot1qQuery: VLANLUA_RecordSet_New ERR\n\0"] = "802.1Q rows",
  ["\nvlanLua_UserVlanQinqQuery: VLANLUA_RecordSet_New ERR\n\0"] = "QinQ rows",
  ["\nvlanLua_UserVlanDescQuery: VLANLUA_RecordSet_New ERR\n\0"] = "descriptions",
  ["\nvlanLua_UserVlanAnyOtherQuery: VLANLUA_RecordSet_New ERR\n\0"] = "any-other rows",
  ["\0"] = "silent",
}

-- Checks one faulty run against the clean one; returns the name of the site it showed.
local function checkRun(c, clean, code, keys, tbl, msg, n)
  local where = "allocation " .. n
  if msg == MALLOC then
    eq(n, 1, "the entry array is the first allocation"); eq(code, 1, where); eq(tbl, nil, where)
    return "entries"
  elseif msg == PAIRBUF then
    eq(code, 1, where); eq(tbl, nil, where)
    return "pair buffer"
  end
  local site = SOURCE_MSGS[msg]
  assert(site, where .. ": unexpected message " .. string.format("%q", msg))
  eq(code, 0, where)
  local order = isSubsequence(keys, clean.keys) or (clean.restart and isSubsequence(keys, clean.restart))
  assert(order, where .. ": entries not in walk order: " .. table.concat(keys, " "))
  if site == "802.1Q rows" then
    for _, k in ipairs(keys) do assert(not k:match("^%d+:0:"), where .. ": 802.1Q entry " .. k) end
  elseif site == "descriptions" then
    eq(table.concat(keys, " "), table.concat(clean.keys, " "), where .. " entries")
    eq(descCount(tbl), 0, where .. " descriptions")
  end
  return site
end

-- restart: the order the walk may fall back to (see the resumed walk below), or nil.
local function sweepAllocs(c, args, restart)
  local clean = {restart = restart}
  local before = c.db:mem().total
  local code
  code, clean.keys, clean.tbl = c:page(unpack(args))
  eq(code, 0, "clean run")
  local allocs = c.db:mem().total - before
  assert(allocs >= 3, "a walk allocates")
  local seen, asserts = {}, c.db:mem().asserts
  for n = 1, allocs do
    c.db:fail_alloc(n)
    local code2, keys, tbl, msg = c:page(unpack(args))
    c.db:fail_alloc(0)
    seen[checkRun(c, clean, code2, keys, tbl, msg, n)] = true
    eq(c.db:mem().live, 0, "live blocks after allocation " .. n .. " failed")
  end
  eq(c.db:mem().asserts, asserts, "assertions")
  return seen
end

case("every allocation of a walk with descriptions fails cleanly", function()
  local c = cfg()
  local seen = sweepAllocs(c, {0, 0, 0, 100, 1})
  for _, site in ipairs({"entries", "pair buffer", "count", "802.1Q rows", "QinQ rows", "descriptions", "silent"}) do
    assert(seen[site], "no failure reached the site: " .. site)
  end
end)

-- When the QinQ rows of the resumed interface cannot be loaded, the walk has nothing to
-- resume from and starts that interface's 802.1Q entries over, as a walk from (10, 0, 0).
case("every allocation of a resumed walk fails cleanly", function()
  local c = cfg()
  local _, restart = c:page(10, 0, 0, 100, 0)
  local seen = sweepAllocs(c, {10, 100, 11, 100, 0}, restart)
  assert(seen["pair buffer"] and seen["QinQ rows"] and seen["802.1Q rows"], "resume sites reached")
end)

case("every allocation of an any-other walk fails cleanly", function()
  local c = cfg()
  c:addAnyOther(10); c:addAnyOther(30)
  local seen = sweepAllocs(c, {0, 0, 0, 100, 2})
  assert(seen["entries"] and seen["any-other rows"] and seen["silent"], "any-other sites reached")
end)

case("a failing database call reads as missing rows: success, walk order, no message", function()
  local c = cfg()
  local _, clean = c:page(0, 0, 0, 100, 1)
  local shorter = 0
  for n = 1, 40 do
    c.db:fail_call(n)
    local code, keys, _, msg = c:page(0, 0, 0, 100, 1)
    c.db:fail_call(0)
    eq(code, 0, "call " .. n); eq(msg, "\0", "message of call " .. n)
    assert(isSubsequence(keys, clean), "call " .. n .. ": entries not in walk order")
    if #keys < #clean then shorter = shorter + 1 end
    eq(c.db:mem().live, 0, "live blocks after call " .. n .. " failed")
  end
  assert(shorter >= 3, "failed calls cost entries")
end)

t.finish()
