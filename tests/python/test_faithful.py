"""Every method of kivlut.LUTSetting and every overload gives the bytes and the status that the
C++ method gives on the same input, and the output shapes the module's documentation names."""

import numpy as np
import pytest

from conftest import (
    same_values,
    FLOAT_DTYPES,
    PIXEL_DTYPES,
    assert_lut_error,
    random_range_pixels,
    range_arguments,
)

SHAPES = [(1, 1), (7, 13), (33, 64)]
RESOLUTION = (0.25, 0.5, 0.5)
OFFSET = (1.0, 2.0, 3.0)


def expect(kivlut, status_names, result, call, check):
    """Either C++ succeeded and the module's result passes `check`, or both refused alike."""
    if result.status == 0:
        check(call())
    else:
        with pytest.raises(kivlut.LUTError) as excinfo:
            call()
        assert_lut_error(kivlut, status_names, excinfo, result.status)


def colors_check(result, shape):
    """The module's colours equal C++'s, in the shape `shape` (None: C++'s 3 channels per
    element are expected in any shape ending in 3)."""

    def check(got):
        assert isinstance(got, np.ndarray) and got.dtype == np.uint8
        want = result.out
        assert got.shape == shape + (want.shape[1],)
        assert np.array_equal(got.reshape(want.shape), want)

    return check


def grey_check(result):
    def check(got):
        want = result.out
        assert isinstance(got, np.ndarray) and got.dtype == want.dtype
        if want.shape[2] == 1:
            assert got.shape == want.shape[:2]
            assert np.array_equal(got, want[:, :, 0])
        else:
            assert got.shape == want.shape
            assert np.array_equal(got, want)

    return check


def physical(pixels, dtype):
    """Valid heights of `pixels` in physical units, as the library reads the image."""
    if np.dtype(dtype).kind == "f":
        valid = pixels[np.isfinite(pixels) & (pixels != -np.finfo(np.float32).max)]
        return valid.astype(np.float64)
    valid = pixels[pixels != 0].astype(np.float64)
    return valid * RESOLUTION[2] + OFFSET[2]


