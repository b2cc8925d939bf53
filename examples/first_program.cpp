// first_program: the README's "library in ten lines", compiled and run over the whole corpus by
// the tests, so that what a new user copies works. usage: first_program FILE.psd
// The lines between the markers are the README's example, character for character.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/support/Diagnostics.hpp"

namespace {

std::vector<std::uint8_t> readBytes(const char* path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void example(const char* path)
{
    // clang-format off
    // README example begins
psdkit::setDiagnosticsSink({});                         // silence the trace lines the library prints by default
std::vector<std::uint8_t> bytes = readBytes(path);      // a .psd or .psb file
psdkit::PSDWrapper doc(bytes);                          // throws psdkit::PSDException; what() says why
for (const auto& layer : doc.layers)                    // flat, bottom first; groups are records too
    std::printf("%s %.0f%%\n", layer->name.c_str(), layer->opacity * 100);
if (!doc.layers.empty()) doc.layers.back()->opacity = 0.5;  // the top layer; change what you like
auto composite = doc.compositeImage();                  // the merged image as a pixel buffer
std::vector<std::uint8_t> out = doc.serializedRepresentationWithCompositeImage(composite.get());
    // README example ends
    // clang-format on
    std::printf("%zu bytes written\n", out.size());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: first_program FILE.psd\n");
        return 1;
    }
    try {
        example(argv[1]);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", argv[1], e.what());
        return 2;
    }
    return 0;
}
