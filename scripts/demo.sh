#!/usr/bin/env bash
# Builds the module and runs the demo scripts of examples/ with stock lua5.4.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" >/dev/null
export LUA_CPATH="$PWD/build/lua/?.so;;"
workdir=$(mktemp -d)
for script in examples/*.lua; do
  echo "==== $script"
  (cd "$workdir" && lua5.4 "$OLDPWD/$script")
done
