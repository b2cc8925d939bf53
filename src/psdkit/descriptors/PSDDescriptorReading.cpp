// Reading descriptors from a scanner.
#include <utility>

#include "psdkit/descriptors/DescriptorLayout.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/platform/support/Diagnostics.hpp"
#include "psdkit/platform/text/DebugText.hpp"

namespace psdkit {
namespace detail {

UnifiedStringValue scanDescriptorID(PSDScanner& scanner)
{
    if (scanner.scanInt32() == 0) {
        return UnifiedStringValue(scanner.scanFourCharCode());
    }
    scanner.skipBackwards(4);
    return UnifiedStringValue::string(scanner.scanCString());
}

std::uint32_t scanDescriptorCount(PSDScanner& scanner)
{
    const auto count = scanner.scanUInt32();
    if (count > maximumDescriptorCount) {
        throw PSDException(PSDError::readUnexpectedEndOfFile);
    }
    return static_cast<std::uint32_t>(count);
}

} // namespace detail

namespace {

using namespace detail::typeTags;

void readDescriptorContents(PSDDescriptor& descriptor, PSDScanner& scanner, bool big, int depth);

// The readers below are kept out of line so that the recursion (descriptor, value, descriptor…)
// carries small frames: 128 levels of nesting then need well under 100 KB of stack.

// Reads a value of a kind that holds no other values.
[[gnu::noinline]] PSDDescriptorPropertyValue readScalarValue(PSDScanner& scanner,
                                                             const PSDFourCharCode& typeTag)
{
    if (typeTag == doubleTag) {
        return scanner.scanFloat64();
    }
    if (typeTag == unitFloatTag) {
        const auto unitCode = scanner.scanFourCharCode();
        const double value = scanner.scanFloat64();
        const auto unit = PSDUnitFloat::unitFromCode(unitCode);
        if (!unit) {
            throw PSDException(PSDError::readUnsupportedContentType);
        }
        return PSDUnitFloat{*unit, value};
    }
    if (typeTag == textTag) {
        return scanner.scanUnicodeString();
    }
    if (typeTag == enumeratedTag) {
        auto type = detail::scanDescriptorID(scanner);
        auto value = detail::scanDescriptorID(scanner);
        return Enumerated(std::move(type), std::move(value));
    }
    if (typeTag == integerTag) {
        return static_cast<std::int32_t>(scanner.scanInt32());
    }
    if (typeTag == booleanTag) {
        return scanner.scanUInt8() != 0;
    }
    if (typeTag == rawDataTag) {
        const auto length = scanner.scanInt32();
        return scanner.scanData(length);
    }
    throw PSDException(PSDError::readUnsupportedDescriptorValueType);
}

PSDDescriptorPropertyValue readValue(PSDScanner& scanner, bool big, const PSDFourCharCode& typeTag,
                                     int depth);

// Reads a nested descriptor (no version word) at nesting depth `depth`.
[[gnu::noinline]] std::shared_ptr<PSDDescriptor> readNestedDescriptor(PSDScanner& scanner, bool big,
                                                                      int depth)
{
    auto nested = std::make_shared<PSDDescriptor>();
    nested->isNested = true;
    readDescriptorContents(*nested, scanner, big, depth);
    return nested;
}

// Reads a list's count and elements; the list sits at nesting depth `depth`.
[[gnu::noinline]] PSDDescriptorPropertyValue::List readList(PSDScanner& scanner, bool big, int depth)
{
    const std::uint32_t count = detail::scanDescriptorCount(scanner);
    PSDDescriptorPropertyValue::List list;
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto elementTag = scanner.scanFourCharCode();
        list.push_back(readValue(scanner, big, elementTag, depth));
    }
    return list;
}

// Reads the value that follows `typeTag`. `depth` is the nesting depth of the descriptor or list
// that holds the value (0 for the items of a top-level descriptor).
PSDDescriptorPropertyValue readValue(PSDScanner& scanner, bool big, const PSDFourCharCode& typeTag, int depth)
{
    const bool isDescriptor = typeTag == descriptorTag || typeTag == globalObjectTag;
    if (!isDescriptor && !(typeTag == listTag)) {
        return readScalarValue(scanner, typeTag);
    }
    if (depth + 1 > PSDDescriptor::maximumNestingDepth) {
        throw PSDException(PSDError::readCorruptFile);
    }
    if (isDescriptor) {
        return readNestedDescriptor(scanner, big, depth + 1);
    }
    return readList(scanner, big, depth + 1);
}

[[gnu::noinline]] void traceItem(const UnifiedStringValue& key, const PSDFourCharCode& typeTag)
{
    if (diagnosticsEnabled()) {
        emitDiagnostic(detail::debugQuoted(key.description() + ", " + typeTag.debugDescription()));
    }
}

// Reads the version (top level only), name and class ID, storing each at once, and the item count.
[[gnu::noinline]] std::uint32_t readDescriptorHeader(PSDDescriptor& descriptor, PSDScanner& scanner)
{
    if (!descriptor.isNested && scanner.scanUInt32() != 16) {
        throw PSDException(PSDError::readUnsupportedDescriptorVersion);
    }
    descriptor.name = scanner.scanUnicodeString();
    descriptor.classID = detail::scanDescriptorID(scanner);
    return detail::scanDescriptorCount(scanner);
}

[[gnu::noinline]] void storeItem(PSDDescriptor& descriptor, const UnifiedStringValue& key,
                                 PSDDescriptorPropertyValue&& value)
{
    descriptor.properties.set(key, std::move(value));
}

void readDescriptorContents(PSDDescriptor& descriptor, PSDScanner& scanner, bool big, int depth)
{
    const std::uint32_t count = readDescriptorHeader(descriptor, scanner);
    for (std::uint32_t i = 0; i < count; ++i) {
        const auto key = detail::scanDescriptorID(scanner);
        const auto typeTag = scanner.scanFourCharCode();
        traceItem(key, typeTag);
        storeItem(descriptor, key, readValue(scanner, big, typeTag, depth));
    }
}

} // namespace

void PSDDescriptor::read(PSDScanner& psdScanner, bool big)
{
    readDescriptorContents(*this, psdScanner, big, 0);
}

PSDDescriptorPropertyValue PSDDescriptor::readPropertyValue(PSDScanner& psdScanner, bool big,
                                                            const PSDFourCharCode& typeTag)
{
    return readValue(psdScanner, big, typeTag, 0);
}

} // namespace psdkit
