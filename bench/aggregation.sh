#!/usr/bin/env bash
# Times, side by side in one run, on a generated polygon shapefile (1,000,000 parcels unless
# told otherwise) that holds five criterion fields:
#   - cp of its .dbf followed by fsync: the floor of a durable write of the table;
#   - the same copy then renamed over an older copy, the folder synced: the floor of a crash-safe
#     replacement, which also pays for freeing the old table's blocks (a synchronous discard on
#     a file system mounted with "discard");
#   - quorel aggregate of the five fields with gamma (adds the field and its values, durably),
#     and with owa (the longest script: the degrees sorted feature by feature).
# Usage: bench/aggregation.sh [BUILD_DIR (build/dev)] [WORK_DIR] [COUNT]
set -euo pipefail
. "$(dirname "$(realpath "$0")")/lib.sh"
export LC_ALL=C # "." in the timings
build=${1:-build/dev}
work=${2:-${TMPDIR:-/tmp}/quorel-bench-aggregation}
count=${3:-1000000}
q="$(realpath "$build/apps/quorel/quorel")"
make_sample="$(realpath "$build/tools/make-sample/make-sample")"
mkdir -p "$work"
cd "$work"
# A settings folder of our own: the runs neither read nor change the user's.
export XDG_CONFIG_HOME="$work/config"

fields=FZY_SLOPE,FZY_POPULA,FZY_ALTITU,FZY_DISTAN,FZY_TRI
if [ ! -f big.shp ] || [ "$(cat big.count 2>/dev/null)" != "$count" ]; then
    echo "making big.shp ($count parcels) and its five criteria..." >&2
    rm -f big.*
    "$make_sample" big.shp "$count" 7
    "$q" run big.shp --field SLOPE --kind 5 -a 2 -b 5 -c 15 -d 25 >/dev/null 2>&1
    "$q" run big.shp --field POPULATION --kind 3 -a 0 -b 400 >/dev/null 2>&1
    "$q" run big.shp --field ALTITUDE --kind 4 -a 150 -b 350 >/dev/null 2>&1
    "$q" run big.shp --field DISTANCE --kind 4 -a 100 -b 2000 >/dev/null 2>&1
    "$q" run big.shp --field SLOPE --kind 2 -a 0 -b 10 -c 30 --out FZY_TRI >/dev/null 2>&1
    cp --reflink=never big.dbf big.dbf.orig
    echo "$count" > big.count
fi


# Each timed command starts on a quiet disk, its table at rest (see criterion-run.sh).
drop_copy() { rm -f copy.dbf; sync; }
sync_copy() { cp --reflink=never big.dbf.orig copy.dbf && sync copy.dbf; }
old_copy() { cp --reflink=never big.dbf.orig old.dbf; rm -f new.dbf; sync; }
replace_copy() { cp --reflink=never big.dbf.orig new.dbf && sync new.dbf && mv new.dbf old.dbf && sync .; }
restore_big() { cp --reflink=never big.dbf.orig big.dbf; rm -f big.fzy.json; sync; }

gamma() { "$q" aggregate big.shp --fields "$fields" --op gamma --gamma 0.5; }
owa() { "$q" aggregate big.shp --fields "$fields" --op owa --weights 5,4,3,2,1; }
# The four measures take turns, round after round, so that a slower spell of the shared machine
# falls on all of them alike; each keeps its best round.
rounds=9
t_cp_sync="" t_replace="" t_gamma="" t_owa=""
for _ in $(seq "$rounds"); do
    drop_copy
    t_cp_sync=$(least "$t_cp_sync" "$(elapsed sync_copy)")
    old_copy
    t_replace=$(least "$t_replace" "$(elapsed replace_copy)")
    restore_big
    t_gamma=$(least "$t_gamma" "$(elapsed gamma)")
    restore_big
    t_owa=$(least "$t_owa" "$(elapsed owa)")
done

dbf_mb=$(awk "BEGIN{printf \"%.0f\", $(stat -c %s big.dbf.orig) / 1048576}")
echo
echo "== $count polygons, 5 criterion fields, .dbf of $dbf_mb MB (best of $rounds rounds)"
printf '%-46s %8s s\n' "cp of the .dbf + fsync (durable floor)" "$t_cp_sync"
printf '%-46s %8s s\n' "the same, renamed over an old copy" "$t_replace"
printf '%-46s %8s s\n' "quorel aggregate, gamma of 5 fields" "$t_gamma"
printf '%-46s %8s s\n' "quorel aggregate, owa of 5 fields" "$t_owa"
echo
echo "aggregate gamma / (cp + fsync) = $(ratio "$t_gamma" "$t_cp_sync")   (goal: at most 1.5)"
echo "aggregate owa   / (cp + fsync) = $(ratio "$t_owa" "$t_cp_sync")"
echo "crash-safe replacement floor / (cp + fsync) = $(ratio "$t_replace" "$t_cp_sync")"
echo "aggregate gamma / replacement floor = $(ratio "$t_gamma" "$t_replace")"
