-- Loads the VLAN extension module and shows the command-word check, which needs no database.
local lib = require "libvlanluaext"

print("libvlanluaext loaded; the global of the same name is the table require returned: "
  .. tostring(rawequal(libvlanluaext, lib)))

local names = {}
for name in pairs(lib) do
  names[#names + 1] = name
end
table.sort(names)
print(#names .. " script functions:")
for _, name in ipairs(names) do
  print("  " .. name)
end

-- Shows a message text readably: its newlines as \n and the terminating zero as \0.
local function readable(v)
  if type(v) ~= "string" then
    return tostring(v)
  end
  return '"' .. v:gsub("\n", "\\n"):gsub("%z", "\\0") .. '" (' .. #v .. " bytes)"
end

local function show(...)
  local r = table.pack(...)
  local parts = {}
  for i = 1, r.n do
    parts[i] = readable(r[i])
  end
  return table.concat(parts, ", ")
end

print("\nVLAN_spt_CmdParaCheck(word, keyword): 0 when the word abbreviates the keyword")
for _, case in ipairs({ { "dis", "display" }, { "display", "display" }, { "", "display" },
                        { "display", "dis" }, { "dix", "display" }, { "D", "display" } }) do
  print(string.format("  %-10s %-10s -> %s", string.format("%q", case[1]), string.format("%q", case[2]),
    show(lib.VLAN_spt_CmdParaCheck(case[1], case[2]))))
end
print("  three arguments       -> " .. show(lib.VLAN_spt_CmdParaCheck("a", "b", "c")))
print("  a number first        -> " .. show(lib.VLAN_spt_CmdParaCheck(5, "display")))

print("\nWithout a database object the database functions refuse:")
print("  VLAN_spt_GetMainifBySubif(4097)   -> " .. show(lib.VLAN_spt_GetMainifBySubif(4097)))
print("  VLAN_spt_UserVlanDot1qExist()     -> " .. show(lib.VLAN_spt_UserVlanDot1qExist()))
