-- Shared helpers of the user-VLAN QinQ script tests: a fresh bound database, the call of
-- VLAN_spt_SetUserVlanQinQSvc with its five results, and reading an interface's stored rows back.
local cfgdb = require "cfgdb"
local uv = require "libvlanluaext"

local M = {}

M.SEG, M.BASE, M.VPN, M.SEGIDX = 0x08361118, 0x08361119, 0x08360535, 0x083606CA
M.uv = uv

-- Base-service fields by service type, and VPN-service fields by service type.
M.BASE_FIELD = {[1] = 7, [2] = 8, [3] = 9, [4] = 10, [5] = 11, [6] = 12, [7] = 13, [16] = 6}
M.VPN_FIELD = {[8] = 6, [9] = 7, [10] = 8, [11] = 9, [12] = 10, [13] = 11, [14] = 12, [15] = 13}

function M.open()
  local db = cfgdb.open()
  db:bind()
  return db
end

-- The first script table of a request: interface, PE and CE ranges, then the owner key.
function M.arg1(ifindex, peb, pee, ceb, cee, key)
  key = key or {}
  return {ifindex, peb, pee, ceb, cee, key.vr or 0, key.a or 11, key.b or 22, key.up or 33, key.name or "svc"}
end

-- Returns a record of the five results; text without its terminating zero.
function M.call(t1, t2)
  local res = table.pack(uv.VLAN_spt_SetUserVlanQinQSvc(t1, t2))
  assert(res.n == 5, "five results expected, got " .. res.n)
  local code, chg, text, segchg, adddel = table.unpack(res, 1, 5)
  return {code = code, chg = chg, text = text and text:gsub("%z$", ""), segchg = segchg, adddel = adddel}
end

-- set(ifindex, peb, pee, ceb, cee, {type, value, ...}) through the script function.
function M.set(ifindex, peb, pee, ceb, cee, svcs, key)
  return M.call(M.arg1(ifindex, peb, pee, ceb, cee, key), svcs or {})
end

-- The stored rows of an interface, each {peb, pee, ceb, cee, idx, svc = {[type] = non-zero value}}.
function M.rows(db, ifindex)
  local by_index = {}
  for _, tbl in ipairs({M.BASE, M.VPN}) do
    by_index[tbl] = {}
    for _, s in ipairs(db:rows(tbl, {[1] = ifindex})) do by_index[tbl][s[2]] = s end
  end
  local out = {}
  for _, r in ipairs(db:rows(M.SEG, {[1] = ifindex})) do
    local row = {peb = r[7], pee = r[8], ceb = r[5], cee = r[6], idx = r[2], keya = r[9], keyb = r[3], svc = {}}
    for tbl, map in pairs({[M.BASE] = M.BASE_FIELD, [M.VPN] = M.VPN_FIELD}) do
      local s = by_index[tbl][r[2]]
      if s then
        for ty, f in pairs(map) do
          if s[f] ~= 0 then row.svc[ty] = s[f] end
        end
      end
    end
    out[#out + 1] = row
  end
  table.sort(out, function(x, y) if x.peb ~= y.peb then return x.peb < y.peb end return x.ceb < y.ceb end)
  return out
end

function M.svcstr(svc)
  local keys = {}
  for k in pairs(svc) do keys[#keys + 1] = k end
  table.sort(keys)
  local parts = {}
  for _, k in ipairs(keys) do parts[#parts + 1] = k .. "=" .. svc[k] end
  return "{" .. table.concat(parts, ",") .. "}"
end

function M.rowstr(r)
  return string.format("PE[%d-%d]xCE[%d-%d] %s", r.peb, r.pee, r.ceb, r.cee, M.svcstr(r.svc))
end

-- Journal entries of the three user-VLAN tables only (the index allocator's writes left out).
function M.uvjournal(db)
  local out = {}
  for _, e in ipairs(db:journal()) do
    if e.table == M.SEG or e.table == M.BASE or e.table == M.VPN then out[#out + 1] = e end
  end
  return out
end

function M.fieldset(e)
  local f = {}
  for k in pairs(e.fields) do f[#f + 1] = k end
  table.sort(f)
  return table.concat(f, ",")
end

function M.check(cond, fmt, ...)
  if not cond then error(string.format(fmt, ...), 2) end
end

function M.eq(got, want, what)
  if got ~= want then
    error(string.format("%s: got %s, want %s", what, tostring(got), tostring(want)), 2)
  end
end

return M
