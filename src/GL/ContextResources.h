// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <mutex>
#include <vector>

namespace Velmora::Kvz {

/// What a context or a share group holds for the classes of this library: one object of each type, created when it is
/// first asked for. The types are known to those who ask only, so that contexts depend on no class above them.
///
/// The objects are deleted in the reverse order of their creation. A GL object among them deletes its name if a context
/// that knows it is current then, and drops the name otherwise.
class ContextResources
{
public:
    ContextResources() = default;
    ~ContextResources() { clear(); }
    ContextResources(const ContextResources &) = delete;
    ContextResources &operator=(const ContextResources &) = delete;

    /// The object of a type, created now if there is none yet.
    template <typename T> T &get()
    {
        if (T *const found = find<T>())
            return *found;
        return *static_cast<T *>(add(keyOf<T>(), std::make_shared<T>()));
    }

    /// The object of a type, or null.
    template <typename T> T *find() const { return static_cast<T *>(find(keyOf<T>())); }

    /// Deletes the object of a type, if there is one.
    template <typename T> void release() { remove(keyOf<T>()); }

    /// Deletes all objects.
    void clear();

private:
    struct Entry
    {
        const void *key;
        std::shared_ptr<void> object; ///< Deletes it as the type that it is.
    };

    /// An address for each type.
    template <typename T> static const void *keyOf()
    {
        static char key;
        return &key;
    }

    /// The object that then has the key: that of another thread if it came first.
    void *add(const void *key, const std::shared_ptr<void> &object);
    void *find(const void *key) const;
    void remove(const void *key);

    mutable std::mutex m_mutex; ///< Contexts of one group may be current in several threads.
    std::vector<Entry> m_entries;
};

} // namespace Velmora::Kvz
