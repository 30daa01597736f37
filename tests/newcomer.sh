#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# A newcomer's way: what docs/getting-started.md says, from its first command on, by an ordinary user of a
# Debian 12 with nothing in it but sudo, on the last commit. Needs root, and the machine's own sources of
# Debian packages; takes some minutes.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ "$(id -u)" -ne 0 ]; then
  echo "Only root can make a clean system: sudo $0" >&2
  exit 1
fi
if [ -z "${NYXUS_OWN_MOUNTS:-}" ]; then
  packaging/install-packages.sh package
  NYXUS_OWN_MOUNTS=1 exec unshare --mount --propagation private "$0" "$@"
fi
. packaging/clean-system.sh
trap remove_clean_system EXIT

step "A clean Debian 12"
make_clean_system
quietly inside apt-get -q update
quietly inside apt-get -q -y --no-install-recommends install sudo python3
echo 'tester ALL=(ALL) NOPASSWD: ALL' >"$root/etc/sudoers.d/tester"

step "The project"
mkdir "$root/home/tester/nyxus"
git archive HEAD | tar -x -C "$root/home/tester/nyxus"
inside chown -R tester: /home/tester/nyxus

step "What the page says"
as_user 'cd nyxus && mkdir home && python3 tests/newcomer.py docs/getting-started.md .'
