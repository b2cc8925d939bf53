#include "psdkit/platform/image/ChannelDataCompressionType.hpp"

namespace psdkit::image {

std::string_view rawText(ChannelDataCompressionType compression) noexcept
{
    switch (compression) {
    case ChannelDataCompressionType::none:
        return "None";
    case ChannelDataCompressionType::rle:
        return "RLE";
    case ChannelDataCompressionType::zip:
        return "Zip";
    }
    return {};
}

std::optional<ChannelDataCompressionType> compressionTypeFromRawText(std::string_view text) noexcept
{
    for (const auto c : {ChannelDataCompressionType::none, ChannelDataCompressionType::rle,
                         ChannelDataCompressionType::zip}) {
        if (rawText(c) == text) {
            return c;
        }
    }
    return std::nullopt;
}

} // namespace psdkit::image
