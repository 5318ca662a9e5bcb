"""Type hints of kivlut: KivLUTSetting for numpy."""

from typing import Literal, Optional, Tuple, Union, overload

import numpy as np
import numpy.typing as npt

LUT_OK: int

Color = Union[Tuple[int, int, int], Tuple[int, int, int, int]]
"""A KivColor: components in order (c0, c1, c2[, c3])."""
Rgb = Tuple[int, int, int]
Vector3 = Tuple[float, float, float]
PixelArray = npt.NDArray[
    Union[np.uint8, np.int8, np.uint16, np.int16, np.int32, np.float32, np.float64]
]
UInt8Array = npt.NDArray[np.uint8]

class LUTError(Exception):
    """A method refused its input or failed."""

    status: int
    name: str
    def __init__(self, status: int, name: str) -> None: ...

class LinearColorMapLUT_Para:
    """The five-point scale: break values and the 1024-entry table entries they map to."""

    value0: float
    value1: float
    value2: float
    value3: float
    value4: float
    index0: int
    index1: int
    index2: int
    index3: int
    index4: int
    def __init__(
        self,
        value0: float = 0.0,
        value1: float = 0.0,
        value2: float = 0.0,
        value3: float = 0.0,
        value4: float = 0.0,
        index0: int = 0,
        index1: int = 0,
        index2: int = 0,
        index3: int = 0,
        index4: int = 0,
    ) -> None: ...

class RangeImage:
    """A range image over a 2-D numpy array of one of the seven pixel types."""

    def __init__(
        self,
        array: PixelArray,
        resolution: Tuple[float, float, float] = (1.0, 1.0, 1.0),
        offset: Tuple[float, float, float] = (0.0, 0.0, 0.0),
        type: int = 0,
    ) -> None: ...
    @property
    def array(self) -> PixelArray: ...
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    @property
    def dtype(self) -> np.dtype: ...
    @property
    def resolution(self) -> Tuple[float, float, float]: ...
    @property
    def offset(self) -> Tuple[float, float, float]: ...
    type: int

class LUTSetting:
    """KivLUTSetting: every method in snake_case; outputs blue first."""

    def __init__(self) -> None: ...
    def get_color(self, value: float, map_type: int) -> Tuple[int, int, int]: ...
    @overload
    def color_map_lut(self, image: RangeImage, map_type: int) -> UInt8Array: ...
    @overload
    def color_map_lut(
        self, image: RangeImage, map_type: int, low: float, high: float
    ) -> UInt8Array: ...
    @overload
    def color_map_lut(
        self,
        image: RangeImage,
        map_type: int,
        low: float,
        high: float,
        lo: int,
        hi: int,
        below: Color,
        above: Color,
    ) -> UInt8Array: ...
    @overload
    def color_map_lut(
        self, values: npt.NDArray[np.int32], map_type: int, low: int, high: int
    ) -> UInt8Array: ...
    @overload
    def color_map_lut(
        self,
        image: RangeImage,
        para: LinearColorMapLUT_Para,
        under_color: Color,
        over_color: Color,
        map_type: int,
        automatic: bool,
        size_a: int,
        size_b: int,
    ) -> Tuple[UInt8Array, list, list]: ...
    @overload
    def linear_color_map_lut(self, image: RangeImage, map_type: int) -> UInt8Array: ...
    @overload
    def linear_color_map_lut(
        self, image: RangeImage, map_type: int, low: float, high: float
    ) -> UInt8Array: ...
    @overload
    def linear_color_map_lut(
        self,
        image: RangeImage,
        map_type: int,
        low: float,
        high: float,
        index_low: int,
        index_high: int,
        under_color: Color,
        over_color: Color,
    ) -> UInt8Array: ...
    @overload
    def linear_color_map_lut(
        self, image: RangeImage, map_type: int, *, upper_fraction: float, lower_fraction: float
    ) -> UInt8Array: ...
    @overload
    def linear_color_map_lut(
        self,
        image: RangeImage,
        para: LinearColorMapLUT_Para,
        under_color: Color,
        over_color: Color,
        map_type: int,
        automatic: bool,
    ) -> UInt8Array: ...
    @overload
    def linear_color_map_lut(
        self,
        values: npt.NDArray[np.float32],
        para: LinearColorMapLUT_Para,
        under_color: Color,
        over_color: Color,
        map_type: int,
        automatic: bool,
    ) -> UInt8Array: ...
    @overload
    def set_color_lut(
        self, src: npt.NDArray[Union[np.uint8, np.uint16]], map_type: int
    ) -> UInt8Array: ...
    @overload
    def set_color_lut(
        self,
        src: npt.NDArray[Union[np.uint8, np.uint16]],
        map_type: int,
        low: int,
        high: int,
        index_low: int,
        index_high: int,
        below: Color,
        above: Color,
    ) -> UInt8Array: ...
    @overload
    def set_color_lut(
        self, values: npt.NDArray[np.float32], min_value: float, max_value: float, map_type: int
    ) -> UInt8Array: ...
    @overload
    def linear_set_color_lut(
        self, src: npt.NDArray[Union[np.uint8, np.uint16]], map_type: int
    ) -> UInt8Array: ...
    @overload
    def linear_set_color_lut(
        self, values: npt.NDArray[np.float32], min_value: float, max_value: float, map_type: int
    ) -> UInt8Array: ...
    @overload
    def set_color_normal_map(self, normals: npt.NDArray[np.float32]) -> UInt8Array: ...
    @overload
    def set_color_normal_map(
        self,
        image: RangeImage,
        vector_a: Vector3,
        vector_b: Vector3,
        mode: int,
        coef_a: float,
        coef_b: float,
        coef_c: float,
        coef_d: float,
    ) -> UInt8Array: ...
    def set_color_normal_map_phong(self, image: RangeImage) -> UInt8Array: ...
    def color_blend(self, a: UInt8Array, b: UInt8Array, alpha: float) -> UInt8Array: ...

