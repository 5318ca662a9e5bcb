"""Real depth frames (PCL's PFM and TIFF, RealSense and TUM 16-bit PNG) read with
kivlut.read_image and coloured by several methods equal what C++ gives on the frame cv::imread
reads."""

import os
import pathlib

import numpy as np
import pytest

from conftest import range_arguments


def frames():
    folder = os.environ.get("KIVLUT_SHARED_DATA_DIR")
    if not folder or not pathlib.Path(folder).is_dir():
        return []
    root = pathlib.Path(folder)
    found = []
    for pattern in ("pcl/*.pfm", "pcl/*.tiff", "realsense/*.png", "tum/*.png"):
        found.extend(sorted(root.glob(pattern)))
    return found


FRAMES = frames()


@pytest.fixture(params=FRAMES or [None], ids=lambda p: p.name if p else "none")
def frame(request):
    if request.param is None:
        pytest.skip("KIVLUT_SHARED_DATA_DIR names no folder of frames "
                    f"({os.environ.get('KIVLUT_SHARED_DATA_DIR')!r})")
    return request.param


def test_read_image_equals_opencv(kivlut, reference, frame):
    result = reference.call("imread", path=str(frame))
    assert result.lines["read"] == "1"
    want = result.array("image")
    got = kivlut.read_image(str(frame))
    assert got.dtype == want.dtype
    assert got.shape == want.shape
    assert got.tobytes() == want.tobytes()


def test_methods_on_the_frame_equal_cpp(kivlut, reference, frame):
    pixels = kivlut.read_image(str(frame))
    if pixels.ndim == 3:
        # A frame with several channels is no range image; its first channel stands for it.
        pixels = np.ascontiguousarray(pixels[..., 0])
    integer = pixels.dtype.kind in "ui"
    resolution = (1.0, 1.0, 0.001 if integer else 1.0)
    args = range_arguments(pixels, resolution)
    lut = kivlut.LUTSetting()
    image = kivlut.RangeImage(pixels, resolution=resolution)
    heights = pixels[pixels != 0] * 0.001 if integer else pixels[np.isfinite(pixels)]
    low, high = (float(v) for v in np.quantile(heights.astype(np.float64), [0.1, 0.9]))
    para = [0.0] * 5 + [0] * 5
    calls = [
        ("cm_image", dict(map=1), lambda: lut.color_map_lut(image, 1)),
        ("cm_image_bounds", dict(map=6, low=low, high=high),
         lambda: lut.color_map_lut(image, 6, low, high)),
        ("lin_image", dict(map=2), lambda: lut.linear_color_map_lut(image, 2)),
        ("lin_image_entries",
         dict(map=3, low=low, high=high, lo=10, hi=240, under=(0, 0, 255), over=(255, 0, 0)),
         lambda: lut.linear_color_map_lut(image, 3, low, high, 10, 240, (0, 0, 255),
                                          (255, 0, 0))),
        ("lin_image_para", dict(para=para, under=(1, 1, 1), over=(2, 2, 2), map=4, auto=True),
         lambda: lut.linear_color_map_lut(image, kivlut.LinearColorMapLUT_Para(), (1, 1, 1),
                                          (2, 2, 2), 4, True)),
        ("normal_map_phong", {}, lambda: lut.set_color_normal_map_phong(image)),
    ]
    if not integer:
        calls.append(("lin_image_fractions", dict(map=5, upper=0.02, lower=0.02),
                      lambda: lut.linear_color_map_lut(image, 5, upper_fraction=0.02,
                                                       lower_fraction=0.02)))
    for op, extra, _ in calls:
        reference.add(op, **args, **extra)
    reference.add("colorize_range", **args, cmap="turbo", mode="equalize", bar=1, attach=1)
    results = reference.run()
    for (op, _, call), result in zip(calls, results):
        assert result.status == 0, op
        got = call()
        assert got.shape == pixels.shape + (3,), op
        assert np.array_equal(got.reshape(-1, 3), result.out), op
    coloured = results[-1]
    assert coloured.status == 0
    picture, info = kivlut.colorize(pixels, mode="equalize", cmap="turbo",
                                    resolution_z=resolution[2])
    assert np.array_equal(picture.reshape(-1, 3), coloured.out[:, ::-1])
    bar = kivlut.colorbar(info)
    assert np.array_equal(bar, coloured.array("bar")[..., ::-1])
    assert np.array_equal(kivlut.attach_colorbar(picture, bar),
                          coloured.array("attached")[..., ::-1])
