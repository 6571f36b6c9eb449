#!/usr/bin/env bash
# Installs the Debian packages that building and testing Pixmill needs, only
# when one of them is missing. Safe to run again; needs root (or sudo).
set -euo pipefail

packages=(
  g++ cmake make pkg-config
  libopencv-dev
  rapidjson-dev
  libgtest-dev libgmock-dev
  libbenchmark-dev
  libcli11-dev
  clang libclang-rt-14-dev
  xvfb
  xauth
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing: ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
