#include "psdkit/platform/text/TextEncoding.hpp"

#include <array>
#include <cstdlib>
#include <memory>

#include <utf8proc.h>

namespace psdkit::detail {
namespace {

// Unicode code points of the Mac OS Roman bytes 0x80 to 0xFF.
constexpr std::array<char32_t, 128> kMacRomanHigh = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5,
    0x00E7, 0x00E9, 0x00E8, 0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3, 0x00F2, 0x00F4,
    0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, 0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6,
    0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8, 0x221E, 0x00B1, 0x2264, 0x2265,
    0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8, 0x00BF,
    0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, 0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5,
    0x0152, 0x0153, 0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA, 0x00FF, 0x0178, 0x2044,
    0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02, 0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4, 0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9,
    0x0131, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,
};

void appendUtf8(std::string& out, char32_t cp)
{
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// Decodes one code point at `i`; returns false (and leaves `i`) on malformed UTF-8.
bool nextCodePoint(std::string_view s, std::size_t& i, char32_t& cp)
{
    utf8proc_int32_t value = 0;
    const auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(s.data() + i),
                                    static_cast<utf8proc_ssize_t>(s.size() - i), &value);
    if (n <= 0 || value < 0) {
        return false;
    }
    i += static_cast<std::size_t>(n);
    cp = static_cast<char32_t>(value);
    return true;
}

std::optional<std::uint8_t> macRomanByte(char32_t cp)
{
    if (cp < 0x80) {
        return static_cast<std::uint8_t>(cp);
    }
    for (std::size_t k = 0; k < kMacRomanHigh.size(); ++k) {
        if (kMacRomanHigh[k] == cp) {
            return static_cast<std::uint8_t>(0x80 + k);
        }
    }
    return std::nullopt;
}

} // namespace

bool isAscii(std::string_view text) noexcept
{
    for (char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            return false;
        }
    }
    return true;
}

std::string macRomanToUtf8(std::span<const std::uint8_t> bytes)
{
    std::string out;
    out.reserve(bytes.size());
    for (std::uint8_t b : bytes) {
        if (b < 0x80) {
            out.push_back(static_cast<char>(b));
        } else {
            appendUtf8(out, kMacRomanHigh[b - 0x80u]);
        }
    }
    return out;
}

std::optional<std::vector<std::uint8_t>> utf8ToMacRoman(std::string_view text, bool lossy)
{
    std::vector<std::uint8_t> out;
    out.reserve(text.size());
    if (isAscii(text)) {
        out.assign(text.begin(), text.end());
        return out;
    }
    const std::string composed = canonicalForm(text);
    std::string_view s = composed;
    std::size_t i = 0;
    while (i < s.size()) {
        char32_t cp = 0;
        if (!nextCodePoint(s, i, cp)) {
            if (!lossy) {
                return std::nullopt;
            }
            out.push_back('?');
            ++i;
            continue;
        }
        if (auto b = macRomanByte(cp)) {
            out.push_back(*b);
        } else if (lossy) {
            out.push_back('?');
        } else {
            return std::nullopt;
        }
    }
    return out;
}

std::optional<std::string> utf16beToUtf8(std::span<const std::uint8_t> bytes)
{
    std::string out;
    out.reserve(bytes.size());
    const std::size_t units = bytes.size() / 2;
    for (std::size_t k = 0; k < units; ++k) {
        const auto u = static_cast<char32_t>((bytes[2 * k] << 8) | bytes[2 * k + 1]);
        if (u >= 0xD800 && u <= 0xDBFF && k + 1 < units) {
            const char32_t low = static_cast<char32_t>((bytes[2 * k + 2] << 8) | bytes[2 * k + 3]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                appendUtf8(out, 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
                ++k;
                continue;
            }
        }
        if (u >= 0xD800 && u <= 0xDFFF) {
            return std::nullopt;
        }
        appendUtf8(out, u);
    }
    return out;
}

std::optional<std::vector<std::uint8_t>> utf8ToUtf16be(std::string_view text)
{
    std::vector<std::uint8_t> out;
    out.reserve(text.size() * 2);
    std::size_t i = 0;
    while (i < text.size()) {
        const auto c = static_cast<unsigned char>(text[i]);
        char32_t cp = c;
        if (c < 0x80) {
            ++i;
        } else if (!nextCodePoint(text, i, cp)) {
            return std::nullopt;
        }
        if (cp >= 0x10000) {
            const char32_t v = cp - 0x10000;
            const char32_t hi = 0xD800 + (v >> 10);
            const char32_t lo = 0xDC00 + (v & 0x3FF);
            out.push_back(static_cast<std::uint8_t>(hi >> 8));
            out.push_back(static_cast<std::uint8_t>(hi & 0xFF));
            out.push_back(static_cast<std::uint8_t>(lo >> 8));
            out.push_back(static_cast<std::uint8_t>(lo & 0xFF));
        } else {
            out.push_back(static_cast<std::uint8_t>(cp >> 8));
            out.push_back(static_cast<std::uint8_t>(cp & 0xFF));
        }
    }
    return out;
}

std::optional<std::size_t> characterCount(std::string_view text)
{
    std::size_t count = 0;
    std::size_t i = 0;
    utf8proc_int32_t state = 0;
    char32_t previous = 0;
    bool first = true;
    while (i < text.size()) {
        char32_t cp = 0;
        if (!nextCodePoint(text, i, cp)) {
            return std::nullopt;
        }
        if (first || utf8proc_grapheme_break_stateful(static_cast<utf8proc_int32_t>(previous),
                                                      static_cast<utf8proc_int32_t>(cp), &state)) {
            ++count;
        }
        first = false;
        previous = cp;
    }
    return count;
}

std::string canonicalForm(std::string_view text)
{
    if (isAscii(text)) {
        return std::string(text);
    }
    utf8proc_uint8_t* result = nullptr;
    const auto n = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                static_cast<utf8proc_ssize_t>(text.size()), &result,
                                static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
    if (n < 0 || result == nullptr) {
        std::free(result);
        return std::string(text);
    }
    std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owned(result, &std::free);
    return std::string(reinterpret_cast<const char*>(result), static_cast<std::size_t>(n));
}

} // namespace psdkit::detail
