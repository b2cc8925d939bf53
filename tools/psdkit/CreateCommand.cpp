// psdkit create OUT --size WxH [--depth 8|16|32] [--psb] LAYER ...: a document from PNG files.
#include <cinttypes>
#include <cstdio>
#include <vector>

#include "Cli.hpp"
#include "Commands.hpp"
#include "Failure.hpp"
#include "LayerSpec.hpp"
#include "Png.hpp"
#include "Unmatte.hpp"

namespace psdkit::cli {

namespace {

using namespace image;

// The largest canvas side of each variant of the format.
constexpr std::int64_t kMaximumPsdSide = 30000;
constexpr std::int64_t kMaximumPsbSide = 300000;

IntegralSize parseSize(const std::string& text, std::int64_t maximumSide)
{
    const auto x = text.find('x');
    const auto width =
        x == std::string::npos ? std::nullopt : parseInteger(text.substr(0, x), 1, maximumSide);
    const auto height =
        x == std::string::npos ? std::nullopt : parseInteger(text.substr(x + 1), 1, maximumSide);
    if (!width || !height) {
        throw UsageError("--size must be WxH with sides from 1 to " + std::to_string(maximumSide) +
                         ", not '" + text + "'");
    }
    return {*width, *height};
}

std::uint8_t sampleTo8(const RgbaImage& png, std::size_t i)
{
    const unsigned v = png.samples[i];
    return static_cast<std::uint8_t>(png.sampleBits == 8 ? v : (v * 255u + 32767u) / 65535u);
}

std::uint16_t sampleTo16(const RgbaImage& png, std::size_t i)
{
    const unsigned v = png.samples[i];
    return static_cast<std::uint16_t>(png.sampleBits == 8 ? v * 257u : v);
}

float sampleTo32(const RgbaImage& png, std::size_t i)
{
    return static_cast<float>(png.samples[i]) / (png.sampleBits == 8 ? 255.0f : 65535.0f);
}

/// The PNG's pixels as a pixel buffer of the document's depth.
std::shared_ptr<PixelBufferType> layerImage(const RgbaImage& png, std::int64_t depth)
{
    const IntegralSize size{png.width, png.height};
    switch (depth) {
    case 16: {
        auto buffer = std::make_shared<PixelBuffer<PixelRGBA16>>(size);
        auto pixels = buffer->pixels();
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            pixels[i] = {sampleTo16(png, 4 * i), sampleTo16(png, 4 * i + 1), sampleTo16(png, 4 * i + 2),
                         sampleTo16(png, 4 * i + 3)};
        }
        return buffer;
    }
    case 32: {
        auto buffer = std::make_shared<PixelBuffer<PixelRGBA32>>(size);
        auto pixels = buffer->pixels();
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            pixels[i] = {sampleTo32(png, 4 * i), sampleTo32(png, 4 * i + 1), sampleTo32(png, 4 * i + 2),
                         sampleTo32(png, 4 * i + 3)};
        }
        return buffer;
    }
    default: {
        auto buffer = std::make_shared<PixelBuffer<PixelARGB8>>(size);
        auto pixels = buffer->pixels();
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            pixels[i] = {sampleTo8(png, 4 * i + 3), sampleTo8(png, 4 * i), sampleTo8(png, 4 * i + 1),
                         sampleTo8(png, 4 * i + 2)};
        }
        return buffer;
    }
    }
}

std::shared_ptr<PSDLayerWrapper> pixelLayer(const LayerSpec& entry, std::int64_t depth,
                                            std::int64_t maximumSide)
{
    const RgbaImage png = onFile(entry.file, [&] { return decodePng(readFile(entry.file)); });
    if (png.width > maximumSide || png.height > maximumSide) {
        throw FileFailure(
            entry.file, std::make_exception_ptr(InputError("the image is larger than the format allows (" +
                                                           std::to_string(maximumSide) + " pixels a side)")));
    }
    auto layer = std::make_shared<PSDLayerWrapper>(depth);
    layer->name = entry.name;
    layer->contentsRect = PSDMacRect(entry.y, entry.x, entry.y + png.height, entry.x + png.width);
    layer->opacity = entry.opacity;
    layer->visible = !entry.hidden;
    layer->setContentImage(layerImage(png, depth));
    return layer;
}

