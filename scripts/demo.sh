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
cleanup() {
  for board in "$boards/demo" "$boards/lc"; do "$bootsim" remove "$board" >/dev/null 2>&1 || true; done
  rm -rf "$boards"
}
trap cleanup EXIT

"$bootsim" create "$boards/demo" --kind mmb-active --set board.name=demo-mmb
"$bootsim" create "$boards/lc" --kind lc --set board.name=demo-lc
echo "demo boards: $boards/demo (active main board), $boards/lc (line card)"
for board in "$boards/demo" "$boards/lc"; do
  "$bootsim" put "$board" /etc/swm_user.conf --text "swm_log_path=/var/lib/swm/workdir/var/log"
done

run() {
  local board=$1
  shift
  echo
  echo "[$(basename "$board")] \$ bootinit $*"
  local status=0
  # Standard output exactly as a boot script reads it (line feeds shown as \n), then the result.
  "$bootsim" run "$board" -- "$bootinit" --print-result "$@" >"$boards/out" 2>"$boards/err" \
    || status=$?
  echo "  stdout: $(/usr/bin/python3 -c 'import sys; print(repr(sys.stdin.buffer.read())[1:])' <"$boards/out")"
  sed 's/^/  /' "$boards/err"
  echo "  exit status: $status"
}

show_log() {
  echo
  echo "== boot log of $(basename "$1") =="
  "$bootsim" log "$1" --type 0 "${@:2}"
}

# A package in the main board's home directory, named by the boot environment.
printf 'demo package' > "$boards/base.cc"
"$bootsim" package "$boards/demo" "$boards/base.cc" >/dev/null
"$bootsim" env "$boards/demo" --set next_bootfile=/opt/kytv8/home/base.cc cpu_id=0

echo
echo "== board information and startup mode on the active main board =="
for question in 1 2 3 5 6 10 0 8; do run "$boards/demo" 1 "$question"; done
run "$boards/demo" 10
run "$boards/demo" 11 local
run "$boards/demo" 10
run "$boards/demo" 9
run "$boards/demo" 1 8

echo
echo "== the same questions on the line card =="
for question in 1 2 6 8; do run "$boards/lc" 1 "$question"; done
run "$boards/lc" 10

echo
echo "== what the dispatcher answers for numbers without an operation =="
run "$boards/demo" 4
run "$boards/demo" 20
run "$boards/demo" 1a

echo
echo "== signatures: operation 3 checks files signed with openssl cms =="
# The line card trusts the build's test root; its main board 1 is the demo board.
pki=$PWD/build/pki
"$bootsim" set "$boards/lc" "security.root_ca=$pki/root_ca.der" "peers.mmb1=$boards/demo"
printf 'start file of the line card\n' > "$boards/app.img"
sign() {  # sign SIGNER OUT [openssl options]: a detached DER CMS signature of app.img
  openssl cms -sign -binary -outform DER -md sha256 -signer "$pki/$1.pem" -inkey "$pki/$1.key" \
    -in "$boards/app.img" -out "$boards/$2" "${@:3}"
}
sign classic_signer app.cms
sign pss_signer app.pss.cms -keyopt rsa_padding_mode:pss
sign revoked_signer app.revoked.cms
printf 'start file of the line card, changed\n' > "$boards/app.changed"
for file in app.img app.cms app.pss.cms app.revoked.cms; do
  "$bootsim" put "$boards/lc" "/var/lib/demo/$file" --from "$boards/$file"
done
"$bootsim" put "$boards/lc" /var/lib/demo/changed.img --from "$boards/app.changed"
for crl in crl_empty crl_revoking; do
  "$bootsim" put "$boards/lc" "/var/lib/demo/$crl" --from "$pki/$crl.der"
done
run "$boards/lc" 3 0 /var/lib/demo app.img app.cms crl_empty
run "$boards/lc" 3 0 /var/lib/demo app.img app.pss.cms
run "$boards/lc" 3 0 /var/lib/demo changed.img app.cms crl_empty
run "$boards/lc" 3 0 /var/lib/demo app.img app.revoked.cms crl_revoking

echo
echo "== packages: bootpkg builds and signs one, operation 0 takes proven files out of it =="
bootpkg=tools/bootpkg/bootpkg
printf 'kernel of the line card\n' > "$boards/kernel.img.gz"
printf 'root file system of the line card\n' > "$boards/rootfs"
package() {  # package NAME [bootpkg build options]: a PSS-signed package of the two files
  "$bootpkg" build --out "$boards/$1" --sign pss --signer "$pki/pss_signer.pem" \
    --key "$pki/pss_signer.key" "${@:2}" "$boards/kernel.img.gz" "$boards/rootfs"
  "$bootsim" put "$boards/lc" "/opt/kytv8/home/$1" --from "$boards/$1"
}
# The line card runs another package, so the new one's signature files are read through /tmp.
"$bootsim" env "$boards/lc" --set next_bootfile=/opt/kytv8/home/running.cc
package update.cc
echo "bootpkg list update.cc (entry, offset, record length, file length, kind, binName, actual name, record digest, file digest):"
"$bootpkg" list "$boards/update.cc" | sed 's/^/  /'
run "$boards/lc" 0 1 /opt/kytv8/home/update.cc kernel.img.gz /var/lib/demo/out
run "$boards/lc" 0 1 /opt/kytv8/home/update.cc rootfs.bin /var/lib/demo/out
"$bootsim" run "$boards/lc" -- cat /var/lib/demo/out/kernel.img.gz >"$boards/kernel.out"
cmp -s "$boards/kernel.out" "$boards/kernel.img.gz" && echo "  the extracted kernel.img.gz is the packaged file"
# Operation 5 takes the file out of the .bin form (its 352-byte file header in front).
run "$boards/lc" 5 /var/lib/demo/out/rootfs.bin rootfs /var/lib/demo/unwrapped
# A changed byte fails its digest; a gap between records breaks the container as a whole.
package changed.cc --break changed-byte --target rootfs
package gap.cc --break gap --target kernel.img.gz
run "$boards/lc" 0 1 /opt/kytv8/home/changed.cc rootfs /var/lib/demo/refused
run "$boards/lc" 0 1 /opt/kytv8/home/gap.cc rootfs /var/lib/demo/refused
echo "  /var/lib/demo/refused holds: [$("$bootsim" run "$boards/lc" -- ls -A /var/lib/demo/refused)]"

echo
echo "== the CRL refresh: the main board has a newer CRL than the line card's flash =="
"$bootsim" put "$boards/demo" /opt/velmor/bootfile/crl_upgrade --from "$pki/crl_newer.der"
"$bootsim" flash "$boards/lc" crl --write "$pki/crl_older.der"
run "$boards/lc" 3 5
"$bootsim" flash "$boards/lc" crl --read "$boards/flash.der"
cmp -s "$boards/flash.der" "$pki/crl_newer.der" && echo "  flash now holds the newer CRL"
run "$boards/lc" 3 5
echo
echo "== security log of lc =="
"$bootsim" log "$boards/lc" --type 1

show_log "$boards/demo"
echo "== header: $("$bootsim" log "$boards/demo" --type 0 --raw-header)"
show_log "$boards/lc"

# The log directory follows /etc/swm_user.conf.
"$bootsim" put "$boards/lc" /etc/swm_user.conf --text "swm_log_path=/opt/boardlogs"
echo
echo "== the line card's log moved to /opt/boardlogs =="
run "$boards/lc" 1 5
show_log "$boards/lc" --path /opt/boardlogs/app_boot.log
