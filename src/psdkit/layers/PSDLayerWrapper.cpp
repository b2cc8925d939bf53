#include "psdkit/layers/PSDLayerWrapper.hpp"

namespace psdkit {

void PSDLayerWrapper::setType(PSDLayerType type)
{
    type_ = type;
    if (type_.kind() != PSDLayerType::Kind::regular && type_.kind() != PSDLayerType::Kind::sceneGroup) {
        pixelDataIrrelevantToAppearanceOfDocument = true;
    }
}

void PSDLayerWrapper::setPropertiesDictionary(PropertyDictionary properties)
{
    properties_ = std::move(properties);
    if (const auto it = properties_.find("PSD Blend Mode"); it != properties_.end()) {
        if (const auto* code = it->second.asFourCharCode()) {
            blendMode = *code;
        }
    }
}

void PSDLayerWrapper::setProperty(const std::string& key, PropertyValue value)
{
    PropertyDictionary properties = properties_;
    properties.insert_or_assign(key, std::move(value));
    setPropertiesDictionary(std::move(properties));
}

} // namespace psdkit
