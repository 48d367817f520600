-- The vlanlua command from the outside: its refusals and their exit statuses, its usage against
-- its man page, a script's arguments and the database object it sees, a script as one change
-- (whole or not at all, or call by call), a dry run that prints the writes and leaves the file
-- byte for byte as it was, the interface view of every kind of row, the drawing and its legend
-- mapped back onto the stored rows, and (run with the argument "browser") the page in Chromium.
local t = require "testlib"
local cfgdb = require "cfgdb"
local unpack = table.unpack or unpack

local C = require "cmdlib"
local SRC = (arg and arg[0] or ""):match("^(.*)/tests/lua/[^/]*$") or "."
local BROWSER = arg and arg[1] == "browser"
local SEG, BASE, VPN, PWSUP, CTRL = t.T.UVLAN_QINQ_SEG, t.T.UVLAN_BASE_SVC, t.T.UVLAN_VPN_SVC, t.T.PWSUP_CFG, t.T.CTRL_VID_BITMAP
local QINQ, UDOT1Q, UDESC, UANY = t.T.QINQ_MATCH_SEG, t.T.UVLAN_DOT1Q, t.T.UVLAN_DESC, t.T.UVLAN_ANYOTHER
local sh_quote, read, write, path, plain, exit_status = C.sh_quote, C.read, C.write, C.path, C.plain, C.exit_status
local run_as, run, lines, dir = C.run_as, C.run, C.lines, C.dir

-- Without arguments the script runs every case but the page's; with "browser", only that one.
local function case(name, fn)
  if not BROWSER then t.case(name, fn) end
end

-- A new database file holding what the script (run by the command) and then fill(db) stored.
local function database(name, script, fill)
  local file = path(name)
  write(file, "")
  if script then
    write(path(name .. ".lua"), script)
    local status = run("--db", file, path(name .. ".lua"))
    t.check(status == 0, "%s: set-up script failed: %s", name, read(path("err")))
  end
  if fill then
    local db = cfgdb.open(file)
    fill(db)
    db:close()
  end
  return file
end

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
-- segment, and the removal of a whole segment; with the argument "fail" it then raises.
local CHANGE = [[
local lib = require "libvlanluaext"
print("script output", lib.VLAN_spt_CrtCtrlVidBitMap(9, 6, 7), lib.VLAN_spt_CrtCtrlVidBitMap(10, 4095, 7))
lib.VLAN_spt_SetUserVlanQinQSvc({10, 100, 139, 1, 10, 0, 1, 2, 0, "demo"}, {1, 8, 9, 2})
lib.VLAN_spt_SetUserVlanQinQSvc({10, 161, 249, 1, 10, 0, 1, 2, 0, "demo"}, {255, 1})
if ... == "fail" then error("changed my mind") end
]]
write(path("change.lua"), CHANGE)

-- Interface 20 holds every kind of row: Dot1Q and QinQ match rules merged by the module, user-VLAN
-- QinQ segments (one of a single VLAN pair, one without services), and the user-VLAN Dot1Q,
-- description and any-other rows the module only reads. Interface 21 holds rows of three kinds.
local EVERY_KIND = [[
local lib = require "libvlanluaext"
assert(lib.VLAN_spt_Dot1QMatchMerge({20, 10, 19, 1, 7, 0, 0, 0}) == 0)
assert(lib.VLAN_spt_Dot1QMatchMerge({20, 40, 40, 2, 7, 0, 0, 0}) == 0)
assert(lib.VLAN_spt_QinQMatchMerge({20, 0, 500, 509, 1, 100, 2, 0, 7, 0, "m"}) == 0)
assert(lib.VLAN_spt_QinQMatchMerge({20, 0, 510, 510, 50, 50, 2, 1, 7, 0, ""}) == 0)
assert(lib.VLAN_spt_QinQMatchMerge({21, 0, 1, 1, 1, 1, 2, 0, 7, 0, ""}) == 0)
local function set(ifx, peb, pee, ceb, cee, svcs)
  assert(lib.VLAN_spt_SetUserVlanQinQSvc({ifx, peb, pee, ceb, cee, 7, 0, 0, 0, ""}, svcs) == 0)
end
set(20, 100, 199, 1, 10, {1, 7, 9, 2})
set(20, 300, 300, 7, 7, {2, 5})
set(20, 200, 219, 30, 39, {})
set(21, 5, 6, 3, 4, {1, 1})
]]
local function fill_every_kind(db)
  db:insert(UDOT1Q, { ifIndex = 20, vrId = 7, vlanBegin = 10, vlanEnd = 12 })
  db:insert(UDOT1Q, { ifIndex = 21, vrId = 7, vlanBegin = 3, vlanEnd = 3 })
  db:insert(UDESC, { ifIndex = 20, peVlan = 100, ceVlan = 1, description = "uplink \"A\"", vrId = 7 })
  db:insert(UANY, { ifIndex = 20, vrId = 7 })
