#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Upgrades the firmware of a simulated camera and shows what happens. Needs nothing but a Debian 12
# machine: it installs and builds what is missing first.
#
#   ./demo.sh [MODEL]     MODEL: one of 'build/dev/bin/nyxus-sim models', rowan-spi without it
set -eu
cd "$(dirname "$0")"

model=${1:-rowan-spi}
version=0x0205
bin=$PWD/build/dev/bin

heading() {
    printf '\n== %s\n' "$1"
}

# Runs inside 'nyxus-sim run', where the simulated camera is plugged in.
upgrade_the_camera() {
    heading "The camera as it comes from the factory: nyxus info"
    nyxus info
    heading "Upgrade to firmware $version: nyxus upgrade image.bin"
    nyxus upgrade "$DEMO_IMAGE"
    heading "Restart with the new firmware: nyxus reset"
    nyxus reset
    heading "The ROM once more against the image: nyxus compare image.bin"
    nyxus compare "$DEMO_IMAGE"
}

if [ -n "${DEMO_IMAGE:-}" ]; then
    upgrade_the_camera
    exit
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

quietly() {
    if ! "$@" >"$work/log" 2>&1; then
        tail -n 30 "$work/log" >&2
        echo "'$*' failed; the end of its output is above." >&2
        exit 1
    fi
}

packaging/install-packages.sh build run
[ -x "$bin/nyxus-sim" ] || echo "Building; this happens only once."
[ -f build/dev/build.ninja ] || quietly cmake --preset dev
quietly cmake --build --preset dev --target nyxus_tool nyxus-sim

quietly "$bin/nyxus-sim" image --model "$model" --version "$version" "$work/image.bin"
echo "Made a firmware image, version $version, for the simulated camera '$model'."
PATH=$bin:$PATH DEMO_IMAGE=$work/image.bin XDG_STATE_HOME=$work \
    "$bin/nyxus-sim" run --camera "$model" -- "$PWD/demo.sh" "$model"
heading "Done: the simulated camera runs its new firmware."
