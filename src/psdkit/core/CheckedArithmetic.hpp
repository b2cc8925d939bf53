#pragma once
// Overflow-checked integer arithmetic for sizes, offsets and counts taken from a file or computed
// from one. Every sum or product of such values goes through these, so that no wrapped value ever
// sizes an allocation or moves a cursor. Callers decide which error a result that does not fit is.
#include <concepts>
#include <cstddef>
#include <limits>
#include <optional>

namespace psdkit::detail {

/// `a + b`, or nothing when the sum does not fit `T`.
template <std::integral T> [[nodiscard]] constexpr std::optional<T> checkedAdd(T a, T b) noexcept
{
    T sum{};
    if (__builtin_add_overflow(a, b, &sum)) {
        return std::nullopt;
    }
    return sum;
}

/// `a × b`, or nothing when the product does not fit `T`.
template <std::integral T> [[nodiscard]] constexpr std::optional<T> checkedMultiply(T a, T b) noexcept
{
    T product{};
    if (__builtin_mul_overflow(a, b, &product)) {
        return std::nullopt;
    }
    return product;
}

/// `a × b` as a byte count, or nothing when it exceeds PTRDIFF_MAX (so that pointer differences
/// within a buffer of that size stay meaningful).
[[nodiscard]] constexpr std::optional<std::size_t> checkedByteCount(std::size_t a, std::size_t b) noexcept
{
    constexpr auto limit = static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max());
    const auto product = checkedMultiply(a, b);
    if (!product || *product > limit) {
        return std::nullopt;
    }
    return product;
}

} // namespace psdkit::detail
