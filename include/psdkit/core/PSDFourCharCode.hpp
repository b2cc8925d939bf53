#pragma once
// PSDFourCharCode: a four-character code of the format (signatures such as "8BIM", block keys,
// blend-mode keys), held as text.
#include "psdkit/Export.hpp"
#include <concepts>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace psdkit {

/// A four-character code literal of program text, such as "8BIM", checked while compiling: a
/// literal of another length, or with a NUL or non-ASCII byte, does not compile. Runtime text becomes
/// a code through `PSDFourCharCode(std::string)`.
class PSDKIT_EXPORT PSDFourCharLiteral {
  public:
    /// The literal's four characters; any other literal does not compile.
    template <std::size_t N>
    consteval PSDFourCharLiteral(const char (&literal)[N]) // NOLINT: implicit by design
    {
        if (N != 5 || literal[N - 1] != '\0') {
            fourCharCodeLiteralMustBeFourAsciiCharacters();
        }
        for (std::size_t i = 0; i < 4; ++i) {
            const auto byte = static_cast<unsigned char>(literal[i]);
            if (byte == 0 || byte >= 0x80) {
                fourCharCodeLiteralMustBeFourAsciiCharacters();
            }
            characters_[i] = literal[i];
        }
    }

    /// The four characters (not NUL-terminated).
    [[nodiscard]] constexpr const char* characters() const noexcept { return characters_; }

  private:
    // Not constexpr: reaching it while compiling a literal is the compile error.
    static void fourCharCodeLiteralMustBeFourAsciiCharacters() {}

    char characters_[4] = {};
};

/// A four-character code, compared as canonically equivalent Unicode text. A plain value.
class PSDKIT_EXPORT PSDFourCharCode {
  public:
    /// A code from a literal in program text: `PSDFourCharCode("8BIM")` or a plain "8BIM" where a
    /// code is expected. A literal of another length does not compile; a NUL or non-ASCII byte
    /// stops the program (in every build). A `PSDFourCharLiteral` is checked entirely while
    /// compiling; it converts to a code implicitly.
    template <std::size_t N>
    requires(N == 5) PSDFourCharCode(const char (&literal)[N]) // NOLINT: implicit by design
        : rawValue_(literal, 4), key_(rawValue_)
    {
        for (std::size_t i = 0; i < 4; ++i) {
            if (static_cast<unsigned char>(literal[i]) >= 0x80 || literal[i] == '\0') {
                literalIsNotFourAsciiCharacters(literal);
            }
        }
    }

    /// Literals of any other length are programming errors and do not compile.
    template <std::size_t N>
    requires(N != 5) PSDFourCharCode(const char (&literal)[N])
    = delete;

    /// A code from a literal checked while compiling.
    PSDFourCharCode(PSDFourCharLiteral literal) // NOLINT: implicit by design
        : rawValue_(literal.characters(), 4), key_(rawValue_)
    {
    }

    /// A code from text counting exactly four user-perceived characters.
    /// Throws `PSDException(readParameterError)` for any other text (including invalid UTF-8).
    explicit PSDFourCharCode(std::string text) : PSDFourCharCode(FromText{}, std::move(text)) {}

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
    struct FromText {};
    PSDFourCharCode(FromText, std::string text);
    // A programming error: prints what was wrong and stops the program.
    [[noreturn]] static void literalIsNotFourAsciiCharacters(const char* literal) noexcept;

    std::string rawValue_;
    std::string key_; // the canonical (NFC) form, used for equality and hashing
};

} // namespace psdkit

/// Hashes codes consistently with their equality, for unordered containers.
template <> struct std::hash<psdkit::PSDFourCharCode> {
    /// `code.hash()`.
    std::size_t operator()(const psdkit::PSDFourCharCode& code) const noexcept { return code.hash(); }
};
