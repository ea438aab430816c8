// SPDX-License-Identifier: MIT
#include "ContextResources.h"

#include <algorithm>

namespace Velmora::Kvz {

void *ContextResources::add(const void *key, const std::shared_ptr<void> &object)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const Entry &entry : m_entries) {
        if (entry.key == key)
            return entry.object.get();
    }
    m_entries.push_back({key, object});
    return object.get();
}

void *ContextResources::find(const void *key) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const Entry &entry : m_entries) {
        if (entry.key == key)
            return entry.object.get();
    }
    return nullptr;
}

void ContextResources::remove(const void *key)
{
    // Destroyed last, after the lock is released: its destructor may come back here.
    std::shared_ptr<void> object;
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto entry =
        std::find_if(m_entries.begin(), m_entries.end(), [key](const Entry &other) { return other.key == key; });
    if (entry == m_entries.end())
        return;
    object = std::move(entry->object);
    m_entries.erase(entry);
}

void ContextResources::clear()
{
    for (;;) {
        std::shared_ptr<void> latest;
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_entries.empty())
            return;
        latest = std::move(m_entries.back().object);
        m_entries.pop_back();
    }
}

} // namespace Velmora::Kvz
