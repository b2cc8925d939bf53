#include "psdkit/platform/image/ImageError.hpp"

#include <string>

namespace psdkit::image {
namespace {

class ImageErrorCategory final : public std::error_category {
  public:
    [[nodiscard]] const char* name() const noexcept override { return "psdkit.image"; }
    [[nodiscard]] std::string message(int value) const override
    {
        return std::string(image::name(static_cast<ImageError>(value)));
    }
};

} // namespace

const std::error_category& imageErrorCategory() noexcept
{
    static const ImageErrorCategory category;
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
