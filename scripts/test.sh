#!/usr/bin/env bash
# Sets everything up, then builds and runs the whole test suite: the normal
# build, then the same suite under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
"$root/scripts/setup.sh"
jobs=$(nproc)

cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs")

cmake -S . -B build-asan -DKVO_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-asan -j"$jobs"
# One input is left to the normal build: the JBIG2 decompression bomb
# (limits/bomb_giant.pdf) spends its minutes in Poppler's decoder, which is
# not instrumented, so the sanitizers see no more there than the normal run
# does; under them it took 686 s, half of the suite's time on two cores.
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 ctest --output-on-failure -j"$jobs" -E 'limits_bomb_giant_pdf')

# Every fuzz target for a bounded time under the sanitizers.
"$root/scripts/fuzz.sh" 45 1
