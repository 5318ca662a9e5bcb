#!/usr/bin/python3
"""Colours a depth frame with kivlut and saves it as a PNG with a colour bar.

    colour_real_frame.py [FRAME] [-o OUT.png] [--cmap turbo] [--mode equalize] [--scale 1.0]

FRAME is a 16-bit depth PNG or TIFF (raw units; --scale gives millimetres per unit) or a float PFM
(metres). Without FRAME it takes the first PCL frame of ../shared/data/ beside the repository.
"""

import argparse
import sys
from pathlib import Path

import numpy as np

import kivlut

DEFAULT_FRAME = (Path(__file__).resolve().parents[2] / ".." / "shared" / "data" / "pcl" /
                 "frame_20121214T142255.814212_depth.tiff")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("frame", nargs="?", default=str(DEFAULT_FRAME))
    parser.add_argument("-o", "--output", default="depth_coloured.png")
    parser.add_argument("--cmap", default="turbo", choices=[*kivlut.cmaps(), *(n + "_r" for n in kivlut.cmaps())])
    parser.add_argument("--mode", default="equalize", choices=["equalize", "linear", "percentile"])
    parser.add_argument("--scale", type=float, default=1.0, help="millimetres per raw unit")
    args = parser.parse_args()

    if not Path(args.frame).exists():
        print(f"no frame at {args.frame}; pass the path of a depth image", file=sys.stderr)
        return 2
    depth = kivlut.read_image(args.frame)  # (480, 640) uint16, or float32 metres for a PFM
    if depth.dtype == np.float32:
        depth = depth * np.float32(1000.0)  # metres to millimetres; NaN stays no-data

    # The pythonic layer: RGB for matplotlib and PIL, and the scale it used for the colour bar.
    rgb, info = kivlut.colorize(depth, mode=args.mode, cmap=args.cmap, resolution_z=args.scale)
    bar = kivlut.colorbar(info, unit="mm", length=depth.shape[0] - 40)
    kivlut.write_image(args.output, kivlut.attach_colorbar(rgb, bar))
    print(f"{args.output}: {info.valid_count} heights from {info.minimum:.0f} to {info.maximum:.0f} mm, "
          f"{info.no_data_count} without data, coloured by {args.mode} through {info.cmap}")

    # The faithful layer: KivLUTSetting's own equalised rainbow, blue first as in C++ and cv2.
    lut = kivlut.LUTSetting()
    if depth.dtype == np.uint16:
        bgr = lut.color_map_lut(kivlut.RangeImage(depth, resolution=(1.0, 1.0, args.scale)), 1)
        print(f"KivLUTSetting's rainbow: {bgr.shape}, first pixel (blue, green, red) {tuple(bgr[0, 0])}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
