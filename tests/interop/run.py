#!/usr/bin/python3
"""Interop tests: files psdkit writes are read by psd-tools and ag-psd with the same pixels, and
files they write are read by psdkit with the same pixels. With --keep: `psdkit rewrite` keeps every
tagged block and the layer tree of the files, as psd-tools and ag-psd see them.
    run.py [--keep] --tool PSDKIT_INTEROP_TOOL|PSDKIT --corpus CORPUS_FOLDER --work SCRATCH_FOLDER
A missing oracle fails the run (ag-psd is installed here by `npm ci` from the committed lockfile
when missing). What an oracle legitimately cannot read is in KNOWN_LIMITS, reported on every run."""
import argparse
import json
import pathlib
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.dont_write_bytecode = True  # no __pycache__ in the source tree
try:
    import psdtools_oracle
    from psd_tools import PSDImage
except ImportError as error:  # psd-tools itself is missing
    print(f"FAIL: psd-tools cannot be imported ({error}); install python3-psd-tools")
    sys.exit(1)

# Messages by which ag-psd refuses something it does not support in 16- and 32-bit files: the reason.
KNOWN_LIMITS = {"bitsPerChannel Not supproted": "ag-psd 31 cannot decode the composite of a 16- or 32-bit "
                "file whose layer count is negative (merged transparency), which is how psdkit writes every "
                "layered document; its layers are compared, the composite is not"}


class Failure(Exception):
    pass


def run(*command, what, cwd=None):
    """Runs `command`; returns its standard output, or raises Failure naming its error."""
    result = subprocess.run([str(c) for c in command], capture_output=True, text=True, cwd=cwd)
    if result.returncode != 0:
        lines = [line.strip() for line in result.stderr.splitlines() if line.strip()]
        failure = Failure(f"{what} failed: {([l for l in lines if 'Error' in l] or lines or ['(no message)'])[-1]}")
        failure.stderr = result.stderr
        raise failure
    return result.stdout


def ensure_agpsd():
    for program in ("node", "npm"):
        if shutil.which(program) is None:
            raise Failure(f"{program} is missing: ag-psd cannot run (scripts/setup.sh installs Node.js)")
    if not (HERE / "node_modules" / "ag-psd").is_dir():
        run("npm", "ci", "--no-audit", "--no-fund", "--loglevel=error", what="npm ci", cwd=HERE)


def decoded(text):
    """A dump (JSON text) as a dictionary whose channels hold the sample bytes."""
    document = json.loads(text)
    for layer in document["layers"]:
        layer["channels"] = {k: bytes.fromhex(v) for k, v in layer["channels"].items()}
    document["composite"] = [bytes.fromhex(v) for v in document["composite"]]
    for pattern in document.get("patterns", []):
        pattern["pixels"] = bytes.fromhex(pattern["pixels"])
    return document


class Oracles:
    """psdkit (through the interop tool), ag-psd and psd-tools on files in the work folder."""

    def __init__(self, tool, work):
        self.tool, self.work = tool, work

    def rewrite(self, source, name, *options):
        run(self.tool, "rewrite", source, self.work / name, *options, what="psdkit rewrite")
        return self.work / name

    def psdkit(self, path):
        return decoded(run(self.tool, "dump", path, what="psdkit dump"))

    def agpsd(self, path, notes=None, depth=8):
        """ag-psd's dump of `path`; with `notes`, a known limit of a deeper file is noted and the
        file read again without what ag-psd refuses."""
        try:
            return decoded(run("node", HERE / "agpsd-oracle.mjs", "dump", path, what="ag-psd dump"))
        except Failure as error:
            known = [reason for message, reason in KNOWN_LIMITS.items() if message in error.stderr]
            if notes is None or depth == 8 or not known:
                raise Failure(f"ag-psd cannot read {path.name}: {error}") from error
            notes.append(f"ag-psd: {known[0]}")
            return decoded(run("node", HERE / "agpsd-oracle.mjs", "dump", path, "--skip-composite", what="ag-psd dump"))

    def agpsd_written(self):
        """The folder of documents ag-psd writes (made on first use)."""
        if not (self.work / "agpsd-written").is_dir():
            run("node", HERE / "agpsd-oracle.mjs", "write", self.work / "agpsd-written", what="ag-psd write")
        return self.work / "agpsd-written"

    @staticmethod
    def psdtools(path):
        try:
            return psdtools_oracle.decode(str(path))
        except Exception as error:  # psd-tools raises whatever its parser meets
            raise Failure(f"psd-tools cannot read {path.name}: {type(error).__name__}: {error}") from error


