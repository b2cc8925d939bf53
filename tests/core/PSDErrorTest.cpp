// The error texts: which (case, key) pairs have one, the exact English, the application name in
// the texts that name it, and nothing for errors of other domains or before initialize().
#include <optional>
#include <string>

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

    const std::string corrupt = "This file is corrupt.";
    const std::string unsupported = "This document contains content that is not supported by \"";
    struct Case {
        PSDError::Code code;
        std::optional<std::string> text; // for texts naming the application: the part before the name
    };
    const Case cases[] = {
        {PSDError::readUnknownError, std::nullopt},
        {PSDError::readUnknownFileVersion, "This document is saved in an unknown file version."},
        {PSDError::readUnsupportedColorMode,
         "This document is saved in a color model that is not supported by \""},
        {PSDError::readUnsupportedImageCompression,
         "This document is saved with an unknown image compression type."},
        {PSDError::readCorruptFile, corrupt},
        {PSDError::readUnexpectedEndOfFile, corrupt},
        {PSDError::readInvalidImageData, corrupt},
        {PSDError::readParameterError, "An internal error occurred."},
        {PSDError::readUnsupportedDescriptorVersion, unsupported},
        {PSDError::readUnsupportedDescriptorValueType, unsupported},
        {PSDError::readUnsupportedContentVersion, unsupported},
        {PSDError::readUnsupportedContentType, unsupported},
        {PSDError::writeUnknownError, std::nullopt},
        {PSDError::writeUnableToCreateMetaData, std::nullopt},
        {PSDError::writeParameterError, std::nullopt},
    };
    ASSERT_EQ(std::size(cases), static_cast<std::size_t>(PSDError::caseCount));
    for (const auto& c : cases) {
        const auto text = PSDError(c.code).userInfoValue(reason);
        const auto name = PSDError(c.code).name();
        ASSERT_EQ(text.has_value(), c.text.has_value()) << name;
        if (!text) {
            continue;
        }
        if (c.text->ends_with('"')) {
            EXPECT_TRUE(text->starts_with(*c.text) && text->ends_with("\".") &&
                        text->size() > c.text->size() + 2)
                << name << ": " << *text;
        } else {
            EXPECT_EQ(*text, *c.text) << name;
        }
        EXPECT_EQ(PSDError::userInfoValue(make_error_code(c.code), reason), text) << name;
        const auto suggestion = PSDError(c.code).userInfoValue(PSDErrorTextKey::recoverySuggestion);
        EXPECT_EQ(suggestion.has_value(), c.code == PSDError::readParameterError) << name;
    }
    EXPECT_EQ(PSDError::userInfoValue(std::make_error_code(std::errc::io_error), reason), std::nullopt);
}

} // namespace
} // namespace psdkit
