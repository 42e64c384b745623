"""Shared set-up of the QGIS plugin's tests: a scratch profile (HOME) for QGIS, the plugin folder
and the module from the build, and a scratch copy of the sample."""

import os
import sys

import numpy as np
from osgeo import ogr

SOURCE_DIR = os.environ["QUOREL_SOURCE_DIR"]
sys.path.append(os.path.join(SOURCE_DIR, "tests", "python"))
from pgcluster import postgis, postgres  # noqa: E402,F401 (fixtures)
from samples import geopackage, parcels  # noqa: E402,F401 (fixtures)

CRITERION = {"SHAPE": 4, "A": 2, "B": 5, "C": 15, "D": 25}  # a trapezoid, kind 5


def assert_degrees_written(shapefile, field):
    """The field holds the trapezoid's degrees of SLOPE, as the table keeps them."""
    import quorel

    source = ogr.Open(shapefile.replace('"', ""))
    slope, written = np.array([[f.GetField("SLOPE"), f.GetField(field)]
                               for f in source.GetLayer("parcels")], dtype=float).T
    expected = quorel.membership(5, 2, 5, 15, 25, values=slope)
    np.testing.assert_allclose(written, expected, rtol=0, atol=5e-12, equal_nan=True)
    assert quorel.meta(shapefile, field, layer="parcels")["kind"] == 5
