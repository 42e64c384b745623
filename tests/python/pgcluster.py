"""A throwaway PostgreSQL cluster with PostGIS for the tests of the module and of the QGIS
plugin (pytest fixtures)."""

import os
import pathlib
import shutil
import subprocess
import tempfile

import pytest

PG_BIN = "/usr/lib/postgresql/15/bin/"


@pytest.fixture(scope="session")
def postgres():
    """A throwaway PostgreSQL cluster with PostGIS on a socket of its own (as nobody under root:
    the server refuses root); yields the source text of a database holding the sample's table."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="quorel-pg-"))  # pytest's is root's alone
    user = {"user": 65534, "cwd": "/"} if os.geteuid() == 0 else {}
    if user:
        os.chown(folder, 65534, 65534)
    data = str(folder / "data")
    subprocess.run([PG_BIN + "initdb", "-D", data, "-U", "quorel", "-A", "trust", "--no-sync"],
                   check=True, capture_output=True, **user)
    subprocess.run([PG_BIN + "pg_ctl", "-D", data, "-l", str(folder / "log"), "-w", "-o",
                    f"-k {folder} -p 5433 -c listen_addresses= -c fsync=off", "start"],
                   check=True, capture_output=True, **user)
    info = f"host={folder} port=5433 user=quorel"
    try:
        subprocess.run(["psql", f"{info} dbname=postgres", "-qc", "CREATE DATABASE sample"],
                       check=True, capture_output=True)
        subprocess.run(["psql", f"{info} dbname=sample", "-qc", "CREATE EXTENSION postgis"],
                       check=True, capture_output=True)
        yield f'PG:"dbname=sample {info}"'
    finally:
        subprocess.run([PG_BIN + "pg_ctl", "-D", data, "-m", "immediate", "stop"],
                       capture_output=True, **user)
        shutil.rmtree(folder, ignore_errors=True)


@pytest.fixture
def postgis(postgres, parcels):
    """The sample as the table "parcels" of the cluster's database, made anew."""
    from osgeo import gdal

    gdal.VectorTranslate(postgres.replace('"', ""), parcels, format="PostgreSQL",
                         layerName="parcels", accessMode="overwrite",
                         layerCreationOptions=["LAUNDER=NO"])  # SLOPE stays SLOPE
    return postgres
