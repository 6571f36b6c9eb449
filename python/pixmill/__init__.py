"""Pixmill from Python: filters, recipes and every flat export of libpixmill.

The binding is ctypes over the library's C interface. What it knows about
filters and exports comes from the library's own description documents, so
a filter or export added to the library is reachable here without a change.

    import pixmill
    pixmill.filters()                     # every registered filter
    pixmill.inspections()                 # every flat export, described
    result, images = pixmill.filter("ThresholdFilter", gray, Threshold=100)
    result, images = pixmill.run(recipe, [gray], override=None)
    pixmill.VBcvPinFind(sx=120, sy=120, ...)   # -> PinFindResult(X=..., Y=..., Code=...)
    with pixmill.ImageBuffer() as buf:
        buf.add(gray, image_id=1)
        pixmill.MultiPeakFocusMeasureF(buffer=buf)

The library is found through the environment variable PIXMILL_LIBRARY (the
path of libpixmill.so), else the dynamic loader's search path (ldconfig),
else the lib folders of this Python's prefix, /usr/local and /usr.
"""

from ._library import PixmillError, library_path
from ._api import (
    ImageBuffer,
    RunResult,
    call,
    export_names,
    filter,
    filters,
    inspections,
    last_error,
    run,
)

__all__ = [
    "ImageBuffer",
    "PixmillError",
    "RunResult",
    "call",
    "export_names",
    "filter",
    "filters",
    "inspections",
    "last_error",
    "library_path",
    "run",
]


def __getattr__(name):
    """Flat exports by name: pixmill.VBcvEdgeFind(path=..., cpos=0, ...)."""
    if name.startswith("_") or name not in export_names():
        raise AttributeError(f"module 'pixmill' has no attribute {name!r}")
    return lambda **kwargs: call(name, **kwargs)


def __dir__():
    return sorted(list(globals()) + export_names())
