"""Shared set-up of the Python module's tests: the built module, the command line beside it and
scratch copies of the sample."""

import os
import subprocess

from pgcluster import postgis, postgres  # noqa: F401 (fixtures)
from samples import geopackage, parcels  # noqa: F401 (fixtures)

CLI = os.environ["QUOREL_CLI"]


def cli(*args, check=True, text=True):
    """Runs the command line; returns its completed process."""
    done = subprocess.run([CLI, *args], capture_output=True, text=text)
    if check and done.returncode != 0:
        raise AssertionError(f"quorel {' '.join(args)}: {done.returncode} {done.stderr}")
    return done