class ColoringInfo:
    """What a colorize() call measured and used."""

    @property
    def mode(self) -> str: ...
    @property
    def cmap(self) -> str: ...
    @property
    def minimum(self) -> float: ...
    @property
    def maximum(self) -> float: ...
    @property
    def valid_count(self) -> int: ...
    @property
    def no_data_count(self) -> int: ...
    @property
    def low(self) -> float: ...
    @property
    def high(self) -> float: ...
    @property
    def entry_start(self) -> npt.NDArray[np.float64]: ...
    @property
    def below_color(self) -> Optional[Rgb]: ...
    @property
    def above_color(self) -> Optional[Rgb]: ...
    def table_position(self, value: float) -> float: ...

class SequenceColorizer:
    """Colours frame after frame with a mapping carried over frames, so colours hold still."""

    def __init__(
        self,
        cmap: str = "rainbow",
        mode: Literal["equalize", "linear", "percentile"] = "equalize",
        *,
        time_constant: float = 10.0,
        low: Optional[float] = None,
        high: Optional[float] = None,
        percentiles: Tuple[float, float] = (1.0, 99.0),
        dead_band: float = 0.02,
        hold_frames: int = 3,
        entry_tolerance: float = 1.0,
        nodata_color: Optional[Rgb] = None,
        below_color: Optional[Rgb] = None,
        above_color: Optional[Rgb] = None,
        alpha: bool = False,
    ) -> None: ...
    def colorize(
        self,
        frame: Union[RangeImage, PixelArray],
        *,
        resolution_z: float = 1.0,
        offset_z: float = 0.0,
    ) -> Tuple[UInt8Array, ColoringInfo]: ...
    def reset(self) -> None: ...
    def current_mapping(self) -> ColoringInfo: ...
    @property
    def frames_seen(self) -> int: ...

def cmaps() -> list[str]: ...
def colorize(
    data: Union[RangeImage, PixelArray],
    mode: Literal["equalize", "linear", "percentile"] = "equalize",
    cmap: str = "rainbow",
    *,
    low: Optional[float] = None,
    high: Optional[float] = None,
    percentiles: Tuple[float, float] = (1.0, 99.0),
    nodata_color: Optional[Rgb] = None,
    below_color: Optional[Rgb] = None,
    above_color: Optional[Rgb] = None,
    alpha: bool = False,
    resolution_z: float = 1.0,
    offset_z: float = 0.0,
) -> Tuple[UInt8Array, ColoringInfo]: ...
def colorbar(
    info: ColoringInfo,
    *,
    cmap: Optional[str] = None,
    vertical: bool = True,
    length: int = 256,
    thickness: int = 20,
    unit: str = "mm",
    ticks: int = 5,
    end_caps: bool = True,
    below_color: Optional[Rgb] = None,
    above_color: Optional[Rgb] = None,
    text_color: Rgb = (0, 0, 0),
    background: Rgb = (255, 255, 255),
    font_scale: float = 0.4,
) -> UInt8Array: ...
def attach_colorbar(
    picture: UInt8Array, bar: UInt8Array, *, vertical: bool = True, background: Rgb = (255, 255, 255)
) -> UInt8Array: ...
def read_image(path: str) -> npt.NDArray: ...
def write_image(path: str, picture: npt.NDArray) -> None: ...
