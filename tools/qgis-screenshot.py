#!/usr/bin/python3
"""Writes screenshots of the algorithm's dialog in QGIS, in French and English, without a
display: tools/qgis-screenshot.py BUILD_DIR OUT_FOLDER.

QGIS's Processing dialog asks its host window (iface) for the browser and the active layer: a
mock stands in for it here, as in QGIS's own tests."""

import os
import subprocess
import sys

build, out = (os.path.abspath(p) for p in sys.argv[1:3])
source = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

if len(sys.argv) == 3:
    for code in ("fr", "en"):
        env = {**os.environ, "QT_QPA_PLATFORM": "offscreen", "HOME": os.path.join(out, ".home"),
               "PYTHONPATH": f"{build}/python:{build}/qgis"}
        subprocess.run([sys.executable, __file__, build, out, code], env=env, check=True)
    subprocess.run(["rm", "-rf", os.path.join(out, ".home")], check=True)
    sys.exit(0)

code = sys.argv[3]
from unittest import mock  # noqa: E402

sys.modules["mock"] = mock  # qgis.testing.mocked imports the old name
from qgis.core import QgsProject, QgsSettings, QgsVectorLayer  # noqa: E402
from qgis.testing import start_app  # noqa: E402

app = start_app(True)
QgsSettings().setValue("locale/userLocale", f"{code}_{code.upper()}")
import qgis.utils  # noqa: E402
from qgis.gui import QgsBrowserGuiModel  # noqa: E402
from qgis.testing.mocked import get_iface  # noqa: E402

# Set before Processing is imported: its modules take iface when they load.
qgis.utils.iface = get_iface()
browser = QgsBrowserGuiModel()
qgis.utils.iface.browserModel.return_value = browser
sys.path.append("/usr/share/qgis/python/plugins")
from processing.core.Processing import Processing  # noqa: E402
from quorel_processing.plugin import QuorelPlugin  # noqa: E402

Processing.initialize()
plugin = QuorelPlugin()
plugin.initProcessing()
layer = QgsVectorLayer(os.path.join(source, "samples", "parcels.shp"), "parcels", "ogr")
QgsProject.instance().addMapLayer(layer)
qgis.utils.iface.activeLayer.return_value = layer

import processing  # noqa: E402

dialog = processing.createAlgorithmDialog(
    "quorel:criterion",
    {"INPUT": layer, "FIELD": "SLOPE", "SHAPE": 4, "A": 2, "B": 5, "C": 15, "D": 25,
     "OUTPUT_FIELD": "FZY_SLOPE"})
dialog.resize(960, 720)
dialog.show()
for _ in range(50):
    app.processEvents()
dialog.grab().save(os.path.join(out, f"qgis_criterion_{code}.png"))
