#pragma once
// The error model of psdkit. Every failure caused by a file's contents or by values that do not
// fit the format is reported by throwing a `PSDException` that carries one `PSDError` case. The
// case says what kind of failure it was; a thrower may add a detail (which layer, which field,
// which value), and `what()` carries the case's English text with both. Hosts that want the
// texts apart call `PSDError::initialize()` once and then ask `PSDError::userInfoValue`.
#include "psdkit/Export.hpp"
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace psdkit {

/// Keys of the readable texts an error can provide.
enum class PSDErrorTextKey {
    failureReason,      ///< why the operation failed
    recoverySuggestion, ///< what the user can do about it
};

/// The kinds of failure. The numeric code of a case is its position below (0 to 14); the order is
/// part of the interface and never changes.
class PSDKIT_EXPORT PSDError {
  public:
    /// The cases; the comment of each is the condition that raises it.
    enum Code : int {
        readUnknownError = 0,                   ///< layer information that runs past its section
        readUnknownFileVersion = 1,             ///< a header version other than 1 (PSD) or 2 (PSB)
        readUnsupportedColorMode = 2,           ///< a colour mode other than RGB
        readUnsupportedImageCompression = 3,    ///< a channel's compression code is not 0 to 3
        readCorruptFile = 4,                    ///< a structure that contradicts itself or its bounds
        readUnexpectedEndOfFile = 5,            ///< bytes a structure needs are missing
        readInvalidImageData = 6,               ///< a layer's channels that cannot form its images
        readParameterError = 7,                 ///< a value out of its allowed range
        readUnsupportedDescriptorVersion = 8,   ///< a descriptor version other than 16
        readUnsupportedDescriptorValueType = 9, ///< an unknown descriptor value type
        readUnsupportedContentVersion = 10,     ///< never raised by the library; keeps its code
        readUnsupportedContentType = 11,        ///< a descriptor of another class or unit than expected
        writeUnknownError = 12,                 ///< text that cannot be encoded as the format needs
        writeUnableToCreateMetaData = 13,       ///< no metadata packet could be made
        writeParameterError = 14,               ///< a value that does not fit its field
    };
    /// Number of cases.
    static constexpr int caseCount = 15;

    /// The error of case `code`.
    constexpr PSDError(Code code) noexcept : code_(code) {} // NOLINT: implicit by design
    /// The case.
    [[nodiscard]] constexpr Code code() const noexcept { return code_; }
    /// The case, so that errors can be used in `switch` and compared with cases.
    [[nodiscard]] constexpr operator Code() const noexcept { return code_; } // NOLINT
    /// Equal when of the same case.
    friend constexpr bool operator==(PSDError, PSDError) noexcept = default;
    /// True when `a` is of case `b`.
    friend constexpr bool operator==(PSDError a, Code b) noexcept { return a.code_ == b; }

    /// The case's name as written above, for example "readCorruptFile".
    [[nodiscard]] std::string_view name() const noexcept;

    /// The error domain: "OrrindelImageIOKit.PSDError".
    static constexpr std::string_view domain = "OrrindelImageIOKit.PSDError";

    /// Registers the provider of readable texts, once, early, on one thread. It reads the host's
    /// display name from `HostApplication::current()` now (falling back to "Vispera"); later changes
    /// of the name do not reach the texts. Calling it again registers the texts anew.
    static void initialize();

    /// The readable text of this case for `key`, in English (psdkit ships no translations), with
    /// the application name substituted between quotation marks where the text names it. Absent
    /// before `initialize()` and for every (case, key) pair that has no text. Never throws.
    [[nodiscard]] std::optional<std::string> userInfoValue(PSDErrorTextKey key) const;

    /// The same for any error code: absent for codes that are not of the psdkit error domain.
    [[nodiscard]] static std::optional<std::string> userInfoValue(const std::error_code& error,
                                                                  PSDErrorTextKey key);

  private:
    Code code_;
};

/// The error category of the psdkit domain: `name()` is "OrrindelImageIOKit.PSDError" and the
/// value of an error code is the case's code 0 to 14.
[[nodiscard]] PSDKIT_EXPORT const std::error_category& psdErrorCategory() noexcept;

/// The `std::error_code` of `error` in the psdkit category.
[[nodiscard]] inline std::error_code make_error_code(PSDError error) noexcept
{
    return {static_cast<int>(error.code()), psdErrorCategory()};
}
/// The `std::error_code` of case `code` in the psdkit category.
[[nodiscard]] inline std::error_code make_error_code(PSDError::Code code) noexcept
{
    return {static_cast<int>(code), psdErrorCategory()};
}

/// The exception psdkit throws for every `PSDError`. Errors of the platform layer and of the
/// image core are other `std::system_error`s with their own categories and are never rewrapped.
class PSDKIT_EXPORT PSDException : public std::system_error {
  public:
    /// An exception carrying `error`; `code()` is its error code in the psdkit category.
    explicit PSDException(PSDError error)
        : std::system_error(make_error_code(error)), error_(error), what_(describe(error, {}))
    {
    }
    /// The same, with `detail` saying what was wrong (which layer, which field, which value); the
    /// case and the code stay those of `error`.
    PSDException(PSDError error, const std::string& detail)
        : std::system_error(make_error_code(error), detail), error_(error), detail_(detail),
          what_(describe(error, detail))
    {
    }
    /// The error's English text (the application named as `PSDError::initialize` registered it,
    /// else "psdkit"), the case's name in parentheses, then ": " and the detail when there is one;
    /// for example "This file is corrupt. (readCorruptFile): layer 3: negative channel count".
    [[nodiscard]] const char* what() const noexcept override { return what_.c_str(); }
    /// The case that was thrown.
    [[nodiscard]] PSDError error() const noexcept { return error_; }
    /// What the thrower said beyond the case (empty when nothing).
    [[nodiscard]] const std::string& detail() const noexcept { return detail_; }

    /// The text `what()` returns for `error` with `detail` (which may be empty).
    [[nodiscard]] static std::string describe(PSDError error, const std::string& detail);

  private:
    PSDError error_;
    std::string detail_;
    std::string what_;
};

} // namespace psdkit

/// Lets a `PSDError::Code` convert to `std::error_code`.
template <> struct std::is_error_code_enum<psdkit::PSDError::Code> : std::true_type {
};

/// Hashes errors by their case, for unordered containers.
template <> struct std::hash<psdkit::PSDError> {
    /// The hash of the case's code.
    std::size_t operator()(psdkit::PSDError e) const noexcept { return std::hash<int>{}(e.code()); }
};
