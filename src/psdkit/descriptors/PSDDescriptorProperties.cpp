#include "psdkit/descriptors/PSDDescriptorProperties.hpp"

namespace psdkit {

const PSDDescriptorPropertyValue* PSDDescriptorProperties::find(const UnifiedStringValue& key) const
{
    const auto it = index_.find(key);
    return it == index_.end() ? nullptr : &entries_[it->second].second;
}

PSDDescriptorPropertyValue* PSDDescriptorProperties::find(const UnifiedStringValue& key)
{
    const auto it = index_.find(key);
    return it == index_.end() ? nullptr : &entries_[it->second].second;
}

void PSDDescriptorProperties::set(const UnifiedStringValue& key, PSDDescriptorPropertyValue value)
{
    if (const auto it = index_.find(key); it != index_.end()) {
        entries_[it->second].second = std::move(value);
        return;
    }
    entries_.emplace_back(key, std::move(value));
    try {
        index_.emplace(key, entries_.size() - 1);
    } catch (...) {
        entries_.pop_back();
        throw;
    }
}

bool PSDDescriptorProperties::erase(const UnifiedStringValue& key)
{
    const auto it = index_.find(key);
    if (it == index_.end()) {
        return false;
    }
    const std::size_t position = it->second;
    index_.erase(it);
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(position));
    for (auto& [unused, at] : index_) {
        if (at > position) {
            --at;
        }
    }
    return true;
}

void PSDDescriptorProperties::clear() noexcept
{
    entries_.clear();
    index_.clear();
}

} // namespace psdkit
