#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The ABI guard notices what it is there for, tried on a library of two functions.
# usage: abi_guard_test.sh TOOLS_DIRECTORY
set -euo pipefail
tools=$1
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
cd "$place"
mkdir headers

# build HEADER: the library whose functions are the header's, each with an empty body.
build() {
  printf '%s\n' "$1" > headers/sample.h
  { echo '#include "headers/sample.h"' && sed -n 's/^\(int .*\);$/\1 { return 0; }/p' headers/sample.h; } > sample.c
  gcc -g -w -fPIC -shared -o libsample.so sample.c
}

# expect CODE TEXT COMMAND: tools/abi COMMAND ends so and says so.
expect() {
  local code=0
  "$tools/abi" "$3" baseline.abi libsample.so headers > output 2>&1 || code=$?
  if [ "$code" != "$1" ] || ! grep -qF -- "$2" output; then
    printf 'abi_guard_test: "%s" gave %s instead of %s and "%s":\n' "$3" "$code" "$1" "$2" >&2
    cat output >&2
    exit 1
  fi
}

record='struct sample { int id; char name[4]; };'
build "$record
int first(struct sample *s);
int second(int a);"
expect 2 'there is no baseline.abi' check
expect 0 'written: baseline.abi' update
expect 0 'baseline.abi stands' check
if grep -qF "$place" baseline.abi; then echo "abi_guard_test: the baseline names folders of this machine" >&2; exit 1; fi

build "$record
int first(struct sample *s);"
expect 1 "'function int second(int)'" check
expect 1 'break' check
expect 1 'nothing written' update

build 'struct sample { int id; char name[8]; };
int first(struct sample *s);
int second(int a);'
expect 1 'type size changed from 64 to 96' check
expect 1 'nothing written' update

build "$record
int first(struct sample *s);
int second(long a);"
expect 1 'parameter 1' check

build "$record
int first(struct sample *s);
int second(int a);
int third(int a);"
expect 1 'only additions' check
expect 0 'written: baseline.abi' update
expect 0 'baseline.abi stands' check

build "$record
int third(int a);"
expect 0 'written: baseline.abi' break
expect 0 'baseline.abi stands' check
