"""kivlut.SequenceColorizer: frame after frame equal to KivSequenceColorizer through the same frames
(channels turned to RGB), reset, the current mapping for a colour bar, and refused options."""

import numpy as np
import pytest

from conftest import range_arguments

FRAMES = 6


def sequence_frames(dtype, seed):
    """A drifting height field with dropouts and, on one frame, far outliers."""
    rng = np.random.default_rng(seed)
    y, x = np.mgrid[0:23, 0:31]
    frames = []
    for k in range(FRAMES):
        heights = 500.0 + 3.0 * x + 2.0 * y + rng.normal(0.0, 0.5, x.shape) + 4.0 * (k >= 4)
        if k == 2:
            heights.flat[rng.integers(0, heights.size, 5)] = 5000.0
        if np.issubdtype(dtype, np.floating):
            frame = heights.astype(dtype)
            frame[rng.random(x.shape) < 0.05] = np.nan
        else:
            frame = np.round(heights).astype(dtype)
            frame[rng.random(x.shape) < 0.05] = 0
        frames.append(frame)
    return frames


def rgb_of(bgr_colors, shape):
    channels = bgr_colors.shape[1]
    order = [2, 1, 0, 3][:channels]
    return bgr_colors[:, order].reshape(shape + (channels,))


@pytest.mark.parametrize("mode", ["equalize", "linear", "percentile"])
@pytest.mark.parametrize("dtype", [np.uint16, np.int32, np.float32, np.float64])
def test_frames_equal_cpp(kivlut, reference, mode, dtype):
    frames = sequence_frames(dtype, seed=int(np.dtype(dtype).num) * 7 + len(mode))
    options = dict(tau=4.0, hold=2, band=0.01, tolerance=0.5, percentiles=(2.0, 97.0), channels=4)
    arguments = {f"img{k}": f for k, f in enumerate(frames)}
    result = reference.call("sequence", cmap="viridis", mode=mode, frames=FRAMES,
                            **range_arguments(frames[0]) | {"img": None}, **arguments, **options)
    stable = kivlut.SequenceColorizer(
        "viridis", mode, time_constant=4.0, hold_frames=2, dead_band=0.01, entry_tolerance=0.5,
        percentiles=(2.0, 97.0), alpha=True)
    for k, frame in enumerate(frames):
        assert int(result.lines[f"status{k}"]) == 0
        picture, info = stable.colorize(frame)
        assert picture.shape == frame.shape + (4,)
        assert picture.tobytes() == rgb_of(result.array(f"out{k}"), frame.shape).tobytes(), k
        low, high = (float(v) for v in result.lines[f"bounds{k}"].split())
        assert (info.low, info.high) == (low, high)
    assert stable.frames_seen == FRAMES


def test_reset_starts_afresh_and_the_mapping_feeds_a_colour_bar(kivlut):
    frames = sequence_frames(np.float32, seed=3)
    stable = kivlut.SequenceColorizer("turbo", "linear")
    with pytest.raises(kivlut.LUTError) as raised:
        stable.current_mapping()
    assert raised.value.name == "KIV_EXT_ERR_NO_SCALE"
    for frame in frames:
        stable.colorize(frame)
    mapping = stable.current_mapping()
    assert mapping.cmap == "turbo" and mapping.low < mapping.high
    bar = kivlut.colorbar(mapping, unit="mm")
    assert bar.ndim == 3 and bar.shape[2] == 3
    stable.reset()
    assert stable.frames_seen == 0
    again, _ = stable.colorize(frames[3])
    fresh, _ = kivlut.SequenceColorizer("turbo", "linear").colorize(frames[3])
    assert again.tobytes() == fresh.tobytes()


def test_a_loop_takes_float_arrays_and_plain_integer_frames(kivlut):
    stable = kivlut.SequenceColorizer("magma", "equalize", time_constant=5)
    for frame in sequence_frames(np.uint16, seed=8):
        picture, info = stable.colorize(frame, resolution_z=0.5)
        assert picture.shape == frame.shape + (3,)
        assert info.valid_count == int(np.count_nonzero(frame))
    values = sequence_frames(np.float32, seed=9)[0].reshape(-1)
    picture, _ = kivlut.SequenceColorizer().colorize(values)
    assert picture.shape == (values.size, 3)


def test_unusable_options_and_frames_are_refused(kivlut):
    with pytest.raises(kivlut.LUTError) as raised:
        kivlut.SequenceColorizer(time_constant=-1.0).colorize(np.ones((3, 3), np.float32))
    assert raised.value.name == "KIV_EXT_ERR_SEQUENCE_OPTIONS"
    with pytest.raises(ValueError):
        kivlut.SequenceColorizer(mode="sideways")
    with pytest.raises(ValueError):
        kivlut.SequenceColorizer(cmap="no such map")
    stable = kivlut.SequenceColorizer()
    with pytest.raises(TypeError):
        stable.colorize(np.ones((3, 3), np.complex64))
    with pytest.raises(kivlut.LUTError):
        stable.colorize(np.zeros((0, 4), np.float32))
    assert stable.frames_seen == 0
