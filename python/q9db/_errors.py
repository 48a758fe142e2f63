"""The exceptions and warnings of q9db, and how a warning names the user's
line rather than one inside the package."""

import sys
import warnings


class DescriptionError(Exception):
    """A description file that could not be imported; nothing of it was
    added. The message names the file, and the line and column where the
    reader gave them; ``reports`` holds what the import said before."""

    def __init__(self, message, reports=()):
        super().__init__(message)
        self.reports = list(reports)


class UnknownFrameError(KeyError):
    """No frame of that name or identifier is described (for that bus)."""

    def __str__(self):
        return str(self.args[0]) if self.args else ""


class LogError(Exception):
    """A capture that could not be read, naming the file and the place."""


class DescriptionWarning(UserWarning):
    """What a description file holds that could not be taken as written."""


class UndecodedFramesWarning(UserWarning):
    """Frames of a capture that were read but not decoded (unknown
    identifier, another length than described, no description for their
    bus) or lines that were no frames."""


def warn(message, category):
    """Warns at the first caller outside the package."""
    level = 2  # warn's caller
    frame = sys._getframe(1)
    while frame is not None and frame.f_globals.get("__name__", "").startswith("q9db"):
        frame = frame.f_back
        level += 1
    warnings.warn(message, category, stacklevel=level)
