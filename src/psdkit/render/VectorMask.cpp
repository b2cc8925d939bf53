#include "psdkit/render/VectorMask.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/render/PSDRenderer.hpp"

namespace psdkit::detail {

namespace {

constexpr int samplesPerRow = 16;
/// Paths are flattened into at most this many points in all (real paths have a few hundred), so
/// that a hostile path cannot make rasterising unbounded.
constexpr std::size_t maximumPathPoints = std::size_t{1} << 16;
constexpr std::size_t recordSize = 26;

std::int32_t readInt32(const std::uint8_t* p) noexcept
{
    return static_cast<std::int32_t>((std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) |
                                     (std::uint32_t{p[2]} << 8) | std::uint32_t{p[3]});
}

struct Point {
    double x, y;
};

/// A knot: the control point before it, the anchor and the control point after it.
struct Knot {
    Point before, anchor, after;
};

/// A path point stored as vertical then horizontal fraction of the canvas, each a signed 8.24
/// fixed-point number.
Point readPoint(const std::uint8_t* p, double width, double height) noexcept
{
    const double y = readInt32(p) / 16777216.0;
    const double x = readInt32(p + 4) / 16777216.0;
    return {x * width, y * height};
}

void appendCubic(Polygon& out, Point a, Point b, Point c, Point d)
{
    const double length = std::hypot(b.x - a.x, b.y - a.y) + std::hypot(c.x - b.x, c.y - b.y) +
                          std::hypot(d.x - c.x, d.y - c.y);
    const int steps = std::isfinite(length) ? std::clamp(static_cast<int>(length / 2.0), 1, 64) : 1;
    if (out.size() / 2 + static_cast<std::size_t>(steps) > maximumPathPoints) {
        return;
    }
    for (int i = 1; i <= steps; ++i) {
        const double t = static_cast<double>(i) / steps;
        const double u = 1 - t;
        out.push_back(u * u * u * a.x + 3 * u * u * t * b.x + 3 * u * t * t * c.x + t * t * t * d.x);
        out.push_back(u * u * u * a.y + 3 * u * u * t * b.y + 3 * u * t * t * c.y + t * t * t * d.y);
    }
}

Polygon flatten(const std::vector<Knot>& knots)
{
    Polygon polygon;
    if (knots.empty()) {
        return polygon;
    }
    polygon.push_back(knots.front().anchor.x);
    polygon.push_back(knots.front().anchor.y);
    for (std::size_t i = 0; i < knots.size(); ++i) {
        const Knot& a = knots[i];
        const Knot& b = knots[(i + 1) % knots.size()];
        appendCubic(polygon, a.anchor, a.after, b.before, b.anchor);
    }
    return polygon;
}

/// A path's subpaths (open ones closed for filling) and whether filling starts from a covered
/// canvas (the initial fill record, selector 8, holding 1): the subpaths then cut holes.
struct PathShape {
    std::vector<Polygon> polygons;
    bool startsCovered = false;
};

PathShape pathPolygons(std::span<const std::uint8_t> records, double width, double height)
{
    PathShape shape;
    std::vector<Polygon>& polygons = shape.polygons;
    std::vector<Knot> knots;
    std::size_t remaining = 0;
    for (std::size_t offset = 0; offset + recordSize <= records.size(); offset += recordSize) {
        const std::uint8_t* r = records.data() + offset;
        const int selector = (r[0] << 8) | r[1];
        if (selector == 0 || selector == 3) {
            if (!knots.empty()) {
                polygons.push_back(flatten(knots));
                knots.clear();
            }
            remaining = static_cast<std::size_t>((r[2] << 8) | r[3]);
        } else if ((selector == 1 || selector == 2 || selector == 4 || selector == 5) && remaining > 0) {
            knots.push_back({readPoint(r + 2, width, height), readPoint(r + 10, width, height),
                             readPoint(r + 18, width, height)});
            --remaining;
        } else if (selector == 8) {
            shape.startsCovered = ((r[2] << 8) | r[3]) == 1;
        }
    }
    if (!knots.empty()) {
        polygons.push_back(flatten(knots));
    }
    return shape;
}

} // namespace

std::vector<float> rasterizePolygons(const std::vector<Polygon>& polygons, const PSDMacRect& bounds)
{
    const std::int64_t width = bounds.width();
    const std::int64_t height = bounds.height();
    std::vector<float> coverage(static_cast<std::size_t>(width * height), 0.0f);
    std::vector<double> crossings;
    const double sampleWeight = 1.0 / samplesPerRow;
    for (std::int64_t row = 0; row < height; ++row) {
        float* out = coverage.data() + row * width;
        for (int sample = 0; sample < samplesPerRow; ++sample) {
            const double y = static_cast<double>(bounds.top + row) + (sample + 0.5) / samplesPerRow;
            crossings.clear();
            for (const Polygon& polygon : polygons) {
                const std::size_t n = polygon.size() / 2;
                for (std::size_t i = 0; i < n; ++i) {
                    const double x0 = polygon[2 * i], y0 = polygon[2 * i + 1];
                    const double x1 = polygon[2 * ((i + 1) % n)], y1 = polygon[2 * ((i + 1) % n) + 1];
                    if ((y0 <= y && y1 > y) || (y1 <= y && y0 > y)) {
                        crossings.push_back(x0 + (y - y0) / (y1 - y0) * (x1 - x0));
                    }
                }
            }
            std::sort(crossings.begin(), crossings.end());
            // Even-odd: inside between each pair of crossings; spans add their exact horizontal
            // coverage to the pixels they touch.
            for (std::size_t i = 0; i + 1 < crossings.size(); i += 2) {
                const double from =
                    std::clamp(crossings[i] - static_cast<double>(bounds.left), 0.0, double(width));
                const double to =
                    std::clamp(crossings[i + 1] - static_cast<double>(bounds.left), 0.0, double(width));
                if (to <= from) {
                    continue;
                }
                const auto first = static_cast<std::int64_t>(from);
                const auto last = std::min(static_cast<std::int64_t>(std::ceil(to)), width);
                for (std::int64_t x = first; x < last; ++x) {
                    const double covered = std::min(to, double(x + 1)) - std::max(from, double(x));
                    out[x] += static_cast<float>(covered * sampleWeight);
                }
            }
        }
        for (std::int64_t x = 0; x < width; ++x) {
            out[x] = std::min(out[x], 1.0f);
        }
    }
    return coverage;
}

std::shared_ptr<const CoverageMask> makeVectorMask(const PSDLayerWrapper& layer, const PSDWrapper& document,
                                                   const PSDMacRect& region)
{
    std::span<const std::uint8_t> body = findLayerBlock(layer, PSDFourCharCode("vmsk"));
    if (body.empty()) {
        body = findLayerBlock(layer, PSDFourCharCode("vsms"));
    }
    // Version (3), flags (bit 0 inverted, bit 1 not linked, bit 2 disabled), then path records.
    if (body.size() < 8) {
        return nullptr;
    }
    const auto flags = static_cast<std::uint32_t>(readInt32(body.data() + 4));
    if ((flags & 4u) != 0) {
        return nullptr;
    }
    const double width = static_cast<double>(document.imageWidth);
    const double height = static_cast<double>(document.imageHeight);
    const PathShape path = pathPolygons(body.subspan(8), width, height);
    const auto& polygons = path.polygons;
    auto mask = std::make_shared<CoverageMask>();
    mask->inverted = ((flags & 1u) != 0) != path.startsCovered;
    mask->density = layer.maskHasVectorMaskDensity
                        ? static_cast<float>(std::clamp(layer.vectorMaskDensity, 0.0, 1.0))
                        : 1.0f;
    // Rasterise over the path's bounds cut to the region drawn.
    double minX = width, minY = height, maxX = 0, maxY = 0;
    for (const Polygon& polygon : polygons) {
        for (std::size_t i = 0; i + 1 < polygon.size(); i += 2) {
            minX = std::min(minX, polygon[i]);
            maxX = std::max(maxX, polygon[i]);
            minY = std::min(minY, polygon[i + 1]);
            maxY = std::max(maxY, polygon[i + 1]);
        }
    }
    if (maxX > minX && maxY > minY) {
        mask->pathBounds = {minX, minY, maxX, maxY};
    }
    // Rasterise over the path's bounds cut to the region drawn, both grown by a feather's reach.
    const double feather = layer.maskHasVectorMaskFeather ? layer.vectorMaskFeather : 0.0;
    const auto reach = static_cast<double>(3 * featherBoxRadius(feather));
    const auto left =
        static_cast<std::int64_t>(std::floor(std::max(minX, static_cast<double>(region.left)) - reach));
    const auto top =
        static_cast<std::int64_t>(std::floor(std::max(minY, static_cast<double>(region.top)) - reach));
    const auto right =
        static_cast<std::int64_t>(std::ceil(std::min(maxX, static_cast<double>(region.right)) + reach));
    const auto bottom =
        static_cast<std::int64_t>(std::ceil(std::min(maxY, static_cast<double>(region.bottom)) + reach));
    if (right > left && bottom > top) {
        mask->rect = PSDMacRect(top, left, bottom, right);
        mask->coverage = rasterizePolygons(polygons, mask->rect);
        featherValues(mask->coverage, mask->rect.width(), mask->rect.height(), feather);
    }
    return mask;
}

} // namespace psdkit::detail