def range_cases(rng, dtype, shape):
    """(op, runner arguments, python call) for every range-image overload on one random image."""
    pixels = random_range_pixels(rng, dtype, shape)
    heights = physical(pixels, dtype)
    if heights.size:
        q = [float(v) for v in np.quantile(heights, [0.0, 0.2, 0.4, 0.6, 0.8, 1.0])]
    else:
        q = [0.0, 1.0, 2.0, 3.0, 4.0, 5.0]
    args = range_arguments(pixels, RESOLUTION, OFFSET)
    map_type = int(rng.integers(0, 11))
    below, above = (10, 20, 30), (200, 210, 220, 7)

    def image(lut_type=0):
        return lambda kivlut: kivlut.RangeImage(
            pixels, resolution=RESOLUTION, offset=OFFSET, type=lut_type
        )

    cases = []
    for m in (map_type, 11, -1):
        cases.append(
            ("cm_image", dict(args, map=m), lambda k, lut, m=m: lut.color_map_lut(image()(k), m))
        )
        cases.append(
            ("lin_image", dict(args, map=m), lambda k, lut, m=m: lut.linear_color_map_lut(image()(k), m))
        )
    cases.append(
        ("cm_image", dict(args, map=map_type, type=3),
         lambda k, lut: lut.color_map_lut(image(3)(k), map_type))
    )
    for low, high in ((q[1], q[4]), (q[4], q[1]), (q[0] - 10.0, q[5] + 10.0), (q[2], float("nan"))):
        cases.append(
            ("cm_image_bounds", dict(args, map=map_type, low=low, high=high),
             lambda k, lut, lo=low, hi=high: lut.color_map_lut(image()(k), map_type, lo, hi))
        )
        cases.append(
            ("lin_image_bounds", dict(args, map=map_type, low=low, high=high),
             lambda k, lut, lo=low, hi=high: lut.linear_color_map_lut(image()(k), map_type, lo, hi))
        )
    for lo_entry, hi_entry in ((10, 200), (0, 255), (-1, 20), (30, 20), (5, 256), (1, 1)):
        cases.append(
            ("cm_image_entries",
             dict(args, map=map_type, low=q[1], high=q[4], lo=lo_entry, hi=hi_entry,
                  below=below, above=above),
             lambda k, lut, a=lo_entry, b=hi_entry: lut.color_map_lut(
                 image()(k), map_type, q[1], q[4], a, b, below, above))
        )
        cases.append(
            ("lin_image_entries",
             dict(args, map=map_type, low=q[1], high=q[4], lo=lo_entry, hi=hi_entry,
                  under=below, over=above),
             lambda k, lut, a=lo_entry, b=hi_entry: lut.linear_color_map_lut(
                 image()(k), map_type, q[1], q[4], a, b, below, above))
        )
    for upper, lower in ((0.01, 0.01), (0.0, 0.3), (1.5, 0.0), (0.1, -0.1)):
        cases.append(
            ("lin_image_fractions", dict(args, map=map_type, upper=upper, lower=lower),
             lambda k, lut, u=upper, lo=lower: lut.linear_color_map_lut(
                 image()(k), map_type, upper_fraction=u, lower_fraction=lo))
        )
    paras = [
        ([q[0], q[1], q[2], q[3], q[5], 0, 127, 511, 895, 1023], False),
        ([q[1], q[2], q[2], q[3], q[4], 0, 200, 400, 800, 1000], False),
        ([q[3], q[1], q[2], q[3], q[4], 0, 127, 511, 895, 1023], False),
        ([q[0], q[1], q[2], q[3], q[5], 0, 127, 511, 895, 1024], False),
        ([q[0], q[1], q[2], q[3], q[5], 50, 40, 511, 895, 1023], False),
        ([0.0] * 5 + [0] * 5, True),
    ]
    for para, automatic in paras:
        for m in (max(map_type, 1), 0):
            cases.append(
                ("lin_image_para",
                 dict(args, para=para, under=below, over=above, map=m, auto=automatic),
                 lambda k, lut, p=para, m=m, a=automatic: lut.linear_color_map_lut(
                     image()(k), make_para(k, p), below, above, m, a))
            )
    if np.dtype(dtype) == np.float32 and shape == SHAPES[1]:
        # The segmenting colouring appends an 800 x 600 chart: a few calls are enough.
        for para, automatic in paras[:1] + paras[-1:]:
            for size_a, size_b in ((4, 8), (0, 3), (3, 4)):
                cases.append(
                    ("cm_segments",
                     dict(args, para=para, under=below, over=above, map=map_type, auto=automatic,
                          size_a=size_a, size_b=size_b),
                     ("segments", para, automatic, size_a, size_b))
                )
    light, eye = (10.0, 20.0, 300.0), (0.0, 0.0, 500.0)
    for mode, coefs in ((map_type, (1.0, 0.3, 0.5, 0.2)), (1, (3.0, 0.1, 0.9, 0.9)),
                        (1, (0.0, 0.3, 0.5, 0.2)), (2, (1.0, 1.5, 0.5, 0.2)),
                        (12, (1.0, 0.3, 0.5, 0.2))):
        cases.append(
            ("normal_map_lit",
             dict(args, va=light, vb=eye, mode=mode, ca=coefs[0], cb=coefs[1], cc=coefs[2],
                  cd=coefs[3]),
             lambda k, lut, mo=mode, c=coefs: lut.set_color_normal_map(
                 image()(k), light, eye, mo, *c))
        )
    cases.append(
        ("normal_map_lit",
         dict(args, va=(0.0, 0.0, 0.0), vb=eye, mode=1, ca=1.0, cb=0.3, cc=0.5, cd=0.2),
         lambda k, lut: lut.set_color_normal_map(image()(k), (0.0, 0.0, 0.0), eye, 1, 1.0, 0.3,
                                                 0.5, 0.2))
    )
    cases.append(("normal_map_phong", args, lambda k, lut: lut.set_color_normal_map_phong(image()(k))))
    return cases, shape


