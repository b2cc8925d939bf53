// Pixel buffers <-> numpy arrays.
#include <bit>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#if defined(__linux__)
#include <sys/mman.h>
#endif

#include "Bindings.hpp"

namespace psdkit::python {

namespace {

using image::PixelFormat;

// An array over the buffer's own pixels; the array's base keeps the buffer alive.
template <typename Sample>
py::array sharedArray(const std::shared_ptr<image::PixelBufferType>& buffer, std::size_t channels)
{
    const auto size = buffer->size();
    const auto height = static_cast<py::ssize_t>(size.height);
    const auto width = static_cast<py::ssize_t>(size.width);
    const auto sample = static_cast<py::ssize_t>(sizeof(Sample));
    const auto pixel = sample * static_cast<py::ssize_t>(channels);
    std::vector<py::ssize_t> shape{height, width};
    std::vector<py::ssize_t> strides{width * pixel, pixel};
    if (channels > 1) {
        shape.push_back(static_cast<py::ssize_t>(channels));
        strides.push_back(sample);
    }
    if (height == 0 || width == 0) {
        return py::array(py::dtype::of<Sample>(), shape);
    }
    auto* keeper = new std::shared_ptr<image::PixelBufferType>(buffer);
    py::capsule base(keeper,
                     [](void* p) { delete static_cast<std::shared_ptr<image::PixelBufferType>*>(p); });
    auto* data = reinterpret_cast<Sample*>(buffer->mutableBytes().data());
    return py::array(py::dtype::of<Sample>(), shape, strides, data, base);
}

// A new (height, width, 4) uint8 array for pixels the caller writes in full. Arrays of 4 MiB and
// more get memory mapped for them with ordinary pages: numpy asks the kernel for huge pages at
// that size, and on fresh memory a huge-page fault sometimes stalls for tens of milliseconds
// (every layer of a large document pays it, and the time then varies tenfold between runs),
// while ordinary pages cost the same every time. The array's base unmaps the memory.
py::array_t<std::uint8_t> newRGBAArray(std::int64_t height, std::int64_t width)
{
    const std::vector<py::ssize_t> shape{static_cast<py::ssize_t>(height), static_cast<py::ssize_t>(width),
                                         py::ssize_t{4}};
#if defined(__linux__) && defined(MADV_NOHUGEPAGE)
    constexpr std::size_t hugePageThreshold = std::size_t{4} << 20;
    std::size_t pixels = 0;
    std::size_t bytes = 0;
    if (height > 0 && width > 0 &&
        !__builtin_mul_overflow(static_cast<std::size_t>(height), static_cast<std::size_t>(width), &pixels) &&
        !__builtin_mul_overflow(pixels, std::size_t{4}, &bytes) && bytes >= hugePageThreshold) {
        void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::bad_alloc();
        }
        py::capsule base;
        try {
            auto mapping = std::make_unique<std::pair<void*, std::size_t>>(memory, bytes);
            base = py::capsule(mapping.get(), [](void* p) {
                auto* owned = static_cast<std::pair<void*, std::size_t>*>(p);
                munmap(owned->first, owned->second);
                delete owned;
            });
            (void)mapping.release(); // the capsule owns it now
        } catch (...) {
            munmap(memory, bytes);
            throw;
        }
        madvise(memory, bytes, MADV_NOHUGEPAGE); // advice only: a refusal leaves a working mapping
        return py::array_t<std::uint8_t>(shape, static_cast<std::uint8_t*>(memory), base);
    }
#endif
    return py::array_t<std::uint8_t>(shape);
}

// Memory a r g b -> r g b a for `size` bytes at `bytes` (4-byte aligned): every pixel's 32-bit
// word rotated by one byte, in a loop the compiler vectorizes with plain SSE2 shifts.
void rotateARGBToRGBA(std::uint8_t* bytes, std::size_t size)
{
    static_assert(std::endian::native == std::endian::little, "the rotation assumes little-endian words");
    auto* words = reinterpret_cast<std::uint32_t*>(bytes);
    const std::size_t count = size / 4;
    for (std::size_t i = 0; i < count; ++i) {
        words[i] = std::rotr(words[i], 8);
    }
}

// 8-bit colour pixels are stored a, r, g, b: a new RGBA array.
py::array rgbaFromARGB8(const image::PixelBufferType& buffer)
{
    const auto size = buffer.size();
    auto array = newRGBAArray(size.height, size.width);
    const auto source = buffer.bytes();
    auto* target = array.mutable_data();
    {
        py::gil_scoped_release release;
        std::memcpy(target, source.data(), source.size());
        rotateARGBToRGBA(target, source.size());
    }
    return array;
}

template <typename P> constexpr const char* sampleName()
{
    using Sample = typename image::PixelTraits<P>::Sample;
    if constexpr (std::is_same_v<Sample, std::uint8_t>) {
        return "uint8";
    } else if constexpr (std::is_same_v<Sample, std::uint16_t>) {
        return "uint16";
    } else {
        return "float32";
    }
}

// Fills a new buffer of pixel type P from a C-contiguous array of its sample type with
// `arrayChannels` channels per pixel (3 or 4 for colour, 1 for grey).
template <typename P>
std::shared_ptr<image::PixelBufferType> bufferFromArray(const py::handle& handle, bool grey)
{
    using Traits = image::PixelTraits<P>;
    using Sample = typename Traits::Sample;
    if (!py::isinstance<py::array_t<Sample>>(handle)) {
        throw py::type_error(std::string("pixels of this depth must be a numpy array of dtype ") +
                             sampleName<P>());
    }
    auto array = py::array_t<Sample, py::array::c_style>::ensure(handle);
    if (!array) {
        throw py::type_error("pixels must be a numpy array");
    }
    const auto dims = array.ndim();
    const py::ssize_t channels = dims == 3 ? array.shape(2) : 1;
    if (grey ? dims != 2 : (dims != 3 || (channels != 3 && channels != 4))) {
        throw py::value_error(
            grey ? "a mask must have the shape (height, width)"
                 : "pixels must have the shape (height, width, 4) RGBA or (height, width, 3) RGB");
    }
    const image::IntegralSize size{static_cast<std::int64_t>(array.shape(1)),
                                   static_cast<std::int64_t>(array.shape(0))};
    auto buffer = std::make_shared<image::PixelBuffer<P>>(size);
    const Sample* source = array.data();
    {
        py::gil_scoped_release release;
        auto pixels = buffer->pixels();
        const auto count = static_cast<std::size_t>(channels);
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            auto* samples = reinterpret_cast<Sample*>(&pixels[i]);
            const Sample* in = source + i * count;
            for (std::size_t c = 0; c < Traits::channelCount; ++c) {
                Sample value;
                if (c < count) {
                    value = in[c];
                } else if constexpr (std::is_same_v<Sample, float>) {
                    value = 1.0f; // no alpha given: opaque
                } else {
                    value = static_cast<Sample>(~Sample{0});
                }
                samples[Traits::memoryIndex[c]] = value;
            }
        }
    }
    return buffer;
}

} // namespace

