#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the library into an empty prefix and uses it from there as a stranger would.
# usage: install_test.sh CASE CMAKE BUILD_DIRECTORY CC CXX TESTS_DIRECTORY
# From the environment, for another architecture: TOOLCHAIN, a CMake toolchain file; VEXA_EMULATOR, the
# words that start a program of it; LDFLAGS.
set -euo pipefail
wanted=$1 cmake=$2 build=$3 cc=$4 cxx=$5 stranger=$6/stranger
version=$(sed -n 's/^#define VEXADM_VERSION "\(.*\)"$/\1/p' "$6/../include/vexadm/version.h")
read -r -a emulator <<< "${VEXA_EMULATOR:-}"
read -r -a ldflags <<< "${LDFLAGS:-}"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# Nothing that is installed on the machine may help.
unset CMAKE_PREFIX_PATH PKG_CONFIG_PATH PKG_CONFIG_SYSROOT_DIR DESTDIR

fail() {
  printf '%s: %s\n' "$wanted" "$*" >&2
  exit 1
}

# Into $scratch/usr; sets prefix and libdir.
installed() {
  prefix=$scratch/usr
  "$cmake" --install "$build" --prefix "$prefix" > "$scratch/log" || fail "$(cat "$scratch/log")"
  library_of "$prefix"
}

library_of() { libdir=$(dirname "$(find "$1" -name 'libvexadm.so.*.*.*')"); }

# runs LANGUAGE PROGRAM: the program runs, and was compiled with these headers.
runs() {
  LD_LIBRARY_PATH=$libdir "${emulator[@]}" "$2" > "$scratch/output" || fail "$2 ended with $?"
  grep -q 'oem_host_start 7 | hello 42' "$scratch/output" || fail "logged: $(cat "$scratch/output")"
  grep -qx "$1 with $version" "$scratch/output" || fail "printed: $(cat "$scratch/output")"
}

compile() {
  local flags=(-Wall -Wextra -Wpedantic -Werror)
  "$cc" -std=c11 "${flags[@]}" "$stranger/host.c" "$@" "${ldflags[@]}" -o "$scratch/c_host"
  "$cxx" -std=c++20 "${flags[@]}" "$stranger/host.cpp" "$@" "${ldflags[@]}" -o "$scratch/cpp_host"
  runs C "$scratch/c_host"
  runs C++ "$scratch/cpp_host"
}

# find_package PREFIX [VERSION]: configures the stranger's project. With a toolchain, which looks for
# packages in its sysroot alone, the prefix is one of the staging area.
find_package() {
  "$cmake" -G Ninja -S "$stranger" -B "$scratch/stranger" -D CMAKE_PREFIX_PATH="$1" -D WANTED="${2:-$version}" \
    -D CMAKE_C_COMPILER="$cc" -D CMAKE_CXX_COMPILER="$cxx" \
    ${TOOLCHAIN:+-D CMAKE_TOOLCHAIN_FILE="$TOOLCHAIN" -D CMAKE_STAGING_PREFIX="$1"} > "$scratch/log" 2>&1
}

by_cmake() {
  find_package "$1" || fail "$(cat "$scratch/log")"
  "$cmake" --build "$scratch/stranger" > "$scratch/log" || fail "$(cat "$scratch/log")"
  runs C "$scratch/stranger/c_host"
  runs C++ "$scratch/stranger/cpp_host"
}

# by_pkg_config [OPTION...]
by_pkg_config() {
  export PKG_CONFIG_LIBDIR=$libdir/pkgconfig
  local words
  words=$(pkg-config "$@" --cflags --libs vexadm) || fail "pkg-config failed"
  read -r -a words <<< "$words"
  compile "${words[@]}"
}

by_hand() {
  installed
  compile "-I$prefix/include" "-L$libdir" -lvexadm
}

find_package_gives_the_target() {
  installed
  by_cmake "$prefix"
}

