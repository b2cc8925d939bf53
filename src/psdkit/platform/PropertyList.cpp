#include "psdkit/platform/PropertyList.hpp"

#include <plist/plist.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <type_traits>

#include "psdkit/platform/PlatformError.hpp"
#include "psdkit/platform/PropertyListLimits.hpp"

namespace psdkit {
namespace {

struct NodeDeleter {
    void operator()(void* node) const noexcept { plist_free(static_cast<plist_t>(node)); }
};
using NodePtr = std::unique_ptr<void, NodeDeleter>;

struct FreeDeleter {
    void operator()(char* text) const noexcept { std::free(text); }
};

[[noreturn]] void failParse(const char* detail)
{
    throw PlatformException(PlatformErrorCode::propertyListParse, detail);
}

[[noreturn]] void failUnsupported(const char* detail)
{
    throw PlatformException(PlatformErrorCode::propertyListUnsupportedValue, detail);
}

// Text the writer accepts (defined with the writing below); the reader refuses any other text,
// which could not be written back.
bool isValidUtf8WithoutNul(std::string_view text);

// ---- reading ---------------------------------------------------------------------------------

PropertyValue valueFromNode(plist_t node, std::size_t depth)
{
    if (depth > detail::kMaxPropertyListDepth) {
        failParse("property list nested too deeply");
    }
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return PropertyValue(value != 0);
    }
    case PLIST_UINT:
    case PLIST_UID: {
        // The backend keeps every integer as 64 bits without a sign; negative numbers come back
        // as their two's complement.
        std::uint64_t value = 0;
        if (plist_get_node_type(node) == PLIST_UID) {
            plist_get_uid_val(node, &value);
        } else {
            plist_get_uint_val(node, &value);
        }
        return PropertyValue(std::bit_cast<std::int64_t>(value));
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return PropertyValue(value);
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        std::uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        std::string value = text == nullptr ? std::string() : std::string(text, length);
        if (!isValidUtf8WithoutNul(value)) {
            failParse("text is not valid UTF-8 or holds a NUL character");
        }
        return PropertyValue(std::move(value));
    }
    case PLIST_DATA: {
        std::uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        const auto* first = reinterpret_cast<const std::uint8_t*>(bytes);
        return PropertyValue(bytes == nullptr ? std::vector<std::uint8_t>()
                                              : std::vector<std::uint8_t>(first, first + length));
    }
    case PLIST_DATE: {
        std::int32_t seconds = 0;
        std::int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return PropertyValue(
            PropertyDate{static_cast<double>(seconds) + static_cast<double>(microseconds) / 1e6});
    }
    case PLIST_ARRAY: {
        PropertyArray array;
        const std::uint32_t count = plist_array_get_size(node);
        array.reserve(count);
        for (std::uint32_t i = 0; i < count; ++i) {
            plist_t item = plist_array_get_item(node, i);
            if (item == nullptr) {
                failParse("array item missing");
            }
            array.push_back(valueFromNode(item, depth + 1));
        }
        return PropertyValue(std::move(array));
    }
    case PLIST_DICT: {
        PropertyDictionary dictionary;
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        std::unique_ptr<void, decltype(&std::free)> iteratorOwner(iterator, &std::free);
        for (;;) {
            char* rawKey = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, iterator, &rawKey, &item);
            std::unique_ptr<char, FreeDeleter> key(rawKey);
            if (item == nullptr) {
                break;
            }
            std::string name = key ? std::string(key.get()) : std::string();
            if (!isValidUtf8WithoutNul(name)) {
                failParse("key is not valid UTF-8");
            }
            // A key that appears twice keeps its last value.
            dictionary.insert_or_assign(std::move(name), valueFromNode(item, depth + 1));
        }
        return PropertyValue(std::move(dictionary));
    }
    default:
        failParse("unknown property list node");
    }
}

constexpr std::string_view kUtf8ByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBinaryMagic = "bplist00";

bool startsWith(std::span<const std::uint8_t> data, std::string_view prefix)
{
    return data.size() >= prefix.size() && std::memcmp(data.data(), prefix.data(), prefix.size()) == 0;
}

// ---- writing ---------------------------------------------------------------------------------

bool isValidUtf8WithoutNul(std::string_view text)
{
    std::size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead == 0) {
            return false;
        }
        std::size_t length = 1;
        std::uint32_t codePoint = lead;
        if (lead >= 0x80) {
            if (lead >= 0xC2 && lead <= 0xDF) {
                length = 2, codePoint = lead & 0x1Fu;
            } else if (lead >= 0xE0 && lead <= 0xEF) {
                length = 3, codePoint = lead & 0x0Fu;
            } else if (lead >= 0xF0 && lead <= 0xF4) {
                length = 4, codePoint = lead & 0x07u;
            } else {
                return false;
            }
            if (text.size() - i < length) {
                return false;
            }
            for (std::size_t k = 1; k < length; ++k) {
                const auto next = static_cast<unsigned char>(text[i + k]);
                if ((next & 0xC0u) != 0x80u) {
                    return false;
                }
                codePoint = (codePoint << 6) | (next & 0x3Fu);
            }
            const bool overlong = (length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000);
            const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
            if (overlong || surrogate || codePoint > 0x10FFFF) {
                return false;
            }
        }
        i += length;
    }
    return true;
}

