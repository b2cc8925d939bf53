// Replay program of one fuzz target: runs it on the files (or every file of the folders) named on
// the command line and prints each outcome, so that a crash file can be run under the debugger
// without libFuzzer. A broken promise is printed and aborts, where the debugger stops.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "targets/FuzzTargets.hpp"

namespace {

void replay(const psdkit::fuzz::Target& target, const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
        std::exit(2);
    }
    const std::vector<std::uint8_t> input{std::istreambuf_iterator<char>(in), {}};
    const psdkit::fuzz::Outcome outcome = target.run(input);
    std::printf("%s: %s\n", path.c_str(), outcome.result.c_str());
    std::fflush(stdout);
    if (outcome.violation) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), outcome.violation->c_str());
        std::abort();
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE-OR-FOLDER...\nRuns the %s fuzz target on each input.\n", argv[0],
                     PSDKIT_FUZZ_TARGET_NAME);
        return 2;
    }
    psdkit::fuzz::prepareLibrary();
    const psdkit::fuzz::Target* target = psdkit::fuzz::findTarget(PSDKIT_FUZZ_TARGET_NAME);
    if (target == nullptr) {
        std::fprintf(stderr, "no fuzz target called %s\n", PSDKIT_FUZZ_TARGET_NAME);
        return 2;
    }
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            std::vector<std::filesystem::path> files;
            for (const auto& entry : std::filesystem::directory_iterator(path)) {
                if (entry.is_regular_file()) {
                    files.push_back(entry.path());
                }
            }
            std::sort(files.begin(), files.end());
            for (const auto& file : files) {
                replay(*target, file);
            }
        } else {
            replay(*target, path);
        }
    }
    return 0;
}
