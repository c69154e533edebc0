#!/usr/bin/env bash
# tools/kvo-batch as people use it: a tree of documents with odd names,
# symbolic links and its output directory inside it, resuming, changed
# options, the time limit, bad options, and an interrupt in the middle of a
# run over slow documents. Slow documents come from a stand-in helper that
# takes two seconds and logs when it starts and ends; the rest runs the
# real helper on the samples.
set -euo pipefail
: "${KVO_HELPER:?}" "${KVO_SOURCE_DIR:?}"
batch="$KVO_SOURCE_DIR/tools/kvo-batch"
work=$(mktemp -d /tmp/kvo-batch-test.XXXXXX)
trap 'rm -rf "$work"' EXIT

fail() { echo "FAIL: $*"; exit 1; }
expect_line() { grep -qE -- "$1" "$2" || { cat "$2"; fail "no line matching '$1' in $2"; }; }
# Runs kvo-batch, keeping its output and exit status.
run() { local name=$1; shift; status=0; "$batch" "$@" > "$work/$name.out" 2> "$work/$name.err" || status=$?;
        cat "$work/$name.out" "$work/$name.err"; }

in="$work/in"
tab=$'\t' nl=$'\n'
mkdir -p "$in/sub dir" "$work/elsewhere"
cp "$KVO_SOURCE_DIR/samples/sample.png" "$in/a.png"
cp "$KVO_SOURCE_DIR/samples/sample.pdf" "$in/sub dir/b.pdf"
printf 'not an image' > "$in/sub dir/c.png"
cp "$KVO_SOURCE_DIR/samples/sample.png" "$in/odd${tab}name${nl}line.PNG"
cp "$KVO_SOURCE_DIR/samples/sample.png" "$work/elsewhere/linked.png"
ln -s "$work/elsewhere/linked.png" "$in/link.png"
ln -s "$work/no-such-file.png" "$in/broken.png"
printf 'GIF89a' > "$in/picture.gif"
out="$in/ocr"   # the output directory inside the input directory
doc="$out/documents"

echo "== first run: nested output, odd names, links, skipped files"
run first --input-dir "$in" --output-dir "$out" --helper "$KVO_HELPER" --jobs 2
[ "$status" = 1 ] || fail "exit status $status with a failed document (1 expected)"
expect_line '^documents: 5 found, 5 with an outcome, 5 run now, 0 not done$' "$work/first.out"
expect_line '^  ok +4$' "$work/first.out"
expect_line '^  failed +1$' "$work/first.out"
expect_line '^  invalid_input +1$' "$work/first.out"
expect_line 'skipped 1 files that are not PNG, JPEG, WebP or PDF by name and 1 broken links' "$work/first.err"
expect_line '^kvo-batch: [1-5]/5 ok .* \[[0-9]+ ok, [0-9]+ not ok, [0-9.]+/min, ETA [0-9:]+\]$' "$work/first.err"
[ "$(grep -c '^kvo-batch: [1-5]/5 ' "$out/progress.log")" = 5 ] || fail "progress.log holds a line per document"
grep -qxF "not a document${tab}picture.gif" "$out/skipped.txt" || fail "picture.gif not listed as skipped"
grep -qxF "broken link${tab}broken.png" "$out/skipped.txt" || fail "broken.png not listed as skipped"
grep -q 'Harbour Light Books' "$doc/odd${tab}name${nl}line.PNG/artifacts/ocr.txt" || fail "the odd name was not read"
grep -q 'Harbour Light Books' "$doc/link.png/artifacts/ocr.txt" || fail "the symbolic link was not followed"
[ -f "$doc/sub dir/b.pdf/artifacts/pages/page-0002.png" ] || fail "b.pdf has no page image"
[ "$(cut -f1-3 "$doc/sub dir/c.png/outcome")" = "failed${tab}invalid_input${tab}2" ] || fail "c.png's outcome"
# One line per document, the odd name escaped onto it.
[ "$(wc -l < "$out/outcomes.tsv")" = 5 ] || fail "outcomes.tsv has one line per document"
grep -q "^odd\\\\tname\\\\nline.PNG${tab}ok${tab}" "$out/outcomes.tsv" || fail "the odd name is not escaped in outcomes.tsv"

