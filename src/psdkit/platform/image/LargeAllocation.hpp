#pragma once
// Internal to the image core: memory for pixel buffers and whole planes, from the ordinary heap
// without a huge-page hint (docs/decisions.md, "Memory", says why).
#include <cstddef>
#include <cstdint>
#include <memory>

namespace psdkit::detail {

struct LargeAllocationFree {
    void operator()(void* p) const noexcept;
};

/// Uninitialised memory of `bytes` bytes (at least 1), aligned for any sample type. Throws
/// `std::bad_alloc` when none can be had.
using LargeAllocation = std::unique_ptr<std::uint8_t[], LargeAllocationFree>;
[[nodiscard]] LargeAllocation allocateLarge(std::size_t bytes);
/// Releases memory from `allocateLarge` (null is ignored); for owners that hold a plain pointer.
void releaseLarge(std::uint8_t* p) noexcept;

} // namespace psdkit::detail
