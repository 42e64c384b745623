#!/usr/bin/env bash
# Installs the Debian 12 packages the whole project needs, skipping those already present.
set -euo pipefail

# dpkg-dev and file: the Debian package's library dependencies (cpack -G DEB).
# The Python module and its tests: pybind11 over the system Python, NumPy, pytest and GDAL's
# bindings; the QGIS plugin's: QGIS with its Python bindings. postgresql-15 and
# postgresql-15-postgis-3: the throwaway server the PostGIS tests start; libpq-dev: its client.
packages=(cmake g++ make pkg-config libgtest-dev libbenchmark-dev libgdal-dev gdal-bin
          qt6-base-dev libsqlite3-dev mdbtools mdbtools-dev fonts-dejavu-core clang
          libclang-rt-14-dev dpkg-dev file ccache
          python3-dev pybind11-dev python3-numpy python3-pytest python3-gdal qgis python3-qgis
          postgresql-15 postgresql-15-postgis-3 libpq-dev)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
    sudo=()
else
    sudo=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