echo "== second run: nothing run again, the output directory not walked"
before=$(stat -c %Y "$doc/a.png/outcome")
run second --input-dir "$in" --output-dir "$out" --helper "$KVO_HELPER"
expect_line '^documents: 5 found, 5 with an outcome, 0 run now, 0 not done$' "$work/second.out"
[ "$(stat -c %Y "$doc/a.png/outcome")" = "$before" ] || fail "a.png was run again"
[ ! -e "$doc/ocr" ] || fail "the output directory was read as input"

echo "== --retry-failed runs only the failure"
run retry --input-dir "$in" --output-dir "$out" --helper "$KVO_HELPER" --retry-failed
expect_line '^documents: 5 found, 5 with an outcome, 1 run now, 0 not done$' "$work/retry.out"

echo "== another output mode redoes every document"
run text --input-dir "$in" --output-dir "$out" --helper "$KVO_HELPER" --output-mode text --jobs 2
expect_line '5 documents below .*: 0 done before, 5 to run' "$work/text.err"
expect_line '^documents: 5 found, 5 with an outcome, 5 run now, 0 not done$' "$work/text.out"
[ -z "$(find "$doc/sub dir/b.pdf/artifacts/pages" -name page-0001.png)" ] || fail "b.pdf page 1 was rendered in text mode"
[ "$(cut -f5 "$doc/a.png/outcome")" = text ] || fail "the outcome does not record the output mode"

echo "== bad options: one message each, nothing touched"
for bad in "--output-dir" "--memory-limit 4GB" "--helper /nonexistent/kem-vision-ocr" "--output-mode fast" \
    "--jobs none" "--time-limit -1" "--frobnicate"; do
  status=0
  # shellcheck disable=SC2086
  "$batch" --input-dir "$in" --output-dir "$work/untouched" $bad > "$work/bad.out" 2> "$work/bad.err" || status=$?
  [ "$status" = 2 ] || fail "$bad: exit status $status"
  [ "$(grep -c '^kvo-batch: ' "$work/bad.err")" = 2 ] && ! grep -q 'line [0-9]' "$work/bad.err" ||
    { cat "$work/bad.err"; fail "$bad: not one clear message"; }
  echo "$bad -> $(head -n 1 "$work/bad.err")"
done
[ ! -e "$work/untouched" ] || fail "a bad option created the output directory"

# A stand-in helper that takes two seconds and logs its start and end. It
# sleeps in a child process, which it ends when it is told to stop, as the
# real helper, one process, ends with all its work.
slow="$work/slow-helper"
cat > "$slow" <<EOF
#!/bin/bash
echo "start \$\$ \${2##*/}" >> "$work/slow.log"
mkdir -p "\$4"
trap 'kill \$child; exit 143' TERM
sleep 2 & child=\$!
wait \$child
echo read > "\$4/ocr.txt"
echo "end \$\$ \${2##*/}" >> "$work/slow.log"
echo '{"ok":true,"pageCount":1,"pagesPreview":[],"resultPath":"result.json","textPath":"ocr.txt","textPreview":"read","truncated":false}'
EOF
chmod +x "$slow"
slow_in="$work/slow-in"
mkdir -p "$slow_in"
for i in 1 2 3 4 5; do printf 'x' > "$slow_in/doc$i.png"; done
helpers_left() { pgrep -f "$slow" || true; }
# Starts kvo-batch in a session of its own with SIGINT not ignored, as a
# shell in a terminal starts it (an asynchronous command here would ignore it).
start_batch() {
  /usr/bin/python3 -c 'import os, signal, sys
signal.signal(signal.SIGINT, signal.SIG_DFL); os.setsid(); os.execv(sys.argv[1], sys.argv[1:])' \
    "$batch" --input-dir "$slow_in" --output-dir "$work/slow-out" --helper "$slow" --jobs 2 "$@" \
    > "$work/slow.out" 2> "$work/slow.err" &
  batch_pid=$!
  for _ in $(seq 100); do [ "$(grep -c start "$work/slow.log" 2> /dev/null)" = 2 ] && break; sleep 0.1; done
  [ "$(grep -c start "$work/slow.log")" = 2 ] || fail "the slow documents did not start"
}

