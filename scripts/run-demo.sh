#!/usr/bin/env bash
# The main job on the bundled sample: for now, the generated script and a few degrees of a
# sample criterion (a trapezoid on slope).
set -euo pipefail
build=${1:-build/dev}
q="$build/apps/quorel/quorel"
echo "== Script of a trapezoid criterion on SLOPE (a=2, b=5, c=15, d=25)"
"$q" script --kind 5 -a 2 -b 5 -c 15 -d 25 --field SLOPE | tr -d '\r'
echo
echo "== Degrees of membership for slopes 0, 3.5, 10, 20, 30"
"$q" membership --kind 5 -a 2 -b 5 -c 15 -d 25 0 3.5 10 20 30
