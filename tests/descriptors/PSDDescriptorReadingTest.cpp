#include <cmath>

#include <gtest/gtest.h>

#include "DescriptorFixtures.hpp"
#include "psdkit/descriptors/DescriptorTextForms.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "support/DiagnosticsCapture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using Bytes = std::vector<std::uint8_t>;
using List = PSDDescriptorPropertyValue::List;

const PSDFourCharCode nullCode("null");

TEST(DescriptorReadingTest, FreshDescriptorBytesReadWithOrWithoutVersionWord)
{
    ByteBuilder b;
    descriptorStart(b, 0);
    ASSERT_EQ(b.size(), 22u);
    DiagnosticsCapture trace;
    std::int64_t consumed = 0;
    const auto top = readDescriptor(b.bytes(), &consumed);
    EXPECT_EQ(consumed, 22);
    EXPECT_EQ(top->name, std::string(1, '\0'));
    EXPECT_EQ(top->classID, UnifiedStringValue(nullCode));
    EXPECT_TRUE(top->properties.empty());
    EXPECT_TRUE(trace.lines.empty());

    const Bytes withoutVersion(b.bytes().begin() + 4, b.bytes().end());
    PSDDescriptor nested;
    nested.isNested = true;
    PSDScanner scanner(withoutVersion);
    nested.read(scanner, true);
    EXPECT_EQ(nested.name, std::string(1, '\0'));
    EXPECT_EQ(nested.classID, UnifiedStringValue(nullCode));
    EXPECT_EQ(scanner.bytesRemaining(), 0);
    // Read as a top-level descriptor, the name's count word is taken for the version.
    EXPECT_EQ(thrownError([&] { (void)readDescriptor(withoutVersion); }),
              PSDError::readUnsupportedDescriptorVersion);
}

TEST(DescriptorReadingTest, VersionOtherThan16OrMissingIsRefused)
{
    EXPECT_EQ(thrownError([] { (void)readDescriptor(ByteBuilder().u32(15).bytes()); }),
              PSDError::readUnsupportedDescriptorVersion);
    EXPECT_EQ(thrownError([] { (void)readDescriptor(ByteBuilder().u32(17).bytes()); }),
              PSDError::readUnsupportedDescriptorVersion);
    EXPECT_EQ(thrownError([] { (void)readDescriptor(Bytes{0, 0, 0}); }), PSDError::readUnexpectedEndOfFile);
}

TEST(DescriptorReadingTest, EveryValueKindReadsAndPrints)
{
    const Bytes bytes = testing::richDescriptorBytes();
    std::int64_t consumed = 0;
    const auto d = readDescriptor(bytes, &consumed);
    EXPECT_EQ(consumed, static_cast<std::int64_t>(bytes.size()));
    ASSERT_EQ(d->properties.size(), 9u);
    EXPECT_EQ(*d->valueAs<std::string>(PSDFourCharCode("Nm  ")), std::string("ab\0", 3));
    EXPECT_EQ(*d->valueAs<double>(UnifiedStringValue::string("keyName")), 0.5);
    EXPECT_EQ(*d->valueAs<PSDUnitFloat>(PSDFourCharCode("Angl")),
              (PSDUnitFloat{PSDUnitFloat::Unit::angle, 90}));
    EXPECT_EQ(*d->valueAs<Enumerated>(PSDFourCharCode("Type")),
              Enumerated(PSDFourCharCode("BlnM"), UnifiedStringValue::string("linearBurn")));
    EXPECT_EQ(*d->valueAs<std::int32_t>(PSDFourCharCode("Cnt ")), -1);
    EXPECT_EQ(*d->valueAs<bool>(PSDFourCharCode("Flag")), true); // the byte 02
    const auto& list = *d->valueAs<List>(PSDFourCharCode("List"));
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(*list[0].getIf<std::int32_t>(), 1);
    ASSERT_NE(list[1].descriptor(), nullptr);
    EXPECT_TRUE(list[1].descriptor()->isNested);
    const PSDDescriptor* global = d->descriptorValue(PSDFourCharCode("Glob"));
    ASSERT_NE(global, nullptr);
    EXPECT_TRUE(global->isNested);
    EXPECT_EQ(*d->valueAs<Bytes>(PSDFourCharCode("Raw ")), (Bytes{1, 2, 3}));
    EXPECT_EQ(d->debugDescription(), testing::richDescriptorText);
}

TEST(DescriptorReadingTest, EveryTruncationIsAnUnexpectedEnd)
{
    const Bytes bytes = testing::richDescriptorBytes();
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(thrownError([&] { (void)readDescriptor(cut); }), PSDError::readUnexpectedEndOfFile)
            << length;
    }
}

