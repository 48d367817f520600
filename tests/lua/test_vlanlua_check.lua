-- The command's inspection and how scripts end: random sequences of the module's own calls keep
-- every property --check checks; each kind of damage planted with sqlite3 is reported at its row;
-- the JSON documents, read by Python's json module, map back onto the stored rows; --diff of a
-- file and its copy after a script is exactly the script's dry-run writes; inspecting commands
-- leave every file as it was (also read-only, as another user); os.exit and SIGTERM end a script
-- as returning or raising does.
local t = require "testlib"
local cfgdb = require "cfgdb"
local U = require "uvlan_util"
local C = require "cmdlib"
local unpack = table.unpack or unpack
local load = loadstring or load

local path, read, write, run, q = C.path, C.read, C.write, C.run, C.sh_quote
local SRC = (arg and arg[0] or ""):match("^(.*)/tests/lua/[^/]*$") or "."
local IF_INFO, QINQ, SEG, BASE, SEGIDX = t.T.IF_INFO, t.T.QINQ_MATCH_SEG, t.T.UVLAN_QINQ_SEG, t.T.UVLAN_BASE_SVC, t.T.SEG_INDEX
local SEED = 20261125
math.randomseed(SEED)

local function sh(command)
  return C.exit_status(os.execute(C.plain(command)))
end

-- The JSON document on standard output of the last run, as Python's json module reads it.
local null = {}
local function json()
  local f = io.popen(C.plain("python3 " .. q(SRC .. "/tests/lua/json2lua.py")) .. " <" .. q(path("out")))
  local text = f:read("*a")
  f:close()
  local chunk = assert(load(text, "json", "t", { null = null }) or load(text))
  if setfenv then setfenv(chunk, { null = null }) end
  return chunk()
end

-- ---- random calls of every writing function ----

