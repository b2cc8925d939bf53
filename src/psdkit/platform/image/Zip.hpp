#pragma once
// ZIP channel coding: one zlib stream per plane, optionally after per-row prediction. Internal to
// the image core. The zlib work is done by libdeflate with whole-buffer calls; each thread keeps its
// own compressor and decompressor.
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace psdkit::detail {

/// The deflate level of the ZIP channels we write (see docs/decisions.md, "Image core" for the figures
/// behind the choice).
inline constexpr int zipCompressionLevel = 1;

/// Inflates the zlib stream `in` into exactly `out.size()` bytes. Throws
/// `ImageException(corruptZip)` when the stream is malformed, fails its checksum, inflates to fewer
/// or more bytes, or is followed by further bytes. An empty `in` is accepted only for an empty `out`.
void zlibInflate(std::span<const std::uint8_t> in, std::span<std::uint8_t> out);

/// Deflates `in` into a zlib stream at `level` (0…12). Throws `ImageException(compressionFailed)`
/// when no compressor can be made or the stream does not fit the library's bound.
[[nodiscard]] std::vector<std::uint8_t> zlibDeflate(std::span<const std::uint8_t> in,
                                                    int level = zipCompressionLevel);

// Prediction, one row at a time. `width` is the row's sample count.

/// 8-bit: each byte becomes its difference to the byte before (modulo 256), in place.
void deltaEncodeRow8(std::uint8_t* row, std::size_t width) noexcept;
/// Undoes `deltaEncodeRow8` in place.
void deltaDecodeRow8(std::uint8_t* row, std::size_t width) noexcept;

/// 16-bit: each big-endian sample of `row` becomes its difference to the sample before (modulo
/// 65536), in place, still big-endian.
void deltaEncodeRow16(std::uint8_t* row, std::size_t width) noexcept;
/// Undoes 16-bit prediction in place: `row` holds differences in the given byte order and ends up
/// holding the native-endian sample values.
void deltaDecodeRow16(std::uint8_t* row, std::size_t width, bool bigEndian) noexcept;

/// 32-bit float prediction: the row's floats are split into four byte planes, most significant byte
/// first (all first bytes, then all second bytes…), then every byte of the 4 × width bytes becomes
/// its difference to the byte before. Reads `width` big-endian floats, writes 4 × width bytes to
/// `out`. The byte planes are ordered by significance, so a channel's byte-order flag plays no part.
void floatPredictionEncodeRow(const std::uint8_t* bigEndianFloats, std::size_t width,
                              std::uint8_t* out) noexcept;
/// Undoes float prediction: `row` (4 × width bytes, used as scratch and changed) → `width`
/// native-endian floats in `nativeFloats`.
void floatPredictionDecodeRow(std::uint8_t* row, std::size_t width, std::uint8_t* nativeFloats) noexcept;

} // namespace psdkit::detail
