// PSDWriter: the padding and length rules of strings and blocks, and the range checks before writing.
// Plain numbers, codes and strings are read back by every round trip and by the independent readers
// of the interop tests; these are the rules a reader may forgive.
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "psdkit/core/PSDError.hpp"
#include "psdkit/core/PSDWriter.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using Bytes = std::vector<std::uint8_t>;
using testing::nothingThrown;
using testing::thrownError;

TEST(PSDWriterTest, PaddingAndLengthsAndValuesThatDoNotFitRefusedBeforeWriting)
{
    struct Case {
        const char* what;
        std::function<void(PSDWriter&)> write;
        Bytes expected;
        std::error_code error = nothingThrown();
    };
    using W = PSDWriter&;
    const auto parameter = PSDError::writeParameterError;
    const Case cases[] = {
        {"Pascal string padded to 2", [](W w) { w.appendPascalString("ab", 2); }, {2, 'a', 'b', 0}},
        {"empty Pascal string padded to 4", [](W w) { w.appendPascalString("", 4); }, {0, 0, 0, 0}},
        {"Unicode string with terminator",
         [](W w) { w.appendUnicodeString("A", true, 0); },
         {0, 0, 0, 2, 0, 'A', 0, 0}},
        {"block padded to 4, length without padding",
         [](W w) { w.writePSDDataBlock(false, 4, false, [](W b) { b.appendUInt8(7); }); },
         {0, 0, 0, 1, 7, 0, 0, 0}},
        {"big block, length with padding",
         [](W w) { w.writePSDDataBlock(true, 2, true, [](W b) { b.appendUInt8(7); }); },
         {0, 0, 0, 0, 0, 0, 0, 2, 7, 0}},
        {"uint8 256", [](W w) { w.appendUInt8(256); }, {}, parameter},
        {"int16 32768", [](W w) { w.appendInt16(32768); }, {}, parameter},
        {"uint32 negative", [](W w) { w.appendUInt32(-1); }, {}, parameter},
        {"negative padding", [](W w) { w.appendPadding(-1); }, {}, parameter},
        {"set outside the data", [](W w) { w.setInt32(0, 0); }, {}, parameter},
        {"C string outside Mac OS Roman",
         [](W w) { w.appendCString("\xE4\xB8\xAD"); },
         {},
         PSDError::writeUnknownError},
        {"Unicode string of invalid UTF-8",
         [](W w) { w.appendUnicodeString("\xFF", false, 0); },
         {},
         PSDError::writeUnknownError},
    };
    for (const auto& c : cases) {
        PSDWriter writer;
        EXPECT_EQ(thrownError([&] { c.write(writer); }), c.error) << c.what;
        EXPECT_EQ(writer.data(), c.expected) << c.what; // nothing written on refusal
    }
}

} // namespace
} // namespace psdkit
