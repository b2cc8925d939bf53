"""psdkit: read and write layered PSD and PSB documents, with pixels as numpy arrays.

    import psdkit
    doc = psdkit.open("design.psd")
    for depth, node in doc.walk():
        print("  " * depth, node.name, node.kind, node.bbox)

The compiled part (psdkit._psdkit) binds the C++ library; this package adds the layer tree, the
descriptor values and the exceptions.
"""

from __future__ import annotations

from typing import Iterator, List, Optional, Tuple

import numpy  # noqa: F401  (pixels are numpy arrays: numpy loads with the package, not at the first pixel call)

from . import _tree
from ._psdkit import Document, Layer, __version__, open, read_descriptor, set_host, write_descriptor
from .descriptors import Code, Descriptor, Enumerated, UnitFloat
from .errors import ImageError, PlatformError, PSDError

__all__ = [
    "Document", "Layer", "Node", "open", "read_descriptor", "write_descriptor", "layer_descriptor", "set_host",
    "Code", "Descriptor", "Enumerated", "UnitFloat", "PSDError", "ImageError", "PlatformError",
    "__version__",
]

Node = _tree.Node

# Bytes before the descriptor's version word in the layer blocks that hold one: 0 where the block
# is the descriptor, 4 after an effects version (lfx2), a colour-lookup version (clrL) or a key (vscg).
_DESCRIPTOR_OFFSETS = {"SoCo": 0, "GdFl": 0, "PtFl": 0, "vstk": 0, "artb": 0, "artd": 0, "blwh": 0,
                       "vibA": 0, "lfx2": 4, "vscg": 4, "clrL": 4}


def layer_descriptor(layer: Layer, key: str) -> Optional[Descriptor]:
    """The descriptor in the layer's kept block ``key`` (such as 'SoCo', 'GdFl', 'lfx2', 'vstk'),
    or None when the layer has no such block. Raises KeyError for keys whose blocks hold no
    descriptor, PSDError when the block cannot be read."""
    if key not in _DESCRIPTOR_OFFSETS:
        raise KeyError(f"the block {key!r} holds no descriptor psdkit knows of")
    data = layer.tagged_blocks.get(key)
    if data is None:
        return None
    return read_descriptor(memoryview(data)[_DESCRIPTOR_OFFSETS[key]:])


def _tree_of(self: Document) -> List[Node]:
    return _tree.build_tree(self.layers)


def _walk(self: Document) -> Iterator[Tuple[int, Node]]:
    return _tree.walk(_tree.build_tree(self.layers))


def _iter(self: Document) -> Iterator[Node]:
    return iter(_tree.build_tree(self.layers))


Document.tree = property(_tree_of, doc="The layer tree: top-level nodes, top first (built anew on each read).")
Document.walk = _walk
Document.walk.__doc__ = "(depth, node) for every layer but dividers, depth first, top first."
Document.__iter__ = _iter
Document.__repr__ = lambda self: (f"<psdkit.Document {self.width}x{self.height} {self.depth}-bit, "
                                  f"{len(self.layers)} layer records>")
