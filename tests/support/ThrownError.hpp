#pragma once
// The one error assertion of the tests: `thrownError(f)` is the std::error_code of what `f` threw,
// category included, so that comparing it with an error enum fails when another domain threw the
// same number (PSDError, ImageError and PlatformErrorCode share values):
//
//     EXPECT_EQ(thrownError([&] { PSDWrapper doc(bytes); }), PSDError::readCorruptFile);
//
// When `f` throws nothing the result is `nothingThrown()`, which equals no error of the library; any
// exception that is not a std::system_error propagates and fails the test.
#include <string>
#include <system_error>

namespace psdkit::testing {

struct NothingThrownCategory : std::error_category {
    const char* name() const noexcept override { return "nothing thrown"; }
    std::string message(int) const override { return "the call threw nothing"; }
};

[[nodiscard]] inline std::error_code nothingThrown() noexcept
{
    static const NothingThrownCategory category;
    return {0, category};
}

template <typename F> [[nodiscard]] std::error_code thrownError(F&& f)
{
    try {
        f();
    } catch (const std::system_error& e) {
        return e.code();
    }
    return nothingThrown();
}

} // namespace psdkit::testing
