#pragma once
// UnifiedStringValue: an identifier of the descriptor format (a class ID, an item key, or one half of
// an enumerated value). It is either a four-character code or a longer string; the two are
// different identifiers even when their texts agree.
#include "psdkit/Export.hpp"
#include <cstddef>
#include <string>
#include <variant>

#include "psdkit/core/PSDFourCharCode.hpp"

namespace psdkit {

/// A descriptor identifier: a four-character code or a string. A plain value.
class PSDKIT_EXPORT UnifiedStringValue {
  public:
    /// The two cases; their numbers take part in the hash.
    enum class Case { fourCharCode = 0, string = 1 };

    /// A four-character code identifier. Implicit, so that a code can be used wherever an
    /// identifier is expected.
    UnifiedStringValue(PSDFourCharCode code); // NOLINT: implicit by design
    /// A four-character code identifier.
    [[nodiscard]] static UnifiedStringValue fourCharCode(PSDFourCharCode code) { return {std::move(code)}; }
    /// A string identifier holding `text` (UTF-8), exactly as given.
    [[nodiscard]] static UnifiedStringValue string(std::string text);

    /// Which case the identifier is.
    [[nodiscard]] Case which() const noexcept { return static_cast<Case>(value_.index()); }
    /// The code, or nullptr for a string identifier.
    [[nodiscard]] const PSDFourCharCode* fourCharCodeValue() const noexcept
    {
        return std::get_if<PSDFourCharCode>(&value_);
    }
    /// The string, or nullptr for a code identifier.
    [[nodiscard]] const std::string* stringValue() const noexcept
    {
        return std::get_if<std::string>(&value_);
    }
    /// The text of either case, as given.
    [[nodiscard]] const std::string& text() const noexcept;

    /// A string as it is; a code between apostrophes, as in 'null'.
    [[nodiscard]] std::string description() const;

    /// Equal when of the same case with canonically equivalent texts (Unicode NFC).
    friend bool operator==(const UnifiedStringValue& a, const UnifiedStringValue& b) noexcept
    {
        return a.value_.index() == b.value_.index() && a.key_ == b.key_;
    }
    /// Combines the case number and the canonical text, so that equal values hash alike.
    [[nodiscard]] std::size_t hash() const noexcept;

  private:
    UnifiedStringValue(std::string text, bool); // the string case

    std::variant<PSDFourCharCode, std::string> value_;
    std::string key_; // canonical (NFC) form of the text
};

} // namespace psdkit

/// Hashes identifiers consistently with their equality, for unordered containers.
template <> struct std::hash<psdkit::UnifiedStringValue> {
    /// `value.hash()`.
    std::size_t operator()(const psdkit::UnifiedStringValue& value) const noexcept { return value.hash(); }
};
