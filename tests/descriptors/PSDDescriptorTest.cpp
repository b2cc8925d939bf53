// Descriptors read from and written to the format's layout, their printed forms and their limits.
#include <algorithm>

#include <gtest/gtest.h>

#include "psdkit/descriptors/DescriptorLayout.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "support/ByteBuilder.hpp"
#include "support/DiagnosticsCapture.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using namespace psdkit::testing;
using namespace std::string_view_literals;
using Bytes = std::vector<std::uint8_t>;
using List = PSDDescriptorPropertyValue::List;
using Code = PSDFourCharCode;

/// An identifier holding a four-character code: a zero length word, then the code.
ByteBuilder& codeID(ByteBuilder& b, std::string_view code)
{
    return b.u32(0).ascii(code);
}
/// An identifier holding a string: its length, then its bytes.
ByteBuilder& stringID(ByteBuilder& b, std::string_view text)
{
    return b.u32(text.size()).ascii(text);
}

/// The opening of a descriptor up to its item count: the version 16 (top level only), the name "\0"
/// as the writer stores it, the class ID code and the item count.
ByteBuilder& descriptorStart(ByteBuilder& b, std::uint32_t items, bool nested = false,
                             std::string_view classCode = "null")
{
    if (!nested) {
        b.u32(16);
    }
    b.unicode("\0"sv);
    return codeID(b, classCode).u32(items);
}

/// A top-level descriptor of the default name and class holding the given items' bytes.
Bytes descriptorWith(std::uint32_t items, const Bytes& itemBytes)
{
    ByteBuilder b;
    return descriptorStart(b, items).raw(itemBytes).bytes();
}

/// A top-level descriptor holding one of every kind of value (a "GlbO" nested descriptor among them).
Bytes richDescriptorBytes()
{
    ByteBuilder b;
    descriptorStart(b, 9);
    codeID(b, "Nm  ").ascii("TEXT").unicode("ab\0"sv);
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

/// Reads a top-level descriptor from `bytes`; `consumed` receives the bytes the read took.
std::shared_ptr<PSDDescriptor> readDescriptor(const Bytes& bytes, std::int64_t* consumed = nullptr)
{
    PSDScanner scanner(bytes);
    auto descriptor = std::make_shared<PSDDescriptor>();
    descriptor->read(scanner, false);
    if (consumed) {
        *consumed = scanner.offset();
    }
    return descriptor;
}

// The keys and printed values of a descriptor's items, in their order.
std::string itemsOf(const PSDDescriptor& d)
{
    std::string items;
    for (const auto& [key, value] : d.properties) {
        items += key.text() + "=" + value.debugDescription() + ";";
    }
    return items;
}

// The printed form shows every value and its kind; the nested descriptors are marked as such.
TEST(DescriptorTest, EveryValueKindReadsPrintsAndWritesBackAndEveryTruncationIsAnUnexpectedEnd)
{
    const Bytes bytes = richDescriptorBytes();
    std::int64_t consumed = 0;
    const auto d = readDescriptor(bytes, &consumed);
    EXPECT_EQ(consumed, static_cast<std::int64_t>(bytes.size()));
    ASSERT_EQ(d->properties.size(), 9u);
    const auto& list = *d->valueAs<List>(Code("List"));
    EXPECT_TRUE(list.size() == 2 && list[1].descriptor() && list[1].descriptor()->isNested);
    EXPECT_TRUE(d->descriptorValue(Code("Glob")) && d->descriptorValue(Code("Glob"))->isNested);
    EXPECT_EQ(*d->valueAs<Bytes>(Code("Raw ")), (Bytes{1, 2, 3}));
    EXPECT_EQ(
        d->debugDescription(),
        "[Descriptor (Name: \0, ClassID: 'null') : ['Nm  ': \"ab\\0\", keyName: 0.5, 'Angl': 90.0 \u00B0, "
        "'Type': [Enum('BlnM') linearBurn], 'Cnt ': -1, 'Flag': true, 'List': [1, [Descriptor (Name: \0, "
        "ClassID: 'RGBC') : ['Rd  ': 255.0]]], 'Glob': [Descriptor (Name: \0, ClassID: 'null') : [:]], "
        "'Raw ': 3 bytes]]"sv);

    // Written back: the global object's tag becomes "Objc" and the boolean's byte 1.
    Bytes expected = bytes;
    const auto at = [&](std::string_view text) {
        return std::search(expected.begin(), expected.end(), text.begin(), text.end());
    };
    std::copy_n("Objc", 4, at("GlbO"));
    at("bool")[4] = 1;
    EXPECT_EQ(d->data(), expected);
    EXPECT_TRUE(readDescriptor(expected)->hasSameContent(*d));

    // Cut anywhere, the bytes end too early.
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(thrownError([&] { (void)readDescriptor(cut); }), PSDError::readUnexpectedEndOfFile)
            << length;
    }
}

