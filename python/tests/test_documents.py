"""Opening in each mode, editing and saving, building from numpy arrays, descriptors, errors and
the lifetime of arrays."""

import gc
import os
import struct
import sys
from pathlib import Path

import numpy as np
import pytest

import psdkit
from psdkit import Code, Descriptor, Enumerated, UnitFloat

DTYPES = {8: np.uint8, 16: np.uint16, 32: np.float32}


def gradient(height, width, depth):
    """A (height, width, 4) RGBA image of the depth's dtype with distinct values per pixel."""
    top = {8: 255, 16: 65535, 32: 1.0}[depth]
    y, x = np.mgrid[0:height, 0:width]
    image = np.stack([x / max(width - 1, 1), y / max(height - 1, 1), (x + y) % 7 / 6, np.ones_like(x)], axis=-1)
    return (image * top).astype(DTYPES[depth])


def built_document(depth):
    doc = psdkit.Document(40, 30, depth)
    doc.add_layer("bottom", gradient(30, 40, depth))
    mask = np.zeros((10, 12), dtype=DTYPES[depth])
    mask[2:8, 3:9] = {8: 255, 16: 65535, 32: 1.0}[depth]
    doc.add_layer("top", gradient(20, 25, depth)[::-1].copy(), left=5, top=4, opacity=0.5,
                  blend_mode="mul ", visible=False, mask=mask)
    return doc


@pytest.mark.parametrize("depth", [8, 16, 32])
def test_document_built_from_arrays_round_trips(depth, tmp_path):
    doc = built_document(depth)
    path = tmp_path / "built.psd"
    doc.save(path)
    again = psdkit.open(path)
    assert (again.width, again.height, again.depth) == (40, 30, depth)
    bottom, top = again.layers
    assert (bottom.name, top.name) == ("bottom", "top")
    np.testing.assert_array_equal(bottom.pixels, doc.layers[0].pixels)
    np.testing.assert_array_equal(top.pixels, doc.layers[1].pixels)
    np.testing.assert_array_equal(top.mask, doc.layers[1].mask)
    assert top.bbox == (5, 4, 30, 24) and top.mask_bbox == (5, 4, 17, 14)
    assert (top.blend_mode, top.visible, round(top.opacity * 255)) == ("mul ", False, 127)
    assert again.to_bytes() == psdkit.open(again.to_bytes()).to_bytes()


def test_rgb_arrays_are_made_opaque_and_wrong_dtypes_refused():
    doc = psdkit.Document(4, 3)
    layer = doc.add_layer("rgb", np.full((3, 4, 3), 7, dtype=np.uint8))
    assert (layer.pixels[..., 3] == 255).all() and (layer.pixels[..., :3] == 7).all()
    strided = gradient(6, 8, 8)[::-2, ::2]  # a view with negative and doubled strides
    layer.pixels = strided
    np.testing.assert_array_equal(layer.pixels, strided)
    assert layer.bbox == (0, 0, 4, 3)
    with pytest.raises(TypeError):
        layer.pixels = np.zeros((3, 4, 4), dtype=np.float32)
    with pytest.raises(ValueError):
        layer.pixels = np.zeros((3, 4, 2), dtype=np.uint8)
    with pytest.raises(ValueError):
        psdkit.Document(4, 3, depth=12)


def test_field_edits_round_trip_through_save(corpus):
    doc = psdkit.open(corpus / "psdtools-layer_mask_data.psd")
    edits = {"name": "renamed ✓", "opacity": 0.2, "fill_opacity": 0.6, "visible": False, "clipping": True,
             "blend_mode": "scrn", "color_label": 3, "lock_flags": 1, "mask_disabled": True,
             "mask_default_color": 0.0}
    layer = doc.layers[-1]
    for field, value in edits.items():
        setattr(layer, field, value)
    layer.bbox = (layer.bbox[0] + 3, layer.bbox[1] + 2, layer.bbox[2] + 3, layer.bbox[3] + 2)
    again = psdkit.open(doc.to_bytes()).layers[-1]
    for field, value in edits.items():
        got = getattr(again, field)
        assert got == pytest.approx(value, abs=1 / 255), field
    assert again.bbox == layer.bbox
    np.testing.assert_array_equal(again.pixels, layer.pixels)


