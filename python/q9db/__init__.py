"""q9db: vehicle bus descriptions (DBC, LDF) in Python.

    import q9db
    db = q9db.load("vehicle.dbc")
    db.decode(0x0C8, bytes.fromhex("F91180E70F148200"))   # {signal: value}
    db.encode("EngineStatus", {"EngineSpeed": 1500, "EngineState": "Running"})
    df = q9db.read_log("drive.log", db)        # a row per decoded signal
    q9db.plot(df, ["EngineSpeed", "GearPos"], "drive.png")

Logs of every format python-can reads are decoded in batches by the C++
library; the text forms of the Linux CAN tools are also parsed in C++.
``q9db.Listener`` decodes live traffic of a python-can bus, and
``q9db.dask.read_logs`` spreads many logs over a Dask cluster.
"""

from ._database import Database, ImportReport, load
from ._description import Frame, Signal
from ._errors import (DescriptionError, DescriptionWarning, LogError, UndecodedFramesWarning,
                      UnknownFrameError)
from ._listener import DecodedMessage, Listener
from ._logs import ReadReport, frame_stats, read_log
from ._plot import plot

__version__ = "0.1.0"

__all__ = [
    "Database", "DecodedMessage", "DescriptionError", "DescriptionWarning", "Frame", "ImportReport",
    "Listener", "LogError", "ReadReport", "Signal", "UndecodedFramesWarning", "UnknownFrameError",
    "frame_stats", "load", "plot", "read_log",
]
