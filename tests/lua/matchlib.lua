-- Helpers shared by the match-rule script tests: a fresh bound database per case, the module's
-- writes as comparable lines, stored rows as sorted lines, and fault sweeps.
local cfgdb = require "cfgdb"
local t = require "testlib"

local M = {}

M.IF_INFO, M.DOT1Q, M.SEG_INDEX = 0x083606C0, 0x083606C2, 0x083606CA
M.QINQ, M.QINQ_IF_SPEC = 0x083606C1, 0x08361A12
M.VR = 7

local current

-- Closes the previous database and opens, binds and returns an empty one.
function M.fresh()
  if current then
    cfgdb.unbind()
    current:close()
  end
  current = cfgdb.open(nil, { vr = M.VR, lr = 3, cdb = 0 })
  current:bind()
  return current
end

local function fieldlist(fields)
  local keys = {}
  for k in pairs(fields) do keys[#keys + 1] = k end
  table.sort(keys)
  local parts = {}
  for _, k in ipairs(keys) do
    local v = fields[k]
    parts[#parts + 1] = k .. "=" .. (type(v) == "string" and string.format("%q", v) or tostring(v))
  end
  return table.concat(parts, " ")
end

-- One line per write since the last call: "op table flag: field=value ...".
function M.writes(db)
  local out = {}
  for _, e in ipairs(db:journal()) do
    out[#out + 1] = string.format("%s %08X %d: %s", e.op, e.table, e.flag, fieldlist(e.fields))
  end
  return out
end

-- Builds the expected write line with the same formatting.
function M.w(op, tid, flag, fields)
  return string.format("%s %08X %d: %s", op, tid, flag, fieldlist(fields))
end

function M.same_lines(got, want, what)
  local ok = #got == #want
  for i = 1, math.max(#got, #want) do
    if got[i] ~= want[i] then ok = false end
  end
  if not ok then
    error(string.format("%s:\n got:\n  %s\n want:\n  %s", what or "lines", table.concat(got, "\n  "),
      table.concat(want, "\n  ")), 2)
  end
end

-- The table's rows, each formatted by fmt, sorted.
function M.rows(db, tid, fmt, where)
  local out = {}
  for _, r in ipairs(db:rows(tid, where)) do out[#out + 1] = fmt(r) end
  table.sort(out)
  return out
end

function M.truthy(cond, what)
  if not cond then error((what or "condition") .. " failed", 2) end
end

-- No module memory may be left after a call.
function M.no_leak(db, what)
  local mem = db:mem()
  t.eq(mem.live, 0, (what or "call") .. ": live blocks")
end

-- For n = 1, 2, ...: a fresh database from setup(), the n-th allocation or client call of
-- call(db) made to fail, no leak allowed, and check(n, results, db) judging the outcome; the
-- sweep ends when check answers "clean" (the fault no longer reaches the call). Returns n.
function M.sweep(kind, setup, call, check, limit)
  for n = 1, limit or 200 do
    local db = setup()
    db:journal()
    if kind == "alloc" then db:fail_alloc(n) else db:fail_call(n) end
    local r = t.pack(call(db))
    if kind == "alloc" then db:fail_alloc(0) else db:fail_call(0) end
    M.no_leak(db, kind .. " n=" .. n)
    if check(n, r, db) == "clean" then return n end
  end
  error(kind .. " sweep did not finish")
end

return M
