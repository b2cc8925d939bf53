// PSDWriter: the bytes of every kind of value, the range checks before writing, and length-prefixed
// blocks with their padding.
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "psdkit/core/PSDError.hpp"
#include "psdkit/core/PSDWriter.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using Bytes = std::vector<std::uint8_t>;
using testing::thrownError;

Bytes written(const std::function<void(PSDWriter&)>& write)
{
    PSDWriter writer;
    write(writer);
    return writer.data();
}

TEST(PSDWriterTest, WritesValuesBigEndian)
{
    struct Case {
        const char* what;
        std::function<void(PSDWriter&)> write;
        Bytes expected;
    };
    const Case cases[] = {
        {"uint8", [](PSDWriter& w) { w.appendUInt8(255); }, {0xFF}},
        {"int16", [](PSDWriter& w) { w.appendInt16(-2); }, {0xFF, 0xFE}},
        {"uint32", [](PSDWriter& w) { w.appendUInt32(0x01020304); }, {1, 2, 3, 4}},
        {"int64", [](PSDWriter& w) { w.appendInt64(-1); }, Bytes(8, 0xFF)},
        {"float64", [](PSDWriter& w) { w.appendFloat64(1.0); }, {0x3F, 0xF0, 0, 0, 0, 0, 0, 0}},
        {"four-character code",
         [](PSDWriter& w) { w.appendFourCharCode(PSDFourCharCode("8BIM")); },
         {'8', 'B', 'I', 'M'}},
        {"Pascal string padded to 2", [](PSDWriter& w) { w.appendPascalString("ab", 2); }, {2, 'a', 'b', 0}},
        {"empty Pascal string padded to 4", [](PSDWriter& w) { w.appendPascalString("", 4); }, {0, 0, 0, 0}},
        {"Unicode string with terminator",
         [](PSDWriter& w) { w.appendUnicodeString("A", true, 0); },
         {0, 0, 0, 2, 0, 'A', 0, 0}},
        {"C string", [](PSDWriter& w) { w.appendCString("ab"); }, {0, 0, 0, 2, 'a', 'b'}},
        {"block padded to 4, length without padding",
         [](PSDWriter& w) { w.writePSDDataBlock(false, 4, false, [](PSDWriter& b) { b.appendUInt8(7); }); },
         {0, 0, 0, 1, 7, 0, 0, 0}},
        {"big block, length with padding",
         [](PSDWriter& w) { w.writePSDDataBlock(true, 2, true, [](PSDWriter& b) { b.appendUInt8(7); }); },
         {0, 0, 0, 0, 0, 0, 0, 2, 7, 0}},
        {"set after writing",
         [](PSDWriter& w) {
             w.appendInt32(0);
             w.setInt16(-1, 2);
         },
         {0, 0, 0xFF, 0xFF}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(written(c.write), c.expected) << c.what;
    }
}

TEST(PSDWriterTest, RefusesValuesThatDoNotFitBeforeWriting)
{
    struct Case {
        const char* what;
        std::function<void(PSDWriter&)> write;
        PSDError::Code expected;
    };
    const Case cases[] = {
        {"uint8 256", [](PSDWriter& w) { w.appendUInt8(256); }, PSDError::writeParameterError},
        {"int16 32768", [](PSDWriter& w) { w.appendInt16(32768); }, PSDError::writeParameterError},
        {"uint32 negative", [](PSDWriter& w) { w.appendUInt32(-1); }, PSDError::writeParameterError},
        {"negative padding", [](PSDWriter& w) { w.appendPadding(-1); }, PSDError::writeParameterError},
        {"set outside the data", [](PSDWriter& w) { w.setInt32(0, 0); }, PSDError::writeParameterError},
        {"C string outside Mac OS Roman", [](PSDWriter& w) { w.appendCString("\xE4\xB8\xAD"); },
         PSDError::writeUnknownError},
        {"Unicode string of invalid UTF-8", [](PSDWriter& w) { w.appendUnicodeString("\xFF", false, 0); },
         PSDError::writeUnknownError},
    };
    for (const auto& c : cases) {
        PSDWriter writer;
        EXPECT_EQ(thrownError([&] { c.write(writer); }), c.expected) << c.what;
        EXPECT_TRUE(writer.data().empty()) << c.what << ": nothing written";
    }
}

} // namespace
} // namespace psdkit
