#pragma once
// Takes the library's diagnostic lines into `lines` while it lives, then restores the previous sink.
#include <string>
#include <string_view>
#include <vector>

#include "psdkit/platform/support/Diagnostics.hpp"

namespace psdkit::testing {

class DiagnosticsCapture {
  public:
    DiagnosticsCapture()
        : previous_(setDiagnosticsSink([this](std::string_view line) { lines.emplace_back(line); }))
    {
    }
    ~DiagnosticsCapture() { setDiagnosticsSink(std::move(previous_)); }
    DiagnosticsCapture(const DiagnosticsCapture&) = delete;
    DiagnosticsCapture& operator=(const DiagnosticsCapture&) = delete;

    std::vector<std::string> lines;

  private:
    DiagnosticsSink previous_;
};

} // namespace psdkit::testing
