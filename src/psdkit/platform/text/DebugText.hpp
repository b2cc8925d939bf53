#pragma once
// The debug form of a text, as trace lines print it: between double quotes, with a double quote or
// backslash preceded by a backslash, tab, line feed, carriage return and NUL as \t \n \r \0, and
// other control characters as \u{hex}. Apostrophes and non-ASCII characters are kept as they are.
#include <string>
#include <string_view>

namespace psdkit::detail {

[[nodiscard]] std::string debugQuoted(std::string_view text);

} // namespace psdkit::detail
