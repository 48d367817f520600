#!/usr/bin/env bash
# Builds an optimised tree per Lua engine and runs every benchmark program on it, and the
# measurement of vlanlua --check on 100,000 rows; each prints its own ratios. ENGINES="5.4 luajit" bash scripts/bench.sh picks engines.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
for engine in ${ENGINES:-5.4 5.1 5.3 luajit}; do
  dir=build-rel$([ "$engine" = 5.4 ] || echo "-$engine")
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Release -DLUA_ENGINE="$engine" -DVLANLUA_TESTS=OFF >/dev/null
  cmake --build "$dir" -j"$(nproc)" >/dev/null
  echo "######## Lua engine $engine"
  for b in "$dir"/bench/*; do
    [ -f "$b" ] && [ -x "$b" ] || continue
    echo "==== $(basename "$b")"
    "$b" "$@"
  done
  echo "==== check_100k"
  bash bench/check_100k.sh "$dir"
done
