#include "psdkit/platform/image/Zip.hpp"

#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <new>

#include <libdeflate.h>

#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/image/Interleave.hpp"
#include "psdkit/platform/image/LargeAllocation.hpp"

namespace psdkit::detail {

using namespace image; // this file implements part of the image core
namespace {

struct DecompressorFree {
    void operator()(libdeflate_decompressor* d) const noexcept { libdeflate_free_decompressor(d); }
};
struct CompressorFree {
    void operator()(libdeflate_compressor* c) const noexcept { libdeflate_free_compressor(c); }
};

libdeflate_decompressor& threadDecompressor()
{
    thread_local std::unique_ptr<libdeflate_decompressor, DecompressorFree> decompressor;
    if (!decompressor) {
        decompressor.reset(libdeflate_alloc_decompressor());
        if (!decompressor) {
            throw std::bad_alloc();
        }
    }
    return *decompressor;
}

libdeflate_compressor* threadCompressor(int level)
{
    thread_local std::array<std::unique_ptr<libdeflate_compressor, CompressorFree>, 13> compressors;
    if (level < 0 || level > 12) {
        return nullptr;
    }
    auto& slot = compressors[static_cast<std::size_t>(level)];
    if (!slot) {
        slot.reset(libdeflate_alloc_compressor(level));
    }
    return slot.get();
}

std::uint16_t loadU16(const std::uint8_t* p, bool bigEndian) noexcept
{
    return bigEndian ? static_cast<std::uint16_t>(p[0] << 8 | p[1])
                     : static_cast<std::uint16_t>(p[1] << 8 | p[0]);
}

} // namespace

void zlibInflate(std::span<const std::uint8_t> in, std::span<std::uint8_t> out)
{
    if (in.empty()) {
        if (!out.empty()) {
            throw ImageException(ImageError::corruptZip);
        }
        return;
    }
    std::size_t inUsed = 0;
    std::size_t outUsed = 0;
    const libdeflate_result result = libdeflate_zlib_decompress_ex(
        &threadDecompressor(), in.data(), in.size(), out.data(), out.size(), &inUsed, &outUsed);
    if (result != LIBDEFLATE_SUCCESS || inUsed != in.size() || outUsed != out.size()) {
        throw ImageException(ImageError::corruptZip);
    }
}

std::vector<std::uint8_t> zlibDeflate(std::span<const std::uint8_t> in, int level)
{
    libdeflate_compressor* compressor = threadCompressor(level);
    if (compressor == nullptr) {
        throw ImageException(ImageError::compressionFailed);
    }
    const std::size_t bound = libdeflate_zlib_compress_bound(compressor, in.size());
    const LargeAllocation out = allocateLarge(bound);
    const std::size_t n = libdeflate_zlib_compress(compressor, in.data(), in.size(), out.get(), bound);
    if (n == 0) {
        throw ImageException(ImageError::compressionFailed);
    }
    return {out.get(), out.get() + n};
}

void deltaEncodeRow8(std::uint8_t* row, std::size_t width) noexcept
{
    for (std::size_t i = width; i-- > 1;) {
        row[i] = static_cast<std::uint8_t>(row[i] - row[i - 1]);
    }
}

void deltaDecodeRow8(std::uint8_t* row, std::size_t width) noexcept
{
    std::uint8_t sum = 0;
    std::size_t i = 0;
#if defined(__SSE2__)
    // Prefix sums of 16 bytes in four shifted additions, plus the running sum of the blocks before.
    for (; i + 16 <= width; i += 16) {
        __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + i));
        x = _mm_add_epi8(x, _mm_slli_si128(x, 1));
        x = _mm_add_epi8(x, _mm_slli_si128(x, 2));
        x = _mm_add_epi8(x, _mm_slli_si128(x, 4));
        x = _mm_add_epi8(x, _mm_slli_si128(x, 8));
        x = _mm_add_epi8(x, _mm_set1_epi8(static_cast<char>(sum)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row + i), x);
        sum = row[i + 15];
    }
#endif
    for (; i < width; ++i) {
        sum = static_cast<std::uint8_t>(sum + row[i]);
        row[i] = sum;
    }
}

void deltaEncodeRow16(std::uint8_t* row, std::size_t width) noexcept
{
    std::uint16_t previous = 0;
    for (std::size_t i = 0; i < width; ++i) {
        const std::uint16_t value = loadU16(row + 2 * i, true);
        const auto d = static_cast<std::uint16_t>(value - previous);
        previous = value;
        row[2 * i] = static_cast<std::uint8_t>(d >> 8);
        row[2 * i + 1] = static_cast<std::uint8_t>(d);
    }
}

void deltaDecodeRow16(std::uint8_t* row, std::size_t width, bool bigEndian) noexcept
{
    std::uint16_t sum = 0;
    std::size_t i = 0;
#if defined(__SSE2__)
    // Native order is little-endian wherever SSE2 exists.
    __m128i carry = _mm_setzero_si128();
    for (; i + 8 <= width; i += 8) {
        __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + 2 * i));
        if (bigEndian) {
            x = _mm_or_si128(_mm_slli_epi16(x, 8), _mm_srli_epi16(x, 8));
        }
        x = _mm_add_epi16(x, _mm_slli_si128(x, 2));
        x = _mm_add_epi16(x, _mm_slli_si128(x, 4));
        x = _mm_add_epi16(x, _mm_slli_si128(x, 8));
        x = _mm_add_epi16(x, carry);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(row + 2 * i), x);
        carry = _mm_shuffle_epi32(_mm_shufflehi_epi16(x, 0xFF), 0xFF); // the last sum in every lane
    }
    sum = static_cast<std::uint16_t>(_mm_cvtsi128_si32(carry));
#endif
    for (; i < width; ++i) {
        sum = static_cast<std::uint16_t>(sum + loadU16(row + 2 * i, bigEndian));
        std::memcpy(row + 2 * i, &sum, 2);
    }
}

void floatPredictionEncodeRow(const std::uint8_t* bigEndianFloats, std::size_t width,
                              std::uint8_t* out) noexcept
{
    for (std::size_t i = 0; i < width; ++i) {
        const std::uint8_t* f = bigEndianFloats + 4 * i;
        out[i] = f[0];
        out[width + i] = f[1];
        out[2 * width + i] = f[2];
        out[3 * width + i] = f[3];
    }
    deltaEncodeRow8(out, 4 * width);
}

void floatPredictionDecodeRow(std::uint8_t* row, std::size_t width, std::uint8_t* nativeFloats) noexcept
{
    deltaDecodeRow8(row, 4 * width);
    if constexpr (std::endian::native == std::endian::little) {
        // A little-endian float is its byte planes interleaved least significant first.
        const std::uint8_t* planes[4] = {row + 3 * width, row + 2 * width, row + width, row};
        interleave4<std::uint8_t>(planes, nativeFloats, width);
    } else {
        const std::uint8_t* planes[4] = {row, row + width, row + 2 * width, row + 3 * width};
        interleave4<std::uint8_t>(planes, nativeFloats, width);
    }
}

} // namespace psdkit::detail
