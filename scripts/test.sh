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
# The conformance corpus runs every PDF in both output modes in the normal
# build; under the sanitizers, in layout mode only, which renders and reads
# every page. Text mode adds the text layers, whose reading the PDF and text
# fuzzers below exercise under the sanitizers on the same files; on two cores
# it would add some 3.5 minutes.
(cd build-asan && ASAN_OPTIONS=detect_leaks=1 ctest --output-on-failure -j"$jobs" -E 'CorpusConformance\..*_pdf_text')

# Every fuzz target for a bounded time under the sanitizers.
"$root/scripts/fuzz.sh" 45 1
