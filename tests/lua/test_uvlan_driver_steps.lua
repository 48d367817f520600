-- Every failing step of the SetUserVlanQinQSvc driver names itself: with a failure injected at
-- each allocation and each database call of a set request and of a removal, the last message
-- line is the failing step's own, steps fail in the driver's order as the failure moves later,
-- and the line just below comes from an operation of that same step.
local t = require "testlib"
local U = require "uvlan_util"

local IFX = 5
local DRV = "VLAN_API_SetUserVlanQinQSvc:"

-- The driver's steps in the order it runs them: its last line, and the pattern that the line
-- written just below it must match (nil: the step writes no line of its own below).
local STEPS = {
  {DRV .. " QinqSvcSetInit fail", nil},
  {DRV .. " GetSegSvc return ERR", "^vlanLua_UVlanQinqGetSegSvc"},
  {DRV .. " GetSplitPelist return ERR", "^vlanLua_UVlanQinqGetSplitPelist"},
  {DRV .. " Split DB return ERR", "^vlanLua_UVlanQinqSplitSegsBy"},
  {DRV .. " Split CFG return ERR", "^vlanLua_UVlanQinqSplitSegsBy"},
  {DRV .. "  DistinctOpSegs return ERR", "^vlanLua_UVlanQinq%a*FlushSegs"},
}
local CHECK_FLAG = DRV .. "  check flag return ERR"

local function setup()
  local db = U.open()
  for i = 0, 3 do
    assert(U.set(IFX, 10 + 10 * i, 19 + 10 * i, 1, 10, {1, i % 2 + 1, 9, 1}).code == 0, "setup")
  end
  db:journal()
  return db
end

local function text_lines(text)
  local out = {}
  for line in text:gmatch("[^\n]+") do out[#out + 1] = line end
  return out
end

local function step_of(line)
  for k, s in ipairs(STEPS) do
    if s[1] == line then return k end
  end
  return nil
end

-- One failing run: which step it names, after checking its results, its text and its lines.
local function judge(r, where)
  t.eq(r.code, 1, where .. ": code")
  t.check(r.text:sub(-1) == "\n", "%s: text %q does not end a line", where, r.text)
  local lines = text_lines(r.text)
  local last, below = lines[#lines], lines[#lines - 1]
  if r.chg == 1 then      -- a lost read hid the stored rows: the removal is refused, nothing else
    t.eq(last, CHECK_FLAG, where .. ": last line of a refusal")
    return nil
  end
  t.eq(r.chg, nil, where .. ": second result")
  local k = step_of(last)
  t.check(k, "%s: last line %q is no step of the driver", where, tostring(last))
  if STEPS[k][2] then
    t.check(below and below:find(STEPS[k][2]), "%s: line %q below %q is not from that step", where,
      tostring(below), last)
  else
    t.eq(#lines, 1, where .. ": lines of " .. last)
  end
  return k
end

-- Fails the n-th allocation (or database call) for n = 1, 2, ... until three runs in a row
-- are the clean run again; records the steps seen in `seen`.
local function sweep(kind, req, seen)
  local db = setup()
  assert(U.call(req.t1, req.t2).code == 0, req.name .. ": clean run")
  local clean = table.concat(t.writes(db), "\n")
  local last_step, streak, n = 0, 0, 0
  while streak < 3 do
    n = n + 1
    assert(n < 1000, req.name .. " " .. kind .. ": never ran clean")
    local where = string.format("%s %s(%d)", req.name, kind, n)
    db = setup()
    db[kind](db, n)
    local r = U.call(req.t1, req.t2)
    db[kind](db, 0)
    t.no_leak(db, where)
    local k = r.code ~= 0 and judge(r, where)
    if k then
      t.check(k >= last_step, "%s: step %q failed after the later step %q", where, STEPS[k][1],
        STEPS[last_step] and STEPS[last_step][1] or "")
      last_step = k
      seen[k] = true
    end
    local same = r.code == 0 and r.text == "" and table.concat(t.writes(db), "\n") == clean
    streak = same and streak + 1 or 0
  end
end

local REQUESTS = {
  {name = "set", t1 = U.arg1(IFX, 15, 44, 5, 15), t2 = {1, 3, 10, 2}},
  {name = "removal", t1 = U.arg1(IFX, 15, 34, 3, 8), t2 = {255, 1}},
}

for _, req in ipairs(REQUESTS) do
  t.case(req.name .. ": each failing step of the driver ends the text with its own line, in step order", function()
    local seen = {}
    sweep("fail_alloc", req, seen)
    sweep("fail_call", req, seen)
    for k, s in ipairs(STEPS) do t.check(seen[k], "no injected failure reached the step %q", s[1]) end
  end)
end

t.finish()
