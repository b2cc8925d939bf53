"""Type stubs of the compiled part of psdkit (documents, layers, descriptors). Document.tree,
walk() and __iter__ are added by the package (psdkit/__init__.py)."""

import os
import datetime
from typing import Any, Dict, Iterator, List, Optional, Tuple, Union

import numpy as np
import numpy.typing as npt

from ._tree import Node
from .descriptors import Descriptor

__version__: str

Bounds = Tuple[int, int, int, int]
Pixels = npt.NDArray[Union[np.uint8, np.uint16, np.float32]]
BytesLike = Union[bytes, bytearray, memoryview]
RawBlock = Tuple[str, str, bytes, bool]
Properties = Dict[str, Any]
"""Values: dict, list, int, float, bool, str, bytes, datetime.datetime (UTC), psdkit.Code."""

def open(source: Union[str, os.PathLike, BytesLike], *, keep_unknown_blocks: bool = False,
         decoding: str = "eager", threads: int = 0) -> Document:
    """Reads a PSD or PSB document from a path (mapped: do not shorten the file meanwhile) or from
    the file's bytes. decoding: 'eager', 'on_demand' (layers decoded when asked for: the fast way
    to read every layer's pixels) or 'never'. Raises PSDError (with .case) or OSError. Releases
    the GIL."""

def read_descriptor(data: BytesLike) -> Descriptor:
    """Reads a top-level descriptor (version word first). Raises PSDError."""

def write_descriptor(descriptor: dict) -> bytes:
    """The bytes of a top-level descriptor. Raises PSDError."""

def set_host(bundle_identifier: Optional[str], display_name: Optional[str] = None) -> None:
    """Names the program, process-wide; `properties` are read and saved under bundle_identifier."""

class Layer:
    """One layer record, its pixels, mask and kept blocks; shared with its document."""
    def __init__(self, depth: int = 8) -> None: ...
    name: str
    layer_id: int
    color_label: int
    kind: str
    """'regular', 'group', 'sectionDivider', 'sceneGroup', 'artboard' or 'adjustmentLayer(<kind>)'."""
    subtype: str
    selected: bool
    targeted: bool
    expanded: bool
    bbox: Bounds
    """(left, top, right, bottom)."""
    blend_mode: str
    opacity: float
    fill_opacity: float
    clipping: bool
    lock_flags: int
    visible: bool
    pixel_data_irrelevant: bool
    blending_ranges: Optional[bytes]
    has_mask: bool
    mask_bbox: Bounds
    mask_default_color: float
    mask_relative_to_layer: bool
    mask_disabled: bool
    mask_from_rendering: bool
    has_user_mask_density: bool
    user_mask_density: float
    has_user_mask_feather: bool
    user_mask_feather: float
    has_vector_mask_density: bool
    vector_mask_density: float
    has_vector_mask_feather: bool
    vector_mask_feather: float
    has_real_flags: bool
    real_mask_relative_to_layer: bool
    real_mask_disabled: bool
    real_mask_from_rendering: bool
    real_mask_default_color: float
    real_mask_bbox: Bounds
    pixels: Optional[Pixels]
    """(height, width, 4) RGBA; 16/32-bit arrays share the layer's buffer, 8-bit ones are new
    arrays. The fast path to numpy: open(..., decoding='on_demand'), then pixels (an 8-bit layer is
    decoded straight into its array on every core; the layer keeps no copy)."""
    def take_pixels(self) -> Optional[Pixels]:
        """Moves the pixels out of the layer without copying a decoded image; the layer is left
        without pixels."""
    mask: Optional[Pixels]
    """(height, width)."""
    @property
    def depth(self) -> int: ...
    tagged_blocks: dict[str, bytes]
    uninterpreted_blocks: List[RawBlock]
    properties: Properties
    """The program's own properties of the layer (read from the document's 'PSD Layers')."""

class Document:
    """One PSD or PSB document in memory."""
    def __init__(self, width: int, height: int, depth: int = 8) -> None: ...
    width: int
    height: int
    @property
    def depth(self) -> int: ...
    channels: int
    is_psb: bool
    resolution: Tuple[float, float]
    resolution_units: Tuple[int, int]
    size_units: Tuple[int, int]
    @property
    def color_mode(self) -> str: ...
    enable_layer_effects: bool
    global_light_angle: int
    global_light_altitude: int
    layers: List[Layer]
    """Flat, file order, bottom first; groups open with a 'group' layer above their members and
    close with a 'sectionDivider' below them."""
    image_resources: List[Tuple[int, str, bytes]]
    tagged_blocks: dict[str, bytes]
    uninterpreted_blocks: List[RawBlock]
    icc_profile: Optional[bytes]
    xmp: Optional[bytes]
    """The metadata as one XMP packet; None when there is none (setting None removes it)."""
    @property
    def metadata(self) -> Dict[str, str]:
        """The metadata's properties, {'Xmp.dc.title': text, ...}."""
    properties: Properties
    """The program's own properties, stored under the bundle identifier given to set_host."""
    def composite(self) -> Optional[Pixels]: ...
    @property
    def alpha_channels(self) -> List[Tuple[Optional[str], Pixels]]: ...
    def add_alpha_channel(self, name: Optional[str], pixels: Pixels) -> None: ...
    def add_layer(self, name: str, pixels: Optional[Pixels] = None, left: int = 0, top: int = 0,
                  opacity: float = 1.0, blend_mode: str = "norm", visible: bool = True,
                  mask: Optional[Pixels] = None) -> Layer: ...
    def add_divider(self) -> None: ...
    def to_bytes(self, composite: Optional[Pixels] = None) -> bytes: ...
    def save(self, path: Union[str, os.PathLike], composite: Optional[Pixels] = None) -> None: ...
    # Added by the package:
    @property
    def tree(self) -> List[Node]: ...
    def walk(self) -> Iterator[Tuple[int, Node]]: ...
    def __iter__(self) -> Iterator[Node]: ...
    def render(self, scale: float = 1.0, region: Optional[Tuple[int, int, int, int]] = None,
               threads: int = 0) -> Pixels:
        """The layers rendered by the library's compositor, (height, width, 4) RGBA."""
