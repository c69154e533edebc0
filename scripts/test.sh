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
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 ctest --output-on-failure -j"$jobs")

# Every fuzz target for a bounded time under the sanitizers.
"$root/scripts/fuzz.sh" 45 1
