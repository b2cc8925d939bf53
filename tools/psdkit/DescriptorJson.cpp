#include "DescriptorJson.hpp"

#include <type_traits>

namespace psdkit::cli {

namespace {

// Longer byte values show only their length.
constexpr std::size_t kLargestHexDump = 1024;

// Descriptors nest at most PSDDescriptor::maximumNestingDepth levels when read; the guard only
// protects against trees built otherwise.
Json valueJson(const PSDDescriptorPropertyValue& value, int depth);

// Identifiers are four-character codes or strings; two of different kinds may share a text, so
// the kind is shown beside every one.
const char* kindName(const UnifiedStringValue& id)
{
    return id.which() == UnifiedStringValue::Case::fourCharCode ? "code" : "string";
}

// Names are stored with a terminating NUL, which is not part of the name.
std::string withoutTrailingNul(std::string name)
{
    if (!name.empty() && name.back() == '\0') {
        name.pop_back();
    }
    return name;
}

Json descriptorJsonAt(const PSDDescriptor& descriptor, int depth)
{
    Json items = Json::array();
    for (const auto& [key, value] : descriptor.properties) {
        Json item{{"key", key.text()}, {"keyKind", kindName(key)}};
        const Json content = valueJson(value, depth + 1);
        for (auto it = content.begin(); it != content.end(); ++it) {
            item[it.key()] = it.value();
        }
        items.push_back(std::move(item));
    }
    return Json{{"name", withoutTrailingNul(descriptor.name)},
                {"classID", descriptor.classID.text()},
                {"classIDKind", kindName(descriptor.classID)},
                {"items", std::move(items)}};
}

std::string hex(const std::vector<std::uint8_t>& bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    for (const std::uint8_t byte : bytes) {
        out += digits[byte >> 4];
        out += digits[byte & 0x0F];
    }
    return out;
}

Json valueJson(const PSDDescriptorPropertyValue& value, int depth)
{
    if (depth > PSDDescriptor::maximumNestingDepth) {
        return Json{{"type", "truncated"}};
    }
    return std::visit(
        [depth](const auto& v) -> Json {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::shared_ptr<PSDDescriptor>>) {
                return Json{{"type", "Objc"}, {"value", v ? descriptorJsonAt(*v, depth) : Json(nullptr)}};
            } else if constexpr (std::is_same_v<T, double>) {
                return Json{{"type", "doub"}, {"value", v}};
            } else if constexpr (std::is_same_v<T, PSDUnitFloat>) {
                return Json{{"type", "UntF"},
                            {"unit", PSDUnitFloat::unitCode(v.unit).rawValue()},
                            {"value", v.value}};
            } else if constexpr (std::is_same_v<T, std::string>) {
                return Json{{"type", "TEXT"}, {"value", v}};
            } else if constexpr (std::is_same_v<T, Enumerated>) {
                return Json{{"type", "enum"},
                            {"enumType", v.type.text()},
                            {"enumTypeKind", kindName(v.type)},
                            {"value", v.value.text()},
                            {"valueKind", kindName(v.value)}};
            } else if constexpr (std::is_same_v<T, std::int32_t>) {
                return Json{{"type", "long"}, {"value", v}};
            } else if constexpr (std::is_same_v<T, bool>) {
                return Json{{"type", "bool"}, {"value", v}};
            } else if constexpr (std::is_same_v<T, PSDDescriptorPropertyValue::List>) {
                Json list = Json::array();
                for (const auto& element : v) {
                    list.push_back(valueJson(element, depth + 1));
                }
                return Json{{"type", "VlLs"}, {"value", std::move(list)}};
            } else {
                Json bytes{{"type", "tdta"}, {"length", v.size()}};
                if (v.size() <= kLargestHexDump) {
                    bytes["hex"] = hex(v);
                }
                return bytes;
            }
        },
        value.variant());
}

} // namespace

Json descriptorJson(const PSDDescriptor& descriptor)
{
    return descriptorJsonAt(descriptor, 0);
}

} // namespace psdkit::cli
