#pragma once
// PSDOutputSink: where a written document goes. The writer hands it the file's bytes from front to
// back and, for the lengths of sections that are known only once their content is written, goes
// back and overwrites a few bytes it handed over earlier. Ready-made sinks write to a file
// descriptor, a std::ostream and a std::vector.
//
// Failures: a sink reports a failure by throwing. The ready-made sinks throw std::system_error
// (for the stream sink its subclass std::ios_base::failure) carrying the cause; the document
// writer passes whatever a sink throws on to the host unchanged and stops writing. What the sink
// received until then is an incomplete file: the host drops it (the command-line tool writes into
// a temporary file and removes it).
#include "psdkit/Export.hpp"
#include <cstdint>
#include <ostream>
#include <span>
#include <vector>

namespace psdkit {

/// The destination of a written document. Offsets count from the first byte this sink received.
/// One thread at a time.
class PSDKIT_EXPORT PSDOutputSink {
  public:
    PSDOutputSink() = default;
    PSDOutputSink(const PSDOutputSink&) = delete;
    PSDOutputSink& operator=(const PSDOutputSink&) = delete;
    virtual ~PSDOutputSink() = default;

    /// Appends `bytes` after everything received so far. Throws on failure.
    virtual void write(std::span<const std::uint8_t> bytes) = 0;
    /// Overwrites bytes already received: the range starting `offset` bytes after the first byte
    /// lies within `position()` (the writer never asks for more). Throws on failure, also when
    /// the destination cannot go back (a pipe).
    virtual void patch(std::uint64_t offset, std::span<const std::uint8_t> bytes) = 0;
    /// How many bytes were received so far.
    [[nodiscard]] virtual std::uint64_t position() const noexcept = 0;
};

/// Appends to a vector the host owns and keeps alive while writing; bytes already in it stay
/// in front (offsets count from where this sink began). Throws only std::bad_alloc.
class PSDKIT_EXPORT PSDVectorOutputSink final : public PSDOutputSink {
  public:
    /// A sink appending to `target`, which must outlive it; bytes already in it stay in front.
    explicit PSDVectorOutputSink(std::vector<std::uint8_t>& target) noexcept
        : target_(target), start_(target.size())
    {
    }
    void write(std::span<const std::uint8_t> bytes) override;
    void patch(std::uint64_t offset, std::span<const std::uint8_t> bytes) override;
    [[nodiscard]] std::uint64_t position() const noexcept override { return target_.size() - start_; }

  private:
    std::vector<std::uint8_t>& target_;
    std::size_t start_;
};

/// Writes to an open file descriptor the host owns (and closes); it is not closed or synced
/// here. Writing starts at the descriptor's current offset. Lengths are patched with positioned
/// writes, so the descriptor must be seekable (a regular file); on a pipe or socket, the first
/// patch throws std::system_error (ESPIPE). Every failure of the system calls throws
/// std::system_error with the call's errno.
class PSDKIT_EXPORT PSDFileDescriptorOutputSink final : public PSDOutputSink {
  public:
    /// A sink writing at the current offset of `fileDescriptor` (opened for writing and seekable;
    /// the caller keeps it open and closes it). Offsets count from where the sink began.
    explicit PSDFileDescriptorOutputSink(int fileDescriptor);
    void write(std::span<const std::uint8_t> bytes) override;
    void patch(std::uint64_t offset, std::span<const std::uint8_t> bytes) override;
    [[nodiscard]] std::uint64_t position() const noexcept override { return position_; }

  private:
    int fileDescriptor_;
    std::int64_t start_; // the descriptor's offset at construction; -1: not seekable
    std::uint64_t position_ = 0;
};

/// Writes to a std::ostream the host owns, from its current put position. Lengths are patched by
/// seeking back and forth, so the stream must be seekable (an std::ofstream or
/// std::ostringstream is). A stream in a failed state, a failed write or seek throws
/// std::ios_base::failure; the stream's own exception mask is left as it is.
class PSDKIT_EXPORT PSDStreamOutputSink final : public PSDOutputSink {
  public:
    /// A sink writing to `stream` from its current position; the stream must outlive the sink.
    explicit PSDStreamOutputSink(std::ostream& stream);
    void write(std::span<const std::uint8_t> bytes) override;
    void patch(std::uint64_t offset, std::span<const std::uint8_t> bytes) override;
    [[nodiscard]] std::uint64_t position() const noexcept override { return position_; }

  private:
    std::ostream& stream_;
    std::streamoff start_; // the put position at construction; -1: not seekable
    std::uint64_t position_ = 0;
};

} // namespace psdkit
