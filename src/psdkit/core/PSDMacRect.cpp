#include "psdkit/core/PSDMacRect.hpp"

#include <cmath>

#include "psdkit/core/PSDError.hpp"

namespace psdkit {
namespace {
std::int64_t toInt64(double v)
{
    // 2^63 is exactly representable; anything at or above it (or NaN) does not fit.
    if (!std::isfinite(v) || v >= 9223372036854775808.0 || v < -9223372036854775808.0) {
        throw PSDException(PSDError::readParameterError);
    }
    return static_cast<std::int64_t>(v);
}
} // namespace

PSDMacRect::PSDMacRect(const image::IntegralRect& r)
{
    top = r.height < 0 ? r.y + r.height : r.y;
    bottom = r.height > 0 ? r.y + r.height : r.y;
    left = r.width < 0 ? r.x + r.width : r.x;
    right = r.width > 0 ? r.x + r.width : r.x;
}

PSDMacRect::PSDMacRect(const CGRect& rect)
{
    const CGRect integral = CGRectIntegral(rect);
    *this = PSDMacRect(image::IntegralRect{toInt64(integral.x), toInt64(integral.y), toInt64(integral.width),
                                           toInt64(integral.height)});
}

} // namespace psdkit
