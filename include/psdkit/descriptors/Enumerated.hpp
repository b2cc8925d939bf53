#pragma once
// Enumerated: an enumerated descriptor value, the enumeration's type ID and the chosen value ID.
#include "psdkit/Export.hpp"
#include <string>
#include <utility>

#include "psdkit/descriptors/UnifiedStringValue.hpp"

namespace psdkit {

/// An enumerated descriptor value. A plain value.
struct PSDKIT_EXPORT Enumerated {
    UnifiedStringValue type;  ///< The enumeration, such as the code "BlnM" (blend modes).
    UnifiedStringValue value; ///< The chosen case, such as the code "Nrml".

    /// The value `value_` of enumeration `type_`.
    Enumerated(UnifiedStringValue type_, UnifiedStringValue value_)
        : type(std::move(type_)), value(std::move(value_))
    {
    }

    /// "[Enum(" + type + ") " + value + "]", each by its description: [Enum('BlnM') 'Nrml'].
    [[nodiscard]] std::string description() const
    {
        return "[Enum(" + type.description() + ") " + value.description() + "]";
    }

    /// Equal when both identifiers are.
    friend bool operator==(const Enumerated&, const Enumerated&) = default;
};

} // namespace psdkit
