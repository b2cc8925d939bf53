#!/usr/bin/python3
"""Tests of the psdkit command-line tool: they run the built binary and check what users see.

usage: run_tool_tests.py PSDKIT CORPUS_DIR [GROUP ...] [--update-golden]

Groups: golden (command, input, expected text, from golden.txt), create (create -> info and
psd-tools), export (PNG pixels and index.html), rewrite (PSD -> PSB -> PSD), failures (exit statuses
and no partial output), page (the exported page in a browser). Without GROUP all run.
"""
import html
import json
import math
import os
import pathlib
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True  # no __pycache__ in the source tree

import pngio  # noqa: E402

GOLDEN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "golden.txt")


class Context:
    def __init__(self, tool, corpus, work, update_golden=False):
        self.tool, self.corpus, self.work, self.update_golden = tool, corpus, work, update_golden

    def run(self, *args, **options):
        """Runs the tool; returns (status, stdout, stderr) as text."""
        done = subprocess.run([self.tool, *args], capture_output=True, timeout=300, **options)
        return done.returncode, done.stdout.decode("utf-8", "replace"), done.stderr.decode("utf-8", "replace")

    def path(self, name):
        return os.path.join(self.work, name)

    def corpus_file(self, name):
        path = os.path.join(self.corpus, name)
        if not os.path.exists(path):
            raise AssertionError("corpus file missing: " + path)
        return path


class Checks:
    def __init__(self):
        self.count, self.failures = 0, []

    def equal(self, what, got, expected):
        self.count += 1
        if got != expected:
            self.failures.append("%s: expected %r, got %r" % (what, expected, got))
        return got == expected

    def true(self, what, condition):
        return self.equal(what, bool(condition), True)


def check_golden(ctx):
    """golden.txt: after its header, cases that each begin with '== title' after an empty line and
    '$ args' (@corpus and @work stand for the two folders), then 'status N', 'stdout:' and 'stderr:'
    with the expected lines. A case passes when a run prints the case again exactly, trailing empty
    lines of each stream left out; --update-golden writes what the runs print."""
    checks = Checks()
    make_inputs(ctx)
    header, *cases = pathlib.Path(GOLDEN).read_text(encoding="utf-8").split("\n== ")
    for index, case in enumerate(cases):
        title, args = case.split("\n")[0], case.split("\n")[1][2:]
        argv = [a.replace("@corpus", ctx.corpus).replace("@work", ctx.work) for a in shlex.split(args)]
        status, out, err = ctx.run(*argv)
        streams = [text.replace(ctx.corpus, "@corpus").replace(ctx.work, "@work").rstrip("\n") + "\n"
                   if text.strip("\n") else "" for text in (out, err)]
        cases[index] = "%s\n$ %s\nstatus %d\nstdout:\n%sstderr:\n%s" % (title, args, status, *streams)
        checks.equal(title, cases[index], case)
    if ctx.update_golden:
        pathlib.Path(GOLDEN).write_text("\n== ".join([header, *cases]), encoding="utf-8")
    return checks


