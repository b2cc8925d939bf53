#include "psdkit/core/PSDFourCharCode.hpp"

#include <cstdio>
#include <cstdlib>

#include "psdkit/core/PSDError.hpp"
#include "psdkit/platform/text/TextEncoding.hpp"

namespace psdkit {

PSDFourCharCode::PSDFourCharCode(FromText, std::string text)
{
    // Four ASCII bytes are four characters, except for a CR LF pair that forms one.
    const bool plainAscii =
        text.size() == 4 && detail::isAscii(text) && text.find("\r\n") == std::string::npos;
    if (!plainAscii) {
        const auto count = detail::characterCount(text);
        if (!count || *count != 4) {
            throw PSDException(PSDError::readParameterError);
        }
    }
    key_ = detail::canonicalForm(text);
    rawValue_ = std::move(text);
}

} // namespace psdkit

namespace psdkit {

void PSDFourCharCode::literalIsNotFourAsciiCharacters(const char* literal) noexcept
{
    std::fprintf(stderr, "psdkit: the four-character code literal \"%.4s\" is not four ASCII characters\n",
                 literal);
    std::abort();
}

} // namespace psdkit