TEST(DescriptorReadingTest, IdentifierKindDependsOnTheLengthWord)
{
    ByteBuilder b;
    descriptorStart(b, 3);
    stringID(b, "Clr ").ascii("long").i32(1);
    codeID(b, "Clr ").ascii("long").i32(2);
    b.u32(0x80000000).ascii("long").i32(3); // a negative length: the empty string, 4 bytes consumed
    const auto d = readDescriptor(b.bytes());
    ASSERT_EQ(d->properties.size(), 3u);
    EXPECT_EQ(*d->valueAs<std::int32_t>(UnifiedStringValue::string("Clr ")), 1);
    EXPECT_EQ(*d->valueAs<std::int32_t>(PSDFourCharCode("Clr ")), 2);
    EXPECT_EQ(*d->valueAs<std::int32_t>(UnifiedStringValue::string("")), 3);
}

TEST(DescriptorReadingTest, ReadingAddsToItemsAndTheLastDuplicateWinsInPlace)
{
    ByteBuilder b;
    descriptorStart(b, 3);
    codeID(b, "A   ").ascii("long").i32(1);
    codeID(b, "B   ").ascii("long").i32(2);
    codeID(b, "A   ").ascii("long").i32(3);
    PSDDescriptor d;
    d.set(PSDFourCharCode("B   "), std::int32_t{7});
    d.set(PSDFourCharCode("Kept"), true);
    PSDScanner scanner(b.bytes());
    d.read(scanner, false);
    std::vector<std::string> order;
    for (const auto& [key, value] : d.properties) {
        order.push_back(key.text() + "=" + value.debugDescription());
    }
    EXPECT_EQ(order, (std::vector<std::string>{"B   =2", "Kept=true", "A   =3"}));
}

TEST(DescriptorReadingTest, BadValuesFailWithTheirError)
{
    struct Case {
        const char* what;
        Bytes item; // key, tag and value
        std::error_code error;
    };
    const Case cases[] = {
        {"unknown type tag", ByteBuilder().u32(0).ascii("A   ").ascii("obj ").u32(0).bytes(),
         PSDError::readUnsupportedDescriptorValueType},
        {"unknown unit", ByteBuilder().u32(0).ascii("A   ").ascii("UntF").ascii("#Mlm").i64(0).bytes(),
         PSDError::readUnsupportedContentType},
        {"negative raw data length", ByteBuilder().u32(0).ascii("A   ").ascii("tdta").i32(-1).bytes(),
         PSDError::readParameterError},
        {"list count with top bit", ByteBuilder().u32(0).ascii("A   ").ascii("VlLs").u32(0x80000000).bytes(),
         PSDError::readUnexpectedEndOfFile},
        {"key code not four characters", ByteBuilder().u32(0).ascii("\r\nAB").ascii("long").i32(0).bytes(),
         PSDError::readParameterError},
    };
    for (const auto& c : cases) {
        ByteBuilder b;
        descriptorStart(b, 1).raw(c.item);
        EXPECT_EQ(thrownError([&] { (void)readDescriptor(b.bytes()); }), c.error) << c.what;
    }
    ByteBuilder topBitCount;
    topBitCount.u32(16).u32(0);
    codeID(topBitCount, "null").u32(0x80000000);
    EXPECT_EQ(thrownError([&] { (void)readDescriptor(topBitCount.bytes()); }),
              PSDError::readUnexpectedEndOfFile);
}

TEST(DescriptorReadingTest, FailureKeepsWhatWasStoredBefore)
{
    ByteBuilder b;
    b.u32(16).unicode("Hi");
    codeID(b, "Grdn").u32(2);
    codeID(b, "A   ").ascii("long").i32(1);
    codeID(b, "B   ").ascii("Objc");
    descriptorStart(b, 1, true);
    codeID(b, "C   ").ascii("????");
    PSDDescriptor d;
    PSDScanner scanner(b.bytes());
    EXPECT_EQ(thrownError([&] { d.read(scanner, false); }), PSDError::readUnsupportedDescriptorValueType);
    EXPECT_EQ(d.name, "Hi");
    EXPECT_EQ(d.classID, UnifiedStringValue(PSDFourCharCode("Grdn")));
    ASSERT_EQ(d.properties.size(), 1u);
    EXPECT_TRUE(d.properties.contains(PSDFourCharCode("A   ")));
}

