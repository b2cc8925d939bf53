#include "psdkit/descriptors/ColorConversion.hpp"

namespace psdkit {
namespace {

const PSDFourCharCode rgbClass("RGBC");
const PSDFourCharCode grayClass("Grsc");
const PSDFourCharCode redKey("Rd  ");
const PSDFourCharCode greenKey("Grn ");
const PSDFourCharCode blueKey("Bl  ");
const PSDFourCharCode grayKey("Gry ");

double requiredDouble(const PSDDescriptor& descriptor, const PSDFourCharCode& key)
{
    const double* value = descriptor.valueAs<double>(key);
    if (value == nullptr) {
        throw PSDException(PSDError::readCorruptFile);
    }
    return *value;
}

} // namespace

image::RGBAPixel rgbaPixelFromPSDDescriptor(const PSDDescriptor& descriptor)
{
    if (descriptor.classID == UnifiedStringValue(rgbClass)) {
        const double red = requiredDouble(descriptor, redKey);
        const double green = requiredDouble(descriptor, greenKey);
        const double blue = requiredDouble(descriptor, blueKey);
        return {static_cast<float>(red) / 255.0f, static_cast<float>(green) / 255.0f,
                static_cast<float>(blue) / 255.0f, 1.0f};
    }
    if (descriptor.classID == UnifiedStringValue(grayClass)) {
        const float gray = static_cast<float>(requiredDouble(descriptor, grayKey)) / 100.0f;
        return {gray, gray, gray, 1.0f};
    }
    throw PSDException(PSDError::readUnsupportedContentType);
}

std::shared_ptr<PSDDescriptor> rgbColorPSDDescriptor(float red, float green, float blue)
{
    auto descriptor = std::make_shared<PSDDescriptor>(rgbClass);
    descriptor->set(redKey, static_cast<double>(red * 255.0f));
    descriptor->set(greenKey, static_cast<double>(green * 255.0f));
    descriptor->set(blueKey, static_cast<double>(blue * 255.0f));
    return descriptor;
}

} // namespace psdkit
