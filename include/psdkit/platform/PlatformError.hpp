#pragma once
// Errors of psdkit's platform services (property lists, image metadata). They are reported as
// `PlatformException`s in their own error category, "psdkit.platform", and pass through the
// document reader and writer unchanged: they are never turned into a `PSDError`.
#include "psdkit/Export.hpp"
#include <string>
#include <system_error>

namespace psdkit {

/// The failures of the platform services. The numeric values are stable.
enum class PlatformErrorCode : int {
    /// The bytes are not a property list (XML or binary) that could be parsed.
    propertyListParse = 1,
    /// A value has no property-list form (a `PSDFourCharCode`, or a dictionary used where the
    /// format needs something else), so the property list cannot be written.
    propertyListUnsupportedValue = 2,
    /// The property-list library failed to produce the XML text.
    propertyListWrite = 3,
    /// The image metadata could not be prepared for export (a property could not be set).
    metadataPrepare = 4,
    /// The image metadata could not be serialized as an XMP packet.
    metadataSerialize = 5,
};

/// The category of platform errors; `name()` is "psdkit.platform".
[[nodiscard]] PSDKIT_EXPORT const std::error_category& platformErrorCategory() noexcept;

/// The `std::error_code` of `code` in the platform category.
[[nodiscard]] inline std::error_code make_error_code(PlatformErrorCode code) noexcept
{
    return {static_cast<int>(code), platformErrorCategory()};
}

/// The exception every platform service throws. `what()` carries the code's text, followed by
/// the underlying library's message where there is one (for people reading logs; code compares
/// `error()` or `code()`).
class PSDKIT_EXPORT PlatformException : public std::system_error {
  public:
    /// An exception carrying `code`.
    explicit PlatformException(PlatformErrorCode code)
        : std::system_error(make_error_code(code)), error_(code)
    {
    }
    /// An exception carrying `code`, with `detail` (the underlying library's message) in `what()`.
    PlatformException(PlatformErrorCode code, const std::string& detail)
        : std::system_error(make_error_code(code), detail), error_(code)
    {
    }
    /// The failure that was thrown.
    [[nodiscard]] PlatformErrorCode error() const noexcept { return error_; }

  private:
    PlatformErrorCode error_;
};

} // namespace psdkit

/// Lets a `PlatformErrorCode` convert to `std::error_code`.
template <> struct std::is_error_code_enum<psdkit::PlatformErrorCode> : std::true_type {
};
