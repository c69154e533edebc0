#!/usr/bin/env bash
# The Debian package: CPack builds it (without building the test suite),
# its Depends carry the shared libraries dpkg-shlibdeps found and the three
# language packs, the typefaces are only recommended, `lintian -I --pedantic`
# reports no tag at all, apt-get installs it, the installed helper reads the
# samples, both tools run from the PATH, and apt-get removes it again,
# leaving nothing behind even after the example module was imported from
# the installed docs. Needs root (exit 77: skipped).
set -euo pipefail
: "${KVO_BUILD_DIR:?}" "${KVO_SOURCE_DIR:?}"
if [ "$(id -u)" -ne 0 ]; then
  echo "SKIP: installing a .deb needs root; run as root to test the package"
  exit 77
fi
if dpkg-query -W -f='${Status}' kem-vision-ocr 2>/dev/null | grep -q 'install ok installed'; then
  echo "kem-vision-ocr is already installed on this machine; remove it first (apt-get remove kem-vision-ocr)"
  exit 1
fi
work=$(mktemp -d /tmp/kvo-deb.XXXXXX)
trap 'rm -rf "$work"' EXIT
(cd "$KVO_BUILD_DIR" && cpack -G DEB -B "$work" > "$work/cpack.log") || { cat "$work/cpack.log"; exit 1; }
# Installing (and so packaging) builds what the package holds and no test.
grep -q 'gtest\|Building CXX object tests/' "$work/cpack.log" && { echo "cpack built tests"; exit 1; }
deb=$(ls "$work"/kem-vision-ocr_*.deb)
echo "== $(basename "$deb")"
dpkg-deb -f "$deb" Package Version Architecture Depends Recommends
depends=$(dpkg-deb -f "$deb" Depends)
for needed in tesseract-ocr-chi-sim tesseract-ocr-chi-tra tesseract-ocr-eng libtesseract5 libpoppler libpng16-16 \
    libjpeg62-turbo libwebp7 libexif12 libicu72 libstdc++6 libc6; do
  grep -q "$needed" <<<"$depends" || { echo "Depends lacks $needed"; exit 1; }
done
# The typefaces only help the script choice: recommended, not required.
recommends=$(dpkg-deb -f "$deb" Recommends)
for font in fonts-noto-cjk fonts-arphic-gkai00mp fonts-arphic-bkai00mp; do
  ! grep -q "$font" <<<"$depends" || { echo "Depends holds $font"; exit 1; }
  grep -q "$font" <<<"$recommends" || { echo "Recommends lacks $font"; exit 1; }
done
# Hardened and stripped as Debian builds binaries.
dpkg-deb -x "$deb" "$work/unpacked"
binary="$work/unpacked/usr/bin/kem-vision-ocr"
# (readelf's output is kept first: grep -q ends early, which under
# pipefail would fail the pipeline.)
dynamic=$(readelf -d "$binary") segments=$(readelf -lW "$binary") symbols=$(readelf -sW --dyn-syms "$binary")
sections=$(readelf -SW "$binary")
grep -q 'BIND_NOW\|FLAGS.*NOW' <<<"$dynamic" || { echo "not linked with -z now"; exit 1; }
grep -q GNU_RELRO <<<"$segments" || { echo "not linked with -z relro"; exit 1; }
grep -q '__[a-z_]*_chk@' <<<"$symbols" || { echo "no fortified functions"; exit 1; }
! grep -qE ' \.(comment|symtab|note) ' <<<"$sections" || { echo "not stripped"; exit 1; }
echo "== dpkg -c"
dpkg -c "$deb" | awk '{ print $1, $2, $6 }'
echo "== lintian"
lintian -I --pedantic --tag-display-limit 0 "$deb" > "$work/lintian.txt" 2>&1 || true
cat "$work/lintian.txt"
if grep -qE '^[EWIPX]: ' "$work/lintian.txt"; then echo "lintian reports tags"; exit 1; fi

echo "== apt-get install"
export DEBIAN_FRONTEND=noninteractive
remove() { apt-get remove -y -o DPkg::Lock::Timeout=300 kem-vision-ocr > "$work/remove.log" 2>&1; }
apt-get install -y --no-install-recommends -o DPkg::Lock::Timeout=300 "$deb" > "$work/install.log" 2>&1 ||
  { cat "$work/install.log"; exit 1; }
trap 'remove || true; rm -rf "$work"' EXIT
[ "$(command -v kem-vision-ocr)" = /usr/bin/kem-vision-ocr ]
man -w kem-vision-ocr
runs="$work/runs"
mkdir -p "$runs/png" "$runs/pdf"
/usr/bin/kem-vision-ocr --input "$KVO_SOURCE_DIR/samples/sample.png" --artifacts "$work/png" --json > "$runs/png/stdout"
/usr/bin/kem-vision-ocr --input "$KVO_SOURCE_DIR/samples/sample.pdf" --artifacts "$work/pdf" --json > "$runs/pdf/stdout"
for r in png pdf; do echo 0 > "$runs/$r/exit"; cp "$work/$r/result.json" "$runs/$r/"; cut -c1-120 "$runs/$r/stdout"; done
grep -q 'Harbour Light Books' "$work/png/ocr.txt"
/usr/bin/python3 "$KVO_SOURCE_DIR/tests/kit/validate_outputs.py" /usr/share/kem-vision-ocr/schemas "$runs"

echo "== the tools from the PATH"
[ "$(command -v kvo-batch)" = /usr/bin/kvo-batch ] && [ "$(command -v kvo-inspect)" = /usr/bin/kvo-inspect ]
man -w kvo-batch && man -w kvo-inspect
mkdir -p "$work/batch-in"
cp "$KVO_SOURCE_DIR/samples/sample.png" "$work/batch-in/"
(cd "$work" && kvo-batch --input-dir batch-in --output-dir batch-out) > "$work/batch.txt" 2>&1 ||
  { cat "$work/batch.txt"; exit 1; }
grep -q 'Harbour Light Books' "$work/batch-out/documents/sample.png/artifacts/ocr.txt"
kvo-inspect --artifacts "$work/pdf" --page 2 --output "$work/page-2.png"
[ -s "$work/page-2.png" ]
# The example imported from where the package put it, as a reader may.
(cd /tmp && /usr/bin/python3 -c 'import sys; sys.path.insert(0, "/usr/share/doc/kem-vision-ocr/examples"); import kvo_host')

echo "== apt-get remove"
remove || { cat "$work/remove.log"; exit 1; }
trap 'rm -rf "$work"' EXIT
[ ! -e /usr/bin/kem-vision-ocr ] || { echo "/usr/bin/kem-vision-ocr is still there after removal"; exit 1; }
[ ! -e /usr/share/doc/kem-vision-ocr ] || { echo "/usr/share/doc/kem-vision-ocr is still there after removal"; exit 1; }
! grep -qi 'not empty\|warning' "$work/remove.log" || { cat "$work/remove.log"; echo "apt-get remove complained"; exit 1; }
echo "package built, checked, installed, run and removed"
