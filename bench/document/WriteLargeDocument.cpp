// Writing and reading back one large document, as a host does it, with the process's resource use
// after each step: a SIDE × SIDE 8-bit PSB of LAYERS layers of noise (incompressible, so the file
// is as large as the pixels), written through a file-descriptor sink (or, with --vector, built as
// one vector and then written out), then mapped and read back, every image decoded, with the mapping
// shared by the document (or, with --copied-read, borrowed for the call, the planes copied).
//
//   psdkit_write_large_document OUT [--side N] [--layers N] [--vector] [--no-read] [--copied-read]
//
// Prints one line per step: wall seconds, peak resident memory so far, minor page faults of the
// step, and the file size. Run under /usr/bin/time -v for the whole process (bench/write-large.sh).
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "psdkit/core/PSDOutputSink.hpp"
#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"
#include "psdkit/platform/support/Diagnostics.hpp"

namespace {
using namespace psdkit;
using Clock = std::chrono::steady_clock;

struct Usage {
    double peakMiB;
    long minorFaults;
};

Usage usage()
{
    rusage r{};
    ::getrusage(RUSAGE_SELF, &r);
    return {static_cast<double>(r.ru_maxrss) / 1024.0, r.ru_minflt};
}

class Step {
  public:
    explicit Step(const char* name) : name_(name), start_(Clock::now()), before_(usage()) {}
    void done(std::uint64_t bytes = 0) const
    {
        const Usage after = usage();
        std::printf("%-10s %8.2f s  peak %9.0f MiB  faults %9ld  bytes %llu\n", name_,
                    std::chrono::duration<double>(Clock::now() - start_).count(), after.peakMiB,
                    after.minorFaults - before_.minorFaults, static_cast<unsigned long long>(bytes));
        std::fflush(stdout);
    }

  private:
    const char* name_;
    Clock::time_point start_;
    Usage before_;
};

std::shared_ptr<image::PixelBuffer<image::PixelARGB8>> noise(std::int64_t side, std::uint64_t seed)
{
    auto buffer = std::make_shared<image::PixelBuffer<image::PixelARGB8>>(image::IntegralSize{side, side});
    auto bytes = buffer->pixels();
    std::mt19937_64 random(seed);
    auto* words = reinterpret_cast<std::uint64_t*>(bytes.data());
    const std::size_t count = bytes.size() * sizeof(image::PixelARGB8) / sizeof(std::uint64_t);
    for (std::size_t i = 0; i < count; ++i) {
        words[i] = random();
    }
    return buffer;
}

std::uint64_t fileSize(int fd)
{
    struct stat info {};
    return ::fstat(fd, &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s OUT [--side N] [--layers N] [--vector] [--no-read] [--copied-read]\n",
                     argv[0]);
        return 2;
    }
    const std::string out = argv[1];
    std::int64_t side = 16384;
    int layerCount = 5;
    bool throughVector = false;
    bool readBack = true;
    bool copiedRead = false;
    for (int i = 2; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--side" && i + 1 < argc) {
            side = std::stoll(argv[++i]);
        } else if (arg == "--layers" && i + 1 < argc) {
            layerCount = std::stoi(argv[++i]);
        } else if (arg == "--vector") {
            throughVector = true;
        } else if (arg == "--no-read") {
            readBack = false;
        } else if (arg == "--copied-read") {
            copiedRead = true;
        }
    }
    setDiagnosticsSink({}); // no trace lines on standard output
    try {
        const Step make("make");
        PSDWrapper document;
        document.bigFile = true;
        document.imageWidth = side;
        document.imageHeight = side;
        document.bitDepth = 8;
        document.numberOfChannels = 4;
        for (int i = 0; i < layerCount; ++i) {
            auto layer = std::make_shared<PSDLayerWrapper>(8);
            layer->name = "noise " + std::to_string(i + 1);
            layer->contentsRect = PSDMacRect(0, 0, side, side);
            layer->setContentImage(noise(side, static_cast<std::uint64_t>(i) + 1));
            document.addLayerWrapper(layer);
        }
        const auto composite = noise(side, 1000);
        make.done();

        const Step write("write");
        const int fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0) {
            throw std::system_error(errno, std::generic_category(), out);
        }
        if (throughVector) {
            const std::vector<std::uint8_t> bytes =
                document.serializedRepresentationWithCompositeImage(composite.get());
            PSDFileDescriptorOutputSink(fd).write(bytes);
        } else {
            PSDFileDescriptorOutputSink sink(fd);
            document.serializeWithCompositeImage(composite.get(), sink);
        }
        const std::uint64_t written = fileSize(fd);
        ::close(fd);
        write.done(written);

        if (readBack) {
            // The document and its pixels go first, so that reading starts from the file alone.
            document = PSDWrapper();
            const Step read("read");
            const int in = ::open(out.c_str(), O_RDONLY | O_CLOEXEC);
            const std::uint64_t size = fileSize(in);
            void* mapped = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, in, 0);
            ::close(in);
            if (mapped == MAP_FAILED) {
                throw std::system_error(errno, std::generic_category(), out);
            }
            const std::shared_ptr<const void> mapping(
                mapped, [size](const void* p) { ::munmap(const_cast<void*>(p), size); });
            const std::span bytes(static_cast<const std::uint8_t*>(mapped), size);
            const PSDWrapper back =
                copiedRead ? PSDWrapper(bytes, PSDReadOptions{}) : PSDWrapper(PSDSharedBytes(mapping, bytes));
            if (back.layers.size() != static_cast<std::size_t>(layerCount)) {
                std::fprintf(stderr, "read back %zu layers\n", back.layers.size());
                return 1;
            }
            read.done(size);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "failed: %s\n", error.what());
        return 1;
    }
    return 0;
}
