#include "psdkit/core/PSDScanner.hpp"

#include <cmath>
#include <functional>

#include <gtest/gtest.h>

#include "support/ByteBuilder.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using testing::ByteBuilder;
using testing::thrownError;
using V = std::vector<std::uint8_t>;

TEST(ScannerTest, NumbersAreBigEndianWithTheirSignedness)
{
    const V bytes = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0, 0, 0, 0, 0, 0, 1};
    PSDScanner s(bytes);
    EXPECT_EQ(s.scanInt16(), -1);
    s.seek(0);
    EXPECT_EQ(s.scanUInt16(), 65535);
    s.seek(0);
    EXPECT_EQ(s.scanInt32(), -1);
    s.seek(0);
    EXPECT_EQ(s.scanUInt32(), 4294967295);
    EXPECT_EQ(s.scanUInt8(), 255);
    s.seek(6);
    EXPECT_EQ(s.scanInt64(), static_cast<std::int64_t>(0x8000000000000001ULL));
    EXPECT_EQ(s.bytesRemaining(), 0);

    // Fixed point divides the fraction by 65535.
    const V reals = {0x00, 0x01, 0x80, 0x00, 0xFF, 0xFE, 0x80, 0x00, 0x00, 0x47, 0xFF, 0xFF,
                     0x3F, 0x80, 0,    0,    0x40, 0x09, 0x21, 0xFB, 0x54, 0x44, 0x2D, 0x18};
    PSDScanner r(reals);
    EXPECT_DOUBLE_EQ(r.scanFixed32(), 1.0 + 32768.0 / 65535.0);
    EXPECT_DOUBLE_EQ(r.scanFixed32(), -2.0 + 32768.0 / 65535.0);
    EXPECT_EQ(r.scanFixed32(), 72.0);
    EXPECT_EQ(r.scanFloat32(), 1.0);
    EXPECT_DOUBLE_EQ(r.scanFloat64(), 3.141592653589793);
}

TEST(ScannerTest, StringsDecodeMacRomanAndUtf16KeepingTerminatorsAndEmptyCountsReadNothing)
{
    // "Caf" + 0x8E (é in Mac OS Roman); "A" + U+1F600 + U+0000; counted "x" + 0xDB (€); then empty
    // and negative counts.
    const V bytes = ByteBuilder()
                        .u8(4)
                        .ascii("Caf")
                        .u8(0x8E)
                        .i32(4)
                        .u16('A')
                        .raw({0xD8, 0x3D, 0xDE, 0x00})
                        .u16(0)
                        .i32(2)
                        .ascii("x")
                        .u8(0xDB)
                        .u8(0)
                        .i32(0)
                        .i32(-1)
                        .i32(-5)
                        .bytes();
    PSDScanner s(bytes);
    EXPECT_EQ(s.scanPascalString(), "Caf\xC3\xA9");
    EXPECT_EQ(s.scanUnicodeString(), std::string("A\xF0\x9F\x98\x80\0", 6));
    EXPECT_EQ(s.scanCString(), "x\xE2\x82\xAC");
    const std::int64_t empties = s.offset();
    EXPECT_EQ(s.scanPascalString(), "");
    EXPECT_EQ(s.scanUnicodeString(), "");
    EXPECT_EQ(s.scanUnicodeString(), "");
    EXPECT_EQ(s.scanCString(), "");
    EXPECT_EQ(s.offset(), empties + 13);
}

