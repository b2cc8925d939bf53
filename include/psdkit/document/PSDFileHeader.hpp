#pragma once
// The header of a PSD or PSB file, read alone: enough to say what a file is, also when the
// library refuses to read the rest of it.
#include "psdkit/Export.hpp"
#include <cstdint>
#include <span>
#include <string>

namespace psdkit {

/// The fields of a file header, as stored.
struct PSDKIT_EXPORT PSDFileHeader {
    /// True for a PSB file (version 2), false for a PSD file (version 1).
    bool bigFile = false;
    /// Number of channels, alpha channels included.
    std::int64_t numberOfChannels = 0;
    /// Height of the canvas in pixels.
    std::int64_t height = 0;
    /// Width of the canvas in pixels.
    std::int64_t width = 0;
    /// Bits per channel sample (1, 8, 16 or 32 in files seen so far).
    std::int64_t bitDepth = 0;
    /// The colour mode's stored value (3 is RGB; see `PSDColorMode`).
    std::int64_t colorMode = 0;
};

/// Reads the 26-byte header at the start of `data`, checking only the signature "8BPS" and the
/// version. The values are not checked further, so that a file the library refuses can still be
/// described. Throws PSDException: readCorruptFile (another signature), readUnknownFileVersion
/// (a version other than 1 or 2), readUnexpectedEndOfFile (fewer than 26 bytes).
[[nodiscard]] PSDKIT_EXPORT PSDFileHeader probePSDFileHeader(std::span<const std::uint8_t> data);

/// The name of a stored colour mode: "bitmap", "grayscale", "indexed", "RGB", "CMYK",
/// "multichannel", "duotone", "Lab", or "mode N" for values without a name.
[[nodiscard]] PSDKIT_EXPORT std::string colorModeName(std::int64_t colorMode);

/// What a refusal of `header` says about it, for example "CMYK, 8 bits per channel".
[[nodiscard]] PSDKIT_EXPORT std::string describeColorModeAndDepth(std::int64_t colorMode,
                                                                  std::int64_t bitDepth);

} // namespace psdkit
