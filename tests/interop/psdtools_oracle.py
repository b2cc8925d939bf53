"""The psd-tools side of the interop tests: what psd-tools decodes from a file, in the shape of
psdkit_interop_tool's dump (per layer record: name, kind, bounds, mask bounds, channels as
big-endian sample bytes; the composite's channels).

psd-tools is used as a host would use it first (PSDImage.open, a PIL image of every layer and of
the composite, which must not fail), then through its record-level API for exact samples: its
high-level images are 8-bit, while the records give every depth's samples unchanged.

For the tool tests (tests/tool), on the small documents they make: `rendered` gives psd-tools'
layers and its own rendering ({"depth", "layers": [{"name", "kind", "bbox": [left, top, right,
bottom], "visible", "opacity" 0-255, "parent" name, "rgba": flat 0-255 samples of pixel layers}],
"composite": flat RGBA 0-255},
layers bottom first), `stored` the stored merged image freed of its white matte ({"mode", "rgba"})."""
import logging
import warnings

import numpy as np

from psd_tools import PSDImage
from psd_tools.constants import Resource, Tag

warnings.simplefilter("ignore")  # psd-tools warns about every key it does not know
logging.disable(logging.WARNING)


def layer_info(record):
    """The layer information psd-tools' own layer tree uses: Lr16/Lr32/Layr blocks first."""
    section = record.layer_and_mask_information
    for tag in (Tag.LAYER_16, Tag.LAYER_32, Tag.LAYER):
        info = section.tagged_blocks.get_data(tag) if section.tagged_blocks is not None else None
        if info is not None:
            return info
    return section.layer_info


def channels(psd):
    """The header's channel count and the alpha channel names (Unicode names, else Pascal names)."""
    names = [list(psd.image_resources.get_data(resource)) for resource in
             (Resource.ALPHA_NAMES_UNICODE, Resource.ALPHA_NAMES_PASCAL) if resource in psd.image_resources]
    return psd._record.header.channels, next((n for n in names if n), None)


def _layer_entry(record, channel_data, depth, version):
    blocks = record.tagged_blocks
    setting = blocks.get_data(Tag.SECTION_DIVIDER_SETTING)
    name = blocks.get_data(Tag.UNICODE_LAYER_NAME)
    kind = "layer" if setting is None else {1: "group", 2: "group", 3: "divider"}.get(int(setting.kind), "layer")
    entry = {"name": record.name if name is None else name, "kind": kind,
             "bounds": [record.top, record.left, record.bottom, record.right], "mask": None, "channels": {}}
    width, height, mask = record.right - record.left, record.bottom - record.top, record.mask_data
    if mask is not None:
        entry["mask"] = [mask.top, mask.left, mask.bottom, mask.right]
    for info, data in zip(record.channel_info, channel_data):
        if int(info.id) in (0, 1, 2, -1) and width > 0 and height > 0:
            entry["channels"][str(int(info.id))] = data.get_data(width, height, depth, version)
        elif int(info.id) == -2 and mask is not None and mask.width > 0 and mask.height > 0:
            entry["channels"]["-2"] = data.get_data(mask.width, mask.height, depth, version)
    if width > 0 and height > 0 and "-1" not in entry["channels"]:  # no transparency: opaque
        entry["channels"]["-1"] = {8: b"\xff", 16: b"\xff\xff", 32: b"\x3f\x80\x00\x00"}[depth] * (width * height)
    return entry


def decode(path):
    """What psd-tools sees in the file at `path`, as a dictionary (see the module text)."""
    psd = PSDImage.open(path)
    for layer in psd.descendants():
        layer.topil()
    psd.topil()
    record = psd._record  # the record-level API: exact samples at every depth
    header, info = record.header, layer_info(record)
    layers = [_layer_entry(layer, data, header.depth, header.version)
              for layer, data in zip(info.layer_records or [], info.channel_image_data or [])] if info else []
    tagged = record.layer_and_mask_information.tagged_blocks
    patterns = None if tagged is None else tagged.get_data(Tag.PATTERNS1)
    return {"layers": layers, "composite": list(record.image_data.get_data(header)), "channels": channels(psd),
            "blockKeys": [] if tagged is None else [getattr(k, "value", k).decode("latin-1") for k in tagged.keys()],
            "patterns": [p.name.strip("\0") for p in patterns or []]}


def _rgba255(array):
    array = np.asarray(array, dtype=np.float64)
    array = array[..., None] if array.ndim == 2 else array
    if array.shape[2] == 3:
        array = np.concatenate([array, np.ones(array.shape[:2] + (1,))], axis=2)
    return [int(v) for v in np.rint(np.clip(array, 0, 1) * 255).reshape(-1)]


def rendered(path):
    psd = PSDImage.open(path)
    layers = [{"name": layer.name, "kind": layer.kind, "bbox": list(layer.bbox), "visible": bool(layer.visible),
               "opacity": layer.opacity, "parent": None if layer.parent is psd else layer.parent.name,
               **({"rgba": _rgba255(layer.numpy())} if layer.kind == "pixel" else {})} for layer in psd.descendants()]
    composite = psd.composite(force=True).convert("RGBA")
    return {"depth": psd.depth, "layers": layers, "composite": [int(v) for v in np.asarray(composite).reshape(-1)]}


def stored(path):
    image = PSDImage.open(path).topil()
    return {"mode": image.mode, "rgba": list(image.convert("RGBA").tobytes())}

