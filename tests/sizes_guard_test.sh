#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The size guard notices what it is there for, tried on small libraries.
# usage: sizes_guard_test.sh TOOLS_DIRECTORY
set -euo pipefail
tools=$1
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT
cd "$place"

# build DECLARATION: a library of that and a function, whose text is large enough for a percent to count.
build() {
  {
    printf '%s\n' "$1"
    echo 'int sum(int a) {'
    for number in {1..400}; do echo "  a = a * $number + (a ^ $number);"; done
    echo '  return a; }'
  } > sample.c
  gcc -w -O0 -fPIC -shared -o libsample.so sample.c
}

# expect CODE TEXT [--accept]: tools/sizes ends so and says so. The libraries are this machine's whatever
# they are called; the limits go by the name.
expect() {
  local wanted=$1 text=$2 code=0
  shift 2
  "$tools/sizes" "$@" sizes.tsv amd64=libsample.so= armhf=libsample.so= > output 2>&1 || code=$?
  if [ "$code" != "$wanted" ] || ! grep -qF -- "$text" output; then
    printf 'sizes_guard_test: line %s: %s instead of %s and "%s":\n' "${BASH_LINENO[0]}" "$code" "$wanted" "$text" >&2
    cat output >&2
    exit 1
  fi
}

# grown PERCENT NAME: the baseline, as if this number had grown by so much since.
grown() {
  awk -F '\t' -v OFS='\t' -v percent="$1" -v name="$2" '
    $1 == "armhf" && $2 == name { $3 = int($3 / (1 + percent / 100)); ++found }
    { print }
    END { if (!found) exit 1 }' accepted.tsv > sizes.tsv
}

build 'int data[500] = {1};'
expect 1 './dev size --accept'  # no baseline
[ ! -e sizes.tsv ] || { echo "sizes_guard_test: a baseline that nobody accepted" >&2; exit 1; }
expect 0 'written: sizes.tsv' --accept
cp sizes.tsv accepted.tsv
expect 0 '+0.0 %'
for name in text "data + bss" "stripped file"; do
  grown 3 "$name"
  expect 1 "grown by more than 2%: armhf $name"
  expect 1 './dev size --accept'
  grown 1 "$name"
  expect 0 '+1.0 %'
  grown -50 "$name"
  expect 0 '-50.0 %'
done
# A number of which there was none.
grep -v $'^armhf\ttext\t' accepted.tsv > sizes.tsv
expect 1 'armhf text'
grown 3 text
expect 0 'written: sizes.tsv' --accept
cmp accepted.tsv sizes.tsv

# What no baseline moves.
build 'int data[500] = {1}; char room[24 * 1024];'
expect 1 'armhf data + bss is' --accept
cmp accepted.tsv sizes.tsv
rest=$(awk -F '\t' '$1 == "armhf" && $2 == "stripped file" { print 96 * 1024 - $3 }' accepted.tsv)
# The file grows in pages; by how many depends on the linker.
build "const char table[$((rest + 8192))] = {1};"
expect 1 'armhf stripped file is' --accept
cmp accepted.tsv sizes.tsv
build "const char table[$((rest - 8192))] = {1};"
expect 0 'written: sizes.tsv' --accept
