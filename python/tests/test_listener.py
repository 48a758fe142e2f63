"""Live decoding of a python-can bus: the virtual bus, a Notifier and the
Listener, into a callback and into a queue."""

import time

import can
import pytest

import q9db


@pytest.fixture
def buses():
    sender = can.Bus(interface="virtual", channel="q9db-test", receive_own_messages=False)
    receiver = can.Bus(interface="virtual", channel="q9db-test")
    yield sender, receiver
    sender.shutdown()
    receiver.shutdown()


def test_messages_of_a_bus_are_decoded_and_misses_counted(vehicle, buses):
    sender, receiver = buses
    received = []
    listener = q9db.Listener(vehicle, received.append, bus="can0")
    notifier = can.Notifier(receiver, [listener], timeout=0.05)
    try:
        payload = vehicle.encode("GearboxStatus", {"GearPos": "Drive", "OilTemp": 90})
        sender.send(can.Message(arbitration_id=0x0D0, data=payload, is_extended_id=False))
        sender.send(can.Message(arbitration_id=0x7FF, data=b"\x01", is_extended_id=False))
        sender.send(can.Message(arbitration_id=0x0C8, data=b"\x01\x02", is_extended_id=False))
        sender.send(can.Message(arbitration_id=0x0C8, is_remote_frame=True, is_extended_id=False))
        sender.send(can.Message(arbitration_id=0x18FEF117, data=bytes(8), is_extended_id=True))
        deadline = time.monotonic() + 10  # delivery is asynchronous; a hang fails, slowness doesn't
        while listener.report.frames + listener.report.remote_or_error < 5 and time.monotonic() < deadline:
            time.sleep(0.01)
    finally:
        notifier.stop()
    assert [(m.frame, m.signals["GearPos"], m.signals["OilTemp"]) for m in received[:1]] == [("GearboxStatus", "Drive", 90)]
    assert [m.frame for m in received] == ["GearboxStatus", "BatteryStatus"]
    report = listener.report
    assert (report.decoded, report.unknown, report.not_decoded, report.remote_or_error) == (2, 1, 1, 1)


def test_a_queue_receives_them(vehicle):
    listener = q9db.Listener(vehicle)
    listener(can.Message(arbitration_id=0x0C8, data=bytes.fromhex("F91180E70F148200"), is_extended_id=False,
                         channel="can0", timestamp=5.0))
    message = listener.queue.get_nowait()
    assert (message.timestamp, message.channel, message.frame_id, message.signals["EngineState"]) == (
        5.0, "can0", 0x0C8, "Running")
