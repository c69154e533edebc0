#!/usr/bin/env bash
# Sets everything up, then runs the helper on the sample image shipped in
# samples/ and prints its JSON line. The artifacts land in a fresh temporary
# directory whose path is printed on stderr.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh" >&2
artifacts=$(mktemp -d /tmp/kem-vision-ocr-sample.XXXXXX)
echo "artifacts: $artifacts" >&2
exec "$root/build/kem-vision-ocr" --input "$root/samples/sample.png" --artifacts "$artifacts" --json
