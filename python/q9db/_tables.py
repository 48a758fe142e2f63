"""DataFrames of a decoded capture. The long form has a row per decoded
signal (timestamp, channel, frame, signal, value, unit, text); the wide
form a row per decoded frame and a column per signal. Names are
categoricals whose codes come straight from the decoder's slots, so
assembling a million frames costs a few numpy gathers, no Python loop per
row; their categories follow from the description alone (the channel's
from the capture), so reads of several logs concatenate cleanly."""

import numpy as np
import pandas as pd

from . import _native

LONG_COLUMNS = ["timestamp", "channel", "frame", "signal", "value", "unit", "text"]


def _codes(names):
    """Unique names in order of first appearance, and each name's code."""
    categories = list(dict.fromkeys(names))
    index = {name: i for i, name in enumerate(categories)}
    return categories, np.array([index[n] for n in names], np.int32)


def _categorical(codes, categories):
    return pd.Categorical.from_codes(codes, dtype=pd.CategoricalDtype(categories))


class SlotNames:
    """The frame, signal and unit of every slot as category codes."""

    def __init__(self, database):
        slot_frames, _, names, units = database.slot_table()
        frame_names = [f.name for f in database.frames]
        channel_names = database.channel_names()
        _, slot_channels, _, _ = database.slot_table()
        per_slot = [frame_names[f] if f >= 0 else channel_names[c]
                    for f, c in zip(slot_frames.tolist(), slot_channels.tolist())]
        self.frames, codes = _codes(frame_names + per_slot)
        self.frame_code = codes[len(frame_names):]
        self.code_of_frame = np.append(codes[:len(frame_names)], np.int32(-1))  # [-1]: none
        self.signals, self.signal_code = _codes(list(names))
        self.units, self.unit_code = _codes(list(units))
        self.signal_names = list(names)
        self.frame_of_slot = per_slot
        self.texts = list(database._native.texts())


def _signed_raw(database, raw, slot):
    """Raw values as the coding reads them (the keys of Signal.choices):
    two's complement ones negative where their sign bit is set."""
    lengths = np.zeros(len(database.slot_table()[2]), np.int64)
    for f in database.frames:
        for s in f.signals:
            if s.coding == "signed" and 0 < s.length < 64:
                lengths[s.slot] = s.length
    bits = lengths[slot]
    value = raw.astype(np.int64)
    negative = (bits > 0) & ((raw >> np.maximum(bits - 1, 0).astype(np.uint64)) & np.uint64(1)).astype(bool)
    value[negative] -= np.left_shift(np.int64(1), bits[negative])
    return value


def long_frame(log):
    """A row per decoded signal; raw values too when they were kept."""
    names = SlotNames(log.database)
    message = log.row_message
    slot = log.row_slot
    columns = {
        "timestamp": log.timestamp[message],
        "channel": _categorical(log.channel[message], log.channel_names),
        "frame": _categorical(names.frame_code[slot], names.frames),
        "signal": _categorical(names.signal_code[slot], names.signals),
        "value": log.row_value,
        "unit": _categorical(names.unit_code[slot], names.units),
        "text": _categorical(log.row_text, names.texts),
    }
    if log.row_raw is not None:
        columns["raw"] = _signed_raw(log.database, log.row_raw, slot)
    frame = pd.DataFrame(columns, copy=False)
    frame.attrs["q9db"] = log.report
    return frame


def empty_long_frame(database, raw=False):
    """The long form without rows, with the dtypes a read gives (the
    channel's categories are the capture's, unknown here)."""
    names = SlotNames(database)
    empty = np.empty(0, np.int32)
    columns = {
        "timestamp": np.empty(0, np.float64),
        "channel": pd.Categorical([]),
        "frame": _categorical(empty, names.frames),
        "signal": _categorical(empty, names.signals),
        "value": np.empty(0, np.float64),
        "unit": _categorical(empty, names.units),
        "text": _categorical(empty, names.texts),
    }
    if raw:
        columns["raw"] = np.empty(0, np.uint64)
    return pd.DataFrame(columns)


def wide_frame(log):
    """A row per decoded frame: timestamp, channel, frame, then a column
    per signal met (named "Frame.Signal" where two frames share the name),
    NaN where a frame doesn't carry it; text signals hold their texts."""
    names = SlotNames(log.database)
    decoded = np.flatnonzero(log.outcome == _native.DECODED)
    if log.filtered:  # only the frames with signals the filter let through
        kept = np.zeros(len(log.outcome), bool)
        kept[log.row_message] = True
        decoded = decoded[kept[decoded]]
    row_of_message = np.full(len(log.outcome), -1, np.int64)
    row_of_message[decoded] = np.arange(len(decoded))
    present = np.flatnonzero(np.bincount(log.row_slot, minlength=len(names.signal_names)))
    column_of_slot = np.full(len(names.signal_names), -1, np.int64)
    column_of_slot[present] = np.arange(len(present))
    values = np.full((len(present), len(decoded)), np.nan)
    rows = row_of_message[log.row_message]
    columns = column_of_slot[log.row_slot]
    values[columns, rows] = log.row_value

    labels = [names.signal_names[s] for s in present.tolist()]
    shared = {label for label in labels if labels.count(label) > 1}
    labels = [f"{names.frame_of_slot[s]}.{label}" if label in shared else label
              for s, label in zip(present.tolist(), labels)]
    table = pd.DataFrame(values.T, columns=labels, copy=False)
    texts = np.array(names.texts + [None], dtype=object)
    for column, slot in enumerate(present.tolist()):
        if not log.database._slot_is_text(slot):
            continue
        text = np.full(len(decoded), None, object)
        mine = log.row_slot == slot
        text[rows[mine]] = texts[log.row_text[mine]]
        table[labels[column]] = text
    table.insert(0, "timestamp", log.timestamp[decoded])
    table.insert(1, "channel", _categorical(log.channel[decoded], log.channel_names))
    table.insert(2, "frame", _categorical(names.code_of_frame[log.frame[decoded]], names.frames))
    table.attrs["q9db"] = log.report
    return table
