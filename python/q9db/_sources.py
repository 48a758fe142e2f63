"""Where the frames of a capture come from, in batches of numpy columns
(timestamps, buses, identifiers, flags, lengths, 64-byte payload rows):
the text forms of the Linux CAN tools are parsed in C++, every other
format python-can reads goes through its ``can.LogReader``."""

import os
from typing import List, NamedTuple

import numpy as np

from . import _native
from ._errors import LogError

# Suffixes of the Linux CAN tools' text forms, which the C++ reader takes
# (compressed too: it tells gzip and xz by their first bytes).
CANDUMP_SUFFIXES = (".log", ".log.gz", ".log.xz", ".candump", ".candump.gz", ".candump.xz")


class Batch(NamedTuple):
    timestamp: np.ndarray  # float64 seconds; NaN where the log has none
    bus: np.ndarray  # int32, index into bus_names
    bus_names: List[str]
    identifier: np.ndarray  # uint32
    flags: np.ndarray  # uint32, the library's Q9_FLAG_CAN... bits
    length: np.ndarray  # uint8
    payload: np.ndarray  # uint8, a row of 64 bytes per frame


class Malformed(NamedTuple):
    place: str  # "file:line"
    problem: str
    text: str


def is_candump_text(path):
    return str(path).lower().endswith(CANDUMP_SUFFIXES)


class CandumpSource:
    """A capture in the log form ``(1436509052.249713) can0 123#DEADBEEF``
    or candump's live form, plain, gzip or xz; optionally the lines that
    begin in a byte range of a plain file."""

    def __init__(self, path, begin=0, end=None):
        self.path = os.fspath(path)
        self._reader = _native.CaptureReader(self.path, begin, end)
        self._ranged = begin > 0 or end is not None
        self.name = f"{self.path} (bytes {begin} to {'the end' if end is None else end})" if self._ranged else self.path

    def batches(self, size, stop_at_malformed=False):
        """Batches of up to size frames; with stop_at_malformed the batches
        end at the first malformed line."""
        while not (stop_at_malformed and self._reader.malformed_count):
            try:
                columns = self._reader.read(size, stop_at_malformed)
            except RuntimeError as error:  # a read or decompression error, naming the file
                raise LogError(str(error)) from error
            if len(columns["identifier"]) == 0:
                return
            yield Batch(columns["timestamp"], columns["bus"], self._reader.buses, columns["identifier"],
                        columns["flags"], columns["length"], columns["payload"])

    @property
    def remote_or_error_frames(self):
        return self._reader.remote_or_error_frames

    @property
    def malformed_count(self):
        return self._reader.malformed_count

    @property
    def malformed(self):
        where = " of the byte range" if self._ranged else ""
        return [Malformed(f"{self.path}:{line}{where}", problem, text)
                for line, _, problem, text in self._reader.malformed]


def bus_name(channel):
    """python-can's channel as a bus name: a number N as "canN" (python-can
    writes it so in the log form), none as ""."""
    if channel is None:
        return ""
    if isinstance(channel, int) or (isinstance(channel, str) and channel.isdigit()):
        return f"can{int(channel)}"
    return str(channel)


class PythonCanSource:
    """Any log python-can reads (.asc, .blf, .csv, .db, .trc, .log, .gz of
    them), message by message through ``can.LogReader``."""

    def __init__(self, path, **reader_options):
        import can

        self.path = self.name = os.fspath(path)
        try:
            self._messages = iter(can.LogReader(self.path, **reader_options))
        except ValueError as error:  # a suffix python-can doesn't read
            raise LogError(f"{self.path}: {error}") from error
        self.remote_or_error_frames = 0
        self.malformed_count = 0
        self.malformed = []
        self._buses = {}
        self._count = 0

    def batches(self, size, stop_at_malformed=False):
        """As CandumpSource.batches."""
        flag_ext, flag_fd = _native.FLAG_EXTENDED, _native.FLAG_FD
        flag_brs, flag_esi = _native.FLAG_BITRATE_SWITCH, _native.FLAG_ERROR_STATE
        while True:
            timestamp = np.empty(size, np.float64)
            bus = np.empty(size, np.int32)
            identifier = np.empty(size, np.uint32)
            flags = np.empty(size, np.uint32)
            length = np.empty(size, np.uint8)
            payload = np.zeros((size, _native.PAYLOAD_STRIDE), np.uint8)
            n = 0
            while n < size and not (stop_at_malformed and self.malformed_count):
                try:
                    message = next(self._messages)
                except StopIteration:
                    break
                except Exception as error:  # python-can's readers raise what their parsers do
                    raise LogError(f"{self.path}: unreadable after {self._count} messages: {error}") from error
                self._count += 1
                if message.is_error_frame or message.is_remote_frame:
                    self.remote_or_error_frames += 1
                    continue
                data = message.data
                if len(data) > _native.PAYLOAD_STRIDE:
                    self.malformed_count += 1
                    if len(self.malformed) < 20:
                        self.malformed.append(Malformed(f"{self.path}: message {self._count}",
                                                        f"{len(data)} data bytes, more than 64", ""))
                    continue
                name = bus_name(message.channel)
                code = self._buses.get(name)
                if code is None:
                    code = self._buses[name] = len(self._buses)
                timestamp[n] = message.timestamp
                bus[n] = code
                identifier[n] = message.arbitration_id
                # More than 8 bytes is CAN FD even where the format keeps no
                # flag for it (.csv, .db).
                fd = message.is_fd or len(data) > 8
                flags[n] = ((flag_ext if message.is_extended_id else 0) | (flag_fd if fd else 0)
                            | (flag_brs if message.bitrate_switch else 0)
                            | (flag_esi if message.error_state_indicator else 0))
                length[n] = len(data)
                payload[n, :len(data)] = np.frombuffer(bytes(data), np.uint8)
                n += 1
            if n == 0:
                return
            yield Batch(timestamp[:n], bus[:n], list(self._buses), identifier[:n], flags[:n], length[:n],
                        payload[:n])


def open_source(path, reader="auto", begin=0, end=None, **reader_options):
    """The source for a capture: "native" (the C++ reader of the Linux CAN
    tools' text forms), "python-can", or "auto" by the file's suffix."""
    if reader not in ("auto", "native", "python-can"):
        raise ValueError(f"reader must be 'auto', 'native' or 'python-can', not {reader!r}")
    native = reader == "native" or (reader == "auto" and is_candump_text(path))
    if (begin or end is not None) and not native:
        raise ValueError(f"{path}: only a log in the Linux CAN tools' text form is read from a byte range")
    if native:
        if reader_options:
            raise TypeError(f"options for python-can's reader given for a log q9db reads itself: "
                            f"{', '.join(reader_options)}")
        return CandumpSource(path, begin, end)
    return PythonCanSource(path, **reader_options)
