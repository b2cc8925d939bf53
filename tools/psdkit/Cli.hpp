#pragma once
// Shared plumbing of the psdkit command-line tool: argument scanning, the errors that decide the
// exit status, whole-file reading and atomic writing.
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/render/PSDRenderer.hpp"

namespace psdkit::cli {

/// Exit statuses of the tool.
enum ExitStatus : int {
    exitSuccess = 0,
    exitUsage = 1,    ///< a bad command line
    exitRefused = 2,  ///< the library (or the PNG reader) refused a file, or a check failed
    exitIoFailure = 3 ///< a file could not be read or written
};

/// A command line that does not make sense; main prints the message and the command's usage.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A file that could not be read or written (missing, unreadable, disk full …). The message
/// names the cause, not the file: callers attach the file with `onFile` (Failure.hpp).
class IoError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A file whose contents the tool itself refuses (a PNG that does not decode, a layer that does
/// not fit); reported like the library's own refusals, with exit status 2.
class InputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The arguments of one command, split into positional arguments and `--name[=value]` options.
/// Options that take a value accept both `--size 10x10` and `--size=10x10`.
class Arguments {
  public:
    /// `valueOptions` and `flagOptions` name the options the command knows (without dashes);
    /// anything else starting with "--" is a UsageError. A lone "--" ends the options.
    Arguments(std::span<const std::string> args, std::vector<std::string> valueOptions,
              std::vector<std::string> flagOptions);

    [[nodiscard]] const std::vector<std::string>& positional() const noexcept { return positional_; }
    [[nodiscard]] bool flag(const std::string& name) const;
    [[nodiscard]] std::optional<std::string> value(const std::string& name) const;
    /// Throws UsageError unless there are between `min` and `max` positional arguments.
    void expectPositional(std::size_t min, std::size_t max) const;

  private:
    std::vector<std::string> positional_;
    std::vector<std::string> flags_;
    std::vector<std::pair<std::string, std::string>> values_;
};

/// Parses a whole decimal integer within [min, max]; nothing for anything else.
[[nodiscard]] std::optional<std::int64_t> parseInteger(const std::string& text, std::int64_t min,
                                                       std::int64_t max);

/// The value of `--threads N` (1 to 1024), or 0 (one per hardware thread) when it is not given.
/// Throws UsageError for anything else.
[[nodiscard]] unsigned threadCountOption(const Arguments& arguments);

/// The whole contents of a file. Throws IoError.
[[nodiscard]] std::vector<std::uint8_t> readFile(const std::filesystem::path& path);

/// The contents of a file mapped read-only (read into memory when it cannot be mapped, as for a
/// pipe); the mapping lives as long as any view of it. Throws IoError.
[[nodiscard]] PSDSharedBytes mapFile(const std::filesystem::path& path);

/// Maps and parses a PSD or PSB file as `options` say; the document's planes and kept blocks
/// refer to the mapping. When every image has been decoded (eager reading), the mapped pages are
/// handed back to the kernel, which reads them again from the file cache if they are used. The
/// library's exceptions pass through.
[[nodiscard]] PSDWrapper readDocument(const std::filesystem::path& path, const PSDReadOptions& options = {});

/// Writes `bytes` to a temporary file beside `path` and renames it over `path`, so that readers
/// never see a partial file and a failure leaves nothing behind. Throws IoError.
void writeFileAtomically(const std::filesystem::path& path, std::span<const std::uint8_t> bytes);
/// The same for a file that `produce` writes to the sink it is given (a temporary file beside
/// `path`): renamed over `path` only when `produce` returns; when it throws, the temporary file
/// is removed and the exception passes on (a failure of the file itself as IoError).
void writeFileAtomically(const std::filesystem::path& path,
                         const std::function<void(PSDOutputSink&)>& produce);

/// `text` with control characters and invalid UTF-8 escaped, for one-line display.
[[nodiscard]] std::string printable(const std::string& text);

/// The library's rendering of `document` as `options` say; refused requests become InputError.
/// Fills `details` (what was not drawn) when given.
[[nodiscard]] std::shared_ptr<image::PixelBufferType> renderOrRefuse(const PSDWrapper& document,
                                                                     const PSDRenderOptions& options = {},
                                                                     PSDRenderResult* details = nullptr);

/// "; layer effects not drawn on N layers; …" for what a render left out, or "".
[[nodiscard]] std::string describeUndrawn(const PSDRenderResult& result);

} // namespace psdkit::cli
