#pragma once
// PSDFourCharCode: a four-character code of the format (signatures such as "8BIM", block keys,
// blend-mode keys), held as text.
#include "psdkit/Export.hpp"
#include <cassert>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace psdkit {

/// A four-character code, compared as canonically equivalent Unicode text. A plain value.
class PSDKIT_EXPORT PSDFourCharCode {
public:
    /// A code from a literal in program text: `PSDFourCharCode("8BIM")`. The literal must be four
    /// ASCII characters: another length does not compile, a non-ASCII byte stops the program.
    template <std::size_t N>
        requires(N == 5)
    PSDFourCharCode(const char (&literal)[N]) // NOLINT: implicit by design
        : rawValue_(literal, 4), key_(rawValue_)
    {
        for (std::size_t i = 0; i < 4; ++i) {
            assert(static_cast<unsigned char>(literal[i]) < 0x80 && literal[i] != '\0' &&
                   "a four-character code literal must be four ASCII characters");
        }
    }

    /// Literals of any other length are programming errors and do not compile.
    template <std::size_t N>
        requires(N != 5)
    PSDFourCharCode(const char (&literal)[N]) = delete;

    /// A code from text counting exactly four user-perceived characters.
    /// Throws `PSDException(readParameterError)` for any other text (including invalid UTF-8).
    explicit PSDFourCharCode(std::string text);

    /// The code's text, exactly as given.
    [[nodiscard]] const std::string& rawValue() const noexcept { return rawValue_; }

    /// The code between two apostrophes: 'norm'.
    [[nodiscard]] std::string debugDescription() const { return "'" + rawValue_ + "'"; }

    /// Codes are equal when their texts are canonically equivalent Unicode.
    friend bool operator==(const PSDFourCharCode& a, const PSDFourCharCode& b) noexcept
    {
        return a.key_ == b.key_;
    }
    /// An order consistent with equality (by canonical text), for ordered containers.
    friend bool operator<(const PSDFourCharCode& a, const PSDFourCharCode& b) noexcept
    {
        return a.key_ < b.key_;
    }

    /// Hash consistent with equality.
    [[nodiscard]] std::size_t hash() const noexcept { return std::hash<std::string>{}(key_); }

private:
    std::string rawValue_;
    std::string key_; // the canonical (NFC) form, used for equality and hashing
};

} // namespace psdkit

/// Hashes codes consistently with their equality, for unordered containers.
template <>
struct std::hash<psdkit::PSDFourCharCode> {
    /// `code.hash()`.
    std::size_t operator()(const psdkit::PSDFourCharCode& code) const noexcept { return code.hash(); }
};
