"""The pythonic layer: colorize equals KivColorRangeImage / KivColorFloatArray with the channels
turned to RGB, its info equals the C++ KivColoringInfo, colorbar and attach_colorbar equal
KivDrawColorBar and KivAttachColorBar, cmaps() equals KivColorTable::Names(), and arguments the
layer cannot take raise TypeError or ValueError."""

import numpy as np
import pytest

from conftest import PIXEL_DTYPES, random_range_pixels, range_arguments

QUERIES = np.array([-1e9, -50.0, -10.0, 0.0, 0.5, 3.0, 17.25, 40.0, 90.0, 1e9, np.nan])


def rgb_of(bgr_colors, shape):
    """C++'s blue-first colours (N, C) as the (..., C) RGB(A) picture the module returns."""
    channels = bgr_colors.shape[1]
    order = [2, 1, 0, 3][:channels]
    return bgr_colors[:, order].reshape(shape + (channels,))


def same_float(a, b):
    return (np.isnan(a) and np.isnan(b)) or a == b


def rgb_line(result, key):
    return tuple(int(v) for v in result.lines[key].split())


def check_info(info, result, mode, cmap, below=None, above=None):
    assert info.mode == mode
    assert info.cmap.lower() == cmap.lower()
    for field in ("minimum", "maximum", "low", "high"):
        assert same_float(getattr(info, field), result.float(f"info_{field}")), field
    assert info.valid_count == result.int("info_valid_count")
    assert info.no_data_count == result.int("info_no_data_count")
    want = result.array("entry_start")
    have = np.asarray(info.entry_start, dtype=np.float64)
    assert have.shape == want.shape
    assert have.tobytes() == want.tobytes()
    positions = np.array([info.table_position(float(q)) for q in QUERIES])
    assert positions.tobytes() == result.array("positions").tobytes()
    # The colours the colouring used: the ones given, else the table's ends.
    assert info.below_color is not None and tuple(info.below_color) == (below or rgb_line(result, "table_first"))
    assert info.above_color is not None and tuple(info.above_color) == (above or rgb_line(result, "table_last"))


CASES = [
    # mode, cmap, keyword arguments of colorize, the runner's arguments for them
    ("equalize", "rainbow", {}, {}),
    ("equalize", "viridis", {"low": -10.0, "high": 40.0}, {"low": -10.0, "high": 40.0}),
    ("linear", "Jet", {}, {}),
    ("linear", "magma_r", {"low": 0.5, "high": 17.25}, {"low": 0.5, "high": 17.25}),
    ("percentile", "turbo", {}, {"percentiles": (1.0, 99.0)}),
    ("percentile", "hot metal", {"percentiles": (10.0, 60.0)}, {"percentiles": (10.0, 60.0)}),
    ("linear", "grey",
     {"nodata_color": (1, 2, 3), "below_color": (4, 5, 6), "above_color": (7, 8, 9),
      "low": 0.0, "high": 3.0},
     {"nodata": (1, 2, 3), "below": (4, 5, 6), "above": (7, 8, 9), "low": 0.0, "high": 3.0}),
    ("equalize", "twilight", {"alpha": True}, {"channels": 4}),
    ("percentile", "cividis", {"alpha": True, "nodata_color": (9, 99, 199)},
     {"channels": 4, "nodata": (9, 99, 199), "percentiles": (1.0, 99.0)}),
]


@pytest.mark.parametrize("dtype", PIXEL_DTYPES, ids=lambda d: np.dtype(d).name)
def test_colorize_range_images_equal_cpp(kivlut, reference, dtype):
    rng = np.random.default_rng(500 + PIXEL_DTYPES.index(dtype))
    shapes = [(1, 1), (9, 14), (40, 57)]
    scale = (0.05, -20.0) if np.dtype(dtype).kind in "ui" else (1.0, 0.0)
    jobs = []
    for shape in shapes:
        pixels = random_range_pixels(rng, dtype, shape)
        for mode, cmap, kwargs, runner in CASES:
            reference.add("colorize_range",
                          **range_arguments(pixels, (1.0, 1.0, scale[0]), (0.0, 0.0, scale[1])),
                          cmap=cmap, mode=mode, query=QUERIES, **runner)
            jobs.append((pixels, mode, cmap, kwargs))
    for (pixels, mode, cmap, kwargs), result in zip(jobs, reference.run()):
        call = lambda: kivlut.colorize(pixels, mode=mode, cmap=cmap, resolution_z=scale[0],
                                       offset_z=scale[1], **kwargs)
        if result.status != 0:
            with pytest.raises(kivlut.LUTError) as excinfo:
                call()
            assert excinfo.value.status == result.status
            continue
        picture, info = call()
        want = rgb_of(result.out, pixels.shape)
        assert picture.dtype == np.uint8 and picture.shape == want.shape, (mode, cmap)
        assert np.array_equal(picture, want), (mode, cmap, pixels.shape)
        check_info(info, result, mode, cmap, kwargs.get("below_color"),
                   kwargs.get("above_color"))


