#!/usr/bin/env bash
# Times, side by side in one run, on a generated polygon shapefile (1,000,000 parcels unless
# told otherwise):
#   - cp of its .dbf: the floor (and cp followed by fsync: the floor of a durable write);
#   - quorel run with a trapezoid on SLOPE (adds the field and its values, durably);
#   - the same column made by ogr2ogr -dialect SQLite with a CASE expression;
# and compares quorel run's peak memory at 100,000 and at the full count.
# Usage: bench/criterion-run.sh [BUILD_DIR (build/dev)] [WORK_DIR] [COUNT]
set -euo pipefail
. "$(dirname "$(realpath "$0")")/lib.sh"
export LC_ALL=C # "." in the timings
build=${1:-build/dev}
work=${2:-${TMPDIR:-/tmp}/quorel-bench}
count=${3:-1000000}
small=100000
q="$(realpath "$build/apps/quorel/quorel")"
make_sample="$(realpath "$build/tools/make-sample/make-sample")"
mkdir -p "$work"
cd "$work"

make_data() { # name count
    if [ ! -f "$1.shp" ] || [ "$(cat "$1.count" 2>/dev/null)" != "$2" ]; then
        echo "making $1.shp ($2 parcels)..." >&2
        rm -f "$1".*
        "$make_sample" "$1.shp" "$2" 7
        cp --reflink=never "$1.dbf" "$1.dbf.orig"
        echo "$2" > "$1.count"
    fi
}
restore() { # name: the table and metadata as generated
    cp --reflink=never "$1.dbf.orig" "$1.dbf"
    rm -f "$1.fzy"
}

make_data big "$count"
make_data small "$small"

case_sql="SELECT *, CASE WHEN SLOPE IS NULL THEN NULL WHEN SLOPE <= 2 THEN 0
  WHEN SLOPE <= 5 THEN (SLOPE - 2) / 3.0 WHEN SLOPE <= 15 THEN 1
  WHEN SLOPE <= 25 THEN (25 - SLOPE) / 10.0 ELSE 0 END AS FZY_SLOPE FROM big"

# Each timed command starts on a quiet disk, its table at rest as a user's table is: without
# the sync, the command shares the device with the writeback of what the preparation just wrote
# (the restored 53 MB table), and a run that replaces that table must also wait for its pages
# still being written before it can free them. That case is timed too, apart, with no goal.
nothing() { :; }
drop_copy() { rm -f copy.dbf; sync; }
restore_big_busy() { restore big; }
restore_big() { restore big; sync; }
drop_ogr() { rm -rf ogr_out; restore big; sync; }
sync_copy() { cp --reflink=never big.dbf.orig copy.dbf && sync copy.dbf; }

run_big=("$q" run big.shp --field SLOPE --kind 5 -a 2 -b 5 -c 15 -d 25)
t_cp=$(best_of 5 drop_copy cp --reflink=never big.dbf.orig copy.dbf)
t_cp_sync=$(best_of 5 drop_copy sync_copy)
t_start=$(best_of 5 nothing "$q" --version)
t_quorel=$(best_of 5 restore_big "${run_big[@]}")
t_quorel_busy=$(best_of 5 restore_big_busy "${run_big[@]}")
t_ogr=$(best_of 5 drop_ogr ogr2ogr -f "ESRI Shapefile" ogr_out big.shp -dialect SQLite -sql "$case_sql")

restore_small() { restore small; }
m_small=$(peak_kb restore_small "$q" run small.shp --field SLOPE --kind 5 -a 2 -b 5 -c 15 -d 25)
m_big=$(peak_kb restore_big "${run_big[@]}")

dbf_mb=$(awk "BEGIN{printf \"%.0f\", $(stat -c %s big.dbf.orig) / 1048576}")
echo
echo "== $count polygons, .dbf of $dbf_mb MB (best of 5 runs each, warm cache)"
printf '%-46s %8s s\n' "cp of the .dbf (floor)" "$t_cp"
printf '%-46s %8s s\n' "cp of the .dbf + fsync (durable floor)" "$t_cp_sync"
printf '%-46s %8s s\n' "quorel --version (process start)" "$t_start"
printf '%-46s %8s s\n' "quorel run, trapezoid on SLOPE" "$t_quorel"
printf '%-46s %8s s\n' "  the same, table just written (no sync)" "$t_quorel_busy"
printf '%-46s %8s s\n' "ogr2ogr -dialect SQLite CASE" "$t_ogr"
echo
echo "quorel run / cp            = $(ratio "$t_quorel" "$t_cp")   (goal: at most 3)"
echo "quorel run / (cp + fsync)  = $(ratio "$t_quorel" "$t_cp_sync")"
echo "ogr2ogr / quorel run       = $(ratio "$t_ogr" "$t_quorel")   (goal: at least 3)"
echo "peak memory of quorel run: $m_small KB at $small, $m_big KB at $count" \
     "(ratio $(ratio "$m_big" "$m_small"); goal: within 20%)"
