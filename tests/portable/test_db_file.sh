#!/usr/bin/env bash
# A database file is the same bytes to every machine: the target (under its emulator) and the build
# machine each write a configuration through the module; each file is then dumped on both machines,
# changed on the machine that did not write it and dumped on both again. The two dumps of a file
# must agree at every step, and the two files must hold the same configuration.
# Arguments: db_file.lua, the target's and the build machine's module folders, the build machine's
# interpreter, then the command that runs the target's interpreter.
set -euo pipefail
script=$1 target_cmod=$2 host_cmod=$3 host_lua=$4
shift 4
target_lua=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
on_target() { LUA_CPATH="$target_cmod/?.so;;" "${target_lua[@]}" "$script" "$@"; }
on_host() { LUA_CPATH="$host_cmod/?.so;;" "$host_lua" "$script" "$@"; }

# Both machines' dumps of one file, compared; the target's is kept as $work/<name>.<step>.
same_on_both() {
  local db=$1 step=$2
  on_target dump "$work/$db" > "$work/$db.$step"
  on_host dump "$work/$db" > "$work/$db.$step.host"
  diff -u "$work/$db.$step" "$work/$db.$step.host" || { echo "FAIL: $db $step: the machines read it differently"; exit 1; }
}

on_target write "$work/target.db"
on_host write "$work/host.db"
same_on_both target.db written
same_on_both host.db written
on_host change "$work/target.db"
on_target change "$work/host.db"
same_on_both target.db changed
same_on_both host.db changed
for step in written changed; do
  diff -u "$work/target.db.$step" "$work/host.db.$step" || { echo "FAIL: the machines wrote different configurations"; exit 1; }
done
echo "each file reads the same on both machines; both machines wrote the same configuration ($(wc -l < "$work/target.db.changed") lines)"
