#!/usr/bin/env bash
# Renders the manual's picture, docs/vlanlua_show_if10.png: interface 10 of the demo
# (examples/40_uservlan.lua: the same four user-VLAN requests) with two QinQ match rules and a
# Dot1Q match range added, drawn by `vlanlua --show 10 --svg` and turned into PNG by rsvg-convert.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cat > "$work/if10.lua" <<'LUA'
local lib = require "libvlanluaext"
local function request(peb, pee, ceb, cee, svcs)
  local code, _, msg = lib.VLAN_spt_SetUserVlanQinQSvc({10, peb, pee, ceb, cee, 0, 1, 2, 0, "demo"}, svcs)
  assert(code == 0, msg)
end
request(100, 199, 1, 10, {1, 7})
request(150, 249, 1, 10, {1, 7})
request(140, 160, 5, 20, {8, 3})
request(120, 129, 1, 10, {255, 1})
assert(lib.VLAN_spt_QinQMatchMerge({10, 0, 100, 149, 1, 100, 1, 0, 0, 0, "rule-a"}) == 0)
assert(lib.VLAN_spt_QinQMatchMerge({10, 0, 150, 150, 40, 40, 1, 1, 0, 0, "rule-b"}) == 0)
assert(lib.VLAN_spt_Dot1QMatchMerge({10, 10, 19, 1, 0, 0, 0, 0}) == 0)
LUA
: > "$work/demo.db"
build/bin/vlanlua --db "$work/demo.db" "$work/if10.lua"
build/bin/vlanlua --db "$work/demo.db" --show 10 --svg "$work/if10.svg"
rsvg-convert --background-color=white "$work/if10.svg" -o docs/vlanlua_show_if10.png
echo "wrote docs/vlanlua_show_if10.png"
