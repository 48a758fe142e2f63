"""Figures of signals over time: PNG and SVG files with units on the axes
and value texts as tick labels."""

import pytest

import q9db
from conftest import VEHICLE_LOG


@pytest.mark.parametrize("suffix, magic", [(".png", b"\x89PNG"), (".svg", b"<?xml")])
def test_signals_drawn_to_a_file(tmp_path, vehicle, vehicle_log, suffix, magic):
    path = tmp_path / f"drive{suffix}"
    figure = q9db.plot(vehicle_log, ["EngineSpeed", "GearPos", "BodyDiag.WindowFL"], path, database=vehicle)
    assert path.read_bytes().startswith(magic) and path.stat().st_size > 10_000
    speed, gear, window = figure.axes
    assert (speed.get_ylabel(), gear.get_ylabel(), window.get_ylabel()) == (
        "EngineSpeed [rpm]", "GearPos", "BodyDiag.WindowFL [%]")
    assert [t.get_text() for t in gear.get_yticklabels()] == ["Park", "Reverse", "Neutral", "Drive", "Sport", "Manual"]
    assert window.get_xlabel() == "time [s]"


def test_a_capture_is_read_for_the_plot_and_unknown_names_are_told(vehicle, vehicle_log):
    figure = q9db.plot(VEHICLE_LOG, "CurrentGear", database=vehicle)
    assert "Reverse gear" in [t.get_text() for t in figure.axes[0].get_yticklabels()]
    with pytest.raises(ValueError, match="no signal is named Rpm"):
        q9db.plot(VEHICLE_LOG, ["EngineSpeed", "Rpm"], database=vehicle)
    with pytest.raises(ValueError, match=r"no values of Rpm in the data \(it holds AirCon, AliveCounter"):
        q9db.plot(vehicle_log, ["EngineSpeed", "Rpm"])
