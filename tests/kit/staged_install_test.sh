#!/usr/bin/env bash
# `cmake --install` into a staging directory puts every file where the GNU
# directories say, and the staged helper reads the samples: its lines and
# result.json match the staged schemas.
set -euo pipefail
: "${KVO_BUILD_DIR:?}" "${KVO_SOURCE_DIR:?}"
stage=$(mktemp -d /tmp/kvo-stage.XXXXXX)
trap 'rm -rf "$stage"' EXIT
DESTDIR="$stage/root" cmake --install "$KVO_BUILD_DIR" --prefix /usr > "$stage/install.log"
root="$stage/root"
(cd "$root" && find . -type f | sort) | tee "$stage/files"
for expected in ./usr/bin/kem-vision-ocr ./usr/share/man/man1/kem-vision-ocr.1.gz \
    ./usr/share/kem-vision-ocr/schemas/stdout-line.schema.json ./usr/share/kem-vision-ocr/schemas/result.schema.json \
    ./usr/bin/kvo-batch ./usr/bin/kvo-inspect ./usr/share/man/man1/kvo-batch.1.gz ./usr/share/man/man1/kvo-inspect.1.gz \
    ./usr/share/doc/kem-vision-ocr/examples/kvo_host.py ./usr/share/doc/kem-vision-ocr/examples/kvo-host.mjs \
    ./usr/share/doc/kem-vision-ocr/examples/README.md ./usr/share/doc/kem-vision-ocr/copyright \
    ./usr/share/doc/kem-vision-ocr/changelog.gz; do
  grep -qxF "$expected" "$stage/files" || { echo "not installed: $expected"; exit 1; }
done
[ -x "$root/usr/bin/kem-vision-ocr" ] && [ -x "$root/usr/bin/kvo-batch" ] && [ -x "$root/usr/bin/kvo-inspect" ]
"$root/usr/bin/kvo-batch" --help | grep -q '^Resuming: run the same command again'
"$root/usr/bin/kvo-inspect" --help | grep -q "Exit status"
MANWIDTH=80 man -l "$root/usr/share/man/man1/kem-vision-ocr.1.gz" | grep -q 'kem-vision-ocr - recognise'

runs="$stage/runs"
mkdir -p "$runs"
n=0
for args in "samples/sample.png" "samples/sample.pdf --output-mode text" "samples/sample.pdf --output-mode layout" \
    "samples/absent.png"; do
  set -- $args
  n=$((n + 1))
  mkdir "$runs/$n"
  status=0
  "$root/usr/bin/kem-vision-ocr" --input "$KVO_SOURCE_DIR/$1" --artifacts "$stage/a$n" "${@:2}" --json \
    > "$runs/$n/stdout" 2> "$runs/$n/stderr" || status=$?
  echo "$status" > "$runs/$n/exit"
  [ -f "$stage/a$n/result.json" ] && cp "$stage/a$n/result.json" "$runs/$n/"
  echo "staged helper on $*: exit $status: $(cut -c1-100 "$runs/$n/stdout")"
  [ ! -s "$runs/$n/stderr" ]
done
grep -q '"code":"invalid_input","message":"Input file is missing"' "$runs/4/stdout"
grep -q 'Harbour Light Books' "$stage/a1/ocr.txt"
/usr/bin/python3 "$KVO_SOURCE_DIR/tests/kit/validate_outputs.py" "$root/usr/share/kem-vision-ocr/schemas" "$runs"
