#pragma once
// PSDScanner: the cursor through which every byte of a file is read. It borrows the bytes (the
// caller keeps them alive and unchanged) and decodes the format's big-endian scalars, strings,
// codes and rectangles. Every read checks that its bytes are there before it touches them and
// throws `PSDException(readUnexpectedEndOfFile)` otherwise; nothing is ever read outside the view.
#include "psdkit/Export.hpp"
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "psdkit/core/PSDError.hpp"
#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/core/PSDMacRect.hpp"
#include "psdkit/core/PSDSharedBytes.hpp"

namespace psdkit {

/// A bounds-checked big-endian reader over borrowed bytes. It does not own the bytes: they must
/// outlive the scanner and stay unchanged. Not copyable; one thread at a time.
class PSDKIT_EXPORT PSDScanner {
  public:
    /// A scanner over `buffer`, cursor at 0. The bytes are borrowed, not copied.
    explicit PSDScanner(std::span<const std::uint8_t> buffer) noexcept
        : begin_(buffer.data()), length_(buffer.data() ? static_cast<std::int64_t>(buffer.size()) : 0)
    {
    }
    /// A scanner over shared bytes, cursor at 0: `scanSharedData` then hands out views that share
    /// `buffer`'s storage instead of copies.
    explicit PSDScanner(const PSDSharedBytes& buffer) noexcept : PSDScanner(buffer.span())
    {
        shared_ = buffer;
        isShared_ = true;
    }
    PSDScanner(const PSDScanner&) = delete;
    PSDScanner& operator=(const PSDScanner&) = delete;

    /// Number of bytes in the view.
    [[nodiscard]] std::int64_t length() const noexcept { return length_; }
    /// The cursor: index of the next byte to read.
    [[nodiscard]] std::int64_t offset() const noexcept { return offset_; }
    /// `length() - offset()`; negative after a seek past the end.
    [[nodiscard]] std::int64_t bytesRemaining() const noexcept { return length_ - offset_; }

    /// Moves the cursor to `position` without checking it against the end: a declared section
    /// end may lie beyond the file, and every later read then fails. For the library's readers.
    /// A negative position is refused with `readParameterError`.
    void seek(std::int64_t position);

    /// @name Fixed-size reads
    /// Each throws `PSDException(readUnexpectedEndOfFile)` (cursor unchanged) when short.
    ///@{
    [[nodiscard]] std::int64_t scanUInt8();  ///< One byte, 0 to 255.
    [[nodiscard]] std::int64_t scanInt16();  ///< Two bytes, signed.
    [[nodiscard]] std::int64_t scanUInt16(); ///< Two bytes, unsigned.
    [[nodiscard]] std::int64_t scanInt32();  ///< Four bytes, signed.
    [[nodiscard]] std::int64_t scanUInt32(); ///< Four bytes, unsigned.
    [[nodiscard]] std::int64_t scanInt64();  ///< Eight bytes, signed.
    [[nodiscard]] double scanFloat32();      ///< An IEEE single-precision float, widened.
    [[nodiscard]] double scanFloat64();      ///< An IEEE double-precision float.
    ///@}
    /// 16.16 fixed point: signed integer part plus fraction / 65535.
    [[nodiscard]] double scanFixed32();
    /// Four Mac OS Roman bytes; readParameterError (cursor advanced) when they do not form four
    /// characters.
    [[nodiscard]] PSDFourCharCode scanFourCharCode();
    /// Top, left, bottom, right as signed 32-bit; readCorruptFile (cursor advanced by 16) when
    /// bottom < top or right < left.
    [[nodiscard]] PSDMacRect scanMacRect();

    /// A length byte n and n Mac OS Roman bytes; no padding is consumed. The cursor moves by
    /// exactly 1 + n, so callers that pad on bytes measure the cursor, not the text.
    [[nodiscard]] std::string scanPascalString();
    /// A signed 32-bit count n of UTF-16 units and 2n bytes; n < 1 gives "" (4 bytes consumed).
    /// A terminating U+0000 in the file is kept. Text with an unpaired surrogate cannot be decoded:
    /// readUnknownError.
    [[nodiscard]] std::string scanUnicodeString();
    /// A signed 32-bit count n and n Mac OS Roman bytes; n < 1 gives "".
    [[nodiscard]] std::string scanCString();

    /// A copy of the next n bytes. readParameterError for n < 0.
    [[nodiscard]] std::vector<std::uint8_t> scanData(std::int64_t n);
    /// The next n bytes as a view into the borrowed buffer (no copy); valid as long as the
    /// buffer. readParameterError for n < 0.
    [[nodiscard]] std::span<const std::uint8_t> scanBytes(std::int64_t n);
    /// The next n bytes as shared bytes: a view sharing the input's storage when the scanner was
    /// made from `PSDSharedBytes`, else an owned copy. readParameterError for n < 0.
    [[nodiscard]] PSDSharedBytes scanSharedData(std::int64_t n);
    /// True when the scanner was made from `PSDSharedBytes` (so `scanSharedData` copies nothing).
    [[nodiscard]] bool sharesInput() const noexcept { return isShared_; }
    /// Moves forward n bytes; to exactly the end is allowed. readParameterError for n < 0.
    void skip(std::int64_t n);
    /// Moves back n bytes; readParameterError when n < 0 or n > offset().
    void skipBackwards(std::int64_t n);

  private:
    // Throws readUnexpectedEndOfFile unless k bytes remain; returns a pointer to them.
    const std::uint8_t* require(std::int64_t k) const
    {
        if (length_ - offset_ < k) {
            throw PSDException(PSDError::readUnexpectedEndOfFile);
        }
        return begin_ + offset_;
    }
    template <typename T> T readBigEndian();

    const std::uint8_t* begin_;
    std::int64_t length_;
    std::int64_t offset_ = 0;
    PSDSharedBytes shared_;
    bool isShared_ = false;
};

} // namespace psdkit
