#pragma once
// Blend modes as descriptors name them: an enumerated value of type code "BlnM" whose value is a
// four-character code for some modes ("Nrml", "Mltp", …) and a string for others ("linearBurn",
// "blendSubtraction", …). The kind of the value is part of the name: the string "Nrml" names no mode.
#include "psdkit/Export.hpp"
#include <optional>

#include "psdkit/descriptors/Enumerated.hpp"
#include "psdkit/platform/image/BlendMode.hpp"

namespace psdkit {

/// The mode `psdEnum` names, or nothing. When the type is not the code "BlnM" the line
/// "Enum <type> not representing a blend mode." goes to the diagnostics sink; when the value names
/// no mode, "Unsupported blend mode name <value>." (a code between apostrophes, a string as it is).
/// Never throws except for allocation.
[[nodiscard]] PSDKIT_EXPORT std::optional<image::BlendMode> blendModeFromPSDEnum(const Enumerated& psdEnum);

/// The enumerated value (type code "BlnM") that names `mode` in descriptors. The modes passThrough
/// and behind have no descriptor form: asking for one throws PSDException(writeParameterError).
[[nodiscard]] PSDKIT_EXPORT Enumerated psdEnum(image::BlendMode mode);

} // namespace psdkit
