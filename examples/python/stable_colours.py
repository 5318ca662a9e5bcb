#!/usr/bin/python3
"""Colours a generated depth stream frame by frame and with kivlut.SequenceColorizer, prints how much
each flickers, and saves a strip of frames: per-frame colouring on top, stable below.

    stable_colours.py [-o strip.png] [--mode equalize|linear] [--time-constant 10]

The stream: a static scene (tilted floor, a raised block, a slot) with sensor noise and dropouts,
a hand passing through, bursts of flying pixels far behind or in front of the scene, and from
frame 60 on every height 5 mm higher. Flicker is the mean absolute difference per byte between
consecutive frames, over pixels valid in both and away from the hand.
"""

import argparse
import sys

import numpy as np

import kivlut

WIDTH, HEIGHT, FRAMES, SHIFT = 200, 150, 100, 60
FLYING = {5, 11, 12, 24, 29, 40, 44, 45, 52, 66, 73, 74, 81, 88, 95}
STRIP = [10, 11, 12, 13, 26]  # a quiet frame, a burst of flying pixels, the hand


def stream(seed=2026):
    """Yields (heights in mm with NaN for no data, mask of the hand) frame by frame."""
    rng = np.random.default_rng(seed)
    y, x = np.mgrid[0:HEIGHT, 0:WIDTH]
    scene = 1000.0 + 0.3 * x - 0.2 * y
    scene[(x > 40) & (x < 90) & (y > 30) & (y < 80)] += 40.0
    scene[(x > 120) & (x < 130) & (y > 20)] -= 25.0
    for frame in range(FRAMES):
        heights = scene + 5.0 * (frame >= SHIFT)
        hand_x = (frame - 15) * 9 if 15 <= frame < 35 else -1000
        hand = (x >= hand_x) & (x < hand_x + 30) & (y > 50) & (y < 100)
        heights = np.where(hand, 1030.0 + 0.1 * (y - 50), heights)
        heights = (heights + rng.normal(0.0, 0.05, heights.shape)).astype(np.float32)
        heights[rng.random(heights.shape) < 0.02] = np.nan
        if frame in FLYING:
            flat = heights.reshape(-1)
            flat[rng.integers(0, flat.size, 20)] = 4000.0 if frame % 2 == 0 else 300.0
        yield heights, hand


def flicker(previous, current, heights_previous, heights, hand_previous, hand):
    keep = np.isfinite(heights_previous) & np.isfinite(heights) & ~hand_previous & ~hand
    difference = np.abs(previous.astype(np.int16) - current.astype(np.int16))[keep]
    return float(difference.mean()) if difference.size else 0.0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("-o", "--output", default="stable_strip.png")
    parser.add_argument("--mode", default="equalize", choices=["equalize", "linear"])
    parser.add_argument("--time-constant", type=float, default=10.0)
    args = parser.parse_args()

    stable = kivlut.SequenceColorizer("turbo", args.mode, time_constant=args.time_constant)
    totals = {"per-frame": 0.0, "stable": 0.0}
    previous = None
    tiles = {"per-frame": [], "stable": []}
    for frame, (heights, hand) in enumerate(stream()):
        pictures = {
            "per-frame": kivlut.colorize(heights, args.mode, "turbo")[0],
            "stable": stable.colorize(heights)[0],
        }
        if previous is not None:
            for kind, picture in pictures.items():
                totals[kind] += flicker(previous[0][kind], picture, previous[1], heights,
                                        previous[2], hand)
        previous = (pictures, heights, hand)
        if frame in STRIP:
            for kind, picture in pictures.items():
                tiles[kind].append(np.pad(picture, ((2, 2), (2, 2), (0, 0)), constant_values=255))

    per_frame = totals["per-frame"] / (FRAMES - 1)
    steady = totals["stable"] / (FRAMES - 1)
    print(f"flicker per byte ({args.mode}, time constant {args.time_constant:g} frames): "
          f"per-frame {per_frame:.2f}, stable {steady:.2f} ({steady / per_frame:.0%} of it)")
    strip = np.vstack([np.hstack(tiles["per-frame"]), np.hstack(tiles["stable"])])
    kivlut.write_image(args.output, strip)
    print(f"{args.output}: frames {', '.join(map(str, STRIP))}; per-frame on top, stable below")
    return 0


if __name__ == "__main__":
    sys.exit(main())