def test_colorize_takes_a_range_image_with_its_resolution(kivlut, reference):
    rng = np.random.default_rng(8)
    pixels = random_range_pixels(rng, np.uint16, (20, 30))
    result = reference.call("colorize_range",
                            **range_arguments(pixels, (0.1, 0.2, 0.01), (1.0, 2.0, 5.0)),
                            cmap="plasma", mode="linear", query=QUERIES)
    assert result.status == 0
    image = kivlut.RangeImage(pixels, resolution=(0.1, 0.2, 0.01), offset=(1.0, 2.0, 5.0))
    picture, info = kivlut.colorize(image, mode="linear", cmap="plasma")
    assert np.array_equal(picture, rgb_of(result.out, pixels.shape))
    check_info(info, result, "linear", "plasma")


@pytest.mark.parametrize("length", [1, 5, 777])
def test_colorize_float_arrays_equal_cpp(kivlut, reference, length):
    rng = np.random.default_rng(length)
    values = random_range_pixels(rng, np.float32, (length,), invalid_fraction=0.2)
    jobs = []
    for mode, cmap, kwargs, runner in CASES:
        reference.add("colorize_floats", floats=values, cmap=cmap, mode=mode, query=QUERIES,
                      **runner)
        jobs.append((mode, cmap, kwargs))
    for (mode, cmap, kwargs), result in zip(jobs, reference.run()):
        if result.status != 0:
            with pytest.raises(kivlut.LUTError) as excinfo:
                kivlut.colorize(values, mode=mode, cmap=cmap, **kwargs)
            assert excinfo.value.status == result.status
            continue
        picture, info = kivlut.colorize(values, mode=mode, cmap=cmap, **kwargs)
        want = rgb_of(result.out, (length,))
        assert picture.shape == want.shape
        assert np.array_equal(picture, want), (mode, cmap)
        check_info(info, result, mode, cmap, kwargs.get("below_color"),
                   kwargs.get("above_color"))


def test_rgba_alpha_is_zero_exactly_on_no_data(kivlut):
    pixels = np.arange(1, 61, dtype=np.float32).reshape(6, 10)
    holes = np.zeros(pixels.shape, dtype=bool)
    holes[1, 2] = holes[4, 7] = holes[5, 0] = holes[0, 9] = True
    pixels[1, 2], pixels[4, 7], pixels[5, 0] = np.nan, np.inf, -np.finfo(np.float32).max
    pixels[0, 9] = -np.inf
    picture, info = kivlut.colorize(pixels, mode="linear", alpha=True)
    assert picture.shape == (6, 10, 4)
    assert np.array_equal(picture[..., 3] == 0, holes)
    assert np.all(picture[..., 3][~holes] == 255)
    assert info.no_data_count == 4 and info.valid_count == 56
    rgb, _ = kivlut.colorize(pixels, mode="linear")
    assert np.array_equal(picture[..., :3], rgb)


BAR_CASES = [
    ({}, {}),
    ({"vertical": False, "length": 300, "thickness": 12, "unit": "um", "ticks": 7},
     {"bar_vertical": 0, "bar_length": 300, "bar_thickness": 12, "bar_unit": "um",
      "bar_ticks": 7}),
    ({"end_caps": False, "unit": "", "font_scale": 0.8, "text_color": (200, 0, 10),
      "background": (0, 40, 80)},
     {"bar_end_caps": 0, "bar_unit": "", "bar_font": 0.8, "bar_text": (200, 0, 10),
      "bar_background": (0, 40, 80)}),
    ({"cmap": "inferno", "below_color": (1, 2, 3), "above_color": (250, 240, 230)},
     {"bar_cmap": "inferno", "bar_below": (1, 2, 3), "bar_above": (250, 240, 230)}),
]


