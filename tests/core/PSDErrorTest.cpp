// The error texts: which (case, key) pairs have one, the exact English, the application name in
// the texts that name it, and nothing for errors of other domains or before initialize().
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "psdkit/core/PSDError.hpp"

namespace psdkit {
namespace {

TEST(PSDErrorTest, TextsOfEveryCase)
{
    const auto reason = PSDErrorTextKey::failureReason;
    EXPECT_EQ(PSDError(PSDError::readCorruptFile).userInfoValue(reason), std::nullopt)
        << "before initialize()";
    PSDError::initialize();

    using E = PSDError;
    // Each failure reason and the cases that give it; for a text that names the application, the
    // part before the name.
    const std::pair<std::optional<std::string>, std::vector<PSDError::Code>> texts[] = {
        {std::nullopt,
         {E::readUnknownError, E::writeUnknownError, E::writeUnableToCreateMetaData, E::writeParameterError}},
        {"This document is saved in an unknown file version.", {E::readUnknownFileVersion}},
        {"This document is saved in a color model that is not supported by \"",
         {E::readUnsupportedColorMode}},
        {"This document is saved with an unknown image compression type.",
         {E::readUnsupportedImageCompression}},
        {"This file is corrupt.", {E::readCorruptFile, E::readUnexpectedEndOfFile, E::readInvalidImageData}},
        {"An internal error occurred.", {E::readParameterError}},
        {"This document contains content that is not supported by \"",
         {E::readUnsupportedDescriptorVersion, E::readUnsupportedDescriptorValueType,
          E::readUnsupportedContentVersion, E::readUnsupportedContentType}},
    };
    std::size_t cases = 0;
    for (const auto& [expected, codes] : texts) {
        for (const auto code : codes) {
            ++cases;
            const auto text = PSDError(code).userInfoValue(reason);
            const auto name = PSDError(code).name();
            ASSERT_EQ(text.has_value(), expected.has_value()) << name;
            if (text && expected->ends_with('"')) {
                EXPECT_TRUE(text->starts_with(*expected) && text->ends_with("\".") &&
                            text->size() > expected->size() + 2)
                    << name << ": " << *text;
            } else if (text) {
                EXPECT_EQ(*text, *expected) << name;
            }
            EXPECT_EQ(PSDError::userInfoValue(make_error_code(code), reason), text) << name;
            const auto suggestion = PSDError(code).userInfoValue(PSDErrorTextKey::recoverySuggestion);
            EXPECT_EQ(suggestion.has_value(), code == PSDError::readParameterError) << name;
        }
    }
    EXPECT_EQ(cases, static_cast<std::size_t>(PSDError::caseCount));
    EXPECT_EQ(PSDError::userInfoValue(std::make_error_code(std::errc::io_error), reason), std::nullopt);
}

} // namespace
} // namespace psdkit
