#!/usr/bin/python3
"""psdkit rewrite keeps every tagged block, as psd-tools (an independent reader) sees them.

usage: keep_everything.py PSDKIT CORPUS_DIR WORK_DIR

For every corpus file psdkit reads, and for files ImageMagick makes here (when it is installed):
  - the tagged block lists per layer and at document level are equal before and after a rewrite,
    and every block the writer does not regenerate has the same content;
  - psd-tools sees the same layer tree: kinds, names, visibility and the text of type layers;
  - rewriting the output once more gives the same layers, blocks and image data.
"""
import pathlib
import shutil
import struct
import subprocess
import logging
import sys
import warnings

from psd_tools import PSDImage

warnings.simplefilter("ignore")  # psd-tools warns about every key it does not know
logging.disable(logging.WARNING)

# Blocks the writer builds anew from the model; "lsdk" opens a nested group and comes back as "lsct".
REGENERATED = {"luni", "lyid", "lsct", "lsdk", "iOpa", "lclr", "lspf", "Layr", "Lr16", "Lr32"}


def key_text(key):
    value = getattr(key, "value", key)
    return value.decode("latin-1") if isinstance(value, bytes) else str(value)


def blocks(tagged):
    """(key, data) of every block the writer keeps, in file order."""
    if tagged is None:
        return []
    return [(key_text(k), v.data) for k, v in tagged.items() if key_text(k) not in REGENERATED]


def block_lists(psd):
    record = psd._record.layer_and_mask_information
    layers = (record.layer_info.layer_records or []) if record.layer_info is not None else []
    return [blocks(record.tagged_blocks)] + [blocks(layer.tagged_blocks) for layer in layers]


def tree(psd):
    def entry(layer):
        text = layer.text if layer.kind == "type" else None
        return (layer.kind, layer.name, layer.visible, text)
    return [entry(layer) for layer in psd.descendants()]


def after_resources(path):
    """The bytes after the image resources (the metadata packet there is re-encoded on each write)."""
    data = pathlib.Path(path).read_bytes()
    offset = 26
    for _ in range(2):
        (length,) = struct.unpack(">I", data[offset:offset + 4])
        offset += 4 + length
    return data[offset:]


def rewrite(psdkit, source, target):
    result = subprocess.run([psdkit, "rewrite", source, target], capture_output=True, text=True)
    if result.returncode != 0:
        raise AssertionError("rewrite failed: " + result.stderr.strip())


def check(psdkit, source, work):
    once, twice = work / (source.stem + ".1" + source.suffix), work / (source.stem + ".2" + source.suffix)
    rewrite(psdkit, source, once)
    rewrite(psdkit, once, twice)
    problems = []
    if after_resources(once) != after_resources(twice):
        problems.append("a second rewrite changes the layers, blocks or image data")
    try:
        before = PSDImage.open(source)
    except Exception as error:  # psd-tools cannot read the original: only psdkit's side is checked
        print("note  psd-tools cannot read %s (%s)" % (source.name, error))
        return problems
    after = PSDImage.open(once)
    lists_before, lists_after = block_lists(before), block_lists(after)
    if len(lists_before) != len(lists_after):
        problems.append("layer count %d -> %d" % (len(lists_before) - 1, len(lists_after) - 1))
    for index, (a, b) in enumerate(zip(lists_before, lists_after)):
        where = "document" if index == 0 else "layer %d" % (index - 1)
        if [k for k, _ in a] != [k for k, _ in b]:
            problems.append("%s blocks %s -> %s" % (where, [k for k, _ in a], [k for k, _ in b]))
        else:
            problems += ["%s block %s changed" % (where, k) for (k, x), (_, y) in zip(a, b) if x != y]
    if tree(before) != tree(after):
        problems.append("layer tree differs")
    return problems


def reads(psdkit, path):
    return subprocess.run([psdkit, "check", path], capture_output=True).returncode == 0


def imagemagick_files(work):
    """Files ImageMagick writes: a flat image and a layered one."""
    program = shutil.which("magick") or shutil.which("convert")
    if program is None or subprocess.run([program, "-version"], capture_output=True).returncode != 0:
        print("note  ImageMagick is not installed (scripts/setup.sh installs it): its files are not checked")
        return []
    made = []
    # 8-bit RGB, as most files from other tools are (plain colours would make ImageMagick choose
    # grayscale, which psdkit refuses).
    for name, args in (("im-flat.psd", ["-size", "19x7", "gradient:red-blue", "-depth", "8"]),
                       ("im-layers.psd", ["-size", "19x7", "gradient:red-blue", "-size", "5x3", "xc:red",
                                          "-size", "9x4", "gradient:green-yellow", "-depth", "8"])):
        path = work / name
        subprocess.run([program, *args, str(path)], check=True, capture_output=True)
        made.append(path)
    return made


def main(psdkit, corpus, work):
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    sources = sorted(p for p in corpus.iterdir() if p.suffix in (".psd", ".psb") and reads(psdkit, p))
    sources += imagemagick_files(work)
    failed = 0
    for source in sources:
        try:
            problems = check(psdkit, source, work)
        except Exception as error:  # a reader's refusal is a failure of this check too
            problems = [str(error)]
        print("%s  %s" % ("FAIL" if problems else "ok  ", source.name))
        for problem in problems[:8]:
            print("        " + problem)
        failed += bool(problems)
    print("%d passed, %d failed" % (len(sources) - failed, failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])))
