#!/usr/bin/env bash
# Fails when a tracked C++ source differs from the project's .clang-format.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run --Werror
echo "format: all tracked sources follow .clang-format"
