#!/bin/sh
# SPDX-License-Identifier: MIT
# A kernel command line of a router, in place of this machine's.
set -e
echo "console=ttyS0 vexa.project=GARDEN quiet" > /tmp/cmdline
mount --bind /tmp/cmdline /proc/cmdline
"$1/project_name"
umount /proc/cmdline
