#!/usr/bin/env bash
# The main job. With a display: registers the built component for this user and opens the
# desktop host on the demo document, over a scratch copy of the sample, ready for the command.
# Without one: the generated script and a few degrees of a sample criterion (a trapezoid on
# slope), then the criterion computed on a scratch copy of the sample shapefile, its values
# summarised, and the metadata file.
set -euo pipefail
build=${1:-build/dev}
q="$build/apps/quorel/quorel"
host="$build/apps/quorel-host/quorel-host"
root="$(cd "$(dirname "$0")/.." && pwd)"

if [[ -n "${DISPLAY:-}" || -n "${WAYLAND_DISPLAY:-}" ]]; then
    "$q" register "$build/component/Quorel.so" "$build/component/Pravel.so"
    scratch=$(mktemp -d)
    trap 'rm -rf "$scratch"' EXIT
    cp "$root"/samples/parcels.* "$root"/samples/demo.qmap "$scratch"/
    echo "== The desktop host on $scratch/demo.qmap (a copy of the sample; it is removed on exit)"
    echo "   Click \"2Critère souple V9.2  à 10.3VML\" in the OMBREL toolbar."
    "$host" "$scratch/demo.qmap"
    exit
fi
echo "No display (\$DISPLAY and \$WAYLAND_DISPLAY are empty): the desktop host cannot open."
echo "Running the criterion demo on the command line instead."
echo
echo "== Script of a trapezoid criterion on SLOPE (a=2, b=5, c=15, d=25)"
"$q" script --kind 5 -a 2 -b 5 -c 15 -d 25 --field SLOPE | tr -d '\r'
echo
echo "== Degrees of membership for slopes 0, 3.5, 10, 20, 30"
"$q" membership --kind 5 -a 2 -b 5 -c 15 -d 25 0 3.5 10 20 30

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cp "$root"/samples/parcels.* "$scratch"/
echo
echo "== quorel run $scratch/parcels.shp --field SLOPE --kind 5 -a 2 -b 5 -c 15 -d 25"
"$q" run "$scratch/parcels.shp" --field SLOPE --kind 5 -a 2 -b 5 -c 15 -d 25
echo
echo "== The new field, as GDAL reads it"
ogrinfo -q -ro "$scratch/parcels.shp" -sql \
    "SELECT COUNT(FZY_SLOPE) AS computed, MIN(FZY_SLOPE) AS minimum, MAX(FZY_SLOPE) AS maximum,
            AVG(FZY_SLOPE) AS mean FROM parcels" | sed -n '/OGRFeature/,$p' | sed 1d
for band in "FZY_SLOPE = 0" "FZY_SLOPE > 0 AND FZY_SLOPE < 1" "FZY_SLOPE = 1" "FZY_SLOPE IS NULL"; do
    n=$(ogrinfo -q -ro "$scratch/parcels.shp" -sql "SELECT COUNT(*) AS n FROM parcels WHERE $band" |
        sed -n 's/.*n (Integer) = //p')
    printf '  %-34s %s parcels\n' "$band" "$n"
done
echo "  first parcels (SLOPE -> FZY_SLOPE):"
ogrinfo -q -ro "$scratch/parcels.shp" -sql "SELECT SLOPE, FZY_SLOPE FROM parcels LIMIT 6" |
    grep -E 'SLOPE \(' | paste - - | sed 's/ (Real) = / = /g; s/^ */    /'
if "$q" --help | grep -qE '^  meta '; then
    echo
    echo "== quorel meta parcels.shp FZY_SLOPE"
    "$q" meta "$scratch/parcels.shp" FZY_SLOPE | tr -d "\r" || true
fi