std::shared_ptr<PSDLayerWrapper> groupLayer(const LayerSpec& entry, std::int64_t depth)
{
    auto group = std::make_shared<PSDLayerWrapper>(depth);
    group->setType(PSDLayerType::group());
    group->name = entry.name;
    group->blendMode = PSDFourCharCode("pass");
    group->opacity = entry.opacity;
    group->visible = !entry.hidden;
    return group;
}

/// Adds the layers bottom first; a group's divider goes below its contents and the group's own
/// record above them.
void addLayers(PSDWrapper& document, std::span<const std::string> arguments, std::int64_t maximumSide)
{
    std::vector<LayerSpec> openGroups;
    for (const std::string& argument : arguments) {
        const LayerSpec entry = parseLayerSpec(argument);
        switch (entry.kind) {
        case LayerSpec::Kind::openGroup:
            document.addSectionDivider();
            document.layers.back()->name = "</Layer group>"; // the name editors give the closing record
            openGroups.push_back(entry);
            break;
        case LayerSpec::Kind::closeGroup:
            if (openGroups.empty()) {
                throw UsageError("']' closes no group");
            }
            document.addLayerWrapper(groupLayer(openGroups.back(), document.bitDepth));
            openGroups.pop_back();
            break;
        case LayerSpec::Kind::layer:
            document.addLayerWrapper(pixelLayer(entry, document.bitDepth, maximumSide));
            break;
        }
    }
    if (!openGroups.empty()) {
        throw UsageError("the group '" + openGroups.back().name + "' is not closed with ']'");
    }
}

} // namespace

int runCreate(std::span<const std::string> args)
{
    const Arguments arguments(args, {"size", "depth"}, {"psb"});
    if (arguments.positional().size() < 2) {
        throw UsageError(arguments.positional().empty() ? "missing OUT and LAYER arguments"
                                                        : "at least one LAYER is needed");
    }
    const bool big = arguments.flag("psb");
    const std::int64_t maximumSide = big ? kMaximumPsbSide : kMaximumPsdSide;
    const auto sizeText = arguments.value("size");
    if (!sizeText) {
        throw UsageError("--size WxH is required");
    }
    const IntegralSize size = parseSize(*sizeText, maximumSide);
    const auto depth = parseInteger(arguments.value("depth").value_or("8"), 8, 32);
    if (!depth || (*depth != 8 && *depth != 16 && *depth != 32)) {
        throw UsageError("--depth must be 8, 16 or 32");
    }

    PSDWrapper document;
    document.bigFile = big;
    document.imageWidth = size.width;
    document.imageHeight = size.height;
    document.bitDepth = *depth;
    document.numberOfChannels = 4;
    const std::string& out = arguments.positional()[0];
    addLayers(document, std::span(arguments.positional()).subspan(1), maximumSide);

    const auto composite = renderOrRefuse(document);
    matteOntoWhite(*composite); // the merged image of a document with transparency is stored against white
    onFile(out, [&] {
        writeFileAtomically(
            out, [&](PSDOutputSink& sink) { document.serializeWithCompositeImage(composite.get(), sink); });
    });
    std::printf("%s: %s, %" PRId64 "-bit, %" PRId64 " x %" PRId64 " px, %zu layer record%s\n", out.c_str(),
                big ? "PSB" : "PSD", document.bitDepth, size.width, size.height, document.layers.size(),
                document.layers.size() == 1 ? "" : "s");
    return exitSuccess;
}

} // namespace psdkit::cli
