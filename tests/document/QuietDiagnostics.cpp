// The document tests read many blocks; their trace lines are not part of what these tests check.
#include "psdkit/platform/support/Diagnostics.hpp"

namespace {
const bool silenced = [] {
    psdkit::setDiagnosticsSink({});
    return true;
}();
} // namespace
