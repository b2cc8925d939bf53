#include "psdkit/descriptors/UnifiedStringValue.hpp"

#include <functional>

#include "psdkit/platform/text/TextEncoding.hpp"

namespace psdkit {

UnifiedStringValue::UnifiedStringValue(PSDFourCharCode code)
    : value_(std::move(code)), key_(detail::canonicalForm(std::get<PSDFourCharCode>(value_).rawValue()))
{
}

UnifiedStringValue::UnifiedStringValue(std::string text, bool)
    : value_(std::in_place_type<std::string>, std::move(text)),
      key_(detail::canonicalForm(std::get<std::string>(value_)))
{
}

UnifiedStringValue UnifiedStringValue::string(std::string text)
{
    return {std::move(text), true};
}

const std::string& UnifiedStringValue::text() const noexcept
{
    if (const auto* code = fourCharCodeValue()) {
        return code->rawValue();
    }
    return *stringValue();
}

std::string UnifiedStringValue::description() const
{
    if (const auto* code = fourCharCodeValue()) {
        return code->debugDescription();
    }
    return *stringValue();
}

std::size_t UnifiedStringValue::hash() const noexcept
{
    const std::size_t caseHash = value_.index();
    const std::size_t textHash = std::hash<std::string>{}(key_);
    return textHash ^ (caseHash + 0x9e3779b97f4a7c15ULL + (textHash << 6) + (textHash >> 2));
}

} // namespace psdkit
