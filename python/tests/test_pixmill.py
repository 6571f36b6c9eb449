"""The Python binding against the library just built."""

import json
import os
import shutil
import subprocess
import sys

import numpy as np
import pytest

import pixmill

SOURCE_RECIPE = {
    "Name": "t",
    "Filters": [{"Name": "Src", "Key": "s", "Type": "SourceFilter", "IsEndPoint": True,
                 "Params": [{"Key": "ImageID", "Value": "2"}]}],
}


def texture(h=48, w=64, seed=1):
    rng = np.random.default_rng(seed)
    return rng.integers(0, 256, size=(h, w), dtype=np.uint8)


def test_filters_and_inspections_come_from_the_description_documents():
    names = [f["Name"] for f in pixmill.filters()]
    assert len(names) == len(set(names)) > 10
    assert "SourceFilter" in names and "ThresholdFilter" in names
    described = [e["name"] for e in pixmill.inspections()]
    assert described == pixmill.export_names()
    assert "PixmillDescribeExports" in described
    for name in described:
        assert callable(getattr(pixmill, name))
    with pytest.raises(AttributeError):
        pixmill.NoSuchExport


@pytest.mark.parametrize("images", [
    pytest.param(lambda a, b: {1: a, 2: b}, id="dict"),
    pytest.param(lambda a, b: [(1, a), (2, b)], id="pairs"),
    pytest.param(lambda a, b: [(2, b)], id="only-id-2"),
])
def test_run_routes_images_by_id_and_returns_arrays(images):
    a, b = texture(seed=1), texture(seed=2)
    result, outputs = pixmill.run(SOURCE_RECIPE, images(a, b))
    assert result["Filter"][0]["Name"] == "Src"
    assert len(outputs) == 1
    np.testing.assert_array_equal(outputs[0], b)


def test_run_reads_recipe_text_and_files_and_applies_overrides(tmp_path):
    a, b = texture(seed=3), texture(seed=4)
    path = tmp_path / "r.json"
    path.write_text(json.dumps(SOURCE_RECIPE), encoding="utf-8")
    override = {"Src": {"Params": [{"Key": "ImageID", "Value": "1"}]}}
    for recipe in (str(path), json.dumps(SOURCE_RECIPE), path):
        _, outputs = pixmill.run(recipe, {1: a, 2: b}, override=override)
        np.testing.assert_array_equal(outputs[0], a)


@pytest.mark.parametrize("recipe, message", [
    ('{"Name":', "gave no result"),
    (json.dumps(SOURCE_RECIPE).replace('"2"', '"abc"'), 'result="refused"'),
])
def test_run_failures_raise_with_the_library_message(recipe, message):
    with pytest.raises(pixmill.PixmillError, match=message):
        pixmill.run(recipe, [texture()])


def test_filter_passes_parameters_by_key():
    img = texture()
    result, outputs = pixmill.filter("ThresholdFilter", img, Threshold=100)
    np.testing.assert_array_equal(outputs[0], np.where(img > 100, 255, 0))
    with pytest.raises(pixmill.PixmillError, match="refused"):
        pixmill.filter("ThresholdFilter", img, Threshold="abc")
    with pytest.raises(pixmill.PixmillError, match="unknown filter"):
        pixmill.filter("NoSuchFilter", img)


