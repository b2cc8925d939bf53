#pragma once
// PSDWriter: builds the bytes of a file or block from front to back, big-endian, mirroring what
// PSDScanner reads. A value that does not fit its field is refused with
// `PSDException(writeParameterError)` before any of its bytes is written; text that cannot be
// encoded as required is refused with `writeUnknownError`, also before any byte is written.
#include "psdkit/Export.hpp"
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "psdkit/core/PSDError.hpp"
#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/core/PSDMacRect.hpp"

namespace psdkit {

/// A growing big-endian byte buffer with range-checked appends. It owns its bytes until
/// `takeData()` hands them over. Not copyable; one thread at a time.
class PSDKIT_EXPORT PSDWriter {
public:
    PSDWriter() = default;
    PSDWriter(const PSDWriter&) = delete;
    PSDWriter& operator=(const PSDWriter&) = delete;

    /// Everything written so far.
    [[nodiscard]] const std::vector<std::uint8_t>& data() const noexcept { return data_; }
    /// Hands the bytes to the caller and leaves the writer empty.
    [[nodiscard]] std::vector<std::uint8_t> takeData() noexcept { return std::exchange(data_, {}); }
    /// Current length of `data()`.
    [[nodiscard]] std::int64_t size() const noexcept { return static_cast<std::int64_t>(data_.size()); }
    /// Reserves room for `bytes` more bytes (a hint; never needed for correctness).
    void reserve(std::size_t bytes) { data_.reserve(data_.size() + bytes); }

    /// @name Appending numbers
    /// Each checks the value's range (`PSDException(writeParameterError)`) before writing.
    ///@{
    void appendUInt8(std::int64_t value);   ///< 0 to 255
    void appendInt16(std::int64_t value);   ///< -32768 to 32767
    void appendUInt16(std::int64_t value);  ///< 0 to 65535
    void appendInt32(std::int64_t value);   ///< signed 32-bit range
    void appendUInt32(std::int64_t value);  ///< 0 to 4294967295
    void appendInt64(std::int64_t value);   ///< any
    void appendFloat32(double value);       ///< rounded to single precision
    void appendFloat64(double value);       ///< any
    ///@}
    /// 16.16 fixed point: integer part unsigned, fraction × 65535 truncated. The value must be
    /// finite with 0 <= value < 65536 (writeParameterError otherwise).
    void appendFixed32(double value);
    /// The code's four Mac OS Roman bytes; writeUnknownError when they are not exactly four.
    void appendFourCharCode(const PSDFourCharCode& code);
    /// Top, left, bottom, right as signed 32-bit; each must fit (writeParameterError).
    void appendMacRect(const PSDMacRect& rect);
    /// The bytes unchanged.
    void appendData(std::span<const std::uint8_t> bytes) { data_.insert(data_.end(), bytes.begin(), bytes.end()); }
    /// `count` zero bytes; count must be >= 0 (writeParameterError).
    void appendPadding(std::int64_t count);
    /// Length byte and Mac OS Roman text (lossy: unencodable characters become '?', one byte each),
    /// cut to 255 bytes, then zero bytes so that 1 + length is a multiple of `padding` (0: none).
    void appendPascalString(std::string_view text, std::int64_t padding);
    /// 32-bit count of UTF-16 units and the UTF-16BE text; with `zeroTerminated` a U+0000 is added
    /// unless the text already ends with one; then zero bytes so that the whole is a multiple of
    /// `padding` (0: none). writeUnknownError for text that is not valid UTF-8.
    void appendUnicodeString(std::string_view text, bool zeroTerminated, std::int64_t padding);
    /// 32-bit byte count and the Mac OS Roman text (strict); writeUnknownError when the text has no
    /// Mac OS Roman form.
    void appendCString(std::string_view text);

    /// @name Overwriting bytes already written
    /// The value must fit and the range must lie inside `data()` (`PSDException(writeParameterError)`).
    ///@{
    void setInt16(std::int64_t value, std::int64_t offset); ///< Two bytes at `offset`, signed 16-bit range.
    void setInt32(std::int64_t value, std::int64_t offset); ///< Four bytes at `offset`, signed 32-bit range.
    void setInt64(std::int64_t value, std::int64_t offset); ///< Eight bytes at `offset`.
    ///@}
    /// Overwrites the bytes at `offset` with the memory bytes of `value`, in the host's byte order.
    template <typename T>
        requires std::is_trivially_copyable_v<T>
    void replace(const T& value, std::int64_t offset)
    {
        checkRange(offset, sizeof(T));
        std::memcpy(data_.data() + offset, &value, sizeof(T));
    }

    /// Writes a length-prefixed block: a placeholder length (8 bytes when `big`, else 4), the body
    /// that `dataWriter(*this)` appends, zero bytes that align the body length to `padding` (0:
    /// none), and finally the length patched in, counting the padding only when
    /// `lengthIncludesPadding`. A 4-byte length above 2147483647 is writeParameterError. Whatever
    /// `dataWriter` throws passes through; the partial block then stays in `data()`.
    template <typename DataWriter>
    void writePSDDataBlock(bool big, std::int64_t padding, bool lengthIncludesPadding, DataWriter&& dataWriter)
    {
        const std::int64_t lengthAt = size();
        appendPadding(big ? 8 : 4);
        const std::int64_t bodyAt = size();
        std::forward<DataWriter>(dataWriter)(*this);
        finishDataBlock(big, padding, lengthIncludesPadding, lengthAt, bodyAt);
    }

private:
    void checkRange(std::int64_t offset, std::size_t count) const;
    void appendBigEndian(std::uint64_t bits, int bytes);
    void setBigEndian(std::uint64_t bits, int bytes, std::int64_t offset);
    void finishDataBlock(bool big, std::int64_t padding, bool lengthIncludesPadding, std::int64_t lengthAt,
                         std::int64_t bodyAt);

    std::vector<std::uint8_t> data_;
};

} // namespace psdkit
