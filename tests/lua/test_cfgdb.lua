-- The cfgdb binding the other script tests stand on: bad input is refused with a clear error that
-- changes nothing, transactions and dry runs, the trace of what the calls asked of the database
-- (that a trace replayed on a copy leaves the copy as the calls left the database is checked in
-- tests/module/test_trace_replay.cpp). Records, their order, counts, deletes and a file
-- reopened are pinned by the manual's examples (test_manual.lua).
local t = require "testlib"
local cfgdb = require "cfgdb"
local unpack = table.unpack or unpack

local L2_PORT, CTRL_VID_BITMAP = t.T.L2_PORT, t.T.CTRL_VID_BITMAP
local QINQ_MATCH_SEG, QINQ_IF_SPEC = t.T.QINQ_MATCH_SEG, t.T.QINQ_IF_SPEC

t.case("bad input raises an error naming the fault and changes nothing", function()
  local db = cfgdb.open()
  db:insert(QINQ_IF_SPEC, { vrId = 3, mainIfIndex = 100, qinqNum = 5 })
  local BAD = {
    { "unknown table", db.insert, db, 0x12345678, {} },
    { "has no field 7", db.insert, db, QINQ_IF_SPEC, { [1] = 3, [2] = 101, [7] = 1 } },
    { "has no field", db.rows, db, QINQ_IF_SPEC, { vr = 3 } },
    { "wants an integer", db.insert, db, QINQ_IF_SPEC, { [1] = 3, [2] = "101" } },
    { "wants a string", db.insert, db, CTRL_VID_BITMAP, { [1] = 1, [2] = 1, [3] = 6 } },
    { "out of range", db.insert, db, QINQ_IF_SPEC, { [1] = 3, [2] = 0x100000000 } },
    { "out of range", db.insert, db, L2_PORT, { [12] = 256 } },
    { "at most 64 bytes", db.insert, db, QINQ_MATCH_SEG, { [12] = string.rep("y", 65) } },
    { "at most 512 bytes", db.insert, db, CTRL_VID_BITMAP, { [3] = string.rep("\0", 513) } },
    { "key exists", db.insert, db, QINQ_IF_SPEC, { [1] = 3, [2] = 100 } },
    { "must be a table", db.rows, db, QINQ_IF_SPEC, 5 },
    { "count out of range", db.fail_call, db, -1 },
    { "option vr", cfgdb.open, { vr = "x" } },
  }
  for _, b in ipairs(BAD) do
    local ok, err = pcall(unpack(b, 2))
    t.check(not ok and tostring(err):find(b[1], 1, true), "want an error with %q, got %s", b[1], tostring(err))
  end
  t.same(t.pack(db:count(QINQ_IF_SPEC), db:rows(QINQ_IF_SPEC)[1][3], db:count(L2_PORT)), { 1, 5, 0 }, "unchanged")
  t.eq(#db:journal(), 0, "set-up writes are not journaled")
  db:close()
  t.check(not pcall(db.rows, db, QINQ_IF_SPEC), "a closed database refuses reads")
  db:close()
end)

t.case("db:transaction commits fn's calls as one unit or none; db:dry_run returns their journal, keeps nothing", function()
  local uv = require "libvlanluaext"
  local SEG = t.T.UVLAN_QINQ_SEG
  local path = os.tmpname()
  os.remove(path)
  local db = cfgdb.open(path, { busy_timeout = 1000 })
  db:bind()
  local function set(peb, pee, v)
    return (uv.VLAN_spt_SetUserVlanQinQSvc({ 5, peb, pee, 1, 4, 0, 1, 2, 3, "k" }, { 1, v }))
  end
  local function shape(d)
    local out = {}
    for _, r in ipairs(d:rows(SEG)) do out[#out + 1] = r[7] .. "-" .. r[8] end
    return table.concat(out, " ")
  end
  local got = t.pack(db:transaction(function(a, b) set(1, 4, 1); set(5, 8, 2); return a + b, "x" end, 2, 3))
  t.same(got, { 5, "x" }, "fn's results")
  local reader = cfgdb.open(path)
  t.eq(shape(reader), "1-4 5-8", "both calls committed, seen by another connection")
  db:journal()
  local ok, err = pcall(db.transaction, db, function() set(1, 8, 1); error("stop here") end)
  t.check(not ok and tostring(err):find("stop here", 1, true), "the error is raised again, got %s", tostring(err))
  t.same(t.pack(shape(reader), shape(db), #db:journal()), { "1-4 5-8", "1-4 5-8", 0 }, "rolled back, not journaled")
  local function lines(entries)
    local out = {}
    for _, e in ipairs(entries) do
      local f = {}
      for k, v in pairs(e.fields) do f[#f + 1] = k .. "=" .. tostring(v) end
      table.sort(f)
      out[#out + 1] = e.op .. " " .. e.table .. " " .. e.flag .. " " .. table.concat(f, ",")
    end
    return out
  end
  set(9, 9, 3)
  local function merge() set(1, 8, 1); set(9, 9, 1) end
  local dry = lines(db:dry_run(merge))
  t.same(t.pack(shape(reader), #db:journal()), { "1-4 5-8 9-9", 3 }, "the file is unchanged; the entries made before stay")
  merge()
  t.check(#dry > 0, "the dry run saw writes")
  t.lines(lines(db:journal()), dry, "a dry run answers the journal of the real run")
  t.eq(shape(reader), "1-9", "the real run")
  t.check(not pcall(db.dry_run, db, function() error("x") end), "an error inside a dry run is raised again")
  db:transaction(function()
    set(20, 20, 1)
    t.check(not pcall(db.transaction, db, function() set(21, 21, 1); error("inner") end), "the inner error is raised")
    set(22, 22, 1)
  end)
  t.eq(shape(reader), "1-9 20-20 22-22", "a nested unit that raised took back its own writes, and only those")
  reader:close()
  db:close()
  for _, suffix in ipairs({ "", "-wal", "-shm" }) do os.remove(path .. suffix) end
end)

t.case("db:trace: one record per call under its name; the statements of reading calls write nothing", function()
  local uv = require "libvlanluaext"
  local db = cfgdb.open({ vr = 7 })
  db:bind()
  db:insert("IF_INFO", { ifIndex = 0x1001, vrId = 7, kind = 1, mainIfIndex = 0x1000 })
  db:insert("IF_INFO", { ifIndex = 0x2001, vrId = 7, kind = 11 })
  db:insert("QINQ_MATCH_SEG", { ifIndex = 0x1001, segIndex = 1, peBegin = 1, peEnd = 3, ceBegin = 5, ceEnd = 6, vrId = 7 })
  db:insert("UVLAN_DOT1Q", { ifIndex = 0x2001, vrId = 7, vlanBegin = 10, vlanEnd = 12 })
  db:insert("UVLAN_QINQ_SEG", { ifIndex = 0x2001, segIndex = 2, vrId = 7, peBegin = 100, peEnd = 101, ceBegin = 11, ceEnd = 11 })
  db:insert("UVLAN_DESC", { ifIndex = 0x2001, vrId = 7, peVlan = 100, ceVlan = 11, description = "d" })
  db:insert("L2_PORT", { ifIndex = 0x101, pvid = 100, vrId = 7 })
  db:insert("PWSUP_CFG", { vrId = 7, ifIndex = 0x1001, supMode = 2 })
  local reads = {   -- the names the calls are made by, as scripts call the functions
    { "VLAN_spt_GetMainifBySubif", function() uv.VLAN_spt_GetMainifBySubif(0x1001) end },
    { "VLAN_spt_CheckPwSuppExist", function() uv.VLAN_spt_CheckPwSuppExist(0x1001) end },
    { "VLAN_spt_CheckVlanUsdByPort", function() uv.VLAN_spt_CheckVlanUsdByPort(300, 7, 1, 1) end },
    { "VLAN_spt_GetNextQinQMibQuery", function() uv.VLAN_spt_GetNextQinQMibQuery(0, 0, 0, 7, 10) end },
    { "VLAN_spt_UserVlanDot1qExist", function() uv.VLAN_spt_UserVlanDot1qExist(0x2001, 11, 7) end },
    { "VLAN_spt_UserVlanQinqExist", function() uv.VLAN_spt_UserVlanQinqExist(0x2001, 100, 11, 7) end },
    { "VLAN_spt_UserVlanMibQuery", function() uv.VLAN_spt_UserVlanMibQuery(0, 0, 0, 7, 10, 1) end },
  }
  db:trace(true)
  for _, r in ipairs(reads) do r[2]() end
  db:fail_call(2)
  uv.VLAN_spt_GetMainifBySubif(0x1001)
  uv.VLAN_spt_CrtCtrlVidBitMap(42, 100, 7)
  local calls = db:trace(false)
  t.eq(#calls, #reads + 2, "one record per call")
  local READ_OPS = { cdb_id = true, lr_vr_id = true, select = true, count = true, exist = true, commit = true }
  for i, r in ipairs(reads) do
    t.eq(calls[i].name, r[1], "the call's name")
    local rows = 0
    for _, op in ipairs(calls[i].ops) do
      t.check(READ_OPS[op.op], "%s: a reading call made a %s", r[1], op.op)
      for _, st in ipairs(op.statements) do
        t.check(st.sql:match("^SELECT ") or st.sql == "BEGIN" or st.sql == "COMMIT", "%s ran %s", r[1], st.sql)
        rows = rows + st.rows
      end
    end
    t.check(rows > 0, "%s read rows", r[1])
  end
  local failed = calls[#reads + 1].ops[2]
  t.same(t.pack(failed.op, failed.table, failed.result, #failed.statements), { "select", "IF_INFO", 0x10B, 0 },
    "a failed operation is recorded with its code and ran nothing")
  local write = calls[#reads + 2].ops
  t.same(t.pack(write[1].statements[1].sql, write[#write].op, #db:trace()), { "BEGIN", "commit", 0 },
    "a call's unit begins in its first operation and ends in an operation of its own; the recording was taken")
  db:close()
end)

t.finish()
