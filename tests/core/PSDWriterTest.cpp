// PSDWriter: the padding and length rules of strings and blocks, the range checks before writing,
// and writing to sinks: a writer on a sink passes on the same bytes a writer in memory keeps, also
// when lengths must be patched after their bytes were passed on, and a sink's failure reaches the
// caller unchanged. Plain numbers, codes and strings are read back by every round trip and by the
// independent readers of the interop tests.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <sstream>
#include <system_error>

#include <gtest/gtest.h>

#include "psdkit/core/ChunkedOutputSink.hpp"
#include "psdkit/core/PSDError.hpp"
#include "psdkit/core/PSDOutputSink.hpp"
#include "psdkit/core/PSDWriter.hpp"
#include "support/ThrownError.hpp"

namespace psdkit {
namespace {
using Bytes = std::vector<std::uint8_t>;
using testing::nothingThrown;
using testing::thrownError;

// Nested blocks whose bodies are larger than the writer's buffer, small appends between them and
// one large append, so that every length is patched after its bytes have been passed on.
void writeSample(PSDWriter& w)
{
    w.appendFourCharCode(PSDFourCharCode("8BPS"));
    w.writePSDDataBlock(true, 0, true, [](PSDWriter& outer) {
        for (int block = 0; block < 3; ++block) {
            outer.writePSDDataBlock(false, 4, false, [&](PSDWriter& inner) {
                for (int i = 0; i < 40000; ++i) {
                    inner.appendUInt16((i * 7 + block) & 0xFFFF);
                }
                inner.appendUInt8(block);
            });
        }
        outer.appendData(Bytes(300000, 0xAB));
        outer.appendPascalString("tail", 2);
    });
    w.appendInt32(-1);
}

Bytes inMemory()
{
    PSDWriter w;
    writeSample(w);
    return w.takeData();
}

void writeSampleTo(PSDOutputSink& sink)
{
    PSDWriter w(sink);
    writeSample(w);
    w.flush();
}

TEST(PSDWriterSinkTest, EverySinkReceivesTheBytesAWriterInMemoryKeeps)
{
    const Bytes expected = inMemory();
    ASSERT_GT(expected.size(), 500000U);

    Bytes vector{1, 2, 3}; // bytes already there stay in front
    PSDVectorOutputSink vectorSink(vector);
    writeSampleTo(vectorSink);
    EXPECT_EQ(vectorSink.position(), expected.size());
    EXPECT_EQ(Bytes(vector.begin() + 3, vector.end()), expected);

    std::ostringstream stream;
    stream << "xy"; // offsets count from where the sink began
    PSDStreamOutputSink streamSink(stream);
    writeSampleTo(streamSink);
    const std::string text = stream.str();
    EXPECT_EQ(Bytes(text.begin() + 2, text.end()), expected);

    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    PSDFileDescriptorOutputSink fileSink(fileno(file));
    writeSampleTo(fileSink);
    Bytes fromFile(expected.size() + 1);
    ASSERT_EQ(::pread(fileno(file), fromFile.data(), fromFile.size(), 0),
              static_cast<ssize_t>(expected.size()));
    fromFile.resize(expected.size());
    EXPECT_EQ(fromFile, expected);
    std::fclose(file);

    detail::ChunkedOutputSink pieces;
    writeSampleTo(pieces);
    const Bytes whole = pieces.takeBytes();
    EXPECT_EQ(whole, expected);
    EXPECT_EQ(whole.capacity(), expected.size());
    EXPECT_EQ(pieces.position(), 0U);
}

// Throws its own exception once `limit` bytes were received, or on the first patch.
struct FailingSink final : PSDOutputSink {
    struct Failure {};
    FailingSink(std::uint64_t byteLimit, bool failOnPatch) : limit(byteLimit), failPatches(failOnPatch) {}
    void write(std::span<const std::uint8_t> bytes) override
    {
        if (bytes.size() > limit - at) {
            throw Failure{};
        }
        at += bytes.size();
    }
    void patch(std::uint64_t, std::span<const std::uint8_t>) override
    {
        if (failPatches) {
            throw Failure{};
        }
    }
    [[nodiscard]] std::uint64_t position() const noexcept override { return at; }
    std::uint64_t limit, at = 0;
    bool failPatches;
};

TEST(PSDWriterSinkTest, ASinkFailureReachesTheCallerUnchanged)
{
    const std::uint64_t total = inMemory().size();
    for (const auto& [limit, failPatches] :
         {std::pair{0ULL, false}, {total / 2, false}, {total - 1, false}, {total, true}}) {
        FailingSink sink(limit, failPatches);
        EXPECT_THROW(writeSampleTo(sink), FailingSink::Failure) << limit;
    }
}

TEST(PSDWriterSinkTest, DescriptorFailuresComeAsSystemErrorWithTheCause)
{
    const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    {
        PSDFileDescriptorOutputSink sink(full);
        EXPECT_EQ(thrownError([&] { sink.write(Bytes(10, 1)); }), std::errc::no_space_on_device);
    }
    ::close(full);

    int pipeEnds[2];
    ASSERT_EQ(::pipe(pipeEnds), 0);
    ::fcntl(pipeEnds[1], F_SETFL, O_NONBLOCK);
    PSDFileDescriptorOutputSink sink(pipeEnds[1]);
    const Bytes four(4, 0);
    sink.write(four);
    EXPECT_EQ(thrownError([&] { sink.patch(0, four); }), std::errc::invalid_seek);
    ::close(pipeEnds[0]);
    ::close(pipeEnds[1]);
}

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
