// The psdkit side of the interop tests (driven by run.py). The host's bundle identifier is set, so
// that a stored property list is found and can be written.
//   dump FILE: prints what psdkit decodes as JSON: depth, host properties, and per layer record its
//       name, kind, bounds, mask bounds and channels (hex text of big-endian samples)
//   rewrite IN OUT [--psb] [--no-layers] [--properties] [--patterns-from FILE]: writes IN back to
//       OUT with its own composite, as PSB, without layers, with a host property list, or with the
//       pattern data of another file
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "psdkit/psdkit.hpp"

namespace {

using namespace psdkit;
using nlohmann::ordered_json;
namespace fs = std::filesystem;

PSDWrapper readDocument(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot open " + path.string());
    }
    return PSDWrapper(
        PSDSharedBytes({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()}));
}

/// The logical channels of a buffer (red, green, blue, transparency; or the single grey one), each
/// as hex text of its big-endian samples: the library's own split, uncompressed.
std::vector<std::string> planes(const image::PixelBufferType& buffer)
{
    std::vector<std::string> result;
    for (const auto& channel : buffer.makeChannelData(false, image::ChannelDataCompressionType::none,
                                                      image::PredictionType::none, false)) {
        std::string& hex = result.emplace_back();
        for (const std::uint8_t byte : channel.storedBytes()) {
            hex += "0123456789abcdef"[byte >> 4];
            hex += "0123456789abcdef"[byte & 15];
        }
    }
    return result;
}

ordered_json bounds(const PSDMacRect& rect)
{
    return ordered_json::array({rect.top, rect.left, rect.bottom, rect.right});
}

int dump(const fs::path& input)
{
    const PSDWrapper document = readDocument(input);

    // Indexed by PSDLayerType::Kind; a scene group counts as a plain layer record.
    static const char* const kindNames[] = {"adjustment", "layer", "group", "divider", "layer", "artboard"};
    ordered_json layers = ordered_json::array();
    for (const auto& layer : document.layers) {
        ordered_json entry = {{"name", layer->name},
                              {"kind", kindNames[static_cast<int>(layer->type().kind())]},
                              {"bounds", bounds(layer->contentsRect)},
                              {"mask", nullptr},
                              {"channels", ordered_json::object()}};
        if (const auto content = layer->contentImage()) { // always a colour buffer
            const auto c = planes(*content);
            entry["channels"] = {{"0", c[0]}, {"1", c[1]}, {"2", c[2]}, {"-1", c[3]}};
        }
        if (layer->hasLayerMask) {
            entry["mask"] = bounds(layer->maskRect);
            if (const auto mask = layer->maskImage()) {
                entry["channels"]["-2"] = planes(*mask).front();
            }
        }
        layers.push_back(std::move(entry));
    }
    const auto image = document.compositeImage();
    // Host properties as text, enough to see that they came back.
    ordered_json properties = ordered_json::object();
    for (const auto& [key, value] : document.propertiesDictionary) {
        const auto* text = value.getIf<std::string>();
        properties[key] = text != nullptr ? ordered_json(*text) : ordered_json();
    }
    const ordered_json summary = {
        {"depth", document.bitDepth},
        {"compositeHasAlpha", document.compositeImageHasAlphaChannel},
        {"properties", std::move(properties)},
        {"layers", std::move(layers)},
        {"composite", image ? planes(*image) : std::vector<std::string>()},
    };
    std::puts(summary.dump(-1, ' ', false, ordered_json::error_handler_t::replace).c_str());
    return 0;
}

int rewrite(const fs::path& input, const fs::path& output, std::span<char*> options)
{
    PSDWrapper document = readDocument(input);
    for (std::size_t i = 0; i < options.size(); ++i) {
        const std::string option = options[i];
        if (option == "--patterns-from" && i + 1 < options.size()) {
            document.patternData = readDocument(options[++i]).patternData;
        } else if (option == "--psb") {
            document.bigFile = true;
        } else if (option == "--no-layers") {
            document.layers.clear();
        } else if (option == "--properties") {
            document.propertiesDictionary["Interop Note"] = std::string("written for independent readers");
            document.propertiesDictionary["Revision"] = std::int64_t{3};
        } else {
            std::fprintf(stderr, "unknown option %s\n", option.c_str());
            return 2;
        }
    }
    const auto bytes =
        document.serializedRepresentationWithCompositeImage(document.compositeImageOrBlank().get());
    std::ofstream file(output, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + output.string());
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    setDiagnosticsSink({});
    HostApplication host = HostApplication::current();
    host.bundleIdentifier = "org.psdkit.interop-tests";
    HostApplication::setCurrent(host);
    const std::string command = argc > 1 ? argv[1] : "";
    try {
        if (command == "dump" && argc == 3) {
            return dump(argv[2]);
        }
        if (command == "rewrite" && argc >= 4) {
            return rewrite(argv[2], argv[3], std::span(argv + 4, static_cast<std::size_t>(argc - 4)));
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "error: %s\n", error.what());
        return 1;
    }
    std::fprintf(stderr, "usage: %s dump FILE | rewrite IN OUT [OPTION...]\n", argv[0]);
    return 2;
}
