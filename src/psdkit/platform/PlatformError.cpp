#include "psdkit/platform/PlatformError.hpp"

namespace psdkit {
namespace {

class PlatformErrorCategory final : public std::error_category {
  public:
    const char* name() const noexcept override { return "psdkit.platform"; }
    std::string message(int value) const override
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
};

} // namespace

const std::error_category& platformErrorCategory() noexcept
{
    static const PlatformErrorCategory category;
    return category;
}

} // namespace psdkit
