"""Many captures, or one big one, decoded on a Dask cluster: a partition
per log file (or per byte range of a plain text log), each decoded on a
worker by a database that worker process loads once and keeps.

    from distributed import Client
    client = Client("tcp://scheduler:8786")   # or distributed.LocalCluster()
    ddf = q9db.dask.read_logs(["day1.log.xz", "day2.blf"], "vehicle.dbc")
    ddf.groupby("signal", observed=True)["value"].mean().compute()

The workers import q9db themselves: the package and the library must be
installed on every worker machine, and the description files and logs
must be at the same paths there (a shared file system).
"""

import operator
import os
import threading

import dask
import dask.dataframe as dd
import pandas as pd
from dask.dataframe.utils import UNKNOWN_CATEGORIES

from ._database import Database, load
from ._decoding import DEFAULT_BATCH
from ._sources import is_candump_text

_databases = {}  # description -> Database, one per worker process
_loading = threading.Lock()


def _description_key(description, bus):
    """A picklable, hashable name of the description: its files and bindings."""
    if isinstance(description, Database):
        if bus:
            raise ValueError("give the bus bindings with the Database, not beside it")
        unbound = tuple(os.path.abspath(p) for p, b in description.files if b is None)
        bound = tuple(sorted((b, os.path.abspath(p)) for p, b in description.files if b is not None))
        return unbound, bound
    files = [description] if isinstance(description, (str, os.PathLike)) else list(description)
    bound = []
    for name, paths in (bus or {}).items():
        for p in [paths] if isinstance(paths, (str, os.PathLike)) else paths:
            bound.append((name, os.path.abspath(p)))
    return tuple(os.path.abspath(p) for p in files), tuple(sorted(bound))


def database_for(key):
    """The database of a description key, loaded once in this process."""
    with _loading:
        database = _databases.get(key)
        if database is None:
            unbound, bound = key
            bus = {}
            for name, path in bound:
                bus.setdefault(name, []).append(path)
            database = _databases[key] = load(*unbound, bus=bus)
        return database


def _decode_part(part, key, options):
    from ._logs import read_log

    path, begin, end = part
    frame = read_log(path, database_for(key), begin=begin, end=end, **options)
    return frame, frame.attrs["q9db"]


def _parts(paths, chunk_bytes):
    parts = []
    for path in paths:
        path = os.path.abspath(os.fspath(path))
        size = os.path.getsize(path)
        plain = is_candump_text(path) and path.lower().endswith((".log", ".candump"))
        if chunk_bytes and plain and size > chunk_bytes:
            for begin in range(0, size, chunk_bytes):
                parts.append((path, begin, min(begin + chunk_bytes, size)))
        else:
            parts.append((path, 0, None))
    return parts


def read_logs(paths, description, *, bus=None, chunk_bytes=None, reports=False, frames=None, signals=None,
              raw=False, reader="auto", errors="warn", batch_size=DEFAULT_BATCH, **reader_options):
    """A Dask DataFrame of the captures, in the long form of q9db.read_log,
    a partition per file; a plain text log (.log) bigger than chunk_bytes
    is split into partitions of that many bytes. ``description`` is a
    description file, a list of them or a q9db.Database (its files are
    loaded again on the workers); ``bus`` binds files to buses as in
    q9db.load.

    What each partition did not decode is in its ReadReport: with
    ``reports=True`` the answer is (dataframe, [Delayed ReadReport]), and
    ``dask.compute(dataframe, reports)`` decodes each part once for both.
    """
    if isinstance(paths, (str, os.PathLike)):
        paths = [paths]
    key = _description_key(description, bus)
    local = database_for(key)  # the meta, and a bad description fails here rather than on a worker
    from ._tables import empty_long_frame

    meta = empty_long_frame(local, raw)
    # The channels are the captures'; text signals add texts: unknown ahead.
    for column in ("channel", "text"):
        meta[column] = pd.Categorical([], categories=[UNKNOWN_CATEGORIES])
    options = dict(frames=frames, signals=signals, raw=raw, reader=reader, errors=errors, batch_size=batch_size,
                   **reader_options)
    decoded = [dask.delayed(_decode_part, pure=True)(part, key, options) for part in _parts(paths, chunk_bytes)]
    parts = [dask.delayed(operator.getitem, pure=True)(d, 0) for d in decoded]
    dataframe = dd.from_delayed(parts, meta=meta, verify_meta=False)
    if reports:
        return dataframe, [dask.delayed(operator.getitem, pure=True)(d, 1) for d in decoded]
    return dataframe
