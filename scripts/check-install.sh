#!/usr/bin/env bash
# Installs a built tree into a scratch prefix, moves the installed tree elsewhere, and runs the
# installed programs from there: the layout is complete and nothing points back into the build.
set -euo pipefail
build=${1:-build/dev}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/first" >/dev/null
mv "$scratch/first" "$scratch/moved"
p="$scratch/moved"
for file in bin/quorel bin/quorel-host lib/quorel/Quorel.so lib/quorel/Pravel.so lib/quorel/text.mdb \
            lib/quorel/quorel-export.so share/man/man1/quorel.1; do
    [[ -f "$p/$file" ]] || { echo "check-install: $file is not installed" >&2; exit 1; }
done
if readelf -d "$p/bin/quorel" "$p/bin/quorel-host" "$p/lib/quorel/Quorel.so" "$p/lib/quorel/Pravel.so" \
    "$p/lib/quorel/quorel-export.so" |
    grep -E 'R(UN)?PATH' | grep -q "$(cd "$build" && pwd)"; then
    echo "check-install: an installed file's run path names the build tree" >&2
    exit 1
fi

# The remembered language goes to a scratch settings folder, never the user's.
export XDG_CONFIG_HOME="$scratch/config"
out=$("$p/bin/quorel" --lang en script --kind 5 -a 1 -b 2 -c 3 -d 4 --field X)
[[ "$out" == "dim Val "* && "$out" == *"[X]"* ]] ||
    { echo "check-install: unexpected script from the installed quorel:" >&2; echo "$out" >&2; exit 1; }
# Its texts come from the installed text.mdb: an English refusal.
refusal=$("$p/bin/quorel" script --kind 3 -a 5 -b 2 --field X 2>&1 >/dev/null) && status=0 || status=$?
[[ $status -eq 2 && "$refusal" == "The parameters"* ]] ||
    { echo "check-install: unexpected refusal ($status): $refusal" >&2; exit 1; }
# The picture comes from the installed export module.
"$p/bin/quorel" preview "$(dirname "$0")/../samples/parcels.shp" SLOPE --kind 3 -a 2 -b 5 \
    --png "$scratch/preview.png" >/dev/null ||
    { echo "check-install: the installed quorel does not write the preview picture" >&2; exit 1; }
[[ -s "$scratch/preview.png" ]] ||
    { echo "check-install: no preview picture from the installed quorel" >&2; exit 1; }
# The default components are the installed ones.
registered=$("$p/bin/quorel" register)
grep -qF "$p/lib/quorel/Quorel.so" <<<"$registered" && grep -qF "$p/lib/quorel/Pravel.so" <<<"$registered" ||
    { echo "check-install: quorel register does not enter the installed components" >&2; exit 1; }
"$p/bin/quorel" register --unregister >/dev/null
# The Python module and the QGIS plugin, when built: the module imports from the installed tree
# with the system Python and reads the installed texts.
if compgen -G "$p/lib/python3/dist-packages/quorel.*.so" >/dev/null; then
    [[ -f "$p/share/quorel/qgis/quorel_processing/metadata.txt" &&
       -f "$p/share/quorel/qgis/quorel_processing/texts.tsv" ]] ||
        { echo "check-install: the QGIS plugin is not installed" >&2; exit 1; }
    python_out=$(PYTHONPATH="$p/lib/python3/dist-packages" /usr/bin/python3 -c '
import numpy, quorel
quorel.set_language("en")
print(quorel.membership(2, 0, 10, 20, values=numpy.array([5.0, 15.0])).tolist())
try:
    quorel.script(3, 5, 2, None, None, "X")
except quorel.RefusedError as refusal:
    print(refusal)') ||
        { echo "check-install: the installed Python module does not import" >&2; exit 1; }
    [[ "$python_out" == "[0.5, 0.5]"*"The parameters"* ]] ||
        { echo "check-install: unexpected output of the installed module:" >&2
          echo "$python_out" >&2; exit 1; }
fi
if command -v man >/dev/null; then
    ! man --warnings -l "$p/share/man/man1/quorel.1" 2>&1 >/dev/null | grep . ||
        { echo "check-install: the manual page has errors" >&2; exit 1; }
fi
echo "check-install: the installed tree works from $p"
