#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# 300 items registered and cached take less than 256 KiB of heap and their values, and less than 288 KiB
# of private pages; reads and writes leave nothing behind. The heap to the byte: see memory_host.c for
# the thread cache that is switched off.
# usage: memory_test.sh MEMORY_HOST [EMULATOR...]
set -euo pipefail
host=$1
shift
if [ "${VEXA_DEVICE_ROOT:-}" != 1 ]; then
  printf 'no private device root: %s\n' "${VEXA_DEVICE_ROOT_MISSING:-not started by device_root}"
  [ "${CI:-}" != true ] || exit 1
  exit 77
fi
export GLIBC_TUNABLES=glibc.malloc.tcache_count=0

# measure NAME MODE...: the bytes of that name.
measure() {
  local name=$1
  shift
  "$@" | sed -n "s/^$name //p"
}
# at_most BYTES LIMIT WHAT
at_most() {
  printf '%s: %s bytes, at most %s\n' "$3" "$1" "$2"
  [ "$1" -le "$2" ] || exit 1
}

"$@" "$host" fill 300
cached=$("$@" "$host" cached 300)
idle=$("$@" "$host" idle)
# above_idle NAME: how many bytes of that name the items take.
above_idle() { echo $(($(measure "$1" echo "$cached") - $(measure "$1" echo "$idle"))); }
at_most "$(above_idle heap)" $((256 * 1024 + 300 * 16)) "heap of 300 items above a host that links SQLite"
at_most "$(measure heap "$@" "$host" reads 300 10000)" 0 "heap that 10,000 reads leave behind"
at_most "$(measure heap "$@" "$host" writes 300 200)" 0 "heap that 200 writes leave behind"
# What follows is the emulator's own, where there is one.
[ $# -eq 0 ] || exit 0
# 252 to 260 KiB in fifteen runs, of pages of 4 KiB; a tenth for other versions of SQLite and the C library.
[ "$(getconf PAGESIZE)" != 4096 ] ||
  at_most "$(above_idle private)" $((288 * 1024)) "private pages of 300 items above a host that links SQLite"
# A page may be touched for the first time at any moment; a leak of 8 bytes a read is twenty.
at_most "$(measure private "$host" reads 300 10000)" 16384 "memory that 10,000 reads leave behind"
