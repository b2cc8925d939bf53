#include "psdkit/core/PSDScanner.hpp"

#include <bit>
#include <cstring>

#include "psdkit/platform/text/TextEncoding.hpp"

namespace psdkit {

template <typename T> T PSDScanner::readBigEndian()
{
    const std::uint8_t* p = require(static_cast<std::int64_t>(sizeof(T)));
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        v = (v << 8) | p[i];
    }
    offset_ += static_cast<std::int64_t>(sizeof(T));
    return static_cast<T>(v);
}

void PSDScanner::seek(std::int64_t position)
{
    if (position < 0) {
        throw PSDException(PSDError::readParameterError);
    }
    offset_ = position;
}

std::int64_t PSDScanner::scanUInt8()
{
    return readBigEndian<std::uint8_t>();
}
std::int64_t PSDScanner::scanInt16()
{
    return static_cast<std::int16_t>(readBigEndian<std::uint16_t>());
}
std::int64_t PSDScanner::scanUInt16()
{
    return readBigEndian<std::uint16_t>();
}
std::int64_t PSDScanner::scanInt32()
{
    return static_cast<std::int32_t>(readBigEndian<std::uint32_t>());
}
std::int64_t PSDScanner::scanUInt32()
{
    return readBigEndian<std::uint32_t>();
}
std::int64_t PSDScanner::scanInt64()
{
    return static_cast<std::int64_t>(readBigEndian<std::uint64_t>());
}

double PSDScanner::scanFloat32()
{
    return static_cast<double>(std::bit_cast<float>(readBigEndian<std::uint32_t>()));
}
double PSDScanner::scanFloat64()
{
    return std::bit_cast<double>(readBigEndian<std::uint64_t>());
}

double PSDScanner::scanFixed32()
{
    const auto integer = scanInt16();
    const auto fraction = scanUInt16();
    return static_cast<double>(integer) + static_cast<double>(fraction) / 65535.0;
}

PSDFourCharCode PSDScanner::scanFourCharCode()
{
    const std::uint8_t* p = require(4);
    std::string decoded = detail::macRomanToUtf8({p, 4});
    offset_ += 4;
    return PSDFourCharCode(std::move(decoded));
}

PSDMacRect PSDScanner::scanMacRect()
{
    PSDMacRect r;
    r.top = scanInt32();
    r.left = scanInt32();
    r.bottom = scanInt32();
    r.right = scanInt32();
    if (r.bottom < r.top || r.right < r.left) {
        throw PSDException(PSDError::readCorruptFile);
    }
    return r;
}

std::string PSDScanner::scanPascalString()
{
    const auto n = scanUInt8();
    const std::uint8_t* p = require(n);
    offset_ += n;
    return detail::macRomanToUtf8({p, static_cast<std::size_t>(n)});
}

std::string PSDScanner::scanUnicodeString()
{
    const auto n = scanInt32();
    if (n < 1) {
        return {};
    }
    const std::uint8_t* p = require(2 * n);
    auto text = detail::utf16beToUtf8({p, static_cast<std::size_t>(2 * n)});
    if (!text) {
        throw PSDException(PSDError::readUnknownError); // an unpaired surrogate
    }
    offset_ += 2 * n;
    return std::move(*text);
}

std::string PSDScanner::scanCString()
{
    const auto n = scanInt32();
    if (n < 1) {
        return {};
    }
    const std::uint8_t* p = require(n);
    offset_ += n;
    return detail::macRomanToUtf8({p, static_cast<std::size_t>(n)});
}

std::span<const std::uint8_t> PSDScanner::scanBytes(std::int64_t n)
{
    if (n < 0) {
        throw PSDException(PSDError::readParameterError);
    }
    const std::uint8_t* p = require(n);
    offset_ += n;
    return {p, static_cast<std::size_t>(n)};
}

std::vector<std::uint8_t> PSDScanner::scanData(std::int64_t n)
{
    const auto bytes = scanBytes(n);
    return {bytes.begin(), bytes.end()};
}

PSDSharedBytes PSDScanner::scanSharedData(std::int64_t n)
{
    const auto bytes = scanBytes(n);
    if (!isShared_) {
        return PSDSharedBytes::copyOf(bytes);
    }
    return PSDSharedBytes(shared_.owner(), bytes);
}

void PSDScanner::skip(std::int64_t n)
{
    if (n < 0) {
        throw PSDException(PSDError::readParameterError);
    }
    require(n);
    offset_ += n;
}

void PSDScanner::skipBackwards(std::int64_t n)
{
    if (n < 0 || n > offset_) {
        throw PSDException(PSDError::readParameterError);
    }
    offset_ -= n;
}

} // namespace psdkit
