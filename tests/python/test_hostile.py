"""Inputs a careless or hostile caller passes: wrong dtypes and dimensions, empty and huge shapes,
non-contiguous views, colours of the wrong length. Each raises the documented exception or gives
the bytes of the contiguous copy; none may take the interpreter down, so the nastiest run in a
child interpreter whose death fails the test instead of the run."""

import os
import re
import subprocess
import sys
import textwrap

import numpy as np
import pytest

from conftest import PIXEL_DTYPES, assert_lut_error, random_range_pixels, range_arguments


def run_isolated(code):
    """Runs `code` in a child interpreter limited to 4 GiB of address space (a copy of a huge
    view must fail there, not exhaust the machine); fails unless it ends normally with "OK"."""
    prologue = textwrap.dedent(
        """
        import resource
        resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))
        import numpy as np
        import kivlut
        from numpy.lib.stride_tricks import as_strided
        lut = kivlut.LUTSetting()

        def must_raise(call, what):
            try:
                call()
            except Exception as error:
                print(what, "->", type(error).__name__, str(error)[:120])
                return
            raise SystemExit(what + ": no exception")
        """
    )
    completed = subprocess.run(
        [sys.executable, "-c", prologue + textwrap.dedent(code) + "\nprint('OK')\n"],
        capture_output=True, timeout=240, env=dict(os.environ),
    )
    output = completed.stdout.decode(errors="replace") + completed.stderr.decode(errors="replace")
    assert completed.returncode == 0, f"child ended with {completed.returncode}:\n{output[-3000:]}"
    assert output.rstrip().endswith("OK") or "\nOK\n" in output, output[-3000:]


def message_names(error, name):
    """The message names the argument as `name` (the documented name of the faithful layer's
    argument, or its stem for the flat arrays, documented as values_int32 / values_float32)."""
    return re.search(rf"\b{re.escape(name)}(_\w+)?\b", str(error)) is not None


@pytest.mark.parametrize("dtype", [np.int64, np.uint32, np.float16, np.bool_, np.complex64],
                         ids=lambda d: np.dtype(d).name)
def test_range_image_of_a_foreign_dtype_raises_type_error(kivlut, dtype):
    with pytest.raises(TypeError) as excinfo:
        kivlut.RangeImage(np.ones((4, 5), dtype=dtype))
    assert message_names(excinfo.value, "array")


@pytest.mark.parametrize("dtype", [np.int8, np.int16, np.int32, np.float32, np.float64,
                                   np.int64], ids=lambda d: np.dtype(d).name)
def test_grey_image_of_a_foreign_dtype_raises_type_error(kivlut, dtype):
    lut = kivlut.LUTSetting()
    grey = np.ones((4, 5), dtype=dtype)
    with pytest.raises(TypeError) as excinfo:
        lut.linear_set_color_lut(grey, 1)
    assert message_names(excinfo.value, "grey")
    with pytest.raises(TypeError) as excinfo:
        lut.set_color_lut(grey, 1, 0, 10, 1, 255, (0, 0, 0), (255, 255, 255))
    assert message_names(excinfo.value, "grey")


def test_flat_arrays_of_a_foreign_dtype_raise_type_error_naming_them(kivlut):
    lut = kivlut.LUTSetting()
    # Arrays are never converted between dtypes to pick an overload.
    with pytest.raises(TypeError) as excinfo:
        lut.color_map_lut(np.arange(10, dtype=np.int64), 1, 0, 9)
    assert message_names(excinfo.value, "values")
    with pytest.raises(TypeError) as excinfo:
        lut.set_color_lut(np.arange(10, dtype=np.float64), 0.0, 9.0, 1)
    assert message_names(excinfo.value, "values")
    with pytest.raises(TypeError) as excinfo:
        lut.linear_set_color_lut(np.arange(10, dtype=np.float64), 0.0, 9.0, 1)
    assert message_names(excinfo.value, "values")
    with pytest.raises(TypeError) as excinfo:
        lut.set_color_normal_map(np.ones((4, 3), dtype=np.float64))
    assert message_names(excinfo.value, "normals")
    with pytest.raises(TypeError) as excinfo:
        lut.color_blend(np.ones((4, 3), dtype=np.uint8), np.ones((4, 3), dtype=np.int16), 0.5)
    assert message_names(excinfo.value, "b")
    with pytest.raises(TypeError) as excinfo:
        lut.color_blend(np.ones((4, 3), dtype=np.float32), np.ones((4, 3), dtype=np.uint8), 0.5)
    assert message_names(excinfo.value, "a")


