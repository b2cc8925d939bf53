// psdkit info FILE [--json]: the document at a glance.
#include <cinttypes>
#include <cstdio>
#include <string>

#include "Cli.hpp"
#include "Commands.hpp"
#include "DocumentJson.hpp"
#include "Failure.hpp"
#include "LayerTree.hpp"

namespace psdkit::cli {

namespace {

std::string percent(double fraction)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.0f%%", fraction * 100.0);
    return text;
}

std::string rectText(const PSDMacRect& rect)
{
    char text[160];
    std::snprintf(text, sizeof text,
                  "(%" PRId64 ",%" PRId64 ")-(%" PRId64 ",%" PRId64 ") %" PRId64 "x%" PRId64, rect.left,
                  rect.top, rect.right, rect.bottom, rect.width(), rect.height());
    return text;
}

std::string kindText(const PSDLayerWrapper& layer)
{
    switch (layer.type().kind()) {
    case PSDLayerType::Kind::regular:
        return "layer";
    case PSDLayerType::Kind::group:
        return layer.subtype.kind() == PSDLayerType::Kind::sceneGroup ? "scene group" : "group";
    case PSDLayerType::Kind::sectionDivider:
        return "divider";
    case PSDLayerType::Kind::artboard:
        return "artboard";
    case PSDLayerType::Kind::sceneGroup:
        return "scene group";
    case PSDLayerType::Kind::adjustmentLayer: {
        const PSDAdjustmentLayerType adjustment = layer.type().adjustmentType();
        const bool fill = adjustment == PSDAdjustmentLayerType::solidColor ||
                          adjustment == PSDAdjustmentLayerType::gradientFill ||
                          adjustment == PSDAdjustmentLayerType::patternFill;
        return std::string(fill ? "fill " : "adjustment ") + name(adjustment);
    }
    }
    return "layer";
}

void printLayer(const PSDWrapper& document, const LayerNode& node, int depth)
{
    const PSDLayerWrapper& layer = *document.layers[node.index];
    std::string line(static_cast<std::size_t>(2 + 2 * depth), ' ');
    line += "#" + std::to_string(node.index) + " " + kindText(layer) + " \"" + printable(layer.name) + "\"";
    if (!node.isGroup || !layer.contentsRect.isEmpty()) {
        line += "  " + rectText(layer.contentsRect);
    }
    line += "  opacity " + percent(layer.opacity);
    if (layer.fillOpacity != 1.0) {
        line += "  fill " + percent(layer.fillOpacity);
    }
    line += "  " + layer.blendMode.rawValue();
    if (!layer.visible) {
        line += "  hidden";
    }
    if (layer.clipping) {
        line += "  clipped";
    }
    if (layer.hasLayerMask) {
        line += "  mask " + rectText(layer.maskRect) + (layer.maskDisabled ? " (disabled)" : "");
    }
    if (layer.taggedData.size() > 0) {
        line += "  kept:";
        for (const auto& [key, data] : layer.taggedData) {
            line += " " + key.rawValue();
        }
    }
    std::printf("%s\n", line.c_str());
    for (const LayerNode& child : node.children) {
        printLayer(document, child, depth + 1);
    }
}

void printText(const std::string& path, const PSDWrapper& document, const LayerTree& tree)
{
    std::printf("File:        %s\n", path.c_str());
    std::printf("Format:      %s, %" PRId64 "-bit RGB\n", formatName(document), document.bitDepth);
    std::printf("Size:        %" PRId64 " x %" PRId64 " px\n", document.imageWidth, document.imageHeight);
    std::printf("Resolution:  %g x %g %s\n", document.hRes, document.vRes,
                document.hResUnit == 2 ? "pixels/cm" : "ppi");
    std::printf("Channels:    %" PRId64 "%s\n", document.numberOfChannels,
                document.compositeImageHasAlphaChannel ? " (with merged transparency)" : "");
    std::printf("Profile:     %s\n", printable(document.colorSpace.name()).c_str());
    std::printf("Layers:      %zu record%s%s\n", document.layers.size(),
                document.layers.size() == 1 ? "" : "s", document.layers.empty() ? "" : ", top first:");
    for (const LayerNode& node : tree.roots) {
        printLayer(document, node, 0);
    }
    if (tree.unbalanced) {
        std::printf("  (the group records are unbalanced)\n");
    }
    if (document.alphaChannels && !document.alphaChannels->empty()) {
        std::printf("Alpha channels:\n");
        for (const auto& channel : *document.alphaChannels) {
            std::printf("  \"%s\"\n", channel->name ? printable(*channel->name).c_str() : "(unnamed)");
        }
    }
    if (!document.imageResources.empty()) {
        std::string line;
        for (const PSDImageResourceBlock& block : document.imageResources) {
            line += " " + std::to_string(block.identifier);
        }
        std::printf("Kept resources:%s\n", line.c_str());
    }
    if (document.metadata && !document.metadata->empty()) {
        std::printf("Metadata:    %zu properties\n", document.metadata->properties().size());
    }
}

} // namespace

int runInfo(std::span<const std::string> args)
{
    const Arguments arguments(args, {}, {"json"});
    arguments.expectPositional(1, 1);
    const std::string& path = arguments.positional()[0];
    const PSDWrapper document = onFile(path, [&] { return readDocument(path, PSDImageDecoding::never); });
    const LayerTree tree = buildLayerTree(document.layers);
    if (arguments.flag("json")) {
        Json json = Json::object();
        json["file"] = path;
        json.update(documentJson(document, tree));
        std::printf("%s\n", dumpJson(json).c_str());
    } else {
        printText(path, document, tree);
    }
    return exitSuccess;
}

} // namespace psdkit::cli