echo "== Ctrl-C (SIGINT to the process group) in the middle of a run"
start_batch
kill -INT -- "-$batch_pid"
status=0; wait "$batch_pid" || status=$?
cat "$work/slow.err"
[ "$status" = 130 ] || fail "exit status $status after SIGINT (130 expected)"
[ -z "$(helpers_left)" ] || fail "helpers still running after the interrupt: $(helpers_left)"
expect_line '^kvo-batch: interrupted; every helper stopped, 5 documents not done: run the same command again to resume$' \
  "$work/slow.err"
[ -z "$(find "$work/slow-out/documents" -name outcome)" ] || fail "an interrupted document has an outcome"

echo "== a helper still holding a document (a run killed outright) keeps a resumed run off it"
exec 8> "$work/slow-out/documents/doc3.png.lock"
flock 8
run held --input-dir "$slow_in" --output-dir "$work/slow-out" --helper "$slow" --jobs 2
exec 8>&-
[ "$status" = 1 ] || fail "exit status $status with a document not done"
expect_line 'busy .* doc3\.png' "$work/held.err"
expect_line '^documents: 5 found, 4 with an outcome, 4 run now, 1 not done$' "$work/held.out"
[ "$(grep -c 'start .* doc3.png' "$work/slow.log")" = 0 ] || fail "doc3.png was started while held"

echo "== SIGTERM to kvo-batch alone, then the resume"
: > "$work/slow.log"
rm -rf "$work/slow-out"
start_batch
kill -TERM "$batch_pid"
status=0; wait "$batch_pid" || status=$?
[ "$status" = 143 ] || fail "exit status $status after SIGTERM (143 expected)"
[ -z "$(helpers_left)" ] || fail "helpers still running after SIGTERM: $(helpers_left)"
run resumed --input-dir "$slow_in" --output-dir "$work/slow-out" --helper "$slow" --jobs 2
[ "$status" = 0 ] || fail "the resumed run exited $status"
expect_line '^documents: 5 found, 5 with an outcome, 5 run now, 0 not done$' "$work/resumed.out"
# Every document finished exactly once; the two cut short were started
# twice, the second time after the first helper was gone (checked above).
for i in 1 2 3 4 5; do
  [ "$(grep -c "^end .* doc$i.png$" "$work/slow.log")" = 1 ] || { cat "$work/slow.log"; fail "doc$i.png not done exactly once"; }
done
[ "$(grep -c '^start ' "$work/slow.log")" = 7 ] || { cat "$work/slow.log"; fail "not 5 + 2 starts"; }

echo "== time limit, then a longer one redoes the timeouts"
run limited --input-dir "$slow_in" --output-dir "$work/limited" --helper "$slow" --time-limit 0.5 --jobs 5
[ "$status" = 1 ] || fail "exit status $status with timeouts (1 expected)"
expect_line '^  timeout +5$' "$work/limited.out"
expect_line '^  local_runtime_timeout +5$' "$work/limited.out"
run longer --input-dir "$slow_in" --output-dir "$work/limited" --helper "$slow" --time-limit 10 --jobs 5
[ "$status" = 0 ] || fail "exit status $status after the longer limit"
expect_line '^documents: 5 found, 5 with an outcome, 5 run now, 0 not done$' "$work/longer.out"
[ -z "$(helpers_left)" ] || fail "helpers left behind"
echo "batch command checked"
