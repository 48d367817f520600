-- The vlanlua command from the outside: its refusals and their exit statuses, a script's arguments
-- and the database object it sees, a dry run that prints the writes and leaves the file byte for
-- byte as it was, and the segment view whose drawing maps back onto the stored segments.
local t = require "testlib"
local cfgdb = require "cfgdb"
local unpack = table.unpack or unpack

local CMD = "bin/vlanlua"                   -- ctest runs the script from the build folder
local SEG, PWSUP, CTRL = t.T.UVLAN_QINQ_SEG, t.T.PWSUP_CFG, t.T.CTRL_VID_BITMAP

local function sh_quote(s)
  return "'" .. s:gsub("'", "'\\''") .. "'"
end

local function read(path)
  local f = io.open(path, "rb")
  if not f then return nil end
  local data = f:read("*a")
  f:close()
  return data
end

local function write(path, text)
  local f = assert(io.open(path, "wb"))
  f:write(text)
  f:close()
end

local dir = io.popen("mktemp -d"):read("*l")
local function path(name) return dir .. "/" .. name end

-- Runs the command with the given arguments; its exit status, standard output and error.
local function run(...)
  local words = {}
  for i, a in ipairs({ ... }) do words[i] = sh_quote(a) end
  local a, _, c = os.execute(CMD .. " " .. table.concat(words, " ") .. " >" .. path("out") .. " 2>" .. path("err"))
  local status = type(a) == "number" and (a >= 256 and math.floor(a / 256) or a) or c   -- 5.1: a wait status
  return status, read(path("out")), read(path("err"))
end

