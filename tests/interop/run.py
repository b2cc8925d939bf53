#!/usr/bin/python3
"""Interop tests: files psdkit writes are read by psd-tools and ag-psd with the same pixels, and
files they write are read by psdkit with the same pixels.

    run.py --tool PSDKIT_INTEROP_TOOL --corpus CORPUS_FOLDER --work SCRATCH_FOLDER

Both oracles must be present: psd-tools (python3-psd-tools, imported by this script) and ag-psd
(installed here by `npm ci` from the committed lockfile when missing). A missing oracle fails the
run. What an oracle legitimately cannot read is listed in KNOWN_LIMITS with the reason, and is
reported on every run rather than hidden."""
import argparse
import json
import pathlib
import shutil
import subprocess
import sys

import numpy as np

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))
sys.dont_write_bytecode = True  # no __pycache__ in the source tree

try:
    import psdtools_oracle
except ImportError as error:  # psd-tools itself is missing
    print(f"FAIL: psd-tools cannot be imported ({error}); install python3-psd-tools")
    sys.exit(1)

# Messages by which ag-psd refuses something it does not support in 16- and 32-bit files, and what
# is done instead.
KNOWN_LIMITS = {
    "bitsPerChannel Not supproted": "ag-psd 31 cannot decode the composite of a 16- or 32-bit file whose "
                                    "layer count is negative (merged transparency), which is how psdkit "
                                    "writes every layered document; its layers are compared, the composite "
                                    "is not",
}


class Failure(Exception):
    pass


class Oracles:
    def __init__(self, tool, work):
        self.tool = tool
        self.work = work
        self.count = 0
        self.last_agpsd_dump = None

    def _folder(self, label):
        self.count += 1
        folder = self.work / f"{self.count:02d}-{label}"
        shutil.rmtree(folder, ignore_errors=True)
        return folder

    def psdkit_rewrite(self, source, target, *options):
        self._run([self.tool, "rewrite", source, target, *options], "psdkit rewrite")

    def psdkit(self, path):
        folder = self._folder("psdkit")
        self._run([self.tool, "dump", path, folder], "psdkit dump")
        return load_dump(folder)

    def agpsd_dump(self, path):
        """Folder of ag-psd's plain dump of `path` (no fallback for known limits)."""
        folder = self._folder("agpsd")
        self._run(["node", HERE / "agpsd-oracle.mjs", "dump", path, folder], "ag-psd dump")
        return folder

    def agpsd(self, path, notes, depth):
        folder = self._folder("agpsd")
        self.last_agpsd_dump = folder
        command = ["node", HERE / "agpsd-oracle.mjs", "dump", path, folder]
        result = subprocess.run(command, capture_output=True, text=True)
        if result.returncode != 0:
            known = [reason for message, reason in KNOWN_LIMITS.items()
                     if message in result.stderr and depth != 8]
            if not known:
                raise Failure(f"ag-psd cannot read {path.name}: {last_line(result.stderr)}")
            notes.append(f"ag-psd: {known[0]}")
            self._run(command + ["--skip-composite"], "ag-psd dump")
        return load_dump(folder)

    def agpsd_written(self):
        """The folder of documents ag-psd writes (made on first use)."""
        folder = self.work / "agpsd-written"
        if not folder.is_dir():
            self._run(["node", HERE / "agpsd-oracle.mjs", "write", folder], "ag-psd write")
        return folder

    @staticmethod
    def psdtools(path):
        try:
            return psdtools_oracle.decode(str(path))
        except Exception as error:  # psd-tools raises whatever its parser meets
            raise Failure(f"psd-tools cannot read {path.name}: {type(error).__name__}: {error}") from error

    @staticmethod
    def _run(command, what):
        result = subprocess.run([str(c) for c in command], capture_output=True, text=True)
        if result.returncode != 0:
            raise Failure(f"{what} failed: {last_line(result.stderr)}")


def last_line(text):
    lines = [line for line in text.strip().splitlines() if line.strip()]
    error_lines = [line for line in lines if "Error" in line]
    return (error_lines or lines or ["(no message)"])[-1].strip()


