#include "psdkit/platform/image/LargeAllocation.hpp"

#include <cstdlib>
#include <new>

namespace psdkit::detail {

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
    void* p = std::malloc(bytes == 0 ? 1 : bytes);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return LargeAllocation(static_cast<std::uint8_t*>(p));
}

} // namespace psdkit::detail