@pytest.mark.parametrize("bar_kwargs,bar_runner", BAR_CASES)
@pytest.mark.parametrize("mode,colour_kwargs,colour_runner", [
    ("equalize", {}, {}),
    ("linear", {"low": -20.0, "high": 30.0, "below_color": (0, 0, 255),
                "above_color": (255, 0, 0)},
     {"low": -20.0, "high": 30.0, "below": (0, 0, 255), "above": (255, 0, 0)}),
])
def test_colorbar_and_attach_equal_cpp(kivlut, reference, bar_kwargs, bar_runner, mode,
                                       colour_kwargs, colour_runner):
    rng = np.random.default_rng(11)
    pixels = random_range_pixels(rng, np.float32, (37, 52))
    runs = []
    for alpha in (False, True):
        for attach_vertical in (True, False):
            reference.add("colorize_range", **range_arguments(pixels), cmap="viridis", mode=mode,
                          channels=4 if alpha else 3, bar=1, attach=1,
                          attach_vertical=attach_vertical, attach_background=(10, 20, 30),
                          **colour_runner, **bar_runner)
            runs.append((alpha, attach_vertical))
    for (alpha, attach_vertical), result in zip(runs, reference.run()):
        assert result.status == 0 and result.int("bar_status") == 0
        picture, info = kivlut.colorize(pixels, mode=mode, cmap="viridis", alpha=alpha,
                                        **colour_kwargs)
        bar = kivlut.colorbar(info, **bar_kwargs)
        want_bar = result.array("bar")[..., ::-1]
        assert bar.dtype == np.uint8 and bar.shape == want_bar.shape
        assert np.array_equal(bar, want_bar)
        attached = kivlut.attach_colorbar(picture, bar, vertical=attach_vertical,
                                          background=(10, 20, 30))
        want = result.array("attached")[..., ::-1]
        assert attached.shape == want.shape and attached.shape[2] == 3
        assert np.array_equal(attached, want)
        if attach_vertical:
            assert attached.shape[1] >= picture.shape[1] + bar.shape[1]
        else:
            assert attached.shape[0] >= picture.shape[0] + bar.shape[0]


def test_cmaps_equal_the_cpp_names(kivlut, reference):
    result = reference.call("names")
    names = [result.lines[f"name_{i}"] for i in range(result.int("names"))]
    assert list(kivlut.cmaps()) == names


def test_cmap_names_take_any_case(kivlut):
    ramp = np.linspace(0.0, 1.0, 300, dtype=np.float32)
    for name in kivlut.cmaps():
        lower, _ = kivlut.colorize(ramp, mode="linear", cmap=name.lower())
        upper, _ = kivlut.colorize(ramp, mode="linear", cmap=name.upper())
        assert np.array_equal(lower, upper), name
        reversed_lower, _ = kivlut.colorize(ramp, mode="linear", cmap=name.lower() + "_r")
        reversed_upper, _ = kivlut.colorize(ramp, mode="linear", cmap=name.upper() + "_R")
        assert np.array_equal(reversed_lower, reversed_upper), name


def test_installed_package_carries_type_hints(kivlut):
    import pathlib

    stubs = pathlib.Path(kivlut.__file__).with_name("__init__.pyi").read_text()
    for declaration in ("class LUTSetting", "class RangeImage", "class LinearColorMapLUT_Para",
                        "def colorize", "def colorbar", "def attach_colorbar", "def cmaps",
                        "def read_image", "def write_image"):
        assert declaration in stubs, declaration
    assert kivlut.LUTSetting.color_map_lut.__doc__


def test_write_image_writes_rgb_that_opencv_reads_as_bgr(kivlut, reference, tmp_path):
    rng = np.random.default_rng(4)
    picture = rng.integers(0, 256, size=(13, 17, 3), dtype=np.uint8)
    path = tmp_path / "picture.png"
    kivlut.write_image(str(path), picture)
    result = reference.call("imread", path=str(path))
    assert result.lines["read"] == "1"
    assert np.array_equal(result.array("image"), picture[..., ::-1])
    assert np.array_equal(kivlut.read_image(str(path)), picture)


def test_sixteen_bit_and_float_images_keep_their_depth(kivlut, tmp_path):
    depth = np.arange(0, 60000, 1000, dtype=np.uint16).reshape(6, 10)
    kivlut.write_image(str(tmp_path / "depth.png"), depth)
    back = kivlut.read_image(str(tmp_path / "depth.png"))
    assert back.dtype == np.uint16 and np.array_equal(back, depth)
    heights = np.linspace(-2.5, 7.5, 60, dtype=np.float32).reshape(6, 10)
    kivlut.write_image(str(tmp_path / "heights.tiff"), heights)
    back = kivlut.read_image(str(tmp_path / "heights.tiff"))
    assert back.dtype == np.float32 and np.array_equal(back, heights)


