#include "psdkit/core/PSDWriter.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "psdkit/platform/text/TextEncoding.hpp"

namespace psdkit {
namespace {
void requireInRange(std::int64_t value, std::int64_t low, std::int64_t high)
{
    if (value < low || value > high) {
        throw PSDException(PSDError::writeParameterError);
    }
}
constexpr std::int64_t kInt32Min = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t kInt32Max = std::numeric_limits<std::int32_t>::max();
} // namespace

void PSDWriter::appendBigEndian(std::uint64_t bits, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i) {
        data_.push_back(static_cast<std::uint8_t>(bits >> (8 * i)));
    }
    flushWhenFull();
}

void PSDWriter::flush()
{
    if (sink_ != nullptr && !data_.empty()) {
        sink_->write(data_);
        passedOn_ += data_.size();
        data_.clear();
    }
}

void PSDWriter::appendData(std::span<const std::uint8_t> bytes)
{
    if (sink_ != nullptr && bytes.size() >= kBufferSize) {
        flush();
        sink_->write(bytes);
        passedOn_ += bytes.size();
        return;
    }
    data_.insert(data_.end(), bytes.begin(), bytes.end());
    flushWhenFull();
}

void PSDWriter::checkRange(std::int64_t offset, std::size_t count) const
{
    const auto written = static_cast<std::uint64_t>(size());
    if (offset < 0 || static_cast<std::uint64_t>(offset) > written ||
        written - static_cast<std::uint64_t>(offset) < count) {
        throw PSDException(PSDError::writeParameterError);
    }
}

// The part of the range already passed on goes to the sink, the rest is changed here.
void PSDWriter::overwrite(std::int64_t offset, std::span<const std::uint8_t> bytes)
{
    checkRange(offset, bytes.size());
    auto at = static_cast<std::uint64_t>(offset);
    if (at < passedOn_) {
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), passedOn_ - at));
        sink_->patch(at, bytes.first(count));
        bytes = bytes.subspan(count);
        at += count;
    }
    std::copy(bytes.begin(), bytes.end(), data_.begin() + static_cast<std::ptrdiff_t>(at - passedOn_));
}

void PSDWriter::setBigEndian(std::uint64_t bits, int bytes, std::int64_t offset)
{
    std::uint8_t encoded[8];
    for (int i = 0; i < bytes; ++i) {
        encoded[i] = static_cast<std::uint8_t>(bits >> (8 * (bytes - 1 - i)));
    }
    overwrite(offset, std::span(encoded, static_cast<std::size_t>(bytes)));
}

void PSDWriter::appendUInt8(std::int64_t value)
{
    requireInRange(value, 0, 255);
    data_.push_back(static_cast<std::uint8_t>(value));
    flushWhenFull();
}

void PSDWriter::appendInt16(std::int64_t value)
{
    requireInRange(value, -32768, 32767);
    appendBigEndian(static_cast<std::uint64_t>(value), 2);
}

void PSDWriter::appendUInt16(std::int64_t value)
{
    requireInRange(value, 0, 65535);
    appendBigEndian(static_cast<std::uint64_t>(value), 2);
}

void PSDWriter::appendInt32(std::int64_t value)
{
    requireInRange(value, kInt32Min, kInt32Max);
    appendBigEndian(static_cast<std::uint64_t>(value), 4);
}

void PSDWriter::appendUInt32(std::int64_t value)
{
    requireInRange(value, 0, 4294967295LL);
    appendBigEndian(static_cast<std::uint64_t>(value), 4);
}

void PSDWriter::appendInt64(std::int64_t value)
{
    appendBigEndian(static_cast<std::uint64_t>(value), 8);
}

void PSDWriter::appendFloat32(double value)
{
    appendBigEndian(std::bit_cast<std::uint32_t>(static_cast<float>(value)), 4);
}

void PSDWriter::appendFloat64(double value)
{
    appendBigEndian(std::bit_cast<std::uint64_t>(value), 8);
}

void PSDWriter::appendFixed32(double value)
{
    if (!std::isfinite(value) || value < 0.0 || value >= 65536.0) {
        throw PSDException(PSDError::writeParameterError);
    }
    double integral = 0;
    const double fraction = std::modf(value, &integral);
    const auto fractionBits = static_cast<std::int64_t>(fraction * 65535.0);
    appendBigEndian(static_cast<std::uint64_t>(integral), 2);
    appendBigEndian(static_cast<std::uint64_t>(fractionBits), 2);
}