def load_dump(folder):
    """A dump folder as a dictionary whose channel entries hold the sample bytes."""
    document = json.loads((folder / "document.json").read_text())
    for layer in document["layers"]:
        layer["channels"] = {k: (folder / v).read_bytes() for k, v in layer["channels"].items()}
    document["composite"] = [(folder / name).read_bytes() for name in document["composite"]]
    for pattern in document.get("patterns", []):
        pattern["pixels"] = (folder / pattern["pixels"]).read_bytes()
    return document


def dtype(depth):
    return {8: ">u1", 16: ">u2", 32: ">u4"}[depth]


class Comparison:
    """Compares what an oracle decoded with psdkit's decode of the same file; collects problems."""

    def __init__(self, ours, theirs, oracle):
        self.ours, self.theirs, self.oracle = ours, theirs, oracle
        self.problems = []
        self.channels = 0

    def check(self, condition, message):
        if not condition:
            self.problems.append(f"{self.oracle}: {message}")

    def layers(self, skip_dividers):
        ours = [layer for layer in self.ours["layers"] if not (skip_dividers and layer["kind"] == "divider")]
        theirs = self.theirs["layers"]
        if len(ours) != len(theirs):
            self.problems.append(f"{self.oracle}: {len(theirs)} layers {[l['name'] for l in theirs]}, psdkit "
                                 f"{len(ours)} {[l['name'] for l in ours]}")
            return
        for index, (a, b) in enumerate(zip(ours, theirs)):
            where = f"layer {index} {a['name']!r}"
            self.check(a["name"] == b["name"], f"{where}: name {b['name']!r}")
            self.check((a["kind"] == "divider") == (b["kind"] == "divider"), f"{where}: kind {b['kind']}")
            if b["kind"] != "group":  # ag-psd gives groups no rectangle of their own
                self.check(a["bounds"] == b["bounds"], f"{where}: bounds {b['bounds']} vs {a['bounds']}")
            if a["mask"] is not None and "-2" in a["channels"]:
                self.check(a["mask"] == b["mask"], f"{where}: mask bounds {b['mask']} vs {a['mask']}")
            self.check(sorted(a["channels"]) == sorted(b["channels"]),
                       f"{where}: channels {sorted(b['channels'])} vs {sorted(a['channels'])}")
            for channel_id, samples in a["channels"].items():
                if channel_id in b["channels"]:
                    self.channels += 1
                    self.check(samples == b["channels"][channel_id], f"{where}: channel {channel_id} differs")

    def composite(self, rgb_only, matte_free=False):
        """RGB always; transparency too unless `rgb_only`. With `matte_free`, only pixels whose
        transparency is 0 or full count (ag-psd rescales the colour of partly transparent composite
        pixels of files with merged transparency)."""
        ours, theirs = self.ours["composite"], self.theirs["composite"]
        if not theirs:
            return
        self.check(len(ours) >= 3 and len(theirs) >= 3, f"composite channels {len(theirs)} vs {len(ours)}")
        depth = self.ours["depth"]
        keep = None
        if matte_free and len(ours) == 4 and depth == 8:
            alpha = np.frombuffer(ours[3], dtype=dtype(depth))
            keep = (alpha == 0) | (alpha == 255)
        for c in range(3 if rgb_only else min(4, len(ours), len(theirs))):
            a = np.frombuffer(ours[c], dtype=dtype(depth))
            b = np.frombuffer(theirs[c], dtype=dtype(depth))
            if keep is not None:
                a, b = a[keep], b[keep]
            self.channels += 1
            self.check(a.shape == b.shape and bool(np.all(a == b)), f"composite channel {c} differs")


