// The text codecs: Mac OS Roman and UTF-16BE both ways, character counting and canonical form.
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "psdkit/platform/text/TextEncoding.hpp"

namespace psdkit::detail {
namespace {
using Bytes = std::vector<std::uint8_t>;

TEST(TextEncodingTest, MacRomanBothWays)
{
    const std::tuple<const char*, std::string, Bytes> cases[] = {
        {"ASCII", "Layer 1", {'L', 'a', 'y', 'e', 'r', ' ', '1'}},
        {"e acute", "caf\xC3\xA9", {'c', 'a', 'f', 0x8E}},
        {"euro sign at 0xDB", "\xE2\x82\xAC", {0xDB}},
        {"private-use apple at 0xF0", "\xEF\xA3\xBF", {0xF0}},
        {"empty", "", {}},
    };
    for (const auto& [what, utf8, macRoman] : cases) {
        EXPECT_EQ(macRomanToUtf8(macRoman), utf8) << what;
        EXPECT_EQ(utf8ToMacRoman(utf8, false), macRoman) << what;
    }
    EXPECT_EQ(utf8ToMacRoman("cafe\xCC\x81", false), (Bytes{'c', 'a', 'f', 0x8E})) << "composed first";
    EXPECT_EQ(utf8ToMacRoman("a\xE4\xB8\xAD", false), std::nullopt) << "no Mac OS Roman form";
    EXPECT_EQ(utf8ToMacRoman("a\xE4\xB8\xAD", true), (Bytes{'a', '?'}));
    EXPECT_EQ(utf8ToMacRoman("\xC3\x28", false), std::nullopt) << "invalid UTF-8";
}

TEST(TextEncodingTest, Utf16BothWaysCharacterCountAndCanonicalForm)
{
    EXPECT_EQ(utf8ToUtf16be("A\xC3\xA9"), (Bytes{0, 'A', 0, 0xE9}));
    EXPECT_EQ(utf8ToUtf16be("\xF0\x9F\x98\x80"), (Bytes{0xD8, 0x3D, 0xDE, 0x00})) << "surrogate pair";
    EXPECT_EQ(utf16beToUtf8(Bytes{0xD8, 0x3D, 0xDE, 0x00}), "\xF0\x9F\x98\x80");
    EXPECT_EQ(utf16beToUtf8(Bytes{0xD8, 0x3D, 0, 'A'}), std::nullopt) << "unpaired high surrogate";
    EXPECT_EQ(utf16beToUtf8(Bytes{0xDE, 0x00, 0, 'A'}), std::nullopt) << "unpaired low surrogate";
    EXPECT_EQ(utf8ToUtf16be("\xFF"), std::nullopt);
    // Characters are counted, and text compared, in canonical form.
    EXPECT_EQ(characterCount("ab\r\nc"), 4u) << "CR LF is one character";
    EXPECT_EQ(characterCount("cafe\xCC\x81"), 4u);
    EXPECT_EQ(characterCount("\xC3\x28"), std::nullopt);
    EXPECT_EQ(canonicalForm("cafe\xCC\x81"), "caf\xC3\xA9");
    EXPECT_EQ(canonicalForm("\xC3\x28"), "\xC3\x28") << "invalid UTF-8 unchanged";
    EXPECT_TRUE(isAscii("8BIM"));
    EXPECT_FALSE(isAscii("caf\xC3\xA9"));
}

} // namespace
} // namespace psdkit::detail
