#!/usr/bin/env bash
# Every built man page (the helper's and the tools') renders without a
# warning at 80 columns, never splits a name at a hyphen at any width (no
# rendered line ends in a hyphen), shows the package version in its
# footer, and has the sections a reader looks for; the helper's lists its
# exit statuses in order.
#   man_pages_test.sh BUILD_MAN_DIR VERSION
set -euo pipefail
dir=$1 version=$2
failed=0
fail() { echo "FAIL: $*"; failed=1; }
for page in kem-vision-ocr kvo-batch kvo-inspect; do
  file="$dir/$page.1"
  [ -f "$file" ] || { fail "$file not built"; continue; }
  warnings=$(MANWIDTH=80 man --warnings -l "$file" 2>&1 >/dev/null)
  [ -z "$warnings" ] || fail "$page: man reports warnings: $warnings"
  for width in 60 80 100 140; do
    split=$(MANWIDTH=$width man -l "$file" 2>/dev/null | col -b | grep -nE '[-‐]$' || true)
    [ -z "$split" ] || fail "$page at $width columns: a line ends in a hyphen: $split"
  done
  text=$(MANWIDTH=80 man -l "$file" 2>/dev/null | col -b)
  tail -n 1 <<<"$text" | grep -qE "^kem-vision-ocr $version[[:space:]]" || fail "$page: no version in the footer: $(tail -n 1 <<<"$text")"
  for section in NAME SYNOPSIS DESCRIPTION OPTIONS "EXIT STATUS" EXAMPLES "SEE ALSO"; do
    grep -qx "$section" <<<"$text" || fail "$page: no $section section"
  done
done
helper=$(MANWIDTH=80 man -l "$dir/kem-vision-ocr.1" 2>/dev/null | col -b)
grep -qx ENVIRONMENT <<<"$helper" || fail "kem-vision-ocr: no ENVIRONMENT section"
statuses=$(sed -n '/^EXIT STATUS$/,/^[A-Z]/p' <<<"$helper" | grep -oE '^       [0-9]+$' | tr -d ' ' | paste -sd,)
[ "$statuses" = 0,1,2 ] || fail "kem-vision-ocr: exit statuses listed as $statuses, not 0,1,2"
batch=$(MANWIDTH=80 man -l "$dir/kvo-batch.1" 2>/dev/null | col -b)
for expected in RESUMING SIGNALS OUTCOMES --sshloginfile --retry-failed 130 143; do
  grep -qF -- "$expected" <<<"$batch" || fail "kvo-batch: nothing on $expected"
done
[ "$failed" = 0 ]
echo "three man pages render cleanly, names whole, version $version in every footer"