def differences(ours, theirs, oracle, skip_dividers, rgb_only, matte_free=False):
    """What differs between psdkit's decode and an oracle's: (problems, channels compared).

    The composite's RGB always, its transparency too unless `rgb_only`. With `matte_free`, only
    8-bit pixels whose transparency is 0 or full count (ag-psd rescales the colour of partly
    transparent composite pixels of files with merged transparency)."""
    problems, count = [], 0

    def check(condition, message):
        if not condition:
            problems.append(f"{oracle}: {message}")

    mine = [layer for layer in ours["layers"] if not (skip_dividers and layer["kind"] == "divider")]
    check(len(mine) == len(theirs["layers"]), f"{len(theirs['layers'])} layers "
          f"{[l['name'] for l in theirs['layers']]}, psdkit {len(mine)} {[l['name'] for l in mine]}")
    for index, (a, b) in enumerate(zip(mine, theirs["layers"]) if len(mine) == len(theirs["layers"]) else []):
        where = f"layer {index} {a['name']!r}"
        check(a["name"] == b["name"], f"{where}: name {b['name']!r}")
        check((a["kind"] == "divider") == (b["kind"] == "divider"), f"{where}: kind {b['kind']}")
        check(b["kind"] == "group" or a["bounds"] == b["bounds"], f"{where}: bounds {b['bounds']} vs {a['bounds']}")
        check(a["mask"] is None or "-2" not in a["channels"] or a["mask"] == b["mask"],
              f"{where}: mask bounds {b['mask']} vs {a['mask']}")
        check(sorted(a["channels"]) == sorted(b["channels"]),
              f"{where}: channels {sorted(b['channels'])} vs {sorted(a['channels'])}")
        for channel_id in set(a["channels"]) & set(b["channels"]):
            count += 1
            check(a["channels"][channel_id] == b["channels"][channel_id], f"{where}: channel {channel_id} differs")
    mine, other = ours["composite"], theirs["composite"]
    if other:
        check(len(mine) >= 3 and len(other) >= 3, f"composite channels {len(other)} vs {len(mine)}")
        kept = [a in (0, 255) for a in mine[3]] if matte_free and len(mine) == 4 and ours["depth"] == 8 else None
        for c in range(3 if rgb_only else min(4, len(mine), len(other))):
            a, b = mine[c], other[c]
            if kept is not None:
                a, b = (bytes(v for v, k in zip(plane, kept) if k) for plane in (a, b))
            count += 1
            check(a == b, f"composite channel {c} differs")
    return problems, count


def fail_on(problems):
    if problems:
        raise Failure("; ".join(problems[:8]) + (f" (+{len(problems) - 8} more)" if len(problems) > 8 else ""))


def compare_with_oracles(oracles, written, notes, expect_blocks=()):
    """Reads `written` with psdkit, psd-tools and ag-psd and compares them. Returns psdkit's dump."""
    ours, theirs = oracles.psdkit(written), oracles.psdtools(written)
    tools, tools_count = differences(ours, theirs, "psd-tools", False, rgb_only=not ours["compositeHasAlpha"])
    tools += [f"psd-tools: no {key!r} block among {theirs['blockKeys']}"
              for key in expect_blocks if key not in theirs["blockKeys"]]
    ag, ag_count = differences(ours, oracles.agpsd(written, notes, ours["depth"]), "ag-psd", True, False,
                               matte_free=ours["compositeHasAlpha"])
    fail_on(tools + ag)
    notes.append(f"{len(ours['layers'])} records; channels equal: psd-tools {tools_count}, ag-psd {ag_count}")
    return ours


# --- the cases: each returns its notes or raises Failure --------------------------------------

def expect(condition, message):
    if not condition:
        raise Failure(message)