def make_para(kivlut, p):
    return kivlut.LinearColorMapLUT_Para(
        value0=p[0], value1=p[1], value2=p[2], value3=p[3], value4=p[4],
        index0=p[5], index1=p[6], index2=p[7], index3=p[8], index4=p[9],
    )


def para_list(para):
    return [para.value0, para.value1, para.value2, para.value3, para.value4,
            para.index0, para.index1, para.index2, para.index3, para.index4]


@pytest.mark.parametrize("dtype", PIXEL_DTYPES, ids=lambda d: np.dtype(d).name)
def test_range_image_methods_equal_cpp(kivlut, status_names, reference, dtype):
    rng = np.random.default_rng(1000 + PIXEL_DTYPES.index(dtype))
    lut = kivlut.LUTSetting()
    all_cases = []
    for shape in SHAPES:
        cases, _ = range_cases(rng, dtype, shape)
        for op, args, call in cases:
            reference.add(op, **args)
            all_cases.append((op, args, call, shape))
    results = reference.run()
    assert len(results) == len(all_cases)
    for (op, args, call, shape), result in zip(all_cases, results):
        context = f"{op} {np.dtype(dtype).name} {shape} " + " ".join(
            f"{k}={v}" for k, v in args.items() if not isinstance(v, np.ndarray))
        try:
            if isinstance(call, tuple):
                check_segments(kivlut, status_names, lut, args, call, shape, result)
            elif op == "lin_image_para":
                para = make_para(kivlut, args["para"])
                image = kivlut.RangeImage(args["img"], resolution=RESOLUTION, offset=OFFSET)

                def run(para=para, image=image):
                    return lut.linear_color_map_lut(image, para, args["under"], args["over"],
                                                    args["map"], args["auto"])

                def check(got, para=para):
                    colors_check(result, shape)(got)
                    # The automatic form writes the break values it used back into the record.
                    assert same_values(para_list(para), result.para), (para_list(para), result.para)

                expect(kivlut, status_names, result, run, check)
            else:
                expect(kivlut, status_names, result, lambda: call(kivlut, lut),
                       colors_check(result, shape))
        except AssertionError as error:
            raise AssertionError(f"{context}: {error}") from error


def check_segments(kivlut, status_names, lut, args, call, shape, result):
    _, para_values, automatic, size_a, size_b = call
    para = make_para(kivlut, para_values)
    image = kivlut.RangeImage(args["img"], resolution=RESOLUTION, offset=OFFSET)

    def run():
        return lut.color_map_lut(image, para, args["under"], args["over"], args["map"], automatic,
                                 size_a, size_b)

    def check(got):
        picture, vector_a, vector_b = got
        colors_check(result, shape)(picture)
        # Nothing is written back into the record by this form.
        assert same_values(para_list(para), para_values)
        assert same_values(para_list(para), result.para)
        want_a = result.vector("vector_a")
        assert len(vector_a) == len(want_a)
        for have, want in zip(vector_a, want_a):
            if isinstance(want, np.ndarray):
                assert isinstance(have, np.ndarray) and have.shape == want.shape
                assert np.array_equal(have, want)
            else:
                assert type(have) is int and have == want
        assert list(vector_b) == result.vector("vector_b")
        assert all(type(v) is int for v in vector_b)

    expect(kivlut, status_names, result, run, check)


def test_get_color_equals_cpp(kivlut, status_names, reference):
    lut = kivlut.LUTSetting()
    values = [0.0, 1.0, 0.5, 1.0 / 255.0, 0.999999, -0.0, -1e-9, 1.0000001, float("nan"),
              float("inf")]
    cases = [(v, m) for v in values for m in range(-1, 12)]
    for v, m in cases:
        reference.add("get_color", value=v, map=m)
    for (v, m), result in zip(cases, reference.run()):
        def check(got, result=result):
            assert isinstance(got, tuple) and len(got) == 3
            assert got == result.color[:3]

        expect(kivlut, status_names, result, lambda: lut.get_color(v, m), check)


