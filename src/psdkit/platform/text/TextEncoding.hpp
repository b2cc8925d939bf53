#pragma once
// Text conversions the file format needs: Mac OS Roman (Pascal strings, four-character codes,
// counted strings) and UTF-16 big-endian (Unicode strings), to and from UTF-8, plus the two
// Unicode questions the format asks: how many user-perceived characters a text has, and whether
// two texts are canonically equivalent.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace psdkit::detail {

/// Decodes Mac OS Roman bytes (Apple's mapping: 0xDB is U+20AC, 0xF0 is U+F8FF) into UTF-8.
/// Every byte value maps to a character, so this never fails.
[[nodiscard]] std::string macRomanToUtf8(std::span<const std::uint8_t> bytes);

/// Encodes UTF-8 text as Mac OS Roman. The text is first brought to its composed form (NFC), so
/// that a decomposed "e + combining acute" still maps to one byte.
/// Strict (`lossy` false): absent when a character has no Mac OS Roman form or the text is not
/// valid UTF-8. Lossy: each such character becomes '?' (one byte per character); never absent.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> utf8ToMacRoman(std::string_view text, bool lossy);

/// Decodes UTF-16 big-endian bytes into UTF-8. An odd trailing byte is ignored by the caller's
/// contract (callers pass whole code units). Absent when the text holds an unpaired surrogate:
/// such text cannot be decoded, and replacing the unit would write a changed name back.
[[nodiscard]] std::optional<std::string> utf16beToUtf8(std::span<const std::uint8_t> bytes);

/// Encodes UTF-8 text as UTF-16 big-endian without a byte order mark. Absent when the text is
/// not valid UTF-8.
[[nodiscard]] std::optional<std::vector<std::uint8_t>> utf8ToUtf16be(std::string_view text);

/// Number of user-perceived characters (extended grapheme clusters) of UTF-8 text, so that
/// "\r\n" counts as one. Absent when the text is not valid UTF-8.
[[nodiscard]] std::optional<std::size_t> characterCount(std::string_view text);

/// The canonical composed form (NFC) of UTF-8 text; texts with the same NFC form are canonically
/// equivalent. Pure ASCII is returned unchanged without calling into the Unicode tables.
/// Invalid UTF-8 is returned unchanged.
[[nodiscard]] std::string canonicalForm(std::string_view text);

/// True when every byte is below 0x80.
[[nodiscard]] bool isAscii(std::string_view text) noexcept;

} // namespace psdkit::detail
