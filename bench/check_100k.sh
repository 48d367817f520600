#!/usr/bin/env bash
# Measures vlanlua --check on a sound configuration file of 100,000 rows (goal: under a second),
# beside sqlite3 reading the same rows (every column of every table --check reads) as the floor.
#   bash bench/check_100k.sh BUILD_DIR     (an optimised tree: scripts/bench.sh passes build-rel)
# The rows: 800 interfaces with 25 user-VLAN QinQ segments each (apart, each with a base-service
# record), 10,000 Dot1Q match ranges and 10,000 QinQ match rectangles (apart), and a SEG_INDEX
# record for every segment: 100,000 rows.
set -euo pipefail
build=${1:?usage: check_100k.sh BUILD_DIR}
cmd="$build/bin/vlanlua"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
db="$work/cfg.db"
: > "$db"
echo "" > "$work/empty.lua"
"$cmd" --db "$db" "$work/empty.lua"     # writes the schema
sqlite3 "$db" <<'SQL'
BEGIN;
WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 19999)
INSERT INTO UVLAN_QINQ_SEG(f1_ifindex, f2_seg_index, f4_vrid, f5_ce_begin, f6_ce_end, f7_pe_begin, f8_pe_end, f11_key_name)
  SELECT 1000 + i / 25, 1 + i, 7, 1, 10, 1 + (i % 25) * 20, 10 + (i % 25) * 20, zeroblob(64) FROM n;
INSERT INTO UVLAN_BASE_SVC(f1_ifindex, f2_seg_index, f5_vrid, f7_svc1) SELECT f1_ifindex, f2_seg_index, 7, 3 FROM UVLAN_QINQ_SEG;
WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 9999)
INSERT INTO DOT1Q_MATCH_SEG(f2_ifindex, f3_seg_index, f4_vlan_begin, f5_vlan_end, f7_vrid)
  SELECT 1000 + i / 25, 30001 + i, 1 + (i % 25) * 20, 10 + (i % 25) * 20, 7 FROM n;
WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 9999)
INSERT INTO QINQ_MATCH_SEG(f2_ifindex, f3_seg_index, f4_pe_begin, f5_pe_end, f6_ce_begin, f7_ce_end, f9_vrid, f12_key_name)
  SELECT 1000 + i / 25, 50001 + i, 1 + (i % 25) * 20, 10 + (i % 25) * 20, 1, 10, 7, zeroblob(64) FROM n;
INSERT INTO SEG_INDEX SELECT f2_seg_index, 7 FROM UVLAN_QINQ_SEG UNION ALL SELECT f3_seg_index, 7 FROM DOT1Q_MATCH_SEG
  UNION ALL SELECT f3_seg_index, 7 FROM QINQ_MATCH_SEG;
COMMIT;
SQL
rows=$(sqlite3 "$db" "SELECT (SELECT count(*) FROM UVLAN_QINQ_SEG) + (SELECT count(*) FROM UVLAN_BASE_SVC) +
  (SELECT count(*) FROM DOT1Q_MATCH_SEG) + (SELECT count(*) FROM QINQ_MATCH_SEG) + (SELECT count(*) FROM SEG_INDEX)")

# The best of three runs, in seconds.
best() {
  local best=""
  for _ in 1 2 3; do
    local t0 t1
    t0=$(date +%s.%N)
    "$@" >/dev/null
    t1=$(date +%s.%N)
    best=$(echo "$t0 $t1 ${best:-999}" | awk '{d = $2 - $1; print (d < $3) ? d : $3}')
  done
  echo "$best"
}
"$cmd" --db "$db" --check | tail -1
check=$(best "$cmd" --db "$db" --check)
floor=$(best sqlite3 "$db" "SELECT * FROM UVLAN_QINQ_SEG; SELECT * FROM UVLAN_BASE_SVC; SELECT * FROM UVLAN_VPN_SVC;
  SELECT * FROM DOT1Q_MATCH_SEG; SELECT * FROM QINQ_MATCH_SEG; SELECT * FROM SEG_INDEX; SELECT * FROM CTRL_VID_BITMAP;
  SELECT * FROM QINQ_IF_SPEC; SELECT * FROM IF_INFO; SELECT * FROM UVLAN_DOT1Q;")
echo "$rows rows: vlanlua --check ${check} s, sqlite3 reading them ${floor} s, ratio $(echo "$check $floor" | awk '{printf "%.2f", $1 / $2}') (goal: --check under 1 s)"
