#pragma once
// Internal to the image core: memory for pixel buffers and whole planes. Blocks of several megabytes
// are aligned to 2 MiB and offered to the kernel for huge pages, which halves the cost of touching
// fresh memory for a 4096 × 4096 layer; smaller blocks come from the ordinary heap.
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
