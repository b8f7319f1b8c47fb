#!/usr/bin/env bash
# build.sh [plain|sanitize]: configures and builds one build tree inside the repository
# (build/ or build-sanitize/). Build trees must not live under /tmp: boards have their own /tmp.
set -euo pipefail
cd "$(dirname "$0")/.."

kind=${1:-plain}
case "$kind" in
  plain) dir=build; options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo) ;;
  sanitize) dir=build-sanitize; options=(-DCMAKE_BUILD_TYPE=Debug -DBOOTINIT_SANITIZE=ON) ;;
  *) echo "usage: $0 [plain|sanitize]" >&2; exit 2 ;;
esac

cmake -S . -B "$dir" "${options[@]}" >/dev/null
cmake --build "$dir" -j"$(nproc)"
