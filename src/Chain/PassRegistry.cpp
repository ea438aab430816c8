// SPDX-License-Identifier: MIT
#include <Chain/PassRegistry.h>

#include <Chain/PassInfo.h>
#include <Chain/PassOptions.h>
#include <Chain/registry/PassEntries.h>

#include <algorithm>

namespace Velmora::Kvz {

PassRegistry::PassRegistry() = default;
PassRegistry::~PassRegistry() = default;
PassRegistry::PassRegistry(const PassRegistry &other) = default;
PassRegistry &PassRegistry::operator=(const PassRegistry &other) = default;

const PassRegistry &PassRegistry::standard()
{
    static const PassRegistry registry = [] {
        PassRegistry passes;
        for (const auto &describe : PassEntries::all) {
            auto entry = std::make_shared<PassInfo>(describe());
            entry->keepsStateKnown = true;
            passes.insert(std::move(entry));
        }
        return passes;
    }();
    return registry;
}

void PassRegistry::add(const PassInfo &info)
{
    auto entry = std::make_shared<PassInfo>(info);
    entry->keepsStateKnown = false;
    insert(std::move(entry));
}

void PassRegistry::insert(std::shared_ptr<const PassInfo> entry)
{
    const auto position = std::lower_bound(m_passes.begin(), m_passes.end(), entry->className,
        [](const std::shared_ptr<const PassInfo> &pass, const QString &name) { return pass->className < name; });
    if (position != m_passes.end() && (*position)->className == entry->className)
        *position = std::move(entry);
    else
        m_passes.insert(position, std::move(entry));
}

const PassInfo *PassRegistry::find(const QString &className) const
{
    for (const auto &pass : m_passes) {
        if (pass->className == className)
            return pass.get();
    }
    return nullptr;
}

ConfiguredPass PassRegistry::configure(
    const QString &className, const QVariantMap &options, const QString &folder) const
{
    const auto pass = std::find_if(m_passes.begin(), m_passes.end(),
        [&](const std::shared_ptr<const PassInfo> &entry) { return entry->className == className; });
    return pass == m_passes.end() ? ConfiguredPass() : configurePass(*pass, options, folder);
}

std::shared_ptr<const PassInfo> PassRegistry::describe(const QString &className, const QVariantMap &options) const
{
    return configure(className, options).info;
}

QStringList PassRegistry::classNames() const
{
    QStringList names;
    for (const auto &pass : m_passes)
        names.append(pass->className);
    return names;
}

} // namespace Velmora::Kvz
