#pragma once
// PSDSharedBytes: an immutable run of bytes whose storage is shared, not copied.
#include "psdkit/Export.hpp"
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace psdkit {

/// A read-only view of bytes together with a shared reference to whatever keeps them alive: a
/// vector the view owns, a host's buffer, or a mapped file. Copies share the storage, so slicing a
/// large input into many small views costs no copy of the bytes. The bytes never change while any
/// view of them exists; the storage is released when the last view goes.
class PSDKIT_EXPORT PSDSharedBytes {
  public:
    /// No bytes.
    PSDSharedBytes() = default;
    /// Takes `bytes` over; the view then owns them.
    explicit PSDSharedBytes(std::vector<std::uint8_t> bytes)
    {
        auto owned = std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
        bytes_ = std::span<const std::uint8_t>(owned->data(), owned->size());
        owner_ = std::move(owned);
    }
    /// A view of `bytes`, kept alive by `owner` (which may be null when the caller guarantees the
    /// bytes outlive every view).
    PSDSharedBytes(std::shared_ptr<const void> owner, std::span<const std::uint8_t> bytes) noexcept
        : owner_(std::move(owner)), bytes_(bytes)
    {
    }
    /// A view owning its own copy of `bytes`.
    [[nodiscard]] static PSDSharedBytes copyOf(std::span<const std::uint8_t> bytes)
    {
        return PSDSharedBytes(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
    }

    /// The bytes.
    [[nodiscard]] std::span<const std::uint8_t> span() const noexcept { return bytes_; }
    /// The first byte, or null when empty.
    [[nodiscard]] const std::uint8_t* data() const noexcept { return bytes_.data(); }
    /// The number of bytes.
    [[nodiscard]] std::size_t size() const noexcept { return bytes_.size(); }
    /// True when there are no bytes.
    [[nodiscard]] bool empty() const noexcept { return bytes_.empty(); }
    /// Iteration over the bytes.
    [[nodiscard]] auto begin() const noexcept { return bytes_.begin(); }
    /// End of the bytes.
    [[nodiscard]] auto end() const noexcept { return bytes_.end(); }
    /// The reference that keeps the bytes alive (null for borrowed or empty views).
    [[nodiscard]] const std::shared_ptr<const void>& owner() const noexcept { return owner_; }

    /// `count` bytes from `offset`, sharing this view's storage. The range must lie within the
    /// view (a programming error otherwise; it is clamped to the view).
    [[nodiscard]] PSDSharedBytes slice(std::size_t offset, std::size_t count) const noexcept
    {
        offset = offset < bytes_.size() ? offset : bytes_.size();
        count = count < bytes_.size() - offset ? count : bytes_.size() - offset;
        return PSDSharedBytes(owner_, bytes_.subspan(offset, count));
    }
    /// A vector holding a copy of the bytes.
    [[nodiscard]] std::vector<std::uint8_t> toVector() const { return {bytes_.begin(), bytes_.end()}; }

    /// Equal when the bytes are equal (wherever they are stored).
    friend bool operator==(const PSDSharedBytes& a, const PSDSharedBytes& b) noexcept
    {
        return a.size() == b.size() && (a.size() == 0 || std::equal(a.begin(), a.end(), b.begin()));
    }

  private:
    std::shared_ptr<const void> owner_;
    std::span<const std::uint8_t> bytes_;
};

} // namespace psdkit
