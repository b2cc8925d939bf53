#pragma once
// ColorSpace: the colour space of a document. Either the device RGB space, which carries no
// profile, or the space of an embedded ICC profile. A value type: copies are cheap and share
// the same immutable profile.
#include "psdkit/Export.hpp"
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace psdkit {

/// A document's colour space: device RGB or an embedded ICC profile's. A value type; copies
/// share the immutable profile and may be used from several threads.
class PSDKIT_EXPORT ColorSpace {
  public:
    /// The device RGB space (the same as `deviceRGB()`).
    ColorSpace();

    /// The device RGB space: no ICC profile, named "Device RGB". A document with this space
    /// stores no profile.
    [[nodiscard]] static ColorSpace deviceRGB();

    /// The space of an ICC profile. The profile is accepted when the colour-management backend
    /// can open it and read its header and the tags that describe a colour space (its colour
    /// space signature, its media white point or colorant tags where it has them, and its
    /// description when present); the device class and colour space are not restricted.
    /// Absent when the bytes are empty, garbage, truncated or refused otherwise. The bytes are
    /// copied; `iccData()` gives them back unchanged. Never throws (except `std::bad_alloc`).
    [[nodiscard]] static std::optional<ColorSpace> fromICCData(std::span<const std::uint8_t> data);

    /// The ICC profile exactly as given to `fromICCData`, or absent for the device RGB space.
    [[nodiscard]] std::optional<std::vector<std::uint8_t>> iccData() const;

    /// True for the device RGB space.
    [[nodiscard]] bool isDeviceRGB() const noexcept { return profile_ == nullptr; }

    /// A name for display: the profile's description (English where it has several), or
    /// "ICC profile" when it has none; "Device RGB" for the device RGB space.
    [[nodiscard]] std::string name() const;

    /// Both device RGB, or both profiles with identical bytes.
    friend bool operator==(const ColorSpace& a, const ColorSpace& b) noexcept;

  private:
    struct Profile;
    explicit ColorSpace(std::shared_ptr<const Profile> profile) noexcept;
    std::shared_ptr<const Profile> profile_; // null: device RGB
};

} // namespace psdkit