py::object arrayFromImage(const std::shared_ptr<image::PixelBufferType>& buffer)
{
    if (!buffer) {
        return py::none();
    }
    switch (buffer->format()) {
    case PixelFormat::argb8:
        return rgbaFromARGB8(*buffer);
    case PixelFormat::rgba16:
        return sharedArray<std::uint16_t>(buffer, 4);
    case PixelFormat::rgba32:
        return sharedArray<float>(buffer, 4);
    case PixelFormat::gray8:
        return sharedArray<std::uint8_t>(buffer, 1);
    case PixelFormat::gray16:
        return sharedArray<std::uint16_t>(buffer, 1);
    case PixelFormat::gray32:
        return sharedArray<float>(buffer, 1);
    }
    return py::none();
}

py::object arrayTakingImage(std::shared_ptr<image::PixelBufferType> buffer)
{
    if (!buffer || buffer->format() != PixelFormat::argb8 || buffer.use_count() > 1) {
        return arrayFromImage(buffer);
    }
    {
        py::gil_scoped_release release;
        const auto bytes = buffer->mutableBytes();
        rotateARGBToRGBA(bytes.data(), bytes.size());
    }
    return sharedArray<std::uint8_t>(buffer, 4);
}

py::object rgbaArrayFromLayer(const PSDLayerWrapper& layer)
{
    const auto size = layer.contentImageSize();
    if (!size) {
        return py::none();
    }
    auto array = newRGBAArray(size->height, size->width);
    const std::span<std::uint8_t> destination(array.mutable_data(), static_cast<std::size_t>(array.nbytes()));
    bool copied = false;
    {
        py::gil_scoped_release release;
        copied = layer.copyContentImageRGBA(destination);
    }
    return copied ? py::object(std::move(array)) : py::object(py::none());
}

std::shared_ptr<image::PixelBufferType> imageFromArray(const py::handle& array, std::int64_t depth, bool grey)
{
    switch (depth) {
    case 8:
        return grey ? bufferFromArray<image::PixelGray8>(array, true)
                    : bufferFromArray<image::PixelARGB8>(array, false);
    case 16:
        return grey ? bufferFromArray<image::PixelGray16>(array, true)
                    : bufferFromArray<image::PixelRGBA16>(array, false);
    case 32:
        return grey ? bufferFromArray<image::PixelGray32>(array, true)
                    : bufferFromArray<image::PixelRGBA32>(array, false);
    default:
        throw py::value_error("the bit depth must be 8, 16 or 32");
    }
}

} // namespace psdkit::python
