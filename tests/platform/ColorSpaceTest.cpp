#include "psdkit/platform/ColorSpace.hpp"

#include <lcms2.h>

#include <gtest/gtest.h>

namespace psdkit {
namespace {
using Bytes = std::vector<std::uint8_t>;

// Profiles of real files are accepted with their bytes by the corpus reading and round-trip tests.
TEST(ColorSpaceTest, ProfileBytesAreKeptAndBrokenProfilesAreRefused)
{
    cmsHPROFILE profile = cmsCreate_sRGBProfile();
    cmsUInt32Number size = 0;
    ASSERT_TRUE(cmsSaveProfileToMem(profile, nullptr, &size) && size > 300);
    Bytes valid(size);
    ASSERT_TRUE(cmsSaveProfileToMem(profile, valid.data(), &size));
    cmsCloseProfile(profile);
    EXPECT_EQ(ColorSpace::fromICCData(valid).value().iccData(), valid);
    EXPECT_EQ(ColorSpace::fromICCData(valid).value().name(), "sRGB built-in");
    EXPECT_FALSE(ColorSpace().iccData().has_value());
    Bytes tagsOutside = valid; // every tag of the directory points past the end of the data
    const std::uint32_t tagCount = std::uint32_t{valid[128]} << 24 | std::uint32_t{valid[129]} << 16 |
                                   std::uint32_t{valid[130]} << 8 | valid[131]; // the tag directory's size
    for (std::uint32_t i = 0; i < tagCount; ++i) {
        tagsOutside[132 + 12 * i + 4] = 0x7F; // the high byte of the tag's offset
    }
    const std::vector<std::pair<const char*, Bytes>> cases = {
        {"empty", {}},
        {"garbage", Bytes(600, 0xAB)},
        {"header only", Bytes(valid.begin(), valid.begin() + 128)},
        {"cut in half", Bytes(valid.begin(), valid.begin() + static_cast<std::ptrdiff_t>(valid.size() / 2))},
        {"tags outside the data", tagsOutside},
    };
    for (const auto& [name, bytes] : cases) {
        EXPECT_FALSE(ColorSpace::fromICCData(bytes).has_value()) << name;
    }
}

} // namespace
} // namespace psdkit
