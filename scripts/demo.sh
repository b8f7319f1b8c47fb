#!/usr/bin/env bash
# The main job: installs what is needed, builds, creates a demo board and runs boot operations
# on it through the bootinit front-end, showing each operation's standard output and result,
# and then the boot log lines that the operations wrote.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
scripts/build.sh plain >/dev/null

bootsim=tools/bootsim/bootsim
bootinit=$PWD/build/bin/bootinit
boards=$(mktemp -d /tmp/bootinit-demo.XXXXXX)
trap '"$bootsim" remove "$boards/demo" >/dev/null 2>&1 || true; rmdir "$boards" 2>/dev/null || true' EXIT

"$bootsim" create "$boards/demo" --set board.name=demo
echo "demo board: $boards/demo"

run() {
  echo
  echo "\$ bootinit $*"
  local output status=0
  output=$("$bootsim" run "$boards/demo" -- "$bootinit" --print-result "$@" 2>&1) || status=$?
  printf '%s\n' "$output" | sed 's/^/  /'
  echo "  (exit status $status)"
}

# Operations that exist so far answer through the dispatcher; every number is checked first.
run 4           # a known operation without a function
run 20          # a number that is not in the table
run 1a          # not a decimal number
run 4294967296  # beyond 32 bits: wraps to operation 0

echo
echo "== boot log of the demo board (/var/lib/swm/workdir/var/log/app_boot.log) =="
"$bootsim" log "$boards/demo" --type 0
echo "== header: $("$bootsim" log "$boards/demo" --type 0 --raw-header)"

# The log directory follows /etc/swm_user.conf.
mkdir -p "$boards/demo/etc"
echo "swm_log_path=/opt/boardlogs" > "$boards/demo/etc/swm_user.conf"
run 99
echo
echo "== boot log after moving it with swm_log_path=/opt/boardlogs =="
"$bootsim" log "$boards/demo" --type 0 --path /opt/boardlogs/app_boot.log
