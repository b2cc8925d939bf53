#pragma once
// Builders of whole PSD/PSB files and layer records for tests, on top of ByteBuilder.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "psdkit/core/PSDScanner.hpp"
#include "support/ByteBuilder.hpp"

namespace psdkit::testing {

struct HeaderFields {
    std::int64_t version = 1;
    std::int64_t channels = 3;
    std::int64_t height = 2;
    std::int64_t width = 2;
    std::int64_t depth = 8;
    std::int64_t mode = 3;
};

/// One image resource block with an ASCII name.
inline void appendResource(ByteBuilder& b, std::int64_t id, const std::vector<std::uint8_t>& data,
                           const std::string& name = "")
{
    b.ascii("8BIM").i16(id).pascal(name, 2).u32(data.size()).raw(data);
    if (data.size() % 2 != 0) {
        b.u8(0);
    }
}

/// A file of the given header, no colour mode data, and sections each appended with its length by a
/// callback.
struct FileSections {
    HeaderFields header{};
    std::function<void(ByteBuilder&)> resources = [](ByteBuilder& b) { b.u32(0); };
    /// Default: an empty layer and mask section (a 4-byte length, 8 bytes in big files).
    std::function<void(ByteBuilder&)> layersAndMasks{};
    /// Default: raw planes of zeros for every header channel.
    std::function<void(ByteBuilder&)> imageData{};
};

inline std::vector<std::uint8_t> buildFile(const FileSections& s)
{
    const HeaderFields& h = s.header;
    ByteBuilder b;
    b.ascii("8BPS").i16(h.version).zeros(6).i16(h.channels).i32(h.height).i32(h.width);
    b.i16(h.depth).i16(h.mode).u32(0);
    s.resources(b);
    if (s.layersAndMasks) {
        s.layersAndMasks(b);
    } else {
        b.begin(h.version == 2).end();
    }
    if (s.imageData) {
        s.imageData(b);
    } else {
        b.u16(0).zeros(static_cast<std::size_t>(h.channels * h.width * h.height *
                                                std::max<std::int64_t>(h.depth / 8, 1)));
    }
    return b.bytes();
}

/// Fields of one layer record (normal blending, opaque, visible): bounds, channels with their stored
/// bytes (compression code included), and the extra data built by `extra` (mask, ranges, name,
/// blocks), its length added.
struct RecordFields {
    std::int32_t top = 0, left = 0, bottom = 0, right = 0;
    std::vector<std::pair<std::int16_t, std::vector<std::uint8_t>>> channels; // id, stored bytes
    std::function<void(ByteBuilder&)> extra = [](ByteBuilder& b) { b.u32(0).u32(0).pascal("", 4); };
};

/// A file whose layer information holds the given records, then their channels' bytes.
inline std::vector<std::uint8_t> fileWithLayers(const std::vector<RecordFields>& records)
{
    FileSections s;
    s.layersAndMasks = [&](ByteBuilder& b) {
        b.begin().begin().i16(static_cast<std::int64_t>(records.size()));
        for (const auto& r : records) {
            b.i32(r.top).i32(r.left).i32(r.bottom).i32(r.right).i16(
                static_cast<std::int64_t>(r.channels.size()));
            for (const auto& [id, bytes] : r.channels) {
                b.i16(id).u32(bytes.size());
            }
            b.ascii("8BIMnorm").u8(255).u8(0).u8(0).u8(0).begin();
            r.extra(b);
            b.end();
        }
        for (const auto& r : records) {
            for (const auto& channel : r.channels) {
                b.raw(channel.second);
            }
        }
        b.end().u32(0).end();
    };
    return buildFile(s);
}

/// How many times `needle` occurs in `bytes`, overlaps included.
inline std::size_t occurrences(const std::vector<std::uint8_t>& bytes,
                               const std::vector<std::uint8_t>& needle)
{
    std::size_t n = 0;
    for (auto at = bytes.begin();
         (at = std::search(at, bytes.end(), needle.begin(), needle.end())) != bytes.end(); ++at) {
        ++n;
    }
    return n;
}

/// The data of the first image resource `identifier` of a PSD or PSB file, found by walking the
/// resource section with the scanner alone; absent when the file has none.
inline std::optional<std::vector<std::uint8_t>> firstResource(const std::vector<std::uint8_t>& file,
                                                              std::int64_t identifier)
{
    PSDScanner s(file);
    s.seek(26);
    s.skip(s.scanInt32()); // colour mode data
    const std::int64_t end = s.scanInt32() + s.offset();
    while (s.offset() < end) {
        s.skip(4); // signature
        const std::int64_t id = s.scanUInt16();
        s.skip((s.scanUInt8() + 2) / 2 * 2 - 1); // the rest of the name, padded to even
        const std::int64_t size = s.scanInt32();
        if (id == identifier) {
            return s.scanData(size);
        }
        s.skip(size + size % 2);
    }
    return std::nullopt;
}

struct Resource {
    std::uint16_t identifier;
    std::vector<std::uint8_t> data;
    std::string name = {};
};

/// An RGB file (version 1, or 2 for PSB) of 1 × 1 pixels with the given image resources and
/// nothing after them.
inline std::vector<std::uint8_t> fileWithResources(const std::vector<Resource>& resources, int version = 1)
{
    FileSections sections;
    sections.header = {.version = version, .height = 1, .width = 1};
    sections.resources = [&](ByteBuilder& b) {
        b.begin();
        for (const Resource& r : resources) {
            appendResource(b, r.identifier, r.data, r.name);
        }
        b.end();
    };
    sections.layersAndMasks = [](ByteBuilder&) {};
    sections.imageData = [](ByteBuilder&) {};
    return buildFile(sections);
}

} // namespace psdkit::testing
