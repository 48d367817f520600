#!/usr/bin/env bash
# Installs the build tree into a temporary prefix and uses what it installed from a clean
# environment (env -i: no LUA_CPATH, no LD_LIBRARY_PATH): the stock interpreter loads the module and
# cfgdb, the command finds the modules beside itself, and a program built through the pkg-config
# file embeds the module. No installed run path may point back into the build tree.
# Arguments: build dir, stock interpreter, Lua version, source dir, C compiler, extra C flags,
# and the environment the uninstrumented interpreter needs under the sanitizers (may be empty).
# In a cross build VLANLUA_EMULATOR starts the target's programs.
set -euo pipefail
build=$1 interp=$2 luaver=$3 src=$4 cc=$5 cflags=$6
shift 6
sanitizer_env=("$@")
read -r -a emulator <<< "${VLANLUA_EMULATOR:-}"
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
clean() { env -i "${sanitizer_env[@]}" "${emulator[@]}" "$@"; }

cmake --install "$build" --prefix "$prefix" >/dev/null
cmod=$prefix/lib/lua/$luaver
for f in "$cmod/libvlanluaext.so" "$cmod/cfgdb.so" "$prefix/lib/libvlplatform.so" "$prefix/bin/vlanlua" \
         "$prefix/include/vlanlua/ecm_ctl.h" "$prefix/lib/pkgconfig/vlanluaext.pc" "$prefix/share/man/man1/vlanlua.1"; do
  [ -f "$f" ] || fail "not installed: ${f#"$prefix"/}"
done
if readelf -d "$cmod"/*.so "$prefix/bin/vlanlua" | grep -E 'R(UN)?PATH' | grep -qF "$build"; then
  fail "an installed run path names the build tree"
fi
cd "$prefix"

# The stock interpreter: only the module folder is added to the search path.
out=$(clean "$interp" -e "
  package.cpath = '$cmod/?.so;' .. package.cpath
  local lib, cfgdb = require 'libvlanluaext', require 'cfgdb'
  local db = cfgdb.open()
  db:bind()
  db:insert('IF_INFO', {ifIndex = 0x1001, mainIfIndex = 0x1000})
  print(lib.VLAN_spt_GetMainifBySubif(0x1001))
  db:close()")
[ "$out" = "$(printf '0\t4096')" ] || fail "interpreter: got '$out'"

# The command: the module it names in --version, the one a script's require loads, is the one
# installed beside it.
: > t.db
printf 'require "libvlanluaext"\nrequire "cfgdb"\n' > load.lua
clean "$prefix/bin/vlanlua" --db t.db load.lua || fail "command: the modules do not load"
found=$(clean "$prefix/bin/vlanlua" --version | sed -n 's/^module libvlanluaext [0-9.]* (\(.*\))$/\1/p')
[ -n "$found" ] && [ "$(realpath "$found")" = "$(realpath "$cmod/libvlanluaext.so")" ] || fail "command loads '$found'"

# A program built from the pkg-config file alone.
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
# shellcheck disable=SC2046,SC2086
"$cc" $cflags -o embed "$src/tests/install/embed.c" $(pkg-config --cflags --libs vlanluaext)
out=$(clean ./embed "$(pkg-config --variable=cmoddir vlanluaext)")
[ "$out" = "$(printf '0\t4096')" ] || fail "embedding program: got '$out'"
echo "installed into a temporary prefix and used it from a clean environment"
