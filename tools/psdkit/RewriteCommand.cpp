// psdkit rewrite IN OUT [--psb|--psd] [--strict] [--render]: reads a document and writes it back,
// as PSB or PSD by the option, else by the output's extension, else as it was; every tagged block
// the library does not interpret is kept unless --strict asks for the plain reading rules; --render
// writes a fresh rendering of the layers as the composite.
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "Cli.hpp"
#include "Commands.hpp"
#include "Failure.hpp"
#include "Unmatte.hpp"

namespace psdkit::cli {

namespace {

// The largest canvas side of the PSD variant.
constexpr std::int64_t kMaximumPsdSide = 30000;

// The variant an output name asks for by its extension (".psb" or ".psd", any case); nothing for
// other extensions.
std::optional<bool> bigFileForExtension(const std::string& path)
{
    std::string extension = std::filesystem::path(path).extension().string();
    for (char& c : extension) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    if (extension == ".psb") {
        return true;
    }
    if (extension == ".psd") {
        return false;
    }
    return std::nullopt;
}

// The variant to write: the option when given, else the output's extension, else nothing (the
// document's own). An option that contradicts the extension is a UsageError.
std::optional<bool> requestedBigFile(const Arguments& arguments, const std::string& output)
{
    if (arguments.flag("psb") && arguments.flag("psd")) {
        throw UsageError("--psb and --psd exclude each other");
    }
    const std::optional<bool> byExtension = bigFileForExtension(output);
    std::optional<bool> byOption;
    if (arguments.flag("psb") || arguments.flag("psd")) {
        byOption = arguments.flag("psb");
    }
    if (byOption && byExtension && *byOption != *byExtension) {
        throw UsageError(std::string(*byOption ? "--psb" : "--psd") + " contradicts the output name \"" +
                         output + "\"; name the file ." + (*byOption ? "psb" : "psd") +
                         " or leave the option out");
    }
    return byOption ? byOption : byExtension;
}

} // namespace

int runRewrite(std::span<const std::string> args)
{
    const Arguments arguments(args, {}, {"psb", "psd", "strict", "render"});
    arguments.expectPositional(2, 2);
    const std::string& input = arguments.positional()[0];
    const std::string& output = arguments.positional()[1];
    const std::optional<bool> bigFile = requestedBigFile(arguments, output);
    PSDReadOptions options;
    options.keepUnknownBlocks = !arguments.flag("strict");
    PSDWrapper document = onFile(input, [&] { return readDocument(input, options); });
    if (bigFile == true) {
        document.bigFile = true;
    } else if (bigFile == false) {
        if (document.imageWidth > kMaximumPsdSide || document.imageHeight > kMaximumPsdSide) {
            throw FileFailure(input, std::make_exception_ptr(InputError(
                                         "the canvas is larger than a PSD allows (30000 pixels a side)")));
        }
        document.bigFile = false;
    }
    // The document's own composite goes back in unchanged, or a fresh rendering of its layers.
    const auto composite = onFile(input, [&] {
        if (!arguments.flag("render")) {
            return document.compositeImageOrBlank();
        }
        auto rendered = renderOrRefuse(document);
        matteOntoWhite(*rendered); // stored against white, as the merged image of the format is
        return rendered;
    });
    onFile(output, [&] {
        writeFileAtomically(output, [&](PSDOutputSink& sink) {
            document.serializeWithCompositeImage(composite.get(), sink);
        });
    });
    std::printf("%s: %s, %" PRId64 "-bit, %" PRId64 " x %" PRId64 " px, %zu layer record%s\n", output.c_str(),
                document.bigFile ? "PSB" : "PSD", document.bitDepth, document.imageWidth,
                document.imageHeight, document.layers.size(), document.layers.size() == 1 ? "" : "s");
    return exitSuccess;
}

} // namespace psdkit::cli
