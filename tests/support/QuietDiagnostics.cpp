// The library traces every block it reads; keep the test output readable by dropping the
// diagnostics in every test program, from its start. Tests that check trace lines capture them
// themselves (DiagnosticsCapture).
#include "psdkit/platform/support/Diagnostics.hpp"

namespace {
[[maybe_unused]] const bool quietDiagnostics = (psdkit::setDiagnosticsSink({}), true);
} // namespace
