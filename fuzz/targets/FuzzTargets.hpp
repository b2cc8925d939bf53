#pragma once
// The fuzz targets of psdkit: each runs one parser of the library, and what builds on its result,
// over arbitrary bytes. The same code runs under libFuzzer (fuzz/FuzzEntry.cpp), in the replay
// programs (fuzz/ReplayMain.cpp) and in the crasher regression tests (tests/crashers).
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace psdkit::fuzz {

/// What one run of a target on one input came to.
struct Outcome {
    /// "ok", or the error the library reported for the input, as "<domain>.<case>":
    /// "PSDError.readCorruptFile", "ImageError.corruptZip", "PlatformError.propertyListParse".
    std::string result = "ok";
    /// Set when the run broke a promise of the library; it says which. Examples: a document that
    /// was read does not write back or its bytes do not read again, a written descriptor reads back
    /// different, an exception of a type the library never throws escaped, an allocation failed.
    /// Fuzzers abort on it; the crasher tests fail on it.
    std::optional<std::string> violation;
};

/// One fuzz target.
struct Target {
    std::string_view name; ///< "document", "descriptor", "channels", "propertylist", "metadata", "render"
    Outcome (*run)(std::span<const std::uint8_t> input);
};

/// Every target, in a fixed order.
[[nodiscard]] std::span<const Target> targets() noexcept;

/// The target called `name`, or nullptr.
[[nodiscard]] const Target* findTarget(std::string_view name) noexcept;

/// Puts the library into the state every target expects, once per process: diagnostics silenced
/// (nobody reads them, and writing them costs time) and a host bundle identifier set, so that the
/// host property list stored in documents is parsed.
void prepareLibrary();

/// The outcome of the exception in flight; call it only inside a catch block. The library's own
/// errors (PSDException, the image core's ImageException, PlatformException) become a result;
/// anything else (std::bad_alloc included) is a violation.
[[nodiscard]] Outcome outcomeOfCurrentException();

/// Runs `step` and returns "ok", or the outcome of what it threw.
template <typename Step> [[nodiscard]] Outcome attempt(Step&& step)
{
    try {
        step();
        return {};
    } catch (...) {
        return outcomeOfCurrentException();
    }
}

/// An outcome that breaks a promise: `what`, followed by the result that broke it, if any.
[[nodiscard]] Outcome violation(std::string_view what, const Outcome& cause = {});

// The targets themselves, one file each.
Outcome runDocument(std::span<const std::uint8_t> input);
Outcome runDescriptor(std::span<const std::uint8_t> input);
Outcome runChannels(std::span<const std::uint8_t> input);
Outcome runPropertyList(std::span<const std::uint8_t> input);
Outcome runMetadata(std::span<const std::uint8_t> input);
Outcome runRender(std::span<const std::uint8_t> input);

} // namespace psdkit::fuzz
