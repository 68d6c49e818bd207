#!/bin/sh
# SPDX-License-Identifier: MIT
# The modem is a simulator, which lies beside the examples' directory.
set -e
ready=$(mktemp -u)
mkfifo "$ready"
"$1/../modem_simulator" > "$ready" &
modem=$!
trap 'kill "$modem"; rm -f "$ready"' EXIT
head -n 1 < "$ready" > /dev/null # waits for its port to be open
"$1/send_at"
