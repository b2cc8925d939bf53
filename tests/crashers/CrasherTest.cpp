// What a crasher's replay (ctest crashers.<target>) cannot state as an outcome: the zero-width canvas
// of 167772412 rows holds no bytes, so the written file is no larger than the one read (no
// run-length row byte counts for empty rows).
#include <gtest/gtest.h>

#include "psdkit/document/PSDWrapper.hpp"
#include "support/CorpusFiles.hpp"
#include "targets/FuzzTargets.hpp"

namespace psdkit {
namespace {

TEST(CrasherTest, AnEmptyCanvasWritesNoRowByteCounts)
{
    fuzz::prepareLibrary();
    const auto input = testing::readFileBytes(std::filesystem::path(PSDKIT_CRASHERS_DIR) /
                                              "document-zero-width-tall-canvas.psd");
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
