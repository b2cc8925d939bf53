#include "psdkit/core/ChunkedOutputSink.hpp"

#include <algorithm>

namespace psdkit::detail {

void ChunkedOutputSink::write(std::span<const std::uint8_t> bytes)
{
    if (bytes.empty()) {
        return;
    }
    pieces_.emplace_back(bytes.begin(), bytes.end());
    starts_.push_back(position_);
    position_ += bytes.size();
}

void ChunkedOutputSink::patch(std::uint64_t offset, std::span<const std::uint8_t> bytes)
{
    // The last piece starting at or before `offset`, then on through the following pieces.
    auto index =
        static_cast<std::size_t>(std::upper_bound(starts_.begin(), starts_.end(), offset) - starts_.begin());
    while (!bytes.empty() && index > 0 && index <= pieces_.size()) {
        auto& piece = pieces_[index - 1];
        const auto within = static_cast<std::size_t>(offset - starts_[index - 1]);
        const std::size_t count = std::min(bytes.size(), piece.size() - within);
        std::copy_n(bytes.begin(), count, piece.begin() + static_cast<std::ptrdiff_t>(within));
        bytes = bytes.subspan(count);
        offset += count;
        ++index;
    }
}

std::vector<std::uint8_t> ChunkedOutputSink::takeBytes()
{
    std::vector<std::uint8_t> bytes;
    bytes.reserve(static_cast<std::size_t>(position_));
    for (auto& piece : pieces_) {
        bytes.insert(bytes.end(), piece.begin(), piece.end());
        std::vector<std::uint8_t>().swap(piece);
    }
    pieces_.clear();
    starts_.clear();
    position_ = 0;
    return bytes;
}

} // namespace psdkit::detail
