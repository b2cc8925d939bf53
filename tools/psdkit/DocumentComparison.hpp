#pragma once
// Field-by-field and pixel-by-pixel comparison of two documents, for `psdkit check --roundtrip`.
#include <string>
#include <vector>

#include "psdkit/document/PSDWrapper.hpp"

namespace psdkit::cli {

/// Every difference between `before` and `after`, one line each ("layers[2].opacity: 0.5 -> 1"),
/// in document order: header and resolution (within 1/65535), colour profile, kept resources,
/// layer records (identity, kind, bounds, blending, flags, mask fields, kept blocks compared up to
/// their padding to 4 bytes, blocks kept whole compared exactly) and their content and mask pixels,
/// the document-level kept blocks, the alpha channels and the
/// composite's pixels. Empty when the two are equal in content.
[[nodiscard]] std::vector<std::string> compareDocuments(const PSDWrapper& before, const PSDWrapper& after);

} // namespace psdkit::cli
