#include "psdkit/render/RenderPlan.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/layers/LayerImages.hpp"
#include "psdkit/render/AdjustmentLayers.hpp"
#include "psdkit/render/BlendFunctions.hpp"
#include "psdkit/render/FillLayers.hpp"
#include "psdkit/render/PSDRenderer.hpp"
#include "psdkit/render/VectorMask.hpp"

namespace psdkit::detail {

using image::PixelFormat;

std::span<const std::uint8_t> findLayerBlock(const PSDLayerWrapper& layer, const PSDFourCharCode& key)
{
    if (const auto* body = layer.taggedData.get(key)) {
        return *body;
    }
    for (const PSDRawBlock& block : layer.uninterpretedBlocks) {
        if (block.key == key) {
            return block.data.span();
        }
    }
    return {};
}

float sampleToFloat(const image::PixelBufferType& buffer, std::size_t sampleIndex) noexcept
{
    const auto bytes = buffer.bytes();
    switch (buffer.format()) {
    case PixelFormat::argb8:
    case PixelFormat::gray8:
        return bytes[sampleIndex] * (1.0f / 255.0f);
    case PixelFormat::rgba16:
    case PixelFormat::gray16: {
        std::uint16_t v;
        std::memcpy(&v, bytes.data() + sampleIndex * 2, 2);
        return v * (1.0f / 65535.0f);
    }
    default: {
        float v;
        std::memcpy(&v, bytes.data() + sampleIndex * 4, 4);
        return std::isnan(v) ? 0.0f : v;
    }
    }
}

float PixelMask::at(std::int64_t x, std::int64_t y) const noexcept
{
    float value = defaultValue;
    if (image && x >= rect.left && y >= rect.top && x < rect.right && y < rect.bottom) {
        const auto size = image->size();
        const std::int64_t mx = x - rect.left;
        const std::int64_t my = y - rect.top;
        if (mx < size.width && my < size.height) {
            value =
                std::clamp(sampleToFloat(*image, static_cast<std::size_t>(my * size.width + mx)), 0.0f, 1.0f);
        }
    }
    return 1.0f - density * (1.0f - value);
}

float CoverageMask::at(std::int64_t x, std::int64_t y) const noexcept
{
    float value = 0.0f;
    if (x >= rect.left && y >= rect.top && x < rect.right && y < rect.bottom) {
        value = coverage[static_cast<std::size_t>((y - rect.top) * rect.width() + (x - rect.left))];
    }
    if (inverted) {
        value = 1.0f - value;
    }
    return 1.0f - density * (1.0f - value);
}

namespace {

/// Multiplies `out[i]` by `1 - density × (1 - f(i))` for `i` in `0 … count`.
template <typename Value>
void multiplyByDensity(float* out, std::int64_t count, float density, Value value) noexcept
{
    for (std::int64_t i = 0; i < count; ++i) {
        out[i] *= 1.0f - density * (1.0f - value(i));
    }
}

/// Multiplies the columns `x0 … x1` of a row (`out` starts at `x0`) that lie outside
/// `inside0 … inside1` by `outside`; true when some lie inside.
bool multiplyOutside(float* out, std::int64_t x0, std::int64_t x1, std::int64_t inside0, std::int64_t inside1,
                     float outside) noexcept
{
    for (std::int64_t x = x0; x < inside0; ++x) {
        out[x - x0] *= outside;
    }
    for (std::int64_t x = inside1; x < x1; ++x) {
        out[x - x0] *= outside;
    }
    return inside1 > inside0;
}

} // namespace

void PixelMask::multiplyRow(std::int64_t y, std::int64_t x0, std::int64_t x1, float* out) const noexcept
{
    const float outside = 1.0f - density * (1.0f - defaultValue);
    std::int64_t inside0 = x1;
    std::int64_t inside1 = x1;
    if (image && y >= rect.top && y < rect.bottom && y - rect.top < image->size().height) {
        inside0 = std::clamp(rect.left, x0, x1);
        inside1 = std::clamp(std::min(rect.right, rect.left + image->size().width), inside0, x1);
    }
    if (!multiplyOutside(out, x0, x1, inside0, inside1, outside)) {
        return;
    }
    const std::size_t first =
        static_cast<std::size_t>((y - rect.top) * image->size().width + (inside0 - rect.left));
    float* row = out + (inside0 - x0);
    const std::int64_t count = inside1 - inside0;
    const auto bytes = image->bytes();
    switch (image->format()) {
    case PixelFormat::gray8: {
        const std::uint8_t* samples = bytes.data() + first;
        multiplyByDensity(row, count, density, [samples](std::int64_t i) {
            return std::clamp(samples[i] * (1.0f / 255.0f), 0.0f, 1.0f);
        });
        break;
    }
    default:
        multiplyByDensity(row, count, density, [this, first](std::int64_t i) {
            return std::clamp(sampleToFloat(*image, first + static_cast<std::size_t>(i)), 0.0f, 1.0f);
        });
        break;
    }
}

void CoverageMask::multiplyRow(std::int64_t y, std::int64_t x0, std::int64_t x1, float* out) const noexcept
{
    const bool rowInside = y >= rect.top && y < rect.bottom;
    const std::int64_t inside0 = rowInside ? std::clamp(rect.left, x0, x1) : x1;
    const std::int64_t inside1 = rowInside ? std::clamp(rect.right, inside0, x1) : x1;
    const float outside = 1.0f - density * (1.0f - (inverted ? 1.0f : 0.0f));
    if (!multiplyOutside(out, x0, x1, inside0, inside1, outside)) {
        return;
    }
    const float* values = coverage.data() + (y - rect.top) * rect.width() + (inside0 - rect.left);
    multiplyByDensity(out + (inside0 - x0), inside1 - inside0, density,
                      [values, this](std::int64_t i) { return inverted ? 1.0f - values[i] : values[i]; });
}

namespace {

float rangeWeight(float value, const std::uint8_t* r) noexcept
{
    const float v = value * 255.0f;
    const float blackLow = r[0], blackHigh = r[1], whiteLow = r[2], whiteHigh = r[3];
    if (v < blackLow || v > whiteHigh) {
        return 0.0f;
    }
    float w = 1.0f;
    if (v < blackHigh) {
        w = (v - blackLow) / (blackHigh - blackLow);
    }
    if (v > whiteLow) {
        w = std::min(w, (whiteHigh - v) / (whiteHigh - whiteLow));
    }
    return std::clamp(w, 0.0f, 1.0f);
}

} // namespace

float BlendRanges::weight(const float* source, const float* backdrop) const noexcept
{
    const auto grey = [](const float* c) { return 0.3f * c[0] + 0.59f * c[1] + 0.11f * c[2]; };
    const float sourceValues[4] = {grey(source), source[0], source[1], source[2]};
    const float backdropValues[4] = {grey(backdrop), backdrop[0], backdrop[1], backdrop[2]};
    float w = 1.0f;
    for (int c = 0; c < 4; ++c) {
        w *= rangeWeight(std::clamp(sourceValues[c], 0.0f, 1.0f), ranges[c][0]);
        w *= rangeWeight(std::clamp(backdropValues[c], 0.0f, 1.0f), ranges[c][1]);
    }
    return w;
}

std::optional<BlendRanges> BlendRanges::parse(std::span<const std::uint8_t> bytes)
{
    // Each range is stored as black low, black high, white low, white high; source then backdrop.
    if (bytes.size() < 32) {
        return std::nullopt;
    }
    BlendRanges ranges;
    bool anyNarrowed = false;
    for (int c = 0; c < 4; ++c) {
        for (int side = 0; side < 2; ++side) {
            const std::uint8_t* r = bytes.data() + c * 8 + side * 4;
            std::copy(r, r + 4, ranges.ranges[c][side]);
            anyNarrowed = anyNarrowed || r[0] != 0 || r[1] != 0 || r[2] != 255 || r[3] != 255;
        }
    }
    return anyNarrowed ? std::optional(ranges) : std::nullopt;
}

namespace {

/// One pass of a box blur of radius `r` along rows (`stride` 1) or columns over `values`.
void boxBlur(std::vector<float>& values, std::int64_t width, std::int64_t height, std::int64_t r, bool rows)
{
    const std::int64_t lines = rows ? height : width;
    const std::int64_t length = rows ? width : height;
    const std::int64_t step = rows ? 1 : width;
    std::vector<float> line(static_cast<std::size_t>(length));
    const float scale = 1.0f / static_cast<float>(2 * r + 1);
    for (std::int64_t l = 0; l < lines; ++l) {
        float* first = values.data() + (rows ? l * width : l);
        for (std::int64_t i = 0; i < length; ++i) {
            line[static_cast<std::size_t>(i)] = first[i * step];
        }
        // Samples beyond the ends repeat the end values (the mask's default colour lies there).
        const auto at = [&](std::int64_t i) {
            return line[static_cast<std::size_t>(std::clamp<std::int64_t>(i, 0, length - 1))];
        };
        double sum = 0;
        for (std::int64_t i = -r; i <= r; ++i) {
            sum += at(i);
        }
        for (std::int64_t i = 0; i < length; ++i) {
            first[i * step] = static_cast<float>(sum) * scale;
            sum += at(i + r + 1) - at(i - r);
        }
    }
}

} // namespace

std::int64_t featherBoxRadius(double feather) noexcept
{
    const double sigma = std::isfinite(feather) ? std::clamp(feather, 0.0, maximumFeather) : 0.0;
    // Three boxes of width w blur like a Gaussian of variance 3(w² − 1)/12.
    return static_cast<std::int64_t>(std::lround((std::sqrt(4 * sigma * sigma + 1) - 1) / 2));
}

void featherValues(std::vector<float>& values, std::int64_t width, std::int64_t height, double feather)
{
    const std::int64_t radius = featherBoxRadius(feather);
    if (radius <= 0 || width <= 0 || height <= 0) {
        return;
    }
    for (int pass = 0; pass < 3; ++pass) {
        boxBlur(values, width, height, radius, true);
        boxBlur(values, width, height, radius, false);
    }
}

namespace {

/// A pixel mask of `image` at `rect`; a feather (in pixels) blurs it with a Gaussian of that
/// standard deviation, made of three box blurs, over the rectangle grown by the blur's reach and cut
/// to what can reach `region`.
PixelMask makePixelMask(std::shared_ptr<const image::PixelBufferType> image, const PSDMacRect& rect,
                        double defaultColor, double density, double feather, const PSDMacRect& region)
{
    PixelMask mask;
    mask.image = std::move(image);
    mask.rect = rect;
    mask.defaultValue = static_cast<float>(std::clamp(defaultColor, 0.0, 1.0));
    mask.density = static_cast<float>(std::clamp(std::isnan(density) ? 1.0 : density, 0.0, 1.0));
    const std::int64_t radius = featherBoxRadius(feather);
    if (radius <= 0 || !mask.image) {
        return mask;
    }
    // Only the part that can reach the region drawn is blurred.
    const std::int64_t reach = 3 * radius;
    const PSDMacRect grown(std::max(rect.top - reach, region.top - reach),
                           std::max(rect.left - reach, region.left - reach),
                           std::min(rect.bottom + reach, region.bottom + reach),
                           std::min(rect.right + reach, region.right + reach));
    if (grown.width() <= 0 || grown.height() <= 0) {
        return mask;
    }
    auto blurred = std::make_shared<image::PixelBuffer<image::PixelGray32>>(grown.size());
    std::vector<float> values(static_cast<std::size_t>(grown.width() * grown.height()));
    PixelMask plain = mask;
    plain.density = 1.0f;
    for (std::int64_t y = grown.top; y < grown.bottom; ++y) {
        for (std::int64_t x = grown.left; x < grown.right; ++x) {
            values[static_cast<std::size_t>((y - grown.top) * grown.width() + (x - grown.left))] =
                plain.at(x, y);
        }
    }
    featherValues(values, grown.width(), grown.height(), feather);
    std::memcpy(blurred->mutableBytes().data(), values.data(), values.size() * sizeof(float));
    mask.image = std::move(blurred);
    mask.rect = grown;
    return mask;
}

/// `a` ∩ `b`, where nothing stands for everywhere; an empty intersection is an empty rectangle.
std::optional<PSDMacRect> intersection(const std::optional<PSDMacRect>& a, const std::optional<PSDMacRect>& b)
{
    if (!a || !b) {
        return a ? a : b;
    }
    const std::int64_t left = std::max(a->left, b->left);
    const std::int64_t top = std::max(a->top, b->top);
    return PSDMacRect(top, left, std::max(top, std::min(a->bottom, b->bottom)),
                      std::max(left, std::min(a->right, b->right)));
}

/// Where `node` can change what lies below it: its image's rectangle for a pixel layer, the union
/// of its members' for a group, everywhere (nothing) for fills and adjustments; and only inside a
/// mask that is zero outside its rectangle (full density, no inversion, a black default). The
/// layers clipped to a node show only where it does.
std::optional<PSDMacRect> reachOf(const RenderNode& node)
{
    std::optional<PSDMacRect> reach;
    switch (node.kind) {
    case RenderNode::Kind::pixels: {
        const auto size = node.content->size();
        const PSDMacRect& r = node.contentRect;
        reach = PSDMacRect(r.top, r.left, std::min(r.bottom, r.top + size.height),
                           std::min(r.right, r.left + size.width));
        break;
    }
    case RenderNode::Kind::group:
        for (auto child = node.children.begin(); child != node.children.end(); ++child) {
            if (!child->reach) {
                reach.reset();
                break;
            }
            const PSDMacRect& r = *child->reach;
            reach = child == node.children.begin()
                        ? r
                        : PSDMacRect(std::min(reach->top, r.top), std::min(reach->left, r.left),
                                     std::max(reach->bottom, r.bottom), std::max(reach->right, r.right));
        }
        break;
    default:
        break;
    }
    for (const auto* mask : {node.mask ? &*node.mask : nullptr, node.realMask ? &*node.realMask : nullptr}) {
        if (mask && mask->density >= 1.0f && mask->defaultValue <= 0.0f) {
            reach = intersection(reach, mask->image ? mask->rect : PSDMacRect());
        }
    }
    if (node.vectorMask && !node.vectorMask->inverted && node.vectorMask->density >= 1.0f) {
        reach = intersection(reach, node.vectorMask->rect);
    }
    return reach;
}

bool opensGroup(const PSDLayerWrapper& layer)
{
    const auto kind = layer.type().kind();
    return kind == PSDLayerType::Kind::group || kind == PSDLayerType::Kind::artboard ||
           kind == PSDLayerType::Kind::sceneGroup;
}

/// The layer tree as indices, top first: a node, and for a group its members.
struct TreeEntry {
    std::size_t index;
    bool isGroup;
    std::vector<TreeEntry> members;
};

std::vector<TreeEntry> layerTree(const PSDWrapper& document)
{
    std::vector<TreeEntry> roots;
    std::vector<TreeEntry> open;
    const auto place = [&](TreeEntry entry) {
        (open.empty() ? roots : open.back().members).push_back(std::move(entry));
    };
    for (std::size_t i = document.layers.size(); i-- > 0;) {
        const PSDLayerWrapper& layer = *document.layers[i];
        if (layer.type().kind() == PSDLayerType::Kind::sectionDivider) {
            if (!open.empty()) {
                TreeEntry group = std::move(open.back());
                open.pop_back();
                place(std::move(group));
            }
            continue;
        }
        if (opensGroup(layer)) {
            open.push_back(TreeEntry{i, true, {}});
            continue;
        }
        place(TreeEntry{i, false, {}});
    }
    while (!open.empty()) {
        TreeEntry group = std::move(open.back());
        open.pop_back();
        place(std::move(group));
    }
    return roots;
}

class PlanBuilder {
  public:
    PlanBuilder(const PSDWrapper& document, const PSDRenderOptions& options, const PSDMacRect& region,
                PSDRenderResult& result)
        : document_(document), region_(region), result_(result)
    {
        if (options.layers) {
            selected_.assign(document.layers.size(), false);
            for (const std::size_t index : *options.layers) {
                selected_[index] = true;
            }
        }
    }

