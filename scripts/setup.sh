#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need; with --demo only
# what the library, krctl and the demo need (no compilers for fuzzing, no
# Doxygen, GoogleTest or Google Benchmark). Safe to run again: it only calls apt
# when something is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config libcli11-dev
  libpugixml-dev nlohmann-json3-dev libssl-dev libicu-dev libpng-dev libjpeg-dev
)
if [ "${1:-}" != "--demo" ]; then
  packages+=(ccache clang-format doxygen clang libclang-rt-dev
             libgtest-dev libgmock-dev googletest libbenchmark-dev
             libsqlite3-dev)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing: ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