NodePtr nodeFromText(const std::string& text)
{
    if (!isValidUtf8WithoutNul(text)) {
        failUnsupported("text is not valid UTF-8 or holds a NUL character");
    }
    return NodePtr(plist_new_string(text.c_str()));
}

NodePtr nodeFromDate(const PropertyDate& date)
{
    const double seconds = std::floor(date.secondsSinceReferenceDate);
    if (!(seconds >= static_cast<double>(std::numeric_limits<std::int32_t>::min()) &&
          seconds <= static_cast<double>(std::numeric_limits<std::int32_t>::max()))) {
        failUnsupported("date out of range");
    }
    return NodePtr(plist_new_date(static_cast<std::int32_t>(seconds), 0));
}

NodePtr nodeFromValue(const PropertyValue& value, std::size_t depth);

NodePtr nodeFromDictionary(const PropertyDictionary& dictionary, std::size_t depth)
{
    NodePtr node(plist_new_dict());
    for (const auto& [key, item] : dictionary) {
        if (!isValidUtf8WithoutNul(key)) {
            failUnsupported("key is not valid UTF-8 or holds a NUL character");
        }
        NodePtr child = nodeFromValue(item, depth + 1);
        plist_dict_set_item(node.get(), key.c_str(), child.release());
    }
    return node;
}

NodePtr nodeFromValue(const PropertyValue& value, std::size_t depth)
{
    if (depth > detail::kMaxPropertyListDepth) {
        failUnsupported("property list nested too deeply");
    }
    return std::visit(
        [depth](const auto& v) -> NodePtr {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, PropertyDictionary>) {
                return nodeFromDictionary(v, depth);
            } else if constexpr (std::is_same_v<T, PropertyArray>) {
                NodePtr node(plist_new_array());
                for (const PropertyValue& item : v) {
                    NodePtr child = nodeFromValue(item, depth + 1);
                    plist_array_append_item(node.get(), child.release());
                }
                return node;
            } else if constexpr (std::is_same_v<T, std::int64_t>) {
                return NodePtr(plist_new_uint(std::bit_cast<std::uint64_t>(v)));
            } else if constexpr (std::is_same_v<T, double>) {
                return NodePtr(plist_new_real(v));
            } else if constexpr (std::is_same_v<T, bool>) {
                return NodePtr(plist_new_bool(v ? 1 : 0));
            } else if constexpr (std::is_same_v<T, std::string>) {
                return nodeFromText(v);
            } else if constexpr (std::is_same_v<T, PropertyDate>) {
                return nodeFromDate(v);
            } else if constexpr (std::is_same_v<T, std::vector<std::uint8_t>>) {
                return NodePtr(plist_new_data(reinterpret_cast<const char*>(v.data()), v.size()));
            } else {
                static_assert(std::is_same_v<T, PSDFourCharCode>);
                failUnsupported("a four-character code has no property-list form");
            }
        },
        value.storage());
}

} // namespace

PropertyValue parsePropertyList(std::span<const std::uint8_t> data)
{
    if (startsWith(data, kUtf8ByteOrderMark)) {
        data = data.subspan(kUtf8ByteOrderMark.size());
    }
    if (data.empty() || data.size() > std::numeric_limits<std::uint32_t>::max()) {
        failParse("no property list");
    }
    // The backend expands shared objects of binary lists and recurses over nesting: refuse
    // lists that would blow up before handing them over.
    const bool acceptable = startsWith(data, kBinaryMagic) ? detail::binaryPropertyListIsBounded(data)
                                                           : detail::xmlPropertyListIsBounded(data);
    if (!acceptable) {
        failParse("property list too large or too deeply nested");
    }
    if (!detail::propertyListKeysHaveNoNul(data)) {
        failParse("a dictionary key holds a NUL character");
    }
    plist_t root = nullptr; // must start null: a non-null pointer is taken as the backend's own
    plist_from_memory(reinterpret_cast<const char*>(data.data()), static_cast<std::uint32_t>(data.size()),
                      &root);
    if (root == nullptr) {
        failParse("not a property list");
    }
    NodePtr owner(root);
    return valueFromNode(root, 0);
}

std::vector<std::uint8_t> xmlPropertyList(const PropertyDictionary& dictionary)
{
    NodePtr root = nodeFromDictionary(dictionary, 0);
    char* text = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(root.get(), &text, &length);
    std::unique_ptr<char, void (*)(char*)> owner(text, plist_to_xml_free);
    if (text == nullptr || length == 0) {
        throw PlatformException(PlatformErrorCode::propertyListWrite);
    }
    const auto* first = reinterpret_cast<const std::uint8_t*>(text);
    return {first, first + length};
}

} // namespace psdkit
