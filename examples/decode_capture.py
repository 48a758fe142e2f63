"""Decodes the demo vehicle's capture into a pandas DataFrame and plots two
of its signals: the Python package's daily use, cell by cell (# %% marks
the cells for editors that run them one at a time).

From the build tree:
    PYTHONPATH=build/python /usr/bin/python3 examples/decode_capture.py [FIGURE]
FIGURE defaults to vehicle.png in the current folder."""

# %% The description and the capture
import pathlib
import sys

import q9db

here = pathlib.Path(__file__).resolve().parent
db = q9db.load(here / "vehicle.dbc")
print(db, "| warnings:", db.warnings or "none")
print(db.get_frame("GearboxStatus"), db.get_frame("GearboxStatus").signals, sep="\n")

# %% A row per decoded signal: timestamp, channel, frame, signal, value, unit, text
df = q9db.read_log(here / "vehicle.log", db)
print(df.head(8).to_string())
print(df.attrs["q9db"])  # what was read, decoded, and not

# %% Per signal: its range over the capture
summary = df.groupby("signal", observed=True)["value"].agg(["count", "min", "max"])
print(summary.loc[["EngineSpeed", "SteeringAngle", "WheelSpeedFL", "BatteryVoltage"]])

# %% A row per frame, a column per signal
wide = q9db.read_log(here / "vehicle.log", db, form="wide", frames=["WheelSpeeds"])
print(wide.describe().loc[["mean", "std"]].round(3).to_string())

# %% Two signals over time; the gear's value texts label its axis
figure = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "vehicle.png")
q9db.plot(df, ["WheelSpeedFL", "GearPos"], figure, database=db, title="Demo vehicle reversing")
print("written", figure)
