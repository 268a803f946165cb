#!/usr/bin/env bash
# Installs a built tree (default: build/default) into a temporary prefix and builds the examples
# against it as an application would: once with find_package, once with pkg-config; runs them.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build/default}"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

cmake --install "$build" --prefix "$tmp/prefix" >/dev/null

cmake -S apps/examples -B "$tmp/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$tmp/prefix" >/dev/null
cmake --build "$tmp/cmake" >/dev/null
"$tmp/cmake/wire_hello" >/dev/null
"$tmp/cmake/play_tone" "Virtual Output"

export PKG_CONFIG_PATH="$tmp/prefix/lib/pkgconfig"
# (-rpath: a shared build in a prefix the loader does not search)
c++ -std=c++20 apps/examples/play_tone.cpp -o "$tmp/play_tone_pc" $(pkg-config --cflags --libs mediawire) \
    -Wl,-rpath,"$tmp/prefix/lib"
"$tmp/play_tone_pc" "Virtual Output"
"$tmp/prefix/bin/mediawire" --version
echo "install-test: find_package and pkg-config builds of the examples ran"
