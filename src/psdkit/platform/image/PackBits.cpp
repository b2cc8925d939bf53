#include "psdkit/platform/image/PackBits.hpp"

#include <algorithm>
#include <cstring>

#include "psdkit/platform/image/ImageError.hpp"

namespace psdkit::image::detail {

void packBitsDecodeRow(std::span<const std::uint8_t> in, std::span<std::uint8_t> out)
{
    const std::uint8_t* ip = in.data();
    const std::uint8_t* const inEnd = ip + in.size();
    std::uint8_t* op = out.data();
    std::uint8_t* const outEnd = op + out.size();
    while (ip != inEnd) {
        const std::uint8_t header = *ip++;
        if (header < 0x80) {
            const std::size_t n = std::size_t{header} + 1;
            if (n > static_cast<std::size_t>(inEnd - ip) || n > static_cast<std::size_t>(outEnd - op)) {
                throw ImageException(ImageError::corruptPackBits);
            }
            std::memcpy(op, ip, n);
            ip += n;
            op += n;
        } else if (header != 0x80) {
            const std::size_t n = 257 - std::size_t{header};
            if (ip == inEnd || n > static_cast<std::size_t>(outEnd - op)) {
                throw ImageException(ImageError::corruptPackBits);
            }
            std::memset(op, *ip++, n);
            op += n;
        }
    }
    if (op != outEnd) {
        throw ImageException(ImageError::corruptPackBits);
    }
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
    while (i + 2 < n) {
        if (p[i + 1] != p[i + 2]) {
            // No run of three can start at i or i + 1.
            i += 2;
        } else if (p[i] != p[i + 1]) {
            i += 1;
        } else {
            o = appendLiterals(p + literalStart, i - literalStart, o);
            const std::size_t limit = std::min<std::size_t>(128, n - i);
            std::size_t run = 3;
            while (run < limit && p[i + run] == p[i]) {
                ++run;
            }
            *o++ = static_cast<std::uint8_t>(257 - run);
            *o++ = p[i];
            i += run;
            literalStart = i;
        }
    }
    o = appendLiterals(p + literalStart, n - literalStart, o);
    return static_cast<std::size_t>(o - out.data());
}

} // namespace psdkit::image::detail
