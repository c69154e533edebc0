#!/usr/bin/env bash
# The built man page renders at 80 columns without a single warning from
# man/groff, and says what a host needs: every section and every code.
set -euo pipefail
page=$1
source_dir=${2:-}
warnings=$(MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
if [ -n "$warnings" ]; then
  echo "man reports warnings:"; echo "$warnings"; exit 1
fi
# Read wide, so that no message is hyphenated across lines.
text=$(MANWIDTH=400 man -l "$page" 2>/dev/null | col -b)
missing=0
for expected in NAME SYNOPSIS OPTIONS "STANDARD OUTPUT" "EXIT STATUS" "CODES AND MESSAGES" FILES LIMITS LANGUAGES \
    "TIME AND MEMORY" EXAMPLES --input --artifacts --output-mode --json invalid_input encrypted_pdf \
    resource_limit_exceeded local_runtime_unavailable local_runtime_timeout local_runtime_failed \
    "Input file is missing" "PDF requires a password" result.json ocr.txt page-NNNN.png prlimit \
    "Usage: kem-vision-ocr --input <path> --artifacts <directory> --output-mode <text|layout> --json" \
    "Unknown argument: " "Duplicate argument: " "Missing value for "; do
  if ! grep -qF -- "$expected" <<<"$text"; then echo "missing from the man page: $expected"; missing=1; fi
done
# Every fixed message the pipeline can print.
if [ -n "$source_dir" ]; then
  flat=$(tr -s ' \n' ' ' <<<"$text")
  while IFS= read -r message; do
    grep -qF -- "$message" <<<"$flat" || { echo "message missing from the man page: $message"; missing=1; }
  done < <(grep -ohE '(HelperErrorCode::[A-Za-z]+, |kUnsupported = |"message":)"[^"]+"' "$source_dir"/VisionOcrCore/*.cpp |
             sed -E 's/^.*"([^"]+)"$/\1/' | sort -u)
fi
[ "$missing" = 0 ]
echo "man page renders without warnings at 80 columns; lists every section, code and message"