def make_inputs(ctx):
    """PNGs and damaged files used by several checks, written into the work folder."""
    for name, width, height, pixel, depth in (
            ("red.png", 20, 12, lambda x, y: (x * 12, y * 20, 200, 255), 8),
            ("green.png", 10, 10, lambda x, y: (0, 255, x * 20, 128 + y), 8),
            ("deep.png", 8, 6, lambda x, y: (60000 - x, 1000 + y, 30000, 65535 - 1000 * x), 16)):
        pixels = [v for y in range(height) for x in range(width) for v in pixel(x, y)]
        pngio.write_png(ctx.path(name), width, height, pixels, bit_depth=depth)
    whole = pathlib.Path(ctx.corpus_file("psdtools-1layer.psd")).read_bytes()
    for name, contents in (("badsignature.psd", b"8BPX\x00\x01" + bytes(20)), ("notpng.png", b"this is not an image\n"),
                           ("truncated.psd", whole[:len(whole) // 2])):
        pathlib.Path(ctx.path(name)).write_bytes(contents)


def info_json(ctx, path):
    status, out, err = ctx.run("info", "--json", path)
    if status != 0:
        raise AssertionError("info --json %s failed (%d): %s" % (path, status, err.strip()))
    return json.loads(out)


def samples(path):
    return pngio.read_png(path)["samples"]


# ---------------------------------------------------------------------------------- create

CREATE_LAYERS = ["@red.png", "[group:Inner#80", "@green.png:Green@5,4#50", "]", "@red.png:Top@12,14#40",
                 "@red.png:Hidden!hidden"]


def create_sample(ctx, out):
    make_inputs(ctx)
    layers = [ctx.path(a[1:]) if a[0] == "@" else a for a in CREATE_LAYERS]
    status, _, err = ctx.run("create", out, "--size", "32x24", *layers)
    if status != 0:
        raise AssertionError("create failed (%d): %s" % (status, err.strip()))


def oracle(path, stored=False):
    """psd-tools' layers and rendering of `path`, or with `stored` its stored merged image."""
    sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "interop"))
    import psdtools_oracle  # psd-tools is needed by these checks only, not by the golden cases
    return psdtools_oracle.stored(path) if stored else psdtools_oracle.rendered(path)


def check_create(ctx):
    """create -> info shows what was asked; psd-tools reads the same layers, pixels and composite;
    export gives back the PNGs it was made from."""
    checks, out = Checks(), ctx.path("made.psd")
    create_sample(ctx, out)
    # Size and depth are in the golden case "create builds a document"; layers bottom first.
    seen = oracle(out)
    checks.equal("psd-tools layers", [[l[k] for k in ("name", "kind", "bbox", "visible", "opacity", "parent")]
                                      for l in seen["layers"]], [
        ["red", "pixel", [0, 0, 20, 12], True, 255, None], ["Inner", "group", [5, 4, 15, 14], True, 204, None],
        ["Green", "pixel", [5, 4, 15, 14], True, 127, "Inner"], ["Top", "pixel", [12, 14, 32, 26], True, 102, None],
        ["Hidden", "pixel", [0, 0, 20, 12], False, 255, None]])
    by_name = {l["name"]: l for l in seen["layers"]}
    checks.equal("export of the created file", ctx.run("export", out, ctx.path("e"))[::2], (0, ""))
    for name, png, exported_png in (("red", "red.png", "layer-000-red.png"), ("Hidden", "red.png", None),
                                    ("Green", "green.png", "layer-002-Green.png")):
        checks.equal("psd-tools pixels of " + name, by_name[name].get("rgba"), samples(ctx.path(png)))
        if exported_png:
            got = pngio.read_png(ctx.path("e/" + exported_png))
            checks.equal(exported_png + " pixels, no profile (device RGB)", [got["samples"], got["icc"]],
                         [samples(ctx.path(png)), None])

    # The composite: where psd-tools' rendering is transparent its colour is arbitrary. The file
    # stores it matted against white in 8 bits and export un-mattes it, so a colour carries the
    # stored sample's rounding (half a step) enlarged by 255 / alpha.
    mine, theirs, worst = samples(ctx.path("e/composite.png")), seen["composite"], 0
    for i in range(0, len(theirs), 4):
        worst = max(worst, abs(mine[i + 3] - theirs[i + 3]))
        if theirs[i + 3] > 0:
            allowed = 1 + math.ceil(127.5 / max(mine[i + 3], 1))
            worst = max(worst, *(abs(mine[i + c] - theirs[i + c]) - allowed + 1 for c in range(3)))
    checks.true("composite within 1/255 (plus the matte's rounding) of psd-tools' rendering (worst %d)" % worst,
                len(mine) == len(theirs) and worst <= 1)

    for depth, big, name in (("16", [], "deep16.psd"), ("32", ["--psb"], "deep32.psb")):
        status, _, err = ctx.run("create", ctx.path(name), "--size", "8x6", "--depth", depth, *big,
                                 ctx.path("deep.png"), ctx.path("green.png") + "@1,1")
        doc = info_json(ctx, ctx.path(name))
        checks.equal("create --depth %s: status, depth, PSB, layers" % depth,
                     [status, err, doc["bitDepth"], doc["bigFile"], len(doc["layers"])],
                     [0, "", int(depth), bool(big), 2])
    seen = oracle(ctx.path("deep16.psd"))
    checks.equal("psd-tools reads the 16-bit document and its samples",
                 [seen["depth"], [l["name"] for l in seen["layers"]], seen["layers"][0].get("rgba")],
                 [16, ["deep", "green"], [round(v / 65535 * 255) for v in samples(ctx.path("deep.png"))]])
    ctx.run("export", ctx.path("deep16.psd"), ctx.path("d"))
    got = pngio.read_png(ctx.path("d/layer-000-deep.png"))
    checks.equal("16-bit layer exported 16-bit with equal samples", [got["bit_depth"], got["samples"]],
                 [16, samples(ctx.path("deep.png"))])
    return checks


# ---------------------------------------------------------------------------------- export


def check_export(ctx):
    """export of corpus files writes PNGs equal to psd-tools' layers, with the document's profile,
    masks and alpha channels at their size, and an index.html naming them; 32-bit is tone-mapped."""
    checks = Checks()
    # A real file with a profile, three 8-bit layers and a saved alpha channel.
    source = ctx.corpus_file("oiio-psd-Layers_8bit_RGB.psd")
    checks.equal("corpus export status", ctx.run("export", source, ctx.path("o"))[::2], (0, ""))
    files = sorted(os.listdir(ctx.path("o")))
    profile_length = info_json(ctx, source)["colorProfile"]["length"]
    pixel_layers = [l for l in oracle(source)["layers"] if l["kind"] == "pixel"]
    layer_pngs = [f for f in files if f.startswith("layer-") and not f.endswith("-mask.png")]
    checks.equal("one PNG per pixel layer", len(layer_pngs), len(pixel_layers))
    for name, layer in zip(layer_pngs, pixel_layers):
        got = pngio.read_png(ctx.path("o/" + name))
        checks.equal(name + " pixels equal psd-tools' layer and carry the document's profile",
                     [got["samples"], len(got["icc"] or b"")], [layer["rgba"], profile_length])
    alpha = pngio.read_png(ctx.path("o/alpha-000-Alpha_1.png"))
    checks.equal("alpha channel PNG, grey, document sized", [[f for f in files if f.startswith("alpha-")],
                 alpha["channels"], alpha["width"], alpha["height"]], [["alpha-000-Alpha_1.png"], 1, 48, 27])
    checks.equal("one thread writes the same PNGs as three", exported(ctx, source, "o1", "--threads", "1"),
                 exported(ctx, source, "o3", "--threads", "3"))
    page = pathlib.Path(ctx.path("o/index.html")).read_text(encoding="utf-8")
    checks.equal("index.html shows every PNG", [f for f in files if f.endswith(".png") and f'src="{f}"' not in page],
                 [])

    masked = ctx.corpus_file("oiio-psd-different-mask-size.psd")
    ctx.run("export", masked, ctx.path("m"))
    masks = [f for f in sorted(os.listdir(ctx.path("m"))) if f.endswith("-mask.png")]
    rects = [l["mask"]["maskRect"] for l in info_json(ctx, masked)["layers"] if l["hasLayerMask"]]
    pngs = [pngio.read_png(ctx.path("m/" + name)) for name in masks]
    checks.equal("one grey mask PNG per mask, mask sized",
                 [[png["channels"], png["width"], png["height"]] for png in pngs],
                 [[1, right - left, bottom - top] for top, left, bottom, right in rects])

    status, _, err = ctx.run("export", ctx.corpus_file("psdtools-32bit.psd"), ctx.path("f"))
    checks.equal("32-bit export says it tone-maps, naming the file",
                 (status, "clipped to 0..1" in err, "psdtools-32bit.psd" in err), (0, True, True))
    checks.equal("32-bit composite becomes 16-bit", pngio.read_png(ctx.path("f/composite.png"))["bit_depth"], 16)
    check_unmatted_composites(ctx, checks)
    return checks


def check_unmatted_composites(ctx, checks):
    """The composite of every 8-bit corpus file with merged transparency has psd-tools' colours
    (the stored image freed of its white matte) wherever alpha > 0, within one step of rounding."""
    compared = 0
    for name in sorted(n for n in os.listdir(ctx.corpus) if n.endswith((".psd", ".psb"))):
        path = ctx.corpus_file(name)
        status, out, _ = ctx.run("info", "--json", path)
        if status != 0 or not json.loads(out)["compositeImageHasAlphaChannel"] or json.loads(out)["bitDepth"] != 8:
            continue
        folder = ctx.path("u-" + name)
        if not checks.equal(name + " export", ctx.run("export", path, folder)[::2], (0, "")):
            continue
        mine = samples(os.path.join(folder, "composite.png"))
        try:
            theirs = oracle(path, stored=True)
        except Exception:  # noqa: B902 (psd-tools raises whatever its parser meets)
            continue  # psd-tools cannot read it
        if theirs["mode"] != "RGBA" or mine[3::4] != theirs["rgba"][3::4]:
            continue  # the two readers take merged transparency from different channels
        compared += 1
        worst = max([abs(mine[i + c] - theirs["rgba"][i + c])
                     for i in range(0, len(mine), 4) if mine[i + 3] > 0 for c in range(3)] or [0])
        checks.true("%s composite colours equal psd-tools' where alpha > 0 (worst %d)" % (name, worst), worst <= 1)
    checks.true("some corpus composites with transparency were compared (%d)" % compared, compared >= 3)


# ---------------------------------------------------------------------------------- rewrite


def content(ctx, path):
    """info --json without the fields that name the file or its variant, or that a write
    regenerates (channel count and merged-transparency flag, metadata)."""
    doc = info_json(ctx, path)
    for key in ("file", "format", "bigFile", "numberOfChannels", "compositeImageHasAlphaChannel", "metadata"):
        doc.pop(key)
    return doc


def exported(ctx, path, folder, *options):
    status, _, err = ctx.run("export", path, ctx.path(folder), *options)
    if status != 0:
        raise AssertionError("export of %s failed: %s" % (path, err))
    return {png.name: png.read_bytes() for png in sorted(pathlib.Path(ctx.path(folder)).glob("*.png"))}


def check_rewrite(ctx):
    """rewrite --psb then rewrite --psd gives back a document equal in content to the original."""
    checks, made = Checks(), ctx.path("made.psd")
    create_sample(ctx, made)
    for i, source in enumerate([made] + [ctx.corpus_file(name) for name in (
            "agpsd-groups.psd", "oiio-psd-Layers_16bit_RGB.psd", "psdtools-32bit.psd")]):
        name, big, back = os.path.basename(source), ctx.path("big%d.psb" % i), ctx.path("back%d.psd" % i)
        checks.equal(name + " rewrite --psb", ctx.run("rewrite", source, big, "--psb")[::2], (0, ""))
        checks.equal(name + " is a PSB", info_json(ctx, big)["bigFile"], True)
        checks.equal(name + " rewrite --psd", ctx.run("rewrite", big, back, "--psd")[::2], (0, ""))
        checks.equal(name + " content after PSD -> PSB -> PSD", content(ctx, back), content(ctx, source))
        checks.equal(name + " pixels after PSD -> PSB -> PSD", exported(ctx, back, "b%d" % i),
                     exported(ctx, source, "a%d" % i))
    checks.equal("--psb with --psd is a usage error",
                 ctx.run("rewrite", made, ctx.path("x.psd"), "--psb", "--psd")[0], 1)
    return checks


# ---------------------------------------------------------------------------------- failures


def limit_file_size():
    """Lets a write fail half-way: the file size limit (EFBIG after 4 KiB) without the signal."""
    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))


