-- Shared by the user-VLAN script tests: the call of VLAN_spt_SetUserVlanQinQSvc with its five
-- results and the rows it stores; a configuration builder, pager and brute-force walk model for
-- the user-VLAN queries.
local t = require "testlib"
local uv = require "libvlanluaext"
local unpack = table.unpack or unpack

local M = {}

M.SEG, M.BASE, M.VPN, M.SEGIDX = t.T.UVLAN_QINQ_SEG, t.T.UVLAN_BASE_SVC, t.T.UVLAN_VPN_SVC, t.T.SEG_INDEX
M.uv, M.lib = uv, uv

-- Base-service fields by service type, and VPN-service fields by service type.
M.BASE_FIELD = {[1] = 7, [2] = 8, [3] = 9, [4] = 10, [5] = 11, [6] = 12, [7] = 13, [16] = 6}
M.VPN_FIELD = {[8] = 6, [9] = 7, [10] = 8, [11] = 9, [12] = 10, [13] = 11, [14] = 12, [15] = 13}

-- An empty bound database (the previous one closed).
function M.open()
  return t.fresh({})
end

-- The first script table of a request: interface, PE and CE ranges, then the owner key.
function M.arg1(ifindex, peb, pee, ceb, cee, key)
  key = key or {}
  return {ifindex, peb, pee, ceb, cee, key.vr or 0, key.a or 11, key.b or 22, key.up or 33, key.name or "svc"}
end

-- Returns a record of the five results; text without its terminating zero.
function M.call(t1, t2)
  local res = t.pack(uv.VLAN_spt_SetUserVlanQinQSvc(t1, t2))
  assert(res.n == 5, "five results expected, got " .. res.n)
  local code, chg, text, segchg, adddel = unpack(res, 1, 5)
  return {code = code, chg = chg, text = text and text:gsub("%z$", ""), segchg = segchg, adddel = adddel}
end

-- set(ifindex, peb, pee, ceb, cee, {type, value, ...}) through the script function.
function M.set(ifindex, peb, pee, ceb, cee, svcs, key)
  return M.call(M.arg1(ifindex, peb, pee, ceb, cee, key), svcs or {})
end

