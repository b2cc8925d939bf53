// The library traces every block it reads; keep the test output readable by silencing the
// diagnostics sink for every test program. Tests that check trace lines install their own sink.
#include <gtest/gtest.h>

#include "psdkit/platform/support/Diagnostics.hpp"

namespace {

class QuietDiagnostics : public ::testing::Environment {
  public:
    void SetUp() override { previous_ = psdkit::setDiagnosticsSink({}); }
    void TearDown() override { psdkit::setDiagnosticsSink(std::move(previous_)); }

  private:
    psdkit::DiagnosticsSink previous_;
};

[[maybe_unused]] ::testing::Environment* const quietDiagnostics =
    ::testing::AddGlobalTestEnvironment(new QuietDiagnostics);

} // namespace
