#pragma once
// PSDRawBlock: a tagged block kept as it was read, to be written back unchanged.
#include "psdkit/Export.hpp"
#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/core/PSDSharedBytes.hpp"

namespace psdkit {

/// A tagged block (a layer's additional information, or a document-level block) that reading did
/// not interpret and kept whole, so that writing can put it back byte for byte: its signature, its
/// key, the width of its length field and its body without padding.
struct PSDKIT_EXPORT PSDRawBlock {
    /// "8BIM" or "8B64", as read.
    PSDFourCharCode signature{"8BIM"};
    /// The block's key, e.g. "TySh", "shmd", "Txt2".
    PSDFourCharCode key{"    "};
    /// The length field was 8 bytes wide (only in PSB files, for the keys that use it there).
    bool longLength = false;
    /// The block's body as it was stored, padding excluded.
    PSDSharedBytes data;

    /// Equal when every field is equal (bodies compared by content).
    friend bool operator==(const PSDRawBlock&, const PSDRawBlock&) = default;
};

} // namespace psdkit
