#pragma once
// Takes the library's diagnostic lines while it lives (keeping them in `lines`, or dropping them
// when `keep` is false), then restores the previous sink.
#include <string>
#include <string_view>
#include <vector>

#include "psdkit/platform/support/Diagnostics.hpp"

namespace psdkit::testing {

class DiagnosticsCapture {
  public:
    explicit DiagnosticsCapture(bool keep = true)
        : previous_(setDiagnosticsSink(
              keep ? DiagnosticsSink([this](std::string_view line) { lines.emplace_back(line); })
                   : DiagnosticsSink()))
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