    /// Nodes for `entries` (top first), bottom first, with clipped layers attached to their base.
    std::vector<RenderNode> nodes(const std::vector<TreeEntry>& entries, int depth, bool selectedAbove)
    {
        std::vector<RenderNode> bottomFirst;
        // Walking upwards, a layer that is not clipped becomes the base of the clipped layers
        // directly above it; they show only where it does, so nothing of them shows when the
        // base draws nothing.
        bool haveBase = false;
        bool baseDrawn = false;
        for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
            const PSDLayerWrapper& layer = *document_.layers[entry->index];
            const bool selected = selectedAbove || selected_.empty() || selected_[entry->index];
            std::optional<RenderNode> node;
            if (layer.visible) {
                node = makeNode(*entry, depth, selected);
            }
            if (layer.clipping && !entry->isGroup && haveBase) {
                if (baseDrawn && node) {
                    bottomFirst.back().clipped.push_back(std::move(*node));
                }
                continue;
            }
            haveBase = true;
            baseDrawn = node.has_value();
            if (node) {
                bottomFirst.push_back(std::move(*node));
            }
        }
        return bottomFirst;
    }

  private:
    std::optional<RenderNode> makeNode(const TreeEntry& entry, int depth, bool selected)
    {
        const PSDLayerWrapper& layer = *document_.layers[entry.index];
        RenderNode node;
        node.index = entry.index;
        node.mode = blendModeForLayerKey(layer.blendMode).value_or(image::BlendMode::normal);
        node.opacity = static_cast<float>(std::clamp(layer.opacity, 0.0, 1.0));
        node.fillOpacity = static_cast<float>(std::clamp(layer.fillOpacity, 0.0, 1.0));
        node.vectorMask = makeVectorMask(layer, document_, region_);
        if (entry.isGroup) {
            if (depth >= maximumGroupDepth) {
                return std::nullopt;
            }
            node.kind = RenderNode::Kind::group;
            node.children = nodes(entry.members, depth + 1, selected);
            if (node.children.empty()) {
                return std::nullopt;
            }
        } else {
            if (!selected) {
                return std::nullopt;
            }
            if (node.mode == image::BlendMode::passThrough) {
                node.mode = image::BlendMode::normal;
            }
            if (!prepareContent(layer, node)) {
                return std::nullopt;
            }
            if (!findLayerBlock(layer, PSDFourCharCode("lfx2")).empty() ||
                !findLayerBlock(layer, PSDFourCharCode("lrFX")).empty()) {
                result_.layersWithEffectsNotDrawn.push_back(entry.index);
            }
        }
        prepareMasks(layer, node);
        if (layer.layerBlendingRanges) {
            node.ranges = BlendRanges::parse(*layer.layerBlendingRanges);
        }
        node.reach = reachOf(node);
        return node;
    }

