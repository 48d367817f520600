-- Runs the Lua examples of docs/manual.md and compares what they print with their `-->` comments,
-- so the manual cannot drift from the code. Written for Lua 5.1, 5.3, 5.4 and LuaJIT alike.
--
-- Rules (stated at the top of the manual too):
--   ```lua            runs: the prelude first, then the block, in a fresh environment whose
--                     print is captured; the prelude's database is closed afterwards
--   ```lua prelude    the lines every later block starts with (not run on its own)
--   ```lua no-run     shown only
--   ```lua needs=M    runs only when a cfgdb database object has the method M
-- Each `-->` comment, at the end of a statement or on a line of its own, is the next line that
-- print writes; a tab between values is written as two spaces, and inside a value a newline,
-- a tab and a zero byte as \n, \t and \0 (other control bytes as \ddd).
local cfgdb = require "cfgdb"

local MANUAL_NAME = "docs/manual.md"

local function manual_path()
  local script = arg and arg[0] or ""
  local root = script:match("^(.*)/tests/lua/[^/]*$") or "."
  return root .. "/" .. MANUAL_NAME
end

local function read_lines(path)
  local fh = assert(io.open(path, "r"))
  local lines = {}
  for line in fh:lines() do
    lines[#lines + 1] = line
  end
  fh:close()
  return lines
end

-- ---- extraction ----

local function block_tags(info)
  local tags = {}
  for word in info:gmatch("%S+") do
    local key, value = word:match("^([%w_-]+)=(.*)$")
    if key then
      tags[key] = value
    else
      tags[word] = true
    end
  end
  return tags
end

-- The expected print lines of a block: {text, line} per `-->`, in order.
local function expectations(lines, first, last)
  local list = {}
  for i = first, last do
    local text = lines[i]:match("%-%->(.*)$")
    if text then
      text = text:gsub("^ ", ""):gsub("%s+$", "")
      list[#list + 1] = { text = text, line = i }
    end
  end
  return list
end

-- Every ```lua block: {line = first code line, code, tags, expected}.
local function lua_blocks(lines)
  local blocks, i = {}, 1
  while i <= #lines do
    local info = lines[i]:match("^```lua(.*)$")
    if info then
      local first, last = i + 1, i
      repeat
        i = i + 1
        assert(lines[i], MANUAL_NAME .. ":" .. (first - 1) .. ": block never closed")
      until lines[i]:match("^```%s*$")
      last = i - 1
      local code = table.concat(lines, "\n", first, last)
      blocks[#blocks + 1] = { line = first, code = code, tags = block_tags(info),
                              expected = expectations(lines, first, last) }
    end
    i = i + 1
  end
  return blocks
end

-- ---- running ----

local function escape_byte(c)
  local named = { ["\n"] = "\\n", ["\t"] = "\\t", ["\0"] = "\\0" }
  return named[c] or string.format("\\%03d", c:byte())
end

local function shown(v)
  return (tostring(v):gsub("[%z\1-\31]", escape_byte))
end

-- A print that appends its line to `out`.
local function capture_print(out)
  return function(...)
    local parts = {}
    for k = 1, select("#", ...) do
      parts[k] = shown((select(k, ...)))
    end
    out[#out + 1] = (table.concat(parts, "  "):gsub("%s+$", ""))
  end
end

-- Compiles code so that its line numbers are the manual's.
local function compile(code, first_line, env)
  local src = string.rep("\n", first_line - 1) .. code
  local chunkname = "@" .. MANUAL_NAME
  if setfenv then
    local fn, err = loadstring(src, chunkname)
    if fn then setfenv(fn, env) end
    return fn, err
  end
  return load(src, chunkname, "t", env)
end

local function run_chunk(code, first_line, env)
  local fn, err = compile(code, first_line, env)
  if not fn then
    return false, err
  end
  return xpcall(fn, debug.traceback)
end

-- No module memory may stay live after an example; then the prelude's database is closed.
local function close_prelude_db(env)
  local problem
  local db = rawget(env, "db")
  if db then
    local ok, mem = pcall(db.mem, db)
    if ok and mem.live ~= 0 then
      problem = mem.live .. " blocks of module memory still live"
    end
    pcall(db.close, db)
  end
  cfgdb.unbind()
  return problem
end

local function compare(block, out, failures)
  local expected = block.expected
  for k = 1, math.max(#expected, #out) do
    local want, got = expected[k], out[k]
    if not want then
      failures[#failures + 1] = string.format("%s:%d: the block printed more lines than it has --> comments; "
        .. "next printed line:\n    %s", MANUAL_NAME, block.line, got)
      return
    elseif got == nil then
      failures[#failures + 1] = string.format("%s:%d: expected\n    %s\n  but the block printed nothing more",
        MANUAL_NAME, want.line, want.text)
      return
    elseif got ~= want.text then
      failures[#failures + 1] = string.format("%s:%d: expected\n    %s\n  printed\n    %s", MANUAL_NAME,
        want.line, want.text, got)
    end
  end
end

local function run_block(block, prelude, failures)
  local out = {}
  local env = setmetatable({ print = capture_print(out) }, { __index = _G })
  local ok, err = true, nil
  if prelude then
    ok, err = run_chunk(prelude.code, prelude.line, env)
  end
  if ok then
    ok, err = run_chunk(block.code, block.line, env)
  end
  local leak = close_prelude_db(env)
  if not ok then
    failures[#failures + 1] = string.format("%s:%d: the block raised an error:\n    %s", MANUAL_NAME, block.line,
      tostring(err):gsub("\n", "\n    "))
    return
  end
  compare(block, out, failures)
  if leak then
    failures[#failures + 1] = string.format("%s:%d: %s", MANUAL_NAME, block.line, leak)
  end
end

local function binding_has(method)
  local db = cfgdb.open()
  local has = db[method] ~= nil
  db:close()
  return has
end

-- ---- the table list against the tables' description ----

local MANUAL_TYPE = { u8 = "u8", u16 = "u16", u32 = "u32", vr = "VR", bitmap = "bitmap" }

local function type_text(f)
  return f.type == "text" and "text " .. f.width or MANUAL_TYPE[f.type]
end

-- What the "Database tables" section says: per table its identifier, key text and field rows.
local function manual_tables(lines)
  local tables, cur, inside = {}, nil, false
  for _, line in ipairs(lines) do
    if line:match("^## ") then inside = line == "## Database tables" end
    local name, id, rest = line:match("^%*%*`([%w_]+)`%*%* (0x%x+), (.*)$")
    if inside and name then
      cur = { id = tonumber(id), key = rest:match("no key") and "" or rest:match("key ([^;]*);") or "?", rows = {} }
      tables[#tables + 1] = name
      tables[name] = cur
    end
    local no, fname, column, ftype = line:match("^| (%d+) | `([%w]+)` | `([%w_]+)` | ([^|]-) |")
    if inside and cur and no then cur.rows[#cur.rows + 1] = table.concat({ no, fname, column, ftype }, " ") end
  end
  return tables
end

-- Differences between the manual's table list and cfgdb.tables(), one line each.
local function table_list_faults(lines)
  local faults, listed = {}, manual_tables(lines)
  local described = cfgdb.tables()
  if #listed ~= #described then faults[#faults + 1] = #listed .. " tables listed, " .. #described .. " described" end
  for _, tbl in ipairs(described) do
    local m = listed[tbl.name]
    local key, rows = {}, {}
    for _, k in ipairs(tbl.key) do key[#key + 1] = "`" .. k .. "`" end
    for _, f in ipairs(tbl.fields) do rows[#rows + 1] = table.concat({ f.no, f.name, f.column, type_text(f) }, " ") end
    if not m then
      faults[#faults + 1] = tbl.name .. " is not listed"
    elseif m.id ~= tbl.id or m.key ~= table.concat(key, ", ") then
      faults[#faults + 1] = string.format("%s: listed as 0x%08X, key %s", tbl.name, m.id, m.key)
    elseif table.concat(m.rows, "; ") ~= table.concat(rows, "; ") then
      faults[#faults + 1] = tbl.name .. ": fields listed as " .. table.concat(m.rows, "; ") .. "; described as " ..
          table.concat(rows, "; ")
    end
  end
  return faults
end

local function main()
  local lines = read_lines(manual_path())
  local blocks = lua_blocks(lines)
  local prelude
  local failures, ran, shown_only, missing = {}, 0, 0, {}
  for _, block in ipairs(blocks) do
    local needs = block.tags.needs
    if block.tags.prelude then
      prelude = block
    elseif block.tags["no-run"] then
      shown_only = shown_only + 1
    elseif needs and not binding_has(needs) then
      missing[#missing + 1] = string.format("line %d (needs %s)", block.line, needs)
    else
      run_block(block, prelude, failures)
      ran = ran + 1
    end
  end
  for _, text in ipairs(table_list_faults(lines)) do
    failures[#failures + 1] = "the table list: " .. text
  end
  for _, text in ipairs(failures) do
    print("FAIL " .. text)
  end
  print(string.format("%s: %d examples run, %d shown only, %d skipped%s, %d failures", MANUAL_NAME, ran, shown_only,
    #missing, #missing > 0 and " (" .. table.concat(missing, ", ") .. ")" or "", #failures))
  if ran == 0 or #failures > 0 then
    os.exit(1)
  end
end

main()
