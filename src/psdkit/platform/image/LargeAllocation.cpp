#include "psdkit/platform/image/LargeAllocation.hpp"

#include <cstdlib>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

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

void prefaultForWriting(std::uint8_t* begin, std::size_t bytes) noexcept
{
#if defined(__linux__) && defined(MADV_POPULATE_WRITE)
    // Only the whole pages inside the range: the pages at its ends may hold other owners' bytes,
    // and advice must start on a page boundary.
    static const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const auto first = (reinterpret_cast<std::uintptr_t>(begin) + page - 1) / page * page;
    const auto end = (reinterpret_cast<std::uintptr_t>(begin) + bytes) / page * page;
    if (end > first) {
        (void)::madvise(reinterpret_cast<void*>(first), end - first, MADV_POPULATE_WRITE);
    }
#else
    (void)begin;
    (void)bytes;
#endif
}

} // namespace psdkit::detail
