// psdkit info FILE [--json]: the document at a glance.
#include <array>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <string>

#include "Cli.hpp"
#include "Commands.hpp"
#include "DocumentJson.hpp"
#include "Failure.hpp"
#include "LayerFacts.hpp"
#include "LayerTree.hpp"
#include "psdkit/document/PSDFileHeader.hpp"

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

struct Listing {
    const PSDWrapper& document;
    const std::vector<LayerFacts>& facts;
    bool verbose = false;
};

// The start of a text layer's string, on one line.
std::string textExcerpt(const std::string& text)
{
    constexpr std::size_t kLongest = 60;
    std::string line;
    for (const char c : text) {
        line += c == '\n' ? ' ' : c;
    }
    if (line.size() > kLongest) {
        std::size_t cut = kLongest;
        while (cut > 0 && (static_cast<unsigned char>(line[cut]) & 0xC0) == 0x80) {
            --cut; // not inside a UTF-8 sequence
        }
        line = line.substr(0, cut) + "...";
    }
    return printable(line);
}

std::string placedFileText(const PSDLinkedFile& file)
{
    std::string text = "placed \"" + printable(file.fileName) + "\"";
    if (!file.fileType.empty()) {
        text += " " + printable(file.fileType);
    }
    if (file.byteCount) {
        text += " " + std::to_string(*file.byteCount) + " bytes";
    }
    text += file.embedded ? " embedded" : " linked";
    return text;
}

std::string keptBlocksText(const PSDLayerWrapper& layer, bool verbose)
{
    std::string keys;
    const auto add = [&](const PSDFourCharCode& key) {
        if (verbose || blockMattersToUser(key)) {
            keys += " " + printable(key.rawValue());
        }
    };
    for (const auto& [key, data] : layer.taggedData) {
        add(key);
    }
    for (const PSDRawBlock& block : layer.uninterpretedBlocks) {
        add(block.key);
    }
    return keys.empty() ? keys : "  kept:" + keys;
}

void printLayer(const Listing& listing, const LayerNode& node, int depth)
{
    const PSDLayerWrapper& layer = *listing.document.layers[node.index];
    const LayerFacts& facts = listing.facts[node.index];
    std::string line(static_cast<std::size_t>(2 + 2 * depth), ' ');
    line += "#" + std::to_string(node.index) + " " + kindText(layer, facts.kind) + " \"" +
            printable(layer.name) + "\"";
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
    if (facts.text) {
        line += "  text \"" + textExcerpt(*facts.text) + "\"";
    }
    if (facts.placedFile) {
        line += "  " + placedFileText(*facts.placedFile);
    }
    line += keptBlocksText(layer, listing.verbose);
    std::printf("%s\n", line.c_str());
    for (const LayerNode& child : node.children) {
        printLayer(listing, child, depth + 1);
    }
}

// The stored resolution is pixels per inch whatever the unit; the unit is only the one the saving
// application displays.
std::string resolutionText(const PSDWrapper& document)
{
    char text[160];
    const auto displayUnit = [](std::int64_t unit) { return unit == 2 ? "pixels/cm" : "ppi"; };
    if (document.hResUnit == 2 || document.vResUnit == 2) {
        std::snprintf(text, sizeof text, "%g x %g ppi (displayed as %.2f x %.2f %s)", document.hRes,
                      document.vRes, document.hRes / 2.54, document.vRes / 2.54,
                      displayUnit(document.hResUnit));
    } else {
        std::snprintf(text, sizeof text, "%g x %g ppi", document.hRes, document.vRes);
    }
    return text;
}

void printText(const std::string& path, const PSDWrapper& document, const LayerTree& tree, bool verbose)
{
    std::printf("File:        %s\n", path.c_str());
    std::printf("Format:      %s, %" PRId64 "-bit RGB\n", formatName(document), document.bitDepth);
    std::printf("Size:        %" PRId64 " x %" PRId64 " px\n", document.imageWidth, document.imageHeight);
    std::printf("Resolution:  %s\n", resolutionText(document).c_str());
    std::printf("Channels:    %" PRId64 "%s\n", document.numberOfChannels,
                document.compositeImageHasAlphaChannel ? " (with merged transparency)" : "");
    std::printf("Profile:     %s\n", printable(document.colorSpace.name()).c_str());
    std::printf("Layers:      %zu record%s%s\n", document.layers.size(),
                document.layers.size() == 1 ? "" : "s", document.layers.empty() ? "" : ", top first:");
    const std::vector<LayerFacts> facts = layerFacts(document);
    const Listing listing{document, facts, verbose};
    for (const LayerNode& node : tree.roots) {
        printLayer(listing, node, 0);
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

// The header of a file the library refused, printed before the refusal is reported; nothing
// when even the header cannot be read.
void printRefusedHeader(const std::string& path, bool json)
{
    std::array<std::uint8_t, 26> bytes{};
    std::ifstream file(path, std::ios::binary);
    if (!file.read(reinterpret_cast<char*>(bytes.data()), bytes.size())) {
        return;
    }
    PSDFileHeader header;
    try {
        header = probePSDFileHeader(bytes);
    } catch (const PSDException&) {
        return;
    }
    if (json) {
        Json out = Json::object();
        out["file"] = path;
        out["refused"] = true;
        out.update(headerJson(header));
        std::printf("%s\n", dumpJson(out).c_str());
        return;
    }
    std::printf("File:        %s\n", path.c_str());
    std::printf("Format:      %s, %" PRId64 "-bit %s (not read)\n", header.bigFile ? "PSB" : "PSD",
                header.bitDepth, colorModeName(header.colorMode).c_str());
    std::printf("Size:        %" PRId64 " x %" PRId64 " px\n", header.width, header.height);
    std::printf("Channels:    %" PRId64 "\n", header.numberOfChannels);
}

int runInfo(std::span<const std::string> args)
{
    const Arguments arguments(args, {}, {"json", "verbose"});
    arguments.expectPositional(1, 1);
    const std::string& path = arguments.positional()[0];
    PSDReadOptions options;
    options.keepUnknownBlocks = true;
    options.imageDecoding = PSDImageDecoding::never; // a listing needs the structure only
    const PSDWrapper document = onFile(path, [&] {
        try {
            return readDocument(path, options);
        } catch (const PSDException&) {
            printRefusedHeader(path, arguments.flag("json"));
            throw;
        }
    });
    const LayerTree tree = buildLayerTree(document.layers);
    if (arguments.flag("json")) {
        Json json = Json::object();
        json["file"] = path;
        json.update(documentJson(document, tree));
        std::printf("%s\n", dumpJson(json).c_str());
    } else {
        printText(path, document, tree, arguments.flag("verbose"));
    }
    return exitSuccess;
}

} // namespace psdkit::cli
