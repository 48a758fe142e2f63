"""A database of bus descriptions filled from DBC and LDF files, each file
serving every bus or one bus by name; and single frames decoded into
signal values and encoded from them."""

import math
import os
from collections import namedtuple

import numpy as np

from . import _native
from ._description import Frame, Signal
from ._errors import DescriptionError, DescriptionWarning, UnknownFrameError, warn

ImportReport = namedtuple("ImportReport", "file level kind text")
ImportReport.__doc__ = """One line of an import's report: level 1 is a warning (something the
file holds that could not be taken as written), 0 information; kind says
what it names (0 the file, 1 an ECU, 2 a frame, 3 a signal). The text
names the file, and the line and column where there are some."""

_PROTOCOLS = {_native.CLUSTER_CAN: "CAN", _native.CLUSTER_LIN: "LIN", _native.CLUSTER_FLEXRAY: "FlexRay"}

NOT_DECODED = {
    _native.UNKNOWN: "unknown identifier",
    _native.LENGTH_MISMATCH: "another length than described",
    _native.LOGGED_AS_FD: "logged as CAN FD, described as classic CAN",
    _native.LOGGED_AS_CLASSIC: "logged as classic CAN, described as CAN FD",
    _native.IDENTIFIER_TYPE: "standard and extended identifier mixed up",
    _native.UNBOUND_BUS: "no description for its bus",
}


def load(*paths, bus=None):
    """A database of the description files (DBC, LDF) given; ``bus`` maps a
    bus name of the logs (``"can1"``) to a file or a list of files that
    serve that bus alone, as ``q9db decode --bus can1=body.dbc`` does.

    Raises DescriptionError for a file that can't be used; warnings of the
    imports are in ``db.warnings`` and are also issued as DescriptionWarning.
    """
    db = Database()
    for path in paths:
        for p in [path] if isinstance(path, (str, os.PathLike)) else path:
            db.add_file(p)
    for name, files in (bus or {}).items():
        for p in [files] if isinstance(files, (str, os.PathLike)) else files:
            db.add_file(p, bus=name)
    return db


def _frame_text(identifier, flags):
    extended = flags & _native.FLAGMASK_FRAMETYPE == _native.FLAG_EXTENDED
    return f"{identifier:08X}" if extended else f"{identifier:03X}"


def describe_undecoded(outcome, identifier, flags, length, frame):
    """Why a frame was not decoded, as the q9db tool says it."""
    text = _frame_text(identifier, flags)
    if outcome == _native.LENGTH_MISMATCH:
        return f"{text}: {length} byte{'' if length == 1 else 's'}, {frame.name} has {frame.length}"
    if outcome == _native.LOGGED_AS_FD:
        return f"{text}: logged as CAN FD, {frame.name} is a classic CAN frame"
    if outcome == _native.LOGGED_AS_CLASSIC:
        return f"{text}: logged as classic CAN, {frame.name} is a CAN FD frame"
    if outcome == _native.IDENTIFIER_TYPE:
        extended = flags & _native.FLAGMASK_FRAMETYPE == _native.FLAG_EXTENDED
        return f"{text}: {'an extended' if extended else 'a standard'} identifier, {frame.name} has " \
               f"{'a standard' if extended else 'an extended'} one"
    return f"{text}: {NOT_DECODED.get(outcome, 'not decoded')}"


