#!/usr/bin/env bash
# Installs what is needed, builds, and runs every test: the plain build, then the whole suite
# again under AddressSanitizer and UndefinedBehaviorSanitizer, then the static checks (clang-format, clang-tidy).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

for kind in plain sanitize; do
  echo "== $kind build =="
  scripts/build.sh "$kind"
  dir=build; [ "$kind" = sanitize ] && dir=build-sanitize
  (cd "$dir" && ctest -j"$(nproc)" --output-on-failure --timeout 600)
done

echo "== static checks =="
scripts/lint.sh
