#include "psdkit/descriptors/PSDDescriptor.hpp"

#include <cmath>
#include <type_traits>
#include <utility>

#include "psdkit/descriptors/DescriptorTextForms.hpp"
#include "psdkit/platform/text/DebugText.hpp"

namespace psdkit {
namespace {

constexpr int maximumDepth = PSDDescriptor::maximumNestingDepth;

bool sameNumber(double a, double b) noexcept
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

bool sameDescriptorContent(const PSDDescriptor& a, const PSDDescriptor& b, int depth);

bool sameValueContent(const PSDDescriptorPropertyValue& a, const PSDDescriptorPropertyValue& b, int depth)
{
    if (a.variant().index() != b.variant().index()) {
        return false;
    }
    return std::visit(
        [&](const auto& x) -> bool {
            using T = std::decay_t<decltype(x)>;
            const T& y = *b.getIf<T>();
            if constexpr (std::is_same_v<T, std::shared_ptr<PSDDescriptor>>) {
                if (!x || !y) {
                    return !x && !y;
                }
                return sameDescriptorContent(*x, *y, depth + 1);
            } else if constexpr (std::is_same_v<T, double>) {
                return sameNumber(x, y);
            } else if constexpr (std::is_same_v<T, PSDUnitFloat>) {
                return x.unit == y.unit && sameNumber(x.value, y.value);
            } else if constexpr (std::is_same_v<T, PSDDescriptorPropertyValue::List>) {
                if (x.size() != y.size() || depth + 1 > maximumDepth) {
                    return x.empty() && y.empty();
                }
                for (std::size_t i = 0; i < x.size(); ++i) {
                    if (!sameValueContent(x[i], y[i], depth + 1)) {
                        return false;
                    }
                }
                return true;
            } else {
                return x == y;
            }
        },
        a.variant());
}

bool sameDescriptorContent(const PSDDescriptor& a, const PSDDescriptor& b, int depth)
{
    if (&a == &b) {
        return true;
    }
    if (depth > maximumDepth || a.name != b.name || !(a.classID == b.classID) ||
        a.properties.size() != b.properties.size()) {
        return false;
    }
    for (const auto& [key, value] : a.properties) {
        const auto* other = b.properties.find(key);
        if (other == nullptr || !sameValueContent(value, *other, depth)) {
            return false;
        }
    }
    return true;
}

void appendDescriptorText(std::string& out, const PSDDescriptor& descriptor, int depth);

void appendValueText(std::string& out, const PSDDescriptorPropertyValue& value, int depth)
{
    std::visit(
        [&](const auto& x) {
            using T = std::decay_t<decltype(x)>;
            if constexpr (std::is_same_v<T, std::shared_ptr<PSDDescriptor>>) {
                if (x) {
                    appendDescriptorText(out, *x, depth + 1);
                } else {
                    out += "nil";
                }
            } else if constexpr (std::is_same_v<T, double>) {
                out += detail::shortestDecimalText(x);
            } else if constexpr (std::is_same_v<T, PSDUnitFloat>) {
                out += x.debugDescription();
            } else if constexpr (std::is_same_v<T, std::string>) {
                out += detail::debugQuoted(x);
            } else if constexpr (std::is_same_v<T, Enumerated>) {
                out += x.description();
            } else if constexpr (std::is_same_v<T, std::int32_t>) {
                out += std::to_string(x);
            } else if constexpr (std::is_same_v<T, bool>) {
                out += x ? "true" : "false";
            } else if constexpr (std::is_same_v<T, PSDDescriptorPropertyValue::List>) {
                if (depth + 1 > maximumDepth) {
                    out += "[...]";
                    return;
                }
                out += '[';
                for (std::size_t i = 0; i < x.size(); ++i) {
                    if (i != 0) {
                        out += ", ";
                    }
                    appendValueText(out, x[i], depth + 1);
                }
                out += ']';
            } else {
                static_assert(std::is_same_v<T, PSDDescriptorPropertyValue::Bytes>);
                out += std::to_string(x.size()) + " bytes";
            }
        },
        value.variant());
}

void appendDescriptorText(std::string& out, const PSDDescriptor& descriptor, int depth)
{
    if (depth > maximumDepth) {
        out += "[...]";
        return;
    }
    out += "[Descriptor (Name: ";
    out += descriptor.name;
    out += ", ClassID: ";
    out += descriptor.classID.description();
    out += ") : ";
    if (descriptor.properties.empty()) {
        out += "[:]";
    } else {
        out += '[';
        bool first = true;
        for (const auto& [key, value] : descriptor.properties) {
            if (!first) {
                out += ", ";
            }
            first = false;
            out += key.description();
            out += ": ";
            appendValueText(out, value, depth);
        }
        out += ']';
    }
    out += ']';
}

} // namespace

PSDDescriptor::PSDDescriptor() = default;

PSDDescriptor::PSDDescriptor(UnifiedStringValue classID_) : classID(std::move(classID_)) {}

std::optional<PSDDescriptorPropertyValue> PSDDescriptor::operator[](const UnifiedStringValue& key) const
{
    const auto* value = properties.find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    return *value;
}

void PSDDescriptor::set(const UnifiedStringValue& key, std::optional<PSDDescriptorPropertyValue> value)
{
    if (value) {
        properties.set(key, std::move(*value));
    } else {
        properties.erase(key);
    }
}

PSDDescriptor* PSDDescriptor::descriptorValue(const UnifiedStringValue& key) const
{
    const auto* value = properties.find(key);
    return value ? value->descriptor() : nullptr;
}

std::string PSDDescriptor::debugDescription() const
{
    std::string out;
    appendDescriptorText(out, *this, 0);
    return out;
}

bool PSDDescriptor::hasSameContent(const PSDDescriptor& other) const
{
    return sameDescriptorContent(*this, other, 0);
}

bool PSDDescriptorPropertyValue::hasSameContent(const PSDDescriptorPropertyValue& other) const
{
    return sameValueContent(*this, other, 0);
}

std::string PSDDescriptorPropertyValue::debugDescription() const
{
    std::string out;
    appendValueText(out, *this, 0);
    return out;
}

} // namespace psdkit
