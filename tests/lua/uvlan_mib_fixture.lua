-- Shared by the user-VLAN query tests: a database with helpers that store user-VLAN rows,
-- a pager that walks page by page, and a brute-force model of the walk order.
local cfgdb = require "cfgdb"
require "libvlanluaext"
local lib = libvlanluaext

local M = {lib = lib}

M.T_IF_INFO, M.T_DOT1Q, M.T_QINQ = 0x083606C0, 0x08361117, 0x08361118
M.T_DESC, M.T_ANYOTHER = 0x0836111B, 0x0836117F

local Cfg = {}
Cfg.__index = Cfg

function M.open(vr)
  local db = cfgdb.open()
  db:bind()
  return setmetatable({db = db, vr = vr or 1, seg = 0, dot1q = {}, qinq = {}, qinqIf = {}, anyOther = {}}, Cfg)
end

function Cfg:addDot1q(ifIndex, first, last, vr)
  self.db:insert(M.T_DOT1Q, {[1] = ifIndex, [4] = vr or self.vr, [5] = first, [6] = last})
  if (vr or self.vr) == self.vr then self.dot1q[#self.dot1q + 1] = {ifIndex, first, last} end
end

-- A QinQ interface of the walk: listed in the interface table with kind 11.
function Cfg:addQinqIf(ifIndex, vr)
  self.db:insert(M.T_IF_INFO, {[2] = ifIndex, [3] = vr or self.vr, [4] = 11})
  if (vr or self.vr) == self.vr then self.qinqIf[ifIndex] = true end
end

function Cfg:addQinq(ifIndex, peBgn, peEnd, ceBgn, ceEnd, vr)
  self.seg = self.seg + 1
  self.db:insert(M.T_QINQ, {[1] = ifIndex, [2] = self.seg, [4] = vr or self.vr, [5] = ceBgn, [6] = ceEnd,
                            [7] = peBgn, [8] = peEnd})
  if (vr or self.vr) == self.vr then self.qinq[#self.qinq + 1] = {ifIndex, peBgn, peEnd, ceBgn, ceEnd} end
end

function Cfg:addAnyOther(ifIndex, vr)
  self.db:insert(M.T_ANYOTHER, {[1] = ifIndex, [5] = vr or self.vr})
  if (vr or self.vr) == self.vr then self.anyOther[#self.anyOther + 1] = ifIndex end
end

function Cfg:addDesc(ifIndex, pe, ce, text)
  self.db:insert(M.T_DESC, {[1] = ifIndex, [2] = pe, [3] = ce, [4] = text, [5] = self.vr})
end

-- One call: code, entries as "if:pe:ce" strings, the raw result table and the message.
function Cfg:page(ifIndex, pe, ce, num, qtype)
  local code, tbl, msg = lib.VLAN_spt_UserVlanMibQuery(ifIndex, pe, ce, self.vr, num, qtype or 0)
  local keys = {}
  for i, e in ipairs(tbl or {}) do keys[i] = string.format("%d:%d:%d", e.ifIndex, e.peVlan, e.ceVlan) end
  return code, keys, tbl, msg
end

-- Walks from the beginning with pages of `size`, each resuming from the last entry of the one before.
function Cfg:walk(size, qtype)
  local all, ifIndex, pe, ce, calls = {}, 0, 0, 0, 0
  repeat
    local code, keys, tbl = self:page(ifIndex, pe, ce, size, qtype)
    assert(code == 0, "page failed")
    calls = calls + 1
    for _, k in ipairs(keys) do all[#all + 1] = k end
    local last = tbl[#tbl]
    if last then ifIndex, pe, ce = last.ifIndex, last.peVlan, last.ceVlan end
  until #keys < size or calls > 100000
  return all
end

-- The order the walk must produce, by brute force over the stored rows of the VR.
function Cfg:model()
  local ents = {}
  for _, r in ipairs(self.dot1q) do
    for v = r[2], r[3] do ents[#ents + 1] = {r[1], 0, v} end
  end
  for _, r in ipairs(self.qinq) do
    if self.qinqIf[r[1]] then
      for c = r[4], r[5] do for p = r[2], r[3] do ents[#ents + 1] = {r[1], p, c} end end
    end
  end
  table.sort(ents, function(a, b)
    if a[1] ~= b[1] then return a[1] < b[1] end
    if a[3] ~= b[3] then return a[3] < b[3] end
    return a[2] < b[2]
  end)
  local keys = {}
  for i, e in ipairs(ents) do keys[i] = string.format("%d:%d:%d", e[1], e[2], e[3]) end
  return keys
end

function Cfg:close()
  self.db:close()
end

-- Minimal test runner: named cases, failures counted, non-zero exit on any failure.
local cases = {}
function M.case(name, fn) cases[#cases + 1] = {name, fn} end
function M.run()
  local failed = 0
  for _, c in ipairs(cases) do
    local ok, err = pcall(c[2])
    if ok then print("ok   " .. c[1]) else failed = failed + 1; print("FAIL " .. c[1] .. ": " .. tostring(err)) end
  end
  print(string.format("%d of %d failed", failed, #cases))
  os.exit(failed == 0 and 0 or 1)
end

function M.eq(got, want, what)
  if got ~= want then error(string.format("%s: got %s, want %s", what or "value", tostring(got), tostring(want)), 2) end
end

function M.list(got, want, what)
  local g, w = table.concat(got, " "), table.concat(want, " ")
  if g ~= w then error(string.format("%s:\n got  %s\n want %s", what or "entries", g, w), 2) end
end

return M
