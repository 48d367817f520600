#!/usr/bin/env bash
# Builds everything with AddressSanitizer and UndefinedBehaviorSanitizer and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build-san -DSANITIZE=ON -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build-san -j"$(nproc)"
cd build-san
ctest --output-on-failure -j"$(nproc)"