local function lines(text)
  local out = {}
  for line in text:gmatch("[^\n]+") do out[#out + 1] = line end
  return out
end

local DB = path("cfg.db")
write(DB, "")                               -- an empty file is a new database

t.case("refusals: usage errors exit 2, failures exit 1, each with its reason, and nothing is created", function()
  write(path("ok.lua"), "")
  write(path("bad.lua"), "local x = = 1")
  local CASES = {
    { {}, 2, "%-%-db FILE is required" },
    { { "--db" }, 2, "%-%-db needs a value" },
    { { "--db", DB }, 2, "no script given" },
    { { "--db", DB, "--frobnicate", path("ok.lua") }, 2, "unknown option %-%-frobnicate" },
    { { "--db", DB, "--vr", "7x", path("ok.lua") }, 2, "not a number in 0..4294967295: 7x" },
    { { "--db", DB, "--show", "-1" }, 2, "not a number" },
    { { "--db", DB, "--show", "10", path("ok.lua") }, 2, "%-%-show takes no script" },
    { { "--db", DB, "--show", "10", "--dry-run" }, 2, "%-%-dry%-run goes with a script" },
    { { "--db", DB, "--svg", path("x.svg"), path("ok.lua") }, 2, "%-%-svg needs %-%-show" },
    { { "--db", path("missing.db"), path("ok.lua") }, 1, "missing.db: no such database file" },
    { { "--db", dir, path("ok.lua") }, 1, "no such database file" },
    { { "--db", DB, path("nothere.lua") }, 1, "cannot open .*nothere.lua" },
    { { "--db", DB, path("bad.lua") }, 1, "bad.lua:1:" },
    { { "--db", DB, "--show", "10", "--svg", path("no/such/dir.svg") }, 1, "dir.svg: cannot write the drawing" },
  }
  for _, c in ipairs(CASES) do
    local status, out, err = run(unpack(c[1]))
    local what = table.concat(c[1], " ")
    t.check(status == c[2], "%s: exit status %s, want %d", what, tostring(status), c[2])
    t.check(err:find(c[3]) ~= nil, "%s: stderr %q lacks %q", what, err, c[3])
    t.check(c[2] ~= 2 or err:find("%-%-help") ~= nil, "%s: no pointer to --help", what)
    t.check(out == "", "%s: wrote to stdout: %q", what, out)
  end
  t.check(read(path("missing.db")) == nil, "a missing database file was created")
  local status, out = run("--help")
  t.check(status == 0 and out:find("usage: vlanlua %-%-db FILE") ~= nil, "--help: %s", out)
end)

t.case("a script gets its arguments like the stock interpreter's, sees --vr, and its error exits 1", function()
  local db = cfgdb.open(DB)
  db:insert(PWSUP, { vrId = 7, ifIndex = 20, supMode = 2 })    -- pseudowire support on interface 20 in VR 7
  db:close()
  write(path("args.lua"), [[
local lib = require "libvlanluaext"
local _, answer = lib.VLAN_spt_CheckPwSuppExist(20)
print(arg[0]:match("[^/]*$"), #arg, arg[1], arg[2], select("#", ...), ..., answer)
]])
  local status, out = run("--db", DB, "--vr", "7", path("args.lua"), "a b", "")
  t.lines(lines(out), { "args.lua\t2\ta b\t\t2\ta b\t1" }, "arguments and VR 7")
  t.check(status == 0, "exit status %s", tostring(status))
  status, out = run("--db", DB, "--", path("args.lua"))
  t.lines(lines(out), { "args.lua\t0\tnil\tnil\t0\tnil\t0" }, "no arguments, VR 0")
  write(path("fails.lua"), "local function deep() error('refused on purpose') end\ndeep()\n")
  local err
  status, out, err = run("--db", DB, path("fails.lua"))
  t.check(status == 1, "failing script: exit status %s", tostring(status))
  t.check(err:find("fails.lua:1: refused on purpose") and err:find("stack traceback"), "failing script: %s", err)
end)

-- Interface 10: three requests leave five segments; a control-VLAN bitmap of key 9 marks VLAN 5.
local SETUP = [[
local lib = require "libvlanluaext"
local function set(peb, pee, ceb, cee, svcs)
  assert(lib.VLAN_spt_SetUserVlanQinQSvc({10, peb, pee, ceb, cee, 0, 1, 2, 0, "demo"}, svcs) == 0)
end
set(100, 199, 1, 10, {1, 7})
set(150, 249, 1, 10, {1, 7})
set(140, 160, 5, 20, {8, 3})
assert(lib.VLAN_spt_CrtCtrlVidBitMap(9, 5, 7) == 0)
]]

-- Single-statement writes only: a bitmap update, a new bitmap slice, services laid on an existing
-- segment, and the removal of a whole segment.
local CHANGE = [[
local lib = require "libvlanluaext"
print("script output", lib.VLAN_spt_CrtCtrlVidBitMap(9, 6, 7), lib.VLAN_spt_CrtCtrlVidBitMap(10, 4095, 7))
lib.VLAN_spt_SetUserVlanQinQSvc({10, 100, 139, 1, 10, 0, 1, 2, 0, "demo"}, {1, 8, 9, 2})
lib.VLAN_spt_SetUserVlanQinQSvc({10, 161, 249, 1, 10, 0, 1, 2, 0, "demo"}, {255, 1})
if ... == "fail" then error("changed my mind") end
]]

t.case("a dry run prints each write it would make and leaves the file byte for byte unchanged", function()
  write(path("setup.lua"), SETUP)
  write(path("change.lua"), CHANGE)
  t.check(run("--db", DB, path("setup.lua")) == 0, "setup failed: %s", read(path("err")))
  local db, seg = cfgdb.open(DB), {}
  for _, r in ipairs(db:rows(SEG, { ifIndex = 10 })) do seg[r[7] .. "-" .. r[8] .. "/" .. r[5] .. "-" .. r[6]] = r[2] end
  db:close()
  local before = read(DB)
  local status, out = run("--db", DB, "--dry-run", path("change.lua"))
  t.check(status == 0, "dry run: exit status %s: %s", tostring(status), read(path("err")))
  local KEY = " f1_ifindex=10 f4_key_a=1 f3_key_b=2 f5_vrid=0 "
  t.lines(lines(out), {
    "script output\t0\t0",
    "set CTRL_VID_BITMAP f1_ctrl_key=9 f2_slice=0 f3_bitmap={5-6} f5_full=0",
    "insert CTRL_VID_BITMAP f1_ctrl_key=10 f2_slice=1 f3_bitmap={1-2} f4_vrid=7",
    "set UVLAN_BASE_SVC f2_seg_index=" .. seg["100-139/1-10"] .. KEY ..
      "f7_svc1=8 f8_svc2=0 f9_svc3=0 f10_svc4=0 f11_svc5=0 f12_svc6=0 f13_svc7=0 f6_svc16=0",
    "insert UVLAN_VPN_SVC f2_seg_index=" .. seg["100-139/1-10"] .. KEY ..
      "f6_svc8=0 f7_svc9=2 f8_svc10=0 f9_svc11=0 f10_svc12=0 f11_svc13=0 f12_svc14=0 f13_svc15=0",
    "delete UVLAN_QINQ_SEG f2_seg_index=" .. seg["161-249/1-10"] .. " f1_ifindex=10",
  }, "dry-run output")
  t.check(read(DB) == before, "the dry run changed the database file")
  t.check((read(DB .. "-wal") or "") == "", "the dry run left a write-ahead log behind")
  local err
  status, out, err = run("--db", DB, "--dry-run", path("change.lua"), "fail")
  t.check(status == 1 and err:find("dry run rolled back: .*changed my mind"), "failing dry run: %s %s", tostring(status), err)
  t.lines(lines(out), { "script output\t0\t0" }, "a failing dry run lists no writes")
  t.check(read(DB) == before, "the failing dry run changed the database file")
  write(path("empty.db"), "")
  write(path("mark.lua"), "assert(require('libvlanluaext').VLAN_spt_CrtCtrlVidBitMap(9, 5, 7) == 0)")
  status, out = run("--db", path("empty.db"), "--dry-run", path("mark.lua"))
  t.lines(lines(out), { "insert CTRL_VID_BITMAP f1_ctrl_key=9 f2_slice=0 f3_bitmap={5} f4_vrid=7" }, "new database")
  t.check(status == 0 and read(path("empty.db")) == "", "a dry run on a new database wrote its file")
end)

-- The drawing's rectangles as "PE range/CE range", mapped back through the plane's own rectangle.
local function drawn_segments(svg)
  local attrs = function(tag) local a = {} for k, v in tag:gmatch('([%w-]+)="([^"]*)"') do a[k] = v end return a end
  local plane = attrs(svg:match('<rect class="plane"[^>]*>'))
  local pe0, pe1 = plane["data-pe"]:match("^(%d+)-(%d+)$")
  local ce0, ce1 = plane["data-ce"]:match("^(%d+)-(%d+)$")
  local sx = plane.width / (pe1 - pe0 + 1)
  local sy = plane.height / (ce1 - ce0 + 1)
  local function vlan(v) return math.floor(v + 0.5) end
  local out = {}
  for tag in svg:gmatch('<rect class="segment"[^>]*>') do
    local r = attrs(tag)
    local peb = vlan(pe0 + (r.x - plane.x) / sx)
    local pee = vlan(pe0 + (r.x + r.width - plane.x) / sx) - 1
    local cee = vlan(ce1 - (r.y - plane.y) / sy)            -- CE grows upwards
    local ceb = vlan(ce1 - (r.y + r.height - plane.y) / sy) + 1
    out[#out + 1] = peb .. "-" .. pee .. "/" .. ceb .. "-" .. cee
  end
  table.sort(out)
  return out
end

t.case("--show lists the stored segments with their services, and the drawing maps back onto them", function()
  local db = cfgdb.open(DB)
  local stored = {}
  for _, r in ipairs(db:rows(SEG, { ifIndex = 10 })) do stored[#stored + 1] = r[7] .. "-" .. r[8] .. "/" .. r[5] .. "-" .. r[6] end
  table.sort(stored)
  db:close()
  local status, out = run("--db", DB, "--show", "0xA", "--svg", path("seg.svg"))
  t.check(status == 0, "exit status %s: %s", tostring(status), read(path("err")))
  t.lines(lines(out), {
    "interface 10: 5 user-VLAN QinQ segments",
    "  PE 100-139    CE 1-10       segment 3        svc1=7",
    "  PE 140-160    CE 1-4        segment 4        svc1=7",
    "  PE 140-160    CE 5-10       segment 5        svc1=7 svc8=3",
    "  PE 140-160    CE 11-20      segment 6        svc8=3",
    "  PE 161-249    CE 1-10       segment 7        svc1=7",
  }, "segment list")
  local svg = read(path("seg.svg"))
  t.lines(drawn_segments(svg), stored, "rectangles against the stored segments")
  t.check(svg:find("<title>segment 5: PE 140%-160, CE 5%-10: svc1=7 svc8=3</title>"), "segment 5's title")
  t.check(svg:find(">PE</text>") and svg:find(">CE</text>"), "axis labels")
  status, out = run("--db", DB, "--show", "11")
  t.lines(lines(out), { "interface 11: 0 user-VLAN QinQ segments" }, "an interface without segments")
end)

os.execute("rm -rf " .. sh_quote(dir))
t.finish()
