"""Fixtures shared by the Python module's and the QGIS plugin's tests: scratch copies of the
sample, which the runs change."""

import os
import shutil

import pytest

SOURCE_DIR = os.environ["QUOREL_SOURCE_DIR"]


@pytest.fixture
def parcels(tmp_path):
    """A scratch copy of the sample shapefile."""
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
