"""The algorithm through processing.run inside a QgsApplication started without a display, with
the layer loaded in the project: its fields show the new one after the run."""

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
