-- Small helpers shared by the script-level tests: exact comparison of result lists (nils and
-- the count included), named cases that keep going after a failure, and leak/journal checks.
local M = {}

-- Every value a call returned, trailing nils included: {n = count, ...}.
function M.pack(...)
  return { n = select("#", ...), ... }
end

local function show(v)
  return type(v) == "string" and string.format("%q (len %d)", v, #v) or tostring(v)
end

local function render(list, n)
  local parts = {}
  for i = 1, n do
    parts[i] = show(list[i])
  end
  return "(" .. table.concat(parts, ", ") .. ")"
end

function M.eq(got, want, what)
  if got ~= want or math.type(got) ~= math.type(want) then
    error(string.format("%s: got %s, want %s", what or "value", show(got), show(want)), 2)
  end
end

-- A packed result list against the wanted values ({n = ..., ...} or a sequence without nils).
function M.same(got, want, what)
  local wn = want.n or #want
  local ok = got.n == wn
  for i = 1, math.max(got.n, wn) do
    ok = ok and got[i] == want[i] and math.type(got[i]) == math.type(want[i])
  end
  if not ok then
    error(string.format("%s: got %s, want %s", what or "results", render(got, got.n), render(want, wn)), 2)
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

-- No module memory left and no write made by the module since the last check.
function M.clean(db, what)
  local mem, journal = db:mem(), db:journal()
  if mem.live ~= 0 or #journal ~= 0 then
    error(string.format("%s: %d blocks still live, %d unexpected writes", what or "call", mem.live, #journal), 2)
  end
end

-- A 512-byte VLAN bitmap holding the given VLAN IDs, as the database stores it.
function M.bitmap(ids)
  local bytes = {}
  for i = 1, 512 do bytes[i] = 0 end
  for _, v in ipairs(ids) do
    local i = (v >> 3) + 1
    bytes[i] = bytes[i] | (1 << (v & 7))
  end
  return string.char(table.unpack(bytes))
end

return M