class Database:
    """Descriptions of bus networks, and conversion between frames and
    signal values by them. Made by ``q9db.load``."""

    def __init__(self):
        self._native = _native.Database()
        self.files = []  # (path, bus or None), as imported
        self.reports = []  # ImportReport of every file
        self._refresh()

    @property
    def warnings(self):
        """The import warnings of all files, each naming its file."""
        return [r.text for r in self.reports if r.level == 1]

    def add_file(self, path, bus=None):
        """Imports a DBC or LDF file, for ``bus`` alone when given. A file
        that fails adds nothing (DescriptionError); what is in stays."""
        path = os.fspath(path)
        with open(path, "rb"):
            pass  # FileNotFoundError and the like, as Python says them
        ok, message, reports = self._native.load(path, bus or "")
        reports = [ImportReport(path, first, second, text) for first, second, text in reports]
        if not ok:
            raise DescriptionError(message, reports)
        self.files.append((path, bus))
        self.reports.extend(reports)
        for r in reports:
            if r.level == 1:
                warn(r.text, DescriptionWarning)
        self._refresh()
        return self

    def _refresh(self):
        channels = self._native.channels()
        self.frames = []
        for index, f in enumerate(self._native.frames()):
            flags = f["flags"]
            frame_type = flags & _native.FLAGMASK_FRAMETYPE
            channel_name, cluster_type = channels[f["channel"]]
            signals = []
            for s in f["signals"]:
                muxed = s.pop("multiplexer_ids")
                signals.append(Signal(
                    multiplexer_ids=muxed if muxed or s["multiplexer_signal"] else None,
                    choices=dict(s.pop("choices")), **s))
            self.frames.append(Frame(
                name=f["name"], frame_id=f["identifier"],
                is_extended=frame_type == _native.FLAG_EXTENDED or (
                    frame_type == _native.FLAG_EITHER_TYPE and f["identifier"] > 0x7FF),
                is_fd=bool(flags & _native.FLAG_FD), length=f["length"],
                cycle_time=f["cycle_time"] or None, signals=signals,
                senders=[f["sender"]] if f["sender"] else [], comment=f["comment"],
                bus=channel_name, protocol=_PROTOCOLS.get(cluster_type, "unknown"),
                bitrate_switch=bool(flags & _native.FLAG_BITRATE_SWITCH),
                mask=None if f["mask"] == 0xFFFFFFFF else f["mask"],
                index=index, flags=flags, channel=f["channel"], database=self))
        self._slot_table = None
        self._slot_table_stale = True
        self._text_slots = {s.slot for f in self.frames for s in f.signals if s.is_text}
        self._signals_by_slot = None

    def slot_table(self):
        """Per slot (a signal as a frame carries it): frame index, channel
        index, signal name, unit; refreshed when decoding added slots."""
        if self._slot_table is None or self._slot_table_stale:
            frames, channels, names, units = self._native.slots()
            self._slot_table = (frames, channels, names, units)
            self._slot_table_stale = False
        return self._slot_table

    def _slot_is_text(self, slot):
        return slot in self._text_slots

    def channel_names(self):
        return [name for name, _ in self._native.channels()]

    def __repr__(self):
        files = ", ".join(p if b is None else f"{b}={p}" for p, b in self.files)
        return f"<q9db.Database of {files or 'no files'}: {len(self.frames)} frames>"

    # ---- Frames ------------------------------------------------------------

    def _channels_for(self, bus, can_only=False):
        return set(self._native.bus_channels(bus or "", can_only))

    def get_frame(self, key, bus=None, is_extended=None):
        """The frame of a name or identifier, among those that serve
        ``bus`` (by default the files bound to no bus)."""
        if isinstance(key, Frame):
            return key
        channels = self._channels_for(bus)
        served = [f for f in self.frames if f.channel in channels]
        if isinstance(key, str):
            found = [f for f in served if f.name == key]
            what = repr(key)
        else:
            key = int(key)
            found = [f for f in served if (key & (f.mask or 0xFFFFFFFF)) == (f.frame_id & (f.mask or 0xFFFFFFFF))]
            if is_extended is not None:
                found = [f for f in found if f.is_extended == bool(is_extended)]
            elif len({f.is_extended for f in found}) > 1:
                found = [f for f in found if f.is_extended == (key > 0x7FF)]
            what = f"with identifier 0x{key:X}"
        if not found:
            where = f" for bus {bus}" if bus else ""
            raise UnknownFrameError(f"no frame {what} is described{where}")
        return found[0]

    # ---- Single frames -----------------------------------------------------

    def decode(self, frame, data, *, bus=None, is_extended=None, is_fd=None, decode_choices=True, scaling=True):
        """The signal values of one frame's payload, as {signal: value}.

        ``frame`` is an identifier, a name or a Frame. Values are physical
        (``scaling=False``: raw, as the coding reads the bits); a value with
        a value text is that text unless ``decode_choices`` is False; a text
        signal gives its text. Only the signals the frame's switches select
        are there. ValueError when the data doesn't fit the frame."""
        described = self.get_frame(frame, bus=bus, is_extended=is_extended)
        data = bytes(data)
        if len(data) > 64:
            raise ValueError(f"{described.name}: {len(data)} bytes of data; a CAN frame has at most 64")
        extended = described.is_extended if is_extended is None else bool(is_extended)
        identifier = described.frame_id if isinstance(frame, (str, Frame)) else int(frame)
        flags = described.flags
        if described.protocol == "CAN":
            fd = described.is_fd if is_fd is None else bool(is_fd)
            flags = (_native.FLAG_EXTENDED if extended else 0) | (
                _native.FLAG_FD | (described.flags & _native.FLAG_BITRATE_SWITCH) if fd else 0)
        outcome, frame_index, result = self._decode_message(identifier, flags, data, bus, decode_choices, scaling)
        if outcome != _native.DECODED:
            misfit = self.frames[frame_index] if frame_index >= 0 else described
            raise ValueError(describe_undecoded(outcome, identifier, flags, len(data), misfit))
        return result

    def _decode_message(self, identifier, flags, data, bus, decode_choices, scaling):
        """(outcome, frame index, {signal: value}) of one message."""
        payload = np.zeros((1, _native.PAYLOAD_STRIDE), np.uint8)
        payload[0, :len(data)] = np.frombuffer(data, np.uint8)
        _, slots, values, texts, raws, outcome, frame_index = self._native.decode(
            np.array([identifier], np.uint32), np.array([flags], np.uint32), np.array([len(data)], np.uint8),
            payload, None, [bus or ""], False, not scaling)
        names = self.slot_table()[2]
        if len(slots) and slots.max() >= len(names):  # decoding added slots
            self._slot_table_stale = True
            names = self.slot_table()[2]
        text_names = self._native.texts() if len(texts) and texts.max() >= 0 else []
        result = {}
        for slot, value, text, raw in zip(slots.tolist(), values.tolist(), texts.tolist(),
                                          raws.tolist() if raws is not None else [None] * len(slots)):
            signal = self._signal_of_slot(slot)
            if signal is not None and signal.is_text:
                result[names[slot]] = text_names[text] if text >= 0 else ""
            elif not scaling:
                result[names[slot]] = _signed(raw, signal) if signal else raw
            elif decode_choices and text >= 0:
                result[names[slot]] = text_names[text]
            else:
                result[names[slot]] = _number(value, signal)
        return int(outcome[0]), int(frame_index[0]), result

    def _signal_of_slot(self, slot):
        if self._signals_by_slot is None:
            self._signals_by_slot = {s.slot: s for f in self.frames for s in f.signals}
        return self._signals_by_slot.get(slot)

    def encode(self, frame, values, *, bus=None, strict=True, scaling=True):
        """The payload of a frame (identifier, name or Frame) carrying
        ``values``, {signal: physical value or value text}; signals left out
        go at their start values. With ``strict`` a value outside a signal's
        minimum and maximum is refused (ValueError naming the signal and its
        range); with ``scaling=False`` numbers are raw values. In a
        multiplexed frame the switch value decides which signals go out."""
        described = self.get_frame(frame, bus=bus)
        return self._native.encode(described.index, dict(values), bool(strict), not scaling)


def _signed(raw, signal):
    if signal.is_signed and not signal.is_float and 0 < signal.length < 64 and raw >> (signal.length - 1) & 1:
        return raw - (1 << signal.length)
    return raw


def _number(value, signal):
    """Integers as int where the signal can't carry anything else."""
    if (signal is not None and not signal.is_float and float(signal.scale).is_integer()
            and float(signal.offset).is_integer() and math.isfinite(value) and value.is_integer()):
        return int(value)
    return value
