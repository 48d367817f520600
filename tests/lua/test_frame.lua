-- The library as a script sees it: what require registers, the command-word check with its
-- exact messages, and the answers of functions called without a database object.
local t = require "testlib"

local lib = require "libvlanluaext"

local REGISTERED = {
  "VLAN_spt_CheckL2SuppExist", "VLAN_spt_CheckPwSuppExist", "VLAN_spt_GetMainifBySubif",
  "VLAN_spt_Merg2BitMap", "VLAN_spt_And2BitMap", "VLAN_spt_GetFirstFreeValue",
  "VLAN_spt_CrtCtrlVidBitMap", "VLAN_spt_UpdataCtrlVidBitMap", "VLAN_spt_QinQMatchMerge",
  "VLAN_spt_Dot1QMatchMerge", "VLAN_spt_UserVlanMibQuery", "VLAN_spt_UserVlanDot1qExist",
  "VLAN_spt_UserVlanQinqExist", "VLAN_spt_SetUserVlanQinQSvc", "VLAN_spt_CmdParaCheck",
  "VLAN_spt_GetNextQinQMibQuery", "VLAN_spt_UpdataQinQIfSpec", "VLAN_spt_CheckVlanUsdByPort",
}

local function noDbText(cname)
  return "\n" .. cname .. ":call ECM_CAPI_GetObjExt ERR\n\0"
end

-- What each function answers when the script state has no database object (the bitmap
-- functions use none and answer an empty call as rejected arguments). The real functions
-- answer a call without arguments the same way, so this holds for every one of them.
local NO_DB = {
  VLAN_spt_CheckL2SuppExist = { 1 },
  VLAN_spt_CheckPwSuppExist = { 1 },
  VLAN_spt_GetMainifBySubif = { 1 },
  VLAN_spt_Merg2BitMap = { 1 },
  VLAN_spt_And2BitMap = { 1 },
  VLAN_spt_GetFirstFreeValue = { 1 },
  VLAN_spt_CrtCtrlVidBitMap = { 1 },
  VLAN_spt_UpdataCtrlVidBitMap = { 1 },
  VLAN_spt_QinQMatchMerge = { 1 },
  VLAN_spt_Dot1QMatchMerge = { 1 },
  VLAN_spt_UpdataQinQIfSpec = { 1 },
  VLAN_spt_CheckVlanUsdByPort = { 1 },
  VLAN_spt_UserVlanDot1qExist = { 1, noDbText("VLANLUA_Spt_UserVlanDot1qExist") },
  VLAN_spt_UserVlanQinqExist = { 1, noDbText("VLANLUA_Spt_UserVlanQinqExist") },
  VLAN_spt_UserVlanMibQuery = { n = 3, 1, nil, noDbText("VLANLUA_Spt_UserVlanMibQuery") },
  VLAN_spt_SetUserVlanQinQSvc = { n = 5, 1, nil, noDbText("VLANLUA_Spt_SetUserVlanQinQSvc"), nil, nil },
  VLAN_spt_GetNextQinQMibQuery = { n = 2, 1, nil },
}

-- Functions still answered by their stand-in. A stand-in ignores its arguments, so these are
-- also called with arguments a real function would accept. Remove a name when it becomes real.
local STAND_INS = {
  "VLAN_spt_Merg2BitMap", "VLAN_spt_And2BitMap", "VLAN_spt_GetFirstFreeValue",
  "VLAN_spt_CrtCtrlVidBitMap", "VLAN_spt_UpdataCtrlVidBitMap", "VLAN_spt_QinQMatchMerge",
  "VLAN_spt_Dot1QMatchMerge", "VLAN_spt_UserVlanMibQuery", "VLAN_spt_UserVlanDot1qExist",
  "VLAN_spt_UserVlanQinqExist", "VLAN_spt_SetUserVlanQinQSvc", "VLAN_spt_GetNextQinQMibQuery",
  "VLAN_spt_UpdataQinQIfSpec", "VLAN_spt_CheckVlanUsdByPort",
}

local function check(...)
  return lib.VLAN_spt_CmdParaCheck(...)