TEST(DescriptorTest, KeysAreStringsOrCodesByTheirLengthWordCompareCanonicallyAndKeepTheirFirstPlace)
{
    ByteBuilder ids;
    stringID(ids, "Clr ").ascii("long").i32(1);
    codeID(ids, "Clr ").ascii("long").i32(2);
    ids.u32(0x80000000).ascii("long").i32(3); // a negative length: the empty string, 4 bytes consumed
    const auto read = readDescriptor(descriptorWith(3, ids.bytes()));
    ASSERT_EQ(read->properties.size(), 3u);
    EXPECT_EQ(*read->valueAs<std::int32_t>(UnifiedStringValue::string("Clr ")), 1);
    EXPECT_EQ(*read->valueAs<std::int32_t>(Code("Clr ")), 2);
    EXPECT_EQ(*read->valueAs<std::int32_t>(UnifiedStringValue::string("")), 3);
    // String keys compare in canonical form: composed and decomposed text find each other.
    const auto composed = UnifiedStringValue::string("caf\xC3\xA9");
    const auto decomposed = UnifiedStringValue::string("cafe\xCC\x81");
    EXPECT_EQ(composed, decomposed);
    EXPECT_EQ(composed.hash(), decomposed.hash());
    PSDDescriptorProperties map;
    map.set(composed, true);
    EXPECT_NE(map.find(decomposed), nullptr);
    EXPECT_EQ(decomposed.text(), "cafe\xCC\x81"); // kept as given

    // Keys keep their first place, whether set or read.
    PSDDescriptor d;
    for (const char* key : {"A   ", "B   ", "C   "}) {
        d.set(Code(std::string(key)), true);
    }
    d.set(Code("A   "), false);           // replaced in place
    d.set(Code("B   "), std::nullopt);    // removed
    d.set(Code("B   "), std::int32_t{3}); // stored again, now last
    EXPECT_EQ(itemsOf(d), "A   =false;C   =true;B   =3;");
    EXPECT_FALSE(d[Code("D   ")].has_value());

    // Reading adds to the items; the last of duplicate keys wins, in the place of the first.
    ByteBuilder b;
    codeID(b, "D   ").ascii("long").i32(1);
    codeID(b, "C   ").ascii("long").i32(2);
    codeID(b, "D   ").ascii("long").i32(4);
    const Bytes bytes = descriptorWith(3, b.bytes());
    PSDScanner scanner(bytes);
    d.read(scanner, false);
    EXPECT_EQ(itemsOf(d), "A   =false;C   =2;B   =3;D   =4;");
}