def test_wrong_dimensions_and_channels_raise_value_error_naming_them(kivlut):
    lut = kivlut.LUTSetting()
    with pytest.raises(ValueError) as excinfo:
        kivlut.RangeImage(np.ones((2, 3, 4), dtype=np.uint16))
    assert message_names(excinfo.value, "array")
    with pytest.raises(ValueError):
        kivlut.RangeImage(np.ones(7, dtype=np.float32))
    with pytest.raises(ValueError) as excinfo:
        lut.set_color_lut(np.ones((2, 3, 1), dtype=np.uint8), 1)
    assert message_names(excinfo.value, "grey")
    with pytest.raises(ValueError) as excinfo:
        lut.set_color_normal_map(np.ones((4, 2), dtype=np.float32))
    assert message_names(excinfo.value, "normals")
    with pytest.raises(ValueError) as excinfo:
        lut.set_color_normal_map(np.ones((4, 3, 1), dtype=np.float32))
    assert message_names(excinfo.value, "normals")
    with pytest.raises(ValueError) as excinfo:
        lut.color_blend(np.ones((4, 2), dtype=np.uint8), np.ones((4, 3), dtype=np.uint8), 0.5)
    assert message_names(excinfo.value, "a")
    with pytest.raises(ValueError) as excinfo:
        lut.color_blend(np.ones((4, 3), dtype=np.uint8), np.ones((4, 5), dtype=np.uint8), 0.5)
    assert message_names(excinfo.value, "b")
    with pytest.raises(ValueError) as excinfo:
        lut.color_blend(np.ones((4,), dtype=np.uint8), np.ones((4, 3), dtype=np.uint8), 0.5)
    with pytest.raises(ValueError):
        lut.set_color_lut(np.ones((3, 4), dtype=np.float32), 0.0, 1.0, 1)


@pytest.mark.parametrize("colour", [(1, 2), (1, 2, 3, 4, 5), ()])
def test_colours_of_the_wrong_length_raise_value_error(kivlut, colour):
    lut = kivlut.LUTSetting()
    image = kivlut.RangeImage(np.arange(1, 13, dtype=np.uint16).reshape(3, 4))
    grey = np.arange(12, dtype=np.uint8).reshape(3, 4)
    para = kivlut.LinearColorMapLUT_Para()
    calls = [
        lambda: lut.color_map_lut(image, 1, 2.0, 9.0, 1, 200, colour, (0, 0, 0)),
        lambda: lut.linear_color_map_lut(image, 1, 2.0, 9.0, 1, 200, (0, 0, 0), colour),
        lambda: lut.set_color_lut(grey, 1, 1, 9, 1, 200, colour, (0, 0, 0)),
        lambda: lut.linear_color_map_lut(image, para, colour, (0, 0, 0), 1, True),
        lambda: lut.color_map_lut(image, para, (0, 0, 0), colour, 1, True, 4, 4),
    ]
    for call in calls:
        with pytest.raises(ValueError):
            call()


def test_colours_and_vectors_of_the_wrong_kind_raise_type_error(kivlut):
    lut = kivlut.LUTSetting()
    image = kivlut.RangeImage(np.arange(1, 13, dtype=np.uint16).reshape(3, 4))
    with pytest.raises(TypeError):
        lut.color_map_lut(image, 1, 2.0, 9.0, 1, 200, ("a", "b", "c"), (0, 0, 0))
    with pytest.raises(TypeError):
        lut.color_map_lut(image, 1, 2.0, 9.0, 1, 200, 7, (0, 0, 0))
    with pytest.raises(TypeError):
        lut.set_color_normal_map(image, "light", (0.0, 0.0, 1.0), 1, 1.0, 0.2, 0.5, 0.3)
    with pytest.raises(ValueError):
        lut.set_color_normal_map(image, (1.0, 2.0), (0.0, 0.0, 1.0), 1, 1.0, 0.2, 0.5, 0.3)
    with pytest.raises(TypeError):
        lut.linear_color_map_lut(image, "para", (0, 0, 0), (0, 0, 0), 1, True)


