#!/bin/sh
# SPDX-License-Identifier: MIT
# The directory of the watch files belongs to the device, not to the library.
set -e
mkdir -p /data/oem/logs
"$1/watch_log"