    bool prepareContent(const PSDLayerWrapper& layer, RenderNode& node)
    {
        if (layer.type().kind() == PSDLayerType::Kind::adjustmentLayer) {
            const auto type = layer.type().adjustmentType();
            // A fill layer stores its fill rendered inside its shape. Without the shape's path
            // (a vector mask, kept only by the keep-everything reading) those pixels are the
            // better picture: the fill alone would cover the whole canvas.
            const bool isFill = type == PSDAdjustmentLayerType::solidColor ||
                                type == PSDAdjustmentLayerType::gradientFill ||
                                type == PSDAdjustmentLayerType::patternFill;
            if (isFill && !node.vectorMask && preparePixels(layer, node)) {
                return true;
            }
            const auto* shapeBounds = node.vectorMask ? &node.vectorMask->pathBounds : nullptr;
            if (const auto fill = makeFill(layer, type, document_, shapeBounds)) {
                node.kind = RenderNode::Kind::fill;
                node.fill = fill;
                return true;
            }
            if (isFill && preparePixels(layer, node)) {
                return true; // settings that cannot be drawn (a pattern not in the document)
            }
            if (const auto adjustment = makeAdjustment(layer, type)) {
                node.kind = RenderNode::Kind::adjustment;
                node.adjustment = adjustment;
                return true;
            }
            result_.layersNotDrawn.push_back(node.index);
            return false;
        }
        return preparePixels(layer, node);
    }

