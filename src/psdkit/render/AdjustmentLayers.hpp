#pragma once
// Adjustment layers: each reads its own settings block and changes the colours below it.
// Internal to the renderer. Kinds drawn here: invert, threshold, posterize, levels, curves and
// hue/saturation (master settings); the others come from ColorAdjustments.
#include <memory>

#include "psdkit/layers/PSDLayerType.hpp"
#include "psdkit/render/RenderPlan.hpp"

namespace psdkit::detail {

/// The adjustment of `layer` when `type` is a kind drawn here and its block parses; null otherwise.
/// Never throws except for allocation.
[[nodiscard]] std::shared_ptr<const Adjustment> makeAdjustment(const PSDLayerWrapper& layer,
                                                               PSDAdjustmentLayerType type);

} // namespace psdkit::detail
