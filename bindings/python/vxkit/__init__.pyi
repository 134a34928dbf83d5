# SPDX-License-Identifier: Apache-2.0
from os import PathLike
from typing import Any, Dict, Iterable, Iterator, List, Literal, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

from ._objects import BurstReport as BurstReport
from ._objects import ClusterFilter as ClusterFilter
from ._objects import Enhancer as Enhancer
from ._objects import EqualiserBlock as EqualiserBlock
from ._objects import FixedPoint as FixedPoint
from ._objects import FixedPointFpga as FixedPointFpga
from ._objects import LocalMotion as LocalMotion
from ._objects import PeakingBlock as PeakingBlock
from ._objects import Phase as Phase
from ._objects import Production as Production
from ._objects import Reference as Reference
from ._objects import SingleFrame as SingleFrame
from ._objects import SpatialFilter as SpatialFilter
from ._objects import SpatialNoiseBlock as SpatialNoiseBlock
from ._objects import StaticPatternBlock as StaticPatternBlock
from ._objects import StaticPatternFilter as StaticPatternFilter
from ._objects import TemporalFilter as TemporalFilter
from ._objects import TemporalNoiseBlock as TemporalNoiseBlock
from ._objects import Unsharp as Unsharp

__version__: str

_Path = Union[str, bytes, "PathLike[str]", "PathLike[bytes]"]
_Array = npt.NDArray[Any]
_Frames = Union[npt.ArrayLike, "Recording"]
_Endian = Literal["little", "big"]

class Error(RuntimeError):
    code: Optional[int]

class Recording:
    ndim: int
    paths: Tuple[str, ...]
    @property
    def shape(self) -> Tuple[int, int, int]: ...
    @property
    def dtype(self) -> "np.dtype[Any]": ...
    @property
    def first_number(self) -> int: ...
    def __len__(self) -> int: ...
    def __getitem__(self, index: Any) -> _Array: ...
    def __iter__(self) -> Iterator[_Array]: ...
    def __array__(self, dtype: Any = ..., copy: Optional[bool] = ...) -> _Array: ...
    def read_into(self, index: int, out: _Array) -> _Array: ...
    def read_all(self) -> _Array: ...

def read(
    path: Union[_Path, Sequence[_Path]],
    *,
    size: Union[None, str, Tuple[int, int]] = ...,
    frames: Union[None, str, Tuple[int, int]] = ...,
    dtype: Optional[npt.DTypeLike] = ...,
    endian: Optional[_Endian] = ...,
    header: int = ...,
    frame_header: int = ...,
    dataset: Optional[str] = ...,
) -> Recording: ...
def write(
    path: _Path,
    frames: Union[_Frames, Iterable[npt.ArrayLike]],
    *,
    force: bool = ...,
    format: Optional[str] = ...,
    fps: float = ...,
    range: Union[None, str, Tuple[int, int]] = ...,
    colour_map: Optional[str] = ...,
    endian: _Endian = ...,
) -> str: ...
def formats() -> List[Dict[str, Any]]: ...

class SuperresResult:
    image: npt.NDArray[np.float32]
    code: int
    message: str
    shifts: npt.NDArray[np.float64]
    usable: npt.NDArray[np.float64]
    iterations: Optional[int]
    factor: Optional[float]
    confidence: Optional[npt.NDArray[np.float32]]
    predicted_gain: Optional[float]
    chose_single: bool

def superres(
    frames: _Frames,
    *,
    engine: Literal["production", "phase", "reference", "fixed", "fpga"] = ...,
    motion: Literal["global", "local", "single", "auto"] = ...,
    window: Optional[int] = ...,
    reference: Optional[int] = ...,
    camera: Optional[str] = ...,
    psf_sigma: Optional[float] = ...,
    relative_residue: Optional[float] = ...,
    iterations: Optional[int] = ...,
    weight: Optional[float] = ...,
    registration_error: Optional[float] = ...,
    scale: Optional[float] = ...,
    offset: Optional[float] = ...,
) -> SuperresResult: ...

class Comparison:
    psnr: float
    ssim: float
    largest_difference: float
    shift: Tuple[float, float]
    margin: int

def compare(image: npt.ArrayLike, reference: npt.ArrayLike, *, margin: int = ..., align: bool = ...) -> Comparison: ...

class Survey:
    noise: float
    bad_pixels: Optional[npt.NDArray[np.uint8]]
    scale: float
    offset: float

class Enhanced:
    shape: Tuple[int, int, int]
    dtype: "np.dtype[Any]"
    survey: Survey
    def __len__(self) -> int: ...
    def __iter__(self) -> Iterator[_Array]: ...
    def __array__(self, dtype: Any = ..., copy: Optional[bool] = ...) -> _Array: ...
    def into(self, out: _Array) -> _Array: ...

_BadPixels = Union[_Path, npt.NDArray[np.uint8], npt.NDArray[np.bool_]]

def survey(
    frames: _Frames,
    *,
    bad_pixels: _BadPixels = ...,
    signed: bool = ...,
    scale: Optional[float] = ...,
    offset: Optional[float] = ...,
) -> Survey: ...
def enhance_frames(
    frames: _Frames,
    look: Optional[str] = ...,
    *,
    settings_file: Optional[_Path] = ...,
    bad_pixels: _BadPixels = ...,
    lookahead: int = ...,
    lookbehind: int = ...,
    signed: bool = ...,
    scale: Optional[float] = ...,
    offset: Optional[float] = ...,
    survey: Optional[Survey] = ...,
    **settings: Union[int, bool, str],
) -> Enhanced: ...
def enhance(
    frames: _Frames,
    look: Optional[str] = ...,
    *,
    out: Optional[_Array] = ...,
    settings_file: Optional[_Path] = ...,
    bad_pixels: _BadPixels = ...,
    lookahead: int = ...,
    lookbehind: int = ...,
    signed: bool = ...,
    scale: Optional[float] = ...,
    offset: Optional[float] = ...,
    survey: Optional[Survey] = ...,
    **settings: Union[int, bool, str],
) -> _Array: ...
def looks() -> Dict[str, str]: ...

class Burst:
    frames: npt.NDArray[np.float32]
    shifts: npt.NDArray[np.float64]
    truth: npt.NDArray[np.float32]

class SimulatedRecording:
    ndim: int
    shape: Tuple[int, int, int]
    dtype: "np.dtype[np.float32]"
    shifts: npt.NDArray[np.float64]
    def __len__(self) -> int: ...
    def __iter__(self) -> Iterator[npt.NDArray[np.float32]]: ...
    def __array__(self, dtype: Any = ..., copy: Optional[bool] = ...) -> _Array: ...
    def __getitem__(self, index: Any) -> npt.NDArray[np.float32]: ...
    def ideal(self, index: int) -> npt.NDArray[np.float32]: ...
    def read_all(self) -> npt.NDArray[np.float32]: ...

def simulate_burst(
    scene: str = ..., *, width: int = ..., height: int = ..., frames: int = ..., seed: int = ...,
    **settings: Union[float, bool, str],
) -> Burst: ...
def simulate_recording(
    scene: str = ..., *, width: int = ..., height: int = ..., frames: int = ..., seed: int = ...,
    **settings: Union[float, bool, str],
) -> SimulatedRecording: ...
def set_threads(threads: int) -> None: ...
def set_log_level(level: Literal["warning", "info", "debug", "trace"]) -> None: ...
