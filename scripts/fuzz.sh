#!/usr/bin/env bash
# Fuzzing: the driver of fuzz/ makes FUZZ_CALLS calls (default 1,000,000) under ASan+UBSan
# (build-san), then each libFuzzer target, built with clang into build-fuzz, runs FUZZ_SECONDS
# (default 60). FUZZ_SEED seeds the driver (default: the time). Exit status 1 when anything
# was found; libFuzzer leaves its inputs in build-fuzz/corpus and any crash input beside them.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh clang libclang-rt-dev
calls=${FUZZ_CALLS:-1000000}
seconds=${FUZZ_SECONDS:-60}
seed=${FUZZ_SEED:-$(date +%s)}
status=0

cmake -S . -B build-san -DSANITIZE=ON -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build-san -j"$(nproc)" --target vlanlua_fuzz >/dev/null
echo "==== driver: $calls calls, seed $seed, ASan+UBSan"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  build-san/fuzz/vlanlua_fuzz --calls "$calls" --seed "$seed" || status=1

# The whole tree carries the fuzzer's coverage hooks; only the targets link its runtime.
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSANITIZE=ON \
  -DVLANLUA_TESTS=OFF -DVLANLUA_BENCH=OFF -DVLANLUA_LIBFUZZER=ON \
  -DCMAKE_C_FLAGS=-fsanitize=fuzzer-no-link -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link >/dev/null
cmake --build build-fuzz -j"$(nproc)" >/dev/null
for target in fuzz_args fuzz_uservlan_svc; do
  mkdir -p "build-fuzz/corpus/$target"
  echo "==== libFuzzer $target: $seconds s"
  # Leaks are the host's to find (live blocks after every call); LeakSanitizer's scan after
  # every input would cost most of the time.
  (cd build-fuzz && "fuzz/$target" -max_total_time="$seconds" -max_len=1024 -detect_leaks=0 \
     -print_final_stats=1 "corpus/$target" 2>&1 | grep -E '^#[0-9]+[[:space:]]+DONE|^stat::|FINDING|ERROR|SUMMARY|^Done') \
    || status=1
done
exit $status
