"""The algorithm through QGIS's command-line runner, as a user runs it without the desktop."""

import os
import subprocess

from conftest import CRITERION, assert_degrees_written

QGIS_PROCESS = "/usr/bin/qgis_process.bin"  # the /usr/bin/qgis_process wrapper adds an option 3.22 refuses


def qgis_process(*args):
    done = subprocess.run([QGIS_PROCESS, *args], capture_output=True, text=True,
                          env={**os.environ, "QT_QPA_PLATFORM": "offscreen"})
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def test_qgis_process_runs_the_criterion_in_place(parcels):
    qgis_process("plugins", "enable", "quorel_processing")
    out = qgis_process("run", "quorel:criterion", "--", f"INPUT={parcels}", "FIELD=SLOPE",
                       *[f"{k}={v}" for k, v in CRITERION.items()], "OUTPUT_FIELD=DEG")
    assert "OUTPUT_FIELD:\tDEG" in out
    assert_degrees_written(parcels, "DEG")
