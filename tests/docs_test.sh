#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Tries the making of the documentation: the same bytes from another folder, everything of the headers in
# the pages, and an error for each gap that would otherwise be a hole that nobody sees.
# After ./dev docs, whose result it compares with.
set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."
export LC_ALL=C
made=$PWD/build/docs
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() { printf 'docs_test: %s\n' "$*" >&2; exit 1; }

# A checkout of its own, as it is now, to build in and to break.
copy=$scratch/some_other_folder
fresh() {
  rm -rf "$copy"
  mkdir "$copy"
  cp -r README.md CHANGELOG.md CONTRIBUTING.md docs examples include packaging tools "$copy"
}

the_same_bytes_from_another_folder() {
  fresh
  "$copy/tools/docs/build"
  local part
  for part in html man; do
    diff -r "$made/$part" "$copy/build/docs/$part" || fail "$part is another one when made elsewhere"
  done
  ! grep -rlF -e "$PWD" -e "$copy" -e "$(date +%Y-%m-%d)T" "$copy/build/docs/html" "$copy/build/docs/man" ||
    fail "these hold the folder or the time of their making"
}

# Words are counted: what a header says more often than its page was lost on the way.
no_word_of_a_header_is_lost() {
  local header name page
  for header in include/vexadm/*.h; do
    name=$(basename "$header" .h)
    page=$made/man/man3/vexadm-$name.3
    case "$name" in vexadm | export | version) page=$made/man/man3/libvexadm.3 ;; esac
    python3 tests/docs_words.py "$header" "$page" "$made/html/${name//_/__}_8h.html" || fail "$header is not told in full"
  done
}

# refused MESSAGE COMMAND...: the command breaks a fresh copy; making the documentation ends with the message.
refused() {
  local message=$1
  shift
  fresh
  (cd "$copy" && "$@")
  ! "$copy/tools/docs/build" "${only[@]}" > "$scratch/log" 2>&1 || fail "made, although: $message"
  grep -qF -- "$message" "$scratch/log" || { cat "$scratch/log" >&2; fail "another error than: $message"; }
}

another_header() { sed 's/clock\.h/radio.h/' include/vexadm/clock.h > include/vexadm/radio.h; }

a_gap_is_an_error() {
  # Found while the headers are read, so that no site has to be made.
  local only=(--man)
  refused "parameter 'buffer'" sed -i 's/@param buffer  at least len bytes; receives//' include/vexadm/data_manager.h
  refused "argument handle of vexa_dm_unreg is not described" sed -i 's/@param handle  from vexa_dm_reg();//' \
    include/vexadm/data_manager.h
  refused "the result of vexa_dm_unreg is not described" sed -i 's/@return 0; -1 for a NULL handle/0; -1/' \
    include/vexadm/data_manager.h
  refused "WS_READY of vexa_write_state is not described" sed -i 's,\(WS_READY = 100\,\).*,\1,' include/vexadm/storage.h
  refused "include/vexadm/radio.h has no page" another_header
  refused "vexadm/clock.h has no example" sed -i 's/"clock": \["clocks"\]/"clock": []/' tools/docs/contents.py
  refused "the example of vexadm/clock.h is not there: examples/clocks.c" rm examples/clocks.c
  refused "examples/radio.c is shown by no family" cp examples/clocks.c examples/radio.c
  only=()
  refused "is no piece of examples/hello_store.c" sed -i 's/The Wi-Fi is called/It is called/' docs/getting-started.md
  refused "docs/caveats.md: a link leads to docs/storages.md" sed -i '0,/(storage.md)/s//(storages.md)/' docs/caveats.md
  refused "caveats.html has no such place" sed -i 's/caveats.md#power-loss/caveats.md#power-lost/' docs/concepts.md
  refused "a link leaves the documentation" sed -i 's,(caveats.md),(https://example.com/),' docs/concepts.md
}

the_same_bytes_from_another_folder
no_word_of_a_header_is_lost
a_gap_is_an_error
printf 'docs_test: passed after %d s\n' "$SECONDS"
