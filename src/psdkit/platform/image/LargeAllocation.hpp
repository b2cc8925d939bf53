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

/// Has the kernel fault in the whole pages of `bytes` bytes at `begin` for writing, in one call:
/// cheaper than a fault per page as the bytes are first written, and done on the calling thread,
/// so threads that each prefault the part they write zero fresh memory side by side. Pages
/// already present cost a walk of their page tables. Advice only: without kernel support (Linux
/// before 5.14, other systems) nothing happens, and the pages fault in as they are written.
void prefaultForWriting(std::uint8_t* begin, std::size_t bytes) noexcept;

} // namespace psdkit::detail
