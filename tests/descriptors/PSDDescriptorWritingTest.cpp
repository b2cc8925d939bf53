#include <algorithm>

#include <gtest/gtest.h>

#include "DescriptorFixtures.hpp"
#include "psdkit/descriptors/DescriptorLayout.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using Bytes = std::vector<std::uint8_t>;
using List = PSDDescriptorPropertyValue::List;

// The bytes of a top-level descriptor with the default name and class holding one item.
Bytes oneItemDescriptor(const ByteBuilder& item)
{
    ByteBuilder b;
    descriptorStart(b, 1).raw(item.bytes());
    return b.bytes();
}

TEST(DescriptorWritingTest, FreshDescriptorIs22BytesAnd18WhenNested)
{
    PSDDescriptor d;
    ByteBuilder expected;
    descriptorStart(expected, 0);
    EXPECT_EQ(d.data(), expected.bytes());
    EXPECT_EQ(d.data().size(), 22u);
    d.isNested = true;
    EXPECT_EQ(d.data(), Bytes(expected.bytes().begin() + 4, expected.bytes().end()));
}

TEST(DescriptorWritingTest, ItemsAreWrittenInTheFormatsLayout)
{
    struct Case {
        const char* what;
        UnifiedStringValue key;
        PSDDescriptorPropertyValue value;
        ByteBuilder item;
    };
    const Case cases[] = {
        {"terminated text", PSDFourCharCode("Nm  "), "ab",
         ByteBuilder().u32(0).ascii("Nm  ").ascii("TEXT").u32(3).raw({0, 0x61, 0, 0x62, 0, 0})},
        {"ten-letter string key", UnifiedStringValue::string("abcdefghij"), std::int32_t{-2},
         ByteBuilder().u32(10).ascii("abcdefghij").ascii("long").i32(-2)},
        {"list of integer and boolean", PSDFourCharCode("List"), List{std::int32_t{1}, false},
         ByteBuilder().u32(0).ascii("List").ascii("VlLs").u32(2).ascii("long").u32(1).ascii("bool").u8(0)},
        {"percent unit float", PSDFourCharCode("Opct"), PSDUnitFloat{PSDUnitFloat::Unit::percent, 50},
         ByteBuilder().u32(0).ascii("Opct").ascii("UntF").ascii("#Prc").raw({0x40, 0x49, 0, 0, 0, 0, 0, 0})},
        {"enumerated code and string", PSDFourCharCode("Md  "),
         Enumerated(PSDFourCharCode("BlnM"), UnifiedStringValue::string("hardMix")),
         ByteBuilder().u32(0).ascii("Md  ").ascii("enum").u32(0).ascii("BlnM").u32(7).ascii("hardMix")},
        {"true", PSDFourCharCode("On  "), true, ByteBuilder().u32(0).ascii("On  ").ascii("bool").u8(1)},
        {"raw data", PSDFourCharCode("Raw "), Bytes{9, 8},
         ByteBuilder().u32(0).ascii("Raw ").ascii("tdta").u32(2).raw({9, 8})},
    };
    for (const auto& c : cases) {
        PSDDescriptor d;
        d.set(c.key, c.value);
        EXPECT_EQ(d.data(), oneItemDescriptor(c.item)) << c.what;
    }
}

// The position of `text` in `bytes`.
std::ptrdiff_t find(const Bytes& bytes, std::string_view text)
{
    return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) - bytes.begin();
}

TEST(DescriptorWritingTest, ReadDescriptorWritesBackItsBytesWithObjcTagsAndCanonicalBooleans)
{
    const Bytes original = testing::richDescriptorBytes();
    Bytes expected = original;
    const auto globalObject = find(expected, "GlbO");
    std::copy_n("Objc", 4, expected.begin() + globalObject);
    expected[static_cast<std::size_t>(find(expected, "bool") + 4)] = 1; // was 02
    const auto d = readDescriptor(original);
    const Bytes written = d->data();
    EXPECT_EQ(written, expected);
    EXPECT_TRUE(readDescriptor(written)->hasSameContent(*d));
}

