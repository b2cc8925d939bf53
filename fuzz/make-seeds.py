#!/usr/bin/python3
"""Builds the seed corpora of the fuzz targets from a folder of real PSD/PSB files.

    fuzz/make-seeds.py [CORPUS-DIR] [OUT-DIR]      (defaults: ../shared/corpus, fuzz/seeds)

Writes OUT-DIR/<target>/<name> for the targets document, descriptor, channels, propertylist and
metadata:
  document      whole small files, and small files with a host property list block added;
  descriptor    every descriptor found in the image resources and layer blocks, from its version;
  channels      layer, mask and composite channels cut out of the files, in the channel target's
                input layout (see fuzz/targets/ChannelTarget.cpp);
  propertylist  XML and binary property lists of the kinds documents store;
  metadata      the XMP, EXIF and IPTC resources of the files, and whole small files, each behind
                the metadata target's mode byte (see fuzz/targets/MetadataTarget.cpp).
Standard library only. Existing seeds of a target are replaced.
"""
import datetime
import hashlib
import os
import plistlib
import shutil
import struct
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
BUNDLE_ID = "org.psdkit.fuzz"  # the identifier the fuzz targets give the library
SMALL_FILE = 64 * 1024  # whole files up to this size are document seeds (larger ones run slowly)
SMALL_SEED = 64 * 1024  # other seeds up to this size
LONG_LENGTH_KEYS = {b"LMsk", b"Lr16", b"Lr32", b"Layr", b"Mt16", b"Mt32", b"Mtrn", b"Alph", b"FMsk",
                    b"lnk2", b"FEid", b"FXid", b"PxSD", b"artd", b"cinf", b"plst"}


class Cursor:
    """Big-endian reads over bytes; reading past the end raises IndexError."""

    def __init__(self, data, at=0):
        self.data, self.at = data, at

    def take(self, n):
        if n < 0 or self.at + n > len(self.data):
            raise IndexError("past the end")
        part = self.data[self.at:self.at + n]
        self.at += n
        return part

    def u(self, n):
        return int.from_bytes(self.take(n), "big")

    def s(self, n):
        return int.from_bytes(self.take(n), "big", signed=True)


