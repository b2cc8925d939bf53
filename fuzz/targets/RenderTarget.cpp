// Render target: reads the input as a PSD or PSB file keeping every block, then renders a corner
// of its canvas and a small thumbnail of all of it. Work is bounded: the corner is at most
// 64 × 64 document pixels, and the thumbnail is rendered only for canvases of at most 512 × 512.
// A document that was read must render, or be refused with PSDRenderException.
#include <algorithm>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/render/PSDRenderer.hpp"
#include "targets/FuzzTargets.hpp"

namespace psdkit::fuzz {

Outcome runRender(std::span<const std::uint8_t> input)
{
    std::optional<PSDWrapper> document;
    Outcome read = attempt([&] { document.emplace(input, PSDReadOptions{.keepUnknownBlocks = true}); });
    if (!document) {
        return read;
    }
    const std::int64_t width = document->imageWidth;
    const std::int64_t height = document->imageHeight;
    return attempt([&] {
        try {
            PSDRenderOptions corner;
            corner.threadCount = 1;
            corner.region = image::IntegralRect{0, 0, std::min<std::int64_t>(width, 64),
                                                std::min<std::int64_t>(height, 64)};
            (void)renderDocument(*document, corner);
            if (width > 0 && height > 0 && width <= 512 && height <= 512) {
                PSDRenderOptions thumbnail;
                thumbnail.threadCount = 1;
                thumbnail.scale = 0.125;
                thumbnail.whiteBackground = true;
                (void)renderDocument(*document, thumbnail);
            }
        } catch (const PSDRenderException&) {
            // A refused request (empty canvas) is an answer, not a failure.
        }
    });
}

} // namespace psdkit::fuzz