TEST(DescriptorTest, BadHeadersAndValuesFailWithTheirError)
{
    const auto item = [](std::string_view tag) { return ByteBuilder().u32(0).ascii("A   ").ascii(tag); };
    const Bytes fresh = descriptorWith(0, {});
    using E = PSDError;
    const std::tuple<const char*, Bytes, std::error_code> cases[] = {
        {"version 15", ByteBuilder().u32(15).bytes(), E::readUnsupportedDescriptorVersion},
        {"version 17", ByteBuilder().u32(17).bytes(), E::readUnsupportedDescriptorVersion},
        {"no version", {0, 0, 0}, E::readUnexpectedEndOfFile},
        {"no version word, as nested", Bytes(fresh.begin() + 4, fresh.end()),
         E::readUnsupportedDescriptorVersion},
        {"item count with top bit", ByteBuilder().u32(16).u32(0).u32(0).ascii("null").u32(0x80000000).bytes(),
         E::readUnexpectedEndOfFile},
        {"unknown type tag", descriptorWith(1, item("obj ").u32(0).bytes()),
         E::readUnsupportedDescriptorValueType},
        {"unknown unit", descriptorWith(1, item("UntF").ascii("#Mlm").i64(0).bytes()),
         E::readUnsupportedContentType},
        {"negative raw data length", descriptorWith(1, item("tdta").i32(-1).bytes()), E::readParameterError},
        {"list count with top bit", descriptorWith(1, item("VlLs").u32(0x80000000).bytes()),
         E::readUnexpectedEndOfFile},
        {"key code not four characters",
         descriptorWith(1, ByteBuilder().u32(0).ascii("\r\nAB").ascii("long").i32(0).bytes()),
         E::readParameterError},
    };
    for (const auto& [what, bytes, error] : cases) {
        EXPECT_EQ(thrownError([&] { (void)readDescriptor(bytes); }), error) << what;
    }
}

