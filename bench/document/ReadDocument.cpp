// End-to-end reading (and optionally writing) of one document, exactly as a host does it: the whole
// file in memory, a PSDWrapper built from the bytes (which decodes every layer's content and mask
// image), then the composite image. Timed as a whole process by bench/compare.sh.
//
//   psdkit_read_document FILE                  read only
//   psdkit_read_document FILE --stats          read, then print the sizes the memory budget needs
//   psdkit_read_document FILE --write OUT      read, then write the document back to OUT
//   psdkit_read_document FILE --widen16 OUT    read an 8-bit document, write it as a 16-bit one
//   psdkit_read_document FILE --structure      read the structure only, decode no image
//   psdkit_read_document FILE --layer N        read on demand, then decode layer N's images only
//   psdkit_read_document FILE --threads N      read (every image and the composite) on N threads
//   psdkit_read_document FILE --render         read, then time renderDocument alone (best of three;
//                                              elapsed and CPU time)
//
// --write and --widen16 print the read and write times (steady clock, and the CPU time of writing,
// every thread's) on standard error.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"
#include "psdkit/platform/support/Diagnostics.hpp"
#include "psdkit/render/PSDRenderer.hpp"

namespace {

using namespace psdkit;
using Clock = std::chrono::steady_clock;

/// A whole file's bytes, mapped read-only into memory as a host that hands a file to a library
/// would: the pages come from the file cache without a copy.
struct FileBytes {
    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
    FileBytes() = default;
    FileBytes(const FileBytes&) = delete;
    FileBytes& operator=(const FileBytes&) = delete;
    FileBytes(FileBytes&& other) noexcept : data(std::exchange(other.data, nullptr)), size(other.size) {}
    ~FileBytes() { release(); }
    void release()
    {
        if (data != nullptr) {
            ::munmap(const_cast<std::uint8_t*>(data), size);
            data = nullptr;
        }
    }
    [[nodiscard]] std::span<const std::uint8_t> span() const { return {data, size}; }
};

FileBytes readFile(const char* path)
{
    const int fd = ::open(path, O_RDONLY);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    struct stat info {};
    FileBytes bytes;
    if (::fstat(fd, &info) == 0 && info.st_size > 0) {
        bytes.size = static_cast<std::size_t>(info.st_size);
        void* mapped = ::mmap(nullptr, bytes.size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
        if (mapped == MAP_FAILED) {
            const int error = errno;
            ::close(fd);
            throw std::system_error(error, std::generic_category(), path);
        }
        bytes.data = static_cast<const std::uint8_t*>(mapped);
    }
    ::close(fd);
    return bytes;
}

void writeFile(const std::string& path, const std::vector<std::uint8_t>& bytes)
{
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (std::fclose(file) != 0 || !ok) {
        throw std::system_error(EIO, std::generic_category(), path);
    }
}

std::size_t decodedBytes(const image::PixelBufferType* buffer)
{
    return buffer != nullptr ? buffer->bytes().size() : 0;
}

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/// An 8-bit colour buffer as a 16-bit one (v × 257 maps 0…255 onto 0…65535).
std::shared_ptr<image::PixelBufferType> widenColor(const image::PixelBufferType& buffer)
{
    const auto& narrow = dynamic_cast<const image::PixelBuffer<image::PixelARGB8>&>(buffer);
    auto wide = std::make_shared<image::PixelBuffer<image::PixelRGBA16>>(buffer.size());
    const auto from = narrow.pixels();
    const auto to = wide->pixels();
    for (std::size_t i = 0; i < from.size(); ++i) {
        const image::PixelARGB8 p = from[i];
        to[i] = {static_cast<std::uint16_t>(p.r * 257), static_cast<std::uint16_t>(p.g * 257),
                 static_cast<std::uint16_t>(p.b * 257), static_cast<std::uint16_t>(p.a * 257)};
    }
    return wide;
}

std::shared_ptr<image::PixelBufferType> widenGray(const image::PixelBufferType& buffer)
{
    const auto& narrow = dynamic_cast<const image::PixelBuffer<image::PixelGray8>&>(buffer);
    auto wide = std::make_shared<image::PixelBuffer<image::PixelGray16>>(buffer.size());
    const auto from = narrow.pixels();
    const auto to = wide->pixels();
    for (std::size_t i = 0; i < from.size(); ++i) {
        to[i] = {static_cast<std::uint16_t>(from[i].v * 257)};
    }
    return wide;
}

/// Turns a freshly read 8-bit document into a 16-bit one with the same pixels, layer by layer.
std::shared_ptr<image::PixelBufferType> widenTo16Bits(PSDWrapper& document,
                                                      std::shared_ptr<image::PixelBufferType> composite)
{
    if (document.bitDepth != 8) {
        throw std::runtime_error("--widen16 takes an 8-bit document");
    }
    document.bitDepth = 16;
    for (const auto& layer : document.layers) {
        layer->bitDepth = 16;
        layer->channelInfo.clear();
        if (layer->contentImage()) {
            layer->setContentImage(widenColor(*layer->contentImage()));
        }
        if (layer->maskImage()) {
            layer->setMaskImage(widenGray(*layer->maskImage()));
        }
    }
    document.imageDataChannelData.clear();
    return composite ? widenColor(*composite) : nullptr;
}

int run(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr,
                     "usage: %s FILE [--stats | --structure | --layer N | --threads N | --write OUT | "
                     "--widen16 OUT | --render]\n",
                     argv[0]);
        return 2;
    }
    const std::string mode = argc >= 3 ? argv[2] : "";
    const bool writes = mode == "--write" || mode == "--widen16";
    const bool counted = mode == "--layer" || mode == "--threads";
    if (((writes || counted) && argc != 4) || (!writes && !counted && mode != "" && mode != "--stats" &&
                                               mode != "--structure" && mode != "--render")) {
        std::fprintf(stderr,
                     "usage: %s FILE [--stats | --structure | --layer N | --threads N | --write OUT | "
                     "--widen16 OUT | --render]\n",
                     argv[0]);
        return 2;
    }
    setDiagnosticsSink({});