TEST(DescriptorWritingTest, WritingMarksEveryNestedDescriptorAndTheMarkStays)
{
    auto direct = std::make_shared<PSDDescriptor>();
    auto inList = std::make_shared<PSDDescriptor>();
    auto deeper = std::make_shared<PSDDescriptor>();
    inList->set(PSDFourCharCode("In  "), deeper);
    PSDDescriptor parent;
    parent.set(PSDFourCharCode("One "), direct);
    parent.set(PSDFourCharCode("Two "), List{std::int32_t{0}, List{inList}});
    const Bytes bytes = parent.data();
    EXPECT_TRUE(direct->isNested && inList->isNested && deeper->isNested);
    EXPECT_FALSE(parent.isNested);
    EXPECT_TRUE(readDescriptor(bytes)->hasSameContent(parent));

    parent.isNested = true; // the host's choice: no version word even at the top
    EXPECT_EQ(parent.data(), Bytes(bytes.begin() + 4, bytes.end()));

    // A failure later in the tree leaves the marks already made.
    auto marked = std::make_shared<PSDDescriptor>();
    PSDDescriptor failing;
    failing.set(PSDFourCharCode("One "), marked);
    failing.set(PSDFourCharCode("Two "), std::shared_ptr<PSDDescriptor>());
    EXPECT_EQ(thrownError([&] { (void)failing.data(); }), PSDError::writeParameterError);
    EXPECT_TRUE(marked->isNested);
}

TEST(DescriptorWritingTest, ValuesOutsideTheFormatAreRefused)
{
    struct Case {
        const char* what;
        UnifiedStringValue key;
        PSDDescriptorPropertyValue value;
        std::error_code error;
    };
    const Case cases[] = {
        {"string key outside Mac OS Roman", UnifiedStringValue::string("\xE2\x86\x92"), true,
         PSDError::writeUnknownError},
        {"code key outside Mac OS Roman",
         PSDFourCharCode(std::string("ab\xE2\x86\x92"
                                     "c")),
         true, PSDError::writeUnknownError},
        {"enumerated half outside Mac OS Roman", PSDFourCharCode("Md  "),
         Enumerated(PSDFourCharCode("BlnM"), UnifiedStringValue::string("\xE4\xB8\xAD")),
         PSDError::writeUnknownError},
        {"null descriptor handle", PSDFourCharCode("Obj "), std::shared_ptr<PSDDescriptor>(),
         PSDError::writeParameterError},
        {"null handle in a list", PSDFourCharCode("List"), List{std::shared_ptr<PSDDescriptor>()},
         PSDError::writeParameterError},
    };
    for (const auto& c : cases) {
        PSDDescriptor d;
        d.set(c.key, c.value);
        EXPECT_EQ(thrownError([&] { (void)d.data(); }), c.error) << c.what;
    }
    PSDDescriptor badName;
    badName.name = "\xFF";
    EXPECT_EQ(thrownError([&] { (void)badName.data(); }), PSDError::writeUnknownError);
}

TEST(DescriptorWritingTest, CountsBeyond31BitsAreRefused)
{
    PSDWriter writer;
    detail::appendDescriptorCount(writer, 0x7FFFFFFF);
    EXPECT_EQ(writer.data(), (Bytes{0x7F, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(thrownError([&] { detail::appendDescriptorCount(writer, 0x80000000u); }),
              PSDError::writeParameterError);
}

TEST(DescriptorWritingTest, DeepOrSelfContainingTreesAreRefused)
{
    auto chain = [](int levels) {
        auto top = std::make_shared<PSDDescriptor>();
        auto* at = top.get();
        for (int level = 0; level < levels; ++level) {
            auto next = std::make_shared<PSDDescriptor>();
            at->set(PSDFourCharCode("Deep"), next);
            at = next.get();
        }
        return top;
    };
    EXPECT_NO_THROW((void)chain(PSDDescriptor::maximumNestingDepth)->data());
    EXPECT_EQ(thrownError([&] { (void)chain(PSDDescriptor::maximumNestingDepth + 1)->data(); }),
              PSDError::writeParameterError);

    auto loop = std::make_shared<PSDDescriptor>();
    loop->set(PSDFourCharCode("Self"), List{loop});
    EXPECT_EQ(thrownError([&] { (void)loop->data(); }), PSDError::writeParameterError);
    EXPECT_FALSE(loop->debugDescription().empty()); // printing stops at the depth limit too
    loop->properties.clear();                       // break the cycle
}

TEST(DescriptorPropertiesTest, KeysKeepTheirFirstPlace)
{
    PSDDescriptor d;
    for (const char* key : {"A   ", "B   ", "C   "}) {
        d.set(PSDFourCharCode(std::string(key)), true);
    }
    d.set(PSDFourCharCode("A   "), false);           // replaced in place
    d.set(PSDFourCharCode("B   "), std::nullopt);    // removed
    d.set(PSDFourCharCode("B   "), std::int32_t{3}); // stored again, now last
    std::string order;
    for (const auto& [key, value] : d.properties) {
        order += key.text() + "=" + value.debugDescription() + ";";
    }
    EXPECT_EQ(order, "A   =false;C   =true;B   =3;");
    EXPECT_FALSE(d[PSDFourCharCode("D   ")].has_value());
    EXPECT_EQ(*d[PSDFourCharCode("C   ")]->getIf<bool>(), true);
}

} // namespace
} // namespace psdkit
