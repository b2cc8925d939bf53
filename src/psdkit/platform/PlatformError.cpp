#include "psdkit/platform/PlatformError.hpp"

#include "psdkit/core/ErrorCategory.hpp"

namespace psdkit {
namespace {

std::string describePlatformError(int value)
{
    switch (static_cast<PlatformErrorCode>(value)) {
    case PlatformErrorCode::propertyListParse:
        return "the data is not a valid property list";
    case PlatformErrorCode::propertyListUnsupportedValue:
        return "a value has no property-list form";
    case PlatformErrorCode::propertyListWrite:
        return "the property list could not be written";
    case PlatformErrorCode::metadataPrepare:
        return "the image metadata could not be prepared for export";
    case PlatformErrorCode::metadataSerialize:
        return "the image metadata could not be serialized";
    }
    return "unknown platform error";
}

} // namespace

const std::error_category& platformErrorCategory() noexcept
{
    static const detail::DescribedErrorCategory category("psdkit.platform", &describePlatformError);
    return category;
}

} // namespace psdkit
