// Writing descriptors to bytes.
#include <type_traits>

#include "psdkit/descriptors/DescriptorLayout.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"

namespace psdkit {
namespace detail {

void appendDescriptorID(PSDWriter& writer, const UnifiedStringValue& id)
{
    if (const auto* code = id.fourCharCodeValue()) {
        writer.appendUInt32(0);
        writer.appendFourCharCode(*code);
    } else {
        writer.appendCString(*id.stringValue());
    }
}

void appendDescriptorCount(PSDWriter& writer, std::size_t count)
{
    if (count > maximumDescriptorCount) {
        throw PSDException(PSDError::writeParameterError);
    }
    writer.appendUInt32(static_cast<std::int64_t>(count));
}

} // namespace detail

namespace {
using namespace detail::typeTags;

void writeDescriptorContents(PSDDescriptor& descriptor, PSDWriter& writer, int depth);

// Appends the type tag and bytes of `value`. `depth` is the nesting depth of the descriptor or list
// that holds the value (0 for the items of the descriptor being written).
void writeValue(PSDWriter& writer, const PSDDescriptorPropertyValue& value, int depth)
{
    std::visit(
        [&](const auto& x) {
            using T = std::decay_t<decltype(x)>;
            if constexpr (std::is_same_v<T, std::shared_ptr<PSDDescriptor>>) {
                if (!x || depth + 1 > PSDDescriptor::maximumNestingDepth) {
                    throw PSDException(PSDError::writeParameterError);
                }
                writer.appendFourCharCode(descriptorTag);
                x->isNested = true;
                writeDescriptorContents(*x, writer, depth + 1);
            } else if constexpr (std::is_same_v<T, double>) {
                writer.appendFourCharCode(doubleTag);
                writer.appendFloat64(x);
            } else if constexpr (std::is_same_v<T, PSDUnitFloat>) {
                writer.appendFourCharCode(unitFloatTag);
                writer.appendFourCharCode(PSDUnitFloat::unitCode(x.unit));
                writer.appendFloat64(x.value);
            } else if constexpr (std::is_same_v<T, std::string>) {
                writer.appendFourCharCode(textTag);
                writer.appendUnicodeString(x, true, 0);
            } else if constexpr (std::is_same_v<T, Enumerated>) {
                writer.appendFourCharCode(enumeratedTag);
                detail::appendDescriptorID(writer, x.type);
                detail::appendDescriptorID(writer, x.value);
            } else if constexpr (std::is_same_v<T, std::int32_t>) {
                writer.appendFourCharCode(integerTag);
                writer.appendInt32(x);
            } else if constexpr (std::is_same_v<T, bool>) {
                writer.appendFourCharCode(booleanTag);
                writer.appendUInt8(x ? 1 : 0);
            } else if constexpr (std::is_same_v<T, PSDDescriptorPropertyValue::List>) {
                if (depth + 1 > PSDDescriptor::maximumNestingDepth) {
                    throw PSDException(PSDError::writeParameterError);
                }
                writer.appendFourCharCode(listTag);
                detail::appendDescriptorCount(writer, x.size());
                for (const auto& element : x) {
                    writeValue(writer, element, depth + 1);
                }
            } else {
                static_assert(std::is_same_v<T, PSDDescriptorPropertyValue::Bytes>);
                writer.appendFourCharCode(rawDataTag);
                detail::appendDescriptorCount(writer, x.size());
                writer.appendData(x);
            }
        },
        value.variant());
}

void writeDescriptorContents(PSDDescriptor& descriptor, PSDWriter& writer, int depth)
{
    if (!descriptor.isNested) {
        writer.appendUInt32(16);
    }
    writer.appendUnicodeString(descriptor.name, true, 0);
    detail::appendDescriptorID(writer, descriptor.classID);
    detail::appendDescriptorCount(writer, descriptor.properties.size());
    for (const auto& [key, value] : descriptor.properties) {
        detail::appendDescriptorID(writer, key);
        writeValue(writer, value, depth);
    }
}

} // namespace

std::vector<std::uint8_t> PSDDescriptor::data()
{
    PSDWriter writer;
    writeDescriptorContents(*this, writer, 0);
    return writer.takeData();
}

void PSDDescriptor::writePropertyValue(PSDWriter& writer, const PSDDescriptorPropertyValue& value)
{
    writeValue(writer, value, 0);
}

} // namespace psdkit
