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

template <typename Key, typename Value>
class OrderedMap {
public:
    using value_type = std::pair<Key, Value>;
    using iterator = typename std::vector<value_type>::iterator;
    using const_iterator = typename std::vector<value_type>::const_iterator;

    OrderedMap() = default;
    OrderedMap(std::initializer_list<value_type> entries)
    {
        for (const auto& e : entries) {
            insertOrAssign(e.first, e.second);
        }
    }

    [[nodiscard]] iterator find(const Key& key)
    {
        return std::find_if(entries_.begin(), entries_.end(), [&](const value_type& e) { return e.first == key; });
    }
    [[nodiscard]] const_iterator find(const Key& key) const
    {
        return std::find_if(entries_.begin(), entries_.end(), [&](const value_type& e) { return e.first == key; });
    }
    [[nodiscard]] bool contains(const Key& key) const { return find(key) != entries_.end(); }
    /// The value under `key`, or nullptr.
    [[nodiscard]] const Value* get(const Key& key) const
    {
        const auto it = find(key);
        return it == entries_.end() ? nullptr : &it->second;
    }
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

    [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }
    [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }
    void clear() noexcept { entries_.clear(); }
    [[nodiscard]] iterator begin() noexcept { return entries_.begin(); }
    [[nodiscard]] iterator end() noexcept { return entries_.end(); }
    [[nodiscard]] const_iterator begin() const noexcept { return entries_.begin(); }
    [[nodiscard]] const_iterator end() const noexcept { return entries_.end(); }

    /// Equal when both hold the same entries in the same order.
    friend bool operator==(const OrderedMap&, const OrderedMap&) = default;

private:
    std::vector<value_type> entries_;
};

} // namespace psdkit