def test_out_of_range_values_are_refused_on_saving():
    doc = built_document(8)
    doc.layers[0].opacity = 1.5
    with pytest.raises(psdkit.PSDError) as error:
        doc.to_bytes()
    assert error.value.case == "writeParameterError"


@pytest.mark.parametrize("name", ["psdjs-example.psd", "agpsd-16bits.psd", "psdtools-32bit.psd"])  # 8, 16, 32 bits
@pytest.mark.parametrize("decoding", ["eager", "on_demand", "never"])
@pytest.mark.parametrize("keep", [False, True])
def test_every_reading_mode_reads_the_structure(corpus, name, decoding, keep):
    path = corpus / name
    eager = psdkit.open(path)
    source = path if keep else path.read_bytes()  # a mapped file or a shared bytes object
    doc = psdkit.open(source, decoding=decoding, keep_unknown_blocks=keep, threads=2)
    assert [(l.name, l.kind, l.bbox) for l in doc.layers] == [(l.name, l.kind, l.bbox) for l in eager.layers]
    if decoding != "never":
        for ours, reference in zip(doc.layers, eager.layers):
            if reference.pixels is not None:
                np.testing.assert_array_equal(ours.pixels, reference.pixels)
        psdkit.open(doc.to_bytes())  # a document with its pixels saves a readable file
        for ours, reference in zip(psdkit.open(source, decoding=decoding).layers, eager.layers):
            if reference.pixels is not None:
                np.testing.assert_array_equal(ours.take_pixels(), reference.pixels)
    else:
        # Without pixels the writer refuses, naming the layer, rather than write a file that
        # cannot be read back.
        with pytest.raises(psdkit.PSDError) as error:
            doc.to_bytes()
        assert error.value.case == "writeParameterError"


def test_sources_path_bytes_and_memoryview_agree(corpus):
    path = corpus / "psdtools-1layer.psd"
    data = path.read_bytes()
    for source in (str(path), path, data, memoryview(data), bytearray(data)):
        doc = psdkit.open(source)
        assert (doc.width, doc.height, len(doc.layers)) == (101, 55, 1)
    with pytest.raises(FileNotFoundError):
        psdkit.open(corpus / "no such file.psd")


def test_document_fields_and_resources(corpus):
    doc = psdkit.open(corpus / "oiio-psd-Layers_8bit_RGB.psd")
    assert (doc.color_mode, doc.is_psb, doc.resolution_units) == ("rgb", False, (1, 1))
    assert len(doc.image_resources) > 3 and doc.icc_profile[36:40] == b"acsp"
    assert [name.rstrip("\0") for name, _ in doc.alpha_channels] == ["Alpha 1"]  # names as stored
    assert doc.alpha_channels[0][1].shape == (doc.height, doc.width)
    doc.icc_profile = None
    doc.image_resources = doc.image_resources[:2]
    doc.size_units = (1, 2)
    again = psdkit.open(doc.to_bytes())
    assert again.icc_profile is None and again.image_resources[:2] == doc.image_resources
    assert again.size_units == (1, 2)


def test_xmp_metadata_moves_between_documents(corpus):
    source = psdkit.open(corpus / "oiio-psd-Layers_8bit_RGB.psd")
    built = built_document(8)
    assert built.xmp is None and built.metadata == {}
    built.xmp = source.xmp
    kept = {k: v for k, v in source.metadata.items() if "Resolution" not in k and "format" not in k}
    assert len(kept) > 3
    again = psdkit.open(built.to_bytes())
    assert kept.items() <= again.metadata.items() and b"xmpmeta" in again.xmp
    with pytest.raises(ValueError):
        built.xmp = b"<not xmp/>"


