"""The export page in a real browser: headless Chromium loads index.html of corpus files and takes
a screenshot. Checks that the page loads with every image it names, that the images it shows are
small thumbnails, that clipped layers are marked and that layers inside a hidden group are faded."""
import html
import os
import re
import shutil
import subprocess
import tempfile

from tool_cases import Checks, info_json

# The colour of the bar and mark beside a clipped layer (HtmlIndex.cpp's .clipped style).
CLIP_COLOUR = (0x6A, 0x8F, 0xD0)
# The largest file the page may show as a thumbnail; the full images are only linked.
LARGEST_THUMBNAIL = 48 * 1024


def check_page(ctx):
    from PIL import Image  # psd-tools brings Pillow with it

    checks = Checks()
    if not checks.true("chromium is installed (scripts/setup.sh installs it)", shutil.which("chromium")):
        return checks
    for name in ("psdtools-clipping-mask.psd", "psdjs-example.psd"):
        source, folder, shot = ctx.corpus_file(name), ctx.path("page-" + name), ctx.path("shot-" + name + ".png")
        if not checks.equal(name + " export", ctx.run("export", source, folder)[::2], (0, "")):
            continue
        with open(os.path.join(folder, "index.html"), encoding="utf-8") as f:
            page = f.read()  # written by the tool itself: one tag per element, attributes in quotes
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
