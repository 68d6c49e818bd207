#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# A shipped library is hardened as it claims, is the same from any folder, and takes its builder's flags.
#
# usage: release_checks.sh hardening LIBRARY TOOL_PREFIX
#        release_checks.sh same_bytes SOURCE_DIRECTORY PRESET
#        release_checks.sh caller_flags SOURCE_DIRECTORY
set -euo pipefail
export LC_ALL=C

complain() { printf 'release_checks: %s\n' "$*" >&2; exit 1; }

# expect WHAT PATTERN TEXT, reject WHAT PATTERN TEXT
expect() { grep -qE -- "$2" <<< "$3" || complain "$1"; }
reject() { if grep -E -- "$2" <<< "$3" >&2; then complain "$1"; fi; }

hardening() {
  local library=$1 prefix=$2 dynamic segments symbols sections constructors
  dynamic=$("${prefix}readelf" -dW "$library")
  segments=$("${prefix}readelf" -lW "$library")
  sections=$("${prefix}readelf" -SW "$library")
  symbols=$("${prefix}readelf" --dyn-syms -W "$library")
  expect "no immediate binding: the GOT stays writable" '\(FLAGS\).*BIND_NOW' "$dynamic"
  reject "text relocations" 'TEXTREL' "$dynamic"
  reject "a library path of the build machine" '\((RUNPATH|RPATH)\)' "$dynamic"
  expect "no GNU_RELRO segment" 'GNU_RELRO' "$segments"
  expect "an executable stack" 'GNU_STACK .* RW ' "$segments"
  reject "a segment that is writable and executable" 'LOAD .* RWE' "$segments"
  expect "no stack protector" 'UND __stack_chk_fail' "$symbols"
  expect "no FORTIFY" 'UND __v?snprintf_chk' "$symbols"
  # One pointer each: the C compiler's own frame_dummy and __do_global_dtors_aux.
  constructors=$(awk '{ for (i = 1; i < NF; ++i) if ($i ~ /^\.(init|fini)_array$/) print $i, $(i + 4) }' \
    <<< "$sections" | sort)
  case "$constructors" in
    ".fini_array 000004"$'\n'".init_array 000004" | ".fini_array 000008"$'\n'".init_array 000008") ;;
    *) complain "constructors or destructors of static objects: $constructors" ;;
  esac
  reject "a constructor of a static object" '_GLOBAL__sub_I|__cxx_global' "$("${prefix}nm" "$library")"
}

# Without a compiler cache, which would hand the first build's objects to the second.
build_library() {
  env -u CMAKE_CXX_COMPILER_LAUNCHER -u CMAKE_C_COMPILER_LAUNCHER CCACHE_DISABLE=1 "$@" -DVEXADM_EXAMPLES=OFF
}

same_bytes() {
  local source=$1 preset=$2 place
  place=$(mktemp -d)
  # shellcheck disable=SC2064  # this folder, also after the function has returned
  trap "rm -rf '$place'" EXIT
  local copies=("$place/one" "$place/another one/with a longer name")
  for copy in "${copies[@]}"; do
    mkdir -p "$copy/build"
    tar -C "$source" -c --exclude=./build --exclude=./.git . | tar -x -C "$copy"
    [ ! -d "$source/build/armhf-sysroot" ] || ln -s "$source/build/armhf-sysroot" "$copy/build/armhf-sysroot"
    (cd "$copy" && build_library cmake --preset "$preset" > log 2>&1 &&
      nice cmake --build "build/$preset" --target vexadm vexadm_cli >> log 2>&1) || { cat "$copy/log" >&2; exit 1; }
  done
  cmp "${copies[0]}/build/$preset/libvexadm.so" "${copies[1]}/build/$preset/libvexadm.so" ||
    complain "two folders, two libraries"
  if grep -aF "$place" "${copies[0]}/build/$preset/libvexadm.so"; then complain "the folder's name is in it"; fi
  # The program as it is installed: in the build it names the folder that it finds the library in.
  for copy in "${copies[@]}"; do
    cmake --install "$copy/build/$preset" --component tools --prefix "$copy/installed" > /dev/null
  done
  cmp "${copies[0]}/installed/bin/vexadm" "${copies[1]}/installed/bin/vexadm" || complain "two folders, two programs"
  if grep -aF "$place" "${copies[0]}/installed/bin/vexadm"; then complain "the folder's name is in the program"; fi
}

# flags_of BUILD_DIRECTORY: how a source that is not of the few hot ones is compiled.
flags_of() {
  python3 - "$1" <<'PYTHON'
import json, sys
commands = json.load(open(sys.argv[1] + "/compile_commands.json"))
print(" ", next(c["command"] for c in commands if c["file"].endswith("/shell.cpp")), " ")
PYTHON
}

caller_flags() {
  local source=$1 place flags
  place=$(mktemp -d)
  # shellcheck disable=SC2064  # this folder, also after the function has returned
  trap "rm -rf '$place'" EXIT
  CPPFLAGS="-D_FORTIFY_SOURCE=3 -DVEXADM_OF_CALLER" CXXFLAGS="-O1 -fstack-protector-all" CFLAGS=-O1 \
    LDFLAGS="-Wl,-z,nodlopen" build_library cmake -S "$source" -B "$place" -G Ninja -DCMAKE_BUILD_TYPE=None \
    -DVEXADM_WERROR=ON > "$place.log" 2>&1 || { cat "$place.log" >&2; rm -f "$place.log"; exit 1; }
  rm -f "$place.log"
  flags=$(flags_of "$place")
  expect "CPPFLAGS are not honoured" ' -DVEXADM_OF_CALLER ' "$flags"
  reject "a second _FORTIFY_SOURCE" '_FORTIFY_SOURCE=2' "$flags"
  expect "CXXFLAGS are not honoured" ' -O1 -fstack-protector-all ' "$flags"
  reject "another optimisation than the caller's" ' -O[0s23] ' "$flags"
  reject "another stack protector than the caller's" 'stack-protector-strong' "$flags"
  expect "no map of this folder" ' .?-ffile-prefix-map=.*=\."? ' "$flags"
  # Warnings are errors here: a macro that is defined twice would not pass.
  nice cmake --build "$place" --target vexadm > "$place/log" 2>&1 || { cat "$place/log" >&2; exit 1; }
  expect "LDFLAGS are not honoured" 'NOOPEN' "$(readelf -dW "$place/libvexadm.so")"

  # The folder that an image's builder gives the sources stands.
  local map
  for map in file debug macro; do
    rm -rf "$place/mapped"
    CXXFLAGS="-O2 -f$map-prefix-map=$source=/usr/src/debug/vexadm" CFLAGS=-O2 \
      build_library cmake -S "$source" -B "$place/mapped" -G Ninja -DCMAKE_BUILD_TYPE=None > "$place/log" 2>&1 ||
      { cat "$place/log" >&2; exit 1; }
    reject "a map beside the caller's -f$map-prefix-map" 'prefix-map=.*=\."? ' "$(flags_of "$place/mapped")"
  done
}

"$@"
