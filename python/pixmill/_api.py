"""Filters, recipes, image buffers and the flat exports, over ctypes."""

import collections
import ctypes
import functools
import json
import os

import numpy as np

from ._library import PixmillError, library

_WCHAR = ctypes.sizeof(ctypes.c_wchar)
# Capacity of an output buffer whose size is not known before the call.
_DEFAULT_PIXELS = 16 << 20
_DEFAULT_TEXT_BYTES = 4 << 20

RunResult = collections.namedtuple("RunResult", ["result", "images"])


class _ImageData(ctypes.Structure):
    _fields_ = [("width", ctypes.c_int32), ("height", ctypes.c_int32),
                ("channels", ctypes.c_int8), ("ImageID", ctypes.c_int32),
                ("size", ctypes.c_uint64), ("data", ctypes.POINTER(ctypes.c_uint8))]


class _ImageParam(ctypes.Structure):
    _fields_ = [("count", ctypes.c_int32),
                ("images", ctypes.POINTER(ctypes.POINTER(_ImageData))),
                ("result", ctypes.c_void_p), ("resultSize", ctypes.c_uint64)]


_TraceSink = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_void_p)
_LogSink = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_char_p, ctypes.c_void_p)
# Sinks handed to the library stay alive as long as the library may call them.
_kept_sinks = {}


def last_error():
    """The calling thread's last error line from the library, "" if none."""
    return library().PixmillLastError().decode("utf-8", "replace")


def _clear_last_error():
    """Exports that only change a setting do not start a call and so leave
    the previous error standing; a describing call clears it, so that an
    error seen after the next call is that call's own."""
    if last_error():
        _export_document()  # sets the argument types
        library().PixmillDescribeExports(None, 0)


def _drop_trailing_commas(text):
    """The library's documents put a comma before closing brackets."""
    out, in_string, escaped = [], False, False
    for ch in text:
        if in_string:
            out.append(ch)
            if escaped:
                escaped = False
            elif ch == "\\":
                escaped = True
            elif ch == '"':
                in_string = False
            continue
        if ch == '"':
            in_string = True
        elif ch in "]}":
            i = len(out) - 1
            while i >= 0 and out[i].isspace():
                i -= 1
            if i >= 0 and out[i] == ",":
                del out[i]
        out.append(ch)
    return "".join(out)


