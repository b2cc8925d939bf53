#pragma once
// PSDReadOptions: what a host chooses when it reads a file.
#include "psdkit/Export.hpp"
#include <cstdint>

namespace psdkit {

/// When the pixels of layers (content and mask images) are decoded.
enum class PSDImageDecoding : std::uint8_t {
    /// While the file is read, before the constructor returns (the default).
    eager,
    /// On first access to a layer's image; the decoded image is then kept.
    onDemand,
    /// Never: the structure only, for listing tools. Layer images stay absent.
    never,
};

/// How a file is read. The default reads exactly by the format's reading rules: every image
/// decoded at once, and tagged blocks the library does not interpret skipped.
struct PSDKIT_EXPORT PSDReadOptions {
    /// Keep every tagged block the reader does not interpret, per layer and at document level, and
    /// write them back in their original order after the blocks the writer generates itself.
    /// They go to `PSDLayerWrapper::uninterpretedBlocks` and `PSDWrapper::uninterpretedBlocks` with
    /// their signature and length width; blocks the model holds raw (`taggedData`, patterns,
    /// "plst") leave a copy there that marks their place. A kept copy of a block the writer
    /// generates is never written. Edits do not update kept blocks: a renamed type layer keeps its
    /// old "TySh"; the host removes or replaces blocks that its changes make stale.
    bool keepUnknownBlocks = false;
    /// When layer images are decoded.
    PSDImageDecoding imageDecoding = PSDImageDecoding::eager;
    /// Threads used to decode layers' channels, while reading and later, when a layer read on
    /// demand is decoded (`PSDLayerWrapper::contentImage()`, `copyContentImageRGBA`); 0 means one
    /// per hardware thread, and 1 keeps every decoding on the calling thread. Writing has its own
    /// count, `PSDWriteOptions::threadCount`.
    unsigned threadCount = 0;
};

} // namespace psdkit