void PSDWriter::appendFourCharCode(const PSDFourCharCode& code)
{
    const auto bytes = detail::utf8ToMacRoman(code.rawValue(), false);
    if (!bytes || bytes->size() != 4) {
        throw PSDException(PSDError::writeUnknownError);
    }
    appendData(*bytes);
}

void PSDWriter::appendMacRect(const PSDMacRect& rect)
{
    for (const auto v : {rect.top, rect.left, rect.bottom, rect.right}) {
        requireInRange(v, kInt32Min, kInt32Max);
    }
    appendInt32(rect.top);
    appendInt32(rect.left);
    appendInt32(rect.bottom);
    appendInt32(rect.right);
}

void PSDWriter::appendPadding(std::int64_t count)
{
    if (count < 0) {
        throw PSDException(PSDError::writeParameterError);
    }
    data_.resize(data_.size() + static_cast<std::size_t>(count), 0);
    flushWhenFull();
}

void PSDWriter::appendPascalString(std::string_view text, std::int64_t padding)
{
    if (padding < 0) {
        throw PSDException(PSDError::writeParameterError);
    }
    const auto bytes = detail::utf8ToMacRoman(text, true);
    if (!bytes) {
        throw PSDException(PSDError::writeUnknownError);
    }
    const std::size_t length = bytes->size() < 255 ? bytes->size() : 255;
    data_.push_back(static_cast<std::uint8_t>(length));
    appendData(std::span(*bytes).first(length));
    const auto written = static_cast<std::int64_t>(1 + length);
    if (padding != 0 && written % padding != 0) {
        appendPadding(padding - written % padding);
    }
}

void PSDWriter::appendUnicodeString(std::string_view text, bool zeroTerminated, std::int64_t padding)
{
    if (padding < 0) {
        throw PSDException(PSDError::writeParameterError);
    }
    auto bytes = detail::utf8ToUtf16be(text);
    if (!bytes) {
        throw PSDException(PSDError::writeUnknownError);
    }
    const bool endsWithZero = !text.empty() && text.back() == '\0';
    if (zeroTerminated && !endsWithZero) {
        bytes->push_back(0);
        bytes->push_back(0);
    }
    const std::int64_t units = static_cast<std::int64_t>(bytes->size() / 2);
    if (units > kInt32Max) {
        throw PSDException(PSDError::writeParameterError);
    }
    appendBigEndian(static_cast<std::uint64_t>(units), 4);
    appendData(*bytes);
    const std::int64_t written = 4 + 2 * units;
    if (padding != 0 && written % padding != 0) {
        appendPadding(padding - written % padding);
    }
}

void PSDWriter::appendCString(std::string_view text)
{
    const auto bytes = detail::utf8ToMacRoman(text, false);
    if (!bytes) {
        throw PSDException(PSDError::writeUnknownError);
    }
    if (bytes->size() > static_cast<std::size_t>(kInt32Max)) {
        throw PSDException(PSDError::writeParameterError);
    }
    appendBigEndian(bytes->size(), 4);
    appendData(*bytes);
}

void PSDWriter::setInt16(std::int64_t value, std::int64_t offset)
{
    requireInRange(value, -32768, 32767);
    setBigEndian(static_cast<std::uint64_t>(value), 2, offset);
}

void PSDWriter::setInt32(std::int64_t value, std::int64_t offset)
{
    requireInRange(value, kInt32Min, kInt32Max);
    setBigEndian(static_cast<std::uint64_t>(value), 4, offset);
}

void PSDWriter::setInt64(std::int64_t value, std::int64_t offset)
{
    setBigEndian(static_cast<std::uint64_t>(value), 8, offset);
}

void PSDWriter::finishDataBlock(bool big, std::int64_t padding, bool lengthIncludesPadding,
                                std::int64_t lengthAt, std::int64_t bodyAt)
{
    if (padding < 0) {
        throw PSDException(PSDError::writeParameterError);
    }
    std::int64_t bodyLength = size() - bodyAt;
    if (padding != 0 && bodyLength % padding != 0) {
        appendPadding(padding - bodyLength % padding);
    }
    if (lengthIncludesPadding) {
        bodyLength = size() - bodyAt;
    }
    if (big) {
        setInt64(bodyLength, lengthAt);
    } else {
        if (bodyLength > kInt32Max) {
            throw PSDException(PSDError::writeParameterError);
        }
        setInt32(bodyLength, lengthAt);
    }
}

} // namespace psdkit
