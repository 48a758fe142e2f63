"""Descriptions as Python objects, single frames decoded and encoded, and
imports: their warnings, their failures, several files and buses."""

import subprocess

import pytest

import q9db
from conftest import DATA, EXAMPLES, TOOL, VEHICLE_DBC


@pytest.mark.parametrize("name, frame_id, extended, fd, length, cycle", [
    ("EngineStatus", 0x0C8, False, False, 8, 10),
    ("ClimateRequest", 0x2F0, False, False, 3, None),
    ("BatteryStatus", 0x18FEF117, True, False, 8, 100),
    ("ObjectList", 0x500, False, True, 64, 50),
])
def test_frames_as_described(vehicle, name, frame_id, extended, fd, length, cycle):
    frame = vehicle.get_frame(name)
    assert (frame.frame_id, frame.is_extended, frame.is_fd, frame.length, frame.cycle_time) == (
        frame_id, extended, fd, length, cycle)
    assert vehicle.get_frame(frame_id) is frame


def test_signals_as_described(vehicle):
    throttle = vehicle.get_frame("EngineStatus").get_signal("ThrottlePos")
    assert (throttle.start, throttle.length, throttle.byte_order, throttle.scale, throttle.unit) == (
        47, 10, "big_endian", 0.1, "%")
    gear = vehicle.get_frame("GearboxStatus")
    assert gear.get_signal("CurrentGear").choices == {0: "No gear", -1: "Reverse gear"}
    assert gear.get_signal("GearRatio").coding == "float" and gear.get_signal("GearRatio").minimum is None
    assert gear.get_signal("CurrentGear").coding == "signed"
    assert vehicle.get_frame("BatteryStatus").get_signal("BatteryVoltage").initial == pytest.approx(12.6)


def test_nested_switches_place_signals_where_the_file_does():
    frame = q9db.load(DATA / "nested_switches.dbc").get_frame("Diag")
    laid = {s.name: (s.start, s.byte_order, s.multiplexer_signal, s.multiplexer_ids, s.is_multiplexer)
            for s in frame.signals}
    assert laid == {
        "Service": (0, "little_endian", None, None, True),
        "Counter": (56, "little_endian", None, None, False),
        "Temperature": (15, "big_endian", "Service", [0], False),
        "Page": (8, "little_endian", "Service", [1], True),
        "Pressure": (32, "little_endian", "Page", [2, 3], False),
        "Current": (39, "big_endian", "Page", [4], False),
    }


def tool_decode(payload_hex, frame_hex):
    """The C walk's values (through the tool's client of the README)."""
    out = subprocess.run([str(TOOL.parent / "q9db_decode_frame"), str(VEHICLE_DBC), frame_hex, payload_hex],
                         capture_output=True, text=True, check=True).stdout
    return {line.split(" = ")[0]: line.split(" = ")[1] for line in out.splitlines() if " = " in line}


@pytest.mark.parametrize("frame_hex, payload_hex", [
    ("0C8", "F91180E70F148200"), ("0D0", "F17D000000006040"), ("3C0", "0150280000000000"),
    ("18FEF117", "CDCC5C4148FF2001"),
])
def test_decode_agrees_with_the_c_walk(vehicle, frame_hex, payload_hex):
    values = vehicle.decode(int(frame_hex, 16), bytes.fromhex(payload_hex), decode_choices=False)
    expected = tool_decode(payload_hex, frame_hex)
    assert list(values) == list(expected)
    for name, text in expected.items():
        assert values[name] == pytest.approx(float(text.split()[0]), rel=1e-6), name


def test_decode_texts_raw_values_and_misfits(vehicle):
    payload = bytes.fromhex("F17D000000006040")
    assert vehicle.decode(0x0D0, payload)["CurrentGear"] == "Reverse gear"
    assert vehicle.decode(0x0D0, payload, scaling=False)["CurrentGear"] == -1
    raw = vehicle.encode("GearboxStatus", {"CurrentGear": -1, "OilTemp": 125}, scaling=False)
    assert vehicle.decode("GearboxStatus", raw)["OilTemp"] == 85
    with pytest.raises(ValueError, match="0D0: 2 bytes, GearboxStatus has 8"):
        vehicle.decode(0x0D0, payload[:2])
    with pytest.raises(q9db.UnknownFrameError, match="no frame with identifier 0x7FF"):
        vehicle.decode(0x7FF, payload)


def test_encoding_the_log_gives_its_frames_back(vehicle_log, vehicle):
    """Every frame of the capture, decoded and encoded again from its values
    (value texts where there are some), is the same payload."""
    with open(EXAMPLES / "vehicle.log") as log:
        frames = {line.split()[2] for line in log}
    for line in sorted(frames):
        ident, payload = line.replace("##1", "#").split("#")
        payload = bytes.fromhex(payload)
        values = vehicle.decode(int(ident, 16), payload)
        assert vehicle.encode(int(ident, 16), values) == payload, line


