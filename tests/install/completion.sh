#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# bash and zsh complete the command lines of the programs installed below PREFIX.
# usage: completion.sh PREFIX
set -u
root=$1
export PATH=$root/bin:$PATH XDG_DATA_DIRS=$root/share
failures=0

# shellcheck disable=SC1091
. /usr/share/bash-completion/bash_completion

# shellcheck disable=SC2317 # called by expect
in_bash() { # WORD ... as bash splits them; the last one is in work
  _completion_loader "$1"
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE="$*" COMP_POINT=${#COMP_LINE} COMPREPLY=()
  COMP_LINE=${COMP_LINE// = /=} COMP_POINT=${#COMP_LINE}
  "_complete_${1//-/_}" 2>/dev/null
  echo "${COMPREPLY[*]}"
}

# shellcheck disable=SC2317
in_zsh() { # WORD ...
  zsh -fc 'compadd() { shift; print -r -- "$@"; }
    _files() { print -r -- *(N); }
    _normal() { print -r -- "program: $words"; }
    script=$1; shift; words=("$@"); CURRENT=$#; source $script' - \
    "$root/share/zsh/site-functions/_$1" "$@" | paste -sd ' '
}

expect() { # SHELL REGEX WORD ...
  local shell=$1 regex=$2 said
  shift 2
  said=$("in_$shell" "$@")
  [[ " $said " =~ $regex ]] && return
  echo "$shell completes '$*' to '$said', not to '$regex'"
  failures=$((failures + 1))
}

cd "$(mktemp -d)" || exit
trap 'rm -rf "$PWD"' EXIT
touch image.bin
for shell in bash zsh; do
  expect $shell '^ upgrade $' nyxus upg
  expect $shell ' list .* snapshot ' nyxus ''
  expect $shell ' --mfi .* --camera ' nyxus upgrade --
  expect $shell '^ high low $' nyxus gpio 5 ''
  expect $shell '^ enable .* color ' nyxus help osd ''
  expect $shell '^ 4 8 16 32 $' nyxus upgrade --eeprom ''
  expect $shell '^  $' nyxus reset --wait ''
  expect $shell '^  $' nyxus snapshot --size ''
  expect $shell ' image.bin ' nyxus upgrade ''
  expect $shell '^ power_line_frequency $' nyxus control set pow
  expect $shell ' rowan-spi .* image.bin ' nyxus-sim describe ''
  expect $shell '^ cedar-spi cedar-swapped .*$' nyxus-sim run --rom image.bin --camera ced
  expect $shell '^ motion-alarm ' nyxus-sim 'do' ''
done
expect bash '^ real fast $' nyxus-sim run --speed = ''
expect zsh '^ --speed=real --speed=fast $' nyxus-sim run --speed=
expect zsh '^ program: nyxus upg $' nyxus-sim run -- nyxus upg
expect bash '^ image.bin $' nyxus-sim run -- cat im

# A camera's names come from the bus.
[ "$(nyxus-sim run --camera rowan-spi,serial=A77 -- nyxus --complete -c '')" = $'A77\n1-1' ] ||
  { echo "the connected camera is not offered"; failures=$((failures + 1)); }
[[ $(nyxus-sim run --camera maple-mjpeg -- nyxus --complete stream --size '') == *$'\n1280x720\n'* ]] ||
  { echo "the sizes of the connected camera are not offered"; failures=$((failures + 1)); }
exit $((failures > 0))
