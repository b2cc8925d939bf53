#include "psdkit/core/PSDOutputSink.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <system_error>

namespace psdkit {
namespace {

[[noreturn]] void throwErrno(int error, const char* what)
{
    throw std::system_error(error, std::generic_category(), what);
}

// The largest single write or pwrite asked of the system (Linux moves at most about 2 GiB per call).
constexpr std::size_t kLargestSystemWrite = std::size_t{1} << 30;

} // namespace

void PSDVectorOutputSink::write(std::span<const std::uint8_t> bytes)
{
    target_.insert(target_.end(), bytes.begin(), bytes.end());
}

void PSDVectorOutputSink::patch(std::uint64_t offset, std::span<const std::uint8_t> bytes)
{
    std::copy(bytes.begin(), bytes.end(), target_.begin() + static_cast<std::ptrdiff_t>(start_ + offset));
}

PSDFileDescriptorOutputSink::PSDFileDescriptorOutputSink(int fileDescriptor)
    : fileDescriptor_(fileDescriptor), start_(::lseek(fileDescriptor, 0, SEEK_CUR))
{
}

void PSDFileDescriptorOutputSink::write(std::span<const std::uint8_t> bytes)
{
    while (!bytes.empty()) {
        const ssize_t written =
            ::write(fileDescriptor_, bytes.data(), std::min(bytes.size(), kLargestSystemWrite));
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            throwErrno(errno, "writing the document");
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
        position_ += static_cast<std::uint64_t>(written);
    }
}

void PSDFileDescriptorOutputSink::patch(std::uint64_t offset, std::span<const std::uint8_t> bytes)
{
    if (start_ < 0) {
        throwErrno(ESPIPE, "going back to a length in the document");
    }
    auto at = static_cast<off_t>(start_ + static_cast<std::int64_t>(offset));
    while (!bytes.empty()) {
        const ssize_t written =
            ::pwrite(fileDescriptor_, bytes.data(), std::min(bytes.size(), kLargestSystemWrite), at);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            throwErrno(errno, "going back to a length in the document");
        }
        bytes = bytes.subspan(static_cast<std::size_t>(written));
        at += written;
    }
}

PSDStreamOutputSink::PSDStreamOutputSink(std::ostream& stream) : stream_(stream), start_(-1)
{
    if (stream_) {
        start_ = static_cast<std::streamoff>(stream_.tellp());
    }
    if (!stream_) {
        throw std::ios_base::failure("the output stream has failed");
    }
}

void PSDStreamOutputSink::write(std::span<const std::uint8_t> bytes)
{
    while (!bytes.empty()) {
        const std::size_t count = std::min<std::size_t>(
            bytes.size(), static_cast<std::size_t>(std::numeric_limits<std::streamsize>::max()));
        stream_.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(count));
        if (!stream_) {
            throw std::ios_base::failure("writing the document");
        }
        bytes = bytes.subspan(count);
        position_ += count;
    }
}

void PSDStreamOutputSink::patch(std::uint64_t offset, std::span<const std::uint8_t> bytes)
{
    if (start_ < 0) {
        throw std::ios_base::failure("the output stream cannot go back to a length");
    }
    const std::streampos end = stream_.tellp();
    stream_.seekp(start_ + static_cast<std::streamoff>(offset));
    stream_.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    stream_.seekp(end);
    if (!stream_) {
        throw std::ios_base::failure("going back to a length in the document");
    }
}

} // namespace psdkit