# (label, corpus file, psdkit rewrite options, what else the written file (bytes, psdkit's dump) must hold).
# Artboards are written with their group opening ("lsct") beside the kept "artb" block, so that the
# nesting stays balanced and both oracles must open the file.
CORPUS_REWRITES = [
    ("8-bit with groups", "agpsd-groups.psd", [], None),
    ("8-bit with nested groups (lsdk)", "agpsd-nested.psd", [], None),
    ("8-bit with masks and vector masks", "psdtools-layer_mask_data.psd", [], None),
    ("8-bit, mask rectangle unlike the layer's", "oiio-psd-different-mask-size.psd", [], None),
    ("8-bit, layer at negative coordinates", "pillow-negative_top_left_layer.psd", [], None),
    ("layerless 8-bit", "psdtools-0layers.psd", [], None),
    ("16-bit", "oiio-psd-Layers_16bit_RGB.psd", [], None),
    ("32-bit", "oiio-psd-Layers_32bit_RGB.psd", [], None),
    ("PSB 8-bit", "agpsd-psb.psb", [], None),
    ("PSB with a group and a mask", "psdtools-group.psb", [], None),
    ("16-bit written as PSB", "oiio-psd-Layers_16bit_RGB.psd", ["--psb"], None),
    ("32-bit written as PSB", "psdtools-32bit.psd", ["--psb"], None),
    ("PSB with a host property list (8B64 plst) psdkit reads back", "psdtools-1layer.psd", ["--psb", "--properties"],
     lambda raw, ours: b"8B64plst" in raw
     and ours["properties"].get("Interop Note") == "written for independent readers"),
    ("artboard groups", "psdtools-blend-modes-rgb-blend-modes.psd", [],
     lambda raw, ours: "artboard" in [layer["kind"] for layer in ours["layers"]]),
]


def case_corpus_rewrite(oracles, corpus, index, name, options, further):
    notes = []
    written = oracles.rewrite(corpus / name, f"corpus-{index}-{name}", *options)
    ours = compare_with_oracles(oracles, written, notes)
    expect(further is None or further(written.read_bytes(), ours), "the written file lacks what the case is about")
    return notes


def case_patterns(oracles, corpus, name, pattern_key):
    """A deeper document's pattern block ("Pat2" at 16 bits, "Pat3" at 32) is written back as "Patt".
    The corpus files hold empty ones, so the block is given a real pattern first: ag-psd writes one,
    psdkit moves it into the deeper document, and the key of that block is changed to the deeper
    one's, which is what such a file holds."""
    notes, key = [], pattern_key.encode()
    expect(b"8BIM" + key in (corpus / name).read_bytes(), f"{name} no longer holds a {pattern_key} block")
    made = oracles.agpsd_written() / "agpsd-pattern.psd"
    carrier = oracles.rewrite(corpus / name, f"carrier-{pattern_key}.psd", "--patterns-from", made).read_bytes()
    expect(carrier.count(b"8BIMPatt") == 1, "psdkit did not write exactly one Patt block")
    (oracles.work / f"with-{pattern_key}.psd").write_bytes(carrier.replace(b"8BIMPatt", b"8BIM" + key))
    written = oracles.rewrite(oracles.work / f"with-{pattern_key}.psd", f"patterns-from-{pattern_key}.psd")
    depth = compare_with_oracles(oracles, written, notes, expect_blocks=("Patt",))["depth"]
    # ag-psd reads its own patterns back opaque, so its reading of its own file is the reference.
    given = [(p["name"], p["size"], p["pixels"]) for p in oracles.agpsd(made)["patterns"]]
    read = oracles.psdtools(written)["patterns"]
    expect(read == [p[0] for p in given], f"psd-tools reads patterns {read}, written {given}")
    expect([(p["name"], p["size"], p["pixels"]) for p in oracles.agpsd(written, [], depth)["patterns"]] == given,
           "ag-psd reads other patterns than in the file it wrote")
    return notes + [f"pattern {given[0][0]!r} read back by psd-tools (name) and ag-psd (name and pixels)"]


def case_layerless_rewrites(oracles, corpus):
    """A layerless document with transparency and an alpha channel keeps its channels, their names
    and its pixels through three rewrites (each read with psd-tools, ag-psd and psdkit)."""
    notes = []
    written = oracles.rewrite(corpus / "psdtools-effects-stroke-without-vector-mask.psd", "layerless-0.psd",
                              "--no-layers")
    first = oracles.psdtools(written)["channels"]
    for round in (1, 2, 3):
        source, written = written, oracles.rewrite(written, f"layerless-{round}.psd")
        ours = compare_with_oracles(oracles, written, notes if round == 3 else [])
        again = oracles.psdtools(written)["channels"]
        expect(again == first, f"rewrite {round}: channels and alpha names {again}, first written {first}")
        expect(ours["composite"] == oracles.psdkit(source)["composite"], f"rewrite {round} changes the composite")
    return notes + [f"channels and alpha names as psd-tools reads them: {first}"]


