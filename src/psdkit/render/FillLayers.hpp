#pragma once
// Fill layers: solid colour ("SoCo") and gradient ("GdFl") settings read from the layer's block.
// Internal to the renderer.
#include <memory>

#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/layers/PSDLayerType.hpp"
#include "psdkit/render/RenderPlan.hpp"

namespace psdkit::detail {

/// The fill of `layer` when `type` is a fill kind whose settings can be used; null otherwise (other
/// kinds, a missing block, settings that do not parse). Never throws except for allocation.
[[nodiscard]] std::shared_ptr<const Fill> makeFill(const PSDLayerWrapper& layer, PSDAdjustmentLayerType type,
                                                   const PSDWrapper& document);

/// The descriptor of a settings block that is a version word (16) and a descriptor, as fill blocks
/// are, or null when it does not parse. Never throws except for allocation.
[[nodiscard]] std::shared_ptr<PSDDescriptor> versionedDescriptor(std::span<const std::uint8_t> body);

} // namespace psdkit::detail
