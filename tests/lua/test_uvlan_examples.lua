-- VLAN_spt_SetUserVlanQinQSvc on small known cases: its results, the rows it leaves, and the
-- order, tables, field lists and flags of its writes as the database journals them.
local t = require "testlib"
local U = require "uvlan_util"
local unpack = table.unpack or unpack

local case, fresh = t.case, U.open

local function rowlist(db, ifx)
  local out = {}
  for _, r in ipairs(U.rows(db, ifx)) do out[#out + 1] = U.rowstr(r) end
  return table.concat(out, "; ")
end

-- The five results as one line: code, second, text, fourth, fifth.
local function res(r)
  return string.format("%s %s %q %s %s", tostring(r.code), tostring(r.chg), r.text, tostring(r.segchg),
    tostring(r.adddel))
end
local function expect(r, code, chg, text, segchg, adddel, what)
  t.eq(res(r), res({code = code, chg = chg, text = text, segchg = segchg, adddel = adddel}), what or "results")
end

local function ops(journal)
  local out = {}
  for _, e in ipairs(journal) do
    out[#out + 1] = string.format("%s %08X [%s] flag %d", e.op, e.table, U.fieldset(e), e.flag)
  end
  return table.concat(out, "\n")
end

-- ---- worked examples ----

case("overlapping request with equal services merges into one new row, old row deleted last", function()
  local db = fresh()
  t.eq(U.set(7, 100, 199, 1, 10, {1, 7}).code, 0, "setup")
  local old = U.rows(db, 7)[1]
  db:journal()
  local r = U.set(7, 150, 249, 1, 10, {1, 7})
  expect(r, 0, nil, "", 2, 4)
  t.eq(rowlist(db, 7), "PE[100-249]xCE[1-10] {1=7}", "rows")
  local new = U.rows(db, 7)[1]
  local j = U.uvjournal(db)
  t.eq(ops(j), table.concat({
    "insert 08361118 [1,2,3,4,5,6,7,8,9,10,11] flag 1",
    "insert 08361119 [1,2,3,4,5,6,7,8,9,10,11,12,13] flag 1",
    "delete 08361118 [1,2] flag 1"}, "\n"), "writes")
  t.eq(j[1].fields[2], new.idx, "new row index"); t.eq(j[2].fields[2], new.idx, "services under the new index")
  t.eq(j[2].fields[7], 7, "service type 1 in field 7"); t.eq(j[3].fields[2], old.idx, "old row deleted")
end)

case("segment row carries the request's rectangle and owner key field by field", function()
  local db = fresh()
  db:journal()
  t.eq(U.call(U.arg1(9, 20, 30, 5, 6, {vr = 0, a = 101, b = 202, up = 303, name = "cust"}), {}).code, 0, "code")
  local j = U.uvjournal(db)
  t.eq(#j, 1, "one insert, no service rows for an empty service table")
  local f = j[1].fields
  t.eq(f[1], 9, "ifindex"); t.eq(f[3], 202, "key b"); t.eq(f[5], 5, "CE begin"); t.eq(f[6], 6, "CE end")
  t.eq(f[7], 20, "PE begin"); t.eq(f[8], 30, "PE end"); t.eq(f[9], 101, "key a"); t.eq(f[10], 303, "up id")
  t.eq(f[11], "cust", "key name")
  U.call(U.arg1(7, 1, 2, 1, 2, {name = string.rep("k", 64)}), {})
  U.call(U.arg1(7, 5, 6, 1, 2, {name = string.rep("k", 65)}), {})
  j = U.uvjournal(db)
  t.eq(j[1].fields[11], string.rep("k", 64), "a key name of 64 bytes fills the field")
  t.eq(j[2].fields[11], "", "a longer one leaves it empty")
end)

-- Service changes on one stored segment PE[10-20]xCE[1-5] with the services `stored`: the request
-- (PE and CE ranges, services) and every write it must make, in order. Results and the rows left
-- are checked for thousands of requests by test_uvlan_random.lua.
local BASE_ALL, VPN_ALL = "[1,2,3,4,5,6,7,8,9,10,11,12,13] flag 1", "[1,2,3,5,6,7,8,9,10,11,12,13] flag 1"
local SERVICE_WRITES = {
  {"changed services of the exact segment update every loaded row in place; VPN without field 4",
   {1, 3, 9, 4}, {10, 20, 1, 5, {2, 6, 10, 8}}, {"set 08361119 " .. BASE_ALL, "set 08360535 " .. VPN_ALL}},
  {"services given to a segment stored without service rows are created",
   {}, {10, 20, 1, 5, {3, 1}}, {"insert 08361119 " .. BASE_ALL}},
  {"every service cleared with value 0 deletes the service rows",
   {1, 3, 9, 4}, {10, 20, 1, 5, {1, 0, 9, 0}}, {"delete 08361119 [2] flag 1", "delete 08360535 [2] flag 1"}},
  {"a request equal to the stored state writes nothing", {1, 3}, {12, 15, 2, 3, {1, 3}}, {}},
}

case("service changes on a stored segment make exactly their writes", function()
  for _, c in ipairs(SERVICE_WRITES) do
    local db = fresh()
    U.set(7, 10, 20, 1, 5, c[2])
    db:journal()
    local q = c[3]
    t.eq(U.set(7, q[1], q[2], q[3], q[4], q[5]).code, 0, c[1] .. ": code")
    t.eq(ops(db:journal()), table.concat(c[4], "\n"), c[1] .. ": writes")
  end
end)

case("a stored base-service row holding only service type 16 is a row: updated in place, type 16 kept", function()
  local db = fresh()
  U.set(7, 10, 20, 1, 5, {})
  db:insert(U.BASE, {[1] = 7, [2] = U.rows(db, 7)[1].idx, [6] = 5})
  db:journal()
  t.eq(U.set(7, 10, 20, 1, 5, {1, 3}).code, 0, "code")
  local j = db:journal()
  t.eq(ops(j), "set 08361119 " .. BASE_ALL, "writes")
  t.eq(j[1].fields[6] .. " " .. j[1].fields[7], "5 3", "type 16 stays in field 6 beside type 1 in field 7")
end)

case("stored key words replace those of the request", function()
  local db = fresh()
  U.set(7, 10, 20, 1, 5, {1, 3}, {a = 1, b = 2})
  db:journal()
  U.set(7, 21, 30, 1, 5, {1, 4}, {a = 8, b = 9})
  local j = U.uvjournal(db)
  t.eq(j[1].fields[9], 1, "key a of the first stored row"); t.eq(j[1].fields[3], 2, "key b of the first stored row")
end)

-- ---- removal ----

case("removal of the middle of a segment stores the outer part again", function()
  local db = fresh()
  U.set(7, 10, 29, 1, 5, {1, 3})
  local old = U.rows(db, 7)[1]
  db:journal()
  local r = U.set(7, 10, 19, 1, 5, {255, 1})
  expect(r, 0, nil, "", nil, 4, "one in, one out")
  t.eq(rowlist(db, 7), "PE[20-29]xCE[1-5] {1=3}", "rows")
  local j = U.uvjournal(db)
  t.eq(ops(j), table.concat({
    "insert 08361118 [1,2,3,4,5,6,7,8,9,10,11] flag 1",
    "insert 08361119 [1,2,3,4,5,6,7,8,9,10,11,12,13] flag 1",
    "delete 08361118 [1,2] flag 1"}, "\n"), "writes")
  t.eq(j[3].fields[2], old.idx, "old row deleted after the new one is in")
end)

-- ---- arguments ----

case("refused arguments answer code 1 and the reason, writing nothing", function()
  local P = "VLANLUA_Spt_SetUserVlanQinQSvc:"
  local a9, a11 = {unpack(U.arg1(7, 1, 2, 1, 2), 1, 9)}, U.arg1(7, 1, 2, 1, 2)
  a11[11] = 0
  local CASES = {
    {a9, {}, "first array uiParamNum = 9, Error"}, {a11, {}, "first array uiParamNum = 11, Error"},
    {U.arg1(0xFFFFFFFF, 1, 2, 1, 2), {}, "uiIfIndex is not valid"},
    {U.arg1(7, 1, 2, 1, 2), {1, 2, 3}, "second array uiParamNum = 3, Error"},
    {U.arg1(7, 1, 2, 1, 2), {17, 1}, "uiServiceType = 17, Error"},
  }
  local db = fresh()
  for _, c in ipairs(CASES) do
    expect(U.call(c[1], c[2]), 1, nil, "\n" .. P .. c[3] .. "\n", nil, nil, c[3])
  end
  t.clean(db, "refused")
  t.eq(U.set(0xFFFFFFFE, 1, 2, 1, 2, {}).code, 0, "interface 0xFFFFFFFE accepted")
  local r = U.set(7, 1, 2, 1, 2, {255, 1})
  t.eq(r.code .. " " .. r.chg, "1 1", "255 means 16: a removal over nothing, refused by the check flag")
end)

t.finish()
