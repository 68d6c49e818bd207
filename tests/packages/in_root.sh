#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs inside a pristine root, without a network: installs the packages in /check/packages, uses
# them and removes them again. Also in /check: hello_store, compiled elsewhere, its expected output,
# and a stranger's project.
set -euo pipefail
export LC_ALL=C DEBIAN_FRONTEND=noninteractive TZ=UTC0
cd /check

fail() { printf 'in_root: %s\n' "$*" >&2; exit 1; }

apt() {
  apt-get -q -y -o APT::Sandbox::User=root -o Dpkg::Use-Pty=0 --no-install-recommends "$@" \
    > apt.log 2>&1 || { cat apt.log >&2; fail "apt-get $*"; }
}

packages() { dpkg-query -W -f '${db:Status-Abbrev} ${binary:Package} ${Version}\n' | sort; }

# Without what apt, dpkg and ldconfig note for themselves.
files() {
  find / -xdev \( -path /proc -o -path /check -o -path /tmp -o -path /var/log -o -path /var/cache \) -prune -o \
    ! -path '/var/lib/dpkg/*-old' ! -path /var/lib/apt/extended_states -print | sort
}

# same WHAT BEFORE NOW
same() { diff "$2" "$3" > difference || { cat difference >&2; fail "$1 are not what they were"; }; }

# The example writes to /data, which no package owns.
runs() {
  rm -rf /data && mkdir /data
  "$1" > output || fail "$1 ended with $?"
  rm -r /data
  diff hello_store.txt output > difference || { cat difference >&2; fail "$1 printed something else"; }
}

echo "in_root: the run-time package alone, as on a device"
packages > packages.before
files > files.before
apt install "$PWD"/packages/libvexadm0_*.deb
packages > packages.now
new=$(comm -13 packages.before packages.now | awk '{ sub(/:.*/, "", $2); print $2 }' | xargs)
[ "$new" = "libsqlite3-0 libvexadm0" ] || fail "installed: $new"
grep -q 'libvexadm\.so\.0 ' <<< "$(ldconfig -p)" || fail "the loader does not know the library"
runs ./hello_store
apt purge libvexadm0
apt autoremove --purge
packages > packages.now
files > files.now
same packages packages.before packages.now
same files files.before files.now
! ldconfig -p | grep vexadm || fail "the loader still knows the library"

echo "in_root: the program, as on a device and as at a desk"
apt install "$PWD"/packages/libvexadm0_*.deb "$PWD"/packages/vexadm-tools_*.deb
dpkg --verify vexadm-tools || fail "files of the program differ from their sums"
mkdir /data
vexadm set wifi ssid --type text --id 20 "Garden house" --quiet
vexadm set wifi channel --type u8 --id 21 11 --quiet
vexadm check > output || fail "the store is not healthy: $(cat output)"
[ "$(vexadm list wifi)" = 'TABLE  KEY      ID  TYPE  LENGTH  CRC  VALUE
wifi   channel  21  u8    1       ok   11
wifi   ssid     20  text  12      ok   "Garden house"' ] || fail "listed: $(vexadm list wifi)"
vexadm dump > saved
vexadm clean --yes --quiet
vexadm dump > output 2>&1 && fail "a clean store still has: $(cat output)"
vexadm load saved --quiet
vexadm dump | diff saved - || fail "what was loaded is something else"
rm -r /data
gzip -dc /usr/share/man/man1/vexadm.1.gz | grep -q '^\.TH VEXADM 1 ' || fail "no manual of the program"
# shellcheck disable=SC1091,SC2034  # of the package; read by the completion
(source /usr/share/bash-completion/completions/vexadm && COMP_WORDS=(vexadm chec) && COMP_CWORD=1 && _vexadm &&
  [ "${COMPREPLY[*]}" = check ]) || fail "no completion"
apt purge vexadm-tools libvexadm0
apt autoremove --purge
packages > packages.now
files > files.now
same packages packages.before packages.now
same files files.before files.now

echo "in_root: both packages and a compiler, as on a developer's machine"
apt install gcc g++ libc6-dev pkgconf cmake make
packages > packages.before
files > files.before
apt install "$PWD"/packages/libvexadm0_*.deb "$PWD"/packages/libvexadm-dev_*.deb
dpkg --verify libvexadm0 libvexadm-dev || fail "files differ from their sums"
read -r -a flags <<< "$(pkg-config --cflags --libs vexadm)"
examples=/usr/share/doc/libvexadm-dev/examples
for example in "$examples"/*.c; do
  name=${example##*/}
  cc -std=gnu11 -Wall -Wextra -Werror "$example" "${flags[@]}" -o "built_${name%.c}" || fail "$name does not compile"
done
runs ./built_hello_store
{ cmake -S stranger -B stranger_build && cmake --build stranger_build; } > cmake.log 2>&1 ||
  { cat cmake.log >&2; fail "a stranger's project does not build"; }
for program in c_host cpp_host; do
  grep -q ' with ' <<< "$(stranger_build/$program)" || fail "$program printed something else"
done
apt purge libvexadm-dev libvexadm0
apt autoremove --purge
packages > packages.now
files > files.now
# SQLite was asked for by nobody else.
same packages packages.before packages.now
same files files.before files.now
