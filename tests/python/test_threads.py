"""Methods called from several Python threads at once give the bytes they give alone, and the GIL
is released while C++ works."""

import threading
import time

import numpy as np

from conftest import random_range_pixels, range_arguments

THREADS = 8


def run_in_threads(calls):
    """Runs each call on its own thread, all started together; returns results in order."""
    results = [None] * len(calls)
    errors = []
    barrier = threading.Barrier(len(calls))

    def work(i):
        try:
            barrier.wait()
            results[i] = calls[i]()
        except BaseException as error:  # noqa: B902 - a thread's failure fails the test
            errors.append(error)

    threads = [threading.Thread(target=work, args=(i,)) for i in range(len(calls))]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert not errors, errors
    return results


def test_different_inputs_on_eight_threads_equal_cpp(kivlut, reference):
    rng = np.random.default_rng(21)
    lut = kivlut.LUTSetting()
    dtypes = [np.uint8, np.int8, np.uint16, np.int16, np.int32, np.float32, np.float64,
              np.uint16]
    frames = [random_range_pixels(rng, d, (120 + i, 160 - i)) for i, d in enumerate(dtypes)]
    for pixels in frames:
        reference.add("cm_image", **range_arguments(pixels), map=1)
    wanted = [r.out for r in reference.run()]
    for _ in range(3):
        got = run_in_threads([lambda p=p: lut.color_map_lut(kivlut.RangeImage(p), 1)
                              for p in frames])
        for g, w in zip(got, wanted):
            assert np.array_equal(g.reshape(w.shape), w)


def test_the_same_input_on_eight_threads_equals_cpp(kivlut, reference):
    rng = np.random.default_rng(22)
    pixels = random_range_pixels(rng, np.float32, (240, 320))
    floats = random_range_pixels(rng, np.float32, (50000,))
    reference.add("lin_image", **range_arguments(pixels), map=6)
    reference.add("cm_image", **range_arguments(pixels), map=3)
    reference.add("linset_floats", floats=floats, min=-30.0, max=60.0, map=2)
    linear, equalised, flat = reference.run()
    image = kivlut.RangeImage(pixels)
    lut = kivlut.LUTSetting()
    # One image object and one LUTSetting shared by every thread.
    for call, want in ((lambda: lut.linear_color_map_lut(image, 6), linear.out),
                       (lambda: lut.color_map_lut(image, 3), equalised.out),
                       (lambda: lut.linear_set_color_lut(floats, -30.0, 60.0, 2), flat.out)):
        for got in run_in_threads([call] * THREADS):
            assert np.array_equal(got.reshape(want.shape), want)
    for got in run_in_threads([lambda: kivlut.colorize(pixels, mode="equalize")[0]] * THREADS):
        assert np.array_equal(got, kivlut.colorize(pixels, mode="equalize")[0])


def test_the_gil_is_released_during_a_long_call(kivlut):
    rng = np.random.default_rng(23)
    pixels = random_range_pixels(rng, np.float64, (3000, 4000))
    image = kivlut.RangeImage(pixels)
    lut = kivlut.LUTSetting()
    # How long one call takes, to size the test to this machine.
    started = time.perf_counter()
    lut.set_color_normal_map(image, (10.0, 20.0, 300.0), (0.0, 0.0, 500.0), 1, 1.0, 0.3, 0.5,
                             0.2)
    alone = time.perf_counter() - started
    calls = max(1, int(1.0 / max(alone, 1e-3)))

    counts = []
    done = threading.Event()

    def count():
        n = 0
        while not done.is_set():
            n += 1
        counts.append(n)

    # While C++ runs, a pure-Python counter gets the interpreter only if the GIL is released.
    counter = threading.Thread(target=count)
    busy_started = time.perf_counter()
    counter.start()
    for _ in range(calls):
        lut.set_color_normal_map(image, (10.0, 20.0, 300.0), (0.0, 0.0, 500.0), 1, 1.0, 0.3,
                                 0.5, 0.2)
    busy = time.perf_counter() - busy_started
    done.set()
    counter.join()

    # The same counter alone for as long, for its rate on this machine.
    done.clear()
    solo = threading.Thread(target=count)
    solo.start()
    time.sleep(busy)
    done.set()
    solo.join()
    during, alone_count = counts
    # With the GIL held the counter runs only between calls (a few switch intervals); released,
    # it keeps counting through them at a rate comparable with its rate alone.
    assert during > 0.15 * alone_count, (during, alone_count, calls, busy)
