#pragma once
// Enumerated: an enumerated descriptor value, the enumeration's type ID and the chosen value ID.
#include <string>
#include <utility>

#include "psdkit/descriptors/UnifiedStringValue.hpp"

namespace psdkit {

struct Enumerated {
    UnifiedStringValue type;
    UnifiedStringValue value;

    Enumerated(UnifiedStringValue type_, UnifiedStringValue value_)
        : type(std::move(type_)), value(std::move(value_))
    {
    }

    /// "[Enum(" + type + ") " + value + "]", each by its description: [Enum('BlnM') 'Nrml'].
    [[nodiscard]] std::string description() const
    {
        return "[Enum(" + type.description() + ") " + value.description() + "]";
    }

    friend bool operator==(const Enumerated&, const Enumerated&) = default;
};

} // namespace psdkit