def test_exports_return_values_records_and_output_buffers():
    assert pixmill.Add(a=2, b=40) == 42
    img = texture(37, 23)
    inverted = pixmill.ImageInvert(source=img)
    assert inverted.result == 0
    np.testing.assert_array_equal(inverted.destination, 255 - img)
    # Width and height given explicitly win over the array's.
    half = pixmill.Threshold_Triangle(src=img, width=img.shape[1], height=img.shape[0] // 2)
    assert -1 <= half.result <= 256
    pin = pixmill.VBcvPinFind(sx=100, sy=100, sType=0, aType=1, tx=20, ty=20, edgeRatioThreshold=0.01,
                              sizeDivisor=4, maxCircleRadius=280, reserved=0)
    assert type(pin).__name__ == "PinFindResult"
    assert pin._fields == ("X", "Y", "Code")
    assert pin == (-1.0, -1.0, 2.0)  # no camera image under the root
    coords = pixmill.VBcvEdgeFindFEX_GetCoordinate(index=0, mode=1)
    assert coords._fields == ("X0", "Y0", "X1", "Y1", "X2", "Y2", "X3", "Y3")
    assert set(coords) == {-1}
    assert pixmill.PixmillLastError() == ""


def test_images_round_trip_through_files(tmp_path):
    img = texture(31, 45)
    path = tmp_path / "x.png"
    assert pixmill.ImageWrite(data=img, path=str(path)) == 0
    read = pixmill.ImageRead(path=path)
    assert (read.result, read.width, read.height) == (31 * 45, 45, 31)
    np.testing.assert_array_equal(read.data, img)
    small = pixmill.ImageRead(path=path, size=10)
    assert small.width == 45 and small.data.size == 0  # too small to hold the image


@pytest.mark.parametrize("call, error", [
    (lambda: pixmill.Add(a=1), TypeError),
    (lambda: pixmill.Add(a=1, b=2, c=3), TypeError),
    (lambda: pixmill.ImageInvert(source=np.zeros((4, 4, 3), np.uint8)), ValueError),
    (lambda: pixmill.ImageInvert(source=np.zeros((4, 4), np.float32)), TypeError),
    (lambda: pixmill.ImageBufferRelease(buffer=12345), pixmill.PixmillError),
    (lambda: pixmill.ImageInvert(source=np.zeros((4, 4), np.uint8), width=40, height=4), ValueError),
    (lambda: pixmill.ImageBufferAdd(buffer=0, imageId=1, data=np.zeros((4, 4), np.uint8), size=17), ValueError),
])
def test_bad_calls_raise(call, error):
    with pytest.raises(error):
        call()


def test_image_buffer_is_a_context_manager():
    a, b = texture(seed=5), texture(seed=6)
    with pixmill.ImageBuffer() as buf:
        buf.add(a, image_id=1).add(b, image_id=1)
        np.testing.assert_array_equal(buf.get(1), b)  # the newest wins
        assert buf.get(7) is None
        blurred = np.asarray(np.convolve(a.ravel(), np.ones(9) / 9, "same"), np.uint8).reshape(a.shape)
        buf.add(blurred, image_id=1)
        focus = pixmill.MultiPeakFocusMeasureF(buffer=buf)
        assert "FocusIndex" in focus.resultText
        handle = buf.handle
    with pytest.raises(pixmill.PixmillError, match="Invalid"):
        pixmill.ImageBufferGet(buffer=handle, imageId=1, size=0)
    with pytest.raises(pixmill.PixmillError):
        buf.add(a)


def test_trace_sink_receives_inspection_lines():
    lines = []
    pixmill.PixmillSetTraceSink(sink=lines.append, user=None)
    try:
        pixmill.VBcvEdgeFind(path="missing.bmp", cpos=0, sx=100, sy=100)
    finally:
        pixmill.PixmillSetTraceSink(sink=None, user=None)
    assert any("VBcvEdgeFind" in line for line in lines)


def test_pip_installs_the_package_into_a_virtual_environment(tmp_path):
    source = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    copy = tmp_path / "src"
    shutil.copytree(source, copy, ignore=shutil.ignore_patterns("tests", "build", "*.egg-info", "__pycache__"))
    venv = tmp_path / "venv"
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", "--without-pip", str(venv)], check=True)
    python = str(venv / "bin" / "python")
    subprocess.run([sys.executable, "-m", "pip", "--python", python, "install", "-q", "--no-build-isolation",
                    "--no-index", str(copy)], check=True)
    env = dict(os.environ, PIXMILL_LIBRARY=pixmill.library_path())
    out = subprocess.run([python, "-c", "import pixmill; print(pixmill.__file__); print(pixmill.Add(a=20, b=22))"],
                         cwd=str(tmp_path), env=env, check=True, capture_output=True, text=True).stdout.split()
    assert out[0].startswith(str(venv)) and out[1] == "42"
