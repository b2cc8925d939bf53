#pragma once
// The errors of the image core. They are the image core's own: callers that pass them on do so
// unchanged, never converted into another error domain.
#include "psdkit/Export.hpp"
#include <string_view>
#include <system_error>

namespace psdkit::image {

/// Why the image core refused to build a pixel buffer or to split one into channels. The numeric
/// value of a case is fixed and part of the interface.
enum class ImageError : int {
    /// A width or height below zero.
    invalidSize = 1,
    /// The byte count of a plane or of the pixel buffer does not fit the address space.
    imageTooLarge = 2,
    /// The number of channels does not suit the pixel type (four for colour, one for grey).
    channelCountMismatch = 3,
    /// A channel's sample type differs from the sample type of the pixel type.
    sampleTypeMismatch = 4,
    /// An uncompressed channel whose byte count is not exactly the plane's.
    rawSizeMismatch = 5,
    /// PackBits row byte counts that are not one per row, negative, or whose sum differs from the
    /// channel's byte count.
    rowByteCountMismatch = 6,
    /// A PackBits row that does not decode to exactly one row of samples (short, overlong, or cut
    /// inside a run), including a row byte count too small for any row of that width.
    corruptPackBits = 7,
    /// A zlib stream that is malformed, fails its checksum, inflates to a size other than the
    /// plane's, or is followed by further bytes, including a stream too short to inflate to the plane
    /// at all.
    corruptZip = 8,
    /// A prediction value other than none or prediction on a ZIP channel.
    unsupportedPrediction = 9,
    /// A compression value outside none, RLE and ZIP.
    unsupportedCompression = 10,
    /// The compressor could not compress a plane (it ran out of memory).
    compressionFailed = 11,
};

/// The error category of the image core: `name()` is "psdkit.image", `value()` an `ImageError`.
[[nodiscard]] PSDKIT_EXPORT const std::error_category& imageErrorCategory() noexcept;

/// The `std::error_code` of `error` in the image core's category.
[[nodiscard]] inline std::error_code make_error_code(ImageError error) noexcept
{
    return {static_cast<int>(error), imageErrorCategory()};
}

/// The case's name as written above, for example "corruptPackBits".
[[nodiscard]] PSDKIT_EXPORT std::string_view name(ImageError error) noexcept;

/// The exception the image core throws. It carries one `ImageError` and no further context.
class PSDKIT_EXPORT ImageException : public std::system_error {
  public:
    /// An exception carrying `error`.
    explicit ImageException(ImageError error) : std::system_error(make_error_code(error)) {}
    /// The error that was thrown.
    [[nodiscard]] ImageError error() const noexcept { return static_cast<ImageError>(code().value()); }
};

} // namespace psdkit::image

/// Lets an `ImageError` convert to `std::error_code`.
template <> struct std::is_error_code_enum<psdkit::image::ImageError> : std::true_type {
};
