#pragma once
// An extra channel of the composite image beyond its colour channels and merged transparency.
#include "psdkit/Export.hpp"
#include <memory>
#include <optional>
#include <string>

#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit {

/// A reference object: documents hold alpha channels by std::shared_ptr and share them with the host.
class PSDKIT_EXPORT PSDAlphaChannel {
  public:
    PSDAlphaChannel() = default;
    /// The channel's grey image, the document's size; absent until set.
    std::shared_ptr<image::PixelBufferType> image;
    /// The channel's name; absent when the file names none.
    std::optional<std::string> name;
};

} // namespace psdkit
