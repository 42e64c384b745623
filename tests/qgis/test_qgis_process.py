"""The algorithm through QGIS's command-line runner, as a user runs it without the desktop."""

import os
import subprocess

import pytest

from conftest import CRITERION, assert_degrees_written

QGIS_PROCESS = "/usr/bin/qgis_process.bin"  # the /usr/bin/qgis_process wrapper adds an option 3.22 refuses


def qgis_process(home, *args):
    """Runs qgis_process with its profile under home."""
    done = subprocess.run([QGIS_PROCESS, *args], capture_output=True, text=True,
                          env={**os.environ, "QT_QPA_PLATFORM": "offscreen", "HOME": home})
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


@pytest.mark.parametrize("source,layer", [("parcels", ""), ("geopackage", "|layername=parcels")])
def test_qgis_process_runs_the_criterion_in_place(source, layer, tmp_path, request):
    path = request.getfixturevalue(source)
    home = str(tmp_path / "home")
    qgis_process(home, "plugins", "enable", "quorel_processing")
    out = qgis_process(home, "run", "quorel:criterion", "--", f"INPUT={path}{layer}",
                       "FIELD=SLOPE", *[f"{k}={v}" for k, v in CRITERION.items()],
                       "OUTPUT_FIELD=DEG")
    assert "OUTPUT_FIELD:\tDEG" in out
    assert_degrees_written(path, "DEG")
