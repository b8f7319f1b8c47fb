#!/usr/bin/env bash
# fuzz.sh HARNESS [SECONDS]: builds the fuzz harnesses with clang and libFuzzer in build-fuzz/
# and fuzzes one of them (tests/fuzz/HARNESS_fuzz.cpp) for SECONDS (default 60) inside a board
# sandbox. Inputs that reach new code are merged into tests/fuzz/corpus/HARNESS/; crashing
# inputs are kept in build-fuzz/artifacts/. See docs/fuzzing.md.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -lt 1 ] || [ $# -gt 2 ]; then
  harnesses=$(find tests/fuzz/corpus -mindepth 1 -maxdepth 1 -type d -printf '%f ')
  echo "usage: $0 HARNESS [SECONDS]   (harnesses: $harnesses)" >&2
  exit 2
fi
harness=$1
seconds=${2:-60}
corpus=tests/fuzz/corpus/$harness
[ -d "$corpus" ] || { echo "fuzz: no corpus directory $corpus" >&2; exit 2; }
case "$seconds" in '' | *[!0-9]*) echo "fuzz: SECONDS must be a number" >&2; exit 2 ;; esac

# The instrumented tree is separate from the gcc trees: other compiler, other flags.
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DBOOTINIT_FUZZ=ON >/dev/null
cmake --build build-fuzz --target "fuzz_$harness" -j"$(nproc)"

# Boards have a private /tmp: scratch space lives in the build tree.
mkdir -p build-fuzz/artifacts
scratch=$(mktemp -d "$PWD/build-fuzz/new-inputs.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
run() { tools/bootsim/bootsim exec --build-dir build-fuzz -- "build-fuzz/bin/fuzz_$harness" "$@"; }

# New inputs go to the scratch directory (the first one named); the corpus is read as well.
run -max_total_time="$seconds" -artifact_prefix="$PWD/build-fuzz/artifacts/" "$scratch" "$corpus"
# Only inputs that reach code the corpus does not reach yet join it (edges, not hit counts,
# which keeps the corpus in the repository small).
run -merge=1 -use_counters=0 "$corpus" "$scratch"
inputs=$(find "$corpus" -type f | wc -l)
echo "fuzz: $harness ran ${seconds}s; corpus $corpus now holds $inputs inputs"
