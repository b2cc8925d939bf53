#pragma once
// Internal to the image core: moving samples between planar rows and interleaved pixel rows.
// All samples here are native-endian; byte order is dealt with before and after.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace psdkit::detail {

/// Interleaves four rows of `width` samples of `Sample` (given in the pixel's memory order) into
/// `dst`, which receives 4 × width samples.
template <typename Sample>
inline void interleave4(const std::uint8_t* const src[4], std::uint8_t* dst, std::size_t width) noexcept
{
    constexpr std::size_t s = sizeof(Sample);
    std::size_t i = 0;
#if defined(__SSE2__)
    if constexpr (s == 1) {
        for (; i + 16 <= width; i += 16) {
            const __m128i c0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[0] + i));
            const __m128i c1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[1] + i));
            const __m128i c2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[2] + i));
            const __m128i c3 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[3] + i));
            const __m128i lo01 = _mm_unpacklo_epi8(c0, c1);
            const __m128i hi01 = _mm_unpackhi_epi8(c0, c1);
            const __m128i lo23 = _mm_unpacklo_epi8(c2, c3);
            const __m128i hi23 = _mm_unpackhi_epi8(c2, c3);
            auto* out = reinterpret_cast<__m128i*>(dst + 4 * i);
            _mm_storeu_si128(out, _mm_unpacklo_epi16(lo01, lo23));
            _mm_storeu_si128(out + 1, _mm_unpackhi_epi16(lo01, lo23));
            _mm_storeu_si128(out + 2, _mm_unpacklo_epi16(hi01, hi23));
            _mm_storeu_si128(out + 3, _mm_unpackhi_epi16(hi01, hi23));
        }
    } else if constexpr (s == 2) {
        for (; i + 8 <= width; i += 8) {
            const __m128i c0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[0] + 2 * i));
            const __m128i c1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[1] + 2 * i));
            const __m128i c2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[2] + 2 * i));
            const __m128i c3 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[3] + 2 * i));
            const __m128i lo01 = _mm_unpacklo_epi16(c0, c1);
            const __m128i hi01 = _mm_unpackhi_epi16(c0, c1);
            const __m128i lo23 = _mm_unpacklo_epi16(c2, c3);
            const __m128i hi23 = _mm_unpackhi_epi16(c2, c3);
            auto* out = reinterpret_cast<__m128i*>(dst + 8 * i);
            _mm_storeu_si128(out, _mm_unpacklo_epi32(lo01, lo23));
            _mm_storeu_si128(out + 1, _mm_unpackhi_epi32(lo01, lo23));
            _mm_storeu_si128(out + 2, _mm_unpacklo_epi32(hi01, hi23));
            _mm_storeu_si128(out + 3, _mm_unpackhi_epi32(hi01, hi23));
        }
    } else {
        for (; i + 4 <= width; i += 4) {
            const __m128i c0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[0] + 4 * i));
            const __m128i c1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[1] + 4 * i));
            const __m128i c2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[2] + 4 * i));
            const __m128i c3 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src[3] + 4 * i));
            const __m128i lo01 = _mm_unpacklo_epi32(c0, c1);
            const __m128i hi01 = _mm_unpackhi_epi32(c0, c1);
            const __m128i lo23 = _mm_unpacklo_epi32(c2, c3);
            const __m128i hi23 = _mm_unpackhi_epi32(c2, c3);
            auto* out = reinterpret_cast<__m128i*>(dst + 16 * i);
            _mm_storeu_si128(out, _mm_unpacklo_epi64(lo01, lo23));
            _mm_storeu_si128(out + 1, _mm_unpackhi_epi64(lo01, lo23));
            _mm_storeu_si128(out + 2, _mm_unpacklo_epi64(hi01, hi23));
            _mm_storeu_si128(out + 3, _mm_unpackhi_epi64(hi01, hi23));
        }
    }
#endif
    for (; i < width; ++i) {
        for (std::size_t m = 0; m < 4; ++m) {
            std::memcpy(dst + (4 * i + m) * s, src[m] + i * s, s);
        }
    }
}

/// Copies the samples of memory slot `slot` out of `width` interleaved pixels of `channels` samples
/// each into `out`, storing each sample big-endian.
template <typename Sample>
inline void extractBigEndian(const std::uint8_t* pixels, std::size_t width, std::size_t channels,
                             std::size_t slot, std::uint8_t* out) noexcept
{
    constexpr std::size_t s = sizeof(Sample);
    std::size_t i = 0;
#if defined(__SSE2__)
    if constexpr (s == 1) {
        if (channels == 4) {
            // Sixteen 4-byte pixels at a time: shift the slot's byte to the bottom of each 32-bit lane,
            // mask it, and narrow 32 → 16 → 8 bits (the values fit, so saturation never bites).
            const __m128i mask = _mm_set1_epi32(0xFF);
            const auto shift = static_cast<int>(8 * slot);
            const __m128i count = _mm_cvtsi32_si128(shift);
            for (; i + 16 <= width; i += 16) {
                const auto* in = reinterpret_cast<const __m128i*>(pixels + 4 * i);
                const __m128i v0 = _mm_and_si128(_mm_srl_epi32(_mm_loadu_si128(in), count), mask);
                const __m128i v1 = _mm_and_si128(_mm_srl_epi32(_mm_loadu_si128(in + 1), count), mask);
                const __m128i v2 = _mm_and_si128(_mm_srl_epi32(_mm_loadu_si128(in + 2), count), mask);
                const __m128i v3 = _mm_and_si128(_mm_srl_epi32(_mm_loadu_si128(in + 3), count), mask);
                const __m128i packed = _mm_packus_epi16(_mm_packs_epi32(v0, v1), _mm_packs_epi32(v2, v3));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), packed);
            }
        }
    }
#endif
    const std::size_t step = channels * s;
    const std::uint8_t* p = pixels + slot * s + i * step;
    out += i * s;
    for (; i < width; ++i, p += step, out += s) {
        if constexpr (s == 1) {
            *out = *p;
        } else if constexpr (std::endian::native == std::endian::big) {
            std::memcpy(out, p, s);
        } else {
            for (std::size_t b = 0; b < s; ++b) {
                out[b] = p[s - 1 - b];
            }
        }
    }
}

} // namespace psdkit::detail