def compare_with_oracles(oracles, written, notes, expect_blocks=(), known=None):
    """Reads `written` with psdkit, psd-tools and ag-psd and compares them. Returns psdkit's dump.

    `known` maps an oracle's name to (part of its error message, reason) for a file our writing
    rules produce that the oracle cannot open: that failure is reported as a note, any other fails."""
    known = known or {}
    ours = oracles.psdkit(written)
    problems = []
    counts = []

    def decoded(oracle, decode):
        try:
            return decode()
        except Failure as error:
            message, reason = known.get(oracle, (None, None))
            if message is None or message not in str(error):
                raise
            notes.append(f"{oracle} cannot open it: {reason} ({error})")
            return None

    theirs = decoded("psd-tools", lambda: oracles.psdtools(written))
    if theirs is not None:
        tools = Comparison(ours, theirs, "psd-tools")
        tools.layers(skip_dividers=False)
        tools.composite(rgb_only=not ours["compositeHasAlpha"])
        problems += tools.problems
        for key in expect_blocks:
            if key not in theirs["blockKeys"]:
                problems.append(f"psd-tools: no {key!r} block among {theirs['blockKeys']}")
        notes += [f"psd-tools warns: {w}" for w in theirs["warnings"]]
        counts.append(f"psd-tools {tools.channels}")

    theirs = decoded("ag-psd", lambda: oracles.agpsd(written, notes, ours["depth"]))
    if theirs is not None:
        ag = Comparison(ours, theirs, "ag-psd")
        ag.layers(skip_dividers=True)
        ag.composite(rgb_only=False, matte_free=ours["compositeHasAlpha"])
        problems += ag.problems
        counts.append(f"ag-psd {ag.channels}")
    if problems:
        more = f" (+{len(problems) - 8} more)" if len(problems) > 8 else ""
        raise Failure("; ".join(problems[:8]) + more)
    if counts:
        notes.append(f"{len(ours['layers'])} records; channels equal: {', '.join(counts)}")
    return ours


# --- the cases ---------------------------------------------------------------------------------

CORPUS_REWRITES = [
    # (label, corpus file, psdkit rewrite options)
    ("8-bit with groups", "agpsd-groups.psd", []),
    ("8-bit with nested groups (lsdk)", "agpsd-nested.psd", []),
    ("8-bit with masks and vector masks", "psdtools-layer_mask_data.psd", []),
    ("8-bit, mask rectangle unlike the layer's", "oiio-psd-different-mask-size.psd", []),
    ("8-bit, layer at negative coordinates", "pillow-negative_top_left_layer.psd", []),
    ("layerless 8-bit", "psdtools-0layers.psd", []),
    ("16-bit", "oiio-psd-Layers_16bit_RGB.psd", []),
    ("32-bit", "oiio-psd-Layers_32bit_RGB.psd", []),
    ("PSB 8-bit", "agpsd-psb.psb", []),
    ("PSB with a group and a mask", "psdtools-group.psb", []),
    ("16-bit written as PSB", "oiio-psd-Layers_16bit_RGB.psd", ["--psb"]),
    ("32-bit written as PSB", "psdtools-32bit.psd", ["--psb"]),
]


def case_corpus_rewrite(oracles, corpus, label, name, options):
    notes = []
    extension = "psb" if "--psb" in options else "psd"
    written = oracles.work / f"{label.replace(' ', '-').replace(',', '')}.{extension}"
    oracles.psdkit_rewrite(corpus / name, written, *options)
    compare_with_oracles(oracles, written, notes)
    return notes


def case_property_list(oracles, corpus):
    notes = []
    written = oracles.work / "host-properties.psb"
    oracles.psdkit_rewrite(corpus / "psdtools-1layer.psd", written, "--psb", "--properties")
    raw = written.read_bytes()
    if b"8B64plst" not in raw:
        raise Failure("the written PSB has no 8B64 plst block")
    ours = compare_with_oracles(oracles, written, notes)
    if ours["properties"].get("Interop Note") != "written for independent readers":
        raise Failure(f"psdkit does not read its properties back: {ours['properties']}")
    return notes


