"""The behaviour checks of run_tool_tests.py. Each check_* takes the run context and returns
(number of checks, list of failure texts)."""
import json
import math
import os
import subprocess

import pngio

def make_inputs(ctx):
    """PNGs and damaged files used by several checks, written into the work folder."""
    red = []
    for y in range(12):
        for x in range(20):
            red += [x * 12, y * 20, 200, 255]
    pngio.write_png(ctx.path("red.png"), 20, 12, red)
    green = []
    for y in range(10):
        for x in range(10):
            green += [0, 255, x * 20, 128 + y]
    pngio.write_png(ctx.path("green.png"), 10, 10, green)
    deep = []
    for y in range(6):
        for x in range(8):
            deep += [60000 - x, 1000 + y, 30000, 65535 - 1000 * x]
    pngio.write_png(ctx.path("deep.png"), 8, 6, deep, bit_depth=16)
    with open(ctx.path("badsignature.psd"), "wb") as f:
        f.write(b"8BPX\x00\x01" + bytes(20))
    with open(ctx.corpus_file("psdtools-1layer.psd"), "rb") as f:
        data = f.read()
    with open(ctx.path("truncated.psd"), "wb") as f:
        f.write(data[:len(data) // 2])
    with open(ctx.path("notpng.png"), "wb") as f:
        f.write(b"this is not an image\n")


def info_json(ctx, path):
    status, out, err = ctx.run("info", "--json", path)
    if status != 0:
        raise AssertionError("info --json %s failed (%d): %s" % (path, status, err.strip()))
    return json.loads(out)


class Checks:
    def __init__(self):
        self.count = 0
        self.failures = []

    def equal(self, what, got, expected):
        self.count += 1
        if got != expected:
            self.failures.append("%s: expected %r, got %r" % (what, expected, got))
            return False
        return True

    def true(self, what, condition):
        return self.equal(what, bool(condition), True)

    def result(self):
        return self.count, self.failures


# ---------------------------------------------------------------------------------- create

CREATE_LAYERS = ["red.png", "[group:Inner#80", "green.png:Green@5,4#50", "]",
                 "red.png:Top@12,14#40", "red.png:Hidden!hidden"]


def create_sample(ctx, out, *extra):
    make_inputs(ctx)
    status, stdout, err = ctx.run("create", out, "--size", "32x24", *extra,
                                  *[a if not a.endswith(".png") and ".png:" not in a else ctx.path(a)
                                    for a in CREATE_LAYERS])
    if status != 0:
        raise AssertionError("create failed (%d): %s" % (status, err.strip()))
    return stdout


def oracle(path, *options):
    script = os.path.join(os.path.dirname(__file__), "..", "interop", "psdtools_oracle.py")
    done = subprocess.run(["/usr/bin/python3", script, *options, path], capture_output=True, timeout=300)
    if done.returncode != 0:
        raise AssertionError("psd-tools cannot read %s: %s" % (path, done.stderr.decode()[-400:]))
    return json.loads(done.stdout)


def check_create(ctx):
    """create -> info shows what was asked; psd-tools reads the same layers, pixels and composite."""
    checks = Checks()
    out = ctx.path("made.psd")
    create_sample(ctx, out)
    doc = info_json(ctx, out)
    checks.equal("size and depth", [doc["imageWidth"], doc["imageHeight"], doc["bitDepth"], doc["bigFile"]],
                 [32, 24, 8, False])
    rows = [[l["name"], l["type"], l["contentsRect"], round(l["opacity"] * 255), l["visible"], l["parent"]]
            for l in doc["layers"]]
    checks.equal("layer records bottom first", rows, [
        ["red", "regular", [0, 0, 12, 20], 255, True, None],
        ["</Layer group>", "sectionDivider", [0, 0, 0, 0], 255, True, 3],
        ["Green", "regular", [4, 5, 14, 15], 127, True, 3],
        ["Inner", "group", [0, 0, 0, 0], 204, True, None],
        ["Top", "regular", [14, 12, 26, 32], 102, True, None],
        ["Hidden", "regular", [0, 0, 12, 20], 255, False, None],
    ])

    seen = oracle(out)
    checks.equal("psd-tools layers", [[l["name"], l["kind"], l["bbox"], l["visible"]] for l in seen["layers"]], [
        ["red", "pixel", [0, 0, 20, 12], True], ["Inner", "group", [5, 4, 15, 14], True],
        ["Green", "pixel", [5, 4, 15, 14], True], ["Top", "pixel", [12, 14, 32, 26], True],
        ["Hidden", "pixel", [0, 0, 20, 12], False]])
    by_name = {l["name"]: l for l in seen["layers"]}
    for name, png in (("red", "red.png"), ("Green", "green.png"), ("Hidden", "red.png")):
        checks.equal("psd-tools pixels of " + name, by_name[name].get("rgba"), pngio.read_png(ctx.path(png))["samples"])

    # The composite: where psd-tools' rendering is transparent its colour is arbitrary. The file
    # stores it matted against white in 8 bits and export un-mattes it, so a colour carries the
    # stored sample's rounding (half a step) enlarged by 255 / alpha.
    status, _, err = ctx.run("export", out, ctx.path("export"))
    checks.equal("export of the created file", (status, err), (0, ""))
    mine = pngio.read_png(ctx.path("export/composite.png"))["samples"]
    theirs = seen["composite"]
    worst = 0
    for i in range(0, len(theirs), 4):
        worst = max(worst, abs(mine[i + 3] - theirs[i + 3]))
        if theirs[i + 3] > 0:
            allowed = 1 + math.ceil(127.5 / max(mine[i + 3], 1))
            worst = max(worst, *(abs(mine[i + c] - theirs[i + c]) - allowed + 1 for c in range(3)))
    checks.true("composite within 1/255 (plus the matte's rounding) of psd-tools' rendering (worst %d)" % worst,
                len(mine) == len(theirs) and worst <= 1)

    for depth, big in (("16", False), ("32", True)):
        deep = ctx.path("deep%s.ps%s" % (depth, "b" if big else "d"))
        status, _, err = ctx.run("create", deep, "--size", "8x6", "--depth", depth, *(["--psb"] if big else []),
                                 ctx.path("deep.png"), ctx.path("green.png") + "@1,1")
        checks.equal("create --depth %s status" % depth, (status, err), (0, ""))
        doc = info_json(ctx, deep)
        checks.equal("create --depth %s info" % depth, [doc["bitDepth"], doc["bigFile"], len(doc["layers"])],
                     [int(depth), big, 2])
    seen = oracle(ctx.path("deep16.psd"))
    checks.equal("psd-tools reads the 16-bit document", [seen["depth"], [l["name"] for l in seen["layers"]]],
                 [16, ["deep", "green"]])
    deep_samples = pngio.read_png(ctx.path("deep.png"))["samples"]
    checks.equal("psd-tools sees the 16-bit samples", seen["layers"][0].get("rgba"),
                 [round(v / 65535 * 255) for v in deep_samples])
    return checks.result()


# ---------------------------------------------------------------------------------- export


def check_export(ctx):
    """export writes PNGs equal to the layer images, with the document's profile, and index.html."""
    checks = Checks()
    out = ctx.path("made.psd")
    create_sample(ctx, out)
    status, stdout, err = ctx.run("export", out, ctx.path("e"))
    checks.equal("export status", (status, err), (0, ""))
    for name, png in (("layer-000-red.png", "red.png"), ("layer-002-Green.png", "green.png")):
        got = pngio.read_png(ctx.path("e/" + name))
        checks.equal(name + " pixels", got["samples"], pngio.read_png(ctx.path(png))["samples"])
        checks.equal(name + " has no profile (device RGB)", got["icc"], None)

    deep = ctx.path("deep.psd")
    ctx.run("create", deep, "--size", "8x6", "--depth", "16", ctx.path("deep.png"))
    ctx.run("export", deep, ctx.path("d"))
    got = pngio.read_png(ctx.path("d/layer-000-deep.png"))
    checks.equal("16-bit layer stays 16-bit with equal samples", [got["bit_depth"], got["samples"]],
                 [16, pngio.read_png(ctx.path("deep.png"))["samples"]])

    # A real file with a profile, three 8-bit layers and a saved alpha channel.
    source = ctx.corpus_file("oiio-psd-Layers_8bit_RGB.psd")
    status, stdout, err = ctx.run("export", source, ctx.path("o"))
    checks.equal("corpus export status", (status, err), (0, ""))
    files = sorted(os.listdir(ctx.path("o")))
    profile_length = info_json(ctx, source)["colorProfile"]["length"]
    seen = oracle(source)
    pixel_layers = [l for l in seen["layers"] if l["kind"] == "pixel"]
    layer_pngs = [f for f in files if f.startswith("layer-") and not f.endswith("-mask.png")]
    checks.equal("one PNG per pixel layer", len(layer_pngs), len(pixel_layers))
    for name, layer in zip(layer_pngs, pixel_layers):
        got = pngio.read_png(ctx.path("o/" + name))
        checks.equal(name + " pixels equal psd-tools' layer", got["samples"], layer["rgba"])
        checks.equal(name + " carries the document's profile", len(got["icc"] or b""), profile_length)
    alpha = [f for f in files if f.startswith("alpha-")]
    checks.equal("alpha channel PNG", alpha, ["alpha-000-Alpha_1.png"])
    if alpha:
        got = pngio.read_png(ctx.path("o/" + alpha[0]))
        checks.equal("alpha channel is grey, document sized", [got["channels"], got["width"], got["height"]],
                     [1, 48, 27])
    checks.equal("one thread writes the same PNGs as three", exported(ctx, source, "o1", "--threads", "1"),
                 exported(ctx, source, "o3", "--threads", "3"))
    with open(ctx.path("o/index.html"), encoding="utf-8") as f:
        page = f.read()
    for name in files:
        if name.endswith(".png"):
            checks.true("index.html shows " + name, 'src="%s"' % name in page)

    masked = ctx.corpus_file("oiio-psd-different-mask-size.psd")
    ctx.run("export", masked, ctx.path("m"))
    masks = [f for f in sorted(os.listdir(ctx.path("m"))) if f.endswith("-mask.png")]
    mask_rects = [l["mask"]["maskRect"] for l in info_json(ctx, masked)["layers"] if l["hasLayerMask"]]
    checks.equal("one mask PNG per mask", len(masks), len(mask_rects))
    for name, rect in zip(masks, mask_rects):
        got = pngio.read_png(ctx.path("m/" + name))
        checks.equal(name + " is grey and mask sized", [got["channels"], got["width"], got["height"]],
                     [1, rect[3] - rect[1], rect[2] - rect[0]])

    status, _, err = ctx.run("export", ctx.corpus_file("psdtools-32bit.psd"), ctx.path("f"))
    checks.equal("32-bit export says it tone-maps", (status, "clipped to 0..1" in err), (0, True))
    checks.true("the 32-bit note names the file", "psdtools-32bit.psd" in err)
    check_unmatted_composites(ctx, checks)
    checks.equal("32-bit composite becomes 16-bit", pngio.read_png(ctx.path("f/composite.png"))["bit_depth"], 16)
    return checks.result()


# ---------------------------------------------------------------------------------- rewrite


def check_unmatted_composites(ctx, checks):
    """The composite of every 8-bit corpus file with merged transparency has psd-tools' colours
    (the stored image freed of its white matte) wherever alpha > 0, within one step of rounding."""
    compared = 0
    for name in sorted(os.listdir(ctx.corpus)):
        if not name.endswith((".psd", ".psb")):
            continue
        path = ctx.corpus_file(name)
        status, out, _ = ctx.run("info", "--json", path)
        if status != 0:
            continue
        doc = json.loads(out)
        if not doc["compositeImageHasAlphaChannel"] or doc["bitDepth"] != 8:
            continue
        folder = ctx.path("u-" + name)
        status, _, err = ctx.run("export", path, folder)
        if not checks.equal(name + " export", (status, err), (0, "")):
            continue
        mine = pngio.read_png(os.path.join(folder, "composite.png"))["samples"]
        try:
            theirs = oracle(path, "--stored")
        except AssertionError:
            continue  # psd-tools cannot read it
        alpha_agrees = theirs["mode"] == "RGBA" and all(
            mine[i] == theirs["rgba"][i] for i in range(3, len(mine), 4))
        if not alpha_agrees:
            continue  # the two readers take merged transparency from different channels
        compared += 1
        worst = max([abs(mine[i + c] - theirs["rgba"][i + c])
                     for i in range(0, len(mine), 4) if mine[i + 3] > 0 for c in range(3)] or [0])
        checks.true("%s composite colours equal psd-tools' where alpha > 0 (worst %d)" % (name, worst),
                    worst <= 1)
    checks.true("some corpus composites with transparency were compared (%d)" % compared, compared >= 3)


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
    files = {}
    for name in sorted(os.listdir(ctx.path(folder))):
        if name.endswith(".png"):
            with open(ctx.path(folder + "/" + name), "rb") as f:
                files[name] = f.read()
    return files


def check_rewrite(ctx):
    """rewrite --psb then rewrite --psd gives back a document equal in content to the original."""
    checks = Checks()
    made = ctx.path("made.psd")
    create_sample(ctx, made)
    sources = [made, ctx.corpus_file("agpsd-groups.psd"), ctx.corpus_file("oiio-psd-Layers_16bit_RGB.psd"),
               ctx.corpus_file("psdtools-32bit.psd")]
    for i, source in enumerate(sources):
        name = os.path.basename(source)
        big, back = ctx.path("big%d.psb" % i), ctx.path("back%d.psd" % i)
        status, _, err = ctx.run("rewrite", source, big, "--psb")
        checks.equal(name + " rewrite --psb", (status, err), (0, ""))
        checks.equal(name + " is a PSB", info_json(ctx, big)["bigFile"], True)
        status, _, err = ctx.run("rewrite", big, back, "--psd")
        checks.equal(name + " rewrite --psd", (status, err), (0, ""))
        checks.equal(name + " content after PSD -> PSB -> PSD", content(ctx, back), content(ctx, source))
        checks.equal(name + " pixels after PSD -> PSB -> PSD", exported(ctx, back, "b%d" % i),
                     exported(ctx, source, "a%d" % i))
    status, _, err = ctx.run("rewrite", made, ctx.path("x.psd"), "--psb", "--psd")
    checks.equal("--psb with --psd is a usage error", status, 1)
    return checks.result()


# ---------------------------------------------------------------------------------- failures


def check_failures(ctx):
    """Refused input gives exit 2 and the error text, and leaves no output file; trace lines go
    to stderr only when asked for."""
    checks = Checks()
    make_inputs(ctx)
    corrupt = ctx.path("badsignature.psd")
    for command, target in (("rewrite", "out.psd"), ("export", "outdir")):
        status, out, err = ctx.run(command, corrupt, ctx.path(target))
        checks.equal(command + " of a corrupt file", [status, err.strip().endswith(
            "This file is corrupt. (readCorruptFile)")], [2, True])
        output = ctx.path(target)
        checks.true(command + " leaves no output", not os.path.exists(output) or os.listdir(output) == [])

    # A failing PNG fails the whole create and leaves an existing OUT untouched.
    existing = ctx.path("keep.psd")
    with open(existing, "wb") as f:
        f.write(b"previous contents")
    status, _, err = ctx.run("create", existing, "--size", "4x4", ctx.path("red.png"), ctx.path("notpng.png"))
    checks.equal("create with a bad PNG", [status, "notpng.png: not a PNG file" in err], [2, True])
    with open(existing, "rb") as f:
        checks.equal("the old OUT is untouched", f.read(), b"previous contents")
    checks.equal("no temporary file is left", sorted(f for f in os.listdir(ctx.work) if f.startswith(".")), [])

    # A write that fails half-way (here: the file size limit, EFBIG after 4 KiB) reports the error
    # and leaves neither a partial file nor the temporary one; an existing OUT stays untouched.
    def limit_file_size():
        import resource
        import signal
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))

    source = ctx.corpus_file("psdtools-clipping-mask.psd")
    for target, before in (("cut.psd", None), ("keep.psd", b"previous contents")):
        done = subprocess.run([ctx.tool, "rewrite", source, ctx.path(target)], capture_output=True, timeout=300,
                              preexec_fn=limit_file_size)
        err = done.stderr.decode("utf-8", "replace")
        checks.equal("rewrite cut short: status and message", [done.returncode, "File too large" in err], [3, True])
        if before is None:
            checks.true("rewrite cut short leaves no file", not os.path.exists(ctx.path(target)))
        else:
            with open(ctx.path(target), "rb") as f:
                checks.equal("rewrite cut short leaves OUT untouched", f.read(), before)
        checks.equal("rewrite cut short leaves no temporary file",
                     sorted(f for f in os.listdir(ctx.work) if f.startswith(".")), [])

    # check: exit 0 only when every file passed.
    good = ctx.corpus_file("psdtools-1layer.psd")
    checks.equal("check of good files", ctx.run("check", good, good)[0], 0)
    checks.equal("check with one bad file", ctx.run("check", good, ctx.path("truncated.psd"))[0], 2)

    # Trace lines: off by default, on stderr with --trace; stdout stays JSON either way.
    groups = ctx.corpus_file("agpsd-groups.psd")
    status, out, err = ctx.run("info", "--json", groups)
    checks.equal("no trace by default", err, "")
    status, out_traced, err = ctx.run("--trace", "info", "--json", groups)
    checks.equal("--trace keeps stdout unchanged", out_traced, out)
    checks.true("--trace writes block lines to stderr", "Signature '8BIM' Key" in err)
    return checks.result()