@pytest.mark.parametrize("length", [1, 2, 17, 1000])
def test_flat_array_methods_equal_cpp(kivlut, status_names, reference, length):
    rng = np.random.default_rng(length)
    lut = kivlut.LUTSetting()
    ints = rng.integers(-5000, 5000, size=length).astype(np.int32)
    floats = random_range_pixels(rng, np.float32, (length,), invalid_fraction=0.2)
    cases = []
    for m, low, high in ((3, -1000, 2000), (0, 0, 0), (11, 0, 10), (-1, 0, 10), (6, 500, -500)):
        cases.append(("cm_ints", dict(ints=ints, map=m, low=low, high=high),
                      lambda m=m, a=low, b=high: lut.color_map_lut(ints, m, a, b)))
    for m, low, high in ((1, -20.0, 60.0), (2, 0.0, 0.0), (5, 30.0, -30.0), (11, 0.0, 1.0),
                         (-1, 0.0, 1.0), (6, float("nan"), 10.0)):
        cases.append(("set_floats", dict(floats=floats, map=m, min=low, max=high),
                      lambda m=m, a=low, b=high: lut.set_color_lut(floats, a, b, m)))
        cases.append(("linset_floats", dict(floats=floats, map=m, min=low, max=high),
                      lambda m=m, a=low, b=high: lut.linear_set_color_lut(floats, a, b, m)))
    for op, args, call in cases:
        reference.add(op, **args)
    for (op, args, call), result in zip(cases, reference.run()):
        expect(kivlut, status_names, result, call, colors_check(result, (length,)))


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16], ids=["uint8", "uint16"])
@pytest.mark.parametrize("shape", [(1, 1), (5, 9), (48, 31)])
def test_grey_image_methods_equal_cpp(kivlut, status_names, reference, dtype, shape):
    rng = np.random.default_rng(shape[0] * 100 + shape[1])
    lut = kivlut.LUTSetting()
    top = 255 if dtype == np.uint8 else 4000
    grey = rng.integers(0, top, size=shape, endpoint=True).astype(dtype)
    grey[rng.random(shape) < 0.1] = 0
    cases = []
    for m in (0, 1, 2, 6, 8, 11, -1):
        cases.append(("set_grey", dict(grey=grey, map=m), lambda m=m: lut.set_color_lut(grey, m)))
        cases.append(("linset_grey", dict(grey=grey, map=m),
                      lambda m=m: lut.linear_set_color_lut(grey, m)))
    below, above = (1, 2, 3), (250, 251, 252)
    for m, low, high, a, b in ((1, 20, 200, 1, 255), (0, 20, 200, 1, 255), (9, 20, 200, 1, 255),
                               (3, 200, 20, 1, 255), (3, -1, 20, 1, 255), (4, 10, 100, -1, 10),
                               (4, 10, 100, 20, 10), (4, 10, 100, 1, 256), (5, 0, top, 10, 10)):
        cases.append(("set_grey_entries",
                      dict(grey=grey, map=m, low=low, high=high, lo=a, hi=b, below=below,
                           above=above),
                      lambda m=m, lo=low, hi=high, a=a, b=b: lut.set_color_lut(
                          grey, m, lo, hi, a, b, below, above)))
    for op, args, call in cases:
        reference.add(op, **args)
    for (op, args, call), result in zip(cases, reference.run()):
        expect(kivlut, status_names, result, call, grey_check(result))


@pytest.mark.parametrize("length", [1, 2, 7, 1001])
def test_normal_map_equals_cpp(kivlut, status_names, reference, length):
    rng = np.random.default_rng(length + 7)
    lut = kivlut.LUTSetting()
    normals = rng.uniform(-1.2, 1.2, size=(length, 3)).astype(np.float32)
    if length > 2:
        normals[1, 0] = np.nan
        normals[2, 2] = np.inf
    result = reference.call("normal_map", normals=normals)
    expect(kivlut, status_names, result, lambda: lut.set_color_normal_map(normals),
           colors_check(result, (length,)))


@pytest.mark.parametrize("channels_a,channels_b", [(3, 3), (1, 1), (4, 4), (1, 3), (4, 3),
                                                   (3, 1), (3, 4), (1, 4)])
