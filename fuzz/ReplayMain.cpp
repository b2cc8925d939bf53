// Replay program of one fuzz target: runs it on the files (or every file of the folders) named on
// the command line and prints each outcome, so that a crash file can be run under the debugger
// without libFuzzer. A broken promise is printed and aborts, where the debugger stops.
//
// With --expect OUTCOMES, each input must also end with the outcome that file states for it: lines
// "<target> <input file name> <outcome>" ('#' starts a comment); an input it does not name must end
// "ok". A differing outcome, or a line of this target that names no input, makes the exit status 1.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "targets/FuzzTargets.hpp"

namespace {

// The outcomes stated for this target's inputs, by file name.
std::map<std::string, std::string> readExpectations(const char* path)
{
    std::ifstream in(path);
    if (!in) {
        std::fprintf(stderr, "%s: cannot be read\n", path);
        std::exit(2);
    }
    std::map<std::string, std::string> expected;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string target, file, outcome;
        if (fields >> target >> file >> outcome && !target.starts_with('#') &&
            target == PSDKIT_FUZZ_TARGET_NAME) {
            expected[file] = outcome;
        }
    }
    return expected;
}

// Runs the target on one file; false when an expectation is given and not met.
bool replay(const psdkit::fuzz::Target& target, const std::filesystem::path& path,
            std::map<std::string, std::string>* expected)
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
    if (expected == nullptr) {
        return true;
    }
    const auto stated = expected->extract(path.filename().string());
    const std::string wanted = stated ? stated.mapped() : "ok";
    if (outcome.result != wanted) {
        std::fprintf(stderr, "%s: ended %s, expected %s\n", path.c_str(), outcome.result.c_str(),
                     wanted.c_str());
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    const bool expecting = argc >= 3 && std::strcmp(argv[1], "--expect") == 0;
    if (argc < (expecting ? 4 : 2)) {
        std::fprintf(
            stderr,
            "usage: %s [--expect OUTCOMES] FILE-OR-FOLDER...\nRuns the %s fuzz target on each input.\n",
            argv[0], PSDKIT_FUZZ_TARGET_NAME);
        return 2;
    }
    psdkit::fuzz::prepareLibrary();
    const psdkit::fuzz::Target* target = psdkit::fuzz::findTarget(PSDKIT_FUZZ_TARGET_NAME);
    if (target == nullptr) {
        std::fprintf(stderr, "no fuzz target called %s\n", PSDKIT_FUZZ_TARGET_NAME);
        return 2;
    }
    std::map<std::string, std::string> expected;
    if (expecting) {
        expected = readExpectations(argv[2]);
    }
    bool met = true;
    for (int i = expecting ? 3 : 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        std::vector<std::filesystem::path> files;
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path)) {
                if (entry.is_regular_file()) {
                    files.push_back(entry.path());
                }
            }
            std::sort(files.begin(), files.end());
        } else {
            files.push_back(path);
        }
        for (const auto& file : files) {
            met = replay(*target, file, expecting ? &expected : nullptr) && met;
        }
    }
    for (const auto& [file, outcome] : expected) {
        std::fprintf(stderr, "%s: expected %s, but no such input\n", file.c_str(), outcome.c_str());
        met = false;
    }
    return met ? 0 : 1;
}