def views_of(rng, dtype):
    """Non-contiguous views of every kind: strided, transposed, Fortran order, negative step."""
    base = random_range_pixels(rng, dtype, (40, 50))
    return {
        "strided": base[::3, 1::2],
        "transposed": base.T,
        "fortran": np.asfortranarray(base[:17, :23]),
        "reversed": base[::-1, ::-2],
    }


@pytest.mark.parametrize("dtype", PIXEL_DTYPES, ids=lambda d: np.dtype(d).name)
def test_non_contiguous_range_images_give_the_bytes_of_the_copy(kivlut, reference, dtype):
    rng = np.random.default_rng(2 + PIXEL_DTYPES.index(dtype))
    lut = kivlut.LUTSetting()
    views = views_of(rng, dtype)
    for view in views.values():
        reference.add("cm_image", **range_arguments(np.ascontiguousarray(view)), map=1)
        reference.add("lin_image", **range_arguments(np.ascontiguousarray(view)), map=6)
    results = reference.run()
    for i, (name, view) in enumerate(views.items()):
        equalised, linear = results[2 * i], results[2 * i + 1]
        assert equalised.status == 0 and linear.status == 0
        image = kivlut.RangeImage(view)
        assert np.array_equal(image.array, view, equal_nan=True), name
        got = lut.color_map_lut(image, 1)
        assert got.shape == view.shape + (3,)
        assert np.array_equal(got.reshape(-1, 3), equalised.out), name
        got = lut.linear_color_map_lut(kivlut.RangeImage(view), 6)
        assert np.array_equal(got.reshape(-1, 3), linear.out), name


def test_non_contiguous_flat_and_grey_inputs_give_the_bytes_of_the_copy(kivlut, reference):
    rng = np.random.default_rng(12)
    lut = kivlut.LUTSetting()
    floats = random_range_pixels(rng, np.float32, (300,))[::-3]
    ints = rng.integers(-100, 100, size=400).astype(np.int32)[1::4]
    normals = rng.uniform(-1, 1, size=(60, 4)).astype(np.float32)[:, :3]
    grey = rng.integers(0, 4000, size=(30, 40)).astype(np.uint16).T
    a = rng.integers(0, 256, size=(50, 4), dtype=np.uint8)[::2, :3]
    b = rng.integers(0, 256, size=(25, 3), dtype=np.uint8)[::-1]
    calls = [
        ("set_floats", dict(floats=floats, min=-20.0, max=50.0, map=1),
         lambda: lut.set_color_lut(floats, -20.0, 50.0, 1)),
        ("linset_floats", dict(floats=floats, min=-20.0, max=50.0, map=2),
         lambda: lut.linear_set_color_lut(floats, -20.0, 50.0, 2)),
        ("cm_ints", dict(ints=ints, map=3, low=-50, high=50),
         lambda: lut.color_map_lut(ints, 3, -50, 50)),
        ("normal_map", dict(normals=normals), lambda: lut.set_color_normal_map(normals)),
        ("set_grey", dict(grey=grey, map=4), lambda: lut.set_color_lut(grey, 4)),
        ("linset_grey", dict(grey=grey, map=5), lambda: lut.linear_set_color_lut(grey, 5)),
        ("blend", dict(a=a, b=b, alpha=0.3), lambda: lut.color_blend(a, b, 0.3)),
    ]
    for op, args, _ in calls:
        reference.add(op, **{k: np.ascontiguousarray(v) if isinstance(v, np.ndarray) else v
                             for k, v in args.items()})
    for (op, _, call), result in zip(calls, reference.run()):
        assert result.status == 0, op
        got = call()
        want = result.out
        assert np.array_equal(got.reshape(want.shape), want), op


def test_zero_sized_grey_images_and_normals_raise_the_cpp_status(kivlut, status_names, reference):
    lut = kivlut.LUTSetting()
    grey = np.zeros((0, 7), dtype=np.uint8)
    reference.add("set_grey", grey=grey, map=1)
    reference.add("linset_grey", grey=grey, map=1)
    set_result, linear_result = reference.run()
    for result, call in ((set_result, lambda: lut.set_color_lut(grey, 1)),
                         (linear_result, lambda: lut.linear_set_color_lut(grey, 1))):
        assert result.status != 0
        with pytest.raises(kivlut.LUTError) as excinfo:
            call()
        assert_lut_error(kivlut, status_names, excinfo, result.status)