@pytest.mark.parametrize("kwargs", [
    {"mode": "histogram"},
    {"mode": "EQUALISE_ME"},
    {"cmap": "no-such-table"},
    {"low": 1.0},
    {"high": 2.0},
    {"mode": "percentile", "low": 1.0, "high": 2.0},
    {"nodata_color": (1, 2)},
    {"below_color": (1, 2, 3, 4, 5)},
    {"above_color": ()},
    {"mode": "percentile", "percentiles": (1.0, 50.0, 99.0)},
])
def test_bad_values_raise_value_error(kivlut, kwargs):
    data = np.linspace(1.0, 9.0, 20, dtype=np.float32).reshape(4, 5)
    with pytest.raises(ValueError):
        kivlut.colorize(data, **kwargs)


@pytest.mark.parametrize("data,kwargs", [
    (np.ones((3, 4), dtype=np.float32), {"mode": 3}),
    (np.ones((3, 4), dtype=np.float32), {"cmap": 5}),
    (np.ones((3, 4), dtype=np.float32), {"nodata_color": "red"}),
    (np.ones((3, 4), dtype=np.float32), {"alpha": "yes please"}),
    (np.ones((3, 4), dtype=np.int64), {}),
    (np.ones((3, 4), dtype=np.complex64), {}),
    ("not an array", {}),
    (None, {}),
])
def test_arguments_of_the_wrong_kind_raise_type_error(kivlut, data, kwargs):
    with pytest.raises(TypeError):
        kivlut.colorize(data, **kwargs)


def test_wrong_shapes_raise_value_error(kivlut):
    with pytest.raises(ValueError):
        kivlut.colorize(np.ones((2, 3, 4), dtype=np.float32))
    with pytest.raises(ValueError):
        kivlut.colorize(np.ones((2, 3, 4, 5), dtype=np.uint16))
    picture, info = kivlut.colorize(np.linspace(0, 1, 12, dtype=np.float32).reshape(3, 4))
    bar = kivlut.colorbar(info)
    with pytest.raises(ValueError):
        kivlut.attach_colorbar(picture[..., :2], bar)
    with pytest.raises(ValueError):
        kivlut.attach_colorbar(picture, bar[..., 0])
    with pytest.raises(ValueError):
        kivlut.colorbar(info, background=(1, 2))
    with pytest.raises(TypeError):
        kivlut.colorbar("info")


def test_refusals_of_the_colouring_raise_lut_error_with_the_cpp_status(kivlut, reference):
    all_nan = np.full((3, 4), np.nan, dtype=np.float32)
    crossed = np.linspace(0, 1, 12, dtype=np.float32).reshape(3, 4)
    reference.add("colorize_range", **range_arguments(np.zeros((0, 4), np.float32)),
                  cmap="rainbow", mode="linear")
    reference.add("colorize_range", **range_arguments(crossed), cmap="rainbow", mode="linear",
                  low=5.0, high=1.0)
    reference.add("colorize_range", **range_arguments(crossed), cmap="rainbow",
                  mode="percentile", percentiles=(90.0, 10.0))
    reference.add("colorize_range", **range_arguments(np.ones((3, 4), np.uint16),
                                                      (1.0, 1.0, 0.0)),
                  cmap="rainbow", mode="linear")
    reference.add("colorize_range", **range_arguments(all_nan), cmap="rainbow", mode="linear",
                  bar=1)
    empty, bounds, percentiles, resolution, no_scale = reference.run()
    calls = [
        (empty, lambda: kivlut.colorize(np.zeros((0, 4), np.float32), mode="linear")),
        (bounds, lambda: kivlut.colorize(crossed, mode="linear", low=5.0, high=1.0)),
        (percentiles,
         lambda: kivlut.colorize(crossed, mode="percentile", percentiles=(90.0, 10.0))),
        (resolution,
         lambda: kivlut.colorize(np.ones((3, 4), np.uint16), mode="linear", resolution_z=0.0)),
    ]
    for result, call in calls:
        assert result.status != 0
        with pytest.raises(kivlut.LUTError) as excinfo:
            call()
        assert excinfo.value.status == result.status
    # No valid value: a picture all in the no-data colour, but no scale to draw a bar from.
    assert no_scale.status == 0 and no_scale.int("bar_status") != 0
    picture, info = kivlut.colorize(all_nan, mode="linear")
    assert np.array_equal(picture, rgb_of(no_scale.out, all_nan.shape))
    assert info.valid_count == 0 and info.no_data_count == 12
    assert len(info.entry_start) == 0
    with pytest.raises(kivlut.LUTError) as excinfo:
        kivlut.colorbar(info)
    assert excinfo.value.status == no_scale.int("bar_status")
