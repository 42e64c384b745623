#!/usr/bin/env bash
# Times, side by side in one run, on 1,000,000 generated squares (unless told otherwise) loaded
# into a throwaway PostgreSQL 15 + PostGIS cluster by ogr2ogr, each on a fresh copy of the table:
#   - quorel run with a trapezoid on SLOPE (the server fills the field: one table rewrite);
#   - psql running the plain statements: ALTER TABLE ... ADD COLUMN, then UPDATE ... SET the
#     quorel sql expression, in one transaction;
#   - ogr2ogr -sql with a CASE expression into a new layer;
#   - the floor of any fill of a new column in place: ADD COLUMN with a volatile default
#     (random()), which rewrites every row and rebuilds every index, with next to no expression;
# and reports the ratios and rows per second, the best of ROUNDS rounds (2 unless told
# otherwise) taken in turn, so that a busy moment of the machine does not fall on one of them
# alone. It also compares the peak memory of quorel run on 100,000 rows and on the full count.
# The cluster runs as nobody when run as root.
# Usage: bench/postgis-run.sh [BUILD_DIR (build/dev)] [WORK_DIR] [COUNT] [ROUNDS]
set -euo pipefail
. "$(dirname "$(realpath "$0")")/lib.sh"
export LC_ALL=C
build=${1:-build/dev}
work=${2:-${TMPDIR:-/tmp}/quorel-bench-postgis}
count=${3:-1000000}
rounds=${4:-2}
small=100000
q="$(realpath "$build/apps/quorel/quorel")"
make_sample="$(realpath "$build/tools/make-sample/make-sample")"
bin=/usr/lib/postgresql/15/bin
mkdir -p "$work"
cd "$work"

as_owner() {
    if [ "$(id -u)" -eq 0 ]; then
        runuser -u nobody -- "$@"
    else
        "$@"
    fi
}

cluster=$(mktemp -d "${TMPDIR:-/tmp}/quorel-bench-pg-XXXXXX")
[ "$(id -u)" -eq 0 ] && chown nobody "$cluster"
stop() {
    as_owner "$bin/pg_ctl" -D "$cluster/data" -m fast -w stop >/dev/null 2>&1 || true
    rm -rf "$cluster"
}
trap stop EXIT
as_owner "$bin/initdb" -D "$cluster/data" -U quorel -A trust -E UTF8 --locale=C >/dev/null
as_owner "$bin/pg_ctl" -D "$cluster/data" -l "$cluster/log" -w \
    -o "-k $cluster -c listen_addresses= -c shared_buffers=256MB -c max_wal_size=4GB" start \
    >/dev/null
conn="dbname=bench host=$cluster user=quorel"
psql_() { "$bin/psql" -X -q -v ON_ERROR_STOP=1 -c "SET client_min_messages = warning" -h "$cluster" -U quorel "$@"; }
psql_ -d postgres -c "CREATE DATABASE bench"
psql_ -d bench -c "CREATE EXTENSION postgis"

if [ ! -f squares.shp ] || [ "$(cat squares.count 2>/dev/null)" != "$count" ]; then
    echo "making squares.shp ($count squares)..." >&2
    rm -f squares.*
    "$make_sample" squares.shp "$count" 7
    echo "$count" > squares.count
fi
echo "loading them with ogr2ogr..." >&2
ogr2ogr -f PostgreSQL PG:"$conn" squares.shp -nln parcels -lco GEOMETRY_NAME=geom \
    -lco FID=fid -lco LAUNDER=NO -nlt PROMOTE_TO_MULTI

# A fresh copy of the loaded table (its first rows only when given a count), its key and
# spatial index, vacuumed and checkpointed.
copy() { # name [rows]
    psql_ -d bench -c "DROP TABLE IF EXISTS \"$1\"" \
        -c "CREATE TABLE \"$1\" (LIKE parcels INCLUDING ALL)" \
        -c "INSERT INTO \"$1\" SELECT * FROM parcels ORDER BY fid LIMIT ${2:-ALL}" \
        -c "VACUUM ANALYZE \"$1\"" -c "CHECKPOINT"
}
# quorel run's peak resident memory in KB, read by time(1) into peak.kb.
quorel_run() { # table
    /usr/bin/time -f "%M" -o peak.kb "$q" run PG:"$conn" --layer "$1" --field SLOPE --kind 5 \
        -a 2 -b 5 -c 15 -d 25
}

