// edit_layers: a small host of the psdkit library. It opens a PSD or PSB file, lists its layers,
// halves the opacity of the topmost pixel layer, adds a layer of pixels it paints itself and writes
// the document to a new file.   usage: edit_layers IN.psd OUT.psd
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include <psdkit/document/PSDWrapper.hpp>
#include <psdkit/platform/support/Diagnostics.hpp>
#include <psdkit/platform/support/HostApplication.hpp>

using namespace psdkit;

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: edit_layers IN.psd OUT.psd\n");
        return 1;
    }
    HostApplication host; // the identifier under which documents keep this host's own properties
    host.bundleIdentifier = "io.psdkit.example.edit-layers";
    HostApplication::setCurrent(host);
    setDiagnosticsSink({}); // the library's trace lines go to standard output unless silenced
    try {
        std::ifstream in(argv[1], std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "%s: cannot open\n", argv[1]);
            return 3;
        }
        const std::vector<std::uint8_t> input{std::istreambuf_iterator<char>(in), {}};
        PSDWrapper doc(input); // the library never touches the disk: bytes in, bytes out
        std::printf("%lldx%lld, %lld-bit, %zu layer records (bottom first):\n", (long long)doc.imageWidth,
                    (long long)doc.imageHeight, (long long)doc.bitDepth, doc.layers.size());
        for (const auto& layer : doc.layers) {
            const PSDMacRect& r = layer->contentsRect;
            std::printf("  %-20s %-16s %lldx%lld at (%lld,%lld), opacity %.2f\n", layer->name.c_str(),
                        layer->type().description().c_str(), (long long)r.width(), (long long)r.height(),
                        (long long)r.left, (long long)r.top, layer->opacity);
        }
        if (doc.bitDepth != 8) {
            std::fprintf(stderr, "%s: this example paints 8-bit pixels only\n", argv[1]);
            return 1;
        }
        const auto top = std::find_if(doc.layers.rbegin(), doc.layers.rend(),
                                      [](const auto& layer) { return layer->type() == PSDLayerType::regular(); });
        if (top != doc.layers.rend()) {
            (*top)->opacity *= 0.5;
        }
        const image::IntegralSize size{std::min<std::int64_t>(doc.imageWidth, 32),
                                       std::min<std::int64_t>(doc.imageHeight, 32)};
        auto pixels = std::make_shared<image::PixelBuffer<image::PixelARGB8>>(size);
        for (std::int64_t y = 0; y < size.height; ++y) {
            for (std::int64_t x = 0; x < size.width; ++x) { // a red-green ramp, fully opaque
                pixels->at(x, y) = {255, std::uint8_t(x * 255 / size.width), std::uint8_t(y * 255 / size.height), 96};
            }
        }
        auto layer = std::make_shared<PSDLayerWrapper>(doc.bitDepth);
        layer->name = "Painted ramp";
        layer->contentsRect = PSDMacRect(0, 0, size.height, size.width); // top, left, bottom, right
        layer->contentImage = pixels;
        doc.addLayerWrapper(layer); // on top of the others
        // The merged image is the host's to render; this one keeps the original's.
        auto composite = doc.compositeImage();
        if (!composite) {
            composite = std::make_shared<image::PixelBuffer<image::PixelARGB8>>(
                image::IntegralSize{doc.imageWidth, doc.imageHeight});
        }
        const std::vector<std::uint8_t> output = doc.serializedRepresentationWithCompositeImage(composite.get());
        if (!std::ofstream(argv[2], std::ios::binary)
                 .write(reinterpret_cast<const char*>(output.data()), std::streamsize(output.size()))) {
            std::fprintf(stderr, "%s: cannot write\n", argv[2]);
            return 3;
        }
        std::printf("wrote %s: %zu bytes, %zu layer records\n", argv[2], output.size(), doc.layers.size());
    } catch (const std::system_error& e) { // PSDException, image::ImageException, PlatformException
        std::fprintf(stderr, "%s: %s (%s %d)\n", argv[1], e.what(), e.code().category().name(), e.code().value());
        return 2;
    }
    return 0;
}
