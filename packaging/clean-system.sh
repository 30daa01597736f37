# SPDX-License-Identifier: Apache-2.0
# A Debian 12 with nothing else in it, in build/clean-system: for scripts that read this file in the
# project's folder, as root and in a mount namespace of their own, where whatever happens leaves no
# mounts behind. It needs the machine's own sources of Debian packages.
# shellcheck shell=bash disable=SC2016 # apt and the clean system expand what stands in single quotes

root=$PWD/build/clean-system
cache=$PWD/build/package-cache
log=$PWD/build/clean-system.log

step() { printf '== %s\n' "$*"; }

quietly() {
  if ! "$@" >"$log" 2>&1; then
    tail -n 40 "$log" >&2
    echo "'$*' failed; the end of its output is above." >&2
    exit 1
  fi
}

inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive \
  LC_ALL=C.UTF-8 "$@"; }

as_user() { inside setpriv --reuid tester --regid tester --clear-groups \
  env HOME=/home/tester USER=tester sh -euc "cd; $1"; }

remove_clean_system() {
  umount -lq "$root/proc" "$root/dev" "$root/sys" || true
  rm -rf --one-file-system "$root"
}

make_clean_system() {
  local sources mirror
  mapfile -t sources < <(apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' \
    'Created-By: Packages' 'Origin: Debian' | sort -u)
  mirror=$(printf '%s\n' "${sources[@]}" | awk '$3 == "bookworm" {print $2; exit}')
  [ -n "$mirror" ] || { echo "apt has no source for bookworm; run 'apt-get update'" >&2; exit 1; }
  rm -rf --one-file-system "$root"
  mkdir -p "$cache"
  quietly debootstrap --variant=minbase --include=ca-certificates --cache-dir="$cache" \
    bookworm "$root" "$mirror"
  printf '%s\n' "${sources[@]}" >"$root/etc/apt/sources.list"
  apt-config dump | grep -E '^Acquire::(https?|Retries|ForceIP|Check-)' >"$root/etc/apt/apt.conf.d/90machine" || true
  cp /etc/resolv.conf "$root/etc/resolv.conf"
  mount -t proc proc "$root/proc"
  mount --rbind /dev "$root/dev"
  mount --rbind /sys "$root/sys"
  inside useradd --create-home tester
}
