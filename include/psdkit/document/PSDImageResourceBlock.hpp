#pragma once
// One image resource kept raw for writing back.
#include "psdkit/Export.hpp"
#include <cstdint>
#include <string>
#include <vector>

namespace psdkit {

/// An image resource as stored: identifier, name and data. A plain value.
struct PSDKIT_EXPORT PSDImageResourceBlock {
    /// The resource identifier (a signed 16-bit value in the file).
    std::int64_t identifier = 0;
    /// The resource name, decoded from Mac OS Roman; usually empty.
    std::string name;
    /// The resource data exactly as stored, without its pad byte.
    std::vector<std::uint8_t> data;

    /// Equal when identifier, name and data are.
    friend bool operator==(const PSDImageResourceBlock&, const PSDImageResourceBlock&) = default;
};

} // namespace psdkit
