#pragma once
// Pixel buffers: decoded, interleaved pixels of one pixel type, built from channels and split back
// into channels.
#include "psdkit/Export.hpp"
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "psdkit/platform/image/ChannelData.hpp"
#include "psdkit/platform/image/Geometry.hpp"
#include "psdkit/platform/image/PixelTypes.hpp"

namespace psdkit::image {

/// A pixel buffer of some pixel type: width × height pixels, row after row, without padding.
/// Buffers are reference objects, held by `std::shared_ptr<PixelBufferType>`: whoever holds the
/// pointer sees and changes the same pixels.
class PSDKIT_EXPORT PixelBufferType {
  public:
    virtual ~PixelBufferType() = default;
    PixelBufferType(const PixelBufferType&) = delete;
    PixelBufferType& operator=(const PixelBufferType&) = delete;

    /// Width and height in pixels (never negative).
    [[nodiscard]] IntegralSize size() const noexcept { return size_; }
    /// The pixel type.
    [[nodiscard]] PixelFormat format() const noexcept { return format_; }
    /// A free-form title given at creation.
    [[nodiscard]] const std::string& title() const noexcept { return title_; }
    /// Replaces the title.
    void setTitle(std::string title) { title_ = std::move(title); }

    /// The pixels as bytes: width × height × `bytesPerPixel(format())`, in memory order of the pixel
    /// type (samples native-endian). Valid as long as the buffer lives.
    [[nodiscard]] virtual std::span<const std::uint8_t> bytes() const noexcept = 0;
    /// The same bytes, writable: changing them changes the pixels.
    [[nodiscard]] virtual std::span<std::uint8_t> mutableBytes() noexcept = 0;

    /// Splits the buffer into channels, compressed ready for a file.
    ///
    /// Channels come in logical order whatever the memory layout: red, green, blue, transparency
    /// for colour buffers, the single channel for grey ones. Samples are always stored big-endian
    /// (`bigEndian` true), as the format stores them. For `rle` every channel gets one row byte
    /// count per row; `prediction` applies to `zip` only (the channels of the other compressions
    /// record `PredictionType::none`).
    ///
    /// - `colorChannelsOnly`: when set, a colour buffer yields only red, green and blue (no
    ///   transparency); grey buffers are unaffected. The document writer passes false.
    /// - `mayUseWorkerThread`: when set, the channels of a large buffer may be compressed on a second
    ///   thread beside the caller's. The result is the same byte for byte either way; the flag only
    ///   allows the extra thread. Layers pass true, the composite false.
    ///
    /// Throws `ImageException`: `unsupportedCompression` / `unsupportedPrediction` for values
    /// outside the defined cases, `imageTooLarge` when a compressed plane would not fit in memory,
    /// `compressionFailed` when the compressor cannot be created. The buffer is never changed.
    [[nodiscard]] virtual std::vector<AnyChannelData> makeChannelData(bool colorChannelsOnly,
                                                                      ChannelDataCompressionType compression,
                                                                      PredictionType prediction,
                                                                      bool mayUseWorkerThread) const = 0;

  protected:
    /// For the concrete buffers: records size, pixel type and title.
    PixelBufferType(IntegralSize size, PixelFormat format, std::string title)
        : size_(size), format_(format), title_(std::move(title))
    {
    }

