// psdkit render FILE OUT.png [--scale F] [--region X,Y,W,H]: the picture the layers make.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "Cli.hpp"
#include "Commands.hpp"
#include "Failure.hpp"
#include "Png.hpp"
#include "psdkit/render/PSDRenderer.hpp"

namespace psdkit::cli {

namespace {

double parseScale(const std::string& text)
{
    char* end = nullptr;
    const double scale = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(scale > 0.0 && scale <= 16.0)) {
        throw UsageError("--scale takes a number above 0 and at most 16");
    }
    return scale;
}

image::IntegralRect parseRegion(const std::string& text)
{
    std::int64_t v[4];
    std::istringstream in(text);
    std::string part;
    int count = 0;
    while (std::getline(in, part, ',')) {
        const auto value = parseInteger(part, count < 2 ? 0 : 1, 1'000'000);
        if (count >= 4 || !value) {
            throw UsageError("--region takes X,Y,W,H (whole numbers, W and H at least 1)");
        }
        v[count++] = *value;
    }
    if (count != 4) {
        throw UsageError("--region takes X,Y,W,H (whole numbers, W and H at least 1)");
    }
    return {v[0], v[1], v[2], v[3]};
}

} // namespace

std::string describeUndrawn(const PSDRenderResult& result)
{
    std::string text;
    if (!result.layersWithEffectsNotDrawn.empty()) {
        text += "; layer effects not drawn on " + std::to_string(result.layersWithEffectsNotDrawn.size()) +
                " layer" + (result.layersWithEffectsNotDrawn.size() == 1 ? "" : "s");
    }
    if (!result.layersNotDrawn.empty()) {
        text += "; " + std::to_string(result.layersNotDrawn.size()) + " adjustment or fill layer" +
                (result.layersNotDrawn.size() == 1 ? "" : "s") + " not drawn";
    }
    return text;
}

std::shared_ptr<image::PixelBufferType>
renderOrRefuse(const PSDWrapper& document, const PSDRenderOptions& options, PSDRenderResult* details)
{
    try {
        PSDRenderResult result = renderDocument(document, options);
        if (details) {
            *details = result;
        }
        return result.image;
    } catch (const PSDRenderException& e) {
        throw InputError(e.what());
    }
}

int runRender(std::span<const std::string> args)
{
    const Arguments arguments(args, {"scale", "region"}, {});
    arguments.expectPositional(2, 2);
    const std::string& input = arguments.positional()[0];
    const std::string& output = arguments.positional()[1];
    PSDRenderOptions options;
    if (const auto scale = arguments.value("scale")) {
        options.scale = parseScale(*scale);
    }
    if (const auto region = arguments.value("region")) {
        options.region = parseRegion(*region);
    }
    // Vector masks of shape layers arrive among the blocks kept whole.
    const PSDWrapper document =
        onFile(input, [&] { return readDocument(input, PSDReadOptions{.keepUnknownBlocks = true}); });
    PSDRenderResult result;
    const auto image = onFile(input, [&] { return renderOrRefuse(document, options, &result); });
    const auto pixels = pngPixels(*image);
    if (!pixels) {
        throw FileFailure(output, std::make_exception_ptr(InputError("the rendered image cannot be a PNG")));
    }
    PngOptions png;
    png.iccProfile = document.colorSpace.iccData();
    png.iccProfileName = document.colorSpace.name();
    const auto bytes = onFile(output, [&] { return encodePng(*pixels, png); });
    onFile(output, [&] { writeFileAtomically(output, bytes); });
    std::printf("%s: %" PRId64 " x %" PRId64 " px, %d-bit%s\n", output.c_str(), image->size().width,
                image->size().height, pixels->bitDepth, describeUndrawn(result).c_str());
    return exitSuccess;
}

} // namespace psdkit::cli
