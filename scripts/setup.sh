#!/usr/bin/env bash
# Installs what building, testing and the demo need from Debian 12's packages. Safe to run
# again: it only calls apt-get when a package is missing.
set -euo pipefail

packages=(
  build-essential cmake pkg-config            # compiler and build
  libgtest-dev libgmock-dev googletest         # unit tests
  bubblewrap                                   # board sandbox
  libubootenv-dev libubootenv-tool             # boot environment (libdrv, fw_printenv/fw_setenv)
  libssl-dev openssl                           # crypto library opened at run time ("libcrypto.so")
  libselinux1                                  # security labels ("libselinux.so.1", opened at run time)
  e2fsprogs util-linux                         # ext4 file systems that boards mount (mkfs.ext4, mount)
  python3 python3-pytest                       # board sandbox tool and scenario tests
  python3-pyftpdlib curl                       # FTP servers of simulated main boards; benchmarks
  clang-format clang-tidy                      # static checks
  clang libclang-rt-dev                        # fuzz harnesses (libFuzzer)
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
