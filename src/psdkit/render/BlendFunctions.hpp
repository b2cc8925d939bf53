#pragma once
// The blend modes as functions of two colours: the backdrop b (what lies below) and the source s
// (the layer), both unpremultiplied, giving the colour the mode shows where both are opaque.
// Internal to the renderer.
#include <optional>

#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/platform/image/BlendMode.hpp"

namespace psdkit::detail {

/// The mode a layer record's blend key names ("norm", "mul ", "pass", …), or nothing for an
/// unknown key.
[[nodiscard]] std::optional<image::BlendMode> blendModeForLayerKey(const PSDFourCharCode& key) noexcept;

/// True for the modes that treat each channel on its own.
[[nodiscard]] bool isSeparable(image::BlendMode mode) noexcept;

/// One channel of a separable mode. Normal, dissolve, behind and pass-through give `s`.
[[nodiscard]] float blendChannel(image::BlendMode mode, float b, float s) noexcept;

/// The colour of any mode for three channels; `out` may alias neither input.
void blendColor(image::BlendMode mode, const float* b, const float* s, float* out) noexcept;

} // namespace psdkit::detail
