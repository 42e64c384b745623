"""The Python module against the command line it must agree with, and a run read back with
GDAL's Python bindings."""

import os
import pathlib

import numpy as np
import pytest
from osgeo import ogr

import quorel
from conftest import cli

# One criterion per kind, its values the break points, their neighbours and far values.
CRITERIA = [
    (1, ["3"]),
    (2, ["0", "10", "20"]),
    (3, ["-2,5", "7.25"]),
    (4, ["0", "10"]),
    (5, ["2", "5", "15", "25"]),
]


def values_around(params):
    points = [float(p.replace(",", ".")) for p in params]
    near = [np.nextafter(p, s) for p in points for s in (-np.inf, np.inf)]
    return np.array(points + near + [-1e300, -3.0, 0.1, 1 / 3, 12.5, 1e15, 7e307])


@pytest.mark.parametrize("kind,params", CRITERIA)
def test_membership_is_the_command_lines_bit_for_bit(kind, params):
    values = values_around(params)
    options = [x for letter, p in zip("abcd", params) for x in (f"-{letter}", p)]
    printed = cli("membership", "--kind", str(kind), *options, "--",
                  *[repr(float(v)) for v in values]).stdout.splitlines()
    expected = np.array([float(line) if line else np.nan for line in printed])

    degrees = quorel.membership(kind, *params, values=values.reshape(-1, 1))

    assert degrees.shape == (len(values), 1)
    assert degrees.dtype == np.float64
    np.testing.assert_array_equal(degrees.ravel().view(np.uint64), expected.view(np.uint64))


def test_null_follows_the_scripts_rule():
    nulls = np.full(3, np.nan)
    assert quorel.membership(1, 3, values=nulls).tolist() == [1.0, 1.0, 1.0]
    for kind, params in CRITERIA[1:]:
        assert np.isnan(quorel.membership(kind, *params, values=nulls)).all()


@pytest.mark.parametrize("kind,params", [CRITERIA[0], CRITERIA[4]])
def test_a_large_array_shared_among_cores_gets_each_values_degree(kind, params):
    values = np.random.default_rng(1).uniform(-5, 30, 3_000_001)
    values[::7] = np.nan
    values[::11] = 3.0
    whole = quorel.membership(kind, *params, values=values)
    pieces = [quorel.membership(kind, *params, values=values[i:i + 65536])
              for i in range(0, len(values), 65536)]
    np.testing.assert_array_equal(whole.view(np.uint64), np.concatenate(pieces).view(np.uint64))


def test_refusal_and_division_by_zero_are_the_scripts():
    refusal = cli("script", "--kind", "3", "-a", "5", "-b", "2", "--field", "F", check=False)
    assert refusal.returncode == 2
    with pytest.raises(quorel.RefusedError) as refused:
        quorel.membership(3, 5, 2, values=np.zeros(1))
    assert str(refused.value) == refusal.stderr.strip()
    # An empty box b is -9999: out of order too.
    with pytest.raises(quorel.RefusedError):
        quorel.script(2, 0, None, 5, None, "F")
    with pytest.raises(ZeroDivisionError):
        quorel.membership(5, 1, 1, 2, 3, values=np.zeros(1))
    assert quorel.script(5, "2", "5,0", np.int64(15), 25.0, "SLOPE").encode() == cli(
        "script", "--kind", "5", "-a", "2", "-b", "5", "-c", "15", "-d", "25",
        "--field", "SLOPE", text=False).stdout


def read_fields(path, *names):
    source = ogr.Open(path.replace('"', ""))  # kept: its layer dies with it
    rows = [[f.GetField(n) for n in names] for f in source.GetLayer("parcels")]
    return np.array(rows, dtype=float)


