#!/usr/bin/env bash
# Builds the library and runs the example host program on a fresh temporary data folder.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
cmake --preset dev >/dev/null
cmake --build --preset dev --target krc_demo krctl >/dev/null
exec ./build/dev/examples/krc_demo "$@"
