#pragma once
// Colour adjustments beyond the tone tables (brightness/contrast, exposure, vibrance, colour
// balance, black & white, channel mixer, photo filter, selective colour, gradient map), each read
// from its own settings block. Internal to the renderer.
#include <memory>

#include "psdkit/layers/PSDLayerType.hpp"
#include "psdkit/render/RenderPlan.hpp"

namespace psdkit::detail {

/// The adjustment of `layer` when `type` is one of the kinds above and its block parses; null
/// otherwise. Never throws except for allocation.
[[nodiscard]] std::shared_ptr<const Adjustment> makeColorAdjustment(const PSDLayerWrapper& layer,
                                                                    PSDAdjustmentLayerType type);

} // namespace psdkit::detail
