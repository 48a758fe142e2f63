"""Signals over time as a figure: a panel per signal on a shared time
axis, the unit on each value axis, value texts as the tick labels of
enumerations (drawn as steps), written to PNG, SVG or PDF. Drawn with
matplotlib's Agg canvas, so no display and no pyplot state are needed."""

import os

import numpy as np


def _rows(data, name):
    """The rows of a signal given as "Signal" or "Frame.Signal"."""
    rows = data[data["signal"] == name]
    if len(rows) or "." not in name:
        return rows
    frame, signal = name.split(".", 1)
    return data[(data["frame"] == frame) & (data["signal"] == signal)]


def _choices(database, name, rows):
    """Value texts of the signal: from the description when there is one,
    else those the data shows."""
    if database is not None:
        frame_name = rows["frame"].iloc[0] if len(rows) else None
        for frame in database.frames:
            if frame_name is not None and frame.name != frame_name:
                continue
            for signal in frame.signals:
                if signal.name == name.split(".")[-1] and signal.choices:
                    return {float(raw) * signal.scale + signal.offset: text for raw, text in signal.choices.items()}
    with_text = rows[rows["text"].notna()]
    return dict(zip(with_text["value"].astype(float), with_text["text"].astype(str)))


def plot(data, signals, output=None, *, database=None, title=None, relative_time=True, width=10.0,
         panel_height=2.2, dpi=100, **read_options):
    """Draws signals over time and returns the matplotlib Figure; writes it
    to output (the format by its suffix: .png, .svg, .pdf) when given.

    ``data`` is a long-form DataFrame of q9db.read_log, or a capture's path
    (then ``database`` decodes it; read_options go to read_log). Signals
    are names, or "Frame.Signal" where frames share a name. Time runs from
    the first frame shown unless relative_time is False."""
    from matplotlib.backends.backend_agg import FigureCanvasAgg
    from matplotlib.figure import Figure

    names = [signals] if isinstance(signals, str) else list(signals)
    if not names:
        raise ValueError("no signal to plot")
    if isinstance(data, (str, os.PathLike)):
        if database is None:
            raise ValueError("plotting a capture needs the database that decodes it")
        from ._logs import read_log
        data = read_log(data, database, signals=names, **read_options)
    missing = [n for n in names if not len(_rows(data, n))]
    if missing:
        present = ", ".join(sorted(map(str, data["signal"].unique())))
        raise ValueError(f"no values of {', '.join(missing)} in the data (it holds {present or 'no signals'})")

    figure = Figure(figsize=(width, panel_height * len(names) + 0.6), dpi=dpi)
    FigureCanvasAgg(figure)
    axes = figure.subplots(len(names), 1, sharex=True, squeeze=False)[:, 0]
    shown = [_rows(data, n) for n in names]
    start = min(float(r["timestamp"].min()) for r in shown) if relative_time else 0.0
    for ax, name, rows in zip(axes, names, shown):
        time = rows["timestamp"].to_numpy(float) - start
        value = rows["value"].to_numpy(float)
        choices = _choices(database, name, rows)
        if choices:
            ax.step(time, value, where="post")
            ticks = sorted(choices)
            ax.set_yticks(ticks)
            ax.set_yticklabels([choices[t] for t in ticks])
            ax.set_ylim(min(ticks + [np.nanmin(value)]) - 0.5, max(ticks + [np.nanmax(value)]) + 0.5)
        else:
            ax.plot(time, value, linewidth=1)
        units = [u for u in rows["unit"].astype(str).unique() if u]
        ax.set_ylabel(f"{name} [{units[0]}]" if units else name)
        ax.grid(True, alpha=0.3)
    axes[-1].set_xlabel("time [s]" if relative_time else "timestamp [s]")
    if title:
        figure.suptitle(title)
    figure.tight_layout()
    if output is not None:
        figure.savefig(os.fspath(output))
    return figure
