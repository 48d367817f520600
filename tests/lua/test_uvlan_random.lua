-- Thousands of seeded random set and removal requests on a few interfaces, each checked against
-- a cell-grid model: stored rows never overlap, they cover exactly the cells set and not removed,
-- every cell carries the services the requests gave it, and the change indicators tell the truth.
local t = require "testlib"
local U = require "uvlan_util"

local SEED, CALLS, SIDE = 20261123, 2000, 32
local IFACES = {1001, 1002, 1003}
local TYPES = {1, 2, 9, 10}
math.randomseed(SEED)

local db = U.open()
local model = {}                       -- model[ifindex][cell] = {[type] = value}
for _, ifx in ipairs(IFACES) do model[ifx] = {} end

local function cell(pe, ce) return pe * 64 + ce end

local function range() return U.random_range(SIDE) end
local function random_services(removal) return U.random_services(TYPES, removal) end

-- What a set request does to one cell's services: later pairs override earlier ones, 0 clears.
local function lay(old, svcs)
  local new = {}
  for k, v in pairs(old or {}) do new[k] = v end
  for i = 1, #svcs, 2 do
    local ty, v = svcs[i], svcs[i + 1]
    if ty >= 1 and ty <= 15 then new[ty] = (v ~= 0) and v or nil end
  end
  return new
end

local function grid_of(rows, where)
  local g = {}
  for _, r in ipairs(rows) do
    for pe = r.peb, r.pee do
      for ce = r.ceb, r.cee do
        local c = cell(pe, ce)
        t.check(g[c] == nil, "%s: cell PE %d CE %d stored twice (%s)", where, pe, ce, U.rowstr(r))
        g[c] = r.svc
      end
    end
  end
  return g
end

local function same_services(a, b)
  for k, v in pairs(a) do if b[k] ~= v then return false end end
  for k in pairs(b) do if a[k] == nil then return false end end
  return true
end

local function check_grid(ifx, where)
  local got = grid_of(U.rows(db, ifx), where)
  for c, svc in pairs(model[ifx]) do
    t.check(got[c] ~= nil, "%s: cell PE %d CE %d lost", where, math.floor(c / 64), c % 64)
    if not same_services(got[c], svc) then
      t.eq(U.svcstr(got[c]), U.svcstr(svc), string.format("%s: services of PE %d CE %d", where, math.floor(c / 64), c % 64))
    end
  end
  for c in pairs(got) do
    t.check(model[ifx][c] ~= nil, "%s: cell PE %d CE %d stored but never set", where, math.floor(c / 64), c % 64)
  end
end

local function indexes(ifx)
  local s = {}
  for _, r in ipairs(db:rows(U.SEG, {ifIndex = ifx})) do s[r[2]] = true end
  return s
end

local function count_new(a, b)
  local n = 0
  for k in pairs(b) do if not a[k] then n = n + 1 end end
  return n
end

local function all_stored(ifx, peb, pee, ceb, cee)
  for pe = peb, pee do
    for ce = ceb, cee do
      if not model[ifx][cell(pe, ce)] then return false end
    end
  end
  return true
end

local function apply(ifx, peb, pee, ceb, cee, svcs, removal)
  for pe = peb, pee do
    for ce = ceb, cee do
      local c = cell(pe, ce)
      model[ifx][c] = (not removal) and lay(model[ifx][c], svcs) or nil
    end
  end
end

for n = 1, CALLS do
  local ifx = IFACES[math.random(#IFACES)]
  local peb, pee = range()
  local ceb, cee = range()
  local removal = math.random() < 0.2
  local svcs = random_services(removal)
  local where = string.format("call %d (seed %d): if %d PE[%d-%d]xCE[%d-%d] %s %s", n, SEED, ifx, peb, pee, ceb,
                              cee, removal and "remove" or "set", table.concat(svcs, ","))
  local before = indexes(ifx)
  local res = U.set(ifx, peb, pee, ceb, cee, svcs)
  local after = indexes(ifx)
  local ins, del = count_new(before, after), count_new(after, before)
  t.eq(db:mem().live, 0, where .. ": live blocks after the call")
  if removal and not all_stored(ifx, peb, pee, ceb, cee) then
    t.eq(res.code, 1, where .. ": refused removal code")
    t.eq(res.chg, 1, where .. ": refused removal second result")
    t.check(res.text:find("VLAN_API_SetUserVlanQinQSvc:  check flag return ERR\n", 1, true), "%s: text %q", where,
            res.text)
    t.eq(ins + del, 0, where .. ": rows written by a refused removal")
  else
    t.eq(res.code, 0, where .. ": code (" .. tostring(res.text) .. ")")
    t.eq(res.text, "", where .. ": text")
    apply(ifx, peb, pee, ceb, cee, svcs, removal)
    if removal then
      t.eq(res.chg, (ins ~= del) and (ins - del) or nil, where .. ": rows inserted minus deleted")
      t.eq(res.segchg, nil, where .. ": fourth result of a removal")
    else
      t.eq(res.chg, nil, where .. ": second result of a set")
      t.eq(res.segchg, (ins + del > 0) and 2 or nil, where .. ": rows changed indicator")
    end
    t.eq(res.adddel, (ins > 0 and del > 0) and 4 or nil, where .. ": rows added and deleted indicator")
  end
  check_grid(ifx, where)
end
for _, ifx in ipairs(IFACES) do check_grid(ifx, "end") end
db:close()
print(string.format("ok: %d random requests on %d interfaces", CALLS, #IFACES))
