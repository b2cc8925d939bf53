#include "psdkit/platform/image/PixelBuffer.hpp"

#include "psdkit/platform/image/LargeAllocation.hpp"

#include <cstring>

#include "psdkit/platform/image/ChannelDecoding.hpp"
#include "psdkit/platform/image/ChannelEncoding.hpp"
#include "psdkit/platform/image/PlaneShape.hpp"

namespace psdkit::image {

template <typename P>
PixelBuffer<P>::PixelBuffer(IntegralSize size, std::span<const AnyChannelData* const> channels,
                            bool expand16BitColorRange, std::string title, bool mayUseWorkerThread)
    : PixelBufferType(size, Traits::format, std::move(title))
{
    const std::size_t byteCount = detail::validateChannels(size, channels, Traits::format);
    allocate(byteCount / sizeof(P));
    detail::decodeChannels(size, channels, Traits::format, expand16BitColorRange, storage_.get(),
                           mayUseWorkerThread);
}

template <typename P>
PixelBuffer<P>::PixelBuffer(IntegralSize size, std::string title)
    : PixelBufferType(size, Traits::format, std::move(title))
{
    const detail::PlaneShape shape = detail::PlaneShape::make(size, sizeof(P));
    allocate(shape.planeBytes / sizeof(P));
    std::memset(storage_.get(), 0, count_ * sizeof(P));
}

template <typename P> void PixelBuffer<P>::allocate(std::size_t count)
{
    storage_ = {detail::allocateLarge(count * sizeof(P)).release(), &detail::releaseLarge};
    pixels_ = reinterpret_cast<P*>(storage_.get());
    count_ = count;
}

template <typename P> std::span<const std::uint8_t> PixelBuffer<P>::bytes() const noexcept
{
    return {storage_.get(), count_ * sizeof(P)};
}

template <typename P> std::span<std::uint8_t> PixelBuffer<P>::mutableBytes() noexcept
{
    return {storage_.get(), count_ * sizeof(P)};
}

template <typename P>
std::vector<AnyChannelData>
PixelBuffer<P>::makeChannelData(bool colorChannelsOnly, ChannelDataCompressionType compression,
                                PredictionType prediction, bool mayUseWorkerThread) const
{
    return detail::encodeChannels(bytes().data(), size(), Traits::format, colorChannelsOnly, compression,
                                  prediction, mayUseWorkerThread);
}

template class PixelBuffer<PixelARGB8>;
template class PixelBuffer<PixelRGBA16>;
template class PixelBuffer<PixelRGBA32>;
template class PixelBuffer<PixelGray8>;
template class PixelBuffer<PixelGray16>;
template class PixelBuffer<PixelGray32>;

std::shared_ptr<PixelBufferType> makePixelBuffer(PixelFormat format, IntegralSize size, std::string title)
{
    switch (format) {
    case PixelFormat::argb8:
        return std::make_shared<PixelBuffer<PixelARGB8>>(size, std::move(title));
    case PixelFormat::rgba16:
        return std::make_shared<PixelBuffer<PixelRGBA16>>(size, std::move(title));
    case PixelFormat::rgba32:
        return std::make_shared<PixelBuffer<PixelRGBA32>>(size, std::move(title));
    case PixelFormat::gray8:
        return std::make_shared<PixelBuffer<PixelGray8>>(size, std::move(title));
    case PixelFormat::gray16:
        return std::make_shared<PixelBuffer<PixelGray16>>(size, std::move(title));
    case PixelFormat::gray32:
        return std::make_shared<PixelBuffer<PixelGray32>>(size, std::move(title));
    }
    throw ImageException(ImageError::invalidSize); // not a pixel type
}

} // namespace psdkit::image
