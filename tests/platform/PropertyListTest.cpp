// Property values and the property lists that store them, in XML and binary form.
#include "psdkit/platform/PropertyList.hpp"

#include <bit>
#include <string_view>
#include <tuple>

#include <gtest/gtest.h>

#include "psdkit/platform/PlatformError.hpp"
#include "support/PsdFixture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using testing::ByteBuilder;
using testing::thrownError;
using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

constexpr std::string_view kHostList = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>io.example.host</key>
  <dict>
    <key>PSD Layers</key>
    <array>
      <dict><key>PSD Layer ID</key><integer>7</integer><key>tint</key><real>0.25</real></dict>
      <dict><key>PSD Layer ID</key><integer>8</integer></dict>
    </array>
    <key>big</key><integer>1099511627776</integer>
    <key>negative</key><integer>-42</integer>
    <key>ratio</key><real>-1.5e-7</real>
    <key>on</key><true/>
    <key>off</key><false/>
    <key>title</key><string>Hafen &amp; D&#228;mmerung &lt;1&gt; 🌅</string>
    <key>saved</key><date>2024-03-01T12:30:45Z</date>
    <key>thumb</key><data>AAEC/w==</data>
    <key>empty</key><array/>
  </dict>
</dict>
</plist>
)";

TEST(PropertyListTest, XmlRoundTripKeepsEveryKindOfValueAndValuesCompareByKindAndContents)
{
    const PropertyValue parsed = parsePropertyList(bytesOf(kHostList));
    const PropertyValue expected = PropertyDictionary{
        {"io.example.host",
         PropertyDictionary{
             {"PSD Layers", PropertyArray{PropertyDictionary{{"PSD Layer ID", 7}, {"tint", 0.25}},
                                          PropertyDictionary{{"PSD Layer ID", 8}}}},
             {"big", std::int64_t{1} << 40},
             {"negative", -42},
             {"ratio", -1.5e-7},
             {"on", true},
             {"off", false},
             {"title", "Hafen & D\u00e4mmerung <1> \U0001F305"},
             {"saved", PropertyDate{730989045.0}},
             {"thumb", Bytes{0x00, 0x01, 0x02, 0xFF}},
             {"empty", PropertyArray{}}}}};
    EXPECT_EQ(parsed, expected) << parsed.debugDescription();
    const Bytes written = xmlPropertyList(*parsed.asDictionary());
    const PropertyValue reparsed = parsePropertyList(written);
    EXPECT_EQ(reparsed, parsed) << reparsed.debugDescription();
    EXPECT_EQ(xmlPropertyList(*reparsed.asDictionary()), written) << "writing is deterministic";

    // Values are of the kind they were made as, equal only with the same kind and contents, and
    // copies are independent.
    EXPECT_TRUE(PropertyValue("text").isString()) << "a literal is text, not a boolean";
    EXPECT_EQ(PropertyValue(std::uint64_t{0xFFFFFFFFFFFFFFFF}), PropertyValue(-1));
    EXPECT_NE(PropertyValue(1), PropertyValue(1.0));
    EXPECT_NE(PropertyValue(1), PropertyValue(true));
    EXPECT_NE(PropertyValue("norm"), PropertyValue(PSDFourCharCode("norm")));
    const PropertyValue nested =
        PropertyDictionary{{"a", PropertyArray{1, "x", PropertyDictionary{{"b", 2.5}}}}};
    PropertyValue changed = nested;
    (*changed.asDictionary())["a"].asArray()->at(2).asDictionary()->at("b") = 2.6;
    EXPECT_NE(changed, nested);
    EXPECT_EQ(nested.asDictionary()->at("a").asArray()->at(2).asDictionary()->at("b"), PropertyValue(2.5))
        << "copies are independent";
}

TEST(PropertyListTest, NumbersSurviveTheXmlFormDatesLoseTheirFractionAndIntegersAreTwosComplement)
{
    const auto throughXml = [](const PropertyValue& value) {
        return parsePropertyList(xmlPropertyList({{"v", value}})).asDictionary()->at("v");
    };
    for (const PropertyValue& value :
         {PropertyValue(std::int64_t{-1}), PropertyValue(INT64_MIN), PropertyValue(INT64_MAX),
          PropertyValue((std::int64_t{1} << 32) + 1), PropertyValue(0.1), PropertyValue(5e-324),
          PropertyValue(-1.7976931348623157e308), PropertyValue(PropertyDate{-978307200.0})}) {
        EXPECT_EQ(throughXml(value), value) << value.debugDescription();
    }
    // XML dates are whole seconds, rounded down.
    EXPECT_EQ(throughXml(PropertyDate{100.75}), PropertyValue(PropertyDate{100.0}));
    EXPECT_EQ(throughXml(PropertyDate{-0.5}), PropertyValue(PropertyDate{-1.0}));

    // The backend has no signed integer: 2^64 − 1 and −1 are one value, and larger numbers
    // saturate to it.
    const std::pair<std::string_view, std::int64_t> cases[] = {{"-1", -1},
                                                               {"18446744073709551615", -1},
                                                               {"99999999999999999999", -1},
                                                               {"9223372036854775808", INT64_MIN},
                                                               {"4294967296", std::int64_t{1} << 32}};
    for (const auto& [text, expected] : cases) {
        const std::string xml = "\xEF\xBB\xBF<plist><integer>" + std::string(text) + "</integer></plist>";
        EXPECT_EQ(parsePropertyList(bytesOf(xml)), PropertyValue(expected)) << text;
    }
}

