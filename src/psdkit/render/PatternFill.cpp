#include "psdkit/render/PatternFill.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

#include "psdkit/core/PSDError.hpp"
#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/platform/PlatformError.hpp"
#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/image/PackBits.hpp"

namespace psdkit::detail {

namespace {

/// The image modes a pattern record names that can be drawn, and their colour channel counts.
constexpr std::int64_t greyMode = 1;
constexpr std::int64_t rgbMode = 3;

/// Patterns wider or taller than the format's largest canvas side are not read.
constexpr std::int64_t maximumPatternSide = 300000;

/// One array of a pattern's channel list as floats 0…1 of a `width` × `height` plane, or nothing
/// when the array is not written or is not of that size. Throws PSDException (bytes missing,
/// unsupported depth or compression) or ImageException (bad PackBits) when it cannot be read.
std::optional<std::vector<float>> readChannelArray(PSDScanner& scanner, std::int64_t width,
                                                   std::int64_t height)
{
    if (scanner.scanUInt32() == 0) {
        return std::nullopt; // not written: nothing follows
    }
    const std::int64_t length = scanner.scanUInt32();
    if (length == 0) {
        return std::nullopt;
    }
    const std::int64_t end = scanner.offset() + length;
    (void)scanner.scanUInt32(); // depth, repeated below
    const PSDMacRect rect = scanner.scanMacRect();
    const std::int64_t depth = scanner.scanUInt16();
    const std::int64_t compression = scanner.scanUInt8();
    const std::span<const std::uint8_t> data = scanner.scanBytes(end - scanner.offset());
    if (rect.width() != width || rect.height() != height) {
        return std::nullopt;
    }
    if ((depth != 8 && depth != 16) || compression > 1) {
        throw PSDException(PSDError::readUnsupportedContentType);
    }
    const auto rowBytes = static_cast<std::size_t>(width * depth / 8);
    const auto rows = static_cast<std::size_t>(height);
    std::vector<std::uint8_t> bytes;
    if (compression == 0) {
        if (data.size() < rowBytes * rows) {
            throw PSDException(PSDError::readUnexpectedEndOfFile);
        }
        bytes.assign(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(rowBytes * rows));
    } else {
        // Row byte counts, then the rows. Every count is checked before the plane is allocated, so
        // that the plane is at most a fixed multiple of the bytes present.
        PSDScanner counts(data);
        std::size_t offset = rows * 2;
        for (std::size_t row = 0; row < rows; ++row) {
            const auto count = static_cast<std::size_t>(counts.scanUInt16());
            if (count < packBitsMinimumRowSize(rowBytes)) {
                throw PSDException(PSDError::readCorruptFile);
            }
            offset += count;
        }
        if (offset > data.size()) {
            throw PSDException(PSDError::readUnexpectedEndOfFile);
        }
        bytes.resize(rowBytes * rows);
        PSDScanner rowScanner(data);
        offset = rows * 2;
        for (std::size_t row = 0; row < rows; ++row) {
            const auto count = static_cast<std::size_t>(rowScanner.scanUInt16());
            packBitsDecodeRow(data.subspan(offset, count),
                              std::span<std::uint8_t>(bytes).subspan(row * rowBytes, rowBytes));
            offset += count;
        }
    }
    std::vector<float> plane(static_cast<std::size_t>(width * height));
    for (std::size_t i = 0; i < plane.size(); ++i) {
        plane[i] = depth == 8 ? bytes[i] * (1.0f / 255.0f)
                              : static_cast<float>(bytes[2 * i] << 8 | bytes[2 * i + 1]) * (1.0f / 65535.0f);
    }
    return plane;
}

/// The pattern of the record at the scanner (after its length), or null when it is not the one
/// named `id`, or of a mode that cannot be drawn.
std::shared_ptr<PatternImage> readPatternRecord(PSDScanner& scanner, std::string_view id)
{
    (void)scanner.scanUInt32(); // version
    const std::int64_t mode = scanner.scanUInt32();
    (void)scanner.scanUInt16(); // height and width, repeated by the channel list's rectangle
    (void)scanner.scanUInt16();
    (void)scanner.scanUnicodeString(); // name
    if (scanner.scanPascalString() != id || (mode != greyMode && mode != rgbMode)) {
        return nullptr;
    }
    (void)scanner.scanUInt32(); // the channel list's version and length
    (void)scanner.scanUInt32();
    const PSDMacRect rect = scanner.scanMacRect();
    const std::int64_t channelCount = scanner.scanUInt32();
    const std::int64_t width = rect.width();
    const std::int64_t height = rect.height();
    if (width <= 0 || height <= 0 || width > maximumPatternSide || height > maximumPatternSide) {
        return nullptr;
    }
    // The colour channels, then (when written) the pattern's transparency; the list ends with a
    // user mask and a sheet mask.
    const std::size_t colours = mode == rgbMode ? 3 : 1;
    std::vector<std::vector<float>> planes;
    for (std::int64_t i = 0; i < channelCount + 2 && planes.size() <= colours && scanner.bytesRemaining() > 0;
         ++i) {
        if (auto plane = readChannelArray(scanner, width, height)) {
            planes.push_back(std::move(*plane));
        }
    }
    if (planes.size() < colours) {
        return nullptr;
    }
    auto pattern = std::make_shared<PatternImage>();
    pattern->width = width;
    pattern->height = height;
    pattern->rgba.resize(static_cast<std::size_t>(width * height * 4));
    for (std::size_t i = 0; i < static_cast<std::size_t>(width * height); ++i) {
        for (std::size_t c = 0; c < 3; ++c) {
            pattern->rgba[i * 4 + c] = planes[colours == 3 ? c : 0][i];
        }
        pattern->rgba[i * 4 + 3] = planes.size() > colours ? planes[colours][i] : 1.0f;
    }
    return pattern;
}

class PatternFill final : public Fill {
  public:
    PatternFill(std::shared_ptr<const PatternImage> pattern, double originX, double originY, double scale,
                double angleDegrees)
        : pattern_(std::move(pattern)), originX_(originX), originY_(originY), scale_(scale)
    {
        // Exact quarter turns stay exact, so that an unrotated or right-angled pattern lands on
        // whole pixels.
        const double quarterTurns = angleDegrees / 90.0;
        if (quarterTurns == std::floor(quarterTurns)) {
            const auto turn = static_cast<int>(std::fmod(std::fmod(quarterTurns, 4.0) + 4.0, 4.0));
            cos_ = turn == 0 ? 1 : turn == 2 ? -1 : 0;
            sin_ = turn == 1 ? 1 : turn == 3 ? -1 : 0;
        } else {
            const double radians = angleDegrees * std::numbers::pi / 180.0;
            cos_ = std::cos(radians);
            sin_ = std::sin(radians);
        }
    }
    void colorAt(std::int64_t x, std::int64_t y, float* rgba) const noexcept override
    {
        // The pattern turned anticlockwise by the angle about its phase point and scaled: the
        // canvas offset (dx, dy) from that point shows pattern pixel
        // ((dx cos − dy sin) / scale, (dx sin + dy cos) / scale), repeated. Limited in floating
        // point before the conversion, since far from the origin the remainder loses its precision.
        const double dx = static_cast<double>(x) + 0.5 - originX_;
        const double dy = static_cast<double>(y) + 0.5 - originY_;
        const auto wrapped = [](double at, std::int64_t side) {
            const auto extent = static_cast<double>(side);
            const double cell = std::floor(at);
            const double inside = cell - std::floor(cell / extent) * extent;
            return static_cast<std::int64_t>(std::clamp(inside, 0.0, extent - 1));
        };
        const std::int64_t px = wrapped((dx * cos_ - dy * sin_) / scale_, pattern_->width);
        const std::int64_t py = wrapped((dx * sin_ + dy * cos_) / scale_, pattern_->height);
        const float* p = pattern_->rgba.data() + (py * pattern_->width + px) * 4;
        std::copy(p, p + 4, rgba);
    }

