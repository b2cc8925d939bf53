// edit_layers: a small host of the psdkit library. It opens a PSD or PSB file, lists its layers,
// halves the opacity of the topmost pixel layer, adds a layer of pixels it paints itself and writes
// the document to a new file.   usage: edit_layers IN.psd OUT.psd
#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <vector>

#include <psdkit/psdkit.hpp>

using namespace psdkit;
using image::PixelARGB8, image::PixelBuffer;

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: edit_layers IN.psd OUT.psd\n";
        return 1;
    }
    HostApplication host; // documents keep this host's own properties under its identifier
    host.bundleIdentifier = "io.psdkit.example.edit-layers";
    HostApplication::setCurrent(host);
    setDiagnosticsSink({}); // the library's trace lines go to standard output unless silenced
    try {
        std::ifstream in(argv[1], std::ios::binary);
        if (!in) {
            std::cerr << argv[1] << ": cannot open\n";
            return 3;
        }
        const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
        PSDWrapper doc(bytes); // the library never touches the disk: bytes in, bytes out
        std::cout << doc.imageWidth << "x" << doc.imageHeight << ", " << doc.bitDepth
                  << "-bit, layers bottom first:\n";
        for (const auto& layer : doc.layers) {
            const PSDMacRect& r = layer->contentsRect;
            std::cout << "  " << layer->name << " (" << layer->type().description() << ") " << r.width()
                      << "x" << r.height() << " at " << r.left << "," << r.top << ", opacity "
                      << layer->opacity << "\n";
        }
        const auto isPixelLayer = [](const auto& layer) { return layer->type() == PSDLayerType::regular(); };
        if (const auto top = std::find_if(doc.layers.rbegin(), doc.layers.rend(), isPixelLayer);
            top != doc.layers.rend()) {
            (*top)->opacity *= 0.5;
        }
        if (doc.bitDepth != 8) { // 16- and 32-bit documents take PixelRGBA16 / PixelRGBA32 layers
            std::cerr << argv[1] << ": this example paints 8-bit pixels only\n";
            return 1;
        }
        const image::IntegralSize size{std::min<std::int64_t>(doc.imageWidth, 32),
                                       std::min<std::int64_t>(doc.imageHeight, 32)};
        auto pixels = std::make_shared<PixelBuffer<PixelARGB8>>(size);
        for (std::int64_t y = 0; y < size.height; ++y) {
            for (std::int64_t x = 0; x < size.width; ++x) { // opaque, red grows rightwards, green downwards
                pixels->at(x, y) = {255, std::uint8_t(x * 255 / size.width),
                                    std::uint8_t(y * 255 / size.height), 96};
            }
        }
        auto layer = std::make_shared<PSDLayerWrapper>(doc.bitDepth);
        layer->name = "Painted ramp";
        layer->contentsRect = PSDMacRect(0, 0, size.height, size.width); // top, left, bottom, right
        layer->setContentImage(pixels);
        doc.addLayerWrapper(layer); // on top of the others
        // Rendering the merged image is the host's business; this one keeps the original's (or
        // a transparent one when the file has none).
        const auto composite = doc.compositeImageOrBlank();
        const std::vector<std::uint8_t> out = doc.serializedRepresentationWithCompositeImage(composite.get());
        if (!std::ofstream(argv[2], std::ios::binary)
                 .write(reinterpret_cast<const char*>(out.data()), out.size())) {
            std::cerr << argv[2] << ": cannot write\n";
            return 3;
        }
        std::cout << "wrote " << argv[2] << ": " << out.size() << " bytes, " << doc.layers.size()
                  << " layers\n";
    } catch (const std::system_error& e) { // PSDException, image::ImageException, PlatformException
        std::cerr << argv[1] << ": " << e.what() << " (" << e.code().category().name() << " "
                  << e.code().value() << ")\n";
        return 2;
    }
}
