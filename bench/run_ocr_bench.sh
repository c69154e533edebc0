#!/bin/sh
# Side-by-side OCR benchmark of kem-vision-ocr against plain tesseract on a
# generated corpus of English, Simplified, Traditional and mixed pages.
# All options go to run_ocr_bench.py (--help lists them); e.g.
#   bench/run_ocr_bench.sh                       full run, table in bench/out/results.md
#   bench/run_ocr_bench.sh --pages 1             one page of each kind
#   bench/run_ocr_bench.sh --helper /path/to/kem-vision-ocr --kinds sc,tc
set -eu
here=$(cd "$(dirname "$0")" && pwd)
# The Debian interpreter: it has python3-cairo, python3-pil and python3-fonttools.
py=/usr/bin/python3
missing=""
$py -c 'import cairo' 2>/dev/null || missing="$missing python3-cairo"
$py -c 'import PIL' 2>/dev/null || missing="$missing python3-pil"
$py -c 'import fontTools' 2>/dev/null || missing="$missing python3-fonttools"
command -v tesseract >/dev/null || missing="$missing tesseract-ocr"
command -v pdftoppm >/dev/null || missing="$missing poppler-utils"
[ -e /usr/share/man/zh_TW/man1/ls.1.gz ] || missing="$missing manpages-zh"
for l in eng chi_sim chi_tra; do
  [ -e /usr/share/tesseract-ocr/5/tessdata/$l.traineddata ] || missing="$missing tesseract-ocr-$(echo $l | tr _ -)"
done
if [ -n "$missing" ]; then
  echo "run_ocr_bench: missing Debian packages:$missing (apt-get install$missing)" >&2
  exit 1
fi
exec $py "$here/run_ocr_bench.py" "$@"