def test_properties_round_trip_under_the_host_identifier():
    from datetime import datetime, timezone
    doc = built_document(8)
    doc.layers[1].layer_id = 7
    values = {"n": -3, "x": 2.5, "on": True, "text": "ü", "data": b"\0\1", "nested": {"list": [1, "a"]},
              "when": datetime(2024, 5, 6, 7, 8, 9, tzinfo=timezone.utc),
              "PSD Layers": [{}, {"PSD Layer ID": 7, "tag": "top"}]}  # matched by index and ID
    doc.properties = values
    with pytest.raises(psdkit.PSDError):
        doc.to_bytes()  # nowhere to store them without an identifier
    psdkit.set_host("org.psdkit.tests")
    try:
        again = psdkit.open(doc.to_bytes())
        doc.properties = {"code": Code("Mltp")}
        with pytest.raises(psdkit.PSDError):
            doc.to_bytes()  # a code has no stored form
    finally:
        psdkit.set_host(None)
    assert again.properties == values and again.layers[1].properties["tag"] == "top"
    again.layers[0].properties = {"PSD Blend Mode": Code("scrn")}
    assert again.layers[0].blend_mode == "scrn"
    for bad in ({1: "key not str"}, {"v": object()}, {"when": datetime(2024, 1, 1)}):
        with pytest.raises((TypeError, ValueError)):
            doc.properties = bad


def test_stubs_name_every_public_attribute_with_a_docstring():
    import ast
    stubs = ast.parse((Path(psdkit.__file__).parent / "_psdkit.pyi").read_text())
    declared = {node.name: {n.target.id if isinstance(n, ast.AnnAssign) else n.name for n in node.body
                            if isinstance(n, (ast.AnnAssign, ast.FunctionDef))}
                for node in stubs.body if isinstance(node, ast.ClassDef)}
    declared[None] = {n.name for n in stubs.body if isinstance(n, (ast.FunctionDef, ast.ClassDef))}
    for cls in (psdkit.Document, psdkit.Layer, None):
        owner = cls if cls is not None else psdkit._psdkit
        public = {name for name in vars(owner) if not name.startswith("_")}
        assert public <= declared[cls.__name__ if cls else None], cls
        for name in public:
            assert (getattr(owner, name).__doc__ or "").strip(), name


def test_tree_walk_matches_the_groups(corpus):
    doc = psdkit.open(corpus / "agpsd-groups.psd")
    assert [(depth, node.name) for depth, node in doc.walk()] == [
        (0, "Group 1"), (1, "Layer 1"), (1, "Layer 3"), (1, "Group 2"), (0, "Layer 0")]
    group1 = next(iter(doc))
    assert group1.is_group and [c.name for c in group1] == ["Layer 1", "Layer 3", "Group 2"]
    assert group1.children[2].is_group and len(group1.children[2]) == 0
    assert group1.children[1].parent is group1 and group1.parent is None


def test_descriptors_keep_code_and_string_keys_apart(corpus):
    doc = psdkit.open(corpus / "psdtools-fill_adjustments.psd")
    fill = next(l for l in doc.layers if "SoCo" in l.tagged_blocks)
    descriptor = psdkit.layer_descriptor(fill, "SoCo")
    color = descriptor[Code("Clr ")]
    assert color.class_id == Code("RGBC") and "Clr " not in descriptor
    built = Descriptor({Code("Nm  "): "name\x00",  # text is kept as stored, NUL included
                        "longKey": 3, Code("Opct"): UnitFloat(50.0, "percent"),
                        Code("Md  "): Enumerated(Code("BlnM"), Code("Mltp")), Code("list"): [1.5, True, b"\x01"],
                        Code("nest"): color}, name="\0", class_id="customClass")
    again = psdkit.read_descriptor(psdkit.write_descriptor(built))
    assert again == built and again["longKey"] == 3 and Code("longKey") not in again
    assert psdkit.read_descriptor(psdkit.write_descriptor(descriptor)) == descriptor


def file_with_header(version=1, channels=3, depth=8, mode=3):
    return b"8BPS" + struct.pack(">H6xHIIHH", version, channels, 4, 4, depth, mode)


BAD_FILES = [
    ("empty", b"", "readUnexpectedEndOfFile"),
    ("not a psd", b"GIF89a" + bytes(40), "readCorruptFile"),
    ("version 3", file_with_header(version=3) + bytes(16), "readUnknownFileVersion"),
    ("CMYK", file_with_header(mode=4) + bytes(16), "readUnsupportedColorMode"),
    ("depth 7", file_with_header(depth=7) + bytes(16), "readCorruptFile"),
    ("header only", file_with_header(), "readUnexpectedEndOfFile"),
]


