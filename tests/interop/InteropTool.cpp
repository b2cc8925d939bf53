// The psdkit side of the interop tests (driven by run.py):
//
//   psdkit_interop_tool dump FILE FOLDER
//       reads FILE and writes what psdkit decodes into FOLDER: document.json (header values, host
//       properties, and per layer record its name, kind, bounds, mask bounds and channel files) and
//       one file per decoded channel, samples big-endian as the format stores them
//   psdkit_interop_tool rewrite IN OUT [--psb] [--properties] [--patterns-from FILE]
//       reads IN and writes it back to OUT with its own composite; --psb writes the big-document
//       variant, --properties adds a host property list, --patterns-from takes the pattern data of
//       another file
//
// The host's bundle identifier is set, so that a stored property list is found and can be written.
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include <nlohmann/json.hpp>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"
#include "psdkit/platform/support/Diagnostics.hpp"
#include "psdkit/platform/support/HostApplication.hpp"

namespace {

using namespace psdkit;
using nlohmann::ordered_json;
namespace fs = std::filesystem;

constexpr const char* bundleIdentifier = "org.psdkit.interop-tests";

std::vector<std::uint8_t> readFile(const fs::path& path)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    std::vector<std::uint8_t> bytes;
    std::uint8_t chunk[1 << 16];
    std::size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
        bytes.insert(bytes.end(), chunk, chunk + n);
    }
    std::fclose(file);
    return bytes;
}

void writeFile(const fs::path& path, std::span<const std::uint8_t> bytes)
{
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (std::fclose(file) != 0 || !ok) {
        throw std::system_error(EIO, std::generic_category(), path.string());
    }
}

/// Appends `sample` big-endian.
template <typename Sample> void appendBigEndian(std::vector<std::uint8_t>& out, Sample sample)
{
    std::uint8_t bytes[sizeof(Sample)];
    std::memcpy(bytes, &sample, sizeof(Sample));
    if constexpr (std::endian::native == std::endian::little) {
        for (std::size_t i = sizeof(Sample); i-- > 0;) {
            out.push_back(bytes[i]);
        }
    } else {
        out.insert(out.end(), bytes, bytes + sizeof(Sample));
    }
}

/// The logical channels (red, green, blue, transparency; or the single grey one) of a buffer.
template <typename P> std::vector<std::vector<std::uint8_t>> planesOf(const image::PixelBuffer<P>& buffer)
{
    using Traits = image::PixelTraits<P>;
    using Sample = typename Traits::Sample;
    std::vector<std::vector<std::uint8_t>> planes(Traits::channelCount);
    const auto pixels = buffer.pixels();
    for (std::size_t c = 0; c < Traits::channelCount; ++c) {
        planes[c].reserve(pixels.size() * sizeof(Sample));
        for (const P& pixel : pixels) {
            Sample samples[Traits::channelCount];
            std::memcpy(samples, &pixel, sizeof samples);
            appendBigEndian(planes[c], samples[Traits::memoryIndex[c]]);
        }
    }
    return planes;
}

std::vector<std::vector<std::uint8_t>> planes(const image::PixelBufferType& buffer)
{
    using image::PixelFormat;
    switch (buffer.format()) {
    case PixelFormat::argb8:
        return planesOf(dynamic_cast<const image::PixelBuffer<image::PixelARGB8>&>(buffer));
    case PixelFormat::rgba16:
        return planesOf(dynamic_cast<const image::PixelBuffer<image::PixelRGBA16>&>(buffer));
    case PixelFormat::rgba32:
        return planesOf(dynamic_cast<const image::PixelBuffer<image::PixelRGBA32>&>(buffer));
    case PixelFormat::gray8:
        return planesOf(dynamic_cast<const image::PixelBuffer<image::PixelGray8>&>(buffer));
    case PixelFormat::gray16:
        return planesOf(dynamic_cast<const image::PixelBuffer<image::PixelGray16>&>(buffer));
    case PixelFormat::gray32:
        return planesOf(dynamic_cast<const image::PixelBuffer<image::PixelGray32>&>(buffer));
    }
    return {};
}

const char* kindName(const PSDLayerType& type)
{
    switch (type.kind()) {
    case PSDLayerType::Kind::group:
        return "group";
    case PSDLayerType::Kind::sectionDivider:
        return "divider";
    case PSDLayerType::Kind::artboard:
        return "artboard";
    case PSDLayerType::Kind::adjustmentLayer:
        return "adjustment";
    case PSDLayerType::Kind::sceneGroup:
    case PSDLayerType::Kind::regular:
        break;
    }
    return "layer";
}

