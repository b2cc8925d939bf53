#pragma once
// A small builder of big-endian byte fixtures for tests, so that fixtures read as the structure
// they encode rather than as walls of hex.
#include <cstdint>
#include <string_view>
#include <vector>

namespace psdkit::testing {

class ByteBuilder {
  public:
    ByteBuilder& u8(std::uint64_t v) { return be(v, 1); }
    ByteBuilder& u16(std::uint64_t v) { return be(v, 2); }
    ByteBuilder& i16(std::int64_t v) { return be(static_cast<std::uint64_t>(v), 2); }
    ByteBuilder& u32(std::uint64_t v) { return be(v, 4); }
    ByteBuilder& i32(std::int64_t v) { return be(static_cast<std::uint64_t>(v), 4); }
    ByteBuilder& i64(std::int64_t v) { return be(static_cast<std::uint64_t>(v), 8); }
    /// Raw ASCII characters, no length (signatures, keys).
    ByteBuilder& ascii(std::string_view s)
    {
        bytes_.insert(bytes_.end(), s.begin(), s.end());
        return *this;
    }
    ByteBuilder& raw(const std::vector<std::uint8_t>& b)
    {
        bytes_.insert(bytes_.end(), b.begin(), b.end());
        return *this;
    }
    ByteBuilder& zeros(std::size_t n)
    {
        bytes_.resize(bytes_.size() + n, 0);
        return *this;
    }
    /// A Pascal string of ASCII text, padded so that 1 + n is a multiple of `padding`.
    ByteBuilder& pascal(std::string_view s, std::size_t padding = 0)
    {
        u8(s.size());
        ascii(s);
        if (padding != 0 && (1 + s.size()) % padding != 0) {
            zeros(padding - (1 + s.size()) % padding);
        }
        return *this;
    }
    /// A UTF-16BE string of ASCII text with its 32-bit unit count.
    ByteBuilder& unicode(std::string_view s)
    {
        u32(s.size());
        for (char c : s) {
            u16(static_cast<unsigned char>(c));
        }
        return *this;
    }
    /// Starts a 32-bit (or 64-bit) length field to be patched by `end()`.
    ByteBuilder& begin(bool big = false)
    {
        marks_.push_back({bytes_.size(), big});
        return zeros(big ? 8 : 4);
    }
    /// Patches the innermost open length with the bytes written since its `begin()`.
    ByteBuilder& end()
    {
        const Mark m = marks_.back();
        marks_.pop_back();
        const int width = m.big ? 8 : 4;
        const std::uint64_t n = bytes_.size() - m.at - static_cast<std::size_t>(width);
        for (int i = 0; i < width; ++i) {
            bytes_[m.at + static_cast<std::size_t>(i)] =
                static_cast<std::uint8_t>(n >> (8 * (width - 1 - i)));
        }
        return *this;
    }
    [[nodiscard]] std::size_t size() const { return bytes_.size(); }
    [[nodiscard]] const std::vector<std::uint8_t>& bytes() const { return bytes_; }
    operator const std::vector<std::uint8_t>&() const { return bytes_; } // NOLINT

  private:
    ByteBuilder& be(std::uint64_t v, int width)
    {
        for (int i = width - 1; i >= 0; --i) {
            bytes_.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
        }
        return *this;
    }
    struct Mark {
        std::size_t at;
        bool big;
    };
    std::vector<std::uint8_t> bytes_;
    std::vector<Mark> marks_;
};

} // namespace psdkit::testing
