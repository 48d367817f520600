#!/usr/bin/env bash
# Installs what the build needs on a Debian machine, skipping what is already there.
set -euo pipefail
need=()
for pkg in build-essential cmake pkg-config liblua5.4-dev lua5.4 libsqlite3-dev sqlite3 \
           libgtest-dev googletest libbenchmark-dev luarocks; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
  echo "installing: ${need[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${need[@]}" >/dev/null
fi
# luarocks runs on an older Lua of its own; unless the machine chose otherwise, a plain
# `luarocks make` installs for the engine the project builds for by default.
if [ ! -e /etc/luarocks/default-lua-version.lua ]; then
  $([ "$(id -u)" -ne 0 ] && echo sudo) luarocks config --scope system lua_version 5.4 >/dev/null
fi
