-- Helpers shared by the script-level tests: named cases that keep going after a failure, exact
-- comparison of result lists, leak/journal checks, bitmaps, journaled writes as lines, fault sweeps.
-- Written in the language every engine shares (5.1, 5.3, 5.4, LuaJIT): no bitwise operators, no
-- integer division, no integer/float subtype tests.
local cfgdb = require "cfgdb"
local unpack = table.unpack or unpack

local M = {}

-- Table identifiers by name, as the database's description gives them.
M.T = {}
for _, tbl in ipairs(cfgdb.tables()) do M.T[tbl.name] = tbl.id end
M.IF_INFO, M.DOT1Q, M.SEG_INDEX = M.T.IF_INFO, M.T.DOT1Q_MATCH_SEG, M.T.SEG_INDEX
M.QINQ, M.QINQ_IF_SPEC = M.T.QINQ_MATCH_SEG, M.T.QINQ_IF_SPEC
M.VR = 7

-- Every value a call returned, trailing nils included: {n = count, ...}.
function M.pack(...)
  return { n = select("#", ...), ... }
end

local function show(v)
  return type(v) == "string" and string.format("%q (len %d)", v, #v) or tostring(v)
end

-- Equal values that also print alike: where an engine has integers, 3 and 3.0 are told apart.
local function identical(a, b)
  return a == b and (type(a) ~= "number" or tostring(a) == tostring(b))
end

local function render(list, n)
  local parts = {}
  for i = 1, n do parts[i] = show(list[i]) end
  return "(" .. table.concat(parts, ", ") .. ")"
end

function M.eq(got, want, what)
  if not identical(got, want) then
    error(string.format("%s: got %s, want %s", what or "value", show(got), show(want)), 2)
  end
end

function M.check(cond, fmt, ...)
  if not cond then error(string.format(fmt or "condition failed", ...), 2) end
end

-- A packed result list against the wanted values ({n = ..., ...} or a sequence without nils).
function M.same(got, want, what)
  local wn = want.n or #want
  local ok = got.n == wn
  for i = 1, math.max(got.n, wn) do
    ok = ok and identical(got[i], want[i])
  end
  if not ok then
    error(string.format("%s: got %s, want %s", what or "results", render(got, got.n), render(want, wn)), 2)
  end
end

-- Two lists of text lines, element by element.
function M.lines(got, want, what)
  local ok = #got == #want
  for i = 1, math.max(#got, #want) do
    if got[i] ~= want[i] then ok = false end
  end
  if not ok then
    error(string.format("%s:\n got:\n  %s\n want:\n  %s", what or "lines", table.concat(got, "\n  "),
      table.concat(want, "\n  ")), 2)
  end
end

local failures, cases = 0, 0

-- Runs one named case; a failure is reported and the next case still runs.
function M.case(name, fn)
  cases = cases + 1
  local ok, err = xpcall(fn, debug.traceback)
  print((ok and "ok   " or "FAIL ") .. name .. (ok and "" or "\n" .. tostring(err)))
  failures = failures + (ok and 0 or 1)
end

-- Ends the script with the number of failed cases as the exit status.
function M.finish()
  print(string.format("%d cases, %d failed", cases, failures))
  os.exit(failures == 0 and 0 or 1)
end

-- No module memory may be left after a call.
function M.no_leak(db, what)
  M.eq(db:mem().live, 0, (what or "call") .. ": live blocks")
end

-- No module memory left and no write made by the module since the last check.
function M.clean(db, what)
  local mem, journal = db:mem(), db:journal()
  if mem.live ~= 0 or #journal ~= 0 then
    error(string.format("%s: %d blocks still live, %d unexpected writes", what or "call", mem.live, #journal), 2)
  end
end

-- Byte and bit of VLAN v in a bitmap: byte index (1-based) and the bit's value.
function M.bitpos(v)
  return math.floor(v / 8) + 1, 2 ^ (v % 8)
end

-- Whether the bit of value bit (a power of two below 256) is set in byte.
function M.hasbit(byte, bit)
  return byte % (2 * bit) >= bit
end

-- A 512-byte VLAN bitmap holding the given VLAN IDs, as the database stores it.
function M.bitmap(ids)
  local bytes = {}
  for i = 1, 512 do bytes[i] = 0 end
  for _, v in ipairs(ids) do
    local i, bit = M.bitpos(v)
    if not M.hasbit(bytes[i], bit) then bytes[i] = bytes[i] + bit end
  end
  return string.char(unpack(bytes))
end

local current

-- Closes the previous database and opens, binds and returns an empty one.
function M.fresh(opts)
  if current then
    cfgdb.unbind()
    current:close()
  end
  current = cfgdb.open(nil, opts or { vr = M.VR, lr = 3, cdb = 0 })
  current:bind()
  return current
end

-- A 512-byte bitmap value as its VLAN ranges, e.g. "bitmap[1-16,18-4094]".
local function ranges(bitmap)
  local out, first = {}, nil
  for v = 0, 4096 do
    local i, bit = M.bitpos(v)
    local on = v < 4096 and M.hasbit(bitmap:byte(i), bit)
    if on and not first then first = v end
    if not on and first then
      out[#out + 1] = first == v - 1 and tostring(first) or first .. "-" .. (v - 1)
      first = nil
    end
  end
  return "bitmap[" .. table.concat(out, ",") .. "]"
end

local function fieldlist(fields)
  local keys = {}
  for k in pairs(fields) do keys[#keys + 1] = k end
  table.sort(keys)
  local parts = {}
  for _, k in ipairs(keys) do
    local v = fields[k]
    local text = type(v) ~= "string" and tostring(v) or #v == 512 and ranges(v) or string.format("%q", v)
    parts[#parts + 1] = k .. "=" .. text
  end
  return table.concat(parts, " ")
end

-- Builds one write line: "op table flag: field=value ...".
function M.w(op, tid, flag, fields)
  return string.format("%s %08X %d: %s", op, tid, flag, fieldlist(fields))
end

-- One line per write since the last call, optionally only those of the tables listed in only.
function M.writes(db, only)
  local out = {}
  for _, e in ipairs(db:journal()) do
    if not only or only[e.table] then out[#out + 1] = M.w(e.op, e.table, e.flag, e.fields) end
  end
  return out
end

-- The table's rows, each formatted by fmt, sorted.
function M.rows(db, tid, fmt, where)
  local out = {}
  for _, r in ipairs(db:rows(tid, where)) do out[#out + 1] = fmt(r) end
  table.sort(out)
  return out
end

-- For n = 1, 2, ...: a fresh database from setup(), the n-th allocation or client call of
-- call(db) made to fail, no leak allowed, and check(n, results, db) judging the outcome; the
-- sweep ends when check answers "clean" (the fault no longer reaches the call). Returns n.
function M.sweep(kind, setup, call, check, limit)
  for n = 1, limit or 200 do
    local db = setup()
    db:journal()
    if kind == "alloc" then db:fail_alloc(n) else db:fail_call(n) end
    local r = M.pack(call(db))
    if kind == "alloc" then db:fail_alloc(0) else db:fail_call(0) end
    M.no_leak(db, kind .. " n=" .. n)
    if check(n, r, db) == "clean" then return n end
  end
  error(kind .. " sweep did not finish")
end

return M