def check_failures(ctx):
    """Refused input and a write that fails half-way give their exit status and error text, leave
    no output or temporary file, and leave an existing OUT untouched; trace lines go to stderr only
    when asked for. (Exit statuses and texts of refused files are in the golden cases too.)"""
    checks, old = Checks(), b"previous contents"
    make_inputs(ctx)
    corrupt, clipping = ctx.path("badsignature.psd"), ctx.corpus_file("psdtools-clipping-mask.psd")
    for title, args, out, before, status, message, limited in (  # before: what OUT holds already
            ("rewrite of a corrupt file", ["rewrite", corrupt], "out.psd", None, 2, "(readCorruptFile)", False),
            ("export of a corrupt file", ["export", corrupt], "outdir", None, 2, "(readCorruptFile)", False),
            ("create with a bad PNG", ["create"], "keep.psd", old, 2, "notpng.png: not a PNG file", False),
            ("rewrite cut short", ["rewrite", clipping], "cut.psd", None, 3, "File too large", True),
            ("rewrite cut short over a file", ["rewrite", clipping], "keep.psd", old, 3, "File too large", True)):
        path = pathlib.Path(ctx.path(out))
        if before:
            path.write_bytes(before)
        pngs = ["--size", "4x4", ctx.path("red.png"), ctx.path("notpng.png")] if args == ["create"] else []
        got, _, err = ctx.run(*args, path, *pngs, **({"preexec_fn": limit_file_size} if limited else {}))
        # Afterwards OUT holds what it held, or nothing at all (an empty folder at most).
        after = path.read_bytes() if before else path.is_file() or path.is_dir() and any(path.iterdir())
        checks.equal(title + ": status, message, OUT and temporary files afterwards",
                     [got, message in err, after, [f for f in os.listdir(ctx.work) if f.startswith(".")]],
                     [status, True, before or False, []])
    groups = ctx.corpus_file("agpsd-groups.psd")
    _, out, _ = ctx.run("info", "--json", groups)
    _, out_traced, err = ctx.run("--trace", "info", "--json", groups)
    checks.equal("--trace keeps stdout unchanged and writes block lines to stderr",
                 [out_traced == out, "Signature '8BIM' Key" in err], [True, True])
    return checks


