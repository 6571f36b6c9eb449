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
  locales
  xvfb
  xauth
  libffi-dev
  python3-numpy
  python3-pytest
  python3-pip
  python3-venv
  libsystemd-dev
  dpkg-dev
  file
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

# The tests run the library under a host locale with a decimal comma.
make_locale() {
  if ! locale -a 2>/dev/null | grep -qi '^de_DE\.utf-\?8$'; then
    $SUDO localedef -i de_DE -f UTF-8 de_DE.UTF-8
  fi
}

if [ ${#missing[@]} -eq 0 ]; then
  make_locale
  exit 0
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
make_locale