    const auto start = Clock::now();
    FileBytes bytes = readFile(argv[1]);
    const std::size_t fileSize = bytes.size;
    // The document shares the mapping (its planes refer to it) instead of copying the file.
    auto mapping = std::make_shared<FileBytes>(std::move(bytes));
    PSDReadOptions options;
    if (mode == "--structure") {
        options.imageDecoding = PSDImageDecoding::never;
    } else if (mode == "--layer") {
        options.imageDecoding = PSDImageDecoding::onDemand;
    } else if (mode == "--threads") {
        options.threadCount = static_cast<unsigned>(std::stoul(argv[3]));
    }
    PSDWrapper document(PSDSharedBytes(mapping, mapping->span()), options);
    mapping.reset();
    if (mode == "--structure") {
        return document.layers.empty() ? 1 : 0;
    }
    if (mode == "--layer") {
        const auto& layer = document.layers.at(std::stoul(argv[3]));
        return layer->contentImage() || layer->maskImage() ? 0 : 1;
    }
    std::shared_ptr<image::PixelBufferType> composite = document.compositeImage();
    const double readSeconds = secondsSince(start);

    if (mode == "--stats") {
        std::size_t layerBytes = 0;
        std::size_t layerImages = 0;
        for (const auto& layer : document.layers) {
            layerBytes += decodedBytes(layer->contentImage().get()) + decodedBytes(layer->maskImage().get());
            layerImages += (layer->contentImage() ? 1 : 0) + (layer->maskImage() ? 1 : 0);
        }
        std::printf("file_bytes=%zu\nlayer_records=%zu\nlayer_images=%zu\nlayer_pixel_bytes=%zu\n"
                    "composite_pixel_bytes=%zu\ndecoded_bytes=%zu\nread_seconds=%.3f\n",
                    fileSize, document.layers.size(), layerImages, layerBytes, decodedBytes(composite.get()),
                    layerBytes + decodedBytes(composite.get()), readSeconds);
        return 0;
    }
    if (mode == "--render") {
        // The compositor alone, best of three, on every core; also the CPU time of every thread,
        // which a busy machine inflates far less than the elapsed time.
        double best = 1e30;
        double bestCpu = 1e30;
        for (int run = 0; run < 3; ++run) {
            const auto renderStart = Clock::now();
            const std::clock_t cpuStart = std::clock();
            const PSDRenderResult rendered = renderDocument(document);
            best = std::min(best, secondsSince(renderStart));
            bestCpu = std::min(bestCpu, static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC);
            if (!rendered.image) {
                return 1;
            }
        }
        std::printf("read_seconds=%.3f\nrender_seconds=%.3f\nrender_cpu_seconds=%.3f\n", readSeconds, best,
                    bestCpu);
        return 0;
    }
    if (!writes) {
        return composite ? 0 : 1;
    }
    if (mode == "--widen16") {
        composite = widenTo16Bits(document, std::move(composite));
    }
    const auto writeStart = Clock::now();
    const std::clock_t writeCpuStart = std::clock();
    const std::vector<std::uint8_t> written =
        document.serializedRepresentationWithCompositeImage(composite.get());
    const double writeSeconds = secondsSince(writeStart);
    const double writeCpuSeconds = static_cast<double>(std::clock() - writeCpuStart) / CLOCKS_PER_SEC;
    writeFile(argv[3], written);
    std::fprintf(stderr, "read %.3f s, write %.3f s (%.3f s CPU), %zu bytes written\n", readSeconds,
                 writeSeconds, writeCpuSeconds, written.size());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "%s: %s (%s %d)\n", argv[1], error.what(), error.code().category().name(),
                     error.code().value());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.what());
    }
    return 1;
}
