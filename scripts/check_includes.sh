#!/bin/sh
# Fails (exit 1, naming each offending line) when a source folder includes
# what it must not:
#   scripts/check_includes.sh DIR ALLOWED_PREFIXES FORBIDDEN_SYSTEM_PREFIXES
# Every quoted include in DIR must start with one of ALLOWED_PREFIXES
# (comma-separated, e.g. "VisionOcrCore/,interfaces/"); no angle-bracket
# include may start with one of FORBIDDEN_SYSTEM_PREFIXES (comma-separated,
# e.g. "tesseract/,leptonica/"; empty for none).
set -eu
dir=$1 allowed=$2 forbidden=${3:-}
status=0
for file in "$dir"/*.h "$dir"/*.cpp; do
  [ -e "$file" ] || continue
  grep -n '^[[:space:]]*#[[:space:]]*include' "$file" | while IFS= read -r line; do
    target=$(printf '%s\n' "$line" | sed -n 's/.*#[[:space:]]*include[[:space:]]*\(["<][^">]*[">]\).*/\1/p')
    name=$(printf '%s\n' "$target" | cut -c2- | sed 's/.$//')
    ok=1
    case $target in
      \"*)
        ok=0
        for prefix in $(printf '%s' "$allowed" | tr ',' ' '); do
          case $name in "$prefix"*) case $name in *..*) ;; *) ok=1 ;; esac ;; esac
        done ;;
      \<*)
        for prefix in $(printf '%s' "$forbidden" | tr ',' ' '); do
          case $name in "$prefix"*) ok=0 ;; esac
        done ;;
    esac
    if [ $ok = 0 ]; then
      echo "$file:$line: not allowed here (allowed: $allowed; forbidden: ${forbidden:-none})"
      echo x
    fi
  done
done > "${TMPDIR:-/tmp}/check_includes.$$"
if grep -q '^x$' "${TMPDIR:-/tmp}/check_includes.$$"; then
  grep -v '^x$' "${TMPDIR:-/tmp}/check_includes.$$" >&2
  status=1
fi
rm -f "${TMPDIR:-/tmp}/check_includes.$$"
exit $status