TEST(ScannerTest, RefusedReadsNameTheirErrorAndLeaveTheCursor)
{
    struct Case {
        const char* what;
        V bytes;
        std::function<void(PSDScanner&)> read;
        std::error_code expected;
        std::int64_t offsetAfter;
    };
    const auto unicode = [](PSDScanner& s) { (void)s.scanUnicodeString(); };
    const auto fourChars = [](PSDScanner& s) { (void)s.scanFourCharCode(); };
    const Case cases[] = {
        {"byte of nothing",
         {},
         [](PSDScanner& s) { (void)s.scanUInt8(); },
         PSDError::readUnexpectedEndOfFile,
         0},
        {"Pascal string of nothing",
         {},
         [](PSDScanner& s) { (void)s.scanPascalString(); },
         PSDError::readUnexpectedEndOfFile,
         0},
        {"lone high surrogate", {0, 0, 0, 1, 0xD8, 0x3D}, unicode, PSDError::readUnknownError, 4},
        {"lone low surrogate", {0, 0, 0, 2, 0xDE, 0x00, 0x00, 0x41}, unicode, PSDError::readUnknownError, 4},
        {"high surrogate before a letter",
         {0, 0, 0, 2, 0xD8, 0x3D, 0x00, 0x41},
         unicode,
         PSDError::readUnknownError,
         4},
        {"short Pascal string",
         {3, 'a', 'b'},
         [](PSDScanner& s) { (void)s.scanPascalString(); },
         PSDError::readUnexpectedEndOfFile,
         1},
        {"short Unicode string", {0, 0, 0, 2, 0, 'a'}, unicode, PSDError::readUnexpectedEndOfFile, 4},
        {"line break in a code", {'a', '\r', '\n', 'b'}, fourChars, PSDError::readParameterError, 4},
        {"short code", {'a', 'b'}, fourChars, PSDError::readUnexpectedEndOfFile, 0},
        {"inverted rectangle", ByteBuilder().i32(5).i32(0).i32(4).i32(0),
         [](PSDScanner& s) { (void)s.scanMacRect(); }, PSDError::readCorruptFile, 16},
        {"negative skip", V(10), [](PSDScanner& s) { s.skip(-1); }, PSDError::readParameterError, 0},
        {"negative data length", V(10), [](PSDScanner& s) { (void)s.scanData(-1); },
         PSDError::readParameterError, 0},
        {"skip past the end", V(10), [](PSDScanner& s) { s.skip(11); }, PSDError::readUnexpectedEndOfFile, 0},
        {"back before the start", V(10), [](PSDScanner& s) { s.skipBackwards(1); },
         PSDError::readParameterError, 0},
        {"empty read past the end", V(10), [](PSDScanner& s) { s.seek(12), (void)s.scanData(0); },
         PSDError::readUnexpectedEndOfFile, 12},
        {"empty skip past the end", V(10), [](PSDScanner& s) { s.seek(12), s.skip(0); },
         PSDError::readUnexpectedEndOfFile, 12},
    };
    for (const auto& c : cases) {
        PSDScanner s(c.bytes);
        EXPECT_EQ(thrownError([&] { c.read(s); }), c.expected) << c.what;
        EXPECT_EQ(s.offset(), c.offsetAfter) << c.what;
    }
    PSDScanner empty(std::span<const std::uint8_t>{});
    EXPECT_TRUE(empty.scanData(0).empty());
    empty.skip(0);
    EXPECT_EQ(empty.offset(), 0);
}

TEST(MacRectTest, EmptinessAndConstructionFromIntegralRects)
{
    EXPECT_TRUE(PSDMacRect(0, 0, 5, 0).isEmpty());
    EXPECT_FALSE(PSDMacRect(0, 5, 3, 2).isEmpty());
    EXPECT_EQ(PSDMacRect(image::IntegralRect{10, 20, -4, 6}), PSDMacRect(20, 6, 26, 10));
    EXPECT_EQ(PSDMacRect(CGRect{0.5, 1.25, 2.0, -1.0}), PSDMacRect(0, 0, 2, 3));
    EXPECT_EQ(thrownError([] { (void)PSDMacRect(CGRect{NAN, 0, 1, 1}); }), PSDError::readParameterError);
}

TEST(FourCharCodeTest, TextFormAndCanonicalEquality)
{
    EXPECT_EQ(PSDFourCharCode("norm").debugDescription(), "'norm'");
    EXPECT_EQ(PSDFourCharCode(std::string("caf\xC3\xA9")), PSDFourCharCode(std::string("cafe\xCC\x81")));
    EXPECT_EQ(PSDFourCharCode(std::string("caf\xC3\xA9")).hash(),
              PSDFourCharCode(std::string("cafe\xCC\x81")).hash());
    EXPECT_EQ(thrownError([] { (void)PSDFourCharCode(std::string("abc")); }), PSDError::readParameterError);
    EXPECT_NO_THROW((void)PSDFourCharCode(std::string("ab\r\nc")));
}

} // namespace
} // namespace psdkit
