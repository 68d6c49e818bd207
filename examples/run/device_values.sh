#!/bin/sh
# SPDX-License-Identifier: MIT
# A LAN bridge as a router has one.
set -e
ip link add br-lan type bridge
ip addr add 192.168.1.1/24 dev br-lan
"$1/device_values"
