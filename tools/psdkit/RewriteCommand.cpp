// psdkit rewrite IN OUT [--psb|--psd]: reads a document and writes it back.
#include <cinttypes>
#include <cstdio>

#include "Cli.hpp"
#include "Commands.hpp"
#include "Failure.hpp"

namespace psdkit::cli {

namespace {

// The largest canvas side of the PSD variant.
constexpr std::int64_t kMaximumPsdSide = 30000;

} // namespace

int runRewrite(std::span<const std::string> args)
{
    const Arguments arguments(args, {}, {"psb", "psd"});
    arguments.expectPositional(2, 2);
    if (arguments.flag("psb") && arguments.flag("psd")) {
        throw UsageError("--psb and --psd exclude each other");
    }
    const std::string& input = arguments.positional()[0];
    const std::string& output = arguments.positional()[1];
    PSDWrapper document = onFile(input, [&] { return readDocument(input); });
    if (arguments.flag("psb")) {
        document.bigFile = true;
    } else if (arguments.flag("psd")) {
        if (document.imageWidth > kMaximumPsdSide || document.imageHeight > kMaximumPsdSide) {
            throw FileFailure(input, std::make_exception_ptr(InputError(
                                         "the canvas is larger than a PSD allows (30000 pixels a side)")));
        }
        document.bigFile = false;
    }
    // The document's own composite goes back in unchanged.
    const auto composite = onFile(input, [&] { return compositeForWriting(document); });
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
