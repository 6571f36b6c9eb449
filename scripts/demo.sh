#!/usr/bin/env bash
# Installs what is missing, builds Pixmill and runs the demo: the filter
# description document, read through the public C interface.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh
export PIXMILL_ROOT="${PIXMILL_ROOT:-$PWD/build/demo-root}"
./build/tools/describe_filters
