#!/usr/bin/env bash
# Fails when a C or C++ source differs from the project's clang-format style.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files '*.c' '*.h' '*.cpp' '*.hpp' | xargs clang-format --dry-run --Werror
echo "formatting: all sources follow .clang-format"
