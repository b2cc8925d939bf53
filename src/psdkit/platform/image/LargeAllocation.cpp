#include "psdkit/platform/image/LargeAllocation.hpp"

#include <cstdlib>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace psdkit::detail {
namespace {

constexpr std::size_t hugePageBytes = std::size_t{2} << 20;
constexpr std::size_t hugePageThreshold = 2 * hugePageBytes;

} // namespace

void releaseLarge(std::uint8_t* p) noexcept
{
    std::free(p);
}

void LargeAllocationFree::operator()(void* p) const noexcept
{
    std::free(p);
}

LargeAllocation allocateLarge(std::size_t bytes)
{
    void* p = nullptr;
    if (bytes >= hugePageThreshold && bytes <= SIZE_MAX - hugePageBytes) {
        const std::size_t rounded = (bytes + hugePageBytes - 1) / hugePageBytes * hugePageBytes;
        p = std::aligned_alloc(hugePageBytes, rounded);
#if defined(__linux__)
        if (p != nullptr) {
            (void)madvise(p, rounded, MADV_HUGEPAGE); // a hint; refusal changes nothing but speed
        }
#endif
    } else {
        p = std::malloc(bytes == 0 ? 1 : bytes);
    }
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return LargeAllocation(static_cast<std::uint8_t*>(p));
}

} // namespace psdkit::detail
