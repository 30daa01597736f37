#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the packages of build/packages in a Debian 12 with nothing else in it, and does the main
# job there as an ordinary user: from a firmware image to verified flash. Then a program is built
# with them, Python imports them, and they are removed again. Needs root, and the machine's own
# sources of Debian packages.
#
#   packaging/test-packages.sh [--keep]     --keep: leave the system in build/clean-system
# shellcheck disable=SC2016 # apt and the clean system expand what stands in single quotes
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "$(id -u)" -ne 0 ]; then
  echo "Only root can make a clean system: sudo $0" >&2
  exit 1
fi
# In a mount namespace of its own, whatever happens leaves no mounts behind.
if [ -z "${NYXUS_OWN_MOUNTS:-}" ]; then
  packaging/install-packages.sh package
  compgen -G 'build/packages/*.deb' >/dev/null || packaging/build-packages.sh
  NYXUS_OWN_MOUNTS=1 exec unshare --mount --propagation private "$0" "$@"
fi

. packaging/clean-system.sh
keep=${1:-}
trap '[ "$keep" = --keep ] || remove_clean_system' EXIT

step "A clean Debian 12"
make_clean_system

step "Installing"
mkdir "$root/packages"
cp build/packages/*.deb "$root/packages"
rm -f "$root"/packages/*-dbgsym_*.deb
quietly inside apt-get -q update
quietly inside sh -c 'apt-get -q -y --no-install-recommends install /packages/*.deb'
ls -1 "$root/packages"

step "From a firmware image to verified flash"
as_user '
  nyxus-sim image --model rowan-spi --version 0x0205 image.bin
  nyxus-sim run --camera rowan-spi --rom camera.rom -- nyxus upgrade image.bin --reset
  nyxus-sim run --camera rowan-spi --rom camera.rom -- nyxus compare image.bin
  cmp --bytes="$(wc -c <image.bin)" image.bin camera.rom' 2>&1

step "The udev rule"
quietly inside apt-get -q -y --no-install-recommends install udev gcc libc6-dev pkgconf
inside nyxus-sim run --camera rowan-spi -- udevadm test -a add /sys/bus/usb/devices/1-1 2>&1 |
  grep '^TAGS=.*:uaccess:' || { echo "it does not hand the camera to the seat" >&2; exit 1; }

step "A C program"
cp tests/install/client.c "$root/home/tester"
as_user '
  cc -Wall -Werror client.c $(pkg-config --cflags --libs nyxus) -o client
  nyxus-sim run --camera cedar-spi -- ./client'

if compgen -G 'build/packages/python3-nyxus_*.deb' >/dev/null; then
  step "Python"
  as_user 'nyxus-sim run --camera cedar-spi -- python3 -c "
import nyxus
with nyxus.open() as camera:
    print(camera.chip, hex(camera.firmware_version))"'
fi

if compgen -G 'build/packages/python3-nyxus_*.deb' >/dev/null; then
  step "Test suites, as in hosted CI: docs/ci.md"
  quietly inside apt-get -q -y --no-install-recommends install \
    g++ cmake ninja-build pkgconf libgtest-dev python3-pytest
  cp -r examples "$root/home/tester"
  inside chown -R tester: /home/tester/examples
  as_user 'examples/ci/run.sh'
fi

step "Removing"
quietly inside sh -c 'dpkg --purge $(dpkg-query -W -f "\${source:Package} \${Package}\n" |
  sed -n "s/^nyxus //p")'
left=$(find "$root/usr" "$root/etc" "$root/lib/" "$root/var" -iname '*nyxus*' -not -path '*/apt/*')
[ -z "$left" ] || { printf 'left behind:\n%s\n' "$left" >&2; exit 1; }
echo "The packages work, and leave nothing behind."
