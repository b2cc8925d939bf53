#pragma once
// PackBits, the byte-oriented run-length code of channel rows. Each row is coded on its own: a header
// byte h followed by h + 1 literal bytes (h 0…127), or by one byte repeated 1 − h times (h −127…−1);
// h = −128 is a no-op. Internal to the image core; free of allocation.
#include <cstddef>
#include <cstdint>
#include <span>

namespace psdkit::detail {

/// Decodes one row. `in` must decode to exactly `out.size()` bytes: every byte of `in` is used (a
/// trailing no-op header is allowed), no run reaches past `out` or past `in`. Otherwise throws
/// `ImageException(corruptPackBits)`; `out` may then hold part of the row.
void packBitsDecodeRow(std::span<const std::uint8_t> in, std::span<std::uint8_t> out);

/// The writable bytes `packBitsDecodeRowPadded` needs after the end of its output.
inline constexpr std::size_t packBitsOutputPadding = 16;

/// The same as `packBitsDecodeRow`, faster on short runs: it copies in blocks of 16 bytes and may
/// therefore overwrite the `packBitsOutputPadding` bytes after `out`, which must be writable. It
/// never reads outside `in`.
void packBitsDecodeRowPadded(std::span<const std::uint8_t> in, std::span<std::uint8_t> out);

/// The most bytes `packBitsEncodeRow` writes for a row of `rowBytes` bytes: one header per 128 bytes
/// in the worst case (no runs at all).
[[nodiscard]] constexpr std::size_t packBitsRowBound(std::size_t rowBytes) noexcept
{
    return rowBytes + (rowBytes + 127) / 128;
}

/// The fewest bytes any PackBits row that decodes to `rowBytes` bytes can have: two per 128 bytes.
[[nodiscard]] constexpr std::size_t packBitsMinimumRowSize(std::size_t rowBytes) noexcept
{
    return 2 * ((rowBytes + 127) / 128);
}

/// Encodes one row into `out`, which must hold at least `packBitsRowBound(in.size())` bytes, and
/// returns the number of bytes written. Runs of three or more equal bytes become repeat runs; all
/// other bytes go into literal runs. Never throws.
[[nodiscard]] std::size_t packBitsEncodeRow(std::span<const std::uint8_t> in,
                                            std::span<std::uint8_t> out) noexcept;

} // namespace psdkit::detail
