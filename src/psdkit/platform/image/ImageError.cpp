#include "psdkit/platform/image/ImageError.hpp"

#include <string>

#include "psdkit/core/ErrorCategory.hpp"

namespace psdkit::image {

const std::error_category& imageErrorCategory() noexcept
{
    static const detail::DescribedErrorCategory category(
        "psdkit.image", [](int value) { return std::string(name(static_cast<ImageError>(value))); });
    return category;
}

std::string_view name(ImageError error) noexcept
{
    switch (error) {
    case ImageError::invalidSize:
        return "invalidSize";
    case ImageError::imageTooLarge:
        return "imageTooLarge";
    case ImageError::channelCountMismatch:
        return "channelCountMismatch";
    case ImageError::sampleTypeMismatch:
        return "sampleTypeMismatch";
    case ImageError::rawSizeMismatch:
        return "rawSizeMismatch";
    case ImageError::rowByteCountMismatch:
        return "rowByteCountMismatch";
    case ImageError::corruptPackBits:
        return "corruptPackBits";
    case ImageError::corruptZip:
        return "corruptZip";
    case ImageError::unsupportedPrediction:
        return "unsupportedPrediction";
    case ImageError::unsupportedCompression:
        return "unsupportedCompression";
    case ImageError::compressionFailed:
        return "compressionFailed";
    }
    return "unknown image error";
}

} // namespace psdkit::image
