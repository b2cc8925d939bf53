#pragma once
// PSDWriteOptions: what a host chooses when it writes a file.
#include "psdkit/Export.hpp"

namespace psdkit {

/// How a file is written. No option changes the bytes: a document is written to the same file
/// whatever is chosen here.
struct PSDKIT_EXPORT PSDWriteOptions {
    /// Threads used to encode the layers' channels (several layers at once, and the two halves of
    /// a large image's planes) and the composite's; 0 means one per hardware thread, 1 encodes
    /// everything on the calling thread.
    unsigned threadCount = 0;
};

} // namespace psdkit