def case_others_write(oracles, corpus):
    """ag-psd's documents hold the pixels it was given; psd-tools' re-saved corpus files hold the
    samples psd-tools decodes from them: psdkit must read the same."""
    folder, notes = oracles.agpsd_written(), []
    source = decoded((folder / "agpsd-small-source.json").read_text())
    for name in ("agpsd-small-rle.psd", "agpsd-small-zip.psd", "agpsd-small.psb"):
        problems, count = differences(oracles.psdkit(folder / name), source, f"{name} as given", True, False)
        fail_on(problems)
        notes.append(f"{name}: {count} channels equal")
    for name in ("psdtools-layer_mask_data.psd", "oiio-psd-Layers_16bit_RGB.psd"):
        PSDImage.open(corpus / name).save(str(oracles.work / f"psdtools-saved-{name}"))
        written = oracles.work / f"psdtools-saved-{name}"
        problems, count = differences(oracles.psdkit(written), oracles.psdtools(written), "psd-tools", False, True)
        fail_on(problems)
        notes.append(f"psd-tools saved {name}: {count} channels equal")
    return notes


# --- keep everything: `psdkit rewrite` keeps every tagged block and the layer tree -------------

# Blocks the writer builds anew from the model; "lsdk" opens a nested group and comes back as "lsct".
REGENERATED = {"luni", "lyid", "lsct", "lsdk", "iOpa", "lclr", "lspf", "Layr", "Lr16", "Lr32"}


def block_lists(psd):
    """(key, data) of every block the writer keeps, in file order: at document level, then per
    layer record (also from "Lr16"/"Lr32")."""
    def kept(tagged):
        blocks = [(getattr(k, "value", k), v.data) for k, v in (tagged or {}).items()]
        blocks = [(k.decode("latin-1") if isinstance(k, bytes) else str(k), data) for k, data in blocks]
        return [(k, data) for k, data in blocks if k not in REGENERATED]
    records = psdtools_oracle.layer_info(psd._record)
    layers = (records.layer_records or []) if records is not None else []
    return [kept(psd._record.layer_and_mask_information.tagged_blocks)] + [kept(r.tagged_blocks) for r in layers]


def tree(group, depth=0):
    """(nesting depth, kind, name, visibility, text of a type layer) of every layer, top-down."""
    return [entry for layer in group for entry in [(depth, layer.kind, layer.name, layer.visible,
                                                    layer.text if layer.kind == "type" else None)]
            + (tree(layer, depth + 1) if layer.is_group() else [])]


def imagemagick_files(work):
    """Files ImageMagick writes: flat and layered, 8 and 16 bits (its 16-bit layers are in the layer
    info, psdkit writes them in "Lr16"), RGB (on plain colours it would choose grayscale). Its first
    layer's blend key is byte-reversed ("mron"), which both oracles refuse and psdkit keeps: such a
    file is checked as made (psdkit's side only) and with the key put right."""
    program = shutil.which("magick") or shutil.which("convert")
    if program is None or subprocess.run([program, "-version"], capture_output=True).returncode != 0:
        print("note  ImageMagick is not installed (scripts/setup.sh installs it): its files are not checked")
        return []
    made, flat = [], ["-size", "19x7", "gradient:red-blue"]
    layers = flat + ["-size", "5x3", "xc:red", "-size", "9x4", "gradient:green-yellow"]
    for name, args in (("im-flat.psd", flat + ["-depth", "8"]), ("im-flat-16.psd", flat + ["-depth", "16"]),
                       ("im-layers.psd", layers + ["-depth", "8"]), ("im-layers-16.psd", layers + ["-depth", "16"])):
        run(program, *args, work / name, what="ImageMagick")
        made.append(work / name)
        if b"8BIMmron" in made[-1].read_bytes():
            made.append(work / name.replace(".psd", "-norm.psd"))
            made[-1].write_bytes(made[-2].read_bytes().replace(b"8BIMmron", b"8BIMnorm"))
    return made