  private:
    IntegralSize size_;
    PixelFormat format_;
    std::string title_;
};

/// A pixel buffer of pixel type `P` (one of the six types of PixelTypes.hpp).
template <typename P> class PSDKIT_EXPORT PixelBuffer final : public PixelBufferType {
  public:
    using Traits = PixelTraits<P>; ///< What the pixel type is made of.

    /// Decodes `channels` into pixels. Colour types take exactly four channels in the order red,
    /// green, blue, transparency, and place each by its role (for `PixelARGB8` the fourth channel
    /// becomes `a`); grey types take exactly one. Every channel must have the pixel type's sample
    /// type and decode to exactly width × height samples; its stored bytes are only read, never
    /// changed.
    ///
    /// `expand16BitColorRange`: false keeps every sample as stored. True applies to 16-bit pixel
    /// types only and rescales samples from the range 0…32768 to 0…65535 (rounded, values above
    /// 32768 saturate at 65535); other types ignore it.
    ///
    /// `mayUseWorkerThread`: when set, a large buffer may be decoded on a second thread beside the
    /// caller's; the pixels and any error are the same as without it.
    ///
    /// Throws `ImageException`: `invalidSize` (negative width or height), `imageTooLarge` (a byte
    /// count overflows), `channelCountMismatch`, `sampleTypeMismatch`, `rawSizeMismatch`,
    /// `rowByteCountMismatch`, `corruptPackBits` / `corruptZip` (including bytes too few to decode to
    /// the plane at all), `unsupportedPrediction`, `unsupportedCompression`. Every check that needs
    /// no decoding is done before the pixels are allocated, so a huge size with a few bytes of data
    /// fails at once. With several faults, the error is the first one met in the order channel
    /// checks, then ZIP streams in channel order, then rows top to bottom.
    PixelBuffer(IntegralSize size, std::span<const AnyChannelData* const> channels,
                bool expand16BitColorRange, std::string title, bool mayUseWorkerThread = false);

    /// A buffer of `size` with every sample zero. Throws `invalidSize` or `imageTooLarge`.
    explicit PixelBuffer(IntegralSize size, std::string title = {});

    /// The pixels, row after row.
    [[nodiscard]] std::span<P> pixels() noexcept { return {pixels_, count_}; }
    /// The pixels, row after row, read-only.
    [[nodiscard]] std::span<const P> pixels() const noexcept { return {pixels_, count_}; }
    /// The pixel at column `x`, row `y`; both must lie inside the buffer (not checked).
    [[nodiscard]] P& at(std::int64_t x, std::int64_t y) noexcept { return pixels_[index(x, y)]; }
    /// The same, read-only.
    [[nodiscard]] const P& at(std::int64_t x, std::int64_t y) const noexcept { return pixels_[index(x, y)]; }

    [[nodiscard]] std::span<const std::uint8_t> bytes() const noexcept override;
    /// The pixels' bytes, writable (see `PixelBufferType::mutableBytes`).
    [[nodiscard]] std::span<std::uint8_t> mutableBytes() noexcept override;
    [[nodiscard]] std::vector<AnyChannelData> makeChannelData(bool colorChannelsOnly,
                                                              ChannelDataCompressionType compression,
                                                              PredictionType prediction,
                                                              bool mayUseWorkerThread) const override;

  private:
    [[nodiscard]] std::size_t index(std::int64_t x, std::int64_t y) const noexcept
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(size().width) +
               static_cast<std::size_t>(x);
    }

    void allocate(std::size_t count);

    // The pixels' memory, released through the image core's allocator.
    std::unique_ptr<std::uint8_t[], void (*)(std::uint8_t*)> storage_{nullptr, nullptr};
    P* pixels_ = nullptr;
    std::size_t count_ = 0;
};

/// A new buffer of pixel type `format` and `size` with every sample zero (transparent black for
/// colour types): the `PixelBuffer` of that type, owned by the returned pointer. Throws
/// `ImageException`: `invalidSize` for a negative width or height (or a `format` outside the six
/// pixel types), `imageTooLarge` when the byte
/// count does not fit memory; `std::bad_alloc` when the memory cannot be had.
[[nodiscard]] PSDKIT_EXPORT std::shared_ptr<PixelBufferType>
makePixelBuffer(PixelFormat format, IntegralSize size, std::string title = {});

extern template class PixelBuffer<PixelARGB8>;
extern template class PixelBuffer<PixelRGBA16>;
extern template class PixelBuffer<PixelRGBA32>;
extern template class PixelBuffer<PixelGray8>;
extern template class PixelBuffer<PixelGray16>;
extern template class PixelBuffer<PixelGray32>;

} // namespace psdkit::image
