"""What a read of a capture met: frames read, decoded and not decoded (with
why, and examples), remote and error frames, malformed lines. Nothing a
reader passes over goes untold: the report is the read's attribute, and a
summary of what wasn't decoded is issued as a warning."""

from collections import Counter
from dataclasses import dataclass, field
from typing import List

import numpy as np

from . import _native
from ._database import NOT_DECODED, describe_undecoded

_SHOWN = 5  # examples of each kind in a summary


@dataclass
class ReadReport:
    source: str
    frames: int = 0  # data frames read
    decoded: int = 0
    unknown: int = 0  # of an identifier no description (for their bus) knows
    not_decoded: int = 0  # described, but not as logged (length, CAN FD, identifier type)
    unbound_bus: int = 0  # on a bus no description serves
    remote_or_error: int = 0  # remote and error frames, which carry no signals
    malformed_lines: int = 0
    unknown_identifiers: Counter = field(default_factory=Counter)  # "123" -> frames
    mismatches: Counter = field(default_factory=Counter)  # "0C8: 2 bytes, EngineStatus has 8" -> frames
    unbound_buses: Counter = field(default_factory=Counter)
    malformed: List = field(default_factory=list)  # the first ones: (place, problem, text)

    @property
    def complete(self):
        """True when every frame read was decoded and every line was one."""
        return self.frames == self.decoded and not self.malformed_lines

    def add_batch(self, database, batch, outcome, frame):
        """Counts a decoded batch's outcomes, with examples of the misses."""
        counts = np.bincount(outcome, minlength=len(NOT_DECODED) + 1)
        self.frames += len(outcome)
        self.decoded += int(counts[_native.DECODED])
        self.unknown += int(counts[_native.UNKNOWN])
        self.unbound_bus += int(counts[_native.UNBOUND_BUS])
        missed = len(outcome) - int(counts[_native.DECODED] + counts[_native.UNKNOWN] + counts[_native.UNBOUND_BUS])
        self.not_decoded += missed
        if counts[_native.UNKNOWN]:
            unknown = outcome == _native.UNKNOWN
            extended = (batch.flags[unknown] & _native.FLAGMASK_FRAMETYPE) == _native.FLAG_EXTENDED
            keys = batch.identifier[unknown].astype(np.uint64) | (extended.astype(np.uint64) << np.uint64(32))
            ids, n = np.unique(keys, return_counts=True)
            for key, count in zip(ids.tolist(), n.tolist()):
                self.unknown_identifiers[f"{key & 0xFFFFFFFF:08X}" if key >> 32 else f"{key:03X}"] += count
        if missed:
            for i in np.flatnonzero((outcome != _native.DECODED) & (outcome != _native.UNKNOWN)
                                    & (outcome != _native.UNBOUND_BUS)).tolist():
                self.mismatches[describe_undecoded(outcome[i], int(batch.identifier[i]), int(batch.flags[i]),
                                                   int(batch.length[i]), database.frames[frame[i]])] += 1
        if counts[_native.UNBOUND_BUS]:
            buses, n = np.unique(batch.bus[outcome == _native.UNBOUND_BUS], return_counts=True)
            for bus, count in zip(buses.tolist(), n.tolist()):
                self.unbound_buses[batch.bus_names[bus]] += count

    def add_source(self, source):
        self.remote_or_error += source.remote_or_error_frames
        self.malformed_lines += source.malformed_count
        self.malformed.extend(source.malformed)

    def merge(self, other):
        for name in ("frames", "decoded", "unknown", "not_decoded", "unbound_bus", "remote_or_error",
                     "malformed_lines"):
            setattr(self, name, getattr(self, name) + getattr(other, name))
        self.unknown_identifiers.update(other.unknown_identifiers)
        self.mismatches.update(other.mismatches)
        self.unbound_buses.update(other.unbound_buses)
        self.malformed.extend(other.malformed)
        return self

    def summary(self):
        """One paragraph: what was read and everything that was not decoded."""
        parts = [f"{self.source}: {self.frames:,} frames read, {self.decoded:,} decoded"]
        if self.unknown:
            parts.append(f"{self.unknown:,} of an identifier no description knows ({_examples(self.unknown_identifiers)})")
        if self.not_decoded:
            parts.append(f"{self.not_decoded:,} not as described ({_examples(self.mismatches)})")
        if self.unbound_bus:
            parts.append(f"{self.unbound_bus:,} on a bus no description is bound to ({_examples(self.unbound_buses)})")
        if self.remote_or_error:
            parts.append(f"{self.remote_or_error:,} remote or error frames passed over")
        if self.malformed_lines:
            shown = "; ".join(f"{m[0]}: {m[1]}: {m[2]}" for m in self.malformed[:_SHOWN])
            more = ", ..." if self.malformed_lines > _SHOWN else ""
            parts.append(f"{self.malformed_lines:,} malformed line{'s' if self.malformed_lines > 1 else ''} "
                         f"skipped ({shown}{more})")
        return "; ".join(parts)

    __str__ = summary


def _examples(counter):
    shown = ", ".join(f"{key} [{count:,} frame{'s' if count > 1 else ''}]"
                      for key, count in counter.most_common(_SHOWN))
    return shown + (", ..." if len(counter) > _SHOWN else "")
