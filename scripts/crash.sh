#!/usr/bin/env bash
# Kills a writer of merge-heavy script calls on a file database at random moments, 30 times (or
# $1 times), and checks after each kill that the file is whole and every call all there or absent.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build >/dev/null
cmake --build build -j2 --target test_platform cfgdb vlanluaext >/dev/null
VLANLUA_CRASH_ROUNDS="${1:-30}" build/tests/test_platform \
  --gtest_filter='CallUnit.AWriterKilledAtAnyMomentLeavesEveryMergeWhollyThereOrWhollyAbsent'
