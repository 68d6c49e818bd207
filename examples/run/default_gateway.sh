#!/bin/sh
# SPDX-License-Identifier: MIT
# One cable with a router at its other end.
set -e
PATH=$PATH:/usr/sbin:/sbin
ip link add wan0 type veth peer name lan0
ip link set wan0 up
ip link set lan0 up
ip -6 route add default via fe80::1 dev wan0
"$1/default_gateway" wan0
"$1/default_gateway" lan0
