#!/usr/bin/env bash
# Static checks: clang-format on every C/C++ source, clang-tidy on the production code
# (library, platform libraries, tools) with the compile database of the plain build.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/check-format.sh

[ -f build/compile_commands.json ] || scripts/build.sh plain >/dev/null
# Everything that is not a test: the library's subsystems, the platform libraries, the tools.
mapfile -t sources < <(git ls-files '*.cpp' '*.c' ':!:tests/*')
report=$(mktemp)
trap 'rm -f "$report"' EXIT
status=0
clang-tidy -p build --quiet --extra-arg=-Wno-unknown-warning-option "${sources[@]}" >"$report" 2>&1 \
  || status=$?
# Warnings are errors (.clang-tidy), so the exit status carries the verdict.
grep -v -E '^[0-9]+ warnings? generated\.$|^Suppressed [0-9]+ warnings|^Use -header-filter' \
  "$report" || true
[ "$status" -eq 0 ] || { echo "lint: clang-tidy found problems" >&2; exit "$status"; }
echo "lint: clang-format and clang-tidy found nothing"