end

case("refusals: usage errors exit 2, failures exit 1, each with its reason, and nothing is created", function()
  local DB = database("refusals.db")
  write(path("ok.lua"), "")
  write(path("bad.lua"), "local x = = 1")
  write(path("text.db"), "just some text, long enough to hold a header")
  os.execute(plain("sqlite3 ") .. sh_quote(path("other.db")) .. " 'CREATE TABLE photos(id INTEGER)'")
  local CASES = {
    { {}, 2, "%-%-db FILE is required" },
    { { "--db" }, 2, "%-%-db needs a value" },
    { { "--db", DB }, 2, "no script given" },
    { { "--db", DB, "--frobnicate", path("ok.lua") }, 2, "unknown option %-%-frobnicate" },
    { { "--db", DB, "--vr", "7x", path("ok.lua") }, 2, "not a number in 0..4294967295: 7x" },
    { { "--db", DB, "--busy-timeout", "4294967296", path("ok.lua") }, 2, "not a number in 0..4294967295" },
    { { "--db", DB, "--show", "0x1g" }, 2, "not a number" },
    { { "--db", DB, "--show", "10", path("ok.lua") }, 2, "%-%-show takes no script" },
    { { "--db", DB, "--show", "10", "--dry-run" }, 2, "%-%-dry%-run and %-%-each%-call go with a script" },
    { { "--db", DB, "--dry-run", "--each-call", path("ok.lua") }, 2, "does not go with %-%-each%-call" },
    { { "--db", DB, "--svg", path("x.svg"), path("ok.lua") }, 2, "%-%-svg and %-%-html need %-%-show IFINDEX" },
    { { "--db", DB, "--show", "--html", path("x.html") }, 2, "need %-%-show IFINDEX" },
    { { "--db", path("missing.db"), path("ok.lua") }, 1, "missing.db: no such database file" },
    { { "--db", dir, path("ok.lua") }, 1, "is a folder, not a database file" },
    { { "--db", path("text.db"), path("ok.lua") }, 1, "text.db: not a configuration database: not an SQLite file" },
    { { "--db", path("other.db"), path("ok.lua") }, 1, "other.db: a file of another application, not a configuration database" },
    { { "--db", DB, path("nothere.lua") }, 1, "cannot open .*nothere.lua" },
    { { "--db", DB, path("bad.lua") }, 1, "bad.lua:1:" },
    { { "--db", DB, "--show", "10", "--svg", path("no/such/dir.svg") }, 1, "dir.svg: cannot write it" },
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
  -- A file its user may not read; as root, the command runs as nobody to meet one.
  os.execute("mkdir -m 755 " .. sh_quote(path("locked")) .. " && : > " .. sh_quote(path("locked/cfg.db")) ..
    " && chmod 000 " .. sh_quote(path("locked/cfg.db")))
  local as_root = io.popen("id -u"):read("*l") == "0"
  local status, _, err = run_as(as_root and "setpriv --reuid=65534 --regid=65534 --clear-groups " or "",
    "--db", path("locked/cfg.db"), path("ok.lua"))
  t.check(status == 1 and err:find("cfg.db: cannot read it: Permission denied"), "unreadable file: %s %s",
    tostring(status), err)
end)

-- roff as a reader sees it: the font macros' words joined as they print (.B and .I with blanks,
-- the alternating ones without; a quoted group is one word), escapes resolved; other requests as ".XX".
local function roff_lines(text)
  local out = {}
  for line in (text .. "\n"):gmatch("(.-)\n") do
    local macro, rest = line:match("^%.(%u%u?) ?(.*)$")
    if macro and macro:match("^[BIR][BIR]?$") then
      local words = {}
      for word in rest:gsub('"([^"]*)"', function(q) return (q:gsub(" ", "\0")) end):gmatch("%S+") do
        words[#words + 1] = word:gsub("%z", " ")
      end
      line = table.concat(words, #macro == 1 and " " or "")
    elseif macro then
      line = "." .. macro
    end
    out[#out + 1] = (line:gsub("\\f[BIRP]", ""):gsub("\\%-", "-"):gsub("\\%(mu", "x"))
  end
  return out
end

-- --help's usage forms, and its options as {head = "--db FILE", text = the description}.
local function help_parts(help)
  local forms, options = {}, {}
  for _, line in ipairs(lines(help)) do
    local form = line:match("^usage: (vlanlua .*)$") or line:match("^       (vlanlua .*)$")
    local head, text = line:match("^  (%-%-%S+ ?%S*)%s%s+(.*)$")
    if form then
      forms[#forms + 1] = form
    elseif head then
      options[#options + 1] = { head = head:gsub(" $", ""), text = text }
    elseif #options > 0 and line:match("^     +%S") then
      options[#options].text = options[#options].text .. " " .. line:match("^%s*(.-)$")
    end
  end
  return forms, options
end

case("--help and the man page have the same forms and options in the same words; --version", function()
  local status, help = run("--help")
  t.check(status == 0, "--help: exit status %s", tostring(status))
  local man = roff_lines(read(SRC .. "/vlanlua/vlanlua.1"))
  local entries, entry = {}, nil           -- the .TP entries: head line and body text
  for _, line in ipairs(man) do
    if line == ".TP" then
      entry = {}
      entries[#entries + 1] = entry
    elseif line:match("^%.SH") then
      entry = nil
    elseif entry and not line:match("^%.") then
      if entry.head then entry.body = (entry.body and entry.body .. " " or "") .. line else entry.head = line end
    end
  end
  local forms, options = help_parts(help)
  local man_text = table.concat(man, " "):gsub("%s+", " ")
  t.eq(#forms, 5, "usage forms")
  for _, form in ipairs(forms) do
    t.check(man_text:find(form, 1, true), "the man page's synopsis lacks %q", form)
  end
  t.eq(#entries, #options, "options in the man page")
  for i, o in ipairs(options) do
    t.eq(entries[i].head, o.head, "man page option " .. i)
    t.check((entries[i].body or ""):sub(1, #o.text) == o.text, "%s: the man page says %q, --help %q", o.head,
      tostring(entries[i].body), o.text)
  end
  if exit_status(os.execute("command -v groff >/dev/null")) == 0 then
    local warnings = io.popen(plain("groff -man -ww -z ") .. sh_quote(SRC .. "/vlanlua/vlanlua.1") .. " 2>&1"):read("*a")
    t.eq(warnings, "", "groff warnings")
  end
  local _, version = run("--version")
  local got = lines(version)
  t.check(#got == 5 and got[1]:match("^vlanlua %d+%.%d+%.%d+$") and got[3]:match("^engine Lua") and
    got[2]:match("^module libvlanluaext %d+%.%d+%.%d+ %(.*/lua/libvlanluaext%.so%)$") and
    got[4]:match("^SQLite 3%.") and got[5]:match("^schema %d+$"), "--version:\n%s", version)
end)

case("a script gets its arguments like the stock interpreter's, sees --vr, and its error exits 1", function()
  local DB = database("args.db", nil, function(db)
    db:insert(PWSUP, { vrId = 7, ifIndex = 20, supMode = 2 })    -- pseudowire support on interface 20 in VR 7
  end)
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
end)

-- The user-VLAN QinQ segments of an interface as "PE range/CE range", sorted.
local function stored_segments(file, ifIndex)
  local db, out = cfgdb.open(file), {}
  for _, r in ipairs(db:rows(SEG, { ifIndex = ifIndex })) do out[#out + 1] = r[7] .. "-" .. r[8] .. "/" .. r[5] .. "-" .. r[6] end
  db:close()
  table.sort(out)
  return out
end

case("a script is one change: nothing is kept when it raises, each call's writes with --each-call", function()
  local DB = database("unit.db", SETUP)
  local before = read(DB)
  local status, out, err = run("--db", DB, path("change.lua"), "fail")
  t.check(status == 1, "raising script: exit status %s", tostring(status))
  t.check(err:find("change.lua:5: changed my mind\nstack traceback") and err:find("\nvlanlua: nothing was changed\n$"),
    "raising script: %s", err)
  t.lines(lines(out), { "script output\t0\t0" }, "the script's own output")
  t.check(read(DB) == before, "a script that raised changed the database file")
  t.check((read(DB .. "-wal") or "") == "", "a script that raised left a write-ahead log behind")

  status, _, err = run("--db", DB, "--each-call", path("change.lua"), "fail")
  t.check(status == 1 and err:find("changed my mind") and err:find("calls made before the error keep their changes"),
    "--each-call: %s %s", tostring(status), err)
  t.lines(stored_segments(DB, 10), { "100-139/1-10", "140-160/1-4", "140-160/11-20", "140-160/5-10" },
    "--each-call kept the removal made before the error")
  local db = cfgdb.open(DB)
  t.eq(db:count(CTRL, { ctrlKey = 10 }), 1, "--each-call kept the new bitmap slice")

  -- Another connection holds the database: the script waits no longer than it is told, changes nothing.
  local started = os.time()
  db:transaction(function()
    db:insert(PWSUP, { vrId = 1, ifIndex = 1, supMode = 1 })
    status, _, err = run("--db", DB, "--busy-timeout", "1", path("change.lua"))
  end)
  db:close()
  t.check(status == 1 and err:find("past the busy timeout\nvlanlua: nothing was changed"), "busy: %s", err)
  t.check(os.time() - started < 4, "--busy-timeout 1 waited as long as the default")
end)

case("a dry run prints each write it would make and leaves the file byte for byte unchanged", function()
  local DB = database("dry.db", SETUP)
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
  status, out = run("--db", path("empty.db"), "--dry-run", "--trace", path("mark.lua"))
  local got = lines(out)
  t.check(status == 0 and got[1]:match("^insert CTRL_VID_BITMAP") and got[2]:match("^call 1 VLAN_spt_CrtCtrlVidBitMap: %d+ operations")
    and out:match("\n  insert CTRL_VID_BITMAP: 1 row, [%d.]+ us\n    SAVEPOINT ecm_call .-\n    INSERT INTO CTRL_VID_BITMAP%(.-%?3=x'20000000")
    and got[#got]:match("^    RELEASE ecm_call  %[0 rows"),
    "--trace after the writes: the call, its insert and its bitmap, inside the script's unit:\n%s", out)
end)

case("--show lists every kind of row of one interface by kind, and one line per interface without one", function()
  local DB = database("kinds.db", EVERY_KIND, fill_every_kind)
  local status, out = run("--db", DB, "--show", "20")
  t.check(status == 0, "--show 20: exit status %s: %s", tostring(status), read(path("err")))
  t.lines(lines(out), {
    "interface 20: 10 rows",
    "Dot1Q match ranges: 2",
    "  #1   VLAN 10-19     group 1  segment 1  VR 7",
    "  #2   VLAN 40        group 2  segment 2  VR 7",
    "QinQ match rectangles: 2",
    "  #3   PE 500-509   CE 1-100     group 0  segment 3  VR 7  main interface 2  key \"m\"",
    "  #4   PE 510       CE 50        group 1  segment 4  VR 7  main interface 2",
    "user-VLAN QinQ segments: 3",
    "  #5   PE 100-199   CE 1-10      segment 6  VR 7  svc1=7 svc9=2",
    "  #6   PE 200-219   CE 30-39     segment 8  VR 7  no services",
    "  #7   PE 300       CE 7         segment 7  VR 7  svc2=5",
    "user-VLAN Dot1Q ranges: 1",
    "  #8   VLAN 10-12     VR 7",
    "user-VLAN descriptions: 1",
    "  #9   PE 100       CE 1         VR 7  \"uplink \\x22A\\x22\"",
    "user-VLAN any-other entries: 1",
    "  #10  VR 7",
  }, "interface 20")
  status, out = run("--db", DB, "--show")
  t.lines(lines(out), {
    " interface  dot1q-match  qinq-match  uvlan-qinq  uvlan-dot1q  description  any-other",
    "        20            2           2           3            1            1          1",
    "        21            0           1           1            1            0          0",
  }, "every interface")
  status, out = run("--db", DB, "--show=22")
  t.check(status == 0 and out:find("^interface 22: 0 rows\nDot1Q match ranges: none\n"), "an empty interface: %s", out)
end)

-- Attributes of an SVG or HTML tag.
local function attrs(tag)
  local a = {}
  for k, v in tag:gmatch('([%w-]+)="([^"]*)"') do a[k] = v end
  return a
end

-- Each drawn rectangle of a panel as {pe = "a-b", ce = "c-d", no =, fill =, width =, height =},
-- its ranges read back from its position on the plane, whose own rectangle names the ranges it
-- spans; and the values of the panel's PE and CE ticks.
local function read_panel(panel)
  local plane = attrs(panel:match('<rect class="plane"[^>]*>'))
  local pe0, pe1 = plane["data-pe"]:match("^(%d+)-(%d+)$")
  local ce0, ce1 = plane["data-ce"]:match("^(%d+)-(%d+)$")
  local sx, sy = plane.width / (pe1 - pe0 + 1), plane.height / (ce1 - ce0 + 1)
  local function vlan(v) return math.floor(v + 0.5) end
  local rects = {}
  for tag in panel:gmatch('<rect class="row"[^>]*>') do
    local r = attrs(tag)
    local peb, cee = vlan(pe0 + (r.x - plane.x) / sx), vlan(ce1 - (r.y - plane.y) / sy)   -- CE grows upwards
    local pee, ceb = r["data-pe"]:match("-(%d+)$"), r["data-ce"]:match("^(%d+)")
    -- The far edges are exact too, unless the rectangle was drawn at its minimum size.
    t.check(math.abs(math.max(5, (pee - peb + 1) * sx) - r.width) < 0.02 and
      math.abs(math.max(5, (cee - ceb + 1) * sy) - r.height) < 0.02, "rectangle %s: size %s x %s", r["data-row"], r.width, r.height)
    rects[#rects + 1] = { pe = peb .. "-" .. pee, ce = ceb .. "-" .. cee, no = r["data-row"], fill = r.fill }
  end
  local ticks = { pe = {}, ce = {} }
  for anchor, v in panel:gmatch('<text [^>]*text%-anchor="(%a+)">(%d+)</text>') do
    local list = anchor == "middle" and ticks.pe or ticks.ce
    list[#list + 1] = tonumber(v)
  end
  return rects, ticks, { pe0 + 0, pe1 + 1, ce0 + 0, ce1 + 1 }
end

-- Ticks at round steps (1, 2 or 5 times a power of ten) from one edge of the plane to the other.
local function check_ticks(list, lo, hi, what)
  local step = list[2] - list[1]
  local mantissa = step
  while mantissa >= 10 and mantissa % 10 == 0 do mantissa = mantissa / 10 end
  t.check(list[1] == lo and list[#list] == hi and (mantissa == 1 or mantissa == 2 or mantissa == 5),
    "%s ticks %s over %d..%d", what, table.concat(list, ","), lo, hi)
  for i = 2, #list do t.eq(list[i] - list[i - 1], step, what .. " tick step") end
end

-- What the legend must say of a stored segment: its non-zero services in service order.
local function services_of(db, seg)
  local svcs = {}
  for _, r in ipairs(db:rows(BASE, { segIndex = seg })) do
    for f = 6, 13 do if r[f] ~= 0 then svcs[#svcs + 1] = { f == 6 and 16 or f - 6, r[f] } end end
  end
  for _, r in ipairs(db:rows(VPN, { segIndex = seg })) do
    for f = 6, 13 do if r[f] ~= 0 then svcs[#svcs + 1] = { f + 2, r[f] } end end
  end
  table.sort(svcs, function(a, b) return a[1] < b[1] end)
  local parts = {}
  for i, s in ipairs(svcs) do parts[i] = "svc" .. s[1] .. "=" .. s[2] end
  return #parts > 0 and table.concat(parts, " ") or "no services"
end

-- The rows an interface's drawing must show, by kind: "PE range/CE range" -> legend entry.
local function drawn_rows(file, ifIndex)
  local db, want = cfgdb.open(file), { ["uvlan-qinq"] = {}, ["qinq-match"] = {} }
  for _, r in ipairs(db:rows(SEG, { ifIndex = ifIndex })) do
    want["uvlan-qinq"][r[7] .. "-" .. r[8] .. "/" .. r[5] .. "-" .. r[6]] = services_of(db, r[2])
  end
  for _, r in ipairs(db:rows(QINQ, { ifIndex = ifIndex })) do
    want["qinq-match"][r[4] .. "-" .. r[5] .. "/" .. r[6] .. "-" .. r[7]] = "match group " .. r[8]
  end
  db:close()
  return want
end

case("the drawing's rectangles, legend, labels and ticks map back onto the stored rows", function()
  local DB = database("draw.db", EVERY_KIND, fill_every_kind)
  local status = run("--db", DB, "--show", "20", "--svg", path("if20.svg"))
  t.check(status == 0, "exit status %s: %s", tostring(status), read(path("err")))
  local svg = read(path("if20.svg"))
  local legend, fills = {}, {}
  for fill, label in svg:gmatch('<g class="legend%-entry"[^>]*><rect[^>]* fill="([^"]*)"[^>]*/>\n<text[^>]*>([^<]*)</text>') do
    t.check(not fills[fill], "two legend entries share the colour %s", fill)
    legend[label], fills[fill] = fill, true
  end
  local want = drawn_rows(DB, 20)
  local key = svg:match('<g class="key">(.-)</g>') or ""
  local panels = 0
  for kind, panel in svg:gmatch('<g class="panel" data%-kind="([%w-]+)">(.-)\n</g>\n</g>') do
    panels = panels + 1
    local rects, ticks, edges = read_panel(panel)
    local got, expected = {}, {}
    for _, r in ipairs(rects) do
      local label = want[kind][r.pe .. "/" .. r.ce]
      got[#got + 1] = r.pe .. "/" .. r.ce
      t.check(label and legend[label] == r.fill, "%s %s/%s: colour %s, legend %s", kind, r.pe, r.ce, r.fill, tostring(label))
      local text = panel:match(">(#" .. r.no .. "[^<]*)</text>") or ""
      local in_key = key:find(">#" .. r.no .. "  PE ", 1, true)
      t.check(text:find("PE ", 1, true) or (text == "#" .. r.no and in_key), "%s #%s: label %q, in the key: %s", kind,
        r.no, text, tostring(in_key))
    end
    for k in pairs(want[kind]) do expected[#expected + 1] = k end
    table.sort(got)
    table.sort(expected)
    t.lines(got, expected, kind .. " rectangles against the stored rows")
    check_ticks(ticks.pe, edges[1], edges[2], kind .. " PE")
    check_ticks(ticks.ce, edges[3], edges[4], kind .. " CE")
  end
  t.eq(panels, 2, "panels")
end)

-- Run inside the page after its own script: points at every rectangle and every drawn row, turns
-- the wheel, drags, double-clicks, and writes what the page did into <pre id="probe">.
local PROBE = [[<script>
(function () {
  var out = [], svg = document.querySelector('#drawing svg');
  function marked(sel) { var e = document.querySelector(sel); return !!e && e.classList.contains('hi'); }
  function point(from, toSel) {
    var hits = 0, all = 0;
    document.querySelectorAll(from).forEach(function (e) {
      var other = toSel.replace('N', e.getAttribute('data-row'));
      if (!document.querySelector(other)) { return; }
      all++;
      e.dispatchEvent(new MouseEvent('mouseenter'));
      var on = marked(other);
      e.dispatchEvent(new MouseEvent('mouseleave'));
      if (on && !marked(other)) { hits++; }
    });
    return hits + '/' + all;
  }
  out.push('rectangle to row ' + point('rect.row', '#rows tr[data-row="N"]'));
  out.push('row to rectangle ' + point('#rows tr[data-row]', 'rect.row[data-row="N"]'));
  function box() { return svg.getAttribute('viewBox').split(' ').map(Number); }
  var whole = box(), r = svg.getBoundingClientRect();
  svg.dispatchEvent(new WheelEvent('wheel', {deltaY: -100, clientX: r.left + 200, clientY: r.top + 200, bubbles: true, cancelable: true}));
  var zoomed = box();
  out.push('zoomed ' + (zoomed[2] < whole[2] && zoomed[3] < whole[3]));
  svg.dispatchEvent(new PointerEvent('pointerdown', {clientX: 100, clientY: 100, pointerId: 1, bubbles: true}));
  svg.dispatchEvent(new PointerEvent('pointermove', {clientX: 150, clientY: 130, pointerId: 1, bubbles: true}));
  svg.dispatchEvent(new PointerEvent('pointerup', {clientX: 150, clientY: 130, pointerId: 1, bubbles: true}));
  var panned = box();
  out.push('panned ' + (panned[0] < zoomed[0] && panned[1] < zoomed[1] && panned[2] === zoomed[2]));
  svg.dispatchEvent(new MouseEvent('dblclick', {bubbles: true}));
  out.push('whole again ' + (box().join(' ') === whole.join(' ')));
  var pre = document.createElement('pre');
  pre.id = 'probe';
  pre.textContent = out.join('\n');
  document.body.appendChild(pre);
})();
</script>
]]

local CHROMIUM = "chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run " ..
  "--disable-background-networking --disable-component-update --disable-sync"

-- Runs Chromium with a profile of its own on the file, standard output into out; its exit status.
local function chromium(args, file, out)
  local profile = io.popen("mktemp -d"):read("*l")
  local status = exit_status(os.execute(plain(CHROMIUM) .. " --user-data-dir=" .. sh_quote(profile) .. " " .. args ..
    " " .. sh_quote("file://" .. file) .. " >" .. sh_quote(out) .. " 2>>" .. sh_quote(path("chromium.log"))))
  os.execute("rm -rf " .. sh_quote(profile))
  return status
end

-- Width and height of a PNG image, from its header.
local function png_size(png)
  local function u32(at) local a, b, c, d = png:byte(at, at + 3) return ((a * 256 + b) * 256 + c) * 256 + d end
  return png:sub(1, 8) == "\137PNG\r\n\26\n" and png:sub(13, 16) == "IHDR" and u32(17), u32(21)
end

if BROWSER and exit_status(os.execute("command -v chromium >/dev/null")) ~= 0 then
  print("skip: no chromium on this machine (scripts/setup.sh installs it wherever Debian has it)")
  os.execute("rm -rf " .. sh_quote(dir))
  os.exit(77)
end

if BROWSER then
  t.case("the page in Chromium: a rectangle per drawn row, a legend entry per colour, marks both ways, zoom, pan", function()
    local DB = database("page.db", EVERY_KIND, fill_every_kind)
    local status = run("--db", DB, "--show", "20", "--html", path("page.html"))
    local page = read(path("page.html"))
    t.check(status == 0 and page:find("Content%-Security%-Policy\" content=\"default%-src 'none'"), "the page: %s",
      read(path("err")))
    t.check(not page:find("https?:") and not page:find("[%s\"]src=") and not page:find("href=") and not page:find("url%("),
      "the page names something outside itself")
    write(path("probe.html"), (page:gsub("</body>", function() return PROBE .. "</body>" end)))
    t.eq(chromium("--dump-dom", path("probe.html"), path("dom.html")), 0, "chromium --dump-dom")
    local dom = read(path("dom.html"))
    local want, got, expected = drawn_rows(DB, 20), {}, {}
    for tag in dom:gmatch('<rect class="row[^"]*"[^>]*>') do
      local r = attrs(tag)
      got[#got + 1] = r["data-kind"] .. " " .. r["data-pe"] .. "/" .. r["data-ce"]
    end
    local labels = {}
    for kind, rows in pairs(want) do
      for k, label in pairs(rows) do
        expected[#expected + 1] = kind .. " " .. k
        labels[label] = true
      end
    end
    table.sort(got)
    table.sort(expected)
    t.lines(got, expected, "rectangles in the page against the stored rows")
    local legend, want_legend = {}, {}
    for label in dom:gmatch('<li class="legend%-entry"[^>]*><span[^>]*></span>([^<]*)</li>') do legend[#legend + 1] = label end
    for label in pairs(labels) do want_legend[#want_legend + 1] = label end
    table.sort(legend)
    table.sort(want_legend)
    t.lines(legend, want_legend, "legend entries")
    local _, rows = dom:gsub('<tr data%-row="', "")
    t.eq(rows, 10, "rows in the table")
    t.lines(lines(dom:match('<pre id="probe">(.-)</pre>') or ""),
      { "rectangle to row 5/5", "row to rectangle 5/5", "zoomed true", "panned true", "whole again true" }, "the page at work")
    t.eq(chromium("--window-size=1400,1000 --screenshot=" .. sh_quote(path("shot.png")), path("page.html"), "/dev/null"), 0,
      "chromium --screenshot")
    local png = read(path("shot.png")) or ""
    local w, h = png_size(png)
    t.check(w == 1400 and h == 1000 and #png > 20000, "screenshot: %s x %s, %d bytes", tostring(w), tostring(h), #png)
  end)
end

os.execute("rm -rf " .. sh_quote(dir))
t.finish()
