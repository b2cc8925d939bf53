#pragma once
// OrderedMap: a small map that remembers the order in which keys were first inserted. The
// format's kept blocks are written back in the order they were read, so the containers that hold
// them iterate in insertion order; assigning to an existing key keeps its position.
// Lookups are linear: these maps hold a handful to a few dozen entries.
#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <utility>
#include <vector>

namespace psdkit {

/// A map from `Key` to `Value` that iterates in first-insertion order. A plain value: copies are
/// independent. Keys need only `==`. Iterators and pointers into it are invalidated by any insertion
/// or removal.
template <typename Key, typename Value> class OrderedMap {
  public:
    using value_type = std::pair<Key, Value>;                                ///< One entry: key and value.
    using iterator = typename std::vector<value_type>::iterator;             ///< Iterates entries in order.
    using const_iterator = typename std::vector<value_type>::const_iterator; ///< The same, read-only.

    OrderedMap() = default;
    /// The entries in the order given; a key given twice keeps its first place and its last value.
    OrderedMap(std::initializer_list<value_type> entries)
    {
        for (const auto& e : entries) {
            insertOrAssign(e.first, e.second);
        }
    }

    /// The entry under `key`, or `end()`.
    [[nodiscard]] iterator find(const Key& key)
    {
        return std::find_if(entries_.begin(), entries_.end(),
                            [&](const value_type& e) { return e.first == key; });
    }
    /// The entry under `key`, or `end()`.
    [[nodiscard]] const_iterator find(const Key& key) const
    {
        return std::find_if(entries_.begin(), entries_.end(),
                            [&](const value_type& e) { return e.first == key; });
    }
    /// True when `key` has an entry.
    [[nodiscard]] bool contains(const Key& key) const { return find(key) != entries_.end(); }
    /// The value under `key`, or nullptr.
    [[nodiscard]] const Value* get(const Key& key) const
    {
        const auto it = find(key);
        return it == entries_.end() ? nullptr : &it->second;
    }
    /// The value under `key`, or nullptr; valid until the map next changes.
    [[nodiscard]] Value* get(const Key& key)
    {
        const auto it = find(key);
        return it == entries_.end() ? nullptr : &it->second;
    }

    /// Stores `value` under `key`: in place when the key exists, else at the end.
    Value& insertOrAssign(const Key& key, Value value)
    {
        if (auto it = find(key); it != entries_.end()) {
            it->second = std::move(value);
            return it->second;
        }
        entries_.emplace_back(key, std::move(value));
        return entries_.back().second;
    }
    /// The value under `key`, default-constructed at the end when missing.
    Value& operator[](const Key& key)
    {
        if (auto it = find(key); it != entries_.end()) {
            return it->second;
        }
        entries_.emplace_back(key, Value{});
        return entries_.back().second;
    }
    /// Removes `key`; returns whether it was there.
    bool erase(const Key& key)
    {
        const auto it = find(key);
        if (it == entries_.end()) {
            return false;
        }
        entries_.erase(it);
        return true;
    }

    [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); } ///< Number of entries.
    [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }      ///< True without entries.
    void clear() noexcept { entries_.clear(); }                                 ///< Removes every entry.
    /// The first entry (in insertion order).
    [[nodiscard]] iterator begin() noexcept { return entries_.begin(); }
    /// Past the last entry.
    [[nodiscard]] iterator end() noexcept { return entries_.end(); }
    /// The first entry (in insertion order).
    [[nodiscard]] const_iterator begin() const noexcept { return entries_.begin(); }
    /// Past the last entry.
    [[nodiscard]] const_iterator end() const noexcept { return entries_.end(); }

    /// Equal when both hold the same entries in the same order.
    friend bool operator==(const OrderedMap&, const OrderedMap&) = default;

  private:
    std::vector<value_type> entries_;
};

} // namespace psdkit
