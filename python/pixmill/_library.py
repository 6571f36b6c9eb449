"""Finding and loading libpixmill."""

import ctypes
import ctypes.util
import os
import sys
import threading

_lock = threading.Lock()
_lib = None
_path = None


class PixmillError(RuntimeError):
    """A call the library refused or failed; the message is the library's
    last error line (PixmillLastError). `value` holds what the export
    returned, where it returned anything."""

    def __init__(self, message, value=None):
        super().__init__(message)
        self.value = value


def _candidates():
    env = os.environ.get("PIXMILL_LIBRARY")
    if env:
        # Set explicitly: nothing else is tried, so a wrong path is an error.
        yield env
        return
    yield "libpixmill.so.1"
    found = ctypes.util.find_library("pixmill")
    if found:
        yield found
    for prefix in (sys.prefix, "/usr/local", "/usr"):
        for libdir in ("lib", "lib64", "lib/x86_64-linux-gnu", "lib/aarch64-linux-gnu"):
            yield os.path.join(prefix, libdir, "libpixmill.so.1")
            yield os.path.join(prefix, libdir, "libpixmill.so")


def library():
    """The loaded library (loaded on first use)."""
    global _lib, _path
    with _lock:
        if _lib is not None:
            return _lib
        tried = []
        for candidate in _candidates():
            try:
                _lib = ctypes.CDLL(candidate)
                _path = candidate
                break
            except OSError as error:
                tried.append(f"{candidate}: {error}")
        if _lib is None:
            raise PixmillError(
                "libpixmill not found; set PIXMILL_LIBRARY to its path (tried "
                + "; ".join(tried) + ")")
        _lib.PixmillLastError.restype = ctypes.c_char_p
        _lib.PixmillLastError.argtypes = []
        return _lib


def library_path():
    """The path or name the library was loaded from."""
    library()
    return _path
