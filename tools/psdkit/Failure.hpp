#pragma once
// Turning a failure into what the user sees: one line of text and an exit status.
#include <exception>
#include <filesystem>
#include <string>
#include <utility>

namespace psdkit::cli {

/// A failure while working on one file: the file and the original exception.
class FileFailure : public std::exception {
  public:
    FileFailure(std::filesystem::path path, std::exception_ptr cause)
        : path_(std::move(path)), cause_(std::move(cause))
    {
    }
    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }
    [[nodiscard]] const std::exception_ptr& cause() const noexcept { return cause_; }
    [[nodiscard]] const char* what() const noexcept override { return "failure while working on a file"; }

  private:
    std::filesystem::path path_;
    std::exception_ptr cause_;
};

/// Runs `work`; any exception it throws comes out as a FileFailure naming `path`.
template <typename Work> decltype(auto) onFile(const std::filesystem::path& path, Work&& work)
{
    try {
        return std::forward<Work>(work)();
    } catch (const FileFailure&) {
        throw;
    } catch (...) {
        throw FileFailure(path, std::current_exception());
    }
}

struct FailureReport {
    int exitStatus;
    /// One line without its line break, e.g. "This file is corrupt. (readCorruptFile)".
    std::string message;
};

/// What to tell the user about `failure` (anything but a UsageError): the library's readable
/// text and case name for a PSDError, the error's name for the image core and platform errors,
/// the system's message for file errors.
[[nodiscard]] FailureReport describeFailure(const std::exception_ptr& failure);

} // namespace psdkit::cli
