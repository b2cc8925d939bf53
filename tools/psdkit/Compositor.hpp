#pragma once
// The tool's own rendering of a document's layers, used as the composite of documents it builds.
//
// Only what a plain stack of pixel layers needs: the visible pixel layers are blended bottom to
// top with source-over ("normal") blending, each weighted by its opacity, fill opacity and
// enabled layer mask. A group is rendered on its own transparent canvas and that canvas is then
// blended like one layer with the group's opacity; a hidden group hides its contents. Blend
// modes, clipping, adjustment and fill layers and effects are not rendered. Arithmetic is in
// single-precision floats on premultiplied samples; the result is rounded to the document's
// depth (32-bit results keep their floats).
#include <memory>

#include "psdkit/document/PSDWrapper.hpp"

namespace psdkit::cli {

/// The composite of `document`'s layers, of the document's size and depth (ARGB8, RGBA16 or
/// RGBA32). Throws InputError when the canvas is too large to render in memory.
[[nodiscard]] std::shared_ptr<image::PixelBufferType> compositeLayers(const PSDWrapper& document);

} // namespace psdkit::cli
