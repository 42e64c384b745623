#!/usr/bin/env bash
# Kills a "quorel run" on a large shapefile at random moments; after each kill, GDAL must read
# the shapefile with its record count intact and the table whole (the old one or the new one).
# Usage: kill-test.sh QUOREL MAKE_SAMPLE [KILLS (22)] [COUNT (100000)]
set -euo pipefail
quorel=$1
make_sample=$2
kills=${3:-22}
count=${4:-100000}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

"$make_sample" p.shp "$count" 3
cp p.dbf p.dbf.orig
shp_sum=$(md5sum p.shp p.shx)
run=("$quorel" run p.shp --field SLOPE --kind 5 -a 2 -b 5 -c 15 -d 25 --out FZY_SLOPE)

now_ms() { date +%s%3N; }
u16() { od -An -tu2 -j "$2" -N2 "$1" | tr -d ' '; }
u32() { od -An -tu4 -j "$2" -N4 "$1" | tr -d ' '; }

# The table's header agrees with the file, and GDAL reads every record.
check() {
    local records header_length record_length size expected
    records=$(u32 p.dbf 4)
    header_length=$(u16 p.dbf 8)
    record_length=$(u16 p.dbf 10)
    size=$(stat -c %s p.dbf)
    expected=$((header_length + records * record_length))
    if [ "$records" != "$count" ] || { [ "$size" != "$expected" ] && [ "$size" != $((expected + 1)) ]; }; then
        echo "kill $1: damaged table: $records records of $record_length bytes, header $header_length, size $size" >&2
        exit 1
    fi
    ogrinfo -ro -so p.shp p | grep -q "^Feature Count: $count\$" || {
        echo "kill $1: ogrinfo does not read $count features" >&2
        ogrinfo -ro -so p.shp p >&2
        exit 1
    }
    ogrinfo -ro -q p.shp p -fid $((count - 1)) | grep -q "OGRFeature(p):$((count - 1))" || {
        echo "kill $1: ogrinfo cannot read the last record" >&2
        exit 1
    }
    if [ "$(md5sum p.shp p.shx)" != "$shp_sum" ]; then
        echo "kill $1: the geometry files changed" >&2
        exit 1
    fi
    # Old table (record of 1 + ... bytes) or new one (19 bytes longer).
    if [ "$record_length" = "$base_length" ]; then old=$((old + 1)); else new=$((new + 1)); fi
}

base_length=$(u16 p.dbf 10)
start=$(now_ms)
"${run[@]}" 2>/dev/null
duration=$(($(now_ms) - start))
old=0
new=0
for i in $(seq 1 "$kills"); do
    cp p.dbf.orig p.dbf
    rm -f p.fzy
    delay=$((RANDOM % (duration * 12 / 10 + 1)))
    "${run[@]}" 2>/dev/null &
    pid=$!
    sleep "$(awk "BEGIN{print $delay / 1000}")"
    kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
    check "$i"
done
echo "kill test: $kills kills over a run of $duration ms on $count features;" \
     "$old left the old table, $new the new one; all intact"
