#!/bin/sh
# SPDX-License-Identifier: MIT
# The directory comes with the image of a device, and so do the database files.
mkdir -p /data/vexa-resource/sqlite3 &&
  : > /data/vexa-resource/sqlite3/user_info.db &&
  : > /data/vexa-resource/sqlite3/factory_info.db &&
  exec "$1/parameters"
