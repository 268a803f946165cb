#!/usr/bin/env bash
# Installs what is missing, builds one preset (default, asan or tsan) and runs every test.
set -euo pipefail
preset="${1:-default}"
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
export CCACHE_DIR="${CCACHE_DIR:-$PWD/build/.ccache}"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset"
