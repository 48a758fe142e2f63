"""The frames and signals a database describes, as Python objects with the
names users of CAN tools in Python know: frame.frame_id, frame.signals,
signal.start, signal.scale, signal.choices and so on."""

from dataclasses import dataclass, field
from typing import Dict, List, Optional


@dataclass(eq=False)
class Signal:
    name: str
    start: int  # in the frame; the most significant bit of a big-endian signal
    length: int
    byte_order: str  # "little_endian" or "big_endian"
    is_signed: bool
    is_float: bool
    scale: float
    offset: float
    minimum: Optional[float]  # None: no limit
    maximum: Optional[float]
    unit: str
    choices: Dict[int, str]  # raw value (as the coding reads it) -> value text
    initial: Optional[float]  # the start value, physical
    comment: str
    is_multiplexer: bool  # a switch: its value selects other signals of the frame
    multiplexer_ids: Optional[List[int]]  # the switch values that select it; None: always sent
    multiplexer_signal: Optional[str]  # the switch that selects it
    is_text: bool = False  # ASCII text, not a number
    coding: str = "unsigned"  # signed (two's complement), ones_complement, sign_magnitude, float, bcd, packed_bcd, text
    slot: int = field(default=-1, repr=False)

    def __repr__(self):
        parts = [repr(self.name), f"start={self.start}", f"length={self.length}", self.byte_order]
        if self.is_float:
            parts.append("float")
        elif self.is_signed:
            parts.append("signed")
        if (self.scale, self.offset) != (1, 0):
            parts.append(f"scale={self.scale:g}, offset={self.offset:g}")
        if self.unit:
            parts.append(f"unit={self.unit!r}")
        if self.multiplexer_ids:
            parts.append(f"{self.multiplexer_signal}={self.multiplexer_ids}")
        return f"Signal({', '.join(parts)})"


@dataclass(eq=False)
class Frame:
    name: str
    frame_id: int  # the code of a frame described by identifier and mask
    is_extended: bool
    is_fd: bool
    length: int  # bytes
    cycle_time: Optional[int]  # milliseconds; None: not sent cyclically
    signals: List[Signal]
    senders: List[str]
    comment: str
    bus: str  # the name of the channel that carries it
    protocol: str  # "CAN", "LIN" or "FlexRay"
    bitrate_switch: bool = False
    mask: Optional[int] = None  # a frame described by identifier and mask
    index: int = field(default=-1, repr=False)
    flags: int = field(default=0, repr=False)
    channel: int = field(default=-1, repr=False)
    database: object = field(default=None, repr=False)

    def __repr__(self):
        ident = f"0x{self.frame_id:08X}" if self.is_extended else f"0x{self.frame_id:03X}"
        fd = ", FD" if self.is_fd else ""
        return f"Frame({self.name!r}, {ident}{fd}, {self.length} bytes, {len(self.signals)} signals)"

    @property
    def is_multiplexed(self):
        return any(s.is_multiplexer for s in self.signals)

    def get_signal(self, name):
        for s in self.signals:
            if s.name == name:
                return s
        raise KeyError(f"{self.name} has no signal {name!r}; it has {', '.join(s.name for s in self.signals)}")

    def decode(self, data, **options):
        """The frame's signal values from its payload: see Database.decode."""
        return self.database.decode(self, data, **options)

    def encode(self, values, **options):
        """The payload for signal values: see Database.encode."""
        return self.database.encode(self, values, **options)
