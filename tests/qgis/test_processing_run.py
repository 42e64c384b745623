"""The algorithm through processing.run inside a QgsApplication started without a display, with
the layer loaded in the project: its fields show the new one after the run."""

import json
import os
import re
import sys

import pytest
from qgis.core import (QgsApplication, QgsProcessingException, QgsProcessingFeedback, QgsProject,
                       QgsVectorLayer)

from conftest import CRITERION, assert_degrees_written


@pytest.fixture(scope="module")
def processing():
    os.environ["QT_QPA_PLATFORM"] = "offscreen"
    application = QgsApplication([], False)
    application.initQgis()
    sys.path.append("/usr/share/qgis/python/plugins")
    import processing as module
    from processing.core.Processing import Processing
    from quorel_processing.plugin import QuorelPlugin

    Processing.initialize()
    plugin = QuorelPlugin()
    plugin.initProcessing()
    yield module
    plugin.unload()
    application.exitQgis()


class Cancelling(QgsProcessingFeedback):
    def setProgress(self, progress):  # noqa: N802
        super().setProgress(progress)
        self.cancel()


def qgis_layer(source, path):
    if source == "postgis":
        connection = path[len('PG:"'):-1]
        return QgsVectorLayer(f'{connection} table="public"."parcels" (wkb_geometry)', "parcels",
                              "postgres")
    return QgsVectorLayer(path + ("|layername=parcels" if source == "geopackage" else ""),
                          "parcels", "ogr")


@pytest.mark.parametrize("source", ["parcels", "geopackage", "postgis"])
def test_processing_run_adds_the_field_the_layer_shows(processing, source, request):
    path = request.getfixturevalue(source)
    loaded = qgis_layer(source, path)
    assert loaded.isValid()
    QgsProject.instance().addMapLayer(loaded)
    result = processing.run("quorel:criterion", {"INPUT": loaded, "FIELD": "SLOPE", **CRITERION})
    assert result["OUTPUT_FIELD"] == "FZY_SLOPE"
    assert loaded.fields().indexOf("FZY_SLOPE") >= 0
    assert_degrees_written(path, "FZY_SLOPE")
    QgsProject.instance().removeAllMapLayers()


def test_refusals_and_cancel_are_processing_errors(processing, parcels):
    layer = QgsVectorLayer(parcels, "parcels", "ogr")
    QgsProject.instance().addMapLayer(layer)
    # Refusals and a cancel come back as Processing errors with Quorel's messages.
    with pytest.raises(QgsProcessingException, match="1E\\+15"):
        processing.run("quorel:criterion", {"INPUT": layer, "FIELD": "SLOPE", "SHAPE": 2,
                                            "A": 5, "B": 2})
    from quorel_processing.texts import text

    with pytest.raises(QgsProcessingException, match=re.escape(text(373))):
        processing.run("quorel:criterion", {"INPUT": layer, "FIELD": "SLOPE", **CRITERION,
                                            "OUTPUT_FIELD": "CUT"}, feedback=Cancelling())
    import quorel

    assert quorel.meta(parcels, "CUT") is None
    QgsProject.instance().removeAllMapLayers()


def test_aggregation_writes_the_operators_degrees(processing, parcels):
    import numpy as np
    import quorel
    from osgeo import ogr

    quorel.run(parcels, "SLOPE", 5, 2, 5, 15, 25)
    quorel.run(parcels, "SLOPE", 3, 0, 10, out="RAMP")
    layer = QgsVectorLayer(parcels, "parcels", "ogr")
    QgsProject.instance().addMapLayer(layer)
    run = {"INPUT": layer, "FIELDS": ["RAMP", "FZY_SLOPE"], "OPERATOR": 6, "WEIGHTS": "3; 1,5"}
    result = processing.run("quorel:aggregation", run)
    assert result["OUTPUT_FIELD"] == "FZY_AGG" and layer.fields().indexOf("FZY_AGG") >= 0
    table = ogr.Open(parcels)  # kept: its layer dies with it
    rows = np.array([[f.GetField(n) for n in ("RAMP", "FZY_SLOPE", "FZY_AGG")]
                     for f in table.GetLayer()], dtype=float)
    high, low = rows[:, :2].max(axis=1), rows[:, :2].min(axis=1)
    np.testing.assert_allclose(rows[:, 2], (3 * high + 1.5 * low) / 4.5, rtol=0, atol=6e-12,
                               equal_nan=True)
    with open(parcels.replace(".shp", ".fzy.json"), encoding="utf-8") as sidecar:
        record = json.load(sidecar)["aggregations"][0]
    assert (record["operator"], record["weights"]) == ("owa", [3, 1.5])
    # Quorel's refusal, in the interface's language: weights for another operator.
    from quorel_processing.texts import text

    with pytest.raises(QgsProcessingException, match=re.escape(text(314, "and"))):
        processing.run("quorel:aggregation", {**run, "OPERATOR": 0, "OUTPUT_FIELD": "NO"})
    assert layer.fields().indexOf("NO") < 0
    QgsProject.instance().removeAllMapLayers()
