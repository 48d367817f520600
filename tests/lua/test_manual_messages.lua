-- The manual's table of message texts against the module's sources: every message a function can
-- leave is in the table, and the table holds no text the sources cannot write. A message in the
-- sources is a string literal that begins with the name of the function writing it followed by
-- ':' or a blank; "%s: ..." is filled with the names its file hands over as literals.
local t = require "testlib"

local ROOT = (arg and arg[0] or ""):match("^(.*)/tests/lua/[^/]*$") or "."

local function read(path)
  local f = assert(io.open(path, "rb"))
  local data = f:read("*a")
  f:close()
  return data
end

-- The string literals of C++ text, comments and character literals left out, escapes kept but \n.
local function literals(code)
  code = code:gsub("/%*.-%*/", ""):gsub("//[^\n]*", ""):gsub("'\\?.'", "")
  local out, at = {}, 1
  while true do
    local open = code:find('"', at, true)
    if not open then return out end
    local close = open + 1
    while code:sub(close, close) ~= '"' do close = close + (code:sub(close, close) == "\\" and 2 or 1) end
    out[#out + 1] = code:sub(open + 1, close - 1):gsub("\\n", "\n")
    at = close + 1
  end
end

-- Every message text of the sources under src/, without its final newline.
local function source_messages()
  local messages = {}
  for file in io.popen("env -u LD_PRELOAD find " .. ROOT .. "/src -name '*.cpp' -o -name '*.h' | env -u LD_PRELOAD sort"):lines() do
    local names, templates = {}, {}
    for _, lit in ipairs(literals(read(file))) do
      local text = lit:gsub("\n$", "")
      if lit:match("^%a+_[%w_]+[: ]") then
        messages[text] = true
      elseif lit:match("^%%s: ") then
        templates[#templates + 1] = text
      elseif lit:match("^[%a_][%w_]*$") then
        names[#names + 1] = lit
      end
    end
    for _, template in ipairs(templates) do       -- filled with the function names the file passes on
      for _, name in ipairs(names) do
        if read(file):find('"' .. name .. '"%s*%)') then messages[(template:gsub("%%s", name))] = true end
      end
    end
  end
  return messages
end

-- The rows of the manual's message table: message text -> the functions cell.
local function manual_messages()
  local section = read(ROOT .. "/docs/manual.md"):match("\n## Message texts\n(.-)\n## ") or
    read(ROOT .. "/docs/manual.md"):match("\n## Message texts\n(.*)$")
  local rows, dup = {}, {}
  for text, functions in section:gmatch("\n| `([^`]+)` | ([^|]+) |") do
    if rows[text] then dup[#dup + 1] = text end
    rows[text] = functions
  end
  return rows, dup
end

t.case("every message text of the sources is in the manual's table, and every text of the table in the sources", function()
  local source, manual = source_messages(), nil
  local dup
  manual, dup = manual_messages()
  t.lines(dup, {}, "texts listed twice in the manual")
  local missing, extra = {}, {}
  for text in pairs(source) do
    if not manual[text] then missing[#missing + 1] = text end
  end
  for text in pairs(manual) do
    if not source[text] then extra[#extra + 1] = text end
  end
  table.sort(missing)
  table.sort(extra)
  t.lines(missing, {}, "message texts the manual's table lacks")
  t.lines(extra, {}, "texts in the manual's table that the sources cannot write")
  local n = 0
  for _ in pairs(source) do n = n + 1 end
  t.check(n > 70, "only %d message texts found in the sources", n)
end)

t.case("the table names only registered script functions", function()
  local registered = {}
  for _, lit in ipairs(literals(read(ROOT .. "/src/api/vlanlua_api.cpp"))) do
    if lit:match("^VLAN_spt_%w+$") then registered[lit] = true end
  end
  local manual = manual_messages()
  for text, functions in pairs(manual) do
    for name in functions:gmatch("`([^`]+)`") do
      t.check(registered[name], "%q names %s, which is not a script function", text, name)
    end
  end
end)

t.finish()
