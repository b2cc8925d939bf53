#include "psdkit/descriptors/RectConversion.hpp"

#include <array>
#include <cmath>

namespace psdkit {
namespace {

const std::array<PSDFourCharLiteral, 4> edgeKeys = {"Top ", "Left", "Btom", "Rght"};

const UnifiedStringValue& rectClass()
{
    static const UnifiedStringValue value = UnifiedStringValue::string("classFloatRect");
    return value;
}

std::int64_t edge(const PSDDescriptor& descriptor, const PSDFourCharCode& key)
{
    const double* value = descriptor.valueAs<double>(key);
    if (value == nullptr) {
        throw PSDException(PSDError::readCorruptFile);
    }
    // 2^63 is exactly representable; every truncated double in [-2^63, 2^63) fits.
    constexpr double limit = 9223372036854775808.0;
    const double truncated = std::trunc(*value);
    if (!std::isfinite(truncated) || truncated < -limit || truncated >= limit) {
        throw PSDException(PSDError::readCorruptFile);
    }
    return static_cast<std::int64_t>(truncated);
}

} // namespace

PSDMacRect macRectFromPSDDescriptor(const PSDDescriptor& descriptor)
{
    if (!(descriptor.classID == rectClass())) {
        throw PSDException(PSDError::readUnsupportedContentType);
    }
    const std::int64_t top = edge(descriptor, edgeKeys[0]);
    const std::int64_t left = edge(descriptor, edgeKeys[1]);
    const std::int64_t bottom = edge(descriptor, edgeKeys[2]);
    const std::int64_t right = edge(descriptor, edgeKeys[3]);
    return {top, left, bottom, right};
}

std::shared_ptr<PSDDescriptor> psdDescriptor(const PSDMacRect& rect)
{
    auto descriptor = std::make_shared<PSDDescriptor>(rectClass());
    const std::array<std::int64_t, 4> edges = {rect.top, rect.left, rect.bottom, rect.right};
    for (std::size_t i = 0; i < edges.size(); ++i) {
        descriptor->set(PSDFourCharCode(edgeKeys[i]), static_cast<double>(edges[i]));
    }
    return descriptor;
}

} // namespace psdkit
