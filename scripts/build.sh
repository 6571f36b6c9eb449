#!/usr/bin/env bash
# Installs what is missing, then configures and builds Pixmill into ./build.
# Extra arguments go to the CMake configure step.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build build -j "$(nproc)"
