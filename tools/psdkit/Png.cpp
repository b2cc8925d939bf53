#include "Png.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <spng.h>

#include "Cli.hpp"

namespace psdkit::cli {

namespace {

// zlib's Z_RLE strategy (zlib.h); libspng hands the value to zlib unchanged.
constexpr int kZlibRunLengthStrategy = 3;

struct ContextDeleter {
    void operator()(spng_ctx* context) const noexcept { spng_ctx_free(context); }
};
using Context = std::unique_ptr<spng_ctx, ContextDeleter>;

[[noreturn]] void fail(const char* what, int error)
{
    throw InputError(std::string(what) + ": " + spng_strerror(error));
}

void putBigEndian16(std::uint8_t* out, std::uint16_t value) noexcept
{
    out[0] = static_cast<std::uint8_t>(value >> 8);
    out[1] = static_cast<std::uint8_t>(value & 0xFF);
}

std::uint16_t floatTo16(float value) noexcept
{
    if (!(value > 0.0f)) { // also NaN
        return 0;
    }
    if (value >= 1.0f) {
        return 65535;
    }
    return static_cast<std::uint16_t>(std::lround(static_cast<double>(value) * 65535.0));
}

// A PNG keyword: 1 to 79 printable Latin-1 characters without leading, trailing or double spaces.
std::string keyword(const std::string& text)
{
    std::string out;
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x20 || u > 0x7E || (u == ' ' && (out.empty() || out.back() == ' '))) {
            continue;
        }
        out += c;
        if (out.size() == 79) {
            break;
        }
    }
    while (!out.empty() && out.back() == ' ') {
        out.pop_back();
    }
    return out.empty() ? "ICC profile" : out;
}

template <typename P, typename Convert>
PngPixels convert(const image::PixelBufferType& buffer, int channels, int bitDepth, Convert&& store)
{
    const auto& typed = static_cast<const image::PixelBuffer<P>&>(buffer);
    PngPixels out;
    out.width = static_cast<std::uint32_t>(buffer.size().width);
    out.height = static_cast<std::uint32_t>(buffer.size().height);
    out.channels = channels;
    out.bitDepth = bitDepth;
    const std::size_t pixelBytes =
        static_cast<std::size_t>(channels) * static_cast<std::size_t>(bitDepth / 8);
    out.data.resize(typed.pixels().size() * pixelBytes);
    std::uint8_t* cursor = out.data.data();
    for (const P& pixel : typed.pixels()) {
        store(pixel, cursor);
        cursor += pixelBytes;
    }
    return out;
}

} // namespace

RgbaImage decodePng(std::span<const std::uint8_t> png)
{
    Context context(spng_ctx_new(0));
    if (!context) {
        throw std::bad_alloc();
    }
    // Ancillary chunks (text, profiles) are not needed: bound what they may cost.
    spng_set_chunk_limits(context.get(), std::size_t{16} << 20, std::size_t{64} << 20);
    if (const int error = spng_set_png_buffer(context.get(), png.data(), png.size())) {
        fail("not a PNG file", error);
    }
    spng_ihdr header{};
    if (const int error = spng_get_ihdr(context.get(), &header)) {
        fail("not a PNG file", error);
    }
    const int format = header.bit_depth == 16 ? SPNG_FMT_RGBA16 : SPNG_FMT_RGBA8;
    std::size_t size = 0;
    if (const int error = spng_decoded_image_size(context.get(), format, &size)) {
        fail("the PNG cannot be decoded", error);
    }
    if (size > maximumDecodedBytes) {
        throw InputError("the PNG is too large to decode");
    }
    std::vector<std::uint8_t> decoded(size);
    if (const int error =
            spng_decode_image(context.get(), decoded.data(), decoded.size(), format, SPNG_DECODE_TRNS)) {
        fail("the PNG cannot be decoded", error);
    }
    RgbaImage image;
    image.width = header.width;
    image.height = header.height;
    image.sampleBits = header.bit_depth == 16 ? 16 : 8;
    if (image.sampleBits == 8) {
        image.samples.assign(decoded.begin(), decoded.end());
    } else {
        // SPNG_FMT_RGBA16 gives host-order samples.
        image.samples.resize(decoded.size() / 2);
        std::copy_n(decoded.data(), image.samples.size() * 2,
                    reinterpret_cast<std::uint8_t*>(image.samples.data()));
    }
    return image;
}

