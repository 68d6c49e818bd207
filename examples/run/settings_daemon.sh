#!/bin/sh
# SPDX-License-Identifier: MIT
# Two lives of the daemon: what it was told in the first, it knows in the second. Each line waits for the
# answer to the one before.
set -e
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkfifo "$work/in" "$work/out"

# live LINE...: one life, in which it is told these lines
live() {
  "$1/settings_daemon" < "$work/in" > "$work/out" &
  shift
  exec 3> "$work/in" 4< "$work/out"
  IFS= read -r answer <&4
  echo "$answer"
  for line in "$@"; do
    echo "$line" >&3
    IFS= read -r answer <&4
    echo "$answer"
  done
  kill "$!"
  cat <&4
  wait "$!"
  exec 3>&- 4<&-
}

live "$1" "channel 11" "channel 99" "ssid Garden"
live "$1"
