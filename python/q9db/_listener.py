"""Live decoding: a python-can Listener that decodes each message of any
python-can bus (through a Notifier) by a database and hands the signal
values to a callback or a queue; what it can't decode is counted."""

import queue as queue_module
from typing import Dict, NamedTuple, Union

import can
import numpy as np

from . import _native
from ._report import ReadReport
from ._sources import Batch, bus_name


class DecodedMessage(NamedTuple):
    timestamp: float
    channel: str
    frame_id: int
    frame: str  # the frame's name
    signals: Dict[str, Union[float, int, str]]


class Listener(can.Listener):
    """Decodes the messages a python-can Notifier hands it.

    ``target`` is a callable that takes a DecodedMessage, or a queue (any
    object with ``put``); without one the messages go into ``self.queue``.
    The bus name of a message is its channel ("can0"; a number N is
    "canN"), unless ``bus`` names one for all. Messages not decoded are
    counted in ``self.report`` (a ReadReport), never passed on."""

    def __init__(self, database, target=None, *, bus=None, decode_choices=True, scaling=True):
        super().__init__()
        self.database = database
        if target is None:
            target = self.queue = queue_module.Queue()
        self._deliver = target.put if hasattr(target, "put") else target
        if not callable(self._deliver):
            raise TypeError("target must be a callable or a queue")
        self._bus = bus
        self._choices = decode_choices
        self._scaling = scaling
        self.report = ReadReport("live bus" if bus is None else f"bus {bus}")

    def on_message_received(self, msg):
        if msg.is_error_frame or msg.is_remote_frame:
            self.report.remote_or_error += 1
            return
        bus = self._bus if self._bus is not None else bus_name(msg.channel)
        flags = ((_native.FLAG_EXTENDED if msg.is_extended_id else 0) | (_native.FLAG_FD if msg.is_fd else 0)
                 | (_native.FLAG_BITRATE_SWITCH if msg.bitrate_switch else 0))
        outcome, frame, signals = self.database._decode_message(
            msg.arbitration_id, flags, bytes(msg.data), bus, self._choices, self._scaling)
        batch = Batch(np.array([msg.timestamp]), np.zeros(1, np.int32), [bus],
                      np.array([msg.arbitration_id], np.uint32), np.array([flags], np.uint32),
                      np.array([len(msg.data)], np.uint8), None)
        self.report.add_batch(self.database, batch, np.array([outcome], np.uint8), np.array([frame], np.int32))
        if outcome == _native.DECODED:
            name = self.database.frames[frame].name if frame >= 0 else ""
            self._deliver(DecodedMessage(msg.timestamp, bus, msg.arbitration_id, name, signals))

    def stop(self):
        pass