class PsdFile:
    """The parts of a file the seeds are cut from."""

    def __init__(self, data):
        c = Cursor(data)
        if c.take(4) != b"8BPS":
            raise ValueError("not a PSD file")
        self.big = c.u(2) == 2
        c.take(6)
        self.channels, self.height, self.width, self.depth, self.mode = c.u(2), c.u(4), c.u(4), c.u(2), c.u(2)
        c.take(c.u(4))  # colour mode data
        self.resources = []  # (id, data)
        end = c.u(4)
        end += c.at
        while c.at + 12 <= end:
            c.take(4)
            rid = c.u(2)
            name_length = c.u(1)
            c.take(name_length + (1 - name_length % 2))
            size = c.u(4)
            self.resources.append((rid, c.take(size)))
            c.take(size % 2)
        c.at = end
        self.section_offset = c.at  # the layer and mask information's length field
        self.layers = []  # dicts: rect, channels [(id, compression, payload)], mask_rect, blocks
        self.global_blocks = []
        self.has_global_mask = False
        section_length = c.u(8 if self.big else 4)
        section_end = c.at + section_length
        self.blocks_end = section_end  # where the reader expects a further document block
        if section_length:
            info_length = c.u(8 if self.big else 4)
            info_end = c.at + info_length
            if info_length:
                self.read_layer_info(c)
            c.at = info_end
            if c.at + 4 <= section_end:
                self.has_global_mask = True
                c.take(c.u(4))  # global layer mask
                while c.at + 12 <= section_end:
                    signature, key = c.take(4), c.take(4)
                    if signature not in (b"8BIM", b"8B64"):
                        break
                    length = c.u(8 if self.big and key in LONG_LENGTH_KEYS else 4)
                    start = c.at
                    if key in (b"Lr16", b"Lr32"):
                        self.read_layer_info(c)
                    self.global_blocks.append((key, data[start:start + length]))
                    c.at = start + length + (4 - length % 4) % 4
                self.blocks_end = max(section_end, c.at)
        c.at = section_end
        self.composite = self.read_composite(c)

    def read_layer_info(self, c):
        count = abs(c.s(2))
        records = []
        for _ in range(count):
            top, left, bottom, right = c.s(4), c.s(4), c.s(4), c.s(4)
            channels = [(c.s(2), c.u(8 if self.big else 4)) for _ in range(c.u(2))]
            c.take(12)
            extra_end = c.u(4)
            extra_end += c.at
            mask = c.take(c.u(4))
            mask_rect = struct.unpack(">4i", mask[:16]) if len(mask) >= 16 else (0, 0, 0, 0)
            c.take(c.u(4))  # blending ranges
            name_length = c.u(1)
            c.take((1 + name_length + 3) // 4 * 4 - 1)
            blocks = []
            while c.at + 12 <= extra_end:
                c.take(4)
                key = c.take(4)
                length = c.u(8 if self.big and key in LONG_LENGTH_KEYS else 4)
                blocks.append((key, c.take(length)))
            c.at = extra_end
            records.append(((top, left, bottom, right), channels, mask_rect, blocks))
        for rect, channels, mask_rect, blocks in records:
            read = []
            for cid, length in channels:
                payload = c.take(length)
                if length >= 2:
                    read.append((cid, int.from_bytes(payload[:2], "big"), payload[2:]))
            self.layers.append({"rect": rect, "channels": read, "mask_rect": mask_rect, "blocks": blocks})

    def read_composite(self, c):
        try:
            compression = c.u(2)
            rest = c.data[c.at:]
            plane = self.width * self.height * self.depth // 8
            planes = []
            if compression == 0:
                for i in range(self.channels):
                    planes.append((0, [], rest[i * plane:(i + 1) * plane]))
            elif compression == 1:
                count_bytes = 4 if self.big else 2
                counts = [int.from_bytes(rest[i:i + count_bytes], "big")
                          for i in range(0, self.channels * self.height * count_bytes, count_bytes)]
                at = len(counts) * count_bytes
                for i in range(self.channels):
                    rows = counts[i * self.height:(i + 1) * self.height]
                    planes.append((1, rows, rest[at:at + sum(rows)]))
                    at += sum(rows)
            return planes
        except IndexError:
            return []


def channel_seed(compression, pixel_type, width, height, channels):
    """A channel target input: channels is a list of (row byte counts, data)."""
    file_compression = {0: (0, 0), 1: (1, 0), 2: (2, 0), 3: (2, 1)}[compression]
    out = bytearray([file_compression[0], file_compression[1], pixel_type, 0])
    out += struct.pack(">HH", width, height)
    for rows, payload in channels:
        if len(payload) > 0xFFFF:
            return None
        out += struct.pack(">H", len(payload))
        if compression == 1:
            out += b"".join(struct.pack(">h", min(r, 0x7FFF)) for r in rows)
        out += payload
    return bytes(out)


def split_rle(payload, height, big):
    """Row byte counts and rows of one PackBits channel as a layer stores it."""
    count_bytes = 4 if big else 2
    rows = [int.from_bytes(payload[i:i + count_bytes], "big") for i in range(0, height * count_bytes, count_bytes)]
    return rows, payload[height * count_bytes:]


def channel_seeds(psd):
    depth_types = {8: 0, 16: 1, 32: 2}
    if psd.depth not in depth_types:
        return
    colour_type = depth_types[psd.depth]
    for layer in psd.layers:
        by_id = {cid: (compression, payload) for cid, compression, payload in layer["channels"]}
        for ids, rect, pixel_type in (((0, 1, 2, -1), layer["rect"], colour_type),
                                      ((-2,), layer["mask_rect"], colour_type + 3)):
            if not all(i in by_id for i in ids):
                continue
            width, height = rect[3] - rect[1], rect[2] - rect[0]
            compressions = {by_id[i][0] for i in ids}
            if len(compressions) != 1 or not 0 < width <= 0xFFFF or not 0 < height <= 0xFFFF:
                continue
            compression = compressions.pop()
            if compression > 3:
                continue
            channels = []
            for i in ids:
                payload = by_id[i][1]
                channels.append(split_rle(payload, height, psd.big) if compression == 1 else ([], payload))
            seed = channel_seed(compression, pixel_type, width, height, channels)
            if seed:
                yield seed
    if psd.composite and 0 < psd.width <= 0xFFFF and 0 < psd.height <= 0xFFFF:
        compression = psd.composite[0][0]
        planes = [(rows, payload) for _, rows, payload in psd.composite]
        if len(planes) >= 4:
            seed = channel_seed(compression, colour_type, psd.width, psd.height, planes[:4])
            if seed:
                yield seed
        seed = channel_seed(compression, colour_type + 3, psd.width, psd.height, planes[:1])
        if seed:
            yield seed


def descriptor_seeds(psd):
    """Every place in a resource or block where a descriptor (version 16, then a name) begins."""
    sources = [data for _, data in psd.resources]
    sources += [data for layer in psd.layers for _, data in layer["blocks"]]
    sources += [data for key, data in psd.global_blocks if key not in (b"Lr16", b"Lr32")]
    for data in sources:
        at = data.find(b"\0\0\0\x10")
        while at >= 0:
            if data[at + 4:at + 6] == b"\0\0":
                candidate = data[at:at + SMALL_SEED]
                yield candidate
                break
            at = data.find(b"\0\0\0\x10", at + 1)


def with_property_list(data, psd, plist):
    """The file with a "plst" document block holding `plist` added to its layer and mask section."""
    length_bytes = 8 if psd.big else 4
    at = psd.section_offset
    section_length = int.from_bytes(data[at:at + length_bytes], "big")
    end = at + length_bytes + section_length
    block = b"8BIMplst" + len(plist).to_bytes(length_bytes, "big") + plist + b"\0" * ((4 - len(plist) % 4) % 4)
    if section_length == 0:
        # An empty section gains an empty layer info and global mask before the block.
        block = b"\0" * length_bytes + b"\0\0\0\0" + block
    elif not psd.has_global_mask:
        block = b"\0\0\0\0" + block
    else:
        block = b"\0" * (psd.blocks_end - end) + block  # the padding the last block left out
    new_length = section_length + len(block)
    return data[:at] + new_length.to_bytes(length_bytes, "big") + data[at + length_bytes:end] + block + data[end:]


def layer_ids(psd):
    ids = []
    for layer in psd.layers:
        for key, data in layer["blocks"]:
            if key == b"lyid" and len(data) >= 4:
                ids.append(int.from_bytes(data[:4], "big"))
    return ids


def sample_property_lists(ids):
    properties = {
        "PSD Layers": [{"PSD Layer ID": i, "note": "layer %d" % i, "PSD Blend Mode": "norm"} for i in ids],
        "author": "fuzz seed \u00e9\u4e2d",
        "count": -1,
        "large": 2 ** 63 - 1,
        "ratio": 0.1,
        "visible": True,
        "hidden": False,
        "saved": datetime.datetime(2020, 2, 29, 12, 30, 15),
        "thumbnail": bytes(range(40)),
        "nested": [[1, 2.5, "x"], {"a": {"b": []}}],
    }
    document = {BUNDLE_ID: properties, "other.host": {"x": 1}}
    yield plistlib.dumps(document, fmt=plistlib.FMT_XML)
    yield plistlib.dumps(document, fmt=plistlib.FMT_BINARY, sort_keys=False)
    yield plistlib.dumps(properties, fmt=plistlib.FMT_BINARY)
    yield plistlib.dumps([1, "two", 3.0, b"four", datetime.datetime(1999, 12, 31)], fmt=plistlib.FMT_XML)
    yield plistlib.dumps({"empty": {}, "list": []}, fmt=plistlib.FMT_BINARY)


class SeedWriter:
    def __init__(self, out_dir):
        self.out_dir = out_dir
        self.counts = {}

    def start(self, target):
        folder = os.path.join(self.out_dir, target)
        shutil.rmtree(folder, ignore_errors=True)
        os.makedirs(folder)
        self.counts[target] = 0

    def add(self, target, data, hint):
        if not data or len(data) > max(SMALL_SEED, SMALL_FILE):
            return
        digest = hashlib.sha1(data).hexdigest()[:16]
        path = os.path.join(self.out_dir, target, "%s-%s" % (hint, digest))
        if not os.path.exists(path):
            with open(path, "wb") as f:
                f.write(data)
            self.counts[target] += 1


def main():
    corpus = sys.argv[1] if len(sys.argv) > 1 else os.path.join(HERE, "..", "..", "shared", "corpus")
    out_dir = sys.argv[2] if len(sys.argv) > 2 else os.path.join(HERE, "seeds")
    writer = SeedWriter(out_dir)
    for target in ("document", "descriptor", "channels", "propertylist", "metadata", "render"):
        writer.start(target)
    names = sorted(n for n in os.listdir(corpus) if n.endswith((".psd", ".psb")))
    if not names:
        sys.exit("no PSD or PSB files in %s" % corpus)
    for name in names:
        with open(os.path.join(corpus, name), "rb") as f:
            data = f.read()
        stem = os.path.splitext(name)[0]
        try:
            psd = PsdFile(data)
        except (IndexError, ValueError) as e:
            print("skipping %s: %s" % (name, e), file=sys.stderr)
            continue
        if len(data) <= SMALL_FILE:
            writer.add("document", data, stem)
            writer.add("render", data, stem)
            writer.add("metadata", b"\0" + data, stem)
            if psd.mode == 3:
                plist = next(sample_property_lists(layer_ids(psd)))
                writer.add("document", with_property_list(data, psd, plist), stem + "-plst")
        for descriptor in descriptor_seeds(psd):
            writer.add("descriptor", descriptor, stem)
        for seed in channel_seeds(psd):
            if len(seed) <= SMALL_SEED:
                writer.add("channels", seed, stem)
        for rid, payload in psd.resources:
            mode = {1060: 1, 1058: 2, 1028: 3}.get(rid)
            if mode:
                writer.add("metadata", bytes([mode]) + payload, "%s-%d" % (stem, rid))
    for i, plist in enumerate(sample_property_lists([1, 2, 3])):
        writer.add("propertylist", plist, "sample%d" % i)
    for target, count in sorted(writer.counts.items()):
        print("%-13s %4d seeds" % (target, count))


if __name__ == "__main__":
    main()
