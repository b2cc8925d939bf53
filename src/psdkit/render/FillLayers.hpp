#pragma once
// Fill layers: solid colour ("SoCo"), gradient ("GdFl") and pattern ("PtFl") settings read from
// the layer's block.
// Internal to the renderer.
#include <array>
#include <memory>

#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/layers/PSDLayerType.hpp"
#include "psdkit/platform/image/ColorGradient.hpp"
#include "psdkit/render/RenderPlan.hpp"

namespace psdkit::detail {

/// A gradient's colour and opacity sampled at positions 0…1 into a table of `size` entries.
class GradientTable {
  public:
    static constexpr int size = 1024;
    /// `smoothing` (0…1, the gradient's smoothness) eases each span between stops; `levels` above
    /// 0 rounds the colours to that many steps, as a fill drawn into a document of that depth is.
    GradientTable(const image::ColorGradient& gradient, bool reversed, double smoothing, int levels);
    /// Unpremultiplied red, green, blue and opacity at position `t` (clamped to 0…1; NaN is 0).
    [[nodiscard]] const float* at(double t) const noexcept;

  private:
    std::array<std::array<float, 4>, size> table_{};
};

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

} // namespace psdkit::detail