pkg_config_gives_the_flags() {
  installed
  by_pkg_config
  [ "$(pkg-config --modversion vexadm)" = "$version" ] || fail "pkg-config says another version"
}

# The image builders' way: staged by DESTDIR, found through a sysroot.
destdir_is_in_no_file() {
  DESTDIR=$scratch/stage "$cmake" --install "$build" --prefix /usr > "$scratch/log"
  grep -rlF "$scratch" "$scratch/stage" && fail "names the folder of the staging"
  library_of "$scratch/stage"
  by_cmake "$scratch/stage/usr"
  PKG_CONFIG_SYSROOT_DIR=$scratch/stage by_pkg_config
  [ "$(PKG_CONFIG_SYSROOT_DIR='' pkg-config --variable=includedir vexadm)" = /usr/include ] ||
    fail "pkg-config's file does not keep the prefix"
}

a_moved_prefix_still_serves() {
  installed
  mv "$prefix" "$scratch/elsewhere"
  grep -rlF "$scratch/usr/" "$scratch/elsewhere" && fail "these hold the old place"
  library_of "$scratch/elsewhere"
  by_cmake "$scratch/elsewhere"
  by_pkg_config --define-variable=prefix="$scratch/elsewhere"
}

# One line of the file names the prefix; the rest follows when it is given another.
pkg_config_file_keeps_the_prefix() {
  installed
  local file=$libdir/pkgconfig/vexadm.pc
  [ "$(grep -cF "$prefix" "$file")" = 1 ] || fail "more than one line names the prefix: $(cat "$file")"
  grep -qxF "prefix=$prefix" "$file" || fail "the prefix is not $prefix: $(cat "$file")"
  # shellcheck disable=SC2016  # pkg-config's variable
  grep -qxF 'libdir=${prefix}/'"${libdir#"$prefix"/}" "$file" || fail "libdir without \${prefix}: $(cat "$file")"
  # shellcheck disable=SC2016
  grep -qxF 'includedir=${prefix}/include' "$file" || fail "includedir without \${prefix}: $(cat "$file")"
}

# Below 1.0, 0.1.x serves those who ask for 0.1 and nobody else.
only_the_same_minor_version_is_found() {
  installed
  local major minor other
  IFS=. read -r major minor _ <<< "$version"
  find_package "$prefix" "$major.$minor" || fail "$major.$minor is not found: $(cat "$scratch/log")"
  for other in "$major.$((minor + 1))" "$major.$((minor - 1))" "$((major + 1)).$minor" "$version.1"; do
    rm -rf "$scratch/stranger"
    ! find_package "$prefix" "$other" || fail "$version is taken for $other"
    grep -q 'considered but not accepted' "$scratch/log" || fail "$other fails for another reason: $(cat "$scratch/log")"
  done
}

# The development component holds what a device does not need, and only that.
components_divide_the_files() {
  local component
  for component in runtime development tools; do
    "$cmake" --install "$build" --component "$component" --prefix "$scratch/$component" > "$scratch/log"
    (cd "$scratch/$component" && find . ! -type d -printf '%f\n' | sort) > "$scratch/$component.files"
  done
  grep -qx "libvexadm.so.$version" "$scratch/runtime.files" || fail "the library is not in runtime"
  ! grep -E '\.h$|\.cmake$|\.pc$|\.so$|[a-z]\.3$' "$scratch/runtime.files" || fail "these are not for a device"
  ! grep -F '.so.' "$scratch/development.files" || fail "the library is in development"
  [ "$(xargs < "$scratch/tools.files")" = "vexadm vexadm" ] || fail "the program and its completion are not tools"
  installed
  (cd "$prefix" && find . ! -type d -printf '%f\n' | sort) > "$scratch/all.files"
  sort "$scratch/runtime.files" "$scratch/development.files" "$scratch/tools.files" | cmp - "$scratch/all.files" ||
    fail "the components are not the whole"
}

"$wanted"
