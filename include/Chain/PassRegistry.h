// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>

#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVariant>
#include <QtCore/QVector>

#include <memory>

namespace Velmora::Kvz {

struct ConfiguredPass;
struct PassInfo;

/// The pass classes that chains are made of, as data. Needs no OpenGL context.
class KVZ_HOST_EXPORT PassRegistry
{
public:
    /// The classes of libKvzRenderPasses and libKvzExtraPasses.
    static const PassRegistry &standard();

    /// An empty registry.
    PassRegistry();
    ~PassRegistry();
    PassRegistry(const PassRegistry &other);
    PassRegistry &operator=(const PassRegistry &other);

    /// Adds a class; one of the same name is replaced.
    void add(const PassInfo &info);
    /// The class of a name; null when it is unknown. Valid until the registry changes.
    const PassInfo *find(const QString &className) const;
    /// A pass of a class with options: the class with the ports that they add, the options converted, and what is wrong with
    /// them. Without `info` when the class is unknown. Relative file names start in `folder`, or in the working directory
    /// where it is empty.
    ConfiguredPass configure(
        const QString &className, const QVariantMap &options, const QString &folder = QString()) const;
    /// The `info` of that.
    std::shared_ptr<const PassInfo> describe(const QString &className, const QVariantMap &options) const;
    /// All classes, by name.
    QStringList classNames() const;

private:
    void insert(std::shared_ptr<const PassInfo> entry);

    QVector<std::shared_ptr<const PassInfo>> m_passes;
};

} // namespace Velmora::Kvz
