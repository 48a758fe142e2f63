"""A capture decoded batch by batch through the library's whole-frame
decoding (one C++ call per batch, no Python loop per signal) into
concatenated numpy columns: per frame read its time, bus, identifier and
outcome; per decoded signal its frame read, slot, value and text. The
DataFrames, the statistics and the command line are made from these."""

import numpy as np

from ._errors import LogError
from ._report import ReadReport

DEFAULT_BATCH = 1 << 16


class DecodedLog:
    """The columns of a decoded capture (see the module's comment)."""

    def __init__(self, database, report):
        self.database = database
        self.report = report
        self.channel_names = []  # the buses of the capture, in order of appearance
        self.timestamp = self.channel = self.identifier = self.flags = self.length = None
        self.outcome = self.frame = None
        self.row_message = self.row_slot = self.row_value = self.row_text = self.row_raw = None
        self.filtered = False  # rows only of the frames and signals asked for


def _concatenate(parts, dtype):
    return np.concatenate(parts) if parts else np.empty(0, dtype)


def slot_mask(database, frames=None, signals=None):
    """Which slots pass the frame and signal names given (None: all)."""
    if frames is None and signals is None:
        return None
    slot_frames, _, names, _ = database.slot_table()
    frame_names = np.array([f.name for f in database.frames] + [""], dtype=object)
    keep = np.ones(len(names), bool)
    if frames is not None:
        wanted = {frames} if isinstance(frames, str) else set(frames)
        unknown = wanted - {f.name for f in database.frames}
        if unknown:
            raise ValueError(f"no frame is named {', '.join(sorted(unknown))}")
        keep &= np.isin(frame_names[slot_frames], list(wanted))
    if signals is not None:
        wanted = {signals} if isinstance(signals, str) else set(signals)
        known = set(names) | {f"{f.name}.{s.name}" for f in database.frames for s in f.signals}
        unknown = wanted - known
        if unknown:
            raise ValueError(f"no signal is named {', '.join(sorted(unknown))}")
        qualified = np.array([f"{frame_names[f]}.{n}" for f, n in zip(slot_frames.tolist(), names)], dtype=object)
        keep &= np.isin(np.array(names, dtype=object), list(wanted)) | np.isin(qualified, list(wanted))
    return keep


def decode_source(database, source, *, batch_size=DEFAULT_BATCH, errors="warn", raw=False, frames=None,
                  signals=None, keep_rows=True):
    """Decodes every batch of source on the CAN buses of database."""
    if errors not in ("warn", "raise", "ignore"):
        raise ValueError(f"errors must be 'warn', 'raise' or 'ignore', not {errors!r}")
    native = database._native
    report = ReadReport(source.name)
    log = DecodedLog(database, report)
    channel_codes = {}
    keep = slot_mask(database, frames, signals)
    per_message = {name: [] for name in ("timestamp", "channel", "identifier", "flags", "length", "outcome", "frame")}
    per_row = {name: [] for name in ("message", "slot", "value", "text", "raw")}
    offset = 0
    for batch in source.batches(batch_size, stop_at_malformed=errors == "raise"):
        message, slot, value, text, raw_values, outcome, frame = native.decode(
            batch.identifier, batch.flags, batch.length, batch.payload, batch.bus, batch.bus_names, True, raw)
        report.add_batch(database, batch, outcome, frame)
        for name in batch.bus_names:
            channel_codes.setdefault(name, len(channel_codes))
        bus_codes = np.array([channel_codes[name] for name in batch.bus_names], np.int32)
        per_message["timestamp"].append(batch.timestamp)
        per_message["channel"].append(bus_codes[batch.bus])
        per_message["identifier"].append(batch.identifier)
        per_message["flags"].append(batch.flags)
        per_message["length"].append(batch.length)
        per_message["outcome"].append(outcome)
        per_message["frame"].append(frame)
        if keep_rows:
            if keep is not None:
                if len(keep) < len(database.slot_table()[2]):  # decoding added slots: filter them too
                    database._slot_table_stale = True
                    keep = slot_mask(database, frames, signals)
                selected = keep[slot]
                message, slot, value, text = message[selected], slot[selected], value[selected], text[selected]
                raw_values = raw_values[selected] if raw else None
            per_row["message"].append(message.astype(np.int64) + offset)
            per_row["slot"].append(slot)
            per_row["value"].append(value)
            per_row["text"].append(text)
            if raw:
                per_row["raw"].append(raw_values)
        offset += len(outcome)
    report.add_source(source)
    if errors == "raise" and report.malformed_lines:
        place, problem, text = report.malformed[0]
        raise LogError(f"{place}: {problem}: {text}")
    database._slot_table_stale = True
    log.channel_names = list(channel_codes)
    log.filtered = keep is not None
    log.timestamp = _concatenate(per_message["timestamp"], np.float64)
    log.channel = _concatenate(per_message["channel"], np.int32)
    log.identifier = _concatenate(per_message["identifier"], np.uint32)
    log.flags = _concatenate(per_message["flags"], np.uint32)
    log.length = _concatenate(per_message["length"], np.uint8)
    log.outcome = _concatenate(per_message["outcome"], np.uint8)
    log.frame = _concatenate(per_message["frame"], np.int32)
    log.row_message = _concatenate(per_row["message"], np.int64)
    log.row_slot = _concatenate(per_row["slot"], np.int32)
    log.row_value = _concatenate(per_row["value"], np.float64)
    log.row_text = _concatenate(per_row["text"], np.int32)
    log.row_raw = _concatenate(per_row["raw"], np.uint64) if raw else None
    return log
