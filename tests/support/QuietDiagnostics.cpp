// The library traces every block it reads; keep the test output readable by dropping the
// diagnostics in every test program. Tests that check trace lines capture them themselves.
#include <optional>

#include <gtest/gtest.h>

#include "support/DiagnosticsCapture.hpp"

namespace {

class QuietDiagnostics : public ::testing::Environment {
  public:
    void SetUp() override { quiet_.emplace(false); }
    void TearDown() override { quiet_.reset(); }

  private:
    std::optional<psdkit::testing::DiagnosticsCapture> quiet_;
};

[[maybe_unused]] ::testing::Environment* const quietDiagnostics =
    ::testing::AddGlobalTestEnvironment(new QuietDiagnostics);

} // namespace
