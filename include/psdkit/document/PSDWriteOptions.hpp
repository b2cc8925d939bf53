#pragma once
// PSDWriteOptions: what a host chooses when it writes a file.
#include "psdkit/Export.hpp"

namespace psdkit {

/// How a file is written. No option changes the bytes: a document is written to the same file
/// whatever is chosen here.
struct PSDKIT_EXPORT PSDWriteOptions {
    /// Layers whose channels are encoded at once; 0 means one per hardware thread. Above 1, each
    /// large image (layer or composite) also splits its planes with a second thread; 1 encodes
    /// everything on the calling thread.
    unsigned threadCount = 0;
};

} // namespace psdkit
