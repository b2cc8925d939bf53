"""The export page in a real browser: headless Chromium loads index.html of corpus files and takes
a screenshot. Checks that the page loads with every image it names, that the images it shows are
small thumbnails, that clipped layers are marked and that layers inside a hidden group are faded."""
import html.parser
import json
import os
import shutil
import subprocess
import tempfile

# The colour of the bar and mark beside a clipped layer (HtmlIndex.cpp's .clipped style).
CLIP_COLOUR = (0x6A, 0x8F, 0xD0)
# The largest file the page may show as a thumbnail; the full images are only linked.
LARGEST_THUMBNAIL = 48 * 1024


class PageImages(html.parser.HTMLParser):
    """The sources of <img> elements and the classes of layer rows of a page."""

    def __init__(self):
        super().__init__()
        self.sources = []
        self.layer_rows = []

    def handle_starttag(self, tag, attrs):
        attrs = dict(attrs)
        if tag == "img":
            self.sources.append(attrs.get("src", ""))
        if tag == "div" and "layer" in (attrs.get("class") or "").split():
            self.layer_rows.append((attrs.get("class") or "").split())


def screenshot(page, out):
    """Runs headless Chromium on `page`; returns (exit status, stderr tail)."""
    profile = tempfile.mkdtemp(prefix="psdkit-chromium-")
    try:
        done = subprocess.run(
            ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--user-data-dir=" + profile, "--hide-scrollbars", "--window-size=1000,3000",
             "--screenshot=" + out, "file://" + os.path.abspath(page)],
            capture_output=True, timeout=120)
        return done.returncode, done.stderr.decode("utf-8", "replace")[-400:]
    finally:
        shutil.rmtree(profile, ignore_errors=True)


def check_page(ctx):
    from PIL import Image  # psd-tools brings Pillow with it

    from tool_cases import Checks, info_json
    checks = Checks()
    if not shutil.which("chromium"):
        checks.true("chromium is installed (scripts/setup.sh installs it)", False)
        return checks.result()
    for name in ("psdtools-clipping-mask.psd", "psdjs-example.psd"):
        source = ctx.corpus_file(name)
        folder = ctx.path("page-" + name)
        status, _, err = ctx.run("export", source, folder)
        if not checks.equal(name + " export", (status, err), (0, "")):
            continue
        page = os.path.join(folder, "index.html")
        parser = PageImages()
        with open(page, encoding="utf-8") as f:
            parser.feed(f.read())
        for src in parser.sources:
            path = os.path.join(folder, src)
            if not checks.true(name + " page names an existing image: " + src, os.path.isfile(path)):
                continue
            if src not in ("composite.png", "rendered.png"):  # the page shows these two large
                checks.true("%s shows a small thumbnail %s (%d bytes)" % (name, src, os.path.getsize(path)),
                            os.path.getsize(path) <= LARGEST_THUMBNAIL)
                with Image.open(path) as image:
                    checks.true(name + " thumbnail at most 128 px: " + src, max(image.size) <= 128)

        shot = ctx.path("shot-" + name + ".png")
        status, err = screenshot(page, shot)
        if not checks.true("%s screenshot taken (%d: %s)" % (name, status, err), status == 0 and os.path.exists(shot)):
            continue
        with Image.open(shot) as image:
            pixels = image.convert("RGB")
            colours = pixels.getcolors(maxcolors=1 << 20) or []
        checks.true(name + " page is drawn (not blank)", len(colours) > 50)

        doc = info_json(ctx, source)
        layers = {l["index"]: l for l in doc["layers"]}
        if any(l.get("clipping") for l in doc["layers"]):
            clip_pixels = sum(count for count, colour in colours if colour == CLIP_COLOUR)
            checks.true(name + " clipped layer is marked in the screenshot (%d pixels)" % clip_pixels,
                        clip_pixels >= 100)

        def in_hidden_group(layer):
            parent = layer["parent"]
            while parent is not None:
                if not layers[parent]["visible"]:
                    return True
                parent = layers[parent]["parent"]
            return False

        shown = [l for l in sorted(doc["layers"], key=lambda l: -l["index"]) if l["type"] != "sectionDivider"]
        expected_faded = [not l["visible"] or in_hidden_group(l) for l in shown]
        faded = ["hidden" in row for row in parser.layer_rows]
        if any(in_hidden_group(l) for l in shown):
            checks.equal(name + " layers in hidden groups are faded like hidden layers", faded, expected_faded)
    return checks.result()
