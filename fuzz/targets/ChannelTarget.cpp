// Channel target: builds a pixel buffer from channels described by the first bytes of the input
// and filled with the rest. A buffer that decodes must split into channels again (with the same
// compression, where it is a valid one) that decode to the same pixels.
//
// Input layout (big-endian; bytes missing at the end read as zero):
//   0  compression: value mod 4 (none, rle, zip, or the undefined 3)
//   1  prediction: value mod 3 (none, prediction, or the undefined 2)
//   2  pixel type: value mod 6 (ARGB8, RGBA16, RGBA32, Gray8, Gray16, Gray32)
//   3  flags: bit 0 little-endian samples, bit 1 expand the 16-bit range, bit 2 worker thread
//      allowed, bits 3-4 row count adjustment (1: one row count too few, 2: one too many),
//      bit 5 the last channel has another sample type
//   4  width (2 bytes), 6 height (2 bytes)
//   8  per channel (4 for colour types, 1 for grey): its byte count (2 bytes); for rle its row
//      byte counts (2 bytes each, signed); then its bytes, as many as remain when fewer.
#include <algorithm>
#include <cstring>
#include <vector>

#include "psdkit/platform/image/PixelBuffer.hpp"
#include "targets/FuzzTargets.hpp"

namespace psdkit::fuzz {
namespace {

using namespace psdkit::image;

class InputReader {
  public:
    explicit InputReader(std::span<const std::uint8_t> input) : input_(input) {}
    std::uint8_t byte() { return at_ < input_.size() ? input_[at_++] : 0; }
    std::uint16_t word()
    {
        const std::uint16_t high = byte();
        return static_cast<std::uint16_t>(high << 8 | byte());
    }
    std::vector<std::uint8_t> bytes(std::size_t count)
    {
        const std::size_t taken = std::min(count, input_.size() - std::min(at_, input_.size()));
        std::vector<std::uint8_t> result(input_.begin() + static_cast<std::ptrdiff_t>(at_),
                                         input_.begin() + static_cast<std::ptrdiff_t>(at_ + taken));
        at_ += taken;
        return result;
    }

  private:
    std::span<const std::uint8_t> input_;
    std::size_t at_ = 0;
};

struct ChannelSetup {
    ChannelDataCompressionType compression;
    PredictionType prediction;
    bool bigEndian;
    bool expand16BitColorRange;
    bool mayUseWorkerThread;
    int rowCountAdjustment; // 0, -1 or +1
    bool lastChannelMistyped;
    IntegralSize size;
};

template <typename P> Outcome decodeAndSplit(const ChannelSetup& setup, InputReader& reader)
{
    using Traits = PixelTraits<P>;
    std::vector<AnyChannelData> channels;
    for (std::size_t c = 0; c < Traits::channelCount; ++c) {
        const bool mistyped = setup.lastChannelMistyped && c + 1 == Traits::channelCount;
        const SampleType sampleType =
            mistyped ? (Traits::sampleType == SampleType::uint8 ? SampleType::uint16 : SampleType::uint8)
                     : Traits::sampleType;
        const std::size_t byteCount = reader.word();
        std::vector<std::int64_t> rowByteCounts;
        if (setup.compression == ChannelDataCompressionType::rle) {
            const std::int64_t rows = std::max<std::int64_t>(0, setup.size.height + setup.rowCountAdjustment);
            for (std::int64_t row = 0; row < rows; ++row) {
                rowByteCounts.push_back(static_cast<std::int16_t>(reader.word()));
            }
        }
        channels.emplace_back(sampleType, reader.bytes(byteCount), setup.bigEndian, setup.compression,
                              setup.prediction);
        channels.back().rowByteCounts = std::move(rowByteCounts);
    }
    std::vector<const AnyChannelData*> pointers;
    for (const auto& channel : channels) {
        pointers.push_back(&channel);
    }

    std::unique_ptr<PixelBuffer<P>> buffer;
    if (Outcome decode = attempt([&] {
            buffer = std::make_unique<PixelBuffer<P>>(setup.size, pointers, setup.expand16BitColorRange,
                                                      "fuzz", setup.mayUseWorkerThread);
        });
        decode.result != "ok") {
        return decode;
    }

    const bool encodable =
        static_cast<int>(setup.compression) <= 2 && static_cast<int>(setup.prediction) <= 1;
    const auto compression = encodable ? setup.compression : ChannelDataCompressionType::none;
    const auto prediction = encodable ? setup.prediction : PredictionType::none;
    std::vector<AnyChannelData> split;
    if (Outcome encode = attempt([&] {
            split = buffer->makeChannelData(false, compression, prediction, setup.mayUseWorkerThread);
        });
        encode.result != "ok") {
        return violation("a decoded buffer does not split into channels", encode);
    }
    std::vector<const AnyChannelData*> splitPointers;
    for (const auto& channel : split) {
        splitPointers.push_back(&channel);
    }
    std::unique_ptr<PixelBuffer<P>> again;
    if (Outcome decode = attempt([&] {
            again = std::make_unique<PixelBuffer<P>>(setup.size, splitPointers, false, "again",
                                                     setup.mayUseWorkerThread);
        });
        decode.result != "ok") {
        return violation("channels split from a buffer do not decode", decode);
    }
    const auto before = buffer->bytes();
    const auto after = again->bytes();
    if (before.size() != after.size() ||
        (!before.empty() && std::memcmp(before.data(), after.data(), before.size()) != 0)) {
        return violation("channels split from a buffer decode to other pixels");
    }
    return {};
}

} // namespace

Outcome runChannels(std::span<const std::uint8_t> input)
{
    InputReader reader(input);
    ChannelSetup setup{};
    setup.compression = static_cast<ChannelDataCompressionType>(reader.byte() % 4);
    setup.prediction = static_cast<PredictionType>(reader.byte() % 3);
    const int pixelType = reader.byte() % 6;
    const std::uint8_t flags = reader.byte();
    setup.bigEndian = (flags & 1) == 0;
    setup.expand16BitColorRange = (flags & 2) != 0;
    setup.mayUseWorkerThread = (flags & 4) != 0;
    const int adjustment = flags >> 3 & 3;
    setup.rowCountAdjustment = adjustment == 1 ? -1 : adjustment == 2 ? 1 : 0;
    setup.lastChannelMistyped = (flags & 32) != 0;
    setup.size.width = reader.word();
    setup.size.height = reader.word();
    switch (pixelType) {
    case 0:
        return decodeAndSplit<PixelARGB8>(setup, reader);
    case 1:
        return decodeAndSplit<PixelRGBA16>(setup, reader);
    case 2:
        return decodeAndSplit<PixelRGBA32>(setup, reader);
    case 3:
        return decodeAndSplit<PixelGray8>(setup, reader);
    case 4:
        return decodeAndSplit<PixelGray16>(setup, reader);
    default:
        return decodeAndSplit<PixelGray32>(setup, reader);
    }
}

} // namespace psdkit::fuzz