-- The stored rows of an interface, each {peb, pee, ceb, cee, idx, svc = {[type] = non-zero value}}.
function M.rows(db, ifindex)
  local by_index = {}
  for _, tbl in ipairs({M.BASE, M.VPN}) do
    by_index[tbl] = {}
    for _, s in ipairs(db:rows(tbl, {[1] = ifindex})) do by_index[tbl][s[2]] = s end
  end
  local out = {}
  for _, r in ipairs(db:rows(M.SEG, {ifIndex = ifindex})) do
    local row = {peb = r[7], pee = r[8], ceb = r[5], cee = r[6], idx = r[2], keya = r[9], keyb = r[3], svc = {}}
    for tbl, map in pairs({[M.BASE] = M.BASE_FIELD, [M.VPN] = M.VPN_FIELD}) do
      local s = by_index[tbl][r[2]]
      if s then
        for ty, f in pairs(map) do
          if s[f] ~= 0 then row.svc[ty] = s[f] end
        end
      end
    end
    out[#out + 1] = row
  end
  table.sort(out, function(x, y) if x.peb ~= y.peb then return x.peb < y.peb end return x.ceb < y.ceb end)
  return out
end

-- A random VLAN range within 1..side: mostly short, sometimes wider.
function M.random_range(side)
  local a = math.random(1, side)
  local b = math.min(side, a + math.random(0, math.random(0, 1) == 0 and 3 or 12))
  return a, b
end

-- Random service pairs of the given types (values 0 to 2, so services are cleared too), or none;
-- a removal adds a present type-16 entry (as 255 or 16).
function M.random_services(types, removal)
  local t = {}
  if math.random() >= 0.15 then
    for _ = 1, math.random(1, 3) do
      t[#t + 1] = types[math.random(#types)]
      t[#t + 1] = math.random(0, 2)
    end
  end
  if removal then
    t[#t + 1] = math.random(0, 1) == 0 and 255 or 16
    t[#t + 1] = math.random(1, 9)
  end
  return t
end

function M.svcstr(svc)
  local keys = {}
  for k in pairs(svc) do keys[#keys + 1] = k end
  table.sort(keys)
  local parts = {}
  for _, k in ipairs(keys) do parts[#parts + 1] = k .. "=" .. svc[k] end
  return "{" .. table.concat(parts, ",") .. "}"
end

function M.rowstr(r)
  return string.format("PE[%d-%d]xCE[%d-%d] %s", r.peb, r.pee, r.ceb, r.cee, M.svcstr(r.svc))
end

-- Journal entries of the three user-VLAN tables only (the index allocator's writes left out).
function M.uvjournal(db)
  local out = {}
  for _, e in ipairs(db:journal()) do
    if e.table == M.SEG or e.table == M.BASE or e.table == M.VPN then out[#out + 1] = e end
  end
  return out
end

function M.fieldset(e)
  local f = {}
  for k in pairs(e.fields) do f[#f + 1] = k end
  table.sort(f)
  return table.concat(f, ",")
end

-- ---- user-VLAN queries ----

M.T_IF_INFO, M.T_DOT1Q, M.T_QINQ = t.T.IF_INFO, t.T.UVLAN_DOT1Q, t.T.UVLAN_QINQ_SEG
M.T_DESC, M.T_ANYOTHER = t.T.UVLAN_DESC, t.T.UVLAN_ANYOTHER

local Cfg = {}
Cfg.__index = Cfg

function M.cfg(vr)
  local db = M.open()
  return setmetatable({db = db, vr = vr or 1, seg = 0, dot1q = {}, qinq = {}, qinqIf = {}, anyOther = {}}, Cfg)
end

function Cfg:addDot1q(ifIndex, first, last, vr)
  self.db:insert(M.T_DOT1Q, {ifIndex = ifIndex, vrId = vr or self.vr, vlanBegin = first, vlanEnd = last})
  if (vr or self.vr) == self.vr then self.dot1q[#self.dot1q + 1] = {ifIndex, first, last} end
end

-- A QinQ interface of the walk: listed in the interface table with kind 11.
function Cfg:addQinqIf(ifIndex, vr)
  self.db:insert(M.T_IF_INFO, {ifIndex = ifIndex, vrId = vr or self.vr, kind = 11})
  if (vr or self.vr) == self.vr then self.qinqIf[ifIndex] = true end
end

function Cfg:addQinq(ifIndex, peBgn, peEnd, ceBgn, ceEnd, vr)
  self.seg = self.seg + 1
  self.db:insert(M.T_QINQ, {ifIndex = ifIndex, segIndex = self.seg, vrId = vr or self.vr, ceBegin = ceBgn, ceEnd = ceEnd,
                            peBegin = peBgn, peEnd = peEnd})
  if (vr or self.vr) == self.vr then self.qinq[#self.qinq + 1] = {ifIndex, peBgn, peEnd, ceBgn, ceEnd} end
end

function Cfg:addAnyOther(ifIndex, vr)
  self.db:insert(M.T_ANYOTHER, {ifIndex = ifIndex, vrId = vr or self.vr})
  if (vr or self.vr) == self.vr then self.anyOther[#self.anyOther + 1] = ifIndex end
end

function Cfg:addDesc(ifIndex, pe, ce, text)
  self.db:insert(M.T_DESC, {ifIndex = ifIndex, peVlan = pe, ceVlan = ce, description = text, vrId = self.vr})
end

-- One call: code, entries as "if:pe:ce" strings, the raw result table and the message.
function Cfg:page(ifIndex, pe, ce, num, qtype)
  local code, tbl, msg = uv.VLAN_spt_UserVlanMibQuery(ifIndex, pe, ce, self.vr, num, qtype or 0)
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

function Cfg:close() end

return M
