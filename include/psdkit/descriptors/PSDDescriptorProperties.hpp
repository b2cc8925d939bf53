#pragma once
// PSDDescriptorProperties: the items of a descriptor, a map from identifier to value that keeps
// the order in which keys were first stored. Replacing the value of a key keeps the key's place,
// so a descriptor read and written again lists its items in the order of the file (duplicates
// aside), and a descriptor built by a host is written the same way every time. Lookups are hashed,
// so a file with very many items reads in linear time.
#include "psdkit/Export.hpp"
#include <cstddef>
#include <unordered_map>
#include <utility>
#include <vector>

#include "psdkit/descriptors/PSDDescriptorPropertyValue.hpp"
#include "psdkit/descriptors/UnifiedStringValue.hpp"

namespace psdkit {

/// The ordered items of a descriptor. A plain value: copies are independent (nested descriptors
/// inside values stay shared).
class PSDKIT_EXPORT PSDDescriptorProperties {
  public:
    using Entry = std::pair<UnifiedStringValue, PSDDescriptorPropertyValue>; ///< One item: key and value.
    using const_iterator = std::vector<Entry>::const_iterator;               ///< Iterates items in order.

    /// The value under `key`, or nullptr. The pointer is valid until the map is next changed.
    [[nodiscard]] const PSDDescriptorPropertyValue* find(const UnifiedStringValue& key) const;
    /// The value under `key`, or nullptr; it may be changed in place.
    [[nodiscard]] PSDDescriptorPropertyValue* find(const UnifiedStringValue& key);
    /// True when `key` has a value.
    [[nodiscard]] bool contains(const UnifiedStringValue& key) const { return index_.contains(key); }

    /// Stores `value` under `key`: in the key's place when present, else after the last entry.
    void set(const UnifiedStringValue& key, PSDDescriptorPropertyValue value);
    /// Removes `key` and its value; returns whether it was present. Later entries keep their order.
    bool erase(const UnifiedStringValue& key);
    /// Removes every item.
    void clear() noexcept;

    [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); } ///< Number of items.
    [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }      ///< True without items.
    /// Entries in order.
    [[nodiscard]] const_iterator begin() const noexcept { return entries_.begin(); }
    /// Past the last entry.
    [[nodiscard]] const_iterator end() const noexcept { return entries_.end(); }

  private:
    std::vector<Entry> entries_;
    std::unordered_map<UnifiedStringValue, std::size_t> index_; // key -> position in entries_
};

} // namespace psdkit