def _document(function):
    """A wide-text document from an export that counts bytes (NULL first)."""
    size = function(None, 0)
    if size <= 0:
        raise PixmillError(last_error() or "the library gave no document")
    buffer = ctypes.create_unicode_buffer(size // _WCHAR + 1)
    function(buffer, size)
    return buffer.value


@functools.lru_cache(maxsize=None)
def _export_document():
    lib = library()
    lib.PixmillDescribeExports.restype = ctypes.c_int
    lib.PixmillDescribeExports.argtypes = [ctypes.c_void_p, ctypes.c_int]
    return json.loads(_document(lib.PixmillDescribeExports))


def filters():
    """Every registered filter: dicts with "Name", "Pin" and "Param"."""
    lib = library()
    lib.GetFilterList.restype = ctypes.c_int
    lib.GetFilterList.argtypes = [ctypes.c_void_p, ctypes.c_int]
    return json.loads(_drop_trailing_commas(_document(lib.GetFilterList)))["filters"]


def inspections():
    """Every flat export, as the library describes it: dicts with "name",
    "summary", "args" (name, type, role, meaning), "returns" and "failure"."""
    return list(_export_document()["exports"])


def export_names():
    return [e["name"] for e in _export_document()["exports"]]


# ---- images ---------------------------------------------------------------

def _as_image(array, what="image"):
    a = np.asarray(array)
    if a.dtype != np.uint8:
        raise TypeError(f"{what} must hold uint8 pixels, not {a.dtype}")
    if a.ndim == 3 and a.shape[2] == 1:
        a = a[:, :, 0]
    if not (a.ndim == 2 or (a.ndim == 3 and a.shape[2] == 3)):
        raise ValueError(f"{what} must be height x width or height x width x 3, not {a.shape}")
    return np.ascontiguousarray(a)


def _images_of(images):
    """[(id, array)] from a list of arrays (IDs 1, 1, ...: the library routes
    by ID, so a list gives every image ID 1), a dict {id: array}, or a list
    of (id, array) pairs."""
    if images is None:
        return []
    if isinstance(images, np.ndarray):
        return [(1, _as_image(images))]
    if isinstance(images, dict):
        return [(int(k), _as_image(v)) for k, v in images.items()]
    out = []
    for item in images:
        if isinstance(item, tuple) and len(item) == 2 and not isinstance(item[0], np.ndarray):
            out.append((int(item[0]), _as_image(item[1])))
        else:
            out.append((1, _as_image(item)))
    return out


class _InputRecord:
    """An ImageParam that the caller (this object) owns."""

    def __init__(self, images):
        self.arrays = _images_of(images)
        self.data = (_ImageData * max(1, len(self.arrays)))()
        self.pointers = (ctypes.POINTER(_ImageData) * max(1, len(self.arrays)))()
        for i, (image_id, a) in enumerate(self.arrays):
            d = self.data[i]
            d.height, d.width = a.shape[0], a.shape[1]
            d.channels = 1 if a.ndim == 2 else 3
            d.ImageID = image_id
            d.size = a.size
            d.data = a.ctypes.data_as(ctypes.POINTER(ctypes.c_uint8))
            self.pointers[i] = ctypes.pointer(d)
        self.record = _ImageParam(len(self.arrays), self.pointers, None, 0)


def _take_output(record):
    """Copies the output images and result text, then releases the record."""
    lib = library()
    try:
        images = []
        for i in range(record.count):
            if not record.images[i]:
                images.append(None)
                continue
            d = record.images[i].contents
            shape = (d.height, d.width) if d.channels == 1 else (d.height, d.width, d.channels)
            n = int(d.size)
            if n == 0 or not d.data:
                images.append(np.zeros(shape, np.uint8))
                continue
            flat = np.ctypeslib.as_array(d.data, shape=(n,))
            images.append(flat.reshape(shape).copy())
        text = ctypes.wstring_at(record.result) if record.result else ""
    finally:
        lib.ImageParamRelease(ctypes.byref(record))
    return text, images


def _parse_result(text):
    if not text:
        return {}
    try:
        return json.loads(_drop_trailing_commas(text))
    except json.JSONDecodeError:
        return {"text": text}


def _check_refusal():
    error = last_error()
    if error:
        raise PixmillError(error)


def _recipe_text(recipe):
    if isinstance(recipe, (dict, list)):
        return json.dumps(recipe)
    if isinstance(recipe, os.PathLike) or (isinstance(recipe, str) and not recipe.lstrip().startswith("{")
                                           and os.path.isfile(recipe)):
        with open(recipe, "rb") as f:
            raw = f.read()
        if raw.startswith(b"\xff\xfe") or raw.startswith(b"\xfe\xff"):
            return raw.decode("utf-16")
        return raw.decode("utf-8-sig")
    return str(recipe)


def run(recipe, images=None, override=None):
    """Runs a recipe (JSON text, a dict or a file path) on images (an array,
    a list of arrays with ImageID 1, a dict {id: array} or (id, array)
    pairs). `override` is a parameter override document (dict or text).
    Returns RunResult(result document as a dict, output images as arrays)."""
    lib = library()
    lib.RecipeExecute.argtypes = [ctypes.POINTER(_ImageParam), ctypes.POINTER(_ImageParam),
                                  ctypes.c_wchar_p, ctypes.c_wchar_p]
    lib.ImageParamRelease.argtypes = [ctypes.POINTER(_ImageParam)]
    source = _InputRecord(images)
    output = _ImageParam()
    param = None if override is None else (json.dumps(override) if isinstance(override, dict) else str(override))
    lib.RecipeExecute(ctypes.byref(source.record), ctypes.byref(output), _recipe_text(recipe), param)
    error = last_error()
    text, out_images = _take_output(output)
    if error:
        raise PixmillError(error)
    if not text:
        raise PixmillError("the recipe gave no result: malformed JSON, or no filter type the library knows")
    return RunResult(_parse_result(text), out_images)


def filter(name, image=None, **params):
    """Runs one registered filter on an image (or images as for run(); an
    image goes to the input pin whose key is its ID). Parameters are given
    by their keys: filter("ThresholdFilter", img, Threshold=100)."""
    if name not in {f["Name"] for f in filters()}:
        raise PixmillError(f"unknown filter {name!r}")
    lib = library()
    lib.FilterExecute.argtypes = [ctypes.POINTER(_ImageParam), ctypes.POINTER(_ImageParam),
                                  ctypes.c_wchar_p, ctypes.c_wchar_p]
    lib.ImageParamRelease.argtypes = [ctypes.POINTER(_ImageParam)]

    def text(v):
        if isinstance(v, bool):
            return "1" if v else "0"
        return repr(v) if isinstance(v, float) else str(v)

    param = json.dumps({"Params": [{"Key": k, "Value": text(v)} for k, v in params.items()]})
    source = _InputRecord(image)
    output = _ImageParam()
    lib.FilterExecute(ctypes.byref(source.record), ctypes.byref(output), name, param)
    error = last_error()
    result, out_images = _take_output(output)
    if error:
        raise PixmillError(error)
    return RunResult(_parse_result(result), out_images)


# ---- image buffers ----------------------------------------------------------

class ImageBuffer:
    """A numbered store of images in the library, released on exit:

        with pixmill.ImageBuffer() as buf:
            buf.add(image, image_id=1)
            pixmill.MultiPeakFocusMeasureF(buffer=buf)
    It can be passed wherever an export takes an image buffer handle."""

    def __init__(self):
        lib = library()
        lib.ImageBufferCreate.restype = ctypes.c_void_p
        lib.ImageBufferAdd.argtypes = [ctypes.c_void_p, ctypes.c_int, ctypes.c_void_p, ctypes.c_int,
                                       ctypes.c_int, ctypes.c_int]
        lib.ImageBufferGet.argtypes = [ctypes.c_void_p, ctypes.c_int, ctypes.c_void_p, ctypes.c_int,
                                       ctypes.POINTER(ctypes.c_int), ctypes.POINTER(ctypes.c_int)]
        lib.ImageBufferRelease.argtypes = [ctypes.c_void_p]
        self._lib = lib
        self._handle = lib.ImageBufferCreate()
        if not self._handle:
            raise PixmillError(last_error() or "could not make an image buffer")

    @property
    def handle(self):
        if self._handle is None:
            raise PixmillError("the image buffer was released")
        return self._handle

    @property
    def _as_parameter_(self):
        return ctypes.c_void_p(self.handle)

    def add(self, image, image_id=1):
        a = _as_image(image)
        if self._lib.ImageBufferAdd(self.handle, image_id, a.ctypes.data, a.size, a.shape[1], a.shape[0]) != 0:
            raise PixmillError(last_error() or "ImageBufferAdd refused the image")
        return self

    def get(self, image_id=1):
        """The newest image with this ID as a gray array, None if there is none."""
        width, height = ctypes.c_int(0), ctypes.c_int(0)
        n = self._lib.ImageBufferGet(self.handle, image_id, None, 0, ctypes.byref(width), ctypes.byref(height))
        if n < 0:
            raise PixmillError(last_error() or "ImageBufferGet refused the handle")
        if n == 0:
            return None
        out = np.zeros((height.value, width.value), np.uint8)
        self._lib.ImageBufferGet(self.handle, image_id, out.ctypes.data, out.size,
                                 ctypes.byref(width), ctypes.byref(height))
        return out

    def close(self):
        if self._handle is not None:
            handle, self._handle = self._handle, None
            if self._lib.ImageBufferRelease(handle) != 0:
                raise PixmillError(last_error() or "ImageBufferRelease refused the handle")

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False

    def __del__(self):
        try:
            self.close()
        except Exception:
            pass


# ---- flat exports by name ---------------------------------------------------

_SCALARS = {
    "int": ctypes.c_int, "int32_t": ctypes.c_int32, "int8_t": ctypes.c_int8,
    "uint64_t": ctypes.c_uint64, "double": ctypes.c_double, "float": ctypes.c_float,
    "bool": ctypes.c_bool,
}


def _ctype(type_name):
    if type_name in _SCALARS:
        return _SCALARS[type_name]
    if type_name == "const char*":
        return ctypes.c_char_p
    if type_name in ("const wchar_t*", "wchar_t*"):
        return ctypes.c_void_p
    if type_name == "PixmillTraceSink":
        return _TraceSink
    if type_name == "PixmillLogSink":
        return _LogSink
    if "*" in type_name:
        return ctypes.c_void_p
    if type_name == "void":
        return None
    raise TypeError(f"no ctypes equivalent of {type_name!r}")


@functools.lru_cache(maxsize=None)
def _signature(name):
    """(description, restype, record namedtuple or None, argtypes)."""
    for e in _export_document()["exports"]:
        if e["name"] == name:
            break
    else:
        raise AttributeError(f"libpixmill has no export {name!r}")
    returns = e["returns"]
    record = None
    if "fields" in returns:
        fields = [(f["name"], _ctype(f["type"])) for f in returns["fields"]]
        restype = type(returns["type"], (ctypes.Structure,), {"_fields_": fields})
        record = collections.namedtuple(returns["type"], [f[0] for f in fields])
    else:
        restype = _ctype(returns["type"])
    return e, restype, record, [_ctype(a["type"]) for a in e["args"]]


def _function(name):
    e, restype, record, argtypes = _signature(name)
    f = getattr(library(), name)
    f.restype = restype
    f.argtypes = argtypes
    return f


def _sized(kwargs, args, buffer_name, roles):
    for a in args:
        if a["role"] in roles and a.get("of") == buffer_name and a["name"] in kwargs:
            return int(kwargs[a["name"]]), a["role"]
    return None, None


def call(name, **kwargs):
    """Calls the flat export `name` with keyword arguments named as in the
    header. Numbers, flags (bool), paths and texts (str) are passed as they
    are; pixel arguments take uint8 arrays, and their width, height and size
    follow unless given; output pixel and text buffers are made here and
    returned; image buffer handles take an ImageBuffer. Returns the record
    as a named tuple, or the return value; with output buffers, a named
    tuple of "result" and each output. Raises PixmillError with the
    library's last error line when the call logged an error."""
    e, restype, record, argtypes = _signature(name)
    args = e["args"]
    known = {a["name"] for a in args}
    unknown = set(kwargs) - known
    if unknown:
        raise TypeError(f"{name}() has no argument {', '.join(sorted(unknown))}")

    values = {}
    keep = []          # objects that must outlive the call
    arrays = {}        # pixel arguments by name
    outputs = {}       # output name -> (kind, buffer)
    for a in args:
        n, role, type_name = a["name"], a["role"], a["type"]
        given = n in kwargs
        v = kwargs.get(n)
        if role == "number":
            if not given:
                raise TypeError(f"{name}() needs {n} ({type_name}: {a['meaning']})")
            values[n] = float(v) if type_name in ("double", "float") else int(v)
        elif role == "flag":
            values[n] = 1 if v else 0
        elif role in ("path", "text"):
            if not given:
                raise TypeError(f"{name}() needs {n} ({type_name}: {a['meaning']})")
            if v is None:
                values[n] = None
            elif "wchar_t" in type_name:
                buf = ctypes.create_unicode_buffer(str(v))
                keep.append(buf)
                values[n] = ctypes.addressof(buf)
            else:
                values[n] = os.fsencode(v) if isinstance(v, os.PathLike) else str(v).encode("utf-8")
        elif role == "pixels":
            if v is None:
                values[n] = None
                continue
            img = _as_image(v, n)
            if "size" not in {x["role"] for x in args if x.get("of") == n} and img.ndim == 3:
                raise ValueError(f"{name}() takes a one-channel image for {n}")
            arrays[n] = img
            values[n] = img.ctypes.data
        elif role == "handle":
            values[n] = v.handle if isinstance(v, ImageBuffer) else v
        elif role == "callback":
            # Trace sinks take (line); log sinks take (level, line).
            kind = _LogSink if type_name == "PixmillLogSink" else _TraceSink
            if v is None:
                sink = ctypes.cast(None, kind)
            elif isinstance(v, kind):
                sink = v
            elif kind is _LogSink:
                sink = _LogSink(lambda level, line, user, receiver=v:
                                receiver(level, line.decode("utf-8", "replace")))
            else:
                sink = _TraceSink(lambda line, user, receiver=v: receiver(line.decode("utf-8", "replace")))
            _kept_sinks[name] = sink
            values[n] = sink
        else:
            values[n] = v

    for a in args:
        n, role = a["name"], a["role"]
        if role == "pixels_out":
            if a.get("of"):
                src = arrays.get(a["of"])
                buf = None if src is None else np.zeros(src.shape[:2], np.uint8)
            else:
                capacity, _ = _sized(kwargs, args, n, ("size",))
                buf = np.zeros(_DEFAULT_PIXELS if capacity is None else max(0, capacity), np.uint8)
            outputs[n] = ("pixels", buf)
            values[n] = None if buf is None or buf.size == 0 else buf.ctypes.data
        elif role == "text_out":
            count, unit = _sized(kwargs, args, n, ("size", "chars"))
            chars = _DEFAULT_TEXT_BYTES // _WCHAR if count is None else (
                max(0, count) if unit == "chars" else max(0, count) // _WCHAR)
            buf = ctypes.create_unicode_buffer(chars + 1)  # the last one stays a terminator
            outputs[n] = ("text", buf, chars)
            values[n] = ctypes.addressof(buf)
        elif role in ("width_out", "height_out"):
            box = ctypes.c_int(0)
            outputs[n] = ("int", box)
            values[n] = ctypes.addressof(box)
        elif role == "ints_out":
            count, _ = _sized(kwargs, args, n, ("count",))
            buf = np.zeros(256 if count is None else max(0, count), np.int32)
            outputs[n] = ("ints", buf)
            values[n] = None if buf.size == 0 else buf.ctypes.data

    for a in args:
        n, role, of = a["name"], a["role"], a.get("of")
        if role not in ("width", "height", "size", "chars", "count"):
            continue
        if n in kwargs:
            values[n] = int(kwargs[n])
        elif of in arrays:
            img = arrays[of]
            values[n] = {"width": img.shape[1], "height": img.shape[0]}.get(role, img.size)
        elif of in outputs and outputs[of][0] == "pixels":
            buf = outputs[of][1]
            values[n] = 0 if buf is None else buf.size
        elif of in outputs and outputs[of][0] == "ints":
            values[n] = outputs[of][1].size
        elif of in outputs and outputs[of][0] == "text":
            chars = outputs[of][2]
            values[n] = chars if role == "chars" else chars * _WCHAR
        else:
            values[n] = 0

    # Sizes given by hand must stay within the arrays, which the library
    # reads (and, for outputs shaped like them, writes) that far.
    for n, img in arrays.items():
        dims = {x["role"]: values[x["name"]] for x in args if x.get("of") == n}
        w, h = dims.get("width", 0), dims.get("height", 0)
        if (w > 0 and h > 0 and w * h > img.size) or dims.get("size", 0) > img.size:
            raise ValueError(f"{name}(): the sizes given for {n} exceed its {img.size} bytes")

    _clear_last_error()
    result = _function(name)(*[values[a["name"]] for a in args])
    if record is not None:
        result = record(*[getattr(result, f[0]) for f in restype._fields_])
    elif isinstance(result, bytes):
        result = result.decode("utf-8", "replace")

    if outputs:
        out = {"result": result}
        for a in args:
            n = a["name"]
            if n not in outputs:
                continue
            kind, box = outputs[n][0], outputs[n][1]
            if kind == "int":
                out[n] = box.value
            elif kind == "text":
                out[n] = box.value
            elif kind == "ints" or box is None:
                out[n] = box
            elif a.get("of"):
                out[n] = box
            else:
                # Shaped by the dimensions the export reported.
                w = next((outputs[x["name"]][1].value for x in args
                          if x["role"] == "width_out" and x.get("of") == n), 0)
                h = next((outputs[x["name"]][1].value for x in args
                          if x["role"] == "height_out" and x.get("of") == n), 0)
                out[n] = box[: w * h].reshape(h, w).copy() if 0 < w * h <= box.size else box[:0].copy()
        result = collections.namedtuple(name + "Result", list(out))(**out)

    error = last_error()
    if error:
        raise PixmillError(error, result)
    return result
