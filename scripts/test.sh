#!/usr/bin/env bash
# Installs what is missing, builds one preset (default, asan or tsan) and runs every test.
# Prints how long each stage took.
set -euo pipefail
preset="${1:-default}"
cd "$(dirname "$0")/.."

stage_start=$SECONDS
stage() {
    local now=$SECONDS
    printf '[%s] %-10s %4ds\n' "$preset" "$1" $((now - stage_start))
    stage_start=$now
}

bash scripts/install-deps.sh
stage install
source scripts/ccache-env.sh
cmake --preset "$preset" >/dev/null
stage configure
cmake --build --preset "$preset" -j "$(nproc)"
stage build
ctest --preset "$preset"
stage test
if [ "$preset" = default ]; then
    # An application's view: install, then build the examples out of the tree against it.
    bash scripts/install-test.sh "build/$preset"
    stage install-test
fi
