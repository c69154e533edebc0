#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) into build-fuzz/ and
# runs each for a bounded time, seeded from the generated fixtures and, when
# present, the shared conformance corpus. Any crash, leak, time-out or
# sanitizer report fails the run; the input that caused it is kept under
# build-fuzz/crashes/. Inputs that once failed live in fuzz/regressions/<target>/
# and are replayed before each target fuzzes.
#
# The seed fixes the order in which inputs are mutated, so a run tries, up to
# the little nondeterminism of libraries' caches, the inputs that a longer run
# with the same seed tried first. The test suite passes seed 1; a long local
# run with seed 1 has tried what the suite will. Seed 0 lets libFuzzer pick
# one, for exploring beyond that.
#   usage: scripts/fuzz.sh [seconds per target, default 60] [seed, default 1]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
seconds=${1:-60}
seed=${2:-1}
corpus="$root/../shared/corpus"
targets=(fuzz_arguments fuzz_result_json fuzz_text fuzz_image_load fuzz_pdf)

CC=clang CXX=clang++ cmake -S . -B build-fuzz -DKVO_FUZZ=ON -DKVO_TESTS=OFF -DKVO_SANITIZE=ON \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-fuzz -j"$(nproc)" --target "${targets[@]}"

work="$root/build-fuzz/run"
rm -rf "$work"
mkdir -p "$work" "$root/build-fuzz/crashes"
seed() {  # seed <target> <find tests...>: copy matching files into the target's corpus
  local dir="$work/$1"
  shift
  mkdir -p "$dir"
  for base in "$root/build/fixtures" "$corpus"; do
    if [ -d "$base" ]; then find "$base" -type f -size -300k "$@" -exec cp -t "$dir" {} + 2>/dev/null || true; fi
  done
}
seed fuzz_image_load \( -name '*.png' -o -name '*.jpg' -o -name '*.webp' -o -name '*.gif' -o -name '*.bmp' \)
seed fuzz_pdf -name '*.pdf' ! -name 'bomb_giant.pdf' ! -name 'hugemono.pdf' ! -name '*50[01]*.pdf'
seed fuzz_text -name '*.txt'
mkdir -p "$work/fuzz_arguments" "$work/fuzz_result_json"
printf -- '--input\0/in.png\0--artifacts\0/out\0--json' > "$work/fuzz_arguments/valid"
printf '%s' '{"metadata":{"elapsedMs":1.5},"pageCount":1,"pages":[{"height":2,"page":1,"regions":[{"confidence":0.5,"polygon":[[0,0],[1,0],[1,1],[0,1]],"text":"a"}],"text":"a","width":2}],"text":"a"}' \
  > "$work/fuzz_result_json/document"

fail() {  # fail <log> <message>: the end of the log and the message, then stop
  tail -40 "$1" >&2
  echo "fuzz: $2" >&2
  exit 1
}

for target in "${targets[@]}"; do
  echo "== $target (${seconds}s, seed $seed)"
  status=0
  regressions="$root/fuzz/regressions/$target"
  if [ -d "$regressions" ]; then
    "$root/build-fuzz/fuzz/$target" -timeout=30 -rss_limit_mb=4096 "$regressions"/* > "$work/$target.replay.log" 2>&1 || status=$?
    [ "$status" -eq 0 ] || fail "$work/$target.replay.log" "$target fails on an input in fuzz/regressions/$target (exit $status)"
    echo "replayed $(ls "$regressions" | wc -l) regression input(s)"
  fi
  "$root/build-fuzz/fuzz/$target" -seed="$seed" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=4096 \
    -print_final_stats=1 -artifact_prefix="$root/build-fuzz/crashes/$target-" "$work/$target" \
    > "$work/$target.log" 2>&1 || status=$?
  grep -E '^stat::number_of_executed_units|^stat::peak_rss_mb|ERROR|SUMMARY|Test unit written' "$work/$target.log" || true
  [ "$status" -eq 0 ] || fail "$work/$target.log" "$target found a problem (exit $status); see build-fuzz/crashes/"
done
