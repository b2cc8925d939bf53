#include "psdkit/core/PSDScanner.hpp"

#include <cmath>

#include <gtest/gtest.h>

#include "support/ByteBuilder.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using testing::ByteBuilder;
using testing::thrownError;
using V = std::vector<std::uint8_t>;

TEST(ScannerTest, EmptySourceRefusesEveryNonEmptyRead)
{
    for (const std::span<const std::uint8_t> source :
         {std::span<const std::uint8_t>{}, std::span<const std::uint8_t>(V{})}) {
        PSDScanner s(source);
        EXPECT_EQ(s.length(), 0);
        EXPECT_EQ(thrownError([&] { (void)s.scanUInt8(); }), PSDError::readUnexpectedEndOfFile);
        EXPECT_EQ(thrownError([&] { (void)s.scanPascalString(); }), PSDError::readUnexpectedEndOfFile);
        EXPECT_TRUE(s.scanData(0).empty());
        s.skip(0);
        EXPECT_EQ(s.offset(), 0);
    }
}

TEST(ScannerTest, IntegersAreBigEndianWithTheirSignedness)
{
    const V bytes =
        ByteBuilder().raw({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0, 0, 0, 0, 0, 0, 1}).bytes();
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
}

TEST(ScannerTest, FixedPointDividesTheFractionBy65535)
{
    const V bytes =
        ByteBuilder().raw({0x00, 0x01, 0x80, 0x00, 0xFF, 0xFE, 0x80, 0x00, 0x00, 0x47, 0xFF, 0xFF}).bytes();
    PSDScanner s(bytes);
    EXPECT_DOUBLE_EQ(s.scanFixed32(), 1.0 + 32768.0 / 65535.0);
    EXPECT_DOUBLE_EQ(s.scanFixed32(), -2.0 + 32768.0 / 65535.0);
    EXPECT_EQ(s.scanFixed32(), 72.0);
}

TEST(ScannerTest, FloatsAreBigEndianIeee)
{
    const V bytes =
        ByteBuilder().raw({0x3F, 0x80, 0, 0, 0x40, 0x09, 0x21, 0xFB, 0x54, 0x44, 0x2D, 0x18}).bytes();
    PSDScanner s(bytes);
    EXPECT_EQ(s.scanFloat32(), 1.0);
    EXPECT_DOUBLE_EQ(s.scanFloat64(), 3.141592653589793);
}

TEST(ScannerTest, StringsWithEmptyOrNegativeCountsConsumeOnlyTheirCount)
{
    const V bytes = ByteBuilder().u8(0).i32(0).i32(-1).i32(-5).bytes();
    PSDScanner s(bytes);
    EXPECT_EQ(s.scanPascalString(), "");
    EXPECT_EQ(s.offset(), 1);
    EXPECT_EQ(s.scanUnicodeString(), "");
    EXPECT_EQ(s.scanUnicodeString(), "");
    EXPECT_EQ(s.scanCString(), "");
    EXPECT_EQ(s.offset(), 13);
}

TEST(ScannerTest, StringsDecodeMacRomanAndUtf16KeepingTerminators)
{
    // "Caf" + 0x8E (é in Mac OS Roman); "A" + U+1F600 + U+0000; counted "x" + 0xDB (€).
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
                        .bytes();
    PSDScanner s(bytes);
    EXPECT_EQ(s.scanPascalString(), "Caf\xC3\xA9");
    EXPECT_EQ(s.offset(), 5);
    EXPECT_EQ(s.scanUnicodeString(), std::string("A\xF0\x9F\x98\x80\0", 6));
    EXPECT_EQ(s.scanCString(), "x\xE2\x82\xAC");
}

TEST(ScannerTest, UnpairedSurrogatesCannotBeDecoded)
{
    for (const V& units : {V{0xD8, 0x3D}, V{0xDE, 0x00, 0x00, 0x41}, V{0xD8, 0x3D, 0x00, 0x41}}) {
        const V bytes = ByteBuilder().i32(static_cast<std::int64_t>(units.size() / 2)).raw(units).bytes();
        PSDScanner s(bytes);
        EXPECT_EQ(thrownError([&] { (void)s.scanUnicodeString(); }), PSDError::readUnknownError);
    }
}

TEST(ScannerTest, ShortStringBodiesFailAfterTheirCount)
{
    const V pascal = ByteBuilder().u8(3).ascii("ab").bytes();
    PSDScanner s(pascal);
    EXPECT_EQ(thrownError([&] { (void)s.scanPascalString(); }), PSDError::readUnexpectedEndOfFile);
    EXPECT_EQ(s.offset(), 1);
    const V unicode = ByteBuilder().i32(2).u16('a').bytes();
    PSDScanner u(unicode);
    EXPECT_EQ(thrownError([&] { (void)u.scanUnicodeString(); }), PSDError::readUnexpectedEndOfFile);
    EXPECT_EQ(u.offset(), 4);
}

TEST(ScannerTest, FourCharCodesMustBeFourCharacters)
{
    const V bytes = ByteBuilder().ascii("8BIM").raw({'a', '\r', '\n', 'b'}).ascii("ab").bytes();
    PSDScanner s(bytes);
    EXPECT_EQ(s.scanFourCharCode(), PSDFourCharCode("8BIM"));
    EXPECT_EQ(thrownError([&] { (void)s.scanFourCharCode(); }), PSDError::readParameterError);
    EXPECT_EQ(s.offset(), 8);
    EXPECT_EQ(thrownError([&] { (void)s.scanFourCharCode(); }), PSDError::readUnexpectedEndOfFile);
    EXPECT_EQ(s.offset(), 8);
}

TEST(ScannerTest, RectanglesMayBeEmptyButNotInverted)
{
    const V bytes = ByteBuilder().i32(5).i32(1).i32(5).i32(9).i32(5).i32(0).i32(4).i32(0).bytes();
    PSDScanner s(bytes);
    EXPECT_EQ(s.scanMacRect(), PSDMacRect(5, 1, 5, 9));
    EXPECT_EQ(thrownError([&] { (void)s.scanMacRect(); }), PSDError::readCorruptFile);
    EXPECT_EQ(s.offset(), 32);
}

TEST(ScannerTest, CursorMovesOnlyWithinTheBufferExceptBySeek)
{
    const V bytes(10, 0);
    PSDScanner s(bytes);
    EXPECT_EQ(thrownError([&] { s.skip(-1); }), PSDError::readParameterError);
    EXPECT_EQ(thrownError([&] { (void)s.scanData(-1); }), PSDError::readParameterError);
    s.skip(10);
    EXPECT_EQ(s.bytesRemaining(), 0);
    EXPECT_EQ(thrownError([&] { s.skip(1); }), PSDError::readUnexpectedEndOfFile);
    EXPECT_EQ(thrownError([&] { s.skipBackwards(11); }), PSDError::readParameterError);
    s.skipBackwards(10);
    EXPECT_EQ(s.offset(), 0);
    s.seek(12);
    EXPECT_EQ(s.bytesRemaining(), -2);
    EXPECT_EQ(thrownError([&] { (void)s.scanData(0); }), PSDError::readUnexpectedEndOfFile);
    EXPECT_EQ(thrownError([&] { s.skip(0); }), PSDError::readUnexpectedEndOfFile);
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
