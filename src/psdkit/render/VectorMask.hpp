#pragma once
// Vector masks ("vmsk", or "vsms"): the layer's path, rasterised with anti-aliasing into a
// coverage mask. Internal to the renderer.
#include <memory>

#include "psdkit/render/RenderPlan.hpp"

namespace psdkit::detail {

/// A closed polygon in document pixels, as points x0, y0, x1, y1, …
using Polygon = std::vector<double>;

/// The coverage of `polygons` (even-odd rule) over `bounds` (document pixels), each pixel the area
/// fraction inside, measured on 16 rows of samples a pixel with exact spans along each row.
[[nodiscard]] std::vector<float> rasterizePolygons(const std::vector<Polygon>& polygons,
                                                   const PSDMacRect& bounds);

/// The layer's vector mask over `region` (document pixels), or null when it has none or it is
/// disabled. Never throws except for allocation.
[[nodiscard]] std::shared_ptr<const CoverageMask>
makeVectorMask(const PSDLayerWrapper& layer, const PSDWrapper& document, const PSDMacRect& region);

} // namespace psdkit::detail
