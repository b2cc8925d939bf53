#pragma once
// Access to the corpus of real files beside the repository. A missing corpus fails the test that
// needs it (it is never skipped silently).
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace psdkit::testing {

inline std::filesystem::path corpusDir() { return std::filesystem::path(PSDKIT_CORPUS_DIR); }

inline std::vector<std::uint8_t> readFileBytes(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot open " + path.string());
    }
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline std::vector<std::uint8_t> readCorpusFile(const std::string& name) { return readFileBytes(corpusDir() / name); }

} // namespace psdkit::testing
