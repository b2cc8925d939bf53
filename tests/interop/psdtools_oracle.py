"""The psd-tools side of the interop tests: what psd-tools decodes from a file, in the shape of
psdkit_interop_tool's dump (per layer record: name, kind, bounds, mask bounds, channels as
big-endian sample bytes; the composite's channels).

psd-tools is used as a host would use it first (PSDImage.open, a PIL image of every layer and of
the composite, which must not fail), then through its record-level API for exact samples: its
high-level images are 8-bit, while the records give every depth's samples unchanged.

Run as a program it serves the tool tests (tests/tool), on the small documents they make:
  psdtools_oracle.py FILE           psd-tools' layers and its own rendering, as JSON on stdout:
      {"width", "height", "depth", "layers": [{"name", "kind", "bbox": [left, top, right, bottom],
       "opacity": 0-255, "visible", "rgba": flat 0-255 samples (pixel layers only)}],
       "composite": flat RGBA 0-255 samples}, layers bottom first as psd-tools walks them
  psdtools_oracle.py --stored FILE  the stored merged image freed of its white matte: {"mode", "rgba"}"""
import json
import logging
import sys
import warnings

import numpy as np

from psd_tools import PSDImage
from psd_tools.constants import Resource, Tag

DIVIDER_KINDS = {1: "group", 2: "group", 3: "divider"}


def _layer_info(record):
    """The layer information psd-tools' own layer tree uses: Lr16/Lr32/Layr blocks first."""
    section = record.layer_and_mask_information
    blocks = section.tagged_blocks
    if blocks is not None:
        for tag in (Tag.LAYER_16, Tag.LAYER_32, Tag.LAYER):
            info = blocks.get_data(tag)
            if info is not None:
                return info
    return section.layer_info


def channels(psd):
    """The header's channel count and the alpha channel names (Unicode names, else Pascal names)."""
    names = None
    for resource in (Resource.ALPHA_NAMES_UNICODE, Resource.ALPHA_NAMES_PASCAL):
        if names is None and resource in psd.image_resources:
            names = list(psd.image_resources.get_data(resource)) or None
    return psd._record.header.channels, names


def _name(layer_record):
    unicode_name = layer_record.tagged_blocks.get_data(Tag.UNICODE_LAYER_NAME)
    return unicode_name if unicode_name is not None else layer_record.name


def _kind(layer_record):
    setting = layer_record.tagged_blocks.get_data(Tag.SECTION_DIVIDER_SETTING)
    if setting is None:
        return "layer"
    return DIVIDER_KINDS.get(int(setting.kind), "layer")


def _opaque(width, height, depth):
    one = {8: b"\xff", 16: b"\xff\xff", 32: b"\x3f\x80\x00\x00"}[depth]
    return one * (width * height)


def _layer_entry(layer_record, channel_data, depth, version):
    top, left, bottom, right = layer_record.top, layer_record.left, layer_record.bottom, layer_record.right
    entry = {"name": _name(layer_record), "kind": _kind(layer_record),
             "bounds": [top, left, bottom, right], "mask": None, "channels": {}}
    width, height = right - left, bottom - top
    mask = layer_record.mask_data
    if mask is not None:
        entry["mask"] = [mask.top, mask.left, mask.bottom, mask.right]
    for info, data in zip(layer_record.channel_info, channel_data):
        channel_id = int(info.id)
        if channel_id in (0, 1, 2, -1) and width > 0 and height > 0:
            entry["channels"][str(channel_id)] = data.get_data(width, height, depth, version)
        elif channel_id == -2 and mask is not None and mask.width > 0 and mask.height > 0:
            entry["channels"]["-2"] = data.get_data(mask.width, mask.height, depth, version)
    if width > 0 and height > 0 and "-1" not in entry["channels"]:
        entry["channels"]["-1"] = _opaque(width, height, depth)
    return entry


class _Collector(logging.Handler):
    def __init__(self):
        super().__init__(logging.WARNING)
        self.messages = []

    def emit(self, record):
        self.messages.append(record.getMessage())


def decode(path):
    """What psd-tools sees in the file at `path`, as a dictionary (see the module text). Its
    warnings and log messages are collected under "warnings" instead of being printed."""
    collector = _Collector()
    logger = logging.getLogger("psd_tools")
    logger.addHandler(collector)
    logger.propagate = False
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            result = _decode(path)
    finally:
        logger.removeHandler(collector)
    unique = []
    for message in collector.messages:
        if message not in unique:
            unique.append(message)
    result["warnings"] = unique
    return result


def _decode(path):
    psd = PSDImage.open(path)
    images = 0
    for layer in psd.descendants():
        if layer.topil() is not None:
            images += 1
    psd.topil()

    record = psd._record  # the record-level API: exact samples at every depth
    header = record.header
    info = _layer_info(record)
    layers = []
    if info is not None and info.layer_records is not None:
        for layer_record, channel_data in zip(info.layer_records, info.channel_image_data):
            layers.append(_layer_entry(layer_record, channel_data, header.depth, header.version))
    composite = record.image_data.get_data(header)
    tagged = record.layer_and_mask_information.tagged_blocks
    keys = [] if tagged is None else [getattr(k, "value", k).decode("latin-1") for k in tagged.keys()]
    patterns = None if tagged is None else tagged.get_data(Tag.PATTERNS1)
    return {"width": header.width, "height": header.height, "depth": header.depth,
            "layers": layers, "composite": list(composite), "blockKeys": keys, "pilImages": images,
            "channels": channels(psd),
            "patterns": [] if patterns is None else [pattern.name.strip("\0") for pattern in patterns]}


def _rgba255(array):
    array = np.asarray(array, dtype=np.float64)
    if array.ndim == 2:
        array = array[..., None]
    if array.shape[2] == 3:
        array = np.concatenate([array, np.ones(array.shape[:2] + (1,))], axis=2)
    return [int(v) for v in np.rint(np.clip(array, 0, 1) * 255).reshape(-1)]


def rendered(path):
    psd = PSDImage.open(path)
    layers = []
    for layer in psd.descendants():
        entry = {"name": layer.name, "kind": layer.kind, "bbox": list(layer.bbox),
                 "opacity": int(layer.opacity), "visible": bool(layer.visible)}
        if layer.kind == "pixel":
            entry["rgba"] = _rgba255(layer.numpy())
        layers.append(entry)
    composite = psd.composite(force=True).convert("RGBA")
    return {"width": psd.width, "height": psd.height, "depth": psd.depth, "layers": layers,
            "composite": [int(v) for v in np.asarray(composite).reshape(-1)]}


def stored(path):
    image = PSDImage.open(path).topil()
    return {"mode": image.mode, "rgba": list(image.convert("RGBA").tobytes())}


if __name__ == "__main__":
    json.dump(stored(sys.argv[2]) if sys.argv[1] == "--stored" else rendered(sys.argv[1]), sys.stdout)