// A binary property list assembled by hand; objects are given encoded, references are one byte
// wide and offsets two bytes.
Bytes binaryList(const std::vector<Bytes>& objects)
{
    ByteBuilder b;
    b.ascii("bplist00");
    std::vector<std::size_t> offsets;
    for (const Bytes& object : objects) {
        offsets.push_back(b.size());
        b.raw(object);
    }
    const std::size_t table = b.size();
    for (std::size_t offset : offsets) {
        b.u16(offset);
    }
    const auto count = static_cast<std::int64_t>(objects.size());
    return b.zeros(6).u8(2).u8(1).i64(count).i64(0).i64(static_cast<std::int64_t>(table)).bytes();
}

// An object of eight bytes (an integer, real or date) after its marker.
Bytes eightBytes(std::uint8_t marker, std::uint64_t bits)
{
    return ByteBuilder().u8(marker).i64(static_cast<std::int64_t>(bits)).bytes();
}
Bytes ascii(std::string_view text)
{
    Bytes b{static_cast<std::uint8_t>(0x50 | text.size())};
    b.insert(b.end(), text.begin(), text.end());
    return b;
}

TEST(PropertyListTest, BinaryListParsesWithMicrosecondDates)
{
    const Bytes list = binaryList({
        {0xD4, 1, 2, 3, 4, 5, 6, 9, 10}, // dictionary of four entries
        ascii("big"),
        ascii("list"),
        ascii("when"),
        ascii("ratio"),                           // keys
        eightBytes(0x13, std::uint64_t{1} << 40), // integer
        {0xA2, 7, 8},                             // array of two
        {0x09},                                   // true
        ascii("x"),
        eightBytes(0x33, std::bit_cast<std::uint64_t>(1.5)),  // date
        eightBytes(0x23, std::bit_cast<std::uint64_t>(0.25)), // real
    });
    const PropertyValue expected = PropertyDictionary{{"big", std::int64_t{1} << 40},
                                                      {"list", PropertyArray{true, "x"}},
                                                      {"when", PropertyDate{1.5}},
                                                      {"ratio", 0.25}};
    EXPECT_EQ(parsePropertyList(list), expected) << parsePropertyList(list).debugDescription();
}

Bytes nestedXml(int depth)
{
    std::string open, close;
    for (int i = 0; i < depth; ++i) {
        open += "<array>";
        close += "</array>";
    }
    return bytesOf("<plist>" + open + close + "</plist>");
}

TEST(PropertyListTest, MalformedOrExplosiveListsAreRefused)
{
    std::vector<Bytes> doublingChain; // each array holds the next one twice: 2^40 values when copied
    for (std::uint8_t i = 0; i < 40; ++i) {
        doublingChain.push_back({0xA2, static_cast<std::uint8_t>(i + 1), static_cast<std::uint8_t>(i + 1)});
    }
    doublingChain.push_back({0x10, 7});
    const Bytes valid = binaryList({{0xA1, 1}, {0x10, 7}});
    Bytes badReference = valid;
    badReference[9] = 9; // the array refers to object 9 of 2

    const std::vector<std::pair<const char*, Bytes>> cases = {
        {"empty", {}},
        {"garbage", bytesOf("hello, world")},
        {"byte order mark only", bytesOf("\xEF\xBB\xBF")},
        {"cut-off XML", bytesOf("<plist><dict><key>a</key><integer>1</integer>")},
        {"binary header only", bytesOf("bplist00")},
        {"binary cut off", Bytes(valid.begin(), valid.end() - 1)},
        {"binary reference out of range", badReference},
        {"binary cycle", binaryList({{0xA1, 1}, {0xA1, 0}})},
        {"binary doubling chain", binaryList(doublingChain)},
        {"XML nested 100000 deep", nestedXml(100000)},
    };
    ASSERT_EQ(parsePropertyList(valid), PropertyValue(PropertyArray{7}));
    for (const auto& [name, bytes] : cases) {
        EXPECT_EQ(thrownError([&] { (void)parsePropertyList(bytes); }), PlatformErrorCode::propertyListParse)
            << name;
    }
    EXPECT_NO_THROW((void)parsePropertyList(nestedXml(500)));
}

TEST(PropertyListTest, ValuesWithoutPropertyListFormAreRefusedOnWriting)
{
    const std::tuple<const char*, std::string, PropertyValue> cases[] = {
        {"four-character code", "k", PSDFourCharCode("scrn")},
        {"code inside a layer entry", "k",
         PropertyArray{PropertyDictionary{{"PSD Blend Mode", PSDFourCharCode("div ")}}}},
        {"text with NUL", "k", std::string("a\0b", 3)},
        {"invalid UTF-8", "k", std::string("\xC3\x28")},
        {"date beyond 2^31 seconds", "k", PropertyDate{3e9}},
        {"key of invalid UTF-8", "\xFF", 1},
    };
    for (const auto& [name, key, value] : cases) {
        const auto write = [&] { (void)xmlPropertyList({{key, value}}); };
        EXPECT_EQ(thrownError(write), PlatformErrorCode::propertyListUnsupportedValue) << name;
    }
}

} // namespace
} // namespace psdkit
