-- Small helpers shared by the script-level tests: exact comparison of result lists (nils and
-- the count included), named cases that keep going after a failure, and leak/journal checks.
local M = {}

-- Every value a call returned, trailing nils included: {n = count, ...}.
function M.pack(...)
  return { n = select("#", ...), ... }
end

local function show(v)
  if type(v) == "string" then
    return string.format("%q (len %d)", v, #v)
  end
  return tostring(v)
end

local function render(list)
  local parts = {}
  for i = 1, list.n do
    parts[i] = show(list[i])
  end
  return "(" .. table.concat(parts, ", ") .. ")"
end

function M.eq(got, want, what)
  if got ~= want or math.type(got) ~= math.type(want) then
    error(string.format("%s: got %s, want %s", what or "value", show(got), show(want)), 2)
  end
end

function M.truthy(cond, what)
  if not cond then
    error((what or "condition") .. " failed", 2)
  end
end

-- Checks a packed result list against the wanted values, count included.
-- want is {n = count, ...} (M.pack) or a plain sequence without nils.
function M.same(got, want, what)
  local wn = want.n or #want
  local ok = got.n == wn
  for i = 1, math.max(got.n, wn) do
    if got[i] ~= want[i] or math.type(got[i]) ~= math.type(want[i]) then
      ok = false
    end
  end
  if not ok then
    error(string.format("%s: got %s, want %s", what or "results", render(got), render({ n = wn, table.unpack(want, 1, wn) })), 2)
  end
end

-- The results of f(...) must be exactly the wanted list.
function M.returns(want, what, f, ...)
  M.same(M.pack(f(...)), want, what)
end

local failures, cases = 0, 0

-- Runs one named case; a failure is reported and the next case still runs.
function M.case(name, fn)
  cases = cases + 1
  local ok, err = xpcall(fn, debug.traceback)
  if ok then
    print("ok   " .. name)
  else
    failures = failures + 1
    print("FAIL " .. name .. "\n" .. tostring(err))
  end
end

-- Ends the script with the number of failed cases as the exit status.
function M.finish()
  print(string.format("%d cases, %d failed", cases, failures))
  os.exit(failures == 0 and 0 or 1)
end

-- No module memory left and no write made by the module since the last check.
function M.clean(db, what)
  local mem = db:mem()
  if mem.live ~= 0 then
    error(string.format("%s: %d blocks (%d bytes) still live", what or "call", mem.live, mem.live_bytes), 2)
  end
  local journal = db:journal()
  if #journal ~= 0 then
    error(string.format("%s: %d unexpected writes, first %s on table 0x%08X", what or "call", #journal,
      journal[1].op, journal[1].table), 2)
  end
end

return M
