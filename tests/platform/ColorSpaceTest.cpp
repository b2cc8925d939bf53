#include "psdkit/platform/ColorSpace.hpp"

#include <lcms2.h>

#include <gtest/gtest.h>

namespace psdkit {
namespace {
using Bytes = std::vector<std::uint8_t>;

Bytes savedProfile(cmsHPROFILE profile)
{
    cmsUInt32Number size = 0;
    EXPECT_TRUE(cmsSaveProfileToMem(profile, nullptr, &size));
    Bytes bytes(size);
    EXPECT_TRUE(cmsSaveProfileToMem(profile, bytes.data(), &size));
    cmsCloseProfile(profile);
    return bytes;
}

std::uint32_t readBE32(const Bytes& bytes, std::size_t at)
{
    return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 |
           std::uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
}

TEST(ColorSpaceTest, ProfilesOfColourAndGreyKeepTheirBytesAndDeviceRGBHasNone)
{
    EXPECT_FALSE(ColorSpace().iccData().has_value());
    const Bytes profile = savedProfile(cmsCreate_sRGBProfile());
    const auto space = ColorSpace::fromICCData(profile);
    ASSERT_TRUE(space.has_value());
    EXPECT_FALSE(space->isDeviceRGB());
    EXPECT_EQ(space->iccData(), profile);
    EXPECT_EQ(space->name(), "sRGB built-in");
    EXPECT_EQ(*ColorSpace::fromICCData(profile), *space) << "equal bytes, equal spaces";
    EXPECT_NE(*space, ColorSpace::deviceRGB());

    cmsToneCurve* gamma = cmsBuildGamma(nullptr, 2.2);
    const Bytes gray = savedProfile(cmsCreateGrayProfile(cmsD50_xyY(), gamma));
    cmsFreeToneCurve(gamma);
    EXPECT_EQ(ColorSpace::fromICCData(gray).value().iccData(), gray);
}

TEST(ColorSpaceTest, BrokenProfilesAreRefused)
{
    const Bytes valid = savedProfile(cmsCreate_sRGBProfile());
    ASSERT_GT(valid.size(), 300u);
    Bytes tagsOutside = valid; // every tag of the directory points past the end of the data
    const std::uint32_t tagCount = readBE32(valid, 128);
    for (std::uint32_t i = 0; i < tagCount; ++i) {
        const std::size_t offsetField = 132 + 12 * i + 4;
        tagsOutside[offsetField] = 0x7F;
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
