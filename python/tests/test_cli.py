"""python3 -m q9db as a user runs it: decode prints what q9db decode
prints, stats and plot write their results, and mistakes get a status."""

import subprocess
import sys

import pytest

from conftest import TOOL, VEHICLE_DBC, VEHICLE_LOG


def run(*args):
    return subprocess.run([sys.executable, "-m", "q9db", *map(str, args)], capture_output=True, text=True)


@pytest.mark.parametrize("form", ["text", "csv"])
def test_decode_prints_as_the_tool_does(form):
    ours = run("decode", VEHICLE_DBC, "--log", VEHICLE_LOG, "--format", form)
    tool = subprocess.run([str(TOOL), "decode", str(VEHICLE_DBC), "--log", str(VEHICLE_LOG), "--format", form],
                          capture_output=True, text=True, check=True)
    assert ours.returncode == 0 and ours.stdout == tool.stdout


def test_stats_and_plot(tmp_path):
    stats = run("stats", VEHICLE_DBC, "--log", VEHICLE_LOG, "--format", "csv")
    assert stats.returncode == 0 and "can0,0C8,EngineStatus,10.000,300,0,10.000" in stats.stdout
    figure = tmp_path / "speed.svg"
    assert run("plot", VEHICLE_DBC, "--log", VEHICLE_LOG, "--signal", "EngineSpeed", "-o", figure).returncode == 0
    assert figure.stat().st_size > 10_000


@pytest.mark.parametrize("args, status, message", [
    (["decode", "--log", VEHICLE_LOG], 2, "a description file, or a --bus INTERFACE=FILE, is needed"),
    (["decode", VEHICLE_DBC, "--log", VEHICLE_LOG, "--bus", "can1"], 2, "'can1' is no binding"),
    (["decode", VEHICLE_DBC, "--log", "absent.log"], 1, "q9db: [Errno 2] No such file or directory: 'absent.log'"),
])
def test_mistakes_get_a_status_and_a_reason(args, status, message):
    result = run(*args)
    assert result.returncode == status and message in result.stderr