def case_patterns(oracles, corpus, name, pattern_key):
    """A deeper document's pattern block ("Pat2" at 16 bits, "Pat3" at 32) is written back as "Patt".
    The corpus files hold empty ones, so the block is given a real pattern first: ag-psd writes one,
    psdkit moves it into the deeper document, and the key of that block is changed to the deeper
    one's, which is what such a file holds."""
    notes = []
    if b"8BIM" + pattern_key.encode() not in (corpus / name).read_bytes():
        raise Failure(f"{name} no longer holds a {pattern_key} block")
    made = oracles.agpsd_written()
    carrier = oracles.work / f"pattern-carrier-{pattern_key}.psd"
    oracles.psdkit_rewrite(corpus / name, carrier, "--patterns-from", made / "agpsd-pattern.psd")
    raw = carrier.read_bytes()
    if raw.count(b"8BIMPatt") != 1:
        raise Failure("psdkit did not write exactly one Patt block")
    deeper = oracles.work / f"with-{pattern_key}.psd"
    deeper.write_bytes(raw.replace(b"8BIMPatt", b"8BIM" + pattern_key.encode()))

    written = oracles.work / f"patterns-from-{pattern_key}.psd"
    oracles.psdkit_rewrite(deeper, written)
    if b"8BIMPatt" not in written.read_bytes():
        raise Failure(f"psdkit wrote no Patt block from the {pattern_key} block")
    compare_with_oracles(oracles, written, notes, expect_blocks=("Patt",))
    read_by_agpsd = load_dump(oracles.last_agpsd_dump)["patterns"]
    read_by_psdtools = oracles.psdtools(written)["patterns"]
    # ag-psd reads its own patterns back opaque, so its reading of its own file is the reference.
    given = load_dump(oracles.agpsd_dump(made / "agpsd-pattern.psd"))["patterns"]
    if read_by_psdtools != [p["name"] for p in given]:
        raise Failure(f"psd-tools reads patterns {read_by_psdtools}, written {[p['name'] for p in given]}")
    if [(p["name"], p["size"], p["pixels"]) for p in read_by_agpsd] != \
            [(p["name"], p["size"], p["pixels"]) for p in given]:
        raise Failure("ag-psd reads other patterns than in the file it wrote")
    notes.append(f"pattern {given[0]['name']!r} read back by psd-tools (name) and ag-psd (name and pixels)")
    return notes


def case_layerless_rewrites(oracles, corpus):
    """A layerless document with transparency and an alpha channel keeps its channels, their names
    and its pixels through three rewrites (each read with psd-tools, ag-psd and psdkit)."""
    notes = []
    written = oracles.work / "layerless-0.psd"
    oracles.psdkit_rewrite(corpus / "psdtools-effects-stroke-without-vector-mask.psd", written, "--no-layers")
    first = oracles.psdtools(written)
    for round in (1, 2, 3):
        source, written = written, oracles.work / f"layerless-{round}.psd"
        oracles.psdkit_rewrite(source, written)
        ours = compare_with_oracles(oracles, written, notes if round == 3 else [])
        again = oracles.psdtools(written)
        if again["channels"] != first["channels"]:
            raise Failure(f"rewrite {round}: channels and alpha names {again['channels']}, "
                          f"first written {first['channels']}")
        if ours["composite"] != oracles.psdkit(source)["composite"]:
            raise Failure(f"rewrite {round} changes the composite")
    notes.append(f"channels and alpha names as psd-tools reads them: {first['channels']}")
    return notes


# Artboards are written with their group opening ("lsct") beside the kept "artb" block, so the
# nesting stays balanced and both oracles must open the file.
def case_artboards(oracles, corpus):
    notes = []
    written = oracles.work / "artboards.psd"
    oracles.psdkit_rewrite(corpus / "psdtools-blend-modes-rgb-blend-modes.psd", written)
    ours = compare_with_oracles(oracles, written, notes)
    kinds = [layer["kind"] for layer in ours["layers"]]
    if "artboard" not in kinds:
        raise Failure("the written document has no artboard")
    notes.append(f"{kinds.count('artboard')} artboards, {kinds.count('group')} groups, "
                 f"{kinds.count('divider')} section dividers as psdkit reads the written file")
    return notes


