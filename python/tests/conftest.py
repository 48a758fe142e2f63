"""Shared fixtures: the source tree's examples and test files, the built
tool, and the demo vehicle's database."""

import os
import pathlib

import pytest

import q9db

SOURCE = pathlib.Path(os.environ.get("Q9DB_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))
BUILD = pathlib.Path(os.environ.get("Q9DB_BUILD_DIR", SOURCE / "build"))
DATA = pathlib.Path(__file__).resolve().parent / "data"
EXAMPLES = SOURCE / "examples"
VEHICLE_DBC = EXAMPLES / "vehicle.dbc"
VEHICLE_LOG = EXAMPLES / "vehicle.log"
TOOL = BUILD / "bin" / "q9db"


@pytest.fixture(scope="session")
def vehicle():
    return q9db.load(VEHICLE_DBC)


@pytest.fixture(scope="session")
def vehicle_log(vehicle):
    return q9db.read_log(VEHICLE_LOG, vehicle)
