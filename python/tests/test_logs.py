"""Captures into DataFrames: every log format python-can writes, the C++
reader of the Linux CAN tools' text forms (compressed, by byte ranges,
malformed lines), agreement with q9db decode, the wide form, statistics,
and the report of what was not decoded."""

import gzip
import io
import lzma
import subprocess
import warnings

import can
import numpy as np
import pandas as pd
import pytest

import q9db
from conftest import TOOL, VEHICLE_DBC, VEHICLE_LOG

FIRST_LINES = 200  # of vehicle.log, enough to hold every frame of the demo vehicle


def messages(with_fd=True):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        read = list(can.LogReader(str(VEHICLE_LOG)))[:FIRST_LINES]
    return [m for m in read if with_fd or not m.is_fd]


def values_of(frame):
    return frame[["frame", "signal", "value", "text"]].astype(str).reset_index(drop=True)


@pytest.mark.parametrize("suffix", [".asc", ".blf", ".csv", ".db", ".log", ".trc", ".asc.gz", ".csv.gz", ".log.gz"])
def test_every_format_python_can_writes(tmp_path, vehicle, suffix):
    written = messages(with_fd=".trc" not in suffix)  # python-can writes no CAN FD to .trc
    path = tmp_path / f"capture{suffix}"
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        with can.Logger(str(path)) as logger:
            for m in written:
                logger.on_message_received(m)
    original = tmp_path / "original.log"
    with can.Logger(str(original)) as logger:
        for m in written:
            logger.on_message_received(m)
    read = q9db.read_log(path, vehicle)
    assert read.attrs["q9db"].complete and read.attrs["q9db"].frames == len(written)
    assert values_of(read).equals(values_of(q9db.read_log(original, vehicle)))


@pytest.mark.parametrize("compress", [gzip.compress, lzma.compress])
def test_compressed_text_logs(tmp_path, vehicle, vehicle_log, compress):
    path = tmp_path / "capture.log.z"
    path.write_bytes(compress(VEHICLE_LOG.read_bytes()))
    assert values_of(q9db.read_log(path, vehicle, reader="native")).equals(values_of(vehicle_log))


def test_byte_ranges_add_up_to_the_whole(vehicle, vehicle_log):
    size = VEHICLE_LOG.stat().st_size
    cuts = [0, 1, 5000, 5001, 33333, size]  # inside lines and right after their ends
    parts = [q9db.read_log(VEHICLE_LOG, vehicle, begin=a, end=b) for a, b in zip(cuts, cuts[1:])]
    assert values_of(pd.concat(parts)).equals(values_of(vehicle_log))


def test_values_agree_with_q9db_decode(vehicle_log):
    out = subprocess.run([str(TOOL), "decode", str(VEHICLE_DBC), "--log", str(VEHICLE_LOG), "--format", "csv"],
                         capture_output=True, text=True, check=True).stdout
    tool = pd.read_csv(io.StringIO(out), dtype=str, keep_default_na=False)
    assert list(tool["signal"]) == list(vehicle_log["signal"].astype(str))
    assert list(tool["frame"]) == list(vehicle_log["frame"].astype(str))
    assert np.allclose(tool["value"].astype(float), vehicle_log["value"], rtol=1e-6)
    assert list(tool["text"]) == list(vehicle_log["text"].astype(str).replace("nan", ""))
    assert list(tool["unit"]) == list(vehicle_log["unit"].astype(str))


def test_what_is_not_decoded_is_counted_and_told(tmp_path, vehicle):
    path = tmp_path / "odd.log"
    path.write_text("(1.0) can0 0C8#F91180E70F148200\n"
                    "(1.1) can0 0C8#0102\n"             # too short
                    "(1.2) can0 7FF#01\n"               # unknown
                    "(1.3) can0 500##1" + "00" * 64 + "\n"
                    "(1.4) can0 500#0011223344556677\n"  # classic, described as FD
                    "(1.5) can0 123#R\n"                 # remote
                    "(1.6) can0 12#00\n"                 # malformed
                    "(1.7) can0 0000007F#00\n")          # extended, unknown
    with pytest.warns(q9db.UndecodedFramesWarning) as told:
        frame = q9db.read_log(path, vehicle)
    report = frame.attrs["q9db"]
    assert (report.frames, report.decoded, report.unknown, report.not_decoded, report.remote_or_error,
            report.malformed_lines) == (6, 2, 2, 2, 1, 1)
    assert report.unknown_identifiers == {"7FF": 1, "0000007F": 1}
    assert set(report.mismatches) == {"0C8: 2 bytes, EngineStatus has 8",
                                      "500: logged as classic CAN, ObjectList is a CAN FD frame"}
    assert f"{path}:7: identifier must have 3 or 8 hex digits" in str(told[0].message)
    assert told[0].filename == __file__  # the user's line, not one inside the package
    with pytest.raises(q9db.LogError, match=f"{path}:7: identifier must have 3 or 8 hex digits: .*12#00"):
        q9db.read_log(path, vehicle, errors="raise")


