// psdkit check FILE... [--roundtrip]: validates files, optionally through a write and a re-read.
#include <cstdio>

#include "Cli.hpp"
#include "Commands.hpp"
#include "DocumentComparison.hpp"
#include "Failure.hpp"

namespace psdkit::cli {

namespace {

// Differences listed per file before the rest is only counted.
constexpr std::size_t kListedDifferences = 20;

/// Reads `path` (and with `roundTrip` writes it and reads it back); prints one verdict and
/// returns true when the file passed.
bool checkFile(const std::string& path, bool roundTrip)
{
    std::vector<std::string> differences;
    try {
        const std::vector<std::uint8_t> bytes = readFile(path);
        const PSDWrapper original(bytes);
        if (roundTrip) {
            // A second copy is written: serialization changes the document it writes.
            PSDWrapper written(bytes);
            const auto composite = compositeForWriting(written);
            const std::vector<std::uint8_t> rewritten =
                written.serializedRepresentationWithCompositeImage(composite.get());
            const PSDWrapper reread(rewritten);
            differences = compareDocuments(original, reread);
        }
    } catch (...) {
        std::printf("%s: %s\n", path.c_str(), describeFailure(std::current_exception()).message.c_str());
        return false;
    }
    if (differences.empty()) {
        std::printf("%s: OK%s\n", path.c_str(), roundTrip ? " (round trip unchanged)" : "");
        return true;
    }
    std::printf("%s: CHANGED by the round trip (%zu difference%s)\n", path.c_str(), differences.size(),
                differences.size() == 1 ? "" : "s");
    for (std::size_t i = 0; i < differences.size() && i < kListedDifferences; ++i) {
        std::printf("  %s\n", differences[i].c_str());
    }
    if (differences.size() > kListedDifferences) {
        std::printf("  ... and %zu more\n", differences.size() - kListedDifferences);
    }
    return false;
}

} // namespace

int runCheck(std::span<const std::string> args)
{
    const Arguments arguments(args, {}, {"roundtrip"});
    if (arguments.positional().empty()) {
        throw UsageError("no FILE to check");
    }
    bool allPassed = true;
    for (const std::string& path : arguments.positional()) {
        allPassed = checkFile(path, arguments.flag("roundtrip")) && allPassed;
        std::fflush(stdout);
    }
    return allPassed ? exitSuccess : exitRefused;
}

} // namespace psdkit::cli
