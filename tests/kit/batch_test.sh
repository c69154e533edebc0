#!/usr/bin/env bash
# tools/kvo-batch on a small tree made from the samples: every document gets
# its directory and outcome, the summary counts them, a second run resumes
# without running anything again, an interrupted document is run again, the
# time limit ends a document as a timeout, and --retry-failed runs failures again.
set -euo pipefail
: "${KVO_HELPER:?}" "${KVO_SOURCE_DIR:?}"
batch="$KVO_SOURCE_DIR/tools/kvo-batch"
work=$(mktemp -d /tmp/kvo-batch-test.XXXXXX)
trap 'rm -rf "$work"' EXIT
in="$work/in"
mkdir -p "$in/sub dir"
cp "$KVO_SOURCE_DIR/samples/sample.png" "$in/a.png"
cp "$KVO_SOURCE_DIR/samples/sample.pdf" "$in/sub dir/b.pdf"
printf 'not an image' > "$in/sub dir/c.png"
printf 'ignored: not a document type' > "$in/notes.txt"

fail() { echo "FAIL: $*"; exit 1; }
expect_line() { grep -qE -- "$1" "$2" || { cat "$2"; fail "no line matching '$1' in $2"; }; }

echo "== first run"
"$batch" --input-dir "$in" --output-dir "$work/out" --helper "$KVO_HELPER" --jobs 2 | tee "$work/first.txt"
expect_line '^documents: 3 found, 3 with an outcome, 3 run now$' "$work/first.txt"
expect_line '^  ok +2$' "$work/first.txt"
expect_line '^  failed +1$' "$work/first.txt"
expect_line '^  invalid_input +1$' "$work/first.txt"
expect_line 'documents per minute' "$work/first.txt"
expect_line '^slowest:$' "$work/first.txt"
[ "$(grep -c ' s  ' "$work/first.txt")" = 3 ] || fail "slowest lists three documents"
doc="$work/out/documents"
[ -f "$doc/a.png/artifacts/result.json" ] || fail "a.png has no result.json"
[ -f "$doc/sub dir/b.pdf/artifacts/pages/page-0002.png" ] || fail "b.pdf has no page image"
grep -q '"code":"invalid_input"' "$doc/sub dir/c.png/line.json" || fail "c.png's line"
[ "$(cut -f2,3,4 "$doc/sub dir/c.png/outcome")" = "failed	invalid_input	2" ] || fail "c.png's outcome"
[ "$(tail -n +2 "$work/out/joblog" | wc -l)" = 3 ] || fail "the job log has three jobs"

echo "== second run resumes: nothing run again"
before=$(stat -c %Y "$doc/a.png/outcome")
"$batch" --input-dir "$in" --output-dir "$work/out" --helper "$KVO_HELPER" | tee "$work/second.txt"
expect_line '^documents: 3 found, 3 with an outcome, 0 run now$' "$work/second.txt"
[ "$(stat -c %Y "$doc/a.png/outcome")" = "$before" ] || fail "a.png was run again"

echo "== a document interrupted before its outcome and a new one are run"
rm "$doc/a.png/outcome" "$doc/a.png/artifacts/ocr.txt"
cp "$KVO_SOURCE_DIR/samples/sample.png" "$in/0-new.png"
"$batch" --input-dir "$in" --output-dir "$work/out" --helper "$KVO_HELPER" | tee "$work/third.txt"
expect_line '^documents: 4 found, 4 with an outcome, 2 run now$' "$work/third.txt"
[ -f "$doc/a.png/artifacts/ocr.txt" ] && [ -f "$doc/0-new.png/outcome" ] || fail "interrupted or new document not run"

echo "== time limit"
# A stand-in that never answers, so that every document runs into the limit
# however fast the helper would have been (it rejects c.png in a few
# milliseconds, faster than any limit short enough for a test).
cat > "$work/stuck-helper" <<'EOF2'
#!/bin/sh
exec sleep 60
EOF2
chmod +x "$work/stuck-helper"
"$batch" --input-dir "$in" --output-dir "$work/limited" --helper "$work/stuck-helper" --time-limit 0.5 | tee "$work/limited.txt"
expect_line '^  timeout +4$' "$work/limited.txt"
expect_line '^  local_runtime_timeout +4$' "$work/limited.txt"

echo "== --retry-failed runs the failures again, with a longer limit"
"$batch" --input-dir "$in" --output-dir "$work/limited" --helper "$KVO_HELPER" --retry-failed | tee "$work/retry.txt"
expect_line '^documents: 4 found, 4 with an outcome, 4 run now$' "$work/retry.txt"
expect_line '^  ok +3$' "$work/retry.txt"
expect_line '^  invalid_input +1$' "$work/retry.txt"
echo "batch command checked"