def test_buses_bound_to_files(tmp_path):
    from conftest import DATA
    path = tmp_path / "two.log"
    path.write_text("(1.0) can0 0C8#F91180E70F148200\n(1.1) can1 0C8#0132\n(1.2) can2 0C8#0132\n")
    db = q9db.load(bus={"can0": VEHICLE_DBC, "can1": DATA / "body.dbc"})
    with pytest.warns(q9db.UndecodedFramesWarning, match=r"1 on a bus no description is bound to \(can2"):
        frame = q9db.read_log(path, db)
    assert frame.groupby("channel", observed=True)["frame"].first().astype(str).to_dict() == {
        "can0": "EngineStatus", "can1": "DoorStatus"}


def test_raw_values_as_the_coding_reads_them(vehicle):
    frame = q9db.read_log(VEHICLE_LOG, vehicle, raw=True, signals=["CurrentGear", "EngineSpeed"])
    raw = frame.groupby("signal", observed=True)["raw"].first().to_dict()
    assert raw == {"CurrentGear": -1, "EngineSpeed": 4601}  # choices key -1: "Reverse gear"


def test_wide_form_and_filters(vehicle, vehicle_log):
    wide = q9db.read_log(VEHICLE_LOG, vehicle, form="wide")
    assert len(wide) == 1087 and list(wide.columns[:3]) == ["timestamp", "channel", "frame"]
    speeds = vehicle_log[vehicle_log.signal == "EngineSpeed"]["value"].to_numpy()
    assert np.array_equal(wide["EngineSpeed"].dropna().to_numpy(), speeds)
    picked = q9db.read_log(VEHICLE_LOG, vehicle, form="wide", signals=["GearPos", "BodyDiag.WindowFL"])
    assert list(picked.columns) == ["timestamp", "channel", "frame", "GearPos", "WindowFL"]
    assert set(picked["frame"].astype(str)) == {"GearboxStatus", "BodyDiag"}
    with pytest.raises(ValueError, match="no signal is named Rpm"):
        q9db.read_log(VEHICLE_LOG, vehicle, signals=["Rpm"])


def test_frame_statistics(tmp_path, vehicle):
    stats = q9db.frame_stats(VEHICLE_LOG, vehicle).set_index("frame")
    assert stats.loc["EngineStatus", "count"] == 300 and stats["count"].sum() == 1087
    assert stats.loc["EngineStatus", "period_mean"] == pytest.approx(10.0)
    assert stats.loc["WheelSpeeds", "cycle_time"] == 20
    path = tmp_path / "short.log"
    path.write_text("(1.00) can0 7FF#01\n(1.25) can0 7FF#01\n(1.50) can0 0C8#01\n")
    with pytest.warns(q9db.UndecodedFramesWarning):
        undecoded = q9db.frame_stats(path, vehicle)
    assert undecoded[["frame_id", "frame", "count", "not_decoded", "period_mean"]].values.tolist() == [
        [0x0C8, "", 1, 1, pytest.approx(float("nan"), nan_ok=True)], [0x7FF, "", 2, 2, 250.0]]


@pytest.mark.parametrize("name, content, error, message", [
    ("corrupt.log.gz", b"\x1f\x8b\x08\x00garbage", q9db.LogError, "corrupt.log.gz: gzip: the data ends before"),
    ("capture.unknown", b"", q9db.LogError, 'No read support for this unknown log format ".unknown"'),
    ("absent.log", None, FileNotFoundError, "absent.log"),
])
def test_unreadable_captures_say_why(tmp_path, vehicle, name, content, error, message):
    path = tmp_path / name
    if content is not None:
        path.write_bytes(content)
    with pytest.raises(error, match=message):
        q9db.read_log(path, vehicle)
