-- The cfgdb binding: set-up and inspection of a database from scripts, and refusal of bad input
-- with a clear error that leaves the tables as they were.
local cfgdb = require "cfgdb"

local IF_INFO, L2_PORT, CTRL_VID_BITMAP = 0x083606C0, 0x0D490804, 0x083607EF
local QINQ_MATCH_SEG, QINQ_IF_SPEC = 0x083606C1, 0x08361A12

local failures, group = 0, "?"
local function check(cond, what)
  if not cond then
    failures = failures + 1
    io.stderr:write(("FAIL [%s] %s\n"):format(group, what))
  end
end
local function eq(got, want, what)
  check(got == want, ("%s: got %s, want %s"):format(what, tostring(got), tostring(want)))
end
local function refused(pattern, fn, ...)
  local ok, err = pcall(fn, ...)
  check(not ok, "expected an error matching " .. pattern)
  check(ok or tostring(err):find(pattern, 1, true) ~= nil, ("error %q lacks %q"):format(tostring(err), pattern))
end

-- Records come back with every field of the schema; left-out fields are 0.
group = "rows"
do
  local db = cfgdb.open()
  db:insert(L2_PORT, {[1] = 10, [2] = 4094})
  local r = db:rows(L2_PORT)
  eq(#r, 1, "one record")
  eq(r[1][1], 10, "field 1"); eq(r[1][2], 4094, "field 2"); eq(r[1][6], 0, "field 6 defaults to 0")
  eq(r[1][12], 0, "field 12 defaults to 0")
  local n = 0; for _ in pairs(r[1]) do n = n + 1 end
  eq(n, 4, "all four fields of L2_PORT and no others")
  db:close()
end

-- Keyed tables come in key order, the others in insertion order.
do
  local db = cfgdb.open()
  for _, k in ipairs({30, 10, 20}) do
    db:insert(QINQ_IF_SPEC, {[1] = 3, [2] = k, [3] = k * 2})
    db:insert(IF_INFO, {[2] = k})
  end
  local keyed, plain = db:rows(QINQ_IF_SPEC), db:rows(IF_INFO)
  eq(keyed[1][2] .. "," .. keyed[2][2] .. "," .. keyed[3][2], "10,20,30", "keyed rows in key order")
  eq(plain[1][2] .. "," .. plain[2][2] .. "," .. plain[3][2], "30,10,20", "unkeyed rows in insertion order")
  db:close()
end

-- Bitmaps come back at 512 bytes, texts up to their first zero byte.
do
  local db = cfgdb.open()
  db:insert(CTRL_VID_BITMAP, {[1] = 1, [2] = 1, [3] = "\6"})
  db:insert(QINQ_MATCH_SEG, {[2] = 1, [3] = 1, [12] = "abc"})
  local map = db:rows(CTRL_VID_BITMAP)[1][3]
  eq(#map, 512, "bitmap length"); eq(map:byte(1), 6, "first byte"); eq(map:byte(512), 0, "zero padded")
  eq(db:rows(QINQ_MATCH_SEG)[1][12], "abc", "text without padding")
  db:insert(QINQ_MATCH_SEG, {[2] = 1, [3] = 2, [12] = string.rep("x", 64)})
  eq(db:rows(QINQ_MATCH_SEG, {[3] = 2})[1][12], string.rep("x", 64), "a full text has no terminator")
  db:close()
end

-- Filters: rows, count and delete see the same records.
group = "filters"
do
  local db = cfgdb.open()
  for i = 1, 6 do db:insert(IF_INFO, {[2] = i, [3] = i % 2}) end
  eq(#db:rows(IF_INFO, {[3] = 1}), 3, "rows by filter")
  eq(db:count(IF_INFO, {[3] = 1}), 3, "count by filter")
  eq(db:count(IF_INFO, {[3] = 1, [2] = 5}), 1, "two fields filter together")
  eq(db:delete(IF_INFO, {[3] = 0}), 3, "delete returns the number deleted")
  eq(db:count(IF_INFO), 3, "the others stay")
  eq(db:delete(IF_INFO), 3, "no filter deletes all")
  db:close()
end

-- Bad input raises an error and changes nothing.
group = "bad input"
do
  local db = cfgdb.open()
  db:insert(QINQ_IF_SPEC, {[1] = 3, [2] = 100, [3] = 5})
  refused("unknown table", db.insert, db, 0x12345678, {})
  refused("has no field 7", db.insert, db, QINQ_IF_SPEC, {[1] = 3, [2] = 101, [7] = 1})
  refused("has no field", db.rows, db, QINQ_IF_SPEC, {vr = 3})
  refused("wants an integer", db.insert, db, QINQ_IF_SPEC, {[1] = 3, [2] = "101"})
  refused("wants an integer", db.insert, db, QINQ_IF_SPEC, {[1] = 3, [2] = 1.5})
  refused("wants a string", db.insert, db, CTRL_VID_BITMAP, {[1] = 1, [2] = 1, [3] = 6})
  refused("out of range", db.insert, db, QINQ_IF_SPEC, {[1] = 3, [2] = 0x100000000})
  refused("out of range", db.insert, db, QINQ_IF_SPEC, {[1] = -1, [2] = 101})
  refused("out of range", db.insert, db, L2_PORT, {[12] = 256})
  refused("out of range", db.insert, db, L2_PORT, {[2] = 65536})
  refused("at most 64 bytes", db.insert, db, QINQ_MATCH_SEG, {[12] = string.rep("y", 65)})
  refused("at most 512 bytes", db.insert, db, CTRL_VID_BITMAP, {[3] = string.rep("\0", 513)})
  refused("key exists", db.insert, db, QINQ_IF_SPEC, {[1] = 3, [2] = 100})
  refused("must be a table", db.rows, db, QINQ_IF_SPEC, 5)
  refused("count out of range", db.fail_call, db, -1)
  eq(db:count(QINQ_IF_SPEC), 1, "nothing inserted by refused calls")
  eq(db:count(L2_PORT) + db:count(QINQ_MATCH_SEG) + db:count(CTRL_VID_BITMAP), 0, "other tables untouched")
  eq(db:rows(QINQ_IF_SPEC)[1][3], 5, "stored value unchanged")
  refused("option vr", cfgdb.open, {vr = "x"})
  db:close()
  refused("database is closed", db.rows, db, QINQ_IF_SPEC)
  refused("database is closed", db.insert, db, QINQ_IF_SPEC, {})
  refused("database is closed", db.mem, db)
  db:close() -- closing twice is harmless
end

-- Memory figures, journal and fault arming of a fresh object.
group = "object"
do
  local db = cfgdb.open(nil, {vr = 3, lr = 1, cdb = 2})
  local m = db:mem()
  for _, k in ipairs({"live", "live_bytes", "peak", "total", "asserts"}) do
    eq(math.type(m[k]), "integer", "mem()." .. k)
  end
  eq(m.live, 0, "nothing live")
  db:insert(IF_INFO, {[2] = 1})
  eq(#db:journal(), 0, "set-up writes are not journaled")
  db:fail_alloc(1); db:fail_alloc(0); db:fail_call(2); db:fail_call(0)
  db:bind(); cfgdb.unbind()
  db:bind(); db:close() -- closing a bound database unbinds it
  cfgdb.unbind()
end

-- A file database keeps its records and is an ordinary SQLite file.
group = "file"
do
  local path = os.tmpname()
  os.remove(path)
  local db = cfgdb.open(path, {vr = 3})
  db:insert(IF_INFO, {[2] = 77, [3] = 3, [12] = 7})
  db:close()
  db = cfgdb.open(path)
  eq(db:count(IF_INFO, {[2] = 77}), 1, "record kept across reopen")
  db:close()
  local cli = io.popen("command -v sqlite3 2>/dev/null"):read("l")
  if cli then
    local out = io.popen(("sqlite3 %q 'SELECT f12_main_ifindex FROM IF_INFO WHERE f2_ifindex = 77'"):format(path)):read("a")
    eq(out, "7\n", "the sqlite3 shell reads the table by its readable names")
  end
  for _, suffix in ipairs({"", "-wal", "-shm"}) do os.remove(path .. suffix) end
end

-- A database left to the collector is closed by it.
do
  local db = cfgdb.open()
  db:insert(IF_INFO, {[2] = 1})
  db = nil
  collectgarbage(); collectgarbage()
end

if failures > 0 then
  error(failures .. " check(s) failed")
end
print("test_cfgdb: all checks passed")