std::optional<PngPixels> pngPixels(const image::PixelBufferType& buffer)
{
    const image::IntegralSize size = buffer.size();
    constexpr std::int64_t maximumSide = std::numeric_limits<std::int32_t>::max();
    if (size.width <= 0 || size.height <= 0 || size.width > maximumSide || size.height > maximumSide) {
        return std::nullopt;
    }
    using namespace image;
    switch (buffer.format()) {
    case PixelFormat::argb8:
        return convert<PixelARGB8>(buffer, 4, 8, [](const PixelARGB8& p, std::uint8_t* out) {
            out[0] = p.r;
            out[1] = p.g;
            out[2] = p.b;
            out[3] = p.a;
        });
    case PixelFormat::rgba16:
        return convert<PixelRGBA16>(buffer, 4, 16, [](const PixelRGBA16& p, std::uint8_t* out) {
            putBigEndian16(out, p.r);
            putBigEndian16(out + 2, p.g);
            putBigEndian16(out + 4, p.b);
            putBigEndian16(out + 6, p.a);
        });
    case PixelFormat::rgba32: {
        PngPixels out = convert<PixelRGBA32>(buffer, 4, 16, [](const PixelRGBA32& p, std::uint8_t* o) {
            putBigEndian16(o, floatTo16(p.r));
            putBigEndian16(o + 2, floatTo16(p.g));
            putBigEndian16(o + 4, floatTo16(p.b));
            putBigEndian16(o + 6, floatTo16(p.a));
        });
        out.toneMapped = true;
        return out;
    }
    case PixelFormat::gray8:
        return convert<PixelGray8>(buffer, 1, 8,
                                   [](const PixelGray8& p, std::uint8_t* out) { out[0] = p.v; });
    case PixelFormat::gray16:
        return convert<PixelGray16>(
            buffer, 1, 16, [](const PixelGray16& p, std::uint8_t* out) { putBigEndian16(out, p.v); });
    case PixelFormat::gray32: {
        PngPixels out = convert<PixelGray32>(
            buffer, 1, 16, [](const PixelGray32& p, std::uint8_t* o) { putBigEndian16(o, floatTo16(p.v)); });
        out.toneMapped = true;
        return out;
    }
    }
    return std::nullopt;
}

std::vector<std::uint8_t> encodePng(const PngPixels& pixels, const PngOptions& options)
{
    Context context(spng_ctx_new(SPNG_CTX_ENCODER));
    if (!context) {
        throw std::bad_alloc();
    }
    spng_ctx* ctx = context.get();
    spng_set_option(ctx, SPNG_ENCODE_TO_BUFFER, 1);
    spng_set_option(ctx, SPNG_IMG_COMPRESSION_LEVEL, 1);
    spng_set_option(ctx, SPNG_IMG_COMPRESSION_STRATEGY, kZlibRunLengthStrategy);
    spng_set_option(ctx, SPNG_FILTER_CHOICE, SPNG_FILTER_CHOICE_SUB);

    spng_ihdr header{};
    header.width = pixels.width;
    header.height = pixels.height;
    header.bit_depth = static_cast<std::uint8_t>(pixels.bitDepth);
    header.color_type = static_cast<std::uint8_t>(pixels.channels == 4 ? SPNG_COLOR_TYPE_TRUECOLOR_ALPHA
                                                                       : SPNG_COLOR_TYPE_GRAYSCALE);
    if (const int error = spng_set_ihdr(ctx, &header)) {
        fail("cannot write the PNG header", error);
    }
    if (options.iccProfile && !options.iccProfile->empty()) {
        spng_iccp iccp{};
        const std::string name = keyword(options.iccProfileName);
        std::copy(name.begin(), name.end(), iccp.profile_name);
        iccp.profile_len = options.iccProfile->size();
        // libspng copies nothing it is not asked to write; the profile outlives the encoder call.
        iccp.profile = const_cast<char*>(reinterpret_cast<const char*>(options.iccProfile->data()));
        if (const int error = spng_set_iccp(ctx, &iccp)) {
            fail("cannot attach the ICC profile", error);
        }
    }
    // SPNG_FMT_RAW: the samples exactly as given, 16-bit ones big-endian as the PNG stores them.
    if (const int error = spng_encode_image(ctx, pixels.data.data(), pixels.data.size(), SPNG_FMT_RAW,
                                            SPNG_ENCODE_FINALIZE)) {
        fail("cannot encode the PNG", error);
    }
    std::size_t length = 0;
    int error = 0;
    void* png = spng_get_png_buffer(ctx, &length, &error);
    if (!png) {
        fail("cannot encode the PNG", error);
    }
    const auto* bytes = static_cast<const std::uint8_t*>(png);
    std::vector<std::uint8_t> out(bytes, bytes + length);
    std::free(png);
    return out;
}

} // namespace psdkit::cli
