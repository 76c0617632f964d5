#!/usr/bin/env bash
# Installs what a fresh Debian machine lacks to build and test the project (with apt-get,
# through sudo when not root).
# Usage: scripts/install-deps.sh
set -euo pipefail
# --help prints the comment above as the usage, and does nothing else.
if [ "${1:-}" = "--help" ] || [ "${1:-}" = "-h" ]; then sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"; exit 0; fi
# valgrind: bench/callgrind.sh counts instructions with it (its headers come in the same package).
packages=(cmake ninja-build g++ nlohmann-json3-dev libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev python3 valgrind)
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}"
fi
