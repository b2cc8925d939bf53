// Every input a fuzzer ever stopped on (manifest.txt), run through the fuzz target that found it:
// it must end with the recorded outcome — an error of the library, or "ok" — and break no promise
// of the library. The sanitizer build runs these under AddressSanitizer and UBSan.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "psdkit/document/PSDWrapper.hpp"
#include "support/CorpusFiles.hpp"
#include "targets/FuzzTargets.hpp"

namespace psdkit {
namespace {
namespace fs = std::filesystem;

const fs::path crashersDir = PSDKIT_CRASHERS_DIR;
const fs::path manifestName = "manifest.txt";

struct Crasher {
    std::string target;
    std::string outcome;
};

// The manifest's entries by file name; a file listed twice fails the test.
std::map<std::string, Crasher> readManifest()
{
    std::ifstream in(crashersDir / manifestName);
    EXPECT_TRUE(in.good()) << "missing " << (crashersDir / manifestName);
    std::map<std::string, Crasher> entries;
    for (std::string line, file; std::getline(in, line);) {
        std::istringstream fields(line);
        Crasher crasher;
        if ((fields >> file) && !file.starts_with("#")) {
            EXPECT_TRUE(fields >> crasher.target >> crasher.outcome) << "incomplete entry: " << line;
            EXPECT_TRUE(entries.emplace(file, crasher).second) << file << " is listed twice";
        }
    }
    return entries;
}

TEST(CrasherTest, EveryCrasherEndsWithItsRecordedOutcome)
{
    fuzz::prepareLibrary();
    const auto manifest = readManifest();
    ASSERT_FALSE(manifest.empty());
    for (const auto& [file, crasher] : manifest) {
        SCOPED_TRACE(file);
        const fuzz::Target* target = fuzz::findTarget(crasher.target);
        ASSERT_NE(target, nullptr) << "no fuzz target called " << crasher.target;
        const fuzz::Outcome outcome = target->run(testing::readFileBytes(crashersDir / file));
        EXPECT_EQ(outcome.violation.value_or("none"), "none");
        EXPECT_EQ(outcome.result, crasher.outcome);
    }
}

TEST(CrasherTest, EveryInputInTheFolderIsInTheManifest)
{
    const auto manifest = readManifest();
    for (const auto& entry : fs::directory_iterator(crashersDir)) {
        const fs::path name = entry.path().filename();
        if (name != manifestName && name.extension() != ".cpp") {
            EXPECT_TRUE(manifest.contains(name.string())) << name << " is not in the manifest";
        }
    }
}

// The zero-width canvas of 167772412 rows: its composite holds no bytes, so the written file is no
// larger than the one read (no run-length row byte counts for empty rows).
TEST(CrasherTest, AnEmptyCanvasWritesNoRowByteCounts)
{
    fuzz::prepareLibrary();
    const auto input = testing::readFileBytes(crashersDir / "document-zero-width-tall-canvas.psd");
    PSDWrapper document(input);
    ASSERT_EQ(document.imageWidth, 0);
    ASSERT_EQ(document.imageHeight, 167772412);
    const auto composite = document.compositeImage();
    ASSERT_NE(composite, nullptr);
    const auto written = document.serializedRepresentationWithCompositeImage(composite.get());
    EXPECT_LT(written.size(), input.size());
}

} // namespace
} // namespace psdkit