ordered_json bounds(const PSDMacRect& rect)
{
    return ordered_json::array({rect.top, rect.left, rect.bottom, rect.right});
}

/// Host properties as text, enough to see that they came back.
ordered_json propertiesJson(const PropertyDictionary& properties)
{
    ordered_json result = ordered_json::object();
    for (const auto& [key, value] : properties) {
        if (const auto* text = value.getIf<std::string>()) {
            result[key] = *text;
        } else if (const auto* number = value.getIf<std::int64_t>()) {
            result[key] = *number;
        } else {
            result[key] = nullptr;
        }
    }
    return result;
}

int dump(const fs::path& input, const fs::path& folder)
{
    const std::vector<std::uint8_t> bytes = readFile(input);
    const PSDWrapper document{std::span<const std::uint8_t>(bytes)};
    fs::create_directories(folder);
    std::size_t written = 0;
    const auto writePlane = [&](const std::vector<std::uint8_t>& plane) {
        const std::string name = "p" + std::to_string(written++) + ".bin";
        writeFile(folder / name, plane);
        return name;
    };

    ordered_json layers = ordered_json::array();
    for (const auto& layer : document.layers) {
        ordered_json entry = {{"name", layer->name},
                              {"kind", kindName(layer->type())},
                              {"bounds", bounds(layer->contentsRect)},
                              {"mask", nullptr},
                              {"channels", ordered_json::object()}};
        if (layer->contentImage()) {
            const auto content = planes(*layer->contentImage());
            const char* ids[] = {"0", "1", "2", "-1"};
            for (std::size_t c = 0; c < content.size(); ++c) {
                entry["channels"][ids[c]] = writePlane(content[c]);
            }
        }
        if (layer->hasLayerMask) {
            entry["mask"] = bounds(layer->maskRect);
            if (layer->maskImage()) {
                entry["channels"]["-2"] = writePlane(planes(*layer->maskImage()).front());
            }
        }
        layers.push_back(std::move(entry));
    }
    ordered_json composite = ordered_json::array();
    if (const auto image = document.compositeImage()) {
        for (const auto& plane : planes(*image)) {
            composite.push_back(writePlane(plane));
        }
    }
    const ordered_json summary = {
        {"width", document.imageWidth},
        {"height", document.imageHeight},
        {"depth", document.bitDepth},
        {"bigFile", document.bigFile},
        {"compositeHasAlpha", document.compositeImageHasAlphaChannel},
        {"properties", propertiesJson(document.propertiesDictionary)},
        {"patternBytes", document.patternData ? ordered_json(document.patternData->size()) : ordered_json()},
        {"layers", std::move(layers)},
        {"composite", std::move(composite)},
    };
    const std::string text = summary.dump(1, ' ', false, ordered_json::error_handler_t::replace);
    writeFile(folder / "document.json",
              std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
    return 0;
}

int rewrite(const fs::path& input, const fs::path& output, std::span<char*> options)
{
    const std::vector<std::uint8_t> bytes = readFile(input);
    PSDWrapper document{std::span<const std::uint8_t>(bytes)};
    for (std::size_t i = 0; i < options.size(); ++i) {
        const std::string option = options[i];
        if (option == "--patterns-from" && i + 1 < options.size()) {
            const std::vector<std::uint8_t> other = readFile(options[++i]);
            document.patternData = PSDWrapper(std::span<const std::uint8_t>(other)).patternData;
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
    const auto composite = document.compositeImageOrBlank();
    writeFile(output, document.serializedRepresentationWithCompositeImage(composite.get()));
    return 0;
}

int run(int argc, char** argv)
{
    setDiagnosticsSink({});
    HostApplication host = HostApplication::current();
    host.bundleIdentifier = bundleIdentifier;
    HostApplication::setCurrent(host);

    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "dump" && argc == 4) {
        return dump(argv[2], argv[3]);
    }
    if (command == "rewrite" && argc >= 4) {
        return rewrite(argv[2], argv[3], std::span(argv + 4, static_cast<std::size_t>(argc - 4)));
    }
    std::fprintf(stderr,
                 "usage: %s dump FILE FOLDER\n"
                 "       %s rewrite IN OUT [--psb] [--no-layers] [--properties] [--patterns-from FILE]\n",
                 argv[0], argv[0]);
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "error: %s [%s %d]\n", error.what(), error.code().category().name(),
                     error.code().value());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "error: %s\n", error.what());
    }
    return 1;
}
