#!/usr/bin/python3
"""Speed of q9db.read_log: a capture of FRAMES lines (default 1,000,000),
simulated from the demo vehicle of examples/ as bench/decode_capture.sh
makes it, decoded into a DataFrame in the long form (a row per signal), the
wide form (a row per frame), from a gzip copy, and a tenth of it through
python-can's reader of .asc files. Prints the best of three runs in frames
per second. Use an optimised build of the package.

Usage: /usr/bin/python3 bench/python_read_log.py [BUILD_DIR [FRAMES]]   (default: build)
"""

import gzip
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import warnings

root = pathlib.Path(__file__).resolve().parent.parent
build = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else root / "build"
frames = int(sys.argv[2]) if len(sys.argv) > 2 else 1_000_000
sys.path.insert(0, str(build / "python"))

import q9db  # noqa: E402  (from the build named above)


def simulate(path, count):
    """The demo vehicle sends about 260 frames a second; every cycle is a
    multiple of 10 ms, so the coarser clock step loses nothing."""
    command = [str(build / "bin" / "q9db"), "simulate", str(root / "examples" / "vehicle.dbc"),
               "--duration", str(count // 250 + 1), "--step", "10",
               "--set", "EngineStatus.EngineSpeed=2400.5", "--set", "GearboxStatus.GearPos=Drive",
               "--set", "BatteryStatus.BatteryVoltage=13.9"]
    with open(path, "w") as out:
        simulation = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        for n, line in enumerate(simulation.stdout):
            if n == count:
                break
            out.write(line)
        simulation.kill()
        simulation.wait()


def best_of_three(name, count, read):
    best = None
    for _ in range(3):
        start = time.perf_counter()
        result = read()
        elapsed = time.perf_counter() - start
        best = elapsed if best is None else min(best, elapsed)
    print(f"{name:<28} {best:7.3f} s  {count / best:12,.0f} frames/s  ({len(result):,} rows)")


def main():
    scratch = pathlib.Path(tempfile.mkdtemp())
    try:
        capture = scratch / "capture.log"
        simulate(capture, frames)
        count = sum(1 for _ in open(capture))
        print(f"q9db.read_log from {build}, capture of {count:,} frames "
              f"({capture.stat().st_size // 2**20} MiB), load average {os.getloadavg()[0]:.1f}:")
        db = q9db.load(root / "examples" / "vehicle.dbc")
        best_of_three("long form", count, lambda: q9db.read_log(capture, db))
        best_of_three("wide form", count, lambda: q9db.read_log(capture, db, form="wide"))
        compressed = scratch / "capture.log.gz"
        with open(capture, "rb") as plain, gzip.open(compressed, "wb", compresslevel=6) as packed:
            shutil.copyfileobj(plain, packed)
        best_of_three("long form, gzip", count, lambda: q9db.read_log(compressed, db))

        import can
        tenth = count // 10
        asc = scratch / "capture.asc"
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            with can.Logger(str(asc)) as logger:
                for n, message in enumerate(can.LogReader(str(capture))):
                    if n == tenth:
                        break
                    logger.on_message_received(message)
        best_of_three("long form, .asc (python-can)", tenth, lambda: q9db.read_log(asc, db))
    finally:
        shutil.rmtree(scratch)


if __name__ == "__main__":
    main()
