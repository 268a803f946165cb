#!/usr/bin/env bash
# Installs what is missing, builds the mediawire tool and runs its main job.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
source scripts/ccache-env.sh
cmake --preset default >/dev/null
cmake --build --preset default --target mediawire -j "$(nproc)"
tool=build/default/apps/mediawire
"$tool" --version
"$tool" classes
# The output devices, then two seconds of a generated tone on the default device (the virtual
# one on a machine without sound), decoded through FFmpeg and played through a wave output.
"$tool" devices
"$tool" play --tone 2