-- The calls, as source text: the test makes them itself and hands them to scripts the command runs.
local CALLS_SOURCE = [=[
local U = require "uvlan_util"
local IFACES = { 1001, 1002, 1003 }
local function pick(list) return list[math.random(#list)] end
return {
  function(lib)
    local peb, pee = U.random_range(32)
    local ceb, cee = U.random_range(32)
    return lib.VLAN_spt_SetUserVlanQinQSvc({ pick(IFACES), peb, pee, ceb, cee, pick({ 0, 7 }), 1, 2, 3, "k" },
      U.random_services({ 1, 2, 9, 10 }, math.random() < 0.2))
  end,
  function(lib)
    local b, e = U.random_range(60)
    return lib.VLAN_spt_Dot1QMatchMerge({ pick(IFACES), b, e, math.random(0, 1), 7, 0, 0, 0 })
  end,
  function(lib)
    local peb, pee = U.random_range(20)
    local ceb, cee = U.random_range(20)
    return lib.VLAN_spt_QinQMatchMerge({ pick(IFACES), 0, peb, pee, ceb, cee, 1000, math.random(0, 1), pick({ 7, 8 }), 0, "m" })
  end,
  function(lib) return lib.VLAN_spt_UpdataQinQIfSpec(1000, math.random(0, 9), 7, math.random() < 0.6) end,
  function(lib) return lib.VLAN_spt_CrtCtrlVidBitMap(math.random(1, 2), math.random(1, 9000), 7) end,
  function(lib) return lib.VLAN_spt_UpdataCtrlVidBitMap(math.random(1, 2), math.random(1, 9000), 7, math.random(1, 9000)) end,
}
]=]
local CALLS = assert(load(CALLS_SOURCE))()

-- A script of n random calls, as text for the command.
local function random_script(n)
  return "local lib = require 'libvlanluaext'\nmath.randomseed(" .. math.random(1, 2 ^ 30) .. ")\n" ..
    "local CALLS = (function()\n" .. CALLS_SOURCE .. "\nend)()\n" ..
    "for _ = 1, " .. n .. " do CALLS[math.random(#CALLS)](lib) end\n"
end

local function check_sound(file, where)
  local status, out, err = run("--db", file, "--check", "--json")
  local doc = json()
  t.check(status == 0 and doc.sound and #doc.violations == 0 and doc.format == 1 and doc.view == "check",
    "%s: --check exit %s: %s %s", where, tostring(status), out, err)
end

local SOUND = path("sound.db")

t.case("random sequences of the module's own calls never break a property --check checks", function()
  write(SOUND, "")
  local db = cfgdb.open(SOUND, { vr = 7 })
  db:bind()
  for n = 1, 900 do
    CALLS[math.random(#CALLS)](U.lib)
    if n % 150 == 0 then check_sound(SOUND, "after call " .. n .. " (seed " .. SEED .. ")") end
  end
  cfgdb.unbind()
  db:close()
  local status, out = run("--db", SOUND, "--check")
  t.check(status == 0 and out:find(" rows checked: 0 violations, 0 warnings\n$"), "text: %s", out)
end)

-- ---- damage ----

-- The first row of a table in the sound file, by column number.
local function first_row(tid)
  local db = cfgdb.open(SOUND)
  local r = db:rows(tid)[1]
  db:close()
  return r
end

t.case("each kind of damage planted with sqlite3 is reported at its row's key, exit 1; a backwards row is drawn", function()
  local seg, qm = first_row(SEG), first_row(QINQ)
  local free = 900000
  local S = { seg = seg[2], i = seg[1], peb = seg[7], pee = seg[8], ceb = seg[5], cee = seg[6] }
  local segkey = "UVLAN_QINQ_SEG f1_ifindex=" .. S.i .. " f2_seg_index=" .. S.seg .. ": "
  local DAMAGES = {
    { "UPDATE UVLAN_QINQ_SEG SET f7_pe_begin = f8_pe_end + 3 WHERE f2_seg_index = " .. S.seg, segkey .. "PE %d+%-%d+ runs backwards" },
    { "UPDATE DOT1Q_MATCH_SEG SET f5_vlan_end = 4095 WHERE rowid = (SELECT min(rowid) FROM DOT1Q_MATCH_SEG)", "DOT1Q_MATCH_SEG f2_ifindex=%d+ f3_seg_index=%d+: VLAN %d+%-4095 reaches outside 1%-4094" },
    { string.format("INSERT INTO UVLAN_QINQ_SEG(f1_ifindex, f2_seg_index, f7_pe_begin, f8_pe_end, f5_ce_begin, f6_ce_end, " ..
      "f11_key_name) VALUES(%d, %d, %d, %d, %d, %d, zeroblob(64)); INSERT INTO SEG_INDEX VALUES(%d, 0)", S.i, free, S.peb, S.peb, S.cee, S.cee, free),
      "UVLAN_QINQ_SEG f1_ifindex=" .. S.i .. " f2_seg_index=%d+: overlaps UVLAN_QINQ_SEG f1_ifindex=" .. S.i },
    { "INSERT INTO UVLAN_BASE_SVC(f1_ifindex, f2_seg_index, f7_svc1) VALUES(" .. S.i .. ", " .. free .. ", 4)",
      "UVLAN_BASE_SVC f2_seg_index=" .. free .. ": belongs to no stored segment" },
    { "UPDATE UVLAN_BASE_SVC SET f6_svc16 = 0, f7_svc1 = 0, f8_svc2 = 0, f9_svc3 = 0, f10_svc4 = 0, f11_svc5 = 0, " ..
      "f12_svc6 = 0, f13_svc7 = 0 WHERE rowid = (SELECT min(rowid) FROM UVLAN_BASE_SVC)", "UVLAN_BASE_SVC f2_seg_index=%d+: carries no service" },
    { "UPDATE QINQ_MATCH_SEG SET f3_seg_index = " .. S.seg .. " WHERE rowid = 1", "also that of" },
    { "DELETE FROM SEG_INDEX WHERE f1_seg_index = " .. S.seg, segkey .. "its segment index was never handed out" },
    { string.format("INSERT INTO DOT1Q_MATCH_SEG(f2_ifindex, f3_seg_index, f4_vlan_begin, f5_vlan_end, f6_group_id) " ..
      "SELECT f2_ifindex, %d, f5_vlan_end + 1, f5_vlan_end + 1, f6_group_id FROM DOT1Q_MATCH_SEG ORDER BY rowid LIMIT 1", free),
      "DOT1Q_MATCH_SEG f2_ifindex=%d+ f3_seg_index=%d+: ends just before DOT1Q_MATCH_SEG" },
    { string.format("INSERT INTO QINQ_MATCH_SEG(f2_ifindex, f3_seg_index, f4_pe_begin, f5_pe_end, f6_ce_begin, f7_ce_end, " ..
      "f8_group_id, f9_vrid, f12_key_name) VALUES(%d, %d, %d, %d, %d, %d, %d, %d, zeroblob(64))", qm[2], free, qm[4], qm[5], qm[7] + 1, qm[7] + 1, qm[8], qm[9]),
      "QINQ_MATCH_SEG f2_ifindex=" .. qm[2] .. " f3_seg_index=%d+: abuts QINQ_MATCH_SEG" },
    { "UPDATE DOT1Q_MATCH_SEG SET f9_attr9 = 5 WHERE rowid = (SELECT min(rowid) FROM DOT1Q_MATCH_SEG)", "DOT1Q_MATCH_SEG f2_ifindex=%d+ f3_seg_index=%d+: f9_attr9 is 5" },
    { "UPDATE QINQ_IF_SPEC SET f3_qinq_num = 0", "QINQ_IF_SPEC f1_vrid=7 f2_main_ifindex=1000: the counter is 0" },
    { "UPDATE CTRL_VID_BITMAP SET f5_full = 1 WHERE rowid = (SELECT min(rowid) FROM CTRL_VID_BITMAP)", "CTRL_VID_BITMAP f1_ctrl_key=%d f2_slice=%d: f5_full is 1 but" },
  }
  for i, d in ipairs(DAMAGES) do
    local file = path("damaged" .. i .. ".db")
    os.execute("cp " .. q(SOUND) .. " " .. q(file))
    t.eq(sh("sqlite3 " .. q(file) .. " " .. q(d[1])), 0, "planting " .. d[1])
    local status, out = run("--db", file, "--check")
    t.check(status == 1 and out:find("\n?" .. d[2]) and out:find("\n%d+ rows checked: %d+ violations?, 0 warnings\n$"),
      "damage %d (%s): exit %s:\n%s", i, d[1], tostring(status), out)
  end
  -- The backwards segment is drawn over the VLANs it spans, marked, with positive sizes.
  local status = run("--db", path("damaged1.db"), "--show", tostring(S.i), "--svg", path("damaged.svg"))
  local svg = read(path("damaged.svg")) or ""
  t.check(status == 0 and svg:find('<rect class="row damaged"[^>]* data%-pe="' .. (S.pee + 3) .. "%-" .. S.pee .. '"'),
    "damaged row not marked: exit %s", tostring(status))
  for w, h in svg:gmatch('<rect class="row[^>]* width="([^"]*)" height="([^"]*)"') do
    t.check(tonumber(w) > 0 and tonumber(h) > 0, "a rectangle of %s x %s", w, h)
  end
end)

-- ---- the walks' reach ----

t.case("--check warns where a walk from the start meets an empty page, naming the first row it misses", function()
  local file = path("reach.db")
  write(file, "")
  local db = cfgdb.open(file)
  for i = 1, 70 do
    db:insert(IF_INFO, { ifIndex = i, vrId = 7, kind = 1 })
    db:insert(IF_INFO, { ifIndex = 200 + i, vrId = 7, kind = 11 })
  end
  db:insert(QINQ, { ifIndex = 1, segIndex = 1, peBegin = 5, peEnd = 5, ceBegin = 1, ceEnd = 1, vrId = 7 })
  db:insert(QINQ, { ifIndex = 70, segIndex = 2, peBegin = 6, peEnd = 6, ceBegin = 1, ceEnd = 1, vrId = 7 })
  db:insert(SEG, { ifIndex = 201, segIndex = 3, vrId = 7, ceBegin = 1, ceEnd = 1, peBegin = 5, peEnd = 5 })
  db:insert(SEG, { ifIndex = 270, segIndex = 4, vrId = 7, ceBegin = 1, ceEnd = 1, peBegin = 5, peEnd = 5 })
  for i = 1, 4 do db:insert(SEGIDX, { segIndex = i, vrId = 7 }) end
  db:close()
  local status, out = run("--db", file, "--check")
  t.check(status == 0 and out:find("warning: QINQ_MATCH_SEG f2_ifindex=70 f3_seg_index=2: a QinQ match walk of VR 7 " ..
    "from the start returns an empty page after interface 1", 1, true) and
    out:find("warning: UVLAN_QINQ_SEG f1_ifindex=270 f2_seg_index=4: a user-VLAN walk of VR 7", 1, true), "%s", out)
  t.eq(run("--db", file, "--check", "--strict"), 1, "--strict")
  -- The module's walk does what the warning says: the page after interface 1 is empty.
  write(path("walk.lua"), [[
local lib = require "libvlanluaext"
local _, rows = lib.VLAN_spt_GetNextQinQMibQuery(0, 0, 0, 7, 10)
local last = rows[#rows]
local _, next_rows = lib.VLAN_spt_GetNextQinQMibQuery(last.ifIndex, last.peVlan, last.ceVlanBegin, 7, 10)
print(#rows, last.ifIndex, #next_rows)
]])
  status, out = run("--db", file, "--dry-run", path("walk.lua"))
  t.lines(C.lines(out), { "1\t1\t0" }, "the module's walk")
end)

-- ---- JSON ----

t.case("--show --json of an interface and of the summary map back onto the stored rows", function()
  local status = run("--db", SOUND, "--show", "1001", "--json")
  local doc = json()
  t.check(status == 0 and doc.format == 1 and doc.view == "interface" and doc.interface == 1001, "document head")
  local db = cfgdb.open(SOUND)
  local TABLES = { ["dot1q-match"] = { t.T.DOT1Q_MATCH_SEG, 2 }, ["qinq-match"] = { QINQ, 2 }, ["uvlan-qinq"] = { SEG, 1 } }
  for kind, tbl in pairs(TABLES) do
    local want, got = t.rows(db, tbl[1], function(r)
      local parts = {}
      for k, v in pairs(r) do parts[#parts + 1] = k .. "=" .. tostring(v) end
      table.sort(parts)
      return table.concat(parts, " ")
    end, { [tbl[2]] = 1001 }), {}
    for _, row in ipairs(doc.kinds[kind]) do
      local parts = {}
      for name, v in pairs(row.fields) do parts[#parts + 1] = name:match("^f(%d+)_") .. "=" .. tostring(v) end
      table.sort(parts)
      got[#got + 1] = table.concat(parts, " ")
      if kind == "uvlan-qinq" then
        local svcs = {}
        for _, r in ipairs(U.rows(db, 1001)) do if r.idx == row.fields.f2_seg_index then svcs = r.svc end end
        local json_svcs = {}
        for name, v in pairs(row.services) do json_svcs[tonumber(name:match("%d+"))] = v end
        t.eq(U.svcstr(json_svcs), U.svcstr(svcs), "services of segment " .. row.fields.f2_seg_index)
      end
    end
    table.sort(got)
    t.lines(got, want, kind .. " rows")
  end
  run("--db", SOUND, "--show", "--json")
  doc = json()
  t.eq(doc.view, "summary", "summary view")
  for _, entry in ipairs(doc.interfaces) do
    t.eq(entry.rows["uvlan-qinq"], db:count(SEG, { ifIndex = entry.interface }), "segments of " .. entry.interface)
    t.eq(entry.rows["qinq-match"], db:count(QINQ, { ifIndex = entry.interface }), "QinQ matches of " .. entry.interface)
  end
  db:close()
end)

-- ---- --diff against the dry run ----

-- Key columns of the tables the module writes.
local KEYS = {
  UVLAN_QINQ_SEG = { "f1_ifindex", "f2_seg_index" }, UVLAN_BASE_SVC = { "f2_seg_index" }, UVLAN_VPN_SVC = { "f2_seg_index" },
  DOT1Q_MATCH_SEG = { "f2_ifindex", "f3_seg_index" }, QINQ_MATCH_SEG = { "f2_ifindex", "f3_seg_index" },
  SEG_INDEX = { "f1_seg_index" }, QINQ_IF_SPEC = { "f1_vrid", "f2_main_ifindex" }, CTRL_VID_BITMAP = { "f1_ctrl_key", "f2_slice" },
}
local function keyof(tbl, fields)
  local parts = { tbl }
  for _, k in ipairs(KEYS[tbl]) do parts[#parts + 1] = k .. "=" .. tostring(fields[k]) end
  return table.concat(parts, " ")
end
local function blank(v) return v == 0 or v == "" or (type(v) == "table" and #v == 0) end
local function same(a, b)
  if type(a) ~= "table" or type(b) ~= "table" then return a == b end
  if #a ~= #b then return false end
  for i = 1, #a do if not same(a[i], b[i]) then return false end end
  return true
end

t.case("--diff of a file and its copy after a script is exactly the script's dry-run writes", function()
  write(path("change.lua"), random_script(60))
  local before = path("before.db")
  os.execute("cp " .. q(SOUND) .. " " .. q(before))
  write(path("empty.db"), "")
  run("--db", path("empty.db"), "--diff", before, "--json")
  local rows = {}      -- key -> fields, every row of the file before the script
  for _, c in ipairs(json().changes) do if KEYS[c.table] then rows[keyof(c.table, c.after)] = c.after end end
  local status = run("--db", before, "--dry-run", "--json", path("change.lua"))
  t.eq(status, 0, "dry run: " .. tostring(read(path("err"))))
  local writes = json().writes
  local model, touched = {}, {}
  for k, v in pairs(rows) do model[k] = v end
  for _, w in ipairs(writes) do
    local k = keyof(w.table, w.fields)
    touched[k] = w.table
    if w.op == "delete" then
      model[k] = nil
      if w.table == "UVLAN_QINQ_SEG" then   -- the segment's service records go with it
        for _, svc in ipairs({ "UVLAN_BASE_SVC", "UVLAN_VPN_SVC" }) do
          local sk = keyof(svc, w.fields)
          if model[sk] and model[sk].f1_ifindex == w.fields.f1_ifindex then model[sk], touched[sk] = nil, svc end
        end
      end
    else
      local row = {}
      for name, v in pairs(w.op == "set" and model[k] or {}) do row[name] = v end
      for name, v in pairs(w.fields) do row[name] = v end
      model[k] = row
    end
  end
  local after = path("after.db")
  os.execute("cp " .. q(before) .. " " .. q(after))
  t.eq(run("--db", after, path("change.lua")), 0, "the script itself")
  status = run("--db", before, "--diff", after, "--json")
  local doc = json()
  local expected = 0
  for k in pairs(touched) do
    local old, new = rows[k], model[k]
    local differs = (old == nil) ~= (new == nil)
    for name, v in pairs(new or {}) do differs = differs or not same(old[name], v) end
    if differs then expected = expected + 1 end
  end
  t.eq(#doc.changes, expected, "rows that differ")
  t.eq(status, expected == 0 and 0 or 1, "exit status")
  for _, c in ipairs(doc.changes) do
    local k = keyof(c.table, c.after ~= null and c.after or c.before)
    local want = model[k]
    t.check(touched[k], "%s changed but no write touched it", k)
    t.eq(c.change, want == nil and "removed" or rows[k] == nil and "added" or "changed", k .. " change")
    for name, v in pairs(c.after ~= null and c.after or {}) do
      t.check(same(want[name], v) or (want[name] == nil and blank(v)), "%s: %s is %s", k, name, tostring(v))
    end
  end
end)

-- ---- inspection never writes ----

local function fingerprint(file)
  local f = io.popen("stat -c '%s %y' " .. q(file) .. " && ls -a " .. q(file:match("^(.*)/")))
  local text = f:read("*a")
  f:close()
  return text .. (read(file) or "")
end

local INSPECTIONS = {
  { "--show" }, { "--show", "1001" }, { "--show", "1001", "--json" }, { "--show", "--json" }, { "--check" },
  { "--check", "--json" }, { "--diff", "SELF" }, { "--diff", "SELF", "--json" },
}

t.case("inspecting commands leave every file as it was: empty, another application's, read-only as another user", function()
  local files = { empty = path("fresh/empty.db"), other = path("fresh/other.db"), sound = path("fresh/sound.db") }
  os.execute("mkdir -p " .. q(path("fresh")) .. " && : > " .. q(files.empty) .. " && cp " .. q(SOUND) .. " " .. q(files.sound))
  sh("sqlite3 " .. q(files.other) .. " 'CREATE TABLE photos(id INTEGER)'")
  for name, file in pairs(files) do
    local before = fingerprint(file)
    for _, args in ipairs(INSPECTIONS) do
      local words = { "--db", file }
      for _, a in ipairs(args) do words[#words + 1] = a == "SELF" and file or a end
      local status, _, err = run(unpack(words))
      local want = name == "other" and (args[1] == "--show" and 1 or 2) or 0
      t.check(status == want and (want == 0 or err:find("a file of another application")), "%s %s: exit %s, %s", name,
        table.concat(args, " "), tostring(status), err)
    end
    run("--db", file, "--show", "1001", "--svg", path("out.svg"), "--html", path("out.html"))
    t.eq(fingerprint(file), before, name .. ": the file or its folder changed")
  end
  t.check(read(path("out")) ~= nil, "output")
  -- A script that does not compile is reported before the file is opened.
  write(path("broken.lua"), "local = 1")
  t.check(run("--db", files.empty, path("broken.lua")) == 1 and read(files.empty) == "", "a broken script wrote the file")
  -- A read-only file in a read-only folder, inspected by a user who may not write either.
  os.execute("mkdir -p " .. q(path("ro")) .. " && cp " .. q(SOUND) .. " " .. q(path("ro/cfg.db")) .. " && chmod 444 " ..
    q(path("ro/cfg.db")) .. " && chmod 555 " .. q(path("ro")))
  local before = fingerprint(path("ro/cfg.db"))
  local as_nobody = io.popen("id -u"):read("*l") == "0" and "setpriv --reuid=65534 --regid=65534 --clear-groups " or ""
  for _, args in ipairs({ { "--show", "1001" }, { "--check" } }) do
    local status, out, err = C.run_as(as_nobody, "--db", path("ro/cfg.db"), unpack(args))
    t.check(status == 0 and #out > 0, "read-only %s: exit %s %s", args[1], tostring(status), err)
  end
  t.eq(fingerprint(path("ro/cfg.db")), before, "the read-only file")
  os.execute("chmod 755 " .. q(path("ro")))
end)

-- ---- how a script ends ----

t.case("os.exit ends a script as returning or raising does; SIGTERM rolls it back and says so", function()
  local file = path("exit.db")
  os.execute("cp " .. q(SOUND) .. " " .. q(file))
  local MARK = "local lib = require 'libvlanluaext'\nassert(lib.VLAN_spt_CrtCtrlVidBitMap(77, 5, 7) == 0)\n"
  local before = read(file)
  for _, code in ipairs({ "0", "3", "true", "false" }) do
    write(path("exit.lua"), MARK .. "os.exit(" .. code .. ")\nerror('not reached')")
    local status, out = run("--db", file, "--dry-run", path("exit.lua"))
    local want = ({ ["0"] = 0, ["3"] = 3, ["true"] = 0, ["false"] = 1 })[code]
    t.check(status == want and out == "insert CTRL_VID_BITMAP f1_ctrl_key=77 f2_slice=0 f3_bitmap={5} f4_vrid=7\n",
      "dry run, os.exit(%s): exit %s, %q", code, tostring(status), out)
    t.check(read(file) == before, "dry run, os.exit(%s) changed the file", code)
  end
  write(path("exit.lua"), MARK .. "os.exit(2)")
  local status, _, err = run("--db", file, path("exit.lua"))
  t.check(status == 2 and err:find("exited with status 2; nothing was changed") and read(file) == before, "os.exit(2): %s", err)
  write(path("exit.lua"), MARK .. "pcall(os.exit, 0)")
  t.eq(run("--db", file, path("exit.lua")), 0, "os.exit(0) inside pcall")
  local db = cfgdb.open(file)
  t.eq(db:count(t.T.CTRL_VID_BITMAP, { ctrlKey = 77 }), 1, "os.exit(0) kept the script's writes")
  db:close()
  before = read(file)
  -- (LuaJIT calls no hook from the code it compiles, so the loop runs interpreted.)
  write(path("loop.lua"), MARK:gsub("77", "78") .. "if jit then jit.off() end\n" ..
    "io.stdout:write('ready\\n') io.stdout:flush() while true do end")
  status = C.exit_status(os.execute("(" .. C.CMD .. " --db " .. q(file) .. " " .. q(path("loop.lua")) .. " >" ..
    q(path("out")) .. " 2>" .. q(path("err")) .. " & pid=$!; for i in $(seq 300); do grep -q ready " .. q(path("out")) ..
    " && break; sleep 0.1; done; kill -TERM $pid; wait $pid)"))
  t.check(status == 143 and read(path("err")):find("stopped by SIGTERM; nothing was changed") and read(file) == before,
    "SIGTERM: exit %s, %s", tostring(status), read(path("err")))
end)

C.cleanup()
t.finish()