@pytest.mark.parametrize("label,data,case", BAD_FILES, ids=[b[0] for b in BAD_FILES])
def test_bad_files_raise_psd_error_with_the_case(label, data, case):
    with pytest.raises(psdkit.PSDError) as error:
        psdkit.open(data)
    assert error.value.case == case and case in str(error.value)


def test_truncated_corpus_files_raise_psd_error(corpus):
    data = (corpus / "psdtools-layer_mask_data.psd").read_bytes()
    for cut in (30, 200, len(data) // 2, len(data) - 10):
        with pytest.raises(psdkit.PSDError):
            psdkit.open(data[:cut])


def resident_kib():
    with open("/proc/self/statm") as statm:
        return int(statm.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024


def test_no_leak_across_1000_open_close_cycles(corpus):
    path = corpus / "agpsd-groups.psd"
    data = path.read_bytes()

    def cycle(index):
        doc = psdkit.open(data if index % 2 else path, decoding=("eager", "on_demand")[index % 4 // 2])
        for layer in doc.layers:
            layer.pixels
        doc.to_bytes()

    def mappings():
        with open("/proc/self/maps") as maps:
            return sum(1 for line in maps if path.name in line)

    for index in range(100):
        cycle(index)
    gc.collect()
    before, references = resident_kib(), sys.getrefcount(data)
    for index in range(1000):
        cycle(index)
    gc.collect()
    # One cycle allocates about a megabyte; a leak of any part of it would add hundreds of MB.
    assert resident_kib() - before < 20 * 1024
    assert sys.getrefcount(data) == references and mappings() == 0  # shared bytes and files let go


@pytest.mark.parametrize("depth", [8, 16, 32])
def test_arrays_stay_valid_after_the_document_is_dropped(depth):
    doc = built_document(depth)
    pixels, mask = doc.layers[1].pixels, doc.layers[1].mask
    expected_pixels, expected_mask = pixels.copy(), mask.copy()
    del doc
    gc.collect()
    filler = [np.full((30, 40, 4), 3, dtype=DTYPES[depth]) for _ in range(50)]  # reuse freed memory
    np.testing.assert_array_equal(pixels, expected_pixels)
    np.testing.assert_array_equal(mask, expected_mask)
    assert filler


def test_16_bit_arrays_share_the_layer_pixels_and_8_bit_ones_are_copies():
    for depth, shared in ((16, True), (8, False)):
        layer = built_document(depth).layers[0]
        layer.pixels[0, 0, 0] = 9
        assert (layer.pixels[0, 0, 0] == 9) == shared


@pytest.mark.parametrize("depth", [8, 16])
def test_take_pixels_moves_them_out_without_changing_them(depth):
    doc = built_document(depth)
    layer = doc.layers[1]
    expected = layer.pixels.copy()
    taken = layer.take_pixels()
    assert layer.pixels is None and taken.base is not None
    np.testing.assert_array_equal(taken, expected)


def test_render_blends_the_layers_by_their_opacity():
    doc = psdkit.Document(4, 3, 8)
    red = np.zeros((3, 4, 4), np.uint8)
    red[..., 0] = 255
    red[..., 3] = 255
    blue = np.zeros((1, 2, 4), np.uint8)
    blue[..., 2] = 255
    blue[..., 3] = 255
    doc.add_layer("red", red)
    doc.add_layer("blue", blue, left=1, top=1, opacity=128 / 255)
    image = doc.render()
    assert image.shape == (3, 4, 4)
    assert list(image[0, 0]) == [255, 0, 0, 255]
    # Half of the blue (128/255) over red, worked out by hand: 255 * 127/255 = 127 red, 128 blue.
    assert abs(int(image[1, 1, 0]) - 127) <= 1 and abs(int(image[1, 1, 2]) - 128) <= 1
    assert doc.render(region=(1, 1, 2, 1)).shape == (1, 2, 4)
    with pytest.raises(ValueError):
        doc.render(scale=0)
