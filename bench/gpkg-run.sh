#!/usr/bin/env bash
# Times, side by side in one run, on a GeoPackage that GDAL made from a generated polygon
# shapefile (1,000,000 parcels unless told otherwise):
#   - GDAL's ogrinfo -sql running ALTER TABLE ... ADD COLUMN, then UPDATE ... SET ... = the
#     criterion as one SQL expression (quorel sql), on a copy of the file: the floor, SQLite
#     rewriting every row;
#   - quorel run with a trapezoid on SLOPE (the same column and its values, and the record, in
#     one transaction);
#   - ogr2ogr -sql with a CASE expression into a new GeoPackage;
# and compares quorel run's peak memory at 100,000 and at the full count.
# Usage: bench/gpkg-run.sh [BUILD_DIR (build/dev)] [WORK_DIR] [COUNT]
set -euo pipefail
. "$(dirname "$(realpath "$0")")/lib.sh"
export LC_ALL=C # "." in the timings
build=${1:-build/dev}
work=${2:-${TMPDIR:-/tmp}/quorel-gpkg-bench}
count=${3:-1000000}
small=100000
q="$(realpath "$build/apps/quorel/quorel")"
make_sample="$(realpath "$build/tools/make-sample/make-sample")"
mkdir -p "$work"
cd "$work"

make_data() { # name count: name.orig.gpkg, its one layer named parcels
    if [ ! -f "$1.orig.gpkg" ] || [ "$(cat "$1.count" 2>/dev/null)" != "$2" ]; then
        echo "making $1.orig.gpkg ($2 parcels)..." >&2
        rm -f "$1".*
        "$make_sample" "$1.shp" "$2" 7
        ogr2ogr -f GPKG "$1.orig.gpkg" "$1.shp" -nln parcels
        rm -f "$1".shp "$1".shx "$1".dbf "$1".cpg "$1".prj
        echo "$2" > "$1.count"
    fi
}
# Each timed command starts on a quiet disk, from a fresh copy of the file.
restore() { # name
    rm -f "$1.gpkg" "$1.gpkg-journal"
    cp --reflink=never "$1.orig.gpkg" "$1.gpkg"
    sync
}

make_data big "$count"
make_data small "$small"

expression=$("$q" sql --dialect sqlite --kind 5 -a 2 -b 5 -c 15 -d 25 --field SLOPE)
ogrinfo_statements() { # the same column by GDAL's ogrinfo: two statements, as a user types them
    ogrinfo -q big.gpkg -sql "ALTER TABLE parcels ADD COLUMN FZY_SLOPE REAL"
    ogrinfo -q big.gpkg -sql "UPDATE parcels SET FZY_SLOPE = $expression"
}
case_sql="SELECT *, CASE WHEN SLOPE IS NULL THEN NULL WHEN SLOPE <= 2 THEN 0
  WHEN SLOPE <= 5 THEN (SLOPE - 2) / 3.0 WHEN SLOPE <= 15 THEN 1
  WHEN SLOPE <= 25 THEN (25 - SLOPE) / 10.0 ELSE 0 END AS FZY_SLOPE FROM parcels"
restore_big() { restore big; }
restore_small() { restore small; }
drop_ogr() { rm -f ogr_out.gpkg; sync; }

run_big=("$q" run big.gpkg --field SLOPE --kind 5 -a 2 -b 5 -c 15 -d 25)
t_ogrinfo=$(best_of 3 restore_big ogrinfo_statements)
t_quorel=$(best_of 3 restore_big "${run_big[@]}")
t_ogr2ogr=$(best_of 1 drop_ogr ogr2ogr -f GPKG ogr_out.gpkg big.orig.gpkg -sql "$case_sql")
m_small=$(peak_kb restore_small "$q" run small.gpkg --field SLOPE --kind 5 -a 2 -b 5 -c 15 -d 25)
m_big=$(peak_kb restore_big "${run_big[@]}")

mb=$(awk "BEGIN{printf \"%.0f\", $(stat -c %s big.orig.gpkg) / 1048576}")
echo
echo "== $count polygons, a GeoPackage of $mb MB (best of 3 runs each, ogr2ogr once)"
printf '%-50s %8s s\n' "ogrinfo -sql ALTER TABLE + UPDATE (floor)" "$t_ogrinfo"
printf '%-50s %8s s\n' "quorel run, trapezoid on SLOPE" "$t_quorel"
printf '%-50s %8s s\n' "ogr2ogr -sql CASE into a new GeoPackage" "$t_ogr2ogr"
echo
echo "quorel run / ogrinfo   = $(ratio "$t_quorel" "$t_ogrinfo")   (goal: at most 1.2)"
echo "ogr2ogr / quorel run   = $(ratio "$t_ogr2ogr" "$t_quorel")   (goal: at least 5)"
echo "rows per second        = $(awk "BEGIN{printf \"%.0f\", $count / $t_quorel}")"
echo "peak memory of quorel run: $m_small KB at $small, $m_big KB at $count" \
     "(ratio $(ratio "$m_big" "$m_small"); goal: within 20%)"