end

t.case("require returns the library table and sets the global of the same name", function()
  t.eq(type(lib), "table", "type of require's result")
  t.truthy(rawequal(_G.libvlanluaext, lib), "global libvlanluaext is require's table")
  t.truthy(rawequal(require "libvlanluaext", lib), "a second require gives the same table")
end)

t.case("exactly the eighteen script functions are registered", function()
  local want = {}
  for _, name in ipairs(REGISTERED) do
    want[name] = true
  end
  local count = 0
  for name, fn in pairs(lib) do
    count = count + 1
    t.truthy(want[name], "unexpected entry " .. tostring(name))
    t.eq(type(fn), "function", name)
  end
  t.eq(count, 18, "registered names")
  t.eq(lib.VLAN_spt_Unknown, nil, "lookup of another name")
  t.eq(lib.VLANLUA_Spt_CmdParaCheck, nil, "C name is not a script name")
end)

t.case("a command word matches every keyword it is a prefix of", function()
  t.returns({ n = 2, 0, nil }, "dis/display", check, "dis", "display")
  t.returns({ n = 2, 0, nil }, "display/display", check, "display", "display")
  t.returns({ n = 2, 0, nil }, "empty/display", check, "", "display")
  t.returns({ n = 2, 0, nil }, "empty/empty", check, "", "")
end)

t.case("a longer, different or differently cased word does not match", function()
  t.returns({ n = 2, 1, nil }, "display/dis", check, "display", "dis")
  t.returns({ n = 2, 1, nil }, "dix/display", check, "dix", "display")
  t.returns({ n = 2, 1, nil }, "D/display", check, "D", "display")
  t.returns({ n = 2, 1, nil }, "x/empty", check, "x", "")
  t.returns({ n = 2, 1, nil }, "last byte differs", check, "displaz", "display")
end)

t.case("the wrong argument count is reported with the count, text pushed with its zero", function()
  local r = t.pack(check("a", "b", "c"))
  t.eq(r.n, 2, "result count")
  t.eq(r[1], 1, "code")
  t.eq(#r[2], 56, "pushed length for three strings")
  t.eq(r[2], "\nVLANLUA_Spt_CmdParaCheck:uiParamNum ERR, uiParamNum=3\n\0", "text")
  t.returns({ 1, "\nVLANLUA_Spt_CmdParaCheck:uiParamNum ERR, uiParamNum=0\n\0" }, "no argument", check)
  t.returns({ 1, "\nVLANLUA_Spt_CmdParaCheck:uiParamNum ERR, uiParamNum=1\n\0" }, "one argument", check, "dis")
end)

t.case("a number or other non-string is rejected at either position, even if convertible", function()
  local want = { 1, "\nVLANLUA_Spt_CmdParaCheck:PARA  not string\n\0" }
  local r = t.pack(check(5, "display"))
  t.eq(#r[2], 44, "pushed length for a number first")
  t.same(r, want, "number first")
  t.returns(want, "number second", check, "5", 5)
  t.returns(want, "boolean", check, true, "display")
  t.returns(want, "nil second", check, "dis", nil)
  t.returns(want, "table first", check, {}, "display")
end)

t.case("a message is only written on the call that fails", function()
  check("a", "b", "c")
  t.returns({ n = 2, 0, nil }, "next call starts clean", check, "dis", "display")
  t.returns({ 1, "\nVLANLUA_Spt_CmdParaCheck:PARA  not string\n\0" }, "no text carried over", check, 1, 2)
end)

t.case("every function answers its no-database variant when called with nothing", function()
  for name, want in pairs(NO_DB) do
    t.returns(want, name, lib[name])
  end
end)

t.case("stand-ins answer the no-database variant whatever the arguments", function()
  local args = { { 1, 2 }, { 3, 4 } }
  for _, name in ipairs(STAND_INS) do
    t.returns(NO_DB[name], name .. " with tables", lib[name], table.unpack(args))
    t.returns(NO_DB[name], name .. " with numbers", lib[name], 1, 2, 3, 4, true)
  end
end)

t.finish()
