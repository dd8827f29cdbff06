#!/usr/bin/env bash
# Builds the demo host and krctl (no tests, no benchmarks) and runs the demo on a
# fresh temporary data folder.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh --demo
cmake --preset demo >/dev/null
cmake --build --preset demo --target krc_demo krctl >/dev/null
exec ./build/demo/examples/krc_demo "$@"
