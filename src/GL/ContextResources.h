// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <typeindex>
#include <utility>
#include <vector>

namespace Velmora::Kvz {

/// What a context or a share group keeps for the classes of this library: one object of each type, made when it is first
/// asked for. So each class says for itself what it needs of its context.
///
/// The objects are deleted in the reverse order of their making. A GL object among them deletes its name if its context, or
/// one that shares objects with it, is current then, and drops it otherwise.
class ContextResources
{
public:
    ContextResources() = default;
    ~ContextResources() { clear(); }
    ContextResources(const ContextResources &) = delete;
    ContextResources &operator=(const ContextResources &) = delete;

    /// The object of a type, made now if there is none yet.
    template <typename T> T &get()
    {
        if (T *const found = find<T>())
            return *found;
        const auto made = std::make_shared<T>();
        m_entries.push_back({std::type_index(typeid(T)), made});
        return *made;
    }

    /// The object of a type, or null.
    template <typename T> T *find() const
    {
        for (const Entry &entry : m_entries) {
            if (entry.type == std::type_index(typeid(T)))
                return static_cast<T *>(entry.object.get());
        }
        return nullptr;
    }

    /// Deletes the object of a type, if there is one.
    template <typename T> void release()
    {
        for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry) {
            if (entry->type == std::type_index(typeid(T))) {
                remove(entry);
                return;
            }
        }
    }

    /// Deletes all objects.
    void clear()
    {
        while (!m_entries.empty())
            remove(m_entries.end() - 1);
    }

private:
    struct Entry
    {
        std::type_index type;
        std::shared_ptr<void> object; ///< Deletes it as the type that it is.
    };

    /// The object leaves the list first: its destructor may come back here.
    void remove(std::vector<Entry>::iterator entry)
    {
        const std::shared_ptr<void> object = std::move(entry->object);
        m_entries.erase(entry);
    }

    std::vector<Entry> m_entries;
};

} // namespace Velmora::Kvz