    static bool preparePixels(const PSDLayerWrapper& layer, RenderNode& node)
    {
        auto content = layer.contentImage();
        if (!content || image::channelCount(content->format()) != 4 || layer.contentsRect.width() <= 0 ||
            layer.contentsRect.height() <= 0) {
            return false;
        }
        node.kind = RenderNode::Kind::pixels;
        node.content = std::move(content);
        node.contentRect = layer.contentsRect;
        return true;
    }

    void prepareMasks(const PSDLayerWrapper& layer, RenderNode& node)
    {
        // A mask rendered from the vector mask repeats what the path gives, and a fill layer's
        // stored pixels already hold it.
        const bool fromPath = layer.maskCameFromRenderingOtherData;
        const bool storedFill = layer.type().kind() == PSDLayerType::Kind::adjustmentLayer &&
                                node.kind == RenderNode::Kind::pixels;
        const bool maskRepeatsPath = fromPath && (node.vectorMask || storedFill);
        // The mask image is the one the record's first set of mask values describes. When the
        // record has a second ("real") set, the first describes the rendering of the vector mask
        // and the second the user's own mask, stored as channel -3.
        auto maskImage = layer.maskImage();
        if (layer.hasLayerMask && !maskRepeatsPath && !layer.maskDisabled && maskImage &&
            image::channelCount(maskImage->format()) == 1 && maskImage->size() == layer.maskRect.size()) {
            const bool hasDensity = fromPath ? layer.maskHasVectorMaskDensity : layer.maskHasUserMaskDensity;
            const double density = fromPath ? layer.vectorMaskDensity : layer.userMaskDensity;
            const bool hasFeather = fromPath ? layer.maskHasVectorMaskFeather : layer.maskHasUserMaskFeather;
            const double feather = fromPath ? layer.vectorMaskFeather : layer.userMaskFeather;
            node.mask = makePixelMask(maskImage, layer.maskRect, layer.maskDefaultColor,
                                      hasDensity ? density : 1.0, hasFeather ? feather : 0.0, region_);
        }
        if (layer.hasLayerMask && layer.hasRealFlags && fromPath && !layer.realMaskDisabled) {
            if (auto realImage = realMaskImage(layer)) {
                node.realMask =
                    makePixelMask(realImage, layer.realMaskRect, layer.realMaskDefaultColor,
                                  layer.maskHasUserMaskDensity ? layer.userMaskDensity : 1.0,
                                  layer.maskHasUserMaskFeather ? layer.userMaskFeather : 0.0, region_);
            }
        }
    }

