#!/usr/bin/python3
"""What psd-tools (an independent PSD reader) sees in a file, as JSON on stdout.

usage: psdtools_oracle.py FILE
       psdtools_oracle.py --stored FILE   the stored merged image as psd-tools gives it (freed of
                                          its white matte): {"mode", "rgba"}

{"width", "height", "depth",
 "layers": [{"name", "kind", "bbox": [left, top, right, bottom], "opacity": 0-255, "visible",
             "rgba": flat 0-255 samples of the layer's pixels (pixel layers only)}],
 "composite": flat RGBA 0-255 samples of psd-tools' own rendering of the layers}

Layers are listed bottom first, groups before their contents' closing, as psd-tools walks them.
Meant for the small documents the tool tests make.
"""
import json
import sys

import numpy as np
from psd_tools import PSDImage


def rgba255(array):
    array = np.asarray(array, dtype=np.float64)
    if array.ndim == 2:
        array = array[..., None]
    if array.shape[2] == 3:
        array = np.concatenate([array, np.ones(array.shape[:2] + (1,))], axis=2)
    return [int(v) for v in np.rint(np.clip(array, 0, 1) * 255).reshape(-1)]


def main(path):
    psd = PSDImage.open(path)
    layers = []
    for layer in psd.descendants():
        entry = {"name": layer.name, "kind": layer.kind, "bbox": list(layer.bbox),
                 "opacity": int(layer.opacity), "visible": bool(layer.visible)}
        if layer.kind == "pixel":
            entry["rgba"] = rgba255(layer.numpy())
        layers.append(entry)
    composite = psd.composite(force=True).convert("RGBA")
    out = {"width": psd.width, "height": psd.height, "depth": psd.depth, "layers": layers,
           "composite": [int(v) for v in np.asarray(composite).reshape(-1)]}
    json.dump(out, sys.stdout)


def stored(path):
    image = PSDImage.open(path).topil()
    json.dump({"mode": image.mode, "rgba": list(image.convert("RGBA").tobytes())}, sys.stdout)


if __name__ == "__main__":
    if sys.argv[1] == "--stored":
        stored(sys.argv[2])
    else:
        main(sys.argv[1])
