#!/usr/bin/env bash
# Builds an optimised tree and runs every benchmark program; each prints its own ratios.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build-rel -DCMAKE_BUILD_TYPE=Release -DVLANLUA_TESTS=OFF >/dev/null
cmake --build build-rel -j"$(nproc)" >/dev/null
for b in build-rel/bench/*; do
  [ -f "$b" ] && [ -x "$b" ] || continue
  echo "==== $(basename "$b")"
  "$b" "$@"
done
