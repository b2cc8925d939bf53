#pragma once
// The diagnostics sink: where the library's trace lines go (one line per layer block read, one
// per descriptor item read, one for an unrecognised blend mode). By default they go to standard
// output, one line each. A host may redirect them or silence them.
#include "psdkit/Export.hpp"
#include <functional>
#include <string_view>

namespace psdkit {

/// Receives one diagnostic line, without its line break.
using DiagnosticsSink = std::function<void(std::string_view line)>;

/// Replaces the process-wide sink; an empty function silences diagnostics. Returns the previous
/// sink. Set it before the library is used from several threads.
PSDKIT_EXPORT DiagnosticsSink setDiagnosticsSink(DiagnosticsSink sink);

/// True when a sink is installed (callers may skip building lines nobody reads).
[[nodiscard]] PSDKIT_EXPORT bool diagnosticsEnabled() noexcept;

/// Sends one line to the sink.
PSDKIT_EXPORT void emitDiagnostic(std::string_view line);

} // namespace psdkit
