#!/usr/bin/env bash
# Layers include only downward, in this order (a folder may include its own level and below):
#   0 util  1 errors  2 host/api  3 lang, criterion, fzy (the core)
#   4 the host implementations: every folder under host/ but api (map, shapefile, gpkg, postgis,
#     gdal, memory, script)
#   5 dialog, source (opening a source by name and the one application over every source: it
#     brings the host implementations together, so it sits above them, beside the dialog)
#   6 component  7 apps, python (the Python module)
# Within one level the folders keep out of one another, except where the code needs it:
#   criterion -> fzy        the run records its criterion in the metadata file
#   host/shapefile -> host/script the shapefile host's field calculator runs the script engine
#   host/memory -> host/script    so does the in-memory host's
#   host/shapefile -> host/map    both hosts build on the shared maps, layers and documents
#   host/memory -> host/map
#   host/gpkg -> host/script      the GeoPackage host's calculator runs the same engine, so that
#                                 its degrees are the shapefile's, bit for bit
#   host/gpkg -> host/map         and builds on the shared fields
#   host/postgis -> host/script   the PostGIS host runs a user's own script with the same engine
#   host/postgis -> host/map      and builds on the shared fields
# lang, criterion and fzy share no other includes (criterion reads texts through
# util/TextSource.h, not lang). tools (dialog/tools too), tests and bench may include anything;
# nothing layered includes them. Headers under component/include/ count as component; generated
# headers (quorel/Version.h) as util.
# The core must include neither Qt nor GDAL.
set -euo pipefail
cd "$(dirname "$0")/.."
hits=$(git ls-files -- 'util/*' 'errors/*' 'host/api/*' 'lang/*' 'criterion/*' 'fzy/*' |
       grep -E '\.(h|cpp)$' |
       xargs -r grep -n -E '#include *[<"](Q[A-Za-z]+|qt[a-z]*/|gdal|ogr|cpl_)' || true)
if [ -n "$hits" ]; then
    echo "Core sources include Qt or GDAL headers:"
    echo "$hits"
    exit 1
fi

upward=$(git ls-files -- '*.h' '*.cpp' |
         grep -v -E '^(tests|bench|tools)/|/tools/' |
         xargs -r grep -H -n -E '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[^"]*/' |
         awk '
function unit(path,   parts) {
    split(path, parts, "/")
    if (parts[1] == "host") return "host/" parts[2]
    return parts[1]
}
function level(u) {
    if (u == "util") return 0
    if (u == "errors") return 1
    if (u == "host/api") return 2
    if (u == "lang" || u == "criterion" || u == "fzy") return 3
    if (u ~ /^host\//) return 4
    if (u == "dialog" || u == "source") return 5
    if (u == "component") return 6
    if (u == "apps" || u == "python") return 7
    return -1
}
BEGIN {
    allowed["criterion fzy"] = 1
    allowed["host/shapefile host/script"] = 1
    allowed["host/memory host/script"] = 1
    allowed["host/shapefile host/map"] = 1
    allowed["host/memory host/map"] = 1
    allowed["host/gpkg host/script"] = 1
    allowed["host/gpkg host/map"] = 1
    allowed["host/postgis host/script"] = 1
    allowed["host/postgis host/map"] = 1
}
{
    # file:line:#include "path"
    split($0, field, ":")
    included = $0
    sub(/^[^"]*"/, "", included)
    sub(/".*$/, "", included)
    if (included == "quorel/Version.h") next
    if (included ~ /^quorel\//) included = "component/include/" included
    from = unit(field[1]); to = unit(included)
    if (from == to) next
    if (level(to) < 0 || level(to) > level(from) ||
        (level(to) == level(from) && !((from " " to) in allowed))) {
        print field[1] ":" field[2] ": " from " includes " included
    }
}')
if [ -n "$upward" ]; then
    echo "Includes against the layer order (util -> errors -> host/api -> lang, criterion, fzy"
    echo "-> host implementations -> dialog, source -> component -> apps):"
    echo "$upward"
    exit 1
fi

# Also check the clang-format rules.
if command -v clang-format >/dev/null; then
    bad=$(git ls-files '*.cpp' '*.h' | xargs -r clang-format --dry-run 2>&1 | grep -c 'warning:' || true)
    if [ "$bad" != "0" ]; then
        echo "clang-format: $bad lines need formatting (make format)"
        git ls-files '*.cpp' '*.h' | xargs -r clang-format --dry-run 2>&1 | head -20
        exit 1
    fi
fi
echo "layers and format: ok"
