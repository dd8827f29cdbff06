#!/usr/bin/env bash
# Builds the library and runs the whole test suite under AddressSanitizer and
# UndefinedBehaviorSanitizer, with warnings as errors; then the tests that
# start threads (label thread) again under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1}"
cmake --preset ci
cmake --build --preset ci
ctest --preset ci -j "$(nproc)"
cmake --preset tsan
cmake --build --preset tsan --target PlatformTests KRClientTests
ctest --preset tsan -L thread
