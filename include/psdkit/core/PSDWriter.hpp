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
#include "psdkit/core/PSDOutputSink.hpp"

namespace psdkit {

/// A big-endian byte writer with range-checked appends. A writer made without a sink keeps every
/// byte in memory and owns them until `takeData()` hands them over. A writer on a sink passes the
/// bytes on as it goes, keeping only a small buffer; it overwrites lengths in that buffer or, once
/// passed on, through `PSDOutputSink::patch`. Whatever the sink throws passes through unchanged.
/// Not copyable; one thread at a time.
class PSDKIT_EXPORT PSDWriter {
  public:
    PSDWriter() = default;
    /// A writer that passes its bytes on to `sink`, which must outlive it. Call `flush()` at the
    /// end: until then the last bytes may still be held here.
    explicit PSDWriter(PSDOutputSink& sink) noexcept : sink_(&sink) {}
    PSDWriter(const PSDWriter&) = delete;
    PSDWriter& operator=(const PSDWriter&) = delete;

    /// Everything written so far (on a sink: the bytes not yet passed on).
    [[nodiscard]] const std::vector<std::uint8_t>& data() const noexcept { return data_; }
    /// Hands the bytes held here to the caller and leaves the writer empty (in memory only).
    [[nodiscard]] std::vector<std::uint8_t> takeData() noexcept { return std::exchange(data_, {}); }
    /// How many bytes were written so far, passed on or not.
    [[nodiscard]] std::int64_t size() const noexcept
    {
        return static_cast<std::int64_t>(passedOn_ + data_.size());
    }
    /// Reserves room for `bytes` more bytes (a hint for writers in memory; ignored on a sink).
    void reserve(std::size_t bytes)
    {
        if (sink_ == nullptr) {
            data_.reserve(data_.size() + bytes);
        }
    }
    /// Passes the bytes held here on to the sink (nothing to do in memory).
    void flush();

    /// @name Appending numbers
    /// Each checks the value's range (`PSDException(writeParameterError)`) before writing.
    ///@{
    void appendUInt8(std::int64_t value);  ///< 0 to 255
    void appendInt16(std::int64_t value);  ///< -32768 to 32767
    void appendUInt16(std::int64_t value); ///< 0 to 65535
    void appendInt32(std::int64_t value);  ///< signed 32-bit range
    void appendUInt32(std::int64_t value); ///< 0 to 4294967295
    void appendInt64(std::int64_t value);  ///< any
    void appendFloat32(double value);      ///< rounded to single precision
    void appendFloat64(double value);      ///< any
    ///@}
    /// 16.16 fixed point: integer part unsigned, fraction × 65535 truncated. The value must be
    /// finite with 0 <= value < 65536 (writeParameterError otherwise).
    void appendFixed32(double value);
    /// The code's four Mac OS Roman bytes; writeUnknownError when they are not exactly four.
    void appendFourCharCode(const PSDFourCharCode& code);
    /// Top, left, bottom, right as signed 32-bit; each must fit (writeParameterError).
    void appendMacRect(const PSDMacRect& rect);
    /// The bytes unchanged.
    void appendData(std::span<const std::uint8_t> bytes);
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
    /// The value must fit and the range must lie inside what was written so far
    /// (`PSDException(writeParameterError)`).
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
        std::uint8_t bytes[sizeof(T)];
        std::memcpy(bytes, &value, sizeof(T));
        overwrite(offset, bytes);
    }

    /// Writes a length-prefixed block: a placeholder length (8 bytes when `big`, else 4), the body
    /// that `dataWriter(*this)` appends, zero bytes that align the body length to `padding` (0:
    /// none), and finally the length patched in, counting the padding only when
    /// `lengthIncludesPadding`. A 4-byte length above 2147483647 is writeParameterError. Whatever
    /// `dataWriter` throws passes through; the partial block then stays in `data()`.
    template <typename DataWriter>
    void writePSDDataBlock(bool big, std::int64_t padding, bool lengthIncludesPadding,
                           DataWriter&& dataWriter)
    {
        const std::int64_t lengthAt = size();
        appendPadding(big ? 8 : 4);
        const std::int64_t bodyAt = size();
        std::forward<DataWriter>(dataWriter)(*this);
        finishDataBlock(big, padding, lengthIncludesPadding, lengthAt, bodyAt);
    }

  private:
    void checkRange(std::int64_t offset, std::size_t count) const;
    void overwrite(std::int64_t offset, std::span<const std::uint8_t> bytes);
    void flushWhenFull()
    {
        if (sink_ != nullptr && data_.size() >= kBufferSize) {
            flush();
        }
    }
    void appendBigEndian(std::uint64_t bits, int bytes);
    void setBigEndian(std::uint64_t bits, int bytes, std::int64_t offset);
    void finishDataBlock(bool big, std::int64_t padding, bool lengthIncludesPadding, std::int64_t lengthAt,
                         std::int64_t bodyAt);

    // On a sink, bytes are passed on once this many are held; larger appends go straight through.
    static constexpr std::size_t kBufferSize = std::size_t{1} << 16;

    std::vector<std::uint8_t> data_; // in memory: everything; on a sink: the bytes not passed on
    PSDOutputSink* sink_ = nullptr;
    std::uint64_t passedOn_ = 0; // bytes handed to the sink so far
};

} // namespace psdkit
