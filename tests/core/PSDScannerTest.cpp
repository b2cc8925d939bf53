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

// Numbers and decoded text are read by every corpus test and checked by the text codec tests; these
// are the string rules of the scanner itself.
TEST(ScannerTest, StringsKeepTheirTerminatorsAndEmptyOrNegativeCountsReadOnlyTheCount)
{
    // Pascal "Café" in Mac OS Roman, Unicode "A" and U+0000, an empty Pascal string, Unicode strings of
    // counts 0 and -1, a C string of count -5.
    const V bytes = {4, 'C', 'a', 'f', 0x8E, 0,    0,    0,    2,    0,    'A',  0,    0,
                     0, 0,   0,   0,   0,    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFB};
    PSDScanner s(bytes);
    EXPECT_EQ(s.scanPascalString(), "Caf\xC3\xA9");
    EXPECT_EQ(s.scanUnicodeString(), std::string("A\0", 2));
    EXPECT_EQ(s.scanPascalString(), "");
    EXPECT_EQ(s.scanUnicodeString(), "");
    EXPECT_EQ(s.scanUnicodeString(), "");
    EXPECT_EQ(s.scanCString(), "");
    EXPECT_EQ(s.offset(), 5 + 8 + 13);
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
    using R = PSDScanner&;
    const auto byte = [](R s) { (void)s.scanUInt8(); };
    const auto pascal = [](R s) { (void)s.scanPascalString(); };
    const auto unicode = [](R s) { (void)s.scanUnicodeString(); };
    const auto code = [](R s) { (void)s.scanFourCharCode(); };
    const auto rect = [](R s) { (void)s.scanMacRect(); };
    const auto end = PSDError::readUnexpectedEndOfFile;
    const auto parameter = PSDError::readParameterError;
    const Case cases[] = {
        {"byte of nothing", {}, byte, end, 0},
        {"Pascal string of nothing", {}, pascal, end, 0},
        {"lone high surrogate", {0, 0, 0, 1, 0xD8, 0x3D}, unicode, PSDError::readUnknownError, 4},
        {"short Pascal string", {3, 'a', 'b'}, pascal, end, 1},
        {"short Unicode string", {0, 0, 0, 2, 0, 'a'}, unicode, end, 4},
        {"line break in a code", {'a', '\r', '\n', 'b'}, code, parameter, 4},
        {"short code", {'a', 'b'}, code, end, 0},
        {"inverted rectangle", ByteBuilder().i32(5).i32(0).i32(4).i32(0), rect, PSDError::readCorruptFile,
         16},
        {"negative skip", V(10), [](R s) { s.skip(-1); }, parameter, 0},
        {"negative data length", V(10), [](R s) { (void)s.scanData(-1); }, parameter, 0},
        {"skip past the end", V(10), [](R s) { s.skip(11); }, end, 0},
        {"back before the start", V(10), [](R s) { s.skipBackwards(1); }, parameter, 0},
        {"empty read past the end", V(10), [](R s) { s.seek(12), (void)s.scanData(0); }, end, 12},
        {"empty skip past the end", V(10), [](R s) { s.seek(12), s.skip(0); }, end, 12},
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

TEST(FourCharCodeTest, CanonicalEqualityAndCharacterCount)
{
    EXPECT_EQ(PSDFourCharCode(std::string("caf\xC3\xA9")), PSDFourCharCode(std::string("cafe\xCC\x81")));
    EXPECT_EQ(PSDFourCharCode(std::string("caf\xC3\xA9")).hash(),
              PSDFourCharCode(std::string("cafe\xCC\x81")).hash());
    EXPECT_EQ(thrownError([] { (void)PSDFourCharCode(std::string("abc")); }), PSDError::readParameterError);
    EXPECT_NO_THROW((void)PSDFourCharCode(std::string("ab\r\nc")));
}

} // namespace
} // namespace psdkit
