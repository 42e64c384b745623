"""Shared set-up of the Python module's tests: the built module, the command line beside it and
a scratch copy of the sample."""

import os
import shutil
import subprocess

import pytest

from pgcluster import postgis, postgres  # noqa: F401 (fixtures)

SOURCE_DIR = os.environ["QUOREL_SOURCE_DIR"]
CLI = os.environ["QUOREL_CLI"]


@pytest.fixture
def parcels(tmp_path):
    """A scratch copy of the sample shapefile, which the runs change."""
    for name in os.listdir(os.path.join(SOURCE_DIR, "samples")):
        if name.startswith("parcels."):
            shutil.copy(os.path.join(SOURCE_DIR, "samples", name), tmp_path)
    return str(tmp_path / "parcels.shp")


@pytest.fixture
def geopackage(parcels):
    """The sample as a GeoPackage, its one table named "parcels"."""
    from osgeo import gdal

    path = parcels.replace(".shp", ".gpkg")
    gdal.VectorTranslate(path, parcels, format="GPKG")
    return path


def cli(*args, check=True, text=True):
    """Runs the command line; returns its completed process."""
    done = subprocess.run([CLI, *args], capture_output=True, text=text)
    if check and done.returncode != 0:
        raise AssertionError(f"quorel {' '.join(args)}: {done.returncode} {done.stderr}")
    return done
