#pragma once
// The kinds of layer a record can describe.
#include "psdkit/Export.hpp"
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "psdkit/core/PSDFourCharCode.hpp"

namespace psdkit {

/// The kind of an adjustment or fill layer. The first three are fill layers.
enum class PSDAdjustmentLayerType {
    solidColor,
    gradientFill,
    patternFill,
    brightnessContrast,
    levels,
    curves,
    exposure,
    vibrance,
    hueSaturation,
    colorBalance,
    blackAndWhite,
    photoFilter,
    channelMixer,
    colorLookup,
    invert,
    posterize,
    threshold,
    gradientMap,
    selectiveColor,
};

/// The block key that marks a layer of this kind ("SoCo", "GdFl", …).
[[nodiscard]] PSDKIT_EXPORT PSDFourCharCode blockKey(PSDAdjustmentLayerType type);
/// The kind a block key marks, or nothing for other keys.
[[nodiscard]] PSDKIT_EXPORT std::optional<PSDAdjustmentLayerType>
adjustmentLayerTypeForKey(const PSDFourCharCode& key);
/// A readable name of the kind ("solidColor", …).
[[nodiscard]] PSDKIT_EXPORT const char* name(PSDAdjustmentLayerType type) noexcept;

/// The kind of a layer. `adjustmentLayer` carries the adjustment or fill kind.
class PSDKIT_EXPORT PSDLayerType {
  public:
    /// The kinds of layer.
    enum class Kind {
        adjustmentLayer, ///< an adjustment or fill layer (see `adjustmentType()`)
        regular,         ///< a layer of pixels
        group,           ///< the record that opens a group (it lies above the group's members)
        sectionDivider,  ///< the record that closes a group (it lies below the group's members)
        sceneGroup,      ///< a scene group (a refinement of `group`, see `PSDLayerWrapper::subtype`)
        artboard,        ///< an artboard
    };

    /// A type of kind `kind` (for `adjustmentLayer`, of adjustment kind solidColor).
    constexpr PSDLayerType(Kind kind = Kind::regular) noexcept : kind_(kind) {} // NOLINT: implicit by design
    /// An adjustment or fill layer of kind `type`.
    static constexpr PSDLayerType adjustmentLayer(PSDAdjustmentLayerType type) noexcept
    {
        PSDLayerType t(Kind::adjustmentLayer);
        t.adjustment_ = type;
        return t;
    }
    static constexpr PSDLayerType regular() noexcept { return Kind::regular; } ///< A layer of pixels.
    static constexpr PSDLayerType group() noexcept { return Kind::group; }     ///< A group's opening record.
    /// A group's closing record.
    static constexpr PSDLayerType sectionDivider() noexcept { return Kind::sectionDivider; }
    static constexpr PSDLayerType sceneGroup() noexcept { return Kind::sceneGroup; } ///< A scene group.
    static constexpr PSDLayerType artboard() noexcept { return Kind::artboard; }     ///< An artboard.

    /// The kind.
    [[nodiscard]] constexpr Kind kind() const noexcept { return kind_; }
    /// The adjustment kind; meaningful only when `kind()` is `adjustmentLayer`.
    [[nodiscard]] constexpr PSDAdjustmentLayerType adjustmentType() const noexcept { return adjustment_; }

    /// Equal when the kinds are equal and, for adjustment layers, the adjustment kinds too.
    friend constexpr bool operator==(const PSDLayerType& a, const PSDLayerType& b) noexcept
    {
        return a.kind_ == b.kind_ && (a.kind_ != Kind::adjustmentLayer || a.adjustment_ == b.adjustment_);
    }

    /// "regular", "group", "sectionDivider", "sceneGroup", "artboard" or "adjustmentLayer(levels)".
    [[nodiscard]] std::string description() const;

  private:
    Kind kind_;
    PSDAdjustmentLayerType adjustment_ = PSDAdjustmentLayerType::solidColor;
};

} // namespace psdkit
