#!/usr/bin/python3
"""psdkit rewrite keeps every tagged block and the layer tree, as psd-tools and ag-psd see them.

usage: keep_everything.py PSDKIT CORPUS_DIR WORK_DIR

For every corpus file psdkit reads, and for files ag-psd and ImageMagick (when it is installed)
make here:
  - the tagged block lists per layer (also in "Lr16"/"Lr32") and at document level are equal before
    and after a rewrite, and every block the writer does not regenerate has the same content;
  - psd-tools and ag-psd see the same layer tree: kinds, names, visibility, nesting and the text of
    type layers;
  - rewriting the output once more gives the same bytes;
  - a layerless document keeps its channel count and alpha channel names over three rewrites.
"""
import json
import pathlib
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
from psd_tools import PSDImage  # noqa: E402
from psdtools_oracle import layer_info, channels  # noqa: E402
from run import HERE, Failure, Oracles, ensure_agpsd  # noqa: E402  (ag-psd installed as the interop tests do)

# Blocks the writer builds anew from the model; "lsdk" opens a nested group and comes back as "lsct".
REGENERATED = {"luni", "lyid", "lsct", "lsdk", "iOpa", "lclr", "lspf", "Layr", "Lr16", "Lr32"}


def block_lists(psd):
    """(key, data) of every block the writer keeps, in file order: at document level, then per
    layer record (also from "Lr16"/"Lr32")."""
    def kept(tagged):
        keys = [(getattr(k, "value", k), v.data) for k, v in (tagged or {}).items()]
        keys = [(k.decode("latin-1") if isinstance(k, bytes) else str(k), data) for k, data in keys]
        return [(k, data) for k, data in keys if k not in REGENERATED]
    records = layer_info(psd._record)
    layers = (records.layer_records or []) if records is not None else []
    return [kept(psd._record.layer_and_mask_information.tagged_blocks)] + [kept(r.tagged_blocks) for r in layers]


def tree(group, depth=0):
    """(nesting depth, kind, name, visibility, text of a type layer) of every layer, top-down."""
    return [entry for layer in group for entry in [(depth, layer.kind, layer.name, layer.visible,
                                                    layer.text if layer.kind == "type" else None)]
            + (tree(layer, depth + 1) if layer.is_group() else [])]


def rewrite(psdkit, source, target):
    result = subprocess.run([psdkit, "rewrite", source, target], capture_output=True, text=True)
    if result.returncode != 0:
        raise AssertionError("rewrite failed: " + result.stderr.strip())
    return target


def rewritten(source, work, round):
    return work / ("%s.%d%s" % (source.stem, round, source.suffix))


def check(psdkit, source, work, trees):
    """What a rewrite loses or changes; `source` was rewritten once already, `trees` are ag-psd's."""
    once, twice = rewritten(source, work, 1), rewrite(psdkit, rewritten(source, work, 1), rewritten(source, work, 2))
    problems = [] if once.read_bytes() == twice.read_bytes() else ["a second rewrite changes the bytes"]
    if "error" in trees[str(source)]:
        print("note  ag-psd cannot read %s (%s)" % (source.name, trees[str(source)]["error"]))
    elif trees[str(source)] != trees[str(once)]:
        problems.append("ag-psd reads another layer tree: %s" % trees.get(str(once)))
    try:
        before = PSDImage.open(source)
    except Exception as error:  # psd-tools cannot read the original: only psdkit's side is checked
        print("note  psd-tools cannot read %s (%s)" % (source.name, error))
        return problems
    after = PSDImage.open(once)
    if len(before) == 0:  # layerless: its channels must survive any number of rewrites
        thrice = PSDImage.open(rewrite(psdkit, twice, rewritten(source, work, 3)))
        if channels(thrice) != channels(before):
            problems.append("channels %s -> %s after three rewrites" % (channels(before), channels(thrice)))
    lists_before, lists_after = block_lists(before), block_lists(after)
    if len(lists_before) != len(lists_after):
        problems.append("layer count %d -> %d" % (len(lists_before) - 1, len(lists_after) - 1))
    for index, (a, b) in enumerate(zip(lists_before, lists_after)):
        where = "document" if index == 0 else "layer %d" % (index - 1)
        if [k for k, _ in a] != [k for k, _ in b]:
            problems.append("%s blocks %s -> %s" % (where, [k for k, _ in a], [k for k, _ in b]))
        else:
            problems += ["%s block %s changed" % (where, k) for (k, x), (_, y) in zip(a, b) if x != y]
    return problems + ([] if tree(before) == tree(after) else ["layer tree differs"])


def imagemagick_files(work):
    """Files ImageMagick writes: flat images at 8 and 16 bits and layered ones, RGB (plain colours
    would make it choose grayscale, which psdkit refuses). It keeps the layers of 16-bit files in the
    layer info, psdkit writes them in "Lr16".

    ImageMagick 6 writes the blend key of the first layer of a layered file byte-reversed ("mron"),
    which psd-tools and ag-psd both refuse; psdkit keeps the key as it is. The layered file is
    checked as made (psdkit's side only) and with the key put right, which both oracles read."""
    program = shutil.which("magick") or shutil.which("convert")
    if program is None or subprocess.run([program, "-version"], capture_output=True).returncode != 0:
        print("note  ImageMagick is not installed (scripts/setup.sh installs it): its files are not checked")
        return []
    made, flat = [], ["-size", "19x7", "gradient:red-blue"]
    layers = flat + ["-size", "5x3", "xc:red", "-size", "9x4", "gradient:green-yellow"]
    for name, args in (("im-flat.psd", flat + ["-depth", "8"]), ("im-flat-16.psd", flat + ["-depth", "16"]),
                       ("im-layers.psd", layers + ["-depth", "8"]), ("im-layers-16.psd", layers + ["-depth", "16"])):
        subprocess.run([program, *args, str(work / name)], check=True, capture_output=True)
        made.append(work / name)
        if b"8BIMmron" in made[-1].read_bytes():
            made.append(work / name.replace(".psd", "-norm.psd"))
            made[-1].write_bytes(made[-2].read_bytes().replace(b"8BIMmron", b"8BIMnorm"))
    return made


def main(psdkit, corpus, work):
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    sources = sorted(p for p in corpus.iterdir() if p.suffix in (".psd", ".psb")
                     and subprocess.run([psdkit, "check", p], capture_output=True).returncode == 0)
    try:
        ensure_agpsd()
        made = Oracles(psdkit, work).agpsd_written()
    except Failure as error:
        print("FAIL: %s" % error)
        return 1
    sources += sorted(p for p in made.iterdir() if p.suffix in (".psd", ".psb")) + imagemagick_files(work)
    for source in sources:
        rewrite(psdkit, source, rewritten(source, work, 1))
    command = ["node", HERE / "agpsd-oracle.mjs", "tree", *sources, *[rewritten(s, work, 1) for s in sources]]
    trees, failed = json.loads(subprocess.run(command, capture_output=True, text=True, check=True).stdout), 0
    for source in sources:
        try:
            problems = check(psdkit, source, work, trees)
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
