-- The library as a script sees it: what require registers, the command-word check with its
-- exact messages, and the answers of functions called without a database object.
local t = require "testlib"
local lib = require "libvlanluaext"

local function noDbText(cname)
  return "\n" .. cname .. ":call ECM_CAPI_GetObjExt ERR\n\0"
end

-- Every registered name with its answer when the script state has no database object (the
-- bitmap functions use none and answer an empty call as rejected arguments). The real
-- functions answer a call without arguments the same way.
local NO_DB = {
  VLAN_spt_CheckL2SuppExist = { 1 }, VLAN_spt_CheckPwSuppExist = { 1 }, VLAN_spt_GetMainifBySubif = { 1 },
  VLAN_spt_Merg2BitMap = { 1 }, VLAN_spt_And2BitMap = { 1 }, VLAN_spt_GetFirstFreeValue = { 1 },
  VLAN_spt_CrtCtrlVidBitMap = { 1 }, VLAN_spt_UpdataCtrlVidBitMap = { 1 }, VLAN_spt_QinQMatchMerge = { 1 },
  VLAN_spt_Dot1QMatchMerge = { 1 }, VLAN_spt_UpdataQinQIfSpec = { 1 }, VLAN_spt_CheckVlanUsdByPort = { 1 },
  VLAN_spt_UserVlanDot1qExist = { 1, noDbText("VLANLUA_Spt_UserVlanDot1qExist") },
  VLAN_spt_UserVlanQinqExist = { 1, noDbText("VLANLUA_Spt_UserVlanQinqExist") },
  VLAN_spt_UserVlanMibQuery = { n = 3, 1, nil, noDbText("VLANLUA_Spt_UserVlanMibQuery") },
  VLAN_spt_SetUserVlanQinQSvc = { n = 5, 1, nil, noDbText("VLANLUA_Spt_SetUserVlanQinQSvc"), nil, nil },
  VLAN_spt_GetNextQinQMibQuery = { n = 2, 1, nil },
  VLAN_spt_CmdParaCheck = { 1, "\nVLANLUA_Spt_CmdParaCheck:uiParamNum ERR, uiParamNum=0\n\0" },
}

local function check(want, ...)
  local args = t.pack(...)
  t.same(t.pack(lib.VLAN_spt_CmdParaCheck(...)), want, "arguments " .. tostring(args[1]) .. ", " .. tostring(args[2]))
end

t.case("exactly the eighteen script functions are registered", function()
  local count = 0
  for name, fn in pairs(lib) do
    count = count + 1
    t.eq(NO_DB[name] ~= nil and type(fn), "function", "registered entry " .. tostring(name))
  end
  t.eq(count, 18, "registered names")
  t.eq(rawequal(_G.libvlanluaext, lib), true, "the global is require's table")
  t.eq(lib.VLANLUA_Spt_CmdParaCheck, nil, "the C name is not a script name")
end)

t.case("a word matches exactly the keywords it is a prefix of, byte for byte", function()
  for _, c in ipairs({ { "dis", "display" }, { "display", "display" }, { "", "display" }, { "", "" } }) do
    check({ n = 2, 0, nil }, c[1], c[2])
  end
  for _, c in ipairs({ { "display", "dis" }, { "dix", "display" }, { "D", "display" }, { "x", "" },
                       { "displaz", "display" } }) do
    check({ n = 2, 1, nil }, c[1], c[2])
  end
end)

t.case("a wrong count or a non-string at either position, even a convertible number, is refused", function()
  check({ 1, "\nVLANLUA_Spt_CmdParaCheck:uiParamNum ERR, uiParamNum=1\n\0" }, "dis")
  local want = { 1, "\nVLANLUA_Spt_CmdParaCheck:PARA  not string\n\0" }
  check(want, "5", 5)
  check(want, true, "display")
  check(want, "dis", nil)
  check({ n = 2, 0, nil }, "dis", "display")   -- no text is carried over to the next call
end)

t.case("every function answers its no-database variant when called with nothing", function()
  for name, want in pairs(NO_DB) do
    t.same(t.pack(lib[name]()), want, name)
  end
end)

t.finish()
