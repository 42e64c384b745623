#!/usr/bin/env bash
# Times, side by side, the criterion on a generated polygon shapefile (1,000,000 parcels unless
# told otherwise): quorel run, and the QGIS algorithm quorel:criterion through qgis_process
# (QGIS 3.22's qgis_process.bin, the Debian wrapper adds an option it refuses), with QGIS's
# start-up measured apart as qgis_process showing the algorithm's help.
# Usage: bench/qgis-criterion.sh [BUILD_DIR (build/dev)] [WORK_DIR] [COUNT]
set -euo pipefail
. "$(dirname "$(realpath "$0")")/lib.sh"
export LC_ALL=C # "." in the timings
build=$(realpath "${1:-build/dev}")
work=${2:-${TMPDIR:-/tmp}/quorel-qgis-bench}
count=${3:-1000000}
q="$build/apps/quorel/quorel"
qgis=/usr/bin/qgis_process.bin
mkdir -p "$work"
cd "$work"
# QGIS with a profile of its own, the plugin and the module from the build.
export HOME="$work/home" QT_QPA_PLATFORM=offscreen QGIS_PLUGINPATH="$build/qgis"
export PYTHONPATH="$build/python${PYTHONPATH:+:$PYTHONPATH}"
"$qgis" plugins enable quorel_processing >/dev/null 2>&1 || true

if [ ! -f big.shp ] || [ "$(cat big.count 2>/dev/null)" != "$count" ]; then
    echo "making big.shp ($count parcels)..." >&2
    rm -f big.*
    "$build/tools/make-sample/make-sample" big.shp "$count" 7
    cp --reflink=never big.dbf big.dbf.orig
    echo "$count" > big.count
fi
restore() { cp --reflink=never big.dbf.orig big.dbf && rm -f big.fzy && sync; }
nothing() { :; }

t_quorel=$(best_of 5 restore "$q" run big.shp --field SLOPE --kind 5 -a 2 -b 5 -c 15 -d 25)
t_start=$(best_of 5 nothing "$qgis" help quorel:criterion)
t_qgis=$(best_of 5 restore "$qgis" run quorel:criterion -- INPUT="$work/big.shp" FIELD=SLOPE \
    SHAPE=4 A=2 B=5 C=15 D=25)

echo
echo "== $count polygons (best of 5 runs each, warm cache)"
printf '%-52s %8s s\n' "quorel run, trapezoid on SLOPE" "$t_quorel"
printf '%-52s %8s s\n' "qgis_process help quorel:criterion (QGIS start-up)" "$t_start"
printf '%-52s %8s s\n' "qgis_process run quorel:criterion" "$t_qgis"
echo
echo "(qgis_process run - start-up) / quorel run = $(awk "BEGIN{printf \"%.2f\", ($t_qgis - $t_start) / $t_quorel}")   (goal: at most 1.5)"
