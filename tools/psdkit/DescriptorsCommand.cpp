// psdkit descriptors FILE [--layer N]: every kept block that holds a descriptor, as JSON.
#include <cstdio>

#include "Cli.hpp"
#include "Commands.hpp"
#include "DescriptorJson.hpp"
#include "Failure.hpp"
#include "psdkit/core/PSDScanner.hpp"

namespace psdkit::cli {

namespace {

/// A kind of block that holds one descriptor, and where its version word (16) starts.
struct DescriptorBlock {
    const char* key;
    std::size_t offset;
};

// Layer blocks: fill settings, the adjustments stored as descriptors, artboards (each the version
// word, then the descriptor); colour lookup (a 2-byte version first); effects (a 4-byte effects
// version first). The other kept blocks hold binary settings.
constexpr DescriptorBlock kLayerBlocks[] = {
    {"SoCo", 0}, {"GdFl", 0}, {"PtFl", 0}, {"vibA", 0}, {"blwh", 0},
    {"artb", 0}, {"clrL", 2}, {"lfx2", 4}, {"lmfx", 4},
};

// Image resources made of the version word and one descriptor: layer comps, measurement scale,
// timeline, sheet disclosure, onion skins, count information, print information, print style,
// path selection state, origin path information.
constexpr std::int64_t kDescriptorResources[] = {1065, 1074, 1075, 1076, 1078, 1080, 1082, 1083, 1088, 3000};

/// The descriptor stored at `offset` of `data`, or the error's case name under "error".
Json readDescriptor(const std::vector<std::uint8_t>& data, std::size_t offset)
{
    if (offset > data.size()) {
        return Json{{"error", "readUnexpectedEndOfFile"}};
    }
    try {
        PSDScanner scanner(std::span<const std::uint8_t>(data).subspan(offset));
        PSDDescriptor descriptor;
        descriptor.read(scanner, false);
        return Json{{"descriptor", descriptorJson(descriptor)}};
    } catch (const PSDException& e) {
        return Json{{"error", std::string(e.error().name())}};
    }
}

Json layerDescriptors(const PSDWrapper& document, std::size_t index)
{
    const PSDLayerWrapper& layer = *document.layers[index];
    Json blocks = Json::array();
    for (const auto& [key, data] : layer.taggedData) {
        for (const DescriptorBlock& block : kLayerBlocks) {
            if (key.rawValue() == block.key) {
                Json entry{{"key", key.rawValue()}};
                entry.update(readDescriptor(data, block.offset));
                blocks.push_back(std::move(entry));
            }
        }
    }
    return Json{{"index", index}, {"name", layer.name}, {"blocks", std::move(blocks)}};
}

} // namespace

int runDescriptors(std::span<const std::string> args)
{
    const Arguments arguments(args, {"layer"}, {});
    arguments.expectPositional(1, 1);
    const std::string& path = arguments.positional()[0];
    std::optional<std::int64_t> onlyLayer;
    if (const auto layerText = arguments.value("layer")) {
        onlyLayer = parseInteger(*layerText, 0, INT64_MAX);
        if (!onlyLayer) {
            throw UsageError("--layer needs a layer record number (0 is the bottom record)");
        }
    }
    PSDReadOptions options;
    options.keepUnknownBlocks = true;                // descriptors of kept blocks are listed too
    options.imageDecoding = PSDImageDecoding::never; // a listing needs the structure only
    const PSDWrapper document = onFile(path, [&] { return readDocument(path, options); });
    Json json{{"file", path}};
    if (onlyLayer) {
        if (static_cast<std::uint64_t>(*onlyLayer) >= document.layers.size()) {
            throw UsageError("there is no layer record " + std::to_string(*onlyLayer) +
                             " (the document has " + std::to_string(document.layers.size()) + ")");
        }
        json["layers"] = Json::array({layerDescriptors(document, static_cast<std::size_t>(*onlyLayer))});
    } else {
        Json resources = Json::array();
        for (const PSDImageResourceBlock& resource : document.imageResources) {
            for (const std::int64_t identifier : kDescriptorResources) {
                if (resource.identifier == identifier) {
                    Json entry{{"identifier", identifier}};
                    entry.update(readDescriptor(resource.data, 0));
                    resources.push_back(std::move(entry));
                }
            }
        }
        json["imageResources"] = std::move(resources);
        Json layers = Json::array();
        for (std::size_t i = 0; i < document.layers.size(); ++i) {
            Json entry = layerDescriptors(document, i);
            if (!entry["blocks"].empty()) {
                layers.push_back(std::move(entry));
            }
        }
        json["layers"] = std::move(layers);
    }
    std::printf("%s\n", dumpJson(json).c_str());
    return exitSuccess;
}

} // namespace psdkit::cli