  private:
    std::shared_ptr<const PatternImage> pattern_;
    double originX_, originY_, scale_;
    double cos_ = 1, sin_ = 0;
};

double numberValue(const PSDDescriptor* d, const char* key, double fallback)
{
    if (!d) {
        return fallback;
    }
    const UnifiedStringValue code = PSDFourCharCode(std::string(key));
    if (const auto* v = d->valueAs<PSDUnitFloat>(code)) {
        return std::isfinite(v->value) ? v->value : fallback;
    }
    if (const auto* v = d->valueAs<double>(code)) {
        return std::isfinite(*v) ? *v : fallback;
    }
    return fallback;
}

} // namespace

std::shared_ptr<const PatternImage> findPattern(std::span<const std::uint8_t> patternData,
                                                std::string_view id)
{
    PSDScanner scanner(patternData);
    try {
        while (scanner.bytesRemaining() >= 4) {
            const std::int64_t length = scanner.scanUInt32();
            // Records are padded to a multiple of four bytes.
            const std::int64_t next = scanner.offset() + (length + 3) / 4 * 4;
            if (auto pattern = readPatternRecord(scanner, id)) {
                return pattern;
            }
            scanner.seek(next);
        }
    } catch (const PSDException&) {
    } catch (const image::ImageException&) {
    }
    return nullptr;
}

std::shared_ptr<const Fill> makePatternFill(const PSDDescriptor& settings,
                                            std::span<const std::span<const std::uint8_t>> patternSources)
{
    const PSDDescriptor* named = settings.descriptorValue(PSDFourCharCode("Ptrn"));
    const auto* id = named ? named->valueAs<std::string>(PSDFourCharCode("Idnt")) : nullptr;
    if (!id) {
        return nullptr;
    }
    // Identifiers are stored with a closing NUL in the fill's settings, without one in the record.
    std::string_view wanted = *id;
    while (!wanted.empty() && wanted.back() == '\0') {
        wanted.remove_suffix(1);
    }
    std::shared_ptr<const PatternImage> pattern;
    for (const auto source : patternSources) {
        if ((pattern = findPattern(source, wanted))) {
            break;
        }
    }
    if (!pattern) {
        return nullptr;
    }
    const PSDDescriptor* phase = settings.descriptorValue(UnifiedStringValue::string("phase"));
    const double scale = std::clamp(numberValue(&settings, "Scl ", 100) / 100.0, 0.01, 100.0);
    const double angle = std::clamp(numberValue(&settings, "Angl", 0), -36000.0, 36000.0);
    return std::make_shared<PatternFill>(std::move(pattern), numberValue(phase, "Hrzn", 0),
                                         numberValue(phase, "Vrtc", 0), scale, angle);
}

} // namespace psdkit::detail