@pytest.mark.parametrize("values, decoded", [
    ({"Service": "Read", "Temperature": -12.3, "Counter": 7},
     {"Service": "Read", "Counter": 7, "Temperature": pytest.approx(-12.3)}),
    ({"Service": "Paged", "Page": 3, "Pressure": 250.5}, {"Service": "Paged", "Counter": 0, "Page": 3, "Pressure": 250.5}),
    ({"Service": 1, "Page": 4, "Current": -2.5}, {"Service": "Paged", "Counter": 0, "Page": 4, "Current": -2.5}),
])
def test_switch_values_decide_what_is_encoded(values, decoded):
    """Pressure and Current share bytes under different pages."""
    db = q9db.load(DATA / "nested_switches.dbc")
    assert db.decode("Diag", db.encode("Diag", values)) == decoded


@pytest.mark.parametrize("values, payload", [
    ({"Sel": 0}, "00aa000000000000"),  # A goes out at its start value
    ({"Sel": 1, "B": 5}, "0100050000000000"),  # A's part isn't carried: its bits stay clear
])
def test_a_part_the_switch_does_not_select_leaves_no_bits(values, payload):
    db = q9db.load(DATA / "part_start_value.dbc")
    assert db.encode("Mux", values).hex() == payload


@pytest.mark.parametrize("frame, values, options, error, message", [
    ("EngineStatus", {"EngineSpeed": 20000}, {}, ValueError,
     r"EngineStatus.EngineSpeed: 20000 is out of the signal's range 0 .. 16383.75"),
    ("EngineStatus", {"CoolantTemp": 300}, {"strict": False}, ValueError,
     r"CoolantTemp: 300 is beyond what the signal's bits carry \(-40 .. 215\)"),
    ("EngineStatus", {"EngineState": "Flying"}, {}, ValueError, r"'Flying' is no value text .*Running"),
    ("EngineStatus", {"Rpm": 1}, {}, ValueError, r"EngineStatus has no signal Rpm \(it has EngineSpeed"),
    ("BodyDiag", {"WindowFL": 3}, {}, ValueError, r"BodyDiag.WindowFL: carried only when DiagPage is 1"),
    ("EngineStatus", {"EngineSpeed": [1]}, {}, TypeError, r"EngineSpeed must be a number .* not list"),
    ("EngineStatus", {"AliveCounter": 16}, {"scaling": False}, ValueError, r"raw value 16 doesn't fit 4 bits"),
])
def test_encode_refuses_with_the_signal_and_the_reason(vehicle, frame, values, options, error, message):
    with pytest.raises(error, match=message):
        vehicle.encode(frame, values, **options)


def test_import_warnings_name_the_place():
    with pytest.warns(q9db.DescriptionWarning, match="names no signal"):
        db = q9db.load(DATA / "adjusted.dbc")
    assert [w.split(": ", 1)[0] for w in db.warnings] == [f"{DATA / 'adjusted.dbc'}:7:22", f"{DATA / 'adjusted.dbc'}:9:13"]
    assert db.get_frame("DoorStatus").get_signal("Angle").scale == 0.5


def test_a_failed_import_says_why_and_keeps_what_was_in(vehicle):
    db = q9db.load(VEHICLE_DBC)
    with pytest.raises(q9db.DescriptionError, match=r"unusable.dbc:1:21: message size expected but found 'two'"):
        db.add_file(DATA / "unusable.dbc")
    with pytest.raises(FileNotFoundError):
        db.add_file(DATA / "absent.dbc")
    assert len(db.frames) == len(vehicle.frames) and db.decode(0x0C8, bytes(8))["EngineState"] == "Off"


def test_files_bound_to_buses():
    db = q9db.load(VEHICLE_DBC, bus={"can1": DATA / "body.dbc"})
    assert "EngineSpeed" in db.decode(0x0C8, bytes(8))
    assert db.decode(0x0C8, b"\x01\x32", bus="can1") == {"DoorOpen": "Open", "WindowPos": 50}
    assert db.get_frame("DoorStatus", bus="can1").bus != db.get_frame("EngineStatus").bus


def test_lin_frames_of_an_ldf():
    db = q9db.load(VEHICLE_DBC, EXAMPLES / "seats.ldf")
    seat = next(f for f in db.frames if f.protocol == "LIN")
    assert seat.decode(seat.encode({})) == {s.name: seat.decode(bytes(seat.length))[s.name] for s in seat.signals}
