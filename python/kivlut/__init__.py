"""KivLUTSetting for numpy: colour pictures from range images, grey images and value arrays.

The faithful layer, LUTSetting, has every method of the C++ class KivLUTSetting under its name in
snake_case, byte for byte; the pythonic layer, colorize() and colorbar(), returns RGB pictures
ready for matplotlib and PIL, and SequenceColorizer colours frame after frame with colours that
hold still. See help(kivlut.LUTSetting), help(kivlut.colorize) and help(kivlut.SequenceColorizer).
"""

from ._kivlut import (
    LUT_OK,
    ColoringInfo,
    LinearColorMapLUT_Para,
    LUTError,
    LUTSetting,
    RangeImage,
    SequenceColorizer,
    attach_colorbar,
    cmaps,
    colorbar,
    colorize,
    read_image,
    write_image,
)

__all__ = [
    "LUT_OK",
    "ColoringInfo",
    "LinearColorMapLUT_Para",
    "LUTError",
    "LUTSetting",
    "RangeImage",
    "SequenceColorizer",
    "attach_colorbar",
    "cmaps",
    "colorbar",
    "colorize",
    "read_image",
    "write_image",
]
