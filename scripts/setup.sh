#!/usr/bin/env bash
# Installs what the build needs on a Debian machine, skipping what is already there; packages
# named as arguments are installed too (scripts/fuzz.sh asks for clang and its fuzzer runtime).
set -euo pipefail
need=()
# Every engine the module builds for, with its stock interpreter: 5.4 (the default), 5.1, 5.3, LuaJIT.
for pkg in build-essential cmake pkg-config liblua5.4-dev lua5.4 liblua5.1-0-dev lua5.1 liblua5.3-dev lua5.3 \
           libluajit-5.1-dev luajit libsqlite3-dev sqlite3 libgtest-dev googletest libbenchmark-dev librsvg2-bin \
           nlohmann-json3-dev "$@"; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
  echo "installing: ${need[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${need[@]}" >/dev/null
fi
# The command's web page is tested in Chromium, headless. Where Debian has no chromium for this
# processor the browser test skips; anywhere else a failed install stops the set-up.
sudo_cmd=$([ "$(id -u)" -ne 0 ] && echo sudo || true)
if ! dpkg-query -W -f='${Status}' chromium 2>/dev/null | grep -q "install ok installed"; then
  $sudo_cmd apt-get update -qq
  candidate=$(apt-cache policy chromium 2>/dev/null | sed -n 's/^ *Candidate: //p')
  if [ -n "$candidate" ] && [ "$candidate" != "(none)" ]; then
    DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq chromium >/dev/null
  else
    echo "no chromium package for this machine: the browser test will skip"
  fi
fi
# luarocks builds the rockspec. It runs on an older Lua of its own; unless the machine chose
# otherwise, a plain `luarocks make` installs for the engine the project builds for by default.
if ! dpkg-query -W -f='${Status}' luarocks 2>/dev/null | grep -q "install ok installed"; then
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq luarocks >/dev/null
fi
if [ ! -e /etc/luarocks/default-lua-version.lua ]; then
  $sudo_cmd luarocks config --scope system lua_version 5.4 >/dev/null
fi
