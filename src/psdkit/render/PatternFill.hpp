#pragma once
// Pattern fills ("PtFl"): the pattern a fill names, found by its identifier in the document's
// pattern data and repeated over the canvas. Internal to the renderer.
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "psdkit/descriptors/PSDDescriptor.hpp"
#include "psdkit/render/RenderPlan.hpp"

namespace psdkit::detail {

/// A pattern's pixels: unpremultiplied red, green, blue and alpha floats, row after row.
struct PatternImage {
    std::int64_t width = 0;
    std::int64_t height = 0;
    std::vector<float> rgba;
};

/// The pattern with the unique identifier `id` in `patternData` (the body of a pattern block: one
/// record after another, each its length, version, image mode, size, name, identifier and its
/// channels as a list of arrays). Grey and RGB patterns of 8 or 16 bits, raw or PackBits; the
/// array after the colour ones, when there is one of the same size, is the pattern's transparency.
/// Null when no record has that identifier or the record cannot be read. Never throws except for
/// allocation; what it allocates is bounded by the bytes present.
[[nodiscard]] std::shared_ptr<const PatternImage> findPattern(std::span<const std::uint8_t> patternData,
                                                              std::string_view id);

/// The fill of a pattern fill layer's settings ("Ptrn" names the pattern; "phase" places its
/// origin, "Scl " scales it in percent, "Angl" turns it anticlockwise about that origin in
/// degrees) with the first pattern of that identifier in `patternSources` (pattern block bodies,
/// searched in order), or null when none has it. Never throws except for allocation.
[[nodiscard]] std::shared_ptr<const Fill>
makePatternFill(const PSDDescriptor& settings, std::span<const std::span<const std::uint8_t>> patternSources);

} // namespace psdkit::detail
