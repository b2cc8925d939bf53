// Descriptor target: reads the input as a top-level descriptor, prints it and tries the colour,
// gradient and rectangle conversions on it. A descriptor that was read must write, its bytes must
// read again, and from there on writing and reading must give the same bytes and equal content.
#include <memory>

#include "psdkit/descriptors/ColorConversion.hpp"
#include "psdkit/descriptors/GradientConversion.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/descriptors/RectConversion.hpp"
#include "targets/FuzzTargets.hpp"

namespace psdkit::fuzz {
namespace {

// Each conversion either refuses the descriptor with the library's error or gives a value whose
// own descriptor writes.
Outcome tryConversions(const PSDDescriptor& descriptor)
{
    std::shared_ptr<PSDDescriptor> converted;
    const auto writesBack = [&](const char* what) -> Outcome {
        if (Outcome write = attempt([&] { (void)converted->data(); }); write.result != "ok") {
            return violation(what, write);
        }
        return {};
    };
    if (attempt([&] { converted = psdDescriptor(rgbaPixelFromPSDDescriptor(descriptor)); }).result == "ok") {
        if (Outcome written = writesBack("a converted colour does not write"); written.violation) {
            return written;
        }
    }
    if (attempt([&] { converted = psdDescriptor(gradientFromPSDDescriptor(descriptor)); }).result == "ok") {
        if (Outcome written = writesBack("a converted gradient does not write"); written.violation) {
            return written;
        }
    }
    if (attempt([&] { converted = psdDescriptor(macRectFromPSDDescriptor(descriptor)); }).result == "ok") {
        if (Outcome written = writesBack("a converted rectangle does not write"); written.violation) {
            return written;
        }
    }
    return {};
}

// Gives every name and text value in the tree the trailing NUL that writing adds where missing.
void terminate(std::string& text)
{
    if (text.empty() || text.back() != '\0') {
        text.push_back('\0');
    }
}

void terminateTexts(PSDDescriptor& descriptor);

void terminateTexts(PSDDescriptorPropertyValue& value)
{
    if (PSDDescriptor* nested = value.descriptor()) {
        terminateTexts(*nested);
    } else if (auto* text = value.getIf<std::string>()) {
        terminate(*text);
    } else if (auto* list = value.getIf<PSDDescriptorPropertyValue::List>()) {
        for (auto& element : *list) {
            terminateTexts(element);
        }
    }
}

void terminateTexts(PSDDescriptor& descriptor)
{
    terminate(descriptor.name);
    for (const auto& entry : descriptor.properties) {
        terminateTexts(*descriptor.properties.find(entry.first));
    }
}

// True when an identifier in the tree (class ID, key, enumerated half) is an empty string. The
// layout writes it as a zero length, which reads back as the marker of a four-character code, so
// such a tree cannot read back as written.
bool isEmptyString(const UnifiedStringValue& id)
{
    const std::string* text = id.stringValue();
    return text != nullptr && text->empty();
}

bool holdsEmptyStringID(const PSDDescriptor& descriptor);

bool holdsEmptyStringID(const PSDDescriptorPropertyValue& value)
{
    if (const PSDDescriptor* nested = value.descriptor()) {
        return holdsEmptyStringID(*nested);
    }
    if (const auto* enumerated = value.getIf<Enumerated>()) {
        return isEmptyString(enumerated->type) || isEmptyString(enumerated->value);
    }
    if (const auto* list = value.getIf<PSDDescriptorPropertyValue::List>()) {
        for (const auto& element : *list) {
            if (holdsEmptyStringID(element)) {
                return true;
            }
        }
    }
    return false;
}

bool holdsEmptyStringID(const PSDDescriptor& descriptor)
{
    if (isEmptyString(descriptor.classID)) {
        return true;
    }
    for (const auto& [key, value] : descriptor.properties) {
        if (isEmptyString(key) || holdsEmptyStringID(value)) {
            return true;
        }
    }
    return false;
}

// Reads bytes the library wrote, which must succeed and consume them all.
Outcome readWhole(std::span<const std::uint8_t> written, std::shared_ptr<PSDDescriptor>& result)
{
    result = std::make_shared<PSDDescriptor>();
    PSDScanner scanner(written);
    if (Outcome read = attempt([&] { result->read(scanner, false); }); read.result != "ok") {
        return violation("a written descriptor does not read", read);
    }
    if (scanner.bytesRemaining() != 0) {
        return violation("a written descriptor reads back shorter than it was written");
    }
    return {};
}

} // namespace

Outcome runDescriptor(std::span<const std::uint8_t> input)
{
    auto descriptor = std::make_shared<PSDDescriptor>();
    PSDScanner scanner(input);
    if (Outcome read = attempt([&] { descriptor->read(scanner, false); }); read.result != "ok") {
        return read;
    }
    (void)descriptor->debugDescription();
    if (Outcome converted = tryConversions(*descriptor); converted.violation) {
        return converted;
    }

    // Writing gives names and texts their trailing NUL; apart from that, what was read writes and reads
    // back equal, and from then on writing and reading give the same bytes.
    std::vector<std::uint8_t> written;
    if (Outcome write = attempt([&] { written = descriptor->data(); }); write.result != "ok") {
        return violation("a descriptor that was read does not write", write);
    }
    if (holdsEmptyStringID(*descriptor)) {
        return {};
    }
    std::shared_ptr<PSDDescriptor> again;
    if (Outcome reread = readWhole(written, again); reread.violation) {
        return reread;
    }
    terminateTexts(*descriptor);
    if (!descriptor->hasSameContent(*again)) {
        return violation("a written descriptor reads back with other content");
    }
    std::vector<std::uint8_t> rewritten;
    if (Outcome write = attempt([&] { rewritten = again->data(); });
        write.result != "ok" || rewritten != written) {
        return violation("a descriptor read back from its bytes writes other bytes", write);
    }
    std::shared_ptr<PSDDescriptor> third;
    if (Outcome reread = readWhole(rewritten, third); reread.violation) {
        return reread;
    }
    if (!again->hasSameContent(*third)) {
        return violation("a descriptor read back from its bytes reads back with other content");
    }
    return {};
}

} // namespace psdkit::fuzz