TEST(DescriptorTest, FailureKeepsWhatWasStoredBeforeAndTracesEveryItemButNotListElements)
{
    ByteBuilder b;
    b.u32(16).unicode("Hi");
    codeID(b, "Grdn").u32(3);
    codeID(b, "A   ").ascii("long").i32(1);
    codeID(b, "List").ascii("VlLs").u32(1).ascii("long").i32(5);
    codeID(b, "B   ").ascii("Objc");
    descriptorStart(b, 2, true);
    stringID(b, "say \"hi\"").ascii("bool").u8(0);
    codeID(b, "Bad ").ascii("????");
    PSDDescriptor d;
    PSDScanner scanner(b.bytes());
    DiagnosticsCapture trace;
    EXPECT_EQ(thrownError([&] { d.read(scanner, false); }), PSDError::readUnsupportedDescriptorValueType);
    EXPECT_EQ(d.name, "Hi");
    EXPECT_EQ(d.classID, UnifiedStringValue(Code("Grdn")));
    EXPECT_EQ(itemsOf(d), "A   =1;List=[5];");
    EXPECT_EQ(trace.lines,
              (std::vector<std::string>{R"("'A   ', 'long'")", R"("'List', 'VlLs'")", R"("'B   ', 'Objc'")",
                                        R"("say \"hi\", 'bool'")", R"("'Bad ', '????'")"}));
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

TEST(DescriptorTest, NestingIsLimitedInsteadOfExhaustingTheStack)
{
    const int limit = PSDDescriptor::maximumNestingDepth;
    for (const bool lists : {false, true}) {
        EXPECT_NO_THROW((void)readDescriptor(nestedChain(limit, lists))) << lists;
        EXPECT_EQ(thrownError([&] { (void)readDescriptor(nestedChain(limit + 1, lists)); }),
                  PSDError::readCorruptFile);
        EXPECT_EQ(thrownError([&] { (void)readDescriptor(nestedChain(100000, lists)); }),
                  PSDError::readCorruptFile);
    }
    const auto chain = [](int levels) {
        auto top = std::make_shared<PSDDescriptor>();
        auto* at = top.get();
        for (int level = 0; level < levels; ++level) {
            auto next = std::make_shared<PSDDescriptor>();
            at->set(Code("Deep"), next);
            at = next.get();
        }
        return top;
    };
    EXPECT_NO_THROW((void)chain(limit)->data());
    EXPECT_EQ(thrownError([&] { (void)chain(limit + 1)->data(); }), PSDError::writeParameterError);
    auto loop = std::make_shared<PSDDescriptor>();
    loop->set(Code("Self"), List{loop});
    EXPECT_EQ(thrownError([&] { (void)loop->data(); }), PSDError::writeParameterError);
    EXPECT_FALSE(loop->debugDescription().empty()); // printing stops at the depth limit too
    loop->properties.clear();                       // break the cycle
}

TEST(DescriptorTest, ItemsAreWrittenInTheFormatsLayoutAndValuesOutsideItAreRefused)
{
    const auto item = [](std::uint32_t keyLength, std::string_view key, std::string_view tag) {
        return ByteBuilder().u32(keyLength).ascii(key).ascii(tag);
    };
    // The writer's own choices; the other kinds are covered by the rich descriptor's write-back.
    const std::tuple<const char*, UnifiedStringValue, PSDDescriptorPropertyValue, ByteBuilder> written[] = {
        {"terminated text", Code("Nm  "), "ab", item(0, "Nm  ", "TEXT").u32(3).raw({0, 0x61, 0, 0x62, 0, 0})},
        {"percent", Code("Opct"), PSDUnitFloat{PSDUnitFloat::Unit::percent, 50},
         item(0, "Opct", "UntF").ascii("#Prc").raw({0x40, 0x49, 0, 0, 0, 0, 0, 0})},
    };
    for (const auto& [what, key, value, bytes] : written) {
        PSDDescriptor d;
        d.set(key, value);
        EXPECT_EQ(d.data(), descriptorWith(1, bytes.bytes())) << what;
    }
    PSDWriter writer;
    detail::appendDescriptorCount(writer, 0x7FFFFFFF);
    EXPECT_EQ(writer.data(), (Bytes{0x7F, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(thrownError([&] { detail::appendDescriptorCount(writer, 0x80000000u); }),
              PSDError::writeParameterError);

    // Values outside the format are refused.
    using E = PSDError;
    const std::tuple<const char*, UnifiedStringValue, PSDDescriptorPropertyValue, std::error_code> refused[] =
        {
            {"string key outside Mac OS Roman", UnifiedStringValue::string("\xE2\x86\x92"), true,
             E::writeUnknownError},
            {"code key outside Mac OS Roman", Code(std::string("ab\xE2\x86\x92") + "c"), true,
             E::writeUnknownError},
            {"enumerated half outside Mac OS Roman", Code("Md  "),
             Enumerated(Code("BlnM"), UnifiedStringValue::string("\xE4\xB8\xAD")), E::writeUnknownError},
            {"null handle in a list", Code("List"), List{std::shared_ptr<PSDDescriptor>()},
             E::writeParameterError},
        };
    for (const auto& [what, key, value, error] : refused) {
        PSDDescriptor d;
        d.set(key, value);
        EXPECT_EQ(thrownError([&] { (void)d.data(); }), error) << what;
    }
    PSDDescriptor badName;
    badName.name = "\xFF";
    EXPECT_EQ(thrownError([&] { (void)badName.data(); }), E::writeUnknownError);
}

TEST(DescriptorTest, WritingMarksEveryNestedDescriptorAndTheMarkStays)
{
    auto direct = std::make_shared<PSDDescriptor>();
    auto inList = std::make_shared<PSDDescriptor>();
    auto deeper = std::make_shared<PSDDescriptor>();
    inList->set(Code("In  "), deeper);
    PSDDescriptor parent;
    parent.set(Code("One "), direct);
    parent.set(Code("Two "), List{std::int32_t{0}, List{inList}});
    const Bytes bytes = parent.data();
    EXPECT_TRUE(direct->isNested && inList->isNested && deeper->isNested);
    EXPECT_FALSE(parent.isNested);
    EXPECT_TRUE(readDescriptor(bytes)->hasSameContent(parent));
    parent.isNested = true; // the host's choice: no version word even at the top
    EXPECT_EQ(parent.data(), Bytes(bytes.begin() + 4, bytes.end()));

    // A failure later in the tree leaves the marks already made.
    auto marked = std::make_shared<PSDDescriptor>();
    PSDDescriptor failing;
    failing.set(Code("One "), marked);
    failing.set(Code("Two "), std::shared_ptr<PSDDescriptor>());
    EXPECT_EQ(thrownError([&] { (void)failing.data(); }), PSDError::writeParameterError);
    EXPECT_TRUE(marked->isNested);
}

} // namespace
} // namespace psdkit
