#include "psdkit/platform/image/PackBits.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

#include "psdkit/platform/image/ImageError.hpp"

namespace psdkit::detail {

using namespace image; // this file implements part of the image core

namespace {

// Decodes one row; with `Padded`, runs are copied and filled in blocks of 16 bytes that may reach
// up to 15 bytes past the run (into the output padding, and only where the input has them).
template <bool Padded> void decodeRow(std::span<const std::uint8_t> in, std::span<std::uint8_t> out)
{
    constexpr std::size_t block = 16;
    const std::uint8_t* ip = in.data();
    const std::uint8_t* const inEnd = ip + in.size();
    std::uint8_t* op = out.data();
    std::uint8_t* const outEnd = op + out.size();
    while (ip != inEnd) {
        const std::uint8_t header = *ip++;
        if (header < 0x80) {
            const std::size_t n = std::size_t{header} + 1;
            const auto inLeft = static_cast<std::size_t>(inEnd - ip);
            if (n > inLeft || n > static_cast<std::size_t>(outEnd - op)) {
                throw ImageException(ImageError::corruptPackBits);
            }
            if (Padded && inLeft >= n + block - 1) {
                for (std::size_t k = 0; k < n; k += block) {
                    std::memcpy(op + k, ip + k, block);
                }
            } else {
                std::memcpy(op, ip, n);
            }
            ip += n;
            op += n;
        } else if (header != 0x80) {
            const std::size_t n = 257 - std::size_t{header};
            if (ip == inEnd || n > static_cast<std::size_t>(outEnd - op)) {
                throw ImageException(ImageError::corruptPackBits);
            }
            const std::uint8_t value = *ip++;
            if constexpr (Padded) {
                std::uint8_t fill[block];
                std::memset(fill, value, block);
                for (std::size_t k = 0; k < n; k += block) {
                    std::memcpy(op + k, fill, block);
                }
            } else {
                std::memset(op, value, n);
            }
            op += n;
        }
    }
    if (op != outEnd) {
        throw ImageException(ImageError::corruptPackBits);
    }
}

} // namespace

void packBitsDecodeRow(std::span<const std::uint8_t> in, std::span<std::uint8_t> out)
{
    decodeRow<false>(in, out);
}

void packBitsDecodeRowPadded(std::span<const std::uint8_t> in, std::span<std::uint8_t> out)
{
    decodeRow<true>(in, out);
}

namespace {

std::uint8_t* appendLiterals(const std::uint8_t* from, std::size_t count, std::uint8_t* out) noexcept
{
    while (count != 0) {
        const std::size_t n = std::min<std::size_t>(count, 128);
        *out++ = static_cast<std::uint8_t>(n - 1);
        std::memcpy(out, from, n);
        out += n;
        from += n;
        count -= n;
    }
    return out;
}

} // namespace

std::size_t packBitsEncodeRow(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) noexcept
{
    const std::uint8_t* const p = in.data();
    const std::size_t n = in.size();
    std::uint8_t* o = out.data();
    std::size_t literalStart = 0;
    std::size_t i = 0;
    const auto emitRun = [&](std::size_t at) {
        o = appendLiterals(p + literalStart, at - literalStart, o);
        const std::size_t limit = std::min<std::size_t>(128, n - at);
        std::size_t run = 1;
        while (run < limit && p[at + run] == p[at]) {
            ++run;
        }
        *o++ = static_cast<std::uint8_t>(257 - run);
        *o++ = p[at];
        i = at + run;
        literalStart = i;
    };
    while (i + 2 < n) {
        // With no literal pending a run of three pays; inside a literal only a run of four does (a
        // run of three costs as much as the literal bytes it replaces, and slows decoding).
        if (i == literalStart && p[i] == p[i + 1] && p[i] == p[i + 2]) {
            emitRun(i);
            continue;
        }
        if (i + 9 <= n) {
            // Eight neighbour comparisons at once: byte k of `equal` is 0x80 when p[i+k] == p[i+k+1].
            std::uint64_t x;
            std::uint64_t y;
            std::memcpy(&x, p + i, 8);
            std::memcpy(&y, p + i + 1, 8);
            if constexpr (std::endian::native == std::endian::big) {
                x = __builtin_bswap64(x);
                y = __builtin_bswap64(y);
            }
            const std::uint64_t e = x ^ y;
            constexpr std::uint64_t low7 = 0x7F7F7F7F7F7F7F7FULL;
            const std::uint64_t equal = ~(((e & low7) + low7) | e | low7);
            const std::uint64_t runOfFour = equal & (equal >> 8) & (equal >> 16);
            if (runOfFour == 0) {
                i += 6; // no run of four starts at i … i + 5
                continue;
            }
            emitRun(i + static_cast<std::size_t>(std::countr_zero(runOfFour)) / 8);
            continue;
        }
        if (i + 3 < n && p[i] == p[i + 1] && p[i] == p[i + 2] && p[i] == p[i + 3]) {
            emitRun(i);
        } else {
            ++i;
        }
    }
    o = appendLiterals(p + literalStart, n - literalStart, o);
    return static_cast<std::size_t>(o - out.data());
}

} // namespace psdkit::detail
