-- Paging is seamless: on seeded random configurations, walking with pages of 1, 3 and 500
-- entries, each resuming from the last entry of the one before, gives exactly the brute-force
-- order of the stored rows, the same as one large page.
local t = require "testlib"
local F = require "uvlan_util"
local case, list = t.case, t.lines

-- Non-overlapping 802.1Q ranges and QinQ rectangles (PE x CE) on up to 40 interfaces, VLANs
-- 1..40 so that 802.1Q and QinQ entries share CE VLANs; some interfaces carry only one kind,
-- some QinQ interfaces carry no rows at all.
local function randomConfig(seed)
  math.randomseed(seed)
  local c = F.cfg(3)
  local nIf = math.random(5, 40)
  for n = 1, nIf do
    local ifIndex = n * 7 + math.random(0, 5)
    local kind = math.random(1, 4)          -- 1 802.1Q only, 2 QinQ only, 3 both, 4 listed empty
    if kind == 1 or kind == 3 then
      local used = {}
      for _ = 1, math.random(1, 4) do
        local b = math.random(1, 40); local e = math.min(40, b + math.random(0, 5))
        local free = true
        for v = b, e do free = free and not used[v] end
        if free then for v = b, e do used[v] = true end; c:addDot1q(ifIndex, b, e) end
      end
    end
    if kind >= 2 then c:addQinqIf(ifIndex) end
    if kind == 2 or kind == 3 then
      local grid = {}
      for _ = 1, math.random(1, 5) do
        local pb = math.random(1, 40); local pe = math.min(40, pb + math.random(0, 3))
        local cb = math.random(1, 40); local ce = math.min(40, cb + math.random(0, 3))
        local free = true
        for x = cb, ce do for y = pb, pe do free = free and not grid[x * 100 + y] end end
        if free then
          for x = cb, ce do for y = pb, pe do grid[x * 100 + y] = true end end
          c:addQinq(ifIndex, pb, pe, cb, ce)
        end
      end
    end
  end
  -- Rows of another VR interleave with the VR walked and must never show.
  c:addDot1q(8, 1, 40, 4); c:addQinqIf(9, 4); c:addQinq(9, 1, 40, 1, 40, 4)
  return c
end

for _, seed in ipairs({1, 2, 3, 4, 5, 6}) do
  case("seed " .. seed .. ": pages of 1, 3 and 500 walk the model order", function()
    local c = randomConfig(seed)
    local model = c:model()
    list(c:walk(100000), model, "one large page")
    list(c:walk(500), model, "pages of 500")
    list(c:walk(3), model, "pages of 3")
    list(c:walk(1), model, "pages of 1")
    assert(c.db:mem().live == 0, "live blocks after the walks")
    c:close()
  end)
end

t.finish()
