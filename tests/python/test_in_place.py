"""What the module changes in the caller's objects: exactly what C++ changes (the five-point scale
rescales a float array in place, the automatic range-image form fills the record), and nothing
where numpy cannot follow C++ (color_blend) or the array cannot be written."""

import numpy as np
import pytest

from conftest import same_values, assert_lut_error, random_range_pixels, range_arguments

UNDER, OVER = (5, 6, 7), (250, 251, 252)


def para_of(kivlut, values):
    return kivlut.LinearColorMapLUT_Para(
        value0=values[0], value1=values[1], value2=values[2], value3=values[3],
        value4=values[4], index0=values[5], index1=values[6], index2=values[7],
        index3=values[8], index4=values[9],
    )


def para_list(para):
    return [para.value0, para.value1, para.value2, para.value3, para.value4,
            para.index0, para.index1, para.index2, para.index3, para.index4]


MANUAL = [-0.9, -0.3, 0.0, 0.4, 0.95, 0, 127, 511, 895, 1023]
AUTO = [0.0] * 5 + [0] * 5


@pytest.mark.parametrize("length", [1, 3, 250, 4097])
@pytest.mark.parametrize("automatic,para", [(True, AUTO), (False, MANUAL)], ids=["auto", "manual"])
@pytest.mark.parametrize("map_type", [1, 6, 9])
def test_five_point_scale_rescales_the_callers_float_array_as_cpp(
    kivlut, status_names, reference, length, automatic, para, map_type
):
    rng = np.random.default_rng(length * 3 + map_type)
    values = random_range_pixels(rng, np.float32, (length,), invalid_fraction=0.15)
    original = values.copy()
    result = reference.call("lin_floats_para", floats=original, para=para, under=UNDER,
                            over=OVER, map=map_type, auto=automatic)
    record = para_of(kivlut, para)
    lut = kivlut.LUTSetting()
    if result.status != 0:
        with pytest.raises(kivlut.LUTError) as excinfo:
            lut.linear_color_map_lut(values, record, UNDER, OVER, map_type, automatic)
        assert_lut_error(kivlut, status_names, excinfo, result.status)
        return
    picture = lut.linear_color_map_lut(values, record, UNDER, OVER, map_type, automatic)
    assert picture.shape == (length, 3)
    assert np.array_equal(picture, result.out)
    # The caller's array now holds exactly what C++ left in its array, NaNs where C++ has them.
    rescaled = result.array("values")
    assert values.tobytes() == rescaled.tobytes()
    # Nothing is written back into the record by the float-array form.
    assert same_values(para_list(record), para)
    assert same_values(para_list(record), result.para)


def test_five_point_scale_refuses_a_read_only_array(kivlut):
    values = np.linspace(-3.0, 7.0, 50, dtype=np.float32)
    values.flags.writeable = False
    before = values.copy()
    with pytest.raises(ValueError):
        kivlut.LUTSetting().linear_color_map_lut(values, para_of(kivlut, AUTO), UNDER, OVER, 1,
                                                 True)
    assert np.array_equal(values, before)


def test_five_point_scale_refuses_a_non_contiguous_array(kivlut):
    storage = np.linspace(-3.0, 7.0, 100, dtype=np.float32)
    before = storage.copy()
    view = storage[::2]
    with pytest.raises(ValueError):
        kivlut.LUTSetting().linear_color_map_lut(view, para_of(kivlut, AUTO), UNDER, OVER, 1,
                                                 True)
    assert np.array_equal(storage, before)


@pytest.mark.parametrize("dtype", [np.uint16, np.int32, np.float32, np.float64],
                         ids=["uint16", "int32", "float32", "float64"])
def test_automatic_range_image_form_writes_the_record_back(kivlut, reference, dtype):
    rng = np.random.default_rng(77)
    pixels = random_range_pixels(rng, dtype, (19, 23))
    before = pixels.copy()
    args = range_arguments(pixels, (1.0, 1.0, 0.5), (0.0, 0.0, 2.0))
    result = reference.call("lin_image_para", **args, para=AUTO, under=UNDER, over=OVER, map=1,
                            auto=True)
    assert result.status == 0
    record = para_of(kivlut, AUTO)
    image = kivlut.RangeImage(pixels, resolution=(1.0, 1.0, 0.5), offset=(0.0, 0.0, 2.0))
    picture = kivlut.LUTSetting().linear_color_map_lut(image, record, UNDER, OVER, 1, True)
    assert np.array_equal(picture.reshape(-1, 3), result.out)
    assert same_values(para_list(record), result.para), (para_list(record), result.para)
    assert para_list(record) != AUTO
    # The image itself is not changed: the rescaling works on a copy.
    assert np.array_equal(pixels, before, equal_nan=True)
    assert np.array_equal(image.array, before, equal_nan=True)


def test_manual_range_image_form_leaves_the_record_alone(kivlut, reference):
    pixels = np.linspace(1, 5000, 300).astype(np.uint16).reshape(15, 20)
    para = [10.0, 1000.0, 2500.0, 4000.0, 4990.0, 0, 100, 500, 900, 1023]
    result = reference.call("lin_image_para", **range_arguments(pixels), para=para, under=UNDER,
                            over=OVER, map=2, auto=False)
    assert result.status == 0
    record = para_of(kivlut, para)
    picture = kivlut.LUTSetting().linear_color_map_lut(kivlut.RangeImage(pixels), record, UNDER,
                                                       OVER, 2, False)
    assert np.array_equal(picture.reshape(-1, 3), result.out)
    assert same_values(para_list(record), para)
    assert same_values(para_list(record), result.para)


@pytest.mark.parametrize("channels_a,channels_b", [(1, 3), (4, 3), (3, 1), (3, 4), (1, 4), (4, 1)])
def test_color_blend_leaves_both_inputs_unchanged(kivlut, reference, channels_a, channels_b):
    rng = np.random.default_rng(channels_a * 7 + channels_b)
    a = rng.integers(0, 256, size=(31, channels_a), dtype=np.uint8)
    b = rng.integers(0, 256, size=(31, channels_b), dtype=np.uint8)
    a_before, b_before = a.copy(), b.copy()
    result = reference.call("blend", a=a, b=b, alpha=0.6)
    assert result.status == 0
    blend = kivlut.LUTSetting().color_blend(a, b, 0.6)
    assert blend.shape[-1] == result.out.shape[1]
    assert np.array_equal(blend.reshape(result.out.shape), result.out)
    assert a.shape == a_before.shape and np.array_equal(a, a_before)
    assert b.shape == b_before.shape and np.array_equal(b, b_before)


@pytest.mark.parametrize("dtype", [np.uint8, np.int16, np.float32, np.float64],
                         ids=["uint8", "int16", "float32", "float64"])
def test_range_image_methods_leave_the_callers_pixels_alone(kivlut, dtype):
    rng = np.random.default_rng(3)
    pixels = random_range_pixels(rng, dtype, (21, 17))
    before = pixels.copy()
    lut = kivlut.LUTSetting()
    image = kivlut.RangeImage(pixels)
    lut.color_map_lut(image, 1)
    lut.linear_color_map_lut(image, 3)
    lut.set_color_normal_map_phong(image)
    if np.dtype(dtype) == np.float32:
        lut.linear_color_map_lut(image, 1, upper_fraction=0.05, lower_fraction=0.05)
    assert np.array_equal(pixels, before, equal_nan=True)