def case_agpsd_writes(oracles):
    folder = oracles.agpsd_written()
    source = load_dump(folder / "agpsd-small-source")
    notes = []
    for name in ("agpsd-small-rle.psd", "agpsd-small-zip.psd", "agpsd-small.psb"):
        ours = oracles.psdkit(folder / name)
        check = Comparison(ours, source, f"{name} (as given to ag-psd)")
        check.layers(skip_dividers=True)
        check.composite(rgb_only=False)
        if check.problems:
            raise Failure("; ".join(check.problems[:8]))
        notes.append(f"{name}: {check.channels} channels equal")
    return notes


def case_psdtools_writes(oracles, corpus):
    from psd_tools import PSDImage

    notes = []
    for name in ("psdtools-layer_mask_data.psd", "oiio-psd-Layers_16bit_RGB.psd"):
        written = oracles.work / f"psdtools-saved-{name}"
        PSDImage.open(corpus / name).save(str(written))
        ours = oracles.psdkit(written)
        check = Comparison(ours, oracles.psdtools(written), "psd-tools")
        check.layers(skip_dividers=False)
        check.composite(rgb_only=True)
        if check.problems:
            raise Failure("; ".join(check.problems[:8]))
        notes.append(f"{name}: {check.channels} channels equal")
    return notes


def ensure_agpsd():
    for program in ("node", "npm"):
        if shutil.which(program) is None:
            raise Failure(f"{program} is missing: ag-psd cannot run (scripts/setup.sh installs Node.js)")
    if not (HERE / "node_modules" / "ag-psd").is_dir():
        result = subprocess.run(["npm", "ci", "--no-audit", "--no-fund", "--loglevel=error"], cwd=HERE,
                                capture_output=True, text=True)
        if result.returncode != 0:
            raise Failure(f"npm ci failed: {last_line(result.stderr)}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True, type=pathlib.Path)
    parser.add_argument("--corpus", required=True, type=pathlib.Path)
    parser.add_argument("--work", required=True, type=pathlib.Path)
    args = parser.parse_args()
    try:
        ensure_agpsd()
    except Failure as error:
        print(f"FAIL: {error}")
        return 1
    if not (args.corpus / "README.md").is_file():
        print(f"FAIL: no corpus at {args.corpus}")
        return 1
    shutil.rmtree(args.work, ignore_errors=True)
    args.work.mkdir(parents=True)
    oracles = Oracles(args.tool.resolve(), args.work.resolve())
    corpus = args.corpus.resolve()

    cases = [(f"psdkit writes, oracles read: {label} ({name}{' ' + ' '.join(opts) if opts else ''})",
              lambda label=label, name=name, opts=opts:
                  case_corpus_rewrite(oracles, corpus, label, name, opts))
             for label, name, opts in CORPUS_REWRITES]
    cases += [
        ("PSB with a host property list (8B64 plst)", lambda: case_property_list(oracles, corpus)),
        ("Patt written from a Pat2 block (16-bit)",
         lambda: case_patterns(oracles, corpus, "agpsd-16bits.psd", "Pat2")),
        ("Patt written from a Pat3 block (32-bit)",
         lambda: case_patterns(oracles, corpus, "psdtools-32bit.psd", "Pat3")),
        ("artboard groups", lambda: case_artboards(oracles, corpus)),
        ("layerless with transparency and an alpha channel, three rewrites",
         lambda: case_layerless_rewrites(oracles, corpus)),
        ("ag-psd writes, psdkit reads", lambda: case_agpsd_writes(oracles)),
        ("psd-tools writes, psdkit reads", lambda: case_psdtools_writes(oracles, corpus)),
    ]
    passed = failed = 0
    for title, run in cases:
        try:
            notes = run()
            passed += 1
            print(f"ok    {title}")
        except Failure as error:
            failed += 1
            notes = [str(error)]
            print(f"FAIL  {title}")
        for note in notes:
            print(f"        {note}")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
