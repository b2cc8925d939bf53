#pragma once
// ChunkedOutputSink: keeps what it receives as a list of pieces, one per write, until the whole
// document is known; then `takeBytes()` builds one vector of exactly the final size, releasing
// each piece as soon as it is copied. Writing a document into a std::vector goes through it, so
// that the vector is allocated once at its exact size instead of growing by doubling, and at no
// moment are the pieces and the whole vector both held in full.
#include <cstdint>
#include <vector>

#include "psdkit/core/PSDOutputSink.hpp"

namespace psdkit::detail {

class ChunkedOutputSink final : public PSDOutputSink {
  public:
    void write(std::span<const std::uint8_t> bytes) override;
    void patch(std::uint64_t offset, std::span<const std::uint8_t> bytes) override;
    [[nodiscard]] std::uint64_t position() const noexcept override { return position_; }
    /// Everything received, in one vector of exactly `position()` bytes; the sink is left empty.
    [[nodiscard]] std::vector<std::uint8_t> takeBytes();

  private:
    std::vector<std::vector<std::uint8_t>> pieces_;
    std::vector<std::uint64_t> starts_; // offset of each piece's first byte
    std::uint64_t position_ = 0;
};

} // namespace psdkit::detail
