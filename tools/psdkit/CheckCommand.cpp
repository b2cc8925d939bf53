// psdkit check FILE... [--roundtrip [--strict]]: validates files, optionally through a write and a
// re-read.
#include <cstdio>
#include <map>

#include "Cli.hpp"
#include "Commands.hpp"
#include "DocumentComparison.hpp"
#include "Failure.hpp"

namespace psdkit::cli {

namespace {

// Differences listed per file before the rest is only counted.
constexpr std::size_t kListedDifferences = 20;

PSDReadOptions readOptions(bool keepUnknownBlocks)
{
    PSDReadOptions options;
    options.keepUnknownBlocks = keepUnknownBlocks;
    return options;
}

// The blocks a round trip under the plain rules loses, by key: every block kept beside the layers,
// and the document-level ones but the patterns and the property list, which the model holds.
std::map<std::string, std::size_t> blocksDroppedByPlainRules(const PSDWrapper& kept)
{
    std::map<std::string, std::size_t> dropped;
    for (const auto& layer : kept.layers) {
        for (const auto& block : layer->uninterpretedBlocks) {
            if (!layer->taggedData.contains(block.key)) { // those are held by the model
                ++dropped[block.key.rawValue()];
            }
        }
    }
    for (const auto& block : kept.uninterpretedBlocks) {
        const auto& key = block.key.rawValue();
        if (key != "Patt" && key != "Pat2" && key != "Pat3" && key != "plst") {
            ++dropped[key];
        }
    }
    return dropped;
}

void printList(const std::vector<std::string>& lines)
{
    for (std::size_t i = 0; i < lines.size() && i < kListedDifferences; ++i) {
        std::printf("  %s\n", lines[i].c_str());
    }
    if (lines.size() > kListedDifferences) {
        std::printf("  ... and %zu more\n", lines.size() - kListedDifferences);
    }
}

/// Reads `path` (and with `roundTrip` writes it and reads it back, keeping every block unless
/// `strict`); prints one verdict and returns true when the file passed.
bool checkFile(const std::string& path, bool roundTrip, bool strict)
{
    std::vector<std::string> differences;
    std::vector<std::string> dropped;
    try {
        const PSDSharedBytes bytes = mapFile(path);
        const PSDWrapper original(bytes, readOptions(!strict));
        if (roundTrip) {
            // A second copy is written: serialization changes the document it writes.
            PSDWrapper written(bytes, readOptions(!strict));
            const auto composite = written.compositeImageOrBlank();
            const std::vector<std::uint8_t> rewritten =
                written.serializedRepresentationWithCompositeImage(composite.get());
            const PSDWrapper reread(rewritten, readOptions(!strict));
            differences = compareDocuments(original, reread);
            if (strict) {
                for (const auto& [key, count] :
                     blocksDroppedByPlainRules(PSDWrapper(bytes, readOptions(true)))) {
                    dropped.push_back("\"" + printable(key) + "\": " + std::to_string(count) + " block" +
                                      (count == 1 ? "" : "s"));
                }
            }
        }
    } catch (...) {
        std::printf("%s: %s\n", path.c_str(), describeFailure(std::current_exception()).message.c_str());
        return false;
    }
    if (differences.empty() && dropped.empty()) {
        std::printf("%s: OK%s\n", path.c_str(), roundTrip ? " (round trip unchanged)" : "");
        return true;
    }
    if (differences.empty()) {
        std::printf("%s: OK, but the plain round trip drops %zu kind%s of block\n", path.c_str(),
                    dropped.size(), dropped.size() == 1 ? "" : "s");
    } else {
        std::printf("%s: CHANGED by the round trip (%zu difference%s)\n", path.c_str(), differences.size(),
                    differences.size() == 1 ? "" : "s");
        printList(differences);
    }
    if (!dropped.empty()) {
        std::printf("  dropped by the plain rules:\n");
        printList(dropped);
    }
    return differences.empty();
}

} // namespace

int runCheck(std::span<const std::string> args)
{
    const Arguments arguments(args, {}, {"roundtrip", "strict"});
    if (arguments.positional().empty()) {
        throw UsageError("no FILE to check");
    }
    if (arguments.flag("strict") && !arguments.flag("roundtrip")) {
        throw UsageError("--strict applies to --roundtrip");
    }
    bool allPassed = true;
    for (const std::string& path : arguments.positional()) {
        allPassed = checkFile(path, arguments.flag("roundtrip"), arguments.flag("strict")) && allPassed;
        std::fflush(stdout);
    }
    return allPassed ? exitSuccess : exitRefused;
}

} // namespace psdkit::cli