expr=$("$q" sql --dialect postgresql --kind 5 -a 2 -b 5 -c 15 -d 25 --field SLOPE)
case_sql="SELECT *, CASE WHEN \"SLOPE\" <= 2 THEN 0 WHEN \"SLOPE\" <= 5 THEN (\"SLOPE\" - 2) / 3.0 \
WHEN \"SLOPE\" <= 15 THEN 1 WHEN \"SLOPE\" <= 25 THEN (25 - \"SLOPE\") / 10.0 ELSE 0 END \
AS \"FZY_SLOPE\" FROM parcels_case"

t_run="" t_update="" t_case="" t_floor="" m_big=0
for round in $(seq "$rounds"); do
    echo "round $round of $rounds..." >&2
    copy parcels_run
    t_run=$(least "$t_run" "$(elapsed quorel_run parcels_run)")
    m_big=$(awk "BEGIN{print ($(cat peak.kb) > $m_big) ? $(cat peak.kb) : $m_big}")
    copy parcels_update
    t_update=$(least "$t_update" "$(elapsed psql_ -d bench -1 -c "ALTER TABLE parcels_update ADD
        COLUMN \"FZY_SLOPE\" double precision" -c "UPDATE parcels_update SET \"FZY_SLOPE\" = ($expr)")")
    copy parcels_floor
    t_floor=$(least "$t_floor" "$(elapsed psql_ -d bench -c "ALTER TABLE parcels_floor ADD
        COLUMN \"FZY_SLOPE\" double precision DEFAULT random()")")
    copy parcels_case
    psql_ -d bench -c "DROP TABLE IF EXISTS parcels_out"
    t_case=$(least "$t_case" "$(elapsed ogr2ogr -update -f PostgreSQL PG:"$conn" PG:"$conn" \
        -sql "$case_sql" -nln parcels_out)")
done
m_small=0
for _ in 1 2 3; do
    copy parcels_small "$small"
    elapsed quorel_run parcels_small >/dev/null
    m_small=$(awk "BEGIN{print ($(cat peak.kb) > $m_small) ? $(cat peak.kb) : $m_small}")
done

# The run's degrees are the plain UPDATE's, row for row.
differ=$(psql_ -d bench -At -c "SELECT count(*) FROM parcels_run r JOIN parcels_update u
    USING (fid) WHERE r.\"FZY_SLOPE\" IS DISTINCT FROM u.\"FZY_SLOPE\"")

awk -v n="$count" -v run="$t_run" -v upd="$t_update" -v cas="$t_case" -v floor="$t_floor" -v differ="$differ" \
    -v rounds="$rounds" -v small="$small" -v m_small="$m_small" -v m_big="$m_big" 'BEGIN {
    printf "best of %d rounds, %d rows\n", rounds, n
    printf "%-44s %8.3f s  %9.0f rows/s\n", "quorel run (server-side rewrite)", run, n / run
    printf "%-44s %8.3f s  %9.0f rows/s\n", "psql ALTER TABLE ADD COLUMN + UPDATE", upd, n / upd
    printf "%-44s %8.3f s  %9.0f rows/s\n", "ogr2ogr -sql CASE into a new layer", cas, n / cas
    printf "%-44s %8.3f s  %9.0f rows/s\n", "rewrite floor (ADD COLUMN DEFAULT random())", floor, n / floor
    printf "quorel run / psql UPDATE: %.2f (target at most 0.5)\n", run / upd
    printf "ogr2ogr CASE / quorel run: %.1f (target at least 5)\n", cas / run
    printf "ogr2ogr CASE / rewrite floor: %.1f (the most any fill in place can reach)\n", cas / floor
    printf "quorel run / rewrite floor: %.2f\n", run / floor
    printf "rows whose degree differs from the UPDATE: %d\n", differ
    printf "peak memory of quorel run: %d KB at %d rows, %d KB at %d (ratio %.2f; target within 20%%)\n",
        m_small, small, m_big, n, m_big / m_small
}'
