"""python3 -m q9db decode|plot|stats: thin front ends over the package for
a shell. decode prints as the q9db tool does (text) or CSV; plot writes a
figure; stats prints a row per frame with its count and period.
Exit status: 0 done, 1 an input error, 2 a usage error."""

import argparse
import math
import sys
import warnings

import numpy as np

from . import _native
from ._database import load
from ._errors import DescriptionError, DescriptionWarning, LogError, UndecodedFramesWarning


def _bindings(texts, parser):
    bus = {}
    for text in texts:
        name, _, path = text.partition("=")
        if not name or not path:
            parser.error(f"--bus: '{text}' is no binding: INTERFACE=FILE, e.g. can1=body.dbc")
        bus.setdefault(name, []).append(path)
    return bus


def _format_value(value, signal):
    """As the q9db tool writes a physical value: doubles to 15 significant
    digits, a signal sent as an IEEE single in its shortest form."""
    if math.isnan(value):
        return "nan"
    if math.isinf(value):
        return "inf" if value > 0 else "-inf"
    if signal is not None and signal.is_float and signal.length == 32 and float(np.float32(value)) == value:
        return str(np.float32(value)) if value != 0 else "0"
    text = "%.15g" % value
    return "0" if text == "-0" else text


def _write_decoded(log, database, csv, out):
    from ._tables import SlotNames

    names = SlotNames(database)
    signals = {s.slot: s for f in database.frames for s in f.signals}
    frame_names = [f.name for f in database.frames]
    if csv:
        out.write("timestamp,interface,identifier,frame,signal,value,unit,text\n")
    rows = np.searchsorted(log.row_message, np.arange(len(log.outcome) + 1))
    chunk = []
    for m in np.flatnonzero(log.outcome == _native.DECODED).tolist():
        stamp = "" if math.isnan(log.timestamp[m]) else "%.6f" % log.timestamp[m]
        extended = log.flags[m] & _native.FLAGMASK_FRAMETYPE == _native.FLAG_EXTENDED
        ident = ("%08X" if extended else "%03X") % log.identifier[m]
        frame = frame_names[log.frame[m]] if log.frame[m] >= 0 else ""
        channel = log.channel_names[log.channel[m]]
        if not csv:
            chunk.append(f"{stamp + ' ' if stamp else ''}{channel} {ident} {frame}\n")
        for r in range(rows[m], rows[m + 1]):
            slot = int(log.row_slot[r])
            signal = signals.get(slot)
            text = names.texts[log.row_text[r]] if log.row_text[r] >= 0 else ""
            if signal is not None and signal.is_text:
                value, text = f'"{text}"', ""
            else:
                value = _format_value(float(log.row_value[r]), signal)
            unit = database.slot_table()[3][slot]
            if csv:
                fields = [stamp, channel, ident, frame, names.signal_names[slot], value, unit, text]
                chunk.append(",".join(_csv_field(f) for f in fields) + "\n")
            else:
                chunk.append(f"  {names.signal_names[slot]} = {value}{' ' + unit if unit else ''}"
                             f"{' (' + text + ')' if text else ''}\n")
        if len(chunk) > 4096:
            out.write("".join(chunk))
            chunk.clear()
    out.write("".join(chunk))


def _csv_field(text):
    if any(c in text for c in ',"\n\r'):
        return '"' + text.replace('"', '""') + '"'
    return text


def main(argv=None):
    parser = argparse.ArgumentParser(prog="python3 -m q9db", description="Decode, plot and count CAN captures.")
    commands = parser.add_subparsers(dest="command", required=True)
    for name, summary in (("decode", "decode a capture, a frame after another"),
                          ("plot", "draw signals over time into a PNG, SVG or PDF file"),
                          ("stats", "count each frame of a capture and measure its period")):
        command = commands.add_parser(name, help=summary, description=summary)
        command.add_argument("description", nargs="*", help="DBC or LDF files serving every bus")
        command.add_argument("--log", required=True, help="the capture (candump log form, .asc, .blf, .trc, ...)")
        command.add_argument("--bus", action="append", default=[], metavar="INTERFACE=FILE",
                             help="a description for one bus alone")
        command.add_argument("--reader", choices=("auto", "native", "python-can"), default="auto")
        command.add_argument("--quiet", action="store_true", help="no warnings, counts only")
        if name == "decode":
            command.add_argument("-f", "--format", choices=("text", "csv"), default="text")
            command.add_argument("--frame", action="append", help="only this frame (repeatable)")
            command.add_argument("--signal", action="append", help="only this signal (repeatable)")
        elif name == "plot":
            command.add_argument("--signal", action="append", required=True, help="a signal to draw (repeatable)")
            command.add_argument("-o", "--output", required=True, help="the figure file")
            command.add_argument("--title")
        else:
            command.add_argument("-f", "--format", choices=("text", "csv"), default="text")
    args = parser.parse_args(argv)
    bus = _bindings(args.bus, parser)
    if not args.description and not bus:
        parser.error("a description file, or a --bus INTERFACE=FILE, is needed")

    def tell(message, category, filename, lineno, file=None, line=None):
        if not args.quiet:
            print(f"q9db: warning: {message}", file=sys.stderr)

    warnings.showwarning = tell
    warnings.simplefilter("always", DescriptionWarning)
    warnings.simplefilter("always", UndecodedFramesWarning)
    status = 0
    try:
        database = load(*args.description, bus=bus)
        if args.command == "decode":
            from ._logs import decode_log
            log = decode_log(args.log, database, reader=args.reader, frames=args.frame, signals=args.signal)
            _write_decoded(log, database, args.format == "csv", sys.stdout)
            status = 1 if log.report.malformed_lines else 0
        elif args.command == "plot":
            from ._plot import plot
            plot(args.log, args.signal, args.output, database=database, title=args.title, reader=args.reader)
        else:
            from ._logs import frame_stats
            stats = frame_stats(args.log, database, reader=args.reader)
            stats["frame_id"] = [("%08X" if e else "%03X") % i for i, e in zip(stats["frame_id"], stats["extended"])]
            stats = stats.drop(columns="extended")
            if args.format == "csv":
                stats.to_csv(sys.stdout, index=False, float_format="%.3f")
            else:
                print(stats.to_string(index=False, float_format=lambda v: "%.3f" % v))
            status = 1 if stats.attrs["q9db"].malformed_lines else 0
        sys.stdout.flush()
    except BrokenPipeError:  # a reader that went away (head) is no error of ours
        sys.stderr.close()
    except (DescriptionError, LogError, OSError, ValueError) as error:
        print(f"q9db: {error}", file=sys.stderr)
        status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
