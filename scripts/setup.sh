#!/usr/bin/env bash
# Installs what the build needs on a Debian machine, skipping what is already there.
set -euo pipefail
need=()
# Every engine the module builds for, with its stock interpreter: 5.4 (the default), 5.1, 5.3, LuaJIT.
for pkg in build-essential cmake pkg-config liblua5.4-dev lua5.4 liblua5.1-0-dev lua5.1 liblua5.3-dev lua5.3 \
           libluajit-5.1-dev luajit libsqlite3-dev sqlite3 libgtest-dev googletest libbenchmark-dev; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
  echo "installing: ${need[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${need[@]}" >/dev/null
fi
