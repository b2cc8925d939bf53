#include "psdkit/layers/PSDLayerContent.hpp"

#include <initializer_list>

#include "psdkit/core/PSDError.hpp"
#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"

namespace psdkit {
namespace {

bool hasAnyBlock(const PSDLayerWrapper& layer, std::initializer_list<const char*> keys)
{
    for (const char* key : keys) {
        if (findLayerBlock(layer, PSDFourCharCode(std::string(key)))) {
            return true;
        }
    }
    return false;
}

bool isFillKind(PSDAdjustmentLayerType type)
{
    return type == PSDAdjustmentLayerType::solidColor || type == PSDAdjustmentLayerType::gradientFill ||
           type == PSDAdjustmentLayerType::patternFill;
}

// Reads the top-level descriptor at the scanner's cursor. A descriptor that fails part way keeps
// the items before the failure: the items looked for here come first, and a later value of a
// type the reader does not know must not hide them.
std::shared_ptr<PSDDescriptor> readDescriptor(PSDScanner& scanner)
{
    auto descriptor = std::make_shared<PSDDescriptor>();
    try {
        descriptor->read(scanner, false);
    } catch (const PSDException&) {
        // what was read so far stays
    }
    return descriptor;
}

std::string withoutTrailingNul(std::string text)
{
    while (!text.empty() && text.back() == '\0') {
        text.pop_back();
    }
    return text;
}

// The descriptor of a "SoLd"/"SoLE" block: key "soLD"/"soLE", version, then the descriptor.
std::shared_ptr<PSDDescriptor> placedDescriptor(std::span<const std::uint8_t> block)
{
    PSDScanner scanner(block);
    try {
        scanner.skip(8);
    } catch (const PSDException&) {
        return nullptr;
    }
    return readDescriptor(scanner);
}

} // namespace

const char* name(PSDLayerContentKind kind) noexcept
{
    switch (kind) {
    case PSDLayerContentKind::pixel:
        return "pixel";
    case PSDLayerContentKind::text:
        return "text";
    case PSDLayerContentKind::smartObject:
        return "smartObject";
    case PSDLayerContentKind::shape:
        return "shape";
    case PSDLayerContentKind::fill:
        return "fill";
    case PSDLayerContentKind::adjustment:
        return "adjustment";
    case PSDLayerContentKind::group:
        return "group";
    case PSDLayerContentKind::artboard:
        return "artboard";
    case PSDLayerContentKind::groupEnd:
        return "groupEnd";
    }
    return "pixel";
}

std::optional<std::span<const std::uint8_t>> findLayerBlock(const PSDLayerWrapper& layer,
                                                            const PSDFourCharCode& key)
{
    if (const auto found = layer.taggedData.find(key); found != layer.taggedData.end()) {
        return std::span<const std::uint8_t>(found->second);
    }
    for (const PSDRawBlock& block : layer.uninterpretedBlocks) {
        if (block.key == key) {
            return block.data.span();
        }
    }
    return std::nullopt;
}

PSDLayerContentKind layerContentKind(const PSDLayerWrapper& layer)
{
    switch (layer.type().kind()) {
    case PSDLayerType::Kind::sectionDivider:
        return PSDLayerContentKind::groupEnd;
    case PSDLayerType::Kind::group:
    case PSDLayerType::Kind::sceneGroup:
        return PSDLayerContentKind::group;
    case PSDLayerType::Kind::artboard:
        return PSDLayerContentKind::artboard;
    case PSDLayerType::Kind::regular:
    case PSDLayerType::Kind::adjustmentLayer:
        break;
    }
    if (hasAnyBlock(layer, {"artb", "artd", "abdd"})) {
        return PSDLayerContentKind::artboard;
    }
    if (hasAnyBlock(layer, {"TySh"})) {
        return PSDLayerContentKind::text;
    }
    if (hasAnyBlock(layer, {"SoLd", "SoLE", "PlLd"})) {
        return PSDLayerContentKind::smartObject;
    }
    const bool adjustment = layer.type().kind() == PSDLayerType::Kind::adjustmentLayer;
    const bool fill = adjustment && isFillKind(layer.type().adjustmentType());
    if (hasAnyBlock(layer, {"vscg", "vstk", "vogk"}) || (fill && hasAnyBlock(layer, {"vmsk", "vsms"}))) {
        return PSDLayerContentKind::shape;
    }
    if (fill) {
        return PSDLayerContentKind::fill;
    }
    return adjustment ? PSDLayerContentKind::adjustment : PSDLayerContentKind::pixel;
}

std::optional<std::string> layerText(const PSDLayerWrapper& layer)
{
    const auto block = findLayerBlock(layer, PSDFourCharCode("TySh"));
    if (!block) {
        return std::nullopt;
    }
    // Version (2), transform (6 doubles), text version (2), then the descriptor with its version.
    PSDScanner scanner(*block);
    try {
        scanner.skip(2 + 6 * 8 + 2);
    } catch (const PSDException&) {
        return std::nullopt;
    }
    const auto descriptor = readDescriptor(scanner);
    const std::string* text =
        descriptor ? descriptor->valueAs<std::string>(PSDFourCharCode("Txt ")) : nullptr;
    if (!text) {
        return std::nullopt;
    }
    std::string result = withoutTrailingNul(*text);
    for (char& c : result) {
        if (c == '\r') {
            c = '\n';
        }
    }
    return result;
}

std::optional<std::string> smartObjectIdentifier(const PSDLayerWrapper& layer)
{
    for (const char* key : {"SoLd", "SoLE"}) {
        if (const auto block = findLayerBlock(layer, PSDFourCharCode(std::string(key)))) {
            const auto descriptor = placedDescriptor(*block);
            if (const std::string* id =
                    descriptor ? descriptor->valueAs<std::string>(PSDFourCharCode("Idnt")) : nullptr) {
                return withoutTrailingNul(*id);
            }
        }
    }
    if (const auto block = findLayerBlock(layer, PSDFourCharCode("PlLd"))) {
        // Type "plcL", version, then the unique ID as a Pascal string.
        PSDScanner scanner(*block);
        try {
            scanner.skip(8);
            return withoutTrailingNul(scanner.scanPascalString());
        } catch (const PSDException&) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

} // namespace psdkit
