"""Captures into pandas: ``read_log`` decodes a log of any format python-can
reads (the Linux CAN tools' text forms in C++) into a DataFrame, long or
wide, and ``frame_stats`` counts each frame and measures its period."""

import os

import numpy as np
import pandas as pd

from . import _native
from ._database import Database, load
from ._decoding import DEFAULT_BATCH, decode_source
from ._errors import UndecodedFramesWarning, warn
from ._report import ReadReport
from ._sources import open_source
from ._tables import long_frame, wide_frame

__all__ = ["ReadReport", "frame_stats", "read_log"]


def _database(database):
    if isinstance(database, Database):
        return database
    if isinstance(database, (str, os.PathLike, list, tuple)):
        return load(database)
    raise TypeError(f"database must be a q9db.Database or description files, not {type(database).__name__}")


def decode_log(path, database, *, reader="auto", errors="warn", batch_size=DEFAULT_BATCH, begin=0, end=None,
               raw=False, frames=None, signals=None, keep_rows=True, **reader_options):
    """The capture decoded into columns (see _decoding), warned about."""
    database = _database(database)
    source = open_source(path, reader, begin, end, **reader_options)
    log = decode_source(database, source, batch_size=batch_size, errors=errors, raw=raw, frames=frames,
                        signals=signals, keep_rows=keep_rows)
    if errors == "warn" and not log.report.complete:
        warn(log.report.summary(), UndecodedFramesWarning)
    return log


def read_log(path, database, *, form="long", frames=None, signals=None, raw=False, reader="auto", errors="warn",
             batch_size=DEFAULT_BATCH, begin=0, end=None, **reader_options):
    """The capture at path decoded by database (a q9db.Database, or
    description files to load) into a DataFrame.

    form="long": a row per decoded signal, with the columns timestamp
    (seconds, float), channel, frame, signal, value (physical, float), unit
    and text (the value's text; categoricals all but timestamp and value),
    and raw (the raw value as the coding reads it, as Signal.choices keys
    it) when ``raw`` is True. form="wide": a row per
    decoded frame, a column per signal. ``frames`` and ``signals`` keep only
    those names ("Frame.Signal" picks one frame's signal).

    Logs in the Linux CAN tools' text forms (.log, also .gz or .xz) are
    parsed in C++; other formats go through python-can's ``can.LogReader``
    (``reader`` forces one; ``reader_options`` go to python-can). A plain
    text log can be read from a byte range [begin, end): a line belongs to
    the range its first byte is in.

    Frames not decoded (unknown identifier, another length than described,
    no description for their bus) and malformed lines are counted in
    ``df.attrs["q9db"]``, a ReadReport, and told in an UndecodedFramesWarning
    (``errors="raise"``: a malformed line raises LogError; "ignore": no
    warning)."""
    if form not in ("long", "wide"):
        raise ValueError(f"form must be 'long' or 'wide', not {form!r}")
    log = decode_log(path, database, reader=reader, errors=errors, batch_size=batch_size, begin=begin, end=end,
                     raw=raw and form == "long", frames=frames, signals=signals, **reader_options)
    return long_frame(log) if form == "long" else wide_frame(log)


def frame_stats(path, database, **options):
    """A row per frame of the capture (per bus and identifier; frames not
    decoded too, their frame empty): how many were read, how many were not
    decoded, the described cycle and the measured period in milliseconds
    (mean, min, max, standard deviation). Options as for read_log."""
    database = _database(database)
    log = decode_log(path, database, keep_rows=False, **options)
    names = [f.name for f in database.frames] + [""]
    cycles = [float(f.cycle_time) if f.cycle_time else np.nan for f in database.frames] + [np.nan]
    described = log.frame if len(log.frame) else np.empty(0, np.int32)
    messages = pd.DataFrame({
        "channel": pd.Categorical.from_codes(log.channel, dtype=pd.CategoricalDtype(log.channel_names)),
        "frame_id": log.identifier,
        "extended": (log.flags & _native.FLAGMASK_FRAMETYPE) == _native.FLAG_EXTENDED,
        "frame": np.array(names, dtype=object)[np.where(log.outcome == _native.DECODED, described, -1)],
        "not_decoded": log.outcome != _native.DECODED,
        "timestamp": log.timestamp,
    })
    keys = ["channel", "frame_id", "extended", "frame"]
    groups = messages.groupby(keys, observed=True, sort=True)
    period = groups["timestamp"].diff() * 1000.0
    stats = groups.agg(count=("timestamp", "size"), not_decoded=("not_decoded", "sum"))
    by_period = period.groupby([messages[k] for k in keys], observed=True, sort=True)
    stats["period_mean"] = by_period.mean()
    stats["period_min"] = by_period.min()
    stats["period_max"] = by_period.max()
    stats["period_std"] = by_period.std()
    stats = stats.reset_index()
    cycle_of = dict(zip(names, cycles))
    stats.insert(stats.columns.get_loc("count"), "cycle_time", stats["frame"].map(cycle_of).astype(float))
    stats.attrs["q9db"] = log.report
    return stats