    /// The second user mask (channel -3), or null when the record has none of its size.
    static std::shared_ptr<const image::PixelBufferType> realMaskImage(const PSDLayerWrapper& layer)
    {
        const auto channel =
            std::find_if(layer.channelInfo.begin(), layer.channelInfo.end(), [](const auto& c) {
                const auto id = c.properties.find(PSDLayerWrapper::channelIDKey);
                const auto* value =
                    id == c.properties.end() ? nullptr : std::get_if<std::int64_t>(&id->second);
                return value && *value == -3;
            });
        if (channel == layer.channelInfo.end() || layer.realMaskRect.width() <= 0 ||
            layer.realMaskRect.height() <= 0) {
            return nullptr;
        }
        const image::AnyChannelData* channels[] = {&*channel};
        return detail::grayImage(layer.bitDepth, layer.realMaskRect.size(), channels);
    }

    const PSDWrapper& document_;
    PSDMacRect region_;
    PSDRenderResult& result_;
    std::vector<bool> selected_;
};

} // namespace

RenderPlan buildRenderPlan(const PSDWrapper& document, const PSDRenderOptions& options,
                           const PSDMacRect& region, PSDRenderResult& result)
{
    RenderPlan plan;
    plan.bitDepth = document.bitDepth;
    PlanBuilder builder(document, options, region, result);
    plan.roots = builder.nodes(layerTree(document), 0, false);
    return plan;
}

} // namespace psdkit::detail
