#pragma once
// Access to the corpus of real files beside the repository. A missing corpus fails the test that
// needs it (it is never skipped silently).
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace psdkit::testing {

inline std::filesystem::path corpusDir()
{
    return std::filesystem::path(PSDKIT_CORPUS_DIR);
}

inline std::vector<std::uint8_t> readFileBytes(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot open " + path.string());
    }
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline std::vector<std::uint8_t> readCorpusFile(const std::string& name)
{
    return readFileBytes(corpusDir() / name);
}

/// The names of every PSD and PSB file of the corpus, sorted.
inline std::vector<std::string> corpusFileNames()
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(corpusDir())) {
        const auto ext = entry.path().extension();
        if (ext == ".psd" || ext == ".psb") {
            names.push_back(entry.path().filename().string());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// A GoogleTest parameter name for a corpus file name.
struct CorpusTestName {
    std::string operator()(const ::testing::TestParamInfo<std::string>& param) const
    {
        std::string name = param.param;
        std::replace_if(
            name.begin(), name.end(), [](unsigned char c) { return !std::isalnum(c); }, '_');
        return name;
    }
};

} // namespace psdkit::testing