def test_zero_sized_colour_arrays_do_not_crash(kivlut):
    lut = kivlut.LUTSetting()
    empty = np.zeros((0, 3), dtype=np.uint8)
    try:
        blend = lut.color_blend(empty, empty, 0.5)
    except (kivlut.LUTError, ValueError):
        return
    assert blend.size == 0


def test_huge_range_image_shapes_raise_and_do_not_crash():
    run_isolated(
        """
        for dtype in (np.uint8, np.uint16, np.float32, np.float64):
            base = np.zeros(1, dtype=dtype)
            # Width * height overflows int, with no memory behind the view.
            huge = as_strided(base, shape=(1 << 16, 1 << 16), strides=(0, 0))
            must_raise(lambda: lut.color_map_lut(kivlut.RangeImage(huge), 1), "65536^2 " + str(dtype))
            wide = as_strided(base, shape=(1, 1 << 31), strides=(0, 0))
            must_raise(lambda: lut.linear_color_map_lut(kivlut.RangeImage(wide), 1), "wide " + str(dtype))
            tall = as_strided(base, shape=(1 << 31, 1), strides=(0, 0))
            must_raise(lambda: kivlut.colorize(tall), "tall " + str(dtype))
        """
    )


def test_huge_flat_and_grey_shapes_raise_and_do_not_crash():
    run_isolated(
        """
        f = as_strided(np.zeros(1, np.float32), shape=(1 << 31,), strides=(0,))
        must_raise(lambda: lut.set_color_lut(f, 0.0, 1.0, 1), "floats")
        must_raise(lambda: lut.linear_set_color_lut(f, 0.0, 1.0, 1), "linear floats")
        must_raise(lambda: kivlut.colorize(f), "colorize floats")
        i = as_strided(np.zeros(1, np.int32), shape=(1 << 31,), strides=(0,))
        must_raise(lambda: lut.color_map_lut(i, 1, 0, 1), "ints")
        n = as_strided(np.zeros(3, np.float32), shape=(1 << 31, 3), strides=(0, 4))
        must_raise(lambda: lut.set_color_normal_map(n), "normals")
        g = as_strided(np.zeros(1, np.uint8), shape=(1 << 16, 1 << 16), strides=(0, 0))
        must_raise(lambda: lut.set_color_lut(g, 1), "grey")
        c = as_strided(np.zeros(3, np.uint8), shape=(1 << 31, 3), strides=(0, 1))
        must_raise(lambda: lut.color_blend(c, c, 0.5), "colours")
        """
    )


def test_out_of_range_scalars_do_not_crash():
    run_isolated(
        """
        image = kivlut.RangeImage(np.arange(1, 13, dtype=np.uint16).reshape(3, 4))
        for map_type in (1 << 40, -(1 << 40)):
            must_raise(lambda: lut.color_map_lut(image, map_type), "map_type %d" % map_type)
        must_raise(lambda: lut.color_map_lut(image, 1, 1, 5, 1, 200, (1 << 40, 0, 0), (0, 0, 0)),
                   "colour component")
        for bad in (float("nan"), float("inf"), -1e308):
            try:
                lut.linear_color_map_lut(image, 1, bad, 1e308)
            except kivlut.LUTError:
                pass
            try:
                lut.color_map_lut(image, kivlut.LinearColorMapLUT_Para(value0=bad), (0, 0, 0),
                                  (0, 0, 0), 1, False, 4, 4)
            except kivlut.LUTError:
                pass
        """
    )


def test_grey_image_argument_takes_its_documented_name(kivlut):
    lut = kivlut.LUTSetting()
    grey = np.arange(12, dtype=np.uint8).reshape(3, 4)
    # The forms are documented as set_color_lut(grey, map_type) and linear_set_color_lut(grey, ...).
    assert np.array_equal(lut.set_color_lut(grey=grey, map_type=1), lut.set_color_lut(grey, 1))
    assert np.array_equal(lut.linear_set_color_lut(grey=grey, map_type=1),
                          lut.linear_set_color_lut(grey, 1))