# ---------------------------------------------------------------------------------- page

# The colour of the bar and mark beside a clipped layer (HtmlIndex.cpp's .clipped style).
CLIP_COLOUR = (0x6A, 0x8F, 0xD0)
# The largest file the page may show as a thumbnail; the full images are only linked.
LARGEST_THUMBNAIL = 48 * 1024


def check_page(ctx):
    """The export page in a real browser: headless Chromium loads index.html of corpus files and
    takes a screenshot. The page loads with every image it names, the images it shows are small
    thumbnails, clipped layers are marked and layers inside a hidden group are faded."""
    from PIL import Image  # psd-tools brings Pillow with it

    checks = Checks()
    if not checks.true("chromium is installed (scripts/setup.sh installs it)", shutil.which("chromium")):
        return checks
    for name in ("psdtools-clipping-mask.psd", "psdjs-example.psd"):
        source, folder, shot = ctx.corpus_file(name), ctx.path("page-" + name), ctx.path("shot-" + name + ".png")
        if not checks.equal(name + " export", ctx.run("export", source, folder)[::2], (0, "")):
            continue
        # Written by the tool itself: one tag per element, attributes in quotes.
        page = pathlib.Path(folder, "index.html").read_text(encoding="utf-8")
        for src in map(html.unescape, re.findall(r'<img [^>]*src="([^"]*)"', page)):
            path = os.path.join(folder, src)
            if checks.true(name + " page names an existing image: " + src, os.path.isfile(path)) and \
                    src not in ("composite.png", "rendered.png"):  # the page shows these two large
                with Image.open(path) as image:
                    checks.equal("%s shows a small thumbnail %s: bytes, largest side" % (name, src),
                                 [os.path.getsize(path) <= LARGEST_THUMBNAIL, max(image.size) <= 128], [True, True])
        with tempfile.TemporaryDirectory(prefix="psdkit-chromium-") as profile:
            done = subprocess.run(
                ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--user-data-dir=" + profile, "--hide-scrollbars", "--window-size=1000,3000", "--screenshot=" + shot,
                 "file://" + os.path.join(folder, "index.html")], capture_output=True, timeout=120)
        said = done.stderr[-400:].decode("utf-8", "replace")
        if not checks.true("%s screenshot taken (%d: %s)" % (name, done.returncode, said),
                           done.returncode == 0 and os.path.exists(shot)):
            continue
        with Image.open(shot) as image:
            colours = image.convert("RGB").getcolors(maxcolors=1 << 20) or []
        checks.true(name + " page is drawn (not blank)", len(colours) > 50)

        doc = info_json(ctx, source)
        if any(l.get("clipping") for l in doc["layers"]):
            clip_pixels = sum(count for count, colour in colours if colour == CLIP_COLOUR)
            checks.true(name + " clipped layer is marked in the screenshot (%d pixels)" % clip_pixels,
                        clip_pixels >= 100)
        layers = {l["index"]: l for l in doc["layers"]}

        def in_hidden_group(layer):
            parent = layer["parent"]
            while parent is not None and layers[parent]["visible"]:
                parent = layers[parent]["parent"]
            return parent is not None

        shown = [l for l in sorted(doc["layers"], key=lambda l: -l["index"]) if l["type"] != "sectionDivider"]
        if any(in_hidden_group(l) for l in shown):
            checks.equal(name + " layers in hidden groups are faded like hidden layers",
                         ["hidden" in row.split() for row in re.findall(r'<div class="(layer(?: [^"]*)?)"', page)],
                         [not l["visible"] or in_hidden_group(l) for l in shown])
    return checks


GROUPS = {"golden": check_golden, "create": check_create, "export": check_export,
          "rewrite": check_rewrite, "failures": check_failures, "page": check_page}


def main(argv):
    args = [a for a in argv[1:] if a != "--update-golden"]
    if len(args) < 2:
        print(__doc__)
        return 2
    failures = []
    for group in args[2:] or GROUPS:
        with tempfile.TemporaryDirectory(prefix="psdkit-tool-") as work:
            try:
                checks = GROUPS[group](Context(os.path.abspath(args[0]), os.path.abspath(args[1]), work,
                                               "--update-golden" in argv))
            except Exception as e:  # a crash of the test itself counts as one failure
                checks = Checks()
                checks.equal(group, "%s: %s" % (type(e).__name__, e), "no exception")
        print("".join("FAIL [%s] %s\n" % (group, failure) for failure in checks.failures), end="")
        print("%s: %d checks, %d failed" % (group, checks.count, len(checks.failures)))
        failures += checks.failures
    print("%d failed" % len(failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
