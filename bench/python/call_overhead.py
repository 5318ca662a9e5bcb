#!/usr/bin/python3
"""What a kivlut call costs from Python over the same call in C++ that allocates a fresh output.

Writes one frame of each kind, then alternates rounds: timeit on the Python calls, and the C++ twin
(python_call_overhead_bench) on the same frames. Prints the median time per call of each and their
ratio; the target is a ratio under 1.05 on 640 x 480.

    PYTHONPATH=<staged site-packages> /usr/bin/python3 call_overhead.py --bench <twin executable>
"""

import argparse
import json
import statistics
import subprocess
import sys
import tempfile
import timeit
from pathlib import Path

import numpy as np

import kivlut


def frames(width, height):
    """A smooth height field with 1 % no-data, as 16-bit raw units, float32 mm and 8-bit grey."""
    rng = np.random.default_rng(7)
    y, x = np.mgrid[0:height, 0:width]
    heights = 1000.0 + 40.0 * np.sin(x / 37.0) * np.cos(y / 53.0) + rng.normal(0.0, 0.5, (height, width))
    holes = rng.random((height, width)) < 0.01
    f32 = heights.astype(np.float32)
    f32[holes] = np.nan
    u16 = np.round((heights - 900.0) * 300.0).astype(np.uint16)
    u16[holes] = 0
    grey8 = np.clip((heights - 950.0) * 2.5, 0, 255).astype(np.uint8)
    return {"u16": u16, "f32": f32, "grey8": grey8}


def python_calls(data):
    lut = kivlut.LUTSetting()
    u16 = kivlut.RangeImage(data["u16"], resolution=(1.0, 1.0, 0.001))
    f32 = kivlut.RangeImage(data["f32"])
    grey8 = data["grey8"]
    values = data["f32"].reshape(-1)
    return {
        "color_map_lut/u16": lambda: lut.color_map_lut(u16, 1),
        "linear_color_map_lut/f32": lambda: lut.linear_color_map_lut(f32, 6, 950.0, 1050.0),
        "set_color_lut/grey8": lambda: lut.set_color_lut(grey8, 1),
        "linear_set_color_lut/floats": lambda: lut.linear_set_color_lut(values, 950.0, 1050.0, 6),
    }


def time_python(call, seconds):
    timer = timeit.Timer(call)
    number, _ = timer.autorange()
    repeat = max(1, int(seconds / max(timer.timeit(number), 1e-6)))
    return min(timer.repeat(repeat=1, number=number * repeat)) / (number * repeat) * 1e6


def time_cpp(bench, folder, width, height, seconds):
    result = subprocess.run(
        [bench, f"--frames={folder}", f"--width={width}", f"--height={height}",
         f"--benchmark_min_time={seconds}", "--benchmark_format=json"],
        check=True, capture_output=True, text=True)
    return {b["name"]: b["real_time"] for b in json.loads(result.stdout)["benchmarks"]}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bench", required=True, help="the python_call_overhead_bench executable")
    parser.add_argument("--width", type=int, default=640)
    parser.add_argument("--height", type=int, default=480)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--seconds", type=float, default=0.3, help="per case and round")
    args = parser.parse_args()

    data = frames(args.width, args.height)
    calls = python_calls(data)
    python_us = {name: [] for name in calls}
    cpp_us = {name: [] for name in calls}
    with tempfile.TemporaryDirectory() as folder:
        for kind, array in data.items():
            array.tofile(Path(folder) / f"{kind}.bin")
        for _ in range(args.rounds):
            for name, call in calls.items():
                python_us[name].append(time_python(call, args.seconds))
            for name, us in time_cpp(args.bench, folder, args.width, args.height, args.seconds).items():
                cpp_us[name].append(us)

    print(f"{args.width} x {args.height}, medians of {args.rounds} interleaved rounds")
    print("| Call | C++ µs | Python µs | Python / C++ |")
    print("|---|---|---|---|")
    worst = 0.0
    for name in calls:
        cpp = statistics.median(cpp_us[name])
        py = statistics.median(python_us[name])
        worst = max(worst, py / cpp)
        print(f"| `{name}` | {cpp:.0f} | {py:.0f} | {py / cpp:.3f} |")
    print(f"worst ratio {worst:.3f} (target under 1.05)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