@pytest.mark.parametrize("alpha", [0.0, 0.5, 0.3, 1.0, 1.5, float("nan")])
def test_color_blend_equals_cpp(kivlut, status_names, reference, channels_a, channels_b, alpha):
    rng = np.random.default_rng(channels_a * 10 + channels_b)
    lut = kivlut.LUTSetting()
    a = rng.integers(0, 256, size=(23, channels_a), dtype=np.uint8)
    b = rng.integers(0, 256, size=(23, channels_b), dtype=np.uint8)
    a[0] = 255
    b[0] = 255
    result = reference.call("blend", a=a, b=b, alpha=alpha)

    def check(got):
        want = result.out
        assert got.dtype == np.uint8
        assert got.reshape(-1, want.shape[1]).shape == want.shape
        assert got.shape[-1] == want.shape[1]
        assert np.array_equal(got.reshape(want.shape), want)

    expect(kivlut, status_names, result, lambda: lut.color_blend(a, b, alpha), check)


def test_color_blend_of_images_and_length_mismatch_equal_cpp(kivlut, status_names, reference):
    rng = np.random.default_rng(5)
    lut = kivlut.LUTSetting()
    a = rng.integers(0, 256, size=(6, 5, 3), dtype=np.uint8)
    b = rng.integers(0, 256, size=(6, 5, 3), dtype=np.uint8)
    short = rng.integers(0, 256, size=(29, 3), dtype=np.uint8)
    reference.add("blend", a=a, b=b, alpha=0.25)
    reference.add("blend", a=a, b=short, alpha=0.25)
    whole, mismatch = reference.run()
    assert whole.status == 0 and mismatch.status != 0

    def check(got):
        assert np.array_equal(got.reshape(-1, 3), whole.out)

    expect(kivlut, status_names, whole, lambda: lut.color_blend(a, b, 0.25), check)
    expect(kivlut, status_names, mismatch, lambda: lut.color_blend(a, short, 0.25), check)


@pytest.mark.parametrize("dtype", FLOAT_DTYPES + [np.uint16], ids=lambda d: np.dtype(d).name)
def test_empty_range_image_raises_the_cpp_status(kivlut, status_names, reference, dtype):
    lut = kivlut.LUTSetting()
    for shape in ((0, 5), (4, 0), (0, 0)):
        pixels = np.zeros(shape, dtype=dtype)
        result = reference.call("cm_image", **range_arguments(pixels), map=1)
        assert result.status != 0
        with pytest.raises(kivlut.LUTError) as excinfo:
            lut.color_map_lut(kivlut.RangeImage(pixels), 1)
        assert_lut_error(kivlut, status_names, excinfo, result.status)


def test_empty_flat_arrays_raise_the_cpp_status(kivlut, status_names, reference):
    lut = kivlut.LUTSetting()
    floats = np.zeros(0, dtype=np.float32)
    ints = np.zeros(0, dtype=np.int32)
    normals = np.zeros((0, 3), dtype=np.float32)
    calls = [
        ("cm_ints", dict(ints=ints, map=1, low=0, high=1), lambda: lut.color_map_lut(ints, 1, 0, 1)),
        ("set_floats", dict(floats=floats, map=1, min=0.0, max=1.0),
         lambda: lut.set_color_lut(floats, 0.0, 1.0, 1)),
        ("linset_floats", dict(floats=floats, map=1, min=0.0, max=1.0),
         lambda: lut.linear_set_color_lut(floats, 0.0, 1.0, 1)),
        ("normal_map", dict(normals=normals), lambda: lut.set_color_normal_map(normals)),
    ]
    for op, args, _ in calls:
        reference.add(op, **args)
    for (op, _, call), result in zip(calls, reference.run()):
        assert result.status != 0, op
        with pytest.raises(kivlut.LUTError) as excinfo:
            call()
        assert_lut_error(kivlut, status_names, excinfo, result.status)


def test_range_image_keeps_its_pixels_and_settings(kivlut):
    pixels = np.arange(12, dtype=np.uint16).reshape(3, 4)
    image = kivlut.RangeImage(pixels, resolution=(0.5, 0.25, 0.125), offset=(1.0, 2.0, 3.0),
                              type=1)
    assert image.array.dtype == np.uint16
    assert np.array_equal(image.array, pixels)
