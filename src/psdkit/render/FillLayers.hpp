#pragma once
// Fill layers: solid colour ("SoCo") and gradient ("GdFl") settings read from the layer's block.
// Internal to the renderer.
#include <array>
#include <memory>

#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/layers/PSDLayerType.hpp"
#include "psdkit/render/RenderPlan.hpp"

namespace psdkit::render::detail {

/// The fill of `layer` when `type` is a fill kind whose settings can be used; null otherwise (other
/// kinds, a missing block, settings that do not parse). `shapeBounds` (left, top, right, bottom in
/// document pixels; may be null) is the box of the layer's path, which a gradient aligned with its
/// layer spans. Never throws except for allocation.
[[nodiscard]] std::shared_ptr<const Fill> makeFill(const PSDLayerWrapper& layer, PSDAdjustmentLayerType type,
                                                   const PSDWrapper& document,
                                                   const std::array<double, 4>* shapeBounds);

/// The descriptor of a settings block that is a version word (16) and a descriptor, as fill blocks
/// are, or null when it does not parse. Never throws except for allocation.
[[nodiscard]] std::shared_ptr<PSDDescriptor> versionedDescriptor(std::span<const std::uint8_t> body);

} // namespace psdkit::render::detail