TEST(DescriptorReadingTest, TracesEveryItemOfEveryDescriptorButNotListElements)
{
    ByteBuilder b;
    descriptorStart(b, 3);
    codeID(b, "Grdn").ascii("Objc");
    descriptorStart(b, 1, true);
    stringID(b, "say \"hi\"").ascii("bool").u8(0);
    codeID(b, "List").ascii("VlLs").u32(1).ascii("long").i32(5);
    codeID(b, "Bad ").ascii("????");
    DiagnosticsCapture trace;
    EXPECT_EQ(thrownError([&] { (void)readDescriptor(b.bytes()); }),
              PSDError::readUnsupportedDescriptorValueType);
    EXPECT_EQ(trace.lines, (std::vector<std::string>{R"("'Grdn', 'Objc'")", R"("say \"hi\", 'bool'")",
                                                     R"("'List', 'VlLs'")", R"("'Bad ', '????'")"}));
}

// A top-level descriptor whose only item nests `levels` descriptors (or lists) inside each other.
Bytes nestedChain(int levels, bool lists)
{
    ByteBuilder b;
    descriptorStart(b, 1);
    codeID(b, "Deep");
    for (int level = 1; level < levels; ++level) {
        if (lists) {
            b.ascii("VlLs").u32(1);
        } else {
            b.ascii("Objc");
            descriptorStart(b, 1, true);
            codeID(b, "Deep");
        }
    }
    b.ascii("Objc");
    descriptorStart(b, 0, true);
    return b.bytes();
}

TEST(DescriptorReadingTest, NestingIsLimitedInsteadOfExhaustingTheStack)
{
    const int limit = PSDDescriptor::maximumNestingDepth;
    for (const bool lists : {false, true}) {
        EXPECT_NO_THROW((void)readDescriptor(nestedChain(limit, lists))) << lists;
        EXPECT_EQ(thrownError([&] { (void)readDescriptor(nestedChain(limit + 1, lists)); }),
                  PSDError::readCorruptFile);
        EXPECT_EQ(thrownError([&] { (void)readDescriptor(nestedChain(100000, lists)); }),
                  PSDError::readCorruptFile);
    }
}

TEST(DescriptorTextTest, UnifiedStringValuesCompareByCanonicalEquivalence)
{
    const auto composed = UnifiedStringValue::string("caf\xC3\xA9");
    const auto decomposed = UnifiedStringValue::string("cafe\xCC\x81");
    EXPECT_EQ(composed, decomposed);
    EXPECT_EQ(composed.hash(), decomposed.hash());
    EXPECT_NE(UnifiedStringValue::string("abcd"), UnifiedStringValue(PSDFourCharCode("abcd")));
    PSDDescriptorProperties map;
    map.set(composed, true);
    EXPECT_NE(map.find(decomposed), nullptr);
    EXPECT_EQ(decomposed.text(), "cafe\xCC\x81"); // kept as given
}

TEST(DescriptorTextTest, NumbersUseTheShortestRoundTripText)
{
    const std::pair<double, const char*> cases[] = {
        {90, "90.0"},
        {0.1, "0.1"},
        {-0.0, "-0.0"},
        {100000, "100000.0"},
        {1e15, "1000000000000000.0"},
        {1e16, "1e+16"},
        {1.5e-5, "1.5e-05"},
        {0.0001, "0.0001"},
        {NAN, "nan"},
        {-INFINITY, "-inf"},
        {1.0 / 3, "0.3333333333333333"},
    };
    for (const auto& [value, text] : cases) {
        EXPECT_EQ(detail::shortestDecimalText(value), text);
    }
    using Unit = PSDUnitFloat::Unit;
    const std::pair<PSDUnitFloat, const char*> units[] = {
        {{Unit::angle, 90}, "90.0 \u00B0"},  {{Unit::resolution, 72}, "72.0 dpi"},
        {{Unit::distance, 1.5}, "1.5 dist"}, {{Unit::none, 0}, "0.0 none"},
        {{Unit::percent, 50}, "50.0 %"},     {{Unit::pixels, 10}, "10.0 Px"},
    };
    for (const auto& [unitFloat, text] : units) {
        EXPECT_EQ(unitFloat.debugDescription(), text);
    }
}

TEST(DescriptorTextTest, FreshDescriptorPrintsItsNulName)
{
    using namespace std::string_view_literals;
    EXPECT_EQ(PSDDescriptor().debugDescription(), "[Descriptor (Name: \0, ClassID: 'null') : [:]]"sv);
    EXPECT_EQ(Enumerated(PSDFourCharCode("BlnM"), PSDFourCharCode("Nrml")).description(),
              "[Enum('BlnM') 'Nrml']");
}

} // namespace
} // namespace psdkit
