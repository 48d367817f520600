-- Allocation and database-call failures injected at every site of a large set request and of a
-- large removal, n = 1, 2, ... until the call runs clean: each failing call gives the failure
-- results, leaves no live block, and the database holds only a prefix of the clean run's writes.
local t = require "testlib"
local U = require "uvlan_util"

local IFX = 5

-- Six stored rows side by side along PE with alternating services, and one without services.
local function setup()
  local db = U.open()
  for i = 0, 5 do
    local r = U.set(IFX, 10 + 10 * i, 19 + 10 * i, 1, 10, {1, i % 2 + 1, 9, 1})
    assert(r.code == 0, "setup")
  end
  assert(U.set(IFX, 70, 79, 1, 10, {}).code == 0, "setup")
  db:journal()
  return db
end

local REQUESTS = {
  {name = "set", t1 = U.arg1(IFX, 15, 74, 5, 15), t2 = {1, 3, 10, 2}},
  {name = "removal", t1 = U.arg1(IFX, 15, 74, 3, 8), t2 = {255, 1}},
}

local function journal_lines(db)
  local out = {}
  for _, e in ipairs(db:journal()) do
    local f = {}
    for k, v in pairs(e.fields) do f[#f + 1] = k .. "=" .. tostring(v) end
    table.sort(f)
    out[#out + 1] = string.format("%s %08X flag %d {%s}", e.op, e.table, e.flag, table.concat(f, " "))
  end
  return out
end

local function is_prefix(part, whole)
  if #part > #whole then return false end
  for i = 1, #part do
    if part[i] ~= whole[i] then return false, i end
  end
  return true
end

local function last_line(text)
  return text:match("([^\n]*)\n$") or ""
end

local total = 0
for _, req in ipairs(REQUESTS) do
  local db = setup()
  local clean = U.call(req.t1, req.t2)
  assert(clean.code == 0 and clean.text == "", req.name .. ": clean run failed: " .. tostring(clean.text))
  local want = journal_lines(db)
  assert(#want > 4, req.name .. ": the request should write several rows")
  db:close()
  for _, kind in ipairs({"fail_alloc", "fail_call"}) do
    local streak, n = 0, 0
    while streak < 3 do
      n = n + 1
      assert(n < 3000, req.name .. " " .. kind .. ": never ran clean")
      local where = string.format("%s %s(%d)", req.name, kind, n)
      db = setup()
      db[kind](db, n)
      local r = U.call(req.t1, req.t2)
      local got = journal_lines(db)
      t.eq(db:mem().live, 0, where .. ": live blocks")
      local refused = r.chg == 1 and last_line(r.text) == "VLAN_API_SetUserVlanQinQSvc:  check flag return ERR"
      if r.code ~= 0 and refused then
        -- A failed read hid the stored rows, so the removal no longer fell on them: refused, no write.
        streak = 0
        t.eq(#got, 0, where .. ": writes of a refused removal")
      elseif r.code ~= 0 then
        streak = 0
        t.eq(r.chg, nil, where .. ": second result"); t.eq(r.segchg, nil, where .. ": fourth result")
        t.eq(r.adddel, nil, where .. ": fifth result")
        t.check(last_line(r.text):find("^VLAN_API_SetUserVlanQinQSvc:"), "%s: last line %q", where, r.text)
        local ok, at = is_prefix(got, want)
        t.check(ok, "%s: write %s is not the clean run's (%s)", where, tostring(at), tostring(got[at or 1]))
      elseif r.text == "" and is_prefix(got, want) and #got == #want then
        streak = streak + 1
      else
        -- A failed read is passed over by loading, as documented; the call then goes on.
        streak = 0
      end
      db:close()
      total = total + 1
    end
  end
end
print("ok: " .. total .. " injected runs")
