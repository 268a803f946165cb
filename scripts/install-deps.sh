#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the tool need, when any is missing.
# Idempotent and silent when everything is there; runs as root on a fresh Debian 12 machine.
set -euo pipefail

packages=(
    build-essential cmake ninja-build pkg-config ccache
    googletest libgtest-dev libgmock-dev libbenchmark-dev
    libasound2-dev alsa-utils
    libavcodec-dev libavformat-dev libavutil-dev libswresample-dev libavfilter-dev
    libgsf-1-dev libasio-dev libpugixml-dev libcli11-dev
    python3 python3-olefile
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "install-deps: installing ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "install-deps: not root and no sudo; install: ${missing[*]}" >&2; exit 1; }
    sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
