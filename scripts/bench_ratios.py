#!/usr/bin/python3
"""Prints the speed table of scripts/bench_ratios.sh from the benchmark's JSON: for every mapping
with a target, its nanoseconds per pixel, its ratio to the OpenCV path measured in the same
process, the target, and whether it holds. Exits with status 1 when a target is missed.

    bench_ratios.py RESULTS.json [--before EARLIER.json]
"""
import argparse
import json
import sys

EQUALISED = "NormalizeEqualizeApplyColorMap"
LINEAR = "NormalizeApplyColorMap"

# (case, anchor, target at 640 x 480 and above or None, stretch goal or None). A case without a
# target must not be slower than in the earlier run (--before). On the smallest frames, below
# 640 x 480, every case must simply beat its anchor.
CASES = [
    ("F32_ColorMapLUT_DataRange", f"{EQUALISED}_F32", 1.0, 0.7),
    ("F32_ColorMapLUT_Bounds", f"{EQUALISED}_F32", 1.0, 0.7),
    ("F32_ColorMapLUT_ColourRange", f"{EQUALISED}_F32", 1.0, 0.7),
    ("F32_LinearColorMapLUT_B_Bounds", f"{LINEAR}_F32", 0.8, 0.6),
    ("F32_LinearColorMapLUT_C_DataRange", f"{LINEAR}_F32", 0.8, 0.6),
    ("F32_LinearColorMapLUT_D_Fractions", f"{LINEAR}_F32", 2.0, None),
    ("Grey8_SetColorLUT_Equalised", "EqualizeApplyColorMap_Grey8", 1.0, None),
    ("Grey8_SetColorLUT_Banded", "ApplyColorMap_Grey8", 1.0, None),
    ("Grey16_LinearSetColorLUT", f"{LINEAR}_Grey16", 0.8, None),
    ("FloatArray_LinearSetColorLUT", f"{LINEAR}_F32", 0.8, None),
    ("FloatArray_SetColorLUT", f"{EQUALISED}_F32", 1.0, None),
    ("U16_LinearColorMapLUT_B_Bounds", f"{LINEAR}_U16", 0.5, None),
    ("U16_ColorMapLUT_DataRange", f"{EQUALISED}_U16", 0.5, None),
    ("U16_ColorMapLUT_Bounds", f"{EQUALISED}_U16", None, None),
    ("U16_ColorMapLUT_ColourRange", f"{EQUALISED}_U16", None, None),
    ("U16_LinearColorMapLUT_A_Colours", f"{LINEAR}_U16", None, None),
    ("U16_LinearColorMapLUT_C_DataRange", f"{LINEAR}_U16", None, None),
    ("U16_LinearColorMapLUT_Para", f"{LINEAR}_U16", None, None),
]
SMALL_PIXELS = 640 * 480
# An earlier ratio counts as matched when the new one is at most this much above it: the medians
# of a shared 2-core machine move by a few per cent from run to run.
NOISE = 1.05
UNITS = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}


def load(path):
    """{(case, width, height): milliseconds} of the medians, and the run's context."""
    with open(path, encoding="utf-8") as handle:
        data = json.load(handle)
    medians = {}
    for bench in data["benchmarks"]:
        if bench.get("aggregate_name", "median") != "median" or bench.get("error_occurred"):
            continue
        parts = bench["run_name"].split("/")
        key = (parts[0].removeprefix("BM_").removeprefix("Anchor_"), int(parts[1]), int(parts[2]))
        medians[key] = bench["real_time"] * UNITS[bench["time_unit"]]
    return medians, data.get("context", {})


def ratios(medians):
    table = {}
    for case, anchor, _, _ in CASES:
        for (name, width, height), ms in medians.items():
            if name == case and (anchor, width, height) in medians:
                table[(case, width, height)] = (ms, ms / medians[(anchor, width, height)])
    return table


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("results")
    parser.add_argument("--before")
    args = parser.parse_args()

    medians, context = load(args.results)
    after = ratios(medians)
    earlier = ratios(load(args.before)[0]) if args.before else {}
    print(f"host {context.get('host_name', '?')}, {context.get('num_cpus', '?')} CPUs, "
          f"{context.get('date', '')}; medians of the rounds, one process, interleaved")
    print("| case | frame | ns/px | x OpenCV | before | target | |")
    print("|---|---|---|---|---|---|---|")
    missed = []
    sizes = sorted({(w, h) for _, w, h in after}, key=lambda s: s[0] * s[1])
    for case, anchor, target, stretch in CASES:
        for width, height in sizes:
            key = (case, width, height)
            if key not in after:
                continue
            ms, ratio = after[key]
            old = earlier.get(key)
            if width * height < SMALL_PIXELS:
                goal, text = 1.0, "<= 1.0"
            elif target is not None:
                goal, text = target, f"<= {target:.1f}" + (f" ({stretch:.1f})" if stretch else "")
            elif old is not None:
                goal, text = old[1] * NOISE, "no slower"
            else:
                goal, text = None, "-"
            verdict = "-" if goal is None else ("ok" if ratio <= goal else "MISSED")
            if verdict == "MISSED":
                missed.append(f"{case} {width}x{height}: {ratio:.2f}x, target {text}")
            ns_per_pixel = ms * 1e6 / (width * height)
            before_text = f"{old[1]:.2f}x" if old else "-"
            print(f"| {case} | {width} x {height} | {ns_per_pixel:.2f} | {ratio:.2f}x | "
                  f"{before_text} | {text} | {verdict} |")
    for line in missed:
        print(f"bench_ratios: missed: {line}", file=sys.stderr)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
