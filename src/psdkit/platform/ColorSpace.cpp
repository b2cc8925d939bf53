#include "psdkit/platform/ColorSpace.hpp"

#include <lcms2.h>

#include <algorithm>
#include <array>
#include <limits>

namespace psdkit {

struct ColorSpace::Profile {
    std::vector<std::uint8_t> bytes;
    std::string name;
};

namespace {

constexpr std::string_view kDeviceRGBName = "Device RGB";
constexpr std::string_view kUnnamedProfileName = "ICC profile";

// A private colour-management context whose errors are dropped: a refused profile is reported
// as an absent colour space, not as log output.
class Context {
  public:
    Context() : context_(cmsCreateContext(nullptr, nullptr))
    {
        if (context_ != nullptr) {
            cmsSetLogErrorHandlerTHR(context_, [](cmsContext, cmsUInt32Number, const char*) {});
        }
    }
    ~Context()
    {
        if (context_ != nullptr) {
            cmsDeleteContext(context_);
        }
    }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    [[nodiscard]] cmsContext get() const noexcept { return context_; }

  private:
    cmsContext context_;
};

class OpenProfile {
  public:
    OpenProfile(const Context& context, std::span<const std::uint8_t> bytes)
        : profile_(cmsOpenProfileFromMemTHR(context.get(), bytes.data(),
                                            static_cast<cmsUInt32Number>(bytes.size())))
    {
    }
    ~OpenProfile()
    {
        if (profile_ != nullptr) {
            cmsCloseProfile(profile_);
        }
    }
    OpenProfile(const OpenProfile&) = delete;
    OpenProfile& operator=(const OpenProfile&) = delete;
    [[nodiscard]] cmsHPROFILE get() const noexcept { return profile_; }

  private:
    cmsHPROFILE profile_;
};

// Reads a tag through the backend, which parses and checks it; a tag that is absent, cut off or
// of the wrong type yields null.
bool canRead(cmsHPROFILE profile, cmsTagSignature tag)
{
    return cmsReadTag(profile, tag) != nullptr;
}

bool canReadAll(cmsHPROFILE profile, std::initializer_list<cmsTagSignature> tags)
{
    return std::all_of(tags.begin(), tags.end(),
                       [profile](cmsTagSignature tag) { return canRead(profile, tag); });
}

bool canReadAny(cmsHPROFILE profile, std::initializer_list<cmsTagSignature> tags)
{
    return std::any_of(tags.begin(), tags.end(),
                       [profile](cmsTagSignature tag) { return canRead(profile, tag); });
}

// A profile describes a colour space when at least one way between its colours and the
// connection space can be read completely: a matrix with tone curves (RGB), a gray tone curve,
// a lookup table in either direction, or a named-colour list. Opening alone is not enough: the
// backend opens lazily and drops tags that lie outside the data, so cut-off profiles open.
bool describesColorSpace(cmsHPROFILE profile)
{
    const bool matrixShaper =
        canReadAll(profile, {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag,
                             cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag});
    return matrixShaper || canRead(profile, cmsSigGrayTRCTag) ||
           canReadAny(profile, {cmsSigAToB0Tag, cmsSigAToB1Tag, cmsSigAToB2Tag, cmsSigBToA0Tag,
                                cmsSigBToA1Tag, cmsSigBToA2Tag, cmsSigDToB0Tag, cmsSigNamedColor2Tag});
}

void appendUtf8(std::string& out, char32_t c)
{
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// The profile's description in UTF-8, preferring English; empty when it has none.
std::string descriptionOf(cmsHPROFILE profile)
{
    if (!canRead(profile, cmsSigProfileDescriptionTag)) {
        return {};
    }
    const cmsUInt32Number bytes = cmsGetProfileInfo(profile, cmsInfoDescription, "en", "US", nullptr, 0);
    if (bytes < sizeof(wchar_t)) {
        return {};
    }
    std::vector<wchar_t> wide(bytes / sizeof(wchar_t) + 1, L'\0');
    cmsGetProfileInfo(profile, cmsInfoDescription, "en", "US", wide.data(),
                      static_cast<cmsUInt32Number>(wide.size() * sizeof(wchar_t)));
    std::string text;
    for (wchar_t c : wide) {
        if (c == L'\0') {
            break;
        }
        const auto code = static_cast<char32_t>(c);
        const bool valid = code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
        appendUtf8(text, valid ? code : U'\uFFFD');
    }
    // Descriptions are often padded with blanks.
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.pop_back();
    }
    return text;
}

} // namespace

ColorSpace::ColorSpace() = default;

ColorSpace::ColorSpace(std::shared_ptr<const Profile> profile) noexcept : profile_(std::move(profile)) {}

ColorSpace ColorSpace::deviceRGB()
{
    return ColorSpace();
}

std::optional<ColorSpace> ColorSpace::fromICCData(std::span<const std::uint8_t> data)
{
    if (data.empty() || data.size() > std::numeric_limits<cmsUInt32Number>::max()) {
        return std::nullopt;
    }
    Context context;
    if (context.get() == nullptr) {
        return std::nullopt;
    }
    OpenProfile profile(context, data);
    if (profile.get() == nullptr || !describesColorSpace(profile.get())) {
        return std::nullopt;
    }
    auto stored = std::make_shared<Profile>();
    stored->bytes.assign(data.begin(), data.end());
    stored->name = descriptionOf(profile.get());
    if (stored->name.empty()) {
        stored->name = kUnnamedProfileName;
    }
    return ColorSpace(std::move(stored));
}

std::optional<std::vector<std::uint8_t>> ColorSpace::iccData() const
{
    if (profile_ == nullptr) {
        return std::nullopt;
    }
    return profile_->bytes;
}

std::string ColorSpace::name() const
{
    return profile_ ? profile_->name : std::string(kDeviceRGBName);
}

bool operator==(const ColorSpace& a, const ColorSpace& b) noexcept
{
    if (a.profile_ == b.profile_) {
        return true;
    }
    return a.profile_ != nullptr && b.profile_ != nullptr && a.profile_->bytes == b.profile_->bytes;
}

} // namespace psdkit
