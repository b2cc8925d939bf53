#include "psdkit/platform/PropertyValue.hpp"

#include <cstdio>
#include <type_traits>

namespace psdkit {

PropertyValue::PropertyValue() = default;
PropertyValue::PropertyValue(PropertyDictionary value) : storage_(std::move(value)) {}
PropertyValue::PropertyValue(PropertyArray value) : storage_(std::move(value)) {}
PropertyValue::PropertyValue(double value) : storage_(value) {}
PropertyValue::PropertyValue(bool value) : storage_(value) {}
PropertyValue::PropertyValue(std::string value) : storage_(std::move(value)) {}
PropertyValue::PropertyValue(std::string_view value) : storage_(std::string(value)) {}
PropertyValue::PropertyValue(const char* value) : storage_(std::string(value)) {}
PropertyValue::PropertyValue(PropertyDate value) : storage_(value) {}
PropertyValue::PropertyValue(std::vector<std::uint8_t> value) : storage_(std::move(value)) {}
PropertyValue::PropertyValue(PSDFourCharCode value) : storage_(std::move(value)) {}

PropertyValue::PropertyValue(const PropertyValue&) = default;
PropertyValue::PropertyValue(PropertyValue&&) noexcept = default;
PropertyValue& PropertyValue::operator=(const PropertyValue&) = default;
PropertyValue& PropertyValue::operator=(PropertyValue&&) noexcept = default;
PropertyValue::~PropertyValue() = default;

bool operator==(const PropertyValue& a, const PropertyValue& b)
{
    return a.storage_ == b.storage_;
}

namespace {

void appendQuoted(std::string& out, const std::string& text)
{
    out += '"';
    for (char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    out += '"';
}

void describe(const PropertyValue& value, std::string& out)
{
    std::visit(
        [&out](const auto& v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, PropertyDictionary>) {
                out += '{';
                bool first = true;
                for (const auto& [key, item] : v) {
                    out += first ? "" : ", ";
                    first = false;
                    appendQuoted(out, key);
                    out += ": ";
                    describe(item, out);
                }
                out += '}';
            } else if constexpr (std::is_same_v<T, PropertyArray>) {
                out += '[';
                for (std::size_t i = 0; i < v.size(); ++i) {
                    out += i == 0 ? "" : ", ";
                    describe(v[i], out);
                }
                out += ']';
            } else if constexpr (std::is_same_v<T, std::int64_t>) {
                out += std::to_string(v);
            } else if constexpr (std::is_same_v<T, double>) {
                char buffer[32];
                std::snprintf(buffer, sizeof buffer, "%.17g", v);
                out += buffer;
            } else if constexpr (std::is_same_v<T, bool>) {
                out += v ? "true" : "false";
            } else if constexpr (std::is_same_v<T, std::string>) {
                appendQuoted(out, v);
            } else if constexpr (std::is_same_v<T, PropertyDate>) {
                char buffer[48];
                std::snprintf(buffer, sizeof buffer, "<date %.6f>", v.secondsSinceReferenceDate);
                out += buffer;
            } else if constexpr (std::is_same_v<T, std::vector<std::uint8_t>>) {
                out += '<' + std::to_string(v.size()) + " bytes>";
            } else {
                out += v.debugDescription();
            }
        },
        value.storage());
}

} // namespace

std::string PropertyValue::debugDescription() const
{
    std::string out;
    describe(*this, out);
    return out;
}

} // namespace psdkit
