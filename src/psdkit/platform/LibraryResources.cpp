#include "psdkit/platform/LibraryResources.hpp"

namespace psdkit::detail {

std::span<const std::uint8_t> libraryResourceHDRToning() noexcept
{
    // No toning settings are shipped: 32-bit documents without colour mode data of their own
    // are written with an empty section, which readers treat as "default toning".
    return {};
}

} // namespace psdkit::detail
