#pragma once
// The error categories of the library's exceptions differ only in their name and in how a value
// becomes a message; this is the one category class they share.
#include <string>
#include <system_error>

namespace psdkit::detail {

/// An error category named `name` whose message for a value is `describe(value)`. Instances live
/// as function-local statics of the category accessors.
class DescribedErrorCategory final : public std::error_category {
  public:
    using Describe = std::string (*)(int value);

    DescribedErrorCategory(const char* name, Describe describe) noexcept : name_(name), describe_(describe) {}

    [[nodiscard]] const char* name() const noexcept override { return name_; }
    [[nodiscard]] std::string message(int value) const override { return describe_(value); }

  private:
    const char* name_;
    Describe describe_;
};

} // namespace psdkit::detail
