#!/usr/bin/python3
"""Draws nanoseconds per pixel against frame size, for the library and the OpenCV paths, from the
JSON of scripts/bench_ratios.sh runs with one worker count each.

    plot_scaling.py OUT.png WORKERS=RESULTS.json [WORKERS=RESULTS.json ...]
"""
import sys

import matplotlib

import bench_ratios  # the medians of a run, read as the ratio table reads them

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402  (the backend is chosen first)

# Library cases and the OpenCV path each is compared with, in the colours of the plot.
SERIES = [
    ("F32_LinearColorMapLUT_B_Bounds", "linear, float heights", "tab:blue", "-"),
    ("NormalizeApplyColorMap_F32", "OpenCV normalize + applyColorMap", "tab:blue", ":"),
    ("F32_ColorMapLUT_DataRange", "equalised, float heights", "tab:red", "-"),
    ("NormalizeEqualizeApplyColorMap_F32",
     "OpenCV normalize + equalizeHist + applyColorMap", "tab:red", ":"),
    ("U16_LinearColorMapLUT_B_Bounds", "linear, 16-bit heights", "tab:green", "-"),
    ("NormalizeApplyColorMap_U16", "OpenCV normalize + applyColorMap, 16-bit", "tab:green",
     ":"),
]


def points_of(path):
    """{case: [(megapixels, ns per pixel), ...]} of one run."""
    points = {}
    for (name, width, height), ms in bench_ratios.load(path)[0].items():
        pixels = width * height
        points.setdefault(name, []).append((pixels / 1e6, ms * 1e6 / pixels))
    return points


def main():
    if len(sys.argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    out = sys.argv[1]
    runs = [argument.split("=", 1) for argument in sys.argv[2:]]
    figure, axes = plt.subplots(1, len(runs), figsize=(6 * len(runs), 4.5), sharey=True,
                                squeeze=False)
    for axis, (workers, path) in zip(axes[0], runs):
        points = points_of(path)
        for case, label, colour, style in SERIES:
            if case not in points:
                continue
            xs, ys = zip(*sorted(points[case]))
            axis.plot(xs, ys, style, color=colour, marker="o", markersize=3, label=label)
        axis.set_xscale("log")
        axis.set_xlabel("frame size, megapixels")
        axis.set_title(f"{workers} worker{'s' if workers != '1' else ''}")
        axis.grid(True, which="both", alpha=0.3)
    axes[0][0].set_ylabel("ns per pixel (lower is better)")
    axes[0][-1].legend(fontsize=7)
    figure.tight_layout()
    figure.savefig(out, dpi=110)
    return 0


if __name__ == "__main__":
    sys.exit(main())
