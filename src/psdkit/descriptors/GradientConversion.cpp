#include "psdkit/descriptors/GradientConversion.hpp"

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "psdkit/descriptors/ColorConversion.hpp"

namespace psdkit {
namespace {

const PSDFourCharCode gradientClass("Grdn");
const PSDFourCharCode colorStopClass("Clrt");
const PSDFourCharCode opacityStopClass("TrnS");
const PSDFourCharCode nameKey("Nm  ");
const PSDFourCharCode formKey("GrdF");
const PSDFourCharCode customStopsValue("CstS");
const PSDFourCharCode interpolationKey("Intr");
const PSDFourCharCode colorStopsKey("Clrs");
const PSDFourCharCode opacityStopsKey("Trns");
const PSDFourCharCode locationKey("Lctn");
const PSDFourCharCode midpointKey("Mdpn");
const PSDFourCharCode stopTypeKey("Type");
const PSDFourCharCode stopTypeEnum("Clry");
const PSDFourCharCode userStopValue("UsrS");
const PSDFourCharCode colorKey("Clr ");
const PSDFourCharCode opacityKey("Opct");

constexpr double locationScale = 4096;
constexpr double midpointScale = 100;
constexpr double percentScale = 100;

// The stop descriptors of the list under `key`; readCorruptFile unless it is a list of descriptors.
std::vector<const PSDDescriptor*> stopDescriptors(const PSDDescriptor& gradient, const PSDFourCharCode& key)
{
    const auto* list = gradient.valueAs<PSDDescriptorPropertyValue::List>(key);
    if (list == nullptr) {
        throw PSDException(PSDError::readCorruptFile);
    }
    std::vector<const PSDDescriptor*> stops;
    stops.reserve(list->size());
    for (const auto& element : *list) {
        const PSDDescriptor* stop = element.descriptor();
        if (stop == nullptr) {
            throw PSDException(PSDError::readCorruptFile);
        }
        stops.push_back(stop);
    }
    return stops;
}

double location(const PSDDescriptor& stop)
{
    const auto* value = stop.valueAs<std::int32_t>(locationKey);
    return value ? *value / locationScale : 0.0;
}

double midpoint(const PSDDescriptor& stop)
{
    const auto* value = stop.valueAs<std::int32_t>(midpointKey);
    return value ? *value / midpointScale : 0.5;
}

std::string removingTerminatingZero(std::string text)
{
    if (!text.empty() && text.back() == '\0') {
        text.pop_back();
    }
    return text;
}

// value × scale truncated toward zero; writeParameterError unless it is finite and fits 32 bits.
std::int32_t scaledToInt32(double value, double scale)
{
    const double scaled = std::trunc(value * scale);
    if (!std::isfinite(scaled) || scaled < std::numeric_limits<std::int32_t>::min() ||
        scaled > std::numeric_limits<std::int32_t>::max()) {
        throw PSDException(PSDError::writeParameterError);
    }
    return static_cast<std::int32_t>(scaled);
}

std::shared_ptr<PSDDescriptor> stopDescriptor(const PSDFourCharCode& stopClass, double stopLocation,
                                              double stopMidpoint)
{
    auto stop = std::make_shared<PSDDescriptor>(stopClass);
    stop->set(locationKey, scaledToInt32(stopLocation, locationScale));
    stop->set(midpointKey, scaledToInt32(stopMidpoint, midpointScale));
    return stop;
}

} // namespace

image::ColorGradient gradientFromPSDDescriptor(const PSDDescriptor& descriptor)
{
    if (!(descriptor.classID == UnifiedStringValue(gradientClass))) {
        throw PSDException(PSDError::readUnsupportedContentType);
    }
    std::optional<std::string> name;
    if (const auto* stored = descriptor.valueAs<std::string>(nameKey)) {
        name = removingTerminatingZero(*stored);
    }
    const auto* form = descriptor.valueAs<Enumerated>(formKey);
    if (form == nullptr || !(form->value == UnifiedStringValue(customStopsValue))) {
        throw PSDException(PSDError::readUnsupportedContentType);
    }

    std::vector<image::ColorStop> colorStops;
    for (const PSDDescriptor* stop : stopDescriptors(descriptor, colorStopsKey)) {
        const PSDDescriptor* color = stop->descriptorValue(colorKey);
        if (color == nullptr) {
            throw PSDException(PSDError::readCorruptFile);
        }
        colorStops.push_back({rgbaPixelFromPSDDescriptor(*color), location(*stop), midpoint(*stop)});
    }

    std::vector<image::OpacityStop> opacityStops;
    for (const PSDDescriptor* stop : stopDescriptors(descriptor, opacityStopsKey)) {
        const auto* opacity = stop->valueAs<PSDUnitFloat>(opacityKey);
        if (opacity == nullptr || opacity->unit != PSDUnitFloat::Unit::percent) {
            throw PSDException(PSDError::readCorruptFile);
        }
        opacityStops.push_back({opacity->value / percentScale, location(*stop), midpoint(*stop)});
    }

    auto gradient = image::ColorGradient::make(std::move(colorStops), std::move(opacityStops));
    if (!gradient) {
        throw PSDException(PSDError::readCorruptFile);
    }
    gradient->name = std::move(name);
    return std::move(*gradient);
}

std::shared_ptr<PSDDescriptor> psdDescriptor(const image::ColorGradient& gradient)
{
    auto descriptor = std::make_shared<PSDDescriptor>(gradientClass);
    if (gradient.name) {
        descriptor->set(nameKey, *gradient.name);
    }
    descriptor->set(formKey, Enumerated(formKey, customStopsValue));
    descriptor->set(interpolationKey, locationScale);

    PSDDescriptorPropertyValue::List colorStops;
    for (const auto& colorStop : gradient.colorStops()) {
        auto stop = stopDescriptor(colorStopClass, colorStop.location, colorStop.midpoint);
        stop->set(stopTypeKey, Enumerated(stopTypeEnum, userStopValue));
        stop->set(colorKey, psdDescriptor(colorStop.color));
        colorStops.emplace_back(std::move(stop));
    }
    descriptor->set(colorStopsKey, std::move(colorStops));

    PSDDescriptorPropertyValue::List opacityStops;
    for (const auto& opacityStop : gradient.opacityStops()) {
        auto stop = stopDescriptor(opacityStopClass, opacityStop.location, opacityStop.midpoint);
        stop->set(opacityKey, PSDUnitFloat{PSDUnitFloat::Unit::percent, opacityStop.opacity * percentScale});
        opacityStops.emplace_back(std::move(stop));
    }
    descriptor->set(opacityStopsKey, std::move(opacityStops));
    return descriptor;
}

} // namespace psdkit
