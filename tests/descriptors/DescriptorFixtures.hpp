#pragma once
// Byte fixtures of descriptors, built with ByteBuilder so that they read as the layout they encode.
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "support/ByteBuilder.hpp"

namespace psdkit::testing {

/// An identifier holding a four-character code: a zero length word, then the code.
inline ByteBuilder& codeID(ByteBuilder& b, std::string_view code)
{
    return b.u32(0).ascii(code);
}
/// An identifier holding a string: its length, then its bytes.
inline ByteBuilder& stringID(ByteBuilder& b, std::string_view text)
{
    return b.u32(text.size()).ascii(text);
}

/// The opening of a descriptor up to its item count: the version 16 (top level only), the name "\0"
/// as the writer stores it, the class ID code and the item count.
inline ByteBuilder& descriptorStart(ByteBuilder& b, std::uint32_t items, bool nested = false,
                                    std::string_view classCode = "null")
{
    if (!nested) {
        b.u32(16);
    }
    b.unicode(std::string_view("\0", 1));
    return codeID(b, classCode).u32(items);
}

/// A top-level descriptor holding one of every kind of value (a "GlbO" nested descriptor among
/// them), the debug text it reads as, and its item count.
inline std::vector<std::uint8_t> richDescriptorBytes()
{
    ByteBuilder b;
    descriptorStart(b, 9);
    codeID(b, "Nm  ").ascii("TEXT").unicode(std::string_view("ab\0", 3));
    stringID(b, "keyName").ascii("doub").raw({0x3F, 0xE0, 0, 0, 0, 0, 0, 0});
    codeID(b, "Angl").ascii("UntF").ascii("#Ang").raw({0x40, 0x56, 0x80, 0, 0, 0, 0, 0});
    codeID(b, "Type").ascii("enum");
    codeID(b, "BlnM");
    stringID(b, "linearBurn");
    codeID(b, "Cnt ").ascii("long").i32(-1);
    codeID(b, "Flag").ascii("bool").u8(2);
    codeID(b, "List").ascii("VlLs").u32(2).ascii("long").u32(1).ascii("Objc");
    descriptorStart(b, 1, true, "RGBC");
    codeID(b, "Rd  ").ascii("doub").raw({0x40, 0x6F, 0xE0, 0, 0, 0, 0, 0});
    codeID(b, "Glob").ascii("GlbO");
    descriptorStart(b, 0, true);
    codeID(b, "Raw ").ascii("tdta").u32(3).raw({1, 2, 3});
    return b.bytes();
}

using namespace std::string_view_literals;
/// The debug text of the rich descriptor (the name is one NUL character).
inline constexpr std::string_view richDescriptorText =
    "[Descriptor (Name: \0, ClassID: 'null') : ['Nm  ': \"ab\\0\", keyName: 0.5, 'Angl': 90.0 \u00B0, "
    "'Type': [Enum('BlnM') linearBurn], 'Cnt ': -1, 'Flag': true, 'List': [1, [Descriptor (Name: \0, "
    "ClassID: 'RGBC') : ['Rd  ': 255.0]]], 'Glob': [Descriptor (Name: \0, ClassID: 'null') : [:]], "
    "'Raw ': 3 bytes]]"sv;

/// Reads a top-level descriptor from `bytes`; `consumed` receives the bytes the read took.
inline std::shared_ptr<PSDDescriptor> readDescriptor(const std::vector<std::uint8_t>& bytes,
                                                     std::int64_t* consumed = nullptr)
{
    PSDScanner scanner(bytes);
    auto descriptor = std::make_shared<PSDDescriptor>();
    descriptor->read(scanner, false);
    if (consumed) {
        *consumed = scanner.offset();
    }
    return descriptor;
}

} // namespace psdkit::testing
