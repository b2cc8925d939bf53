#include "psdkit/core/PSDError.hpp"

#include <array>
#include <mutex>

#include "psdkit/core/ErrorCategory.hpp"
#include "psdkit/platform/support/HostApplication.hpp"

namespace psdkit {
namespace {

constexpr std::array<std::string_view, PSDError::caseCount> kCaseNames = {
    "readUnknownError",
    "readUnknownFileVersion",
    "readUnsupportedColorMode",
    "readUnsupportedImageCompression",
    "readCorruptFile",
    "readUnexpectedEndOfFile",
    "readInvalidImageData",
    "readParameterError",
    "readUnsupportedDescriptorVersion",
    "readUnsupportedDescriptorValueType",
    "readUnsupportedContentVersion",
    "readUnsupportedContentType",
    "writeUnknownError",
    "writeUnableToCreateMetaData",
    "writeParameterError",
};

// The address users can report problems to.
constexpr std::string_view kSupportAddress = "support@psdkit.io";
constexpr std::string_view kFallbackApplicationName = "Vispera";

struct TextProvider {
    bool registered = false;
    std::string applicationName;
};

std::mutex& providerMutex()
{
    static std::mutex m;
    return m;
}
TextProvider& provider()
{
    static TextProvider p;
    return p;
}

std::string describePSDError(int value)
{
    if (value < 0 || value >= PSDError::caseCount) {
        return "unknown psdkit error";
    }
    return std::string(kCaseNames[static_cast<std::size_t>(value)]);
}

// The English text of (case, key) with its "%@" placeholder unresolved; empty when none.
std::string_view englishText(PSDError::Code code, PSDErrorTextKey key)
{
    if (key == PSDErrorTextKey::recoverySuggestion) {
        return code == PSDError::readParameterError
                   ? "If you reproducably encounter this error, consider reporting this problem at "
                   : "";
    }
    switch (code) {
    case PSDError::readUnknownFileVersion:
        return "This document is saved in an unknown file version.";
    case PSDError::readUnsupportedColorMode:
        return "This document is saved in a color model that is not supported by \"%@\".";
    case PSDError::readUnsupportedImageCompression:
        return "This document is saved with an unknown image compression type.";
    case PSDError::readCorruptFile:
    case PSDError::readUnexpectedEndOfFile:
    case PSDError::readInvalidImageData:
        return "This file is corrupt.";
    case PSDError::readParameterError:
        return "An internal error occurred.";
    case PSDError::readUnsupportedDescriptorVersion:
    case PSDError::readUnsupportedDescriptorValueType:
    case PSDError::readUnsupportedContentVersion:
    case PSDError::readUnsupportedContentType:
        return "This document contains content that is not supported by \"%@\".";
    default:
        return "";
    }
}

} // namespace

const std::error_category& psdErrorCategory() noexcept
{
    static const detail::DescribedErrorCategory category("OrrindelImageIOKit.PSDError", &describePSDError);
    return category;
}

std::string_view PSDError::name() const noexcept
{
    return kCaseNames[static_cast<std::size_t>(code_)];
}

void PSDError::initialize()
{
    const auto host = HostApplication::current();
    std::lock_guard lock(providerMutex());
    provider().registered = true;
    provider().applicationName = host.displayName ? *host.displayName : std::string(kFallbackApplicationName);
}

std::optional<std::string> PSDError::userInfoValue(PSDErrorTextKey key) const
{
    std::string applicationName;
    {
        std::lock_guard lock(providerMutex());
        if (!provider().registered) {
            return std::nullopt;
        }
        applicationName = provider().applicationName;
    }
    const std::string_view english = englishText(code_, key);
    if (english.empty()) {
        return std::nullopt;
    }
    std::string text(english);
    if (key == PSDErrorTextKey::recoverySuggestion) {
        text.append(kSupportAddress);
        text.push_back('.');
        return text;
    }
    if (const auto at = text.find("%@"); at != std::string::npos) {
        text.replace(at, 2, applicationName);
    }
    return text;
}

std::string PSDException::describe(PSDError error, const std::string& detail)
{
    std::string text(englishText(error.code(), PSDErrorTextKey::failureReason));
    if (const auto at = text.find("%@"); at != std::string::npos) {
        std::string applicationName;
        {
            std::lock_guard lock(providerMutex());
            applicationName = provider().registered ? provider().applicationName : std::string("psdkit");
        }
        text.replace(at, 2, applicationName);
    }
    text += text.empty() ? "" : " ";
    text += "(" + std::string(error.name()) + ")";
    if (!detail.empty()) {
        text += ": " + detail;
    }
    return text;
}

std::optional<std::string> PSDError::userInfoValue(const std::error_code& error, PSDErrorTextKey key)
{
    if (error.category() != psdErrorCategory() || error.value() < 0 || error.value() >= caseCount) {
        return std::nullopt;
    }
    return PSDError(static_cast<Code>(error.value())).userInfoValue(key);
}

} // namespace psdkit
