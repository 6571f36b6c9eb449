#!/usr/bin/env bash
# Installs what is missing, builds Pixmill and runs the demo: sample images
# drawn with known content, a demo recipe run through the library, and the
# result document and output images it gives.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh
./build/tools/pixmill demo --root "${PIXMILL_DEMO_ROOT:-$PWD/build/demo}"
