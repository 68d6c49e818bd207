#!/bin/sh
# SPDX-License-Identifier: MIT
# Installs the library into an empty prefix and uses it from there as a stranger would.
# usage: install_test.sh CMAKE BUILD_DIRECTORY CC CXX TESTS_DIRECTORY
set -eu
cmake=$1 build=$2 cc=$3 cxx=$4 tests=$5
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

"$cmake" --install "$build" --prefix "$prefix" > /dev/null
library=$(dirname "$(find "$prefix" -name libvexadm.so)")
flags="-Wall -Wextra -Wpedantic -Werror -I$prefix/include -L$library"

# shellcheck disable=SC2086  # the flags are words
"$cc" -std=c11 $flags "$tests/install_test.c" -lvexadm -o "$prefix/c_host"
# shellcheck disable=SC2086
"$cxx" -std=c++20 -x c++ $flags "$tests/install_test.c" -x none -lvexadm -o "$prefix/cpp_host"

for host in c_host cpp_host; do
  LD_LIBRARY_PATH=$library "$prefix/$host" > "$prefix/output"
  grep -q "oem_host_start 7 | hello 42" "$prefix/output" || { cat "$prefix/output"; exit 1; }
done
