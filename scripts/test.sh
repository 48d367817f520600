#!/usr/bin/env bash
# Every test, warnings as errors throughout, in five parts:
# 1. everything built with AddressSanitizer and UndefinedBehaviorSanitizer on Lua 5.4, every test;
# 2. the module, platform and cfgdb for Lua 5.1, 5.3 and LuaJIT, every script-level test on each,
#    optimised and unsanitized to keep the run short (LuaJIT does start under the preloaded ASan
#    runtime, but its heap lies outside malloc, so the leak checker reports every object reachable
#    only from Lua as lost);
# 3. and 4. every test on big-endian 64-bit s390x and on 32-bit armhf, cross-built and run under
#    qemu-user (scripts/cross.sh), unsanitized;
# 5. an optimised build (Release, as users and packagers build) of the native tree, every test.
# Prints how long each part took.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

timings=()
report() {
  [ ${#timings[@]} -gt 0 ] && printf '%s\n' "==== time of each part" "${timings[@]}"
}
trap report EXIT
# part NAME COMMAND...: runs the command and notes how long it took.
part() {
  local name=$1 start=$SECONDS
  shift
  echo "==== $name"
  "$@"
  timings+=("$(printf '%-44s %5d s' "$name" $((SECONDS - start)))")
}

# tree_tests DIR CMAKE_OPTION...: configures DIR, builds it (the log shown only when that fails)
# and runs its tests.
tree_tests() {
  local dir=$1
  shift
  cmake -S . -B "$dir" -DVLANLUA_WERROR=ON "$@" >/dev/null &&
    { cmake --build "$dir" -j"$(nproc)" >"$dir/build.log" 2>&1 || { cat "$dir/build.log"; return 1; }; } &&
    (cd "$dir" && ctest --output-on-failure -j"$(nproc)")
}

engines() {
  local failed=()
  for engine in 5.1 5.3 luajit; do
    echo "==== script-level tests on Lua $engine"
    tree_tests "build-lua$engine" -DLUA_ENGINE="$engine" -DCMAKE_BUILD_TYPE=Release -DVLANLUA_GTEST=OFF \
               -DVLANLUA_BENCH=OFF || failed+=("$engine")
  done
  if [ ${#failed[@]} -gt 0 ]; then
    echo "script-level tests failed on: ${failed[*]}"
    return 1
  fi
}

part "sanitized, Lua 5.4" tree_tests build-san -DSANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
part "script-level, Lua 5.1, 5.3 and LuaJIT" engines
part "s390x under qemu-user" bash scripts/cross.sh s390x
part "armhf under qemu-user" bash scripts/cross.sh armhf
part "Release, native" tree_tests build-release -DCMAKE_BUILD_TYPE=Release