def keep_cases(oracles, corpus):
    """One case per corpus file psdkit reads and per file ag-psd and ImageMagick make here."""
    cli = oracles.tool
    sources = sorted(p for p in corpus.iterdir() if p.suffix in (".psd", ".psb")
                     and subprocess.run([cli, "check", p], capture_output=True).returncode == 0)
    made = oracles.agpsd_written()
    sources += sorted(p for p in made.iterdir() if p.suffix in (".psd", ".psb")) + imagemagick_files(oracles.work)
    once = [oracles.rewrite(source, f"{source.stem}.1{source.suffix}") for source in sources]
    command = ["node", HERE / "agpsd-oracle.mjs", "tree", *sources, *once]
    trees = json.loads(subprocess.run(command, capture_output=True, text=True, check=True).stdout)
    return [(source.name, case_keep, (source, trees)) for source in sources]


def case_keep(oracles, corpus, source, trees):
    """What a rewrite loses or changes: the tagged blocks per layer and at document level (each
    kept block's body too), psd-tools' and ag-psd's layer trees, the bytes of a second rewrite.
    `source` was rewritten once already. (Layerless channels over rewrites: the layerless case.)"""
    once = oracles.work / f"{source.stem}.1{source.suffix}"
    twice = oracles.rewrite(once, f"{source.stem}.2{source.suffix}")
    problems = [] if once.read_bytes() == twice.read_bytes() else ["a second rewrite changes the bytes"]
    notes = [f"ag-psd cannot read it ({trees[str(source)]['error']})"] if "error" in trees[str(source)] else []
    if not notes and trees[str(source)] != trees[str(once)]:
        problems.append(f"ag-psd reads another layer tree: {trees.get(str(once))}")
    try:
        before = PSDImage.open(source)
    except Exception as error:  # psd-tools cannot read the original: only psdkit's side is checked
        fail_on(problems)
        return notes + [f"psd-tools cannot read it ({error})"]
    after = PSDImage.open(once)
    lists_before, lists_after = block_lists(before), block_lists(after)
    keys_before, keys_after = ([[k for k, _ in blocks] for blocks in lists] for lists in (lists_before, lists_after))
    if keys_before != keys_after:  # the first list is the document's, then one per layer record
        problems.append(f"block keys {keys_before} -> {keys_after}")
    else:
        problems += [f"{'document' if index == 0 else f'layer {index - 1}'} block {k} changed"
                     for index, (a, b) in enumerate(zip(lists_before, lists_after)) for (k, x), (_, y) in zip(a, b)
                     if x != y]
    fail_on(problems + ([] if tree(before) == tree(after) else ["layer tree differs"]))
    return notes


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--keep", action="store_true")
    for option in ("--tool", "--corpus", "--work"):
        parser.add_argument(option, required=True, type=lambda text: pathlib.Path(text).resolve())
    args = parser.parse_args()
    try:
        ensure_agpsd()
        if not (args.corpus / "README.md").is_file():
            raise Failure(f"no corpus at {args.corpus}")
        shutil.rmtree(args.work, ignore_errors=True)
        args.work.mkdir(parents=True)
        oracles, corpus = Oracles(args.tool, args.work), args.corpus
        cases = keep_cases(oracles, corpus) if args.keep else [
            (f"psdkit writes, oracles read: {label} ({' '.join([name, *opts])})", case_corpus_rewrite,
             (index, name, opts, further)) for index, (label, name, opts, further) in enumerate(CORPUS_REWRITES)] + [
            ("Patt written from a Pat2 block (16-bit)", case_patterns, ("agpsd-16bits.psd", "Pat2")),
            ("Patt written from a Pat3 block (32-bit)", case_patterns, ("psdtools-32bit.psd", "Pat3")),
            ("layerless with transparency and an alpha channel, three rewrites", case_layerless_rewrites, ()),
            ("ag-psd and psd-tools write, psdkit reads", case_others_write, ())]
    except Failure as error:
        print(f"FAIL: {error}")
        return 1
    failed = 0
    for title, case, case_args in cases:
        try:
            notes, status = case(oracles, corpus, *case_args), "ok  "
        except Exception as error:  # a reader's refusal fails the case too
            notes, status, failed = [str(error) if isinstance(error, Failure) else repr(error)], "FAIL", failed + 1
        print(f"{status}  {title}")
        print("".join(f"        {note}\n" for note in notes), end="")
    print(f"{len(cases) - failed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