@pytest.mark.parametrize("source", ["parcels", "geopackage", "postgis"])
def test_a_run_writes_the_degrees_and_records_them(source, request):
    path = request.getfixturevalue(source)
    fractions = []
    where = path if source == "postgis" else pathlib.Path(path)
    added = quorel.run(where, "SLOPE", 5, 2, 5, 15, 25, layer="parcels",
                       progress=fractions.append)

    assert added == "FZY_SLOPE"
    slope, written = read_fields(path, "SLOPE", "FZY_SLOPE").T
    assert np.isnan(slope).any()
    # A shapefile's table keeps 11 decimals, a GeoPackage the double.
    np.testing.assert_allclose(written, quorel.membership(5, 2, 5, 15, 25, values=slope),
                               rtol=0, atol=5e-12, equal_nan=True)
    # The server fills a PostGIS table in one statement, with no progress to report.
    assert source == "postgis" or (fractions and fractions[-1] == 1.0)
    record = quorel.meta(path, "FZY_SLOPE")
    assert (record["kind"], record["a"], record["d"], record["layer"]) == (5, 2.0, 25.0, "parcels")
    assert quorel.meta(path, "SLOPE") is None
    stats = quorel.stats(path, "FZY_SLOPE", layer="parcels")
    assert stats["count"] == np.count_nonzero(~np.isnan(written))
    assert stats["maximum"] == 1.0
    # The name given is taken as is, and refused by the table.
    with pytest.raises(quorel.Error):
        quorel.run(path, "SLOPE", 3, 0, 10, out="FZY_SLOPE")


@pytest.mark.parametrize("source,field_kept", [("parcels", True), ("geopackage", False)])
def test_refused_and_failed_runs_change_nothing_recorded(source, field_kept, request):
    path = request.getfixturevalue(source)
    with pytest.raises(quorel.RefusedError, match="NOPE"):
        quorel.run(path, "NOPE", 3, 0, 10)
    with pytest.raises(quorel.RefusedError):
        quorel.run(path, "SLOPE", 3, 10, 0)
    with pytest.raises(quorel.Error, match="nothere"):
        quorel.run(path.replace("parcels.", "nothere."), "SLOPE", 3, 0, 10)
    with pytest.raises(quorel.Error, match="other"):
        quorel.run(path, "SLOPE", 3, 0, 10, layer="other")

    def stop(_fraction):
        raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        quorel.run(path, "SLOPE", 3, 0, 10, out="CUT", progress=stop)
    assert quorel.meta(path, "CUT") is None
    source = ogr.Open(path)
    assert (source.GetLayer().GetLayerDefn().GetFieldIndex("CUT") >= 0) == field_kept


@pytest.mark.parametrize("source", ["parcels", "geopackage"])
def test_an_aggregation_writes_the_operators_degrees(source, request):
    parcels = request.getfixturevalue(source)
    quorel.run(parcels, "SLOPE", 5, 2, 5, 15, 25)
    quorel.run(parcels, "SLOPE", 3, 0, 10, out="RAMP")
    quorel.run(parcels, "ALTITUDE", 4, 100, 400, out="LOW")
    fields = ["FZY_SLOPE", "RAMP", "LOW"]
    gamma = quorel.aggregate(parcels, fields, "gamma", gamma=0.3)
    owa = quorel.aggregate(parcels, fields, "owa", weights=[3, 2, 1], out="OWA")
    assert (gamma, owa) == ("FZY_AGG", "OWA")

    inputs = read_fields(parcels, *fields)
    written = read_fields(parcels, gamma, owa)
    product = inputs.prod(axis=1)
    total = 1 - (1 - inputs).prod(axis=1)
    descending = -np.sort(-inputs, axis=1)  # NaN rows stay NaN
    expected = np.column_stack([total ** 0.3 * product ** 0.7, descending @ [3, 2, 1] / 6])
    assert np.isnan(inputs).any() and np.isnan(written).any()
    # A shapefile's table keeps 11 decimals: half a unit of the last, and the doubles' own
    # rounding; a GeoPackage the double.
    np.testing.assert_allclose(written, expected, rtol=0, atol=6e-12, equal_nan=True)


def test_an_aggregation_refuses_as_the_command_line(parcels):
    quorel.run(parcels, "SLOPE", 3, 0, 10, out="RAMP")
    refusal = cli("aggregate", parcels, "--fields", "SLOPE,RAMP", "--op", "and", check=False)
    assert refusal.returncode == 2
    with pytest.raises(quorel.RefusedError) as refused:
        quorel.aggregate(parcels, ["SLOPE", "RAMP"], "and")
    assert str(refused.value) == refusal.stderr.strip()
    with pytest.raises(ValueError, match="nand"):
        quorel.aggregate(parcels, ["SLOPE", "RAMP"], "nand")
    assert ogr.Open(parcels).GetLayer().GetLayerDefn().GetFieldIndex("FZY_AGG") < 0
    assert not os.path.exists(parcels.replace(".shp", ".fzy.json"))
