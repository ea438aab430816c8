// SPDX-License-Identifier: MIT
#include <Host/ChainLibrary.h>

#include <Host/PassRegistry.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>

// The resources of a library are not registered unless something in it asks for them.
static void registerChains()
{
    Q_INIT_RESOURCE(Chains);
}

namespace Velmora::Kvz {

namespace {

const QString folder = QStringLiteral(":/Media/Chains");
const QString suffix = QStringLiteral(".json");

bool fail(QString *error, const QString &text)
{
    *error = text;
    return false;
}

} // namespace

QStringList readyChainNames()
{
    registerChains();
    QStringList names;
    for (const QString &file : QDir(folder).entryList({QLatin1Char('*') + suffix}, QDir::Files, QDir::Name))
        names.append(file.left(file.size() - suffix.size()));
    return names;
}

bool loadChain(const QString &nameOrFile, ChainDescription *chain, QString *error)
{
    const QStringList ready = readyChainNames();
    const bool isPath = nameOrFile.endsWith(suffix) || nameOrFile.contains(QLatin1Char('/'));
    if (!isPath && !ready.contains(nameOrFile)) {
        return fail(
            error, QStringLiteral("no chain named \"%1\"; %2").arg(nameOrFile, nearestNamesHint(nameOrFile, ready)));
    }

    QFile file(isPath ? nameOrFile : folder + QLatin1Char('/') + nameOrFile + suffix);
    if (QFileInfo(file).isDir())
        return fail(error, QStringLiteral("%1: is a directory, not a chain file").arg(nameOrFile));
    if (!file.open(QIODevice::ReadOnly))
        return fail(error, QStringLiteral("%1: %2").arg(nameOrFile, file.errorString()));
    QString problem;
    if (!ChainDescription::fromJson(file.readAll(), chain, &problem))
        return fail(error, QStringLiteral("%1: %2").arg(nameOrFile, problem));
    return true;
}

bool saveChain(const ChainDescription &chain, const QString &file, QString *error)
{
    QSaveFile out(file);
    if (out.open(QIODevice::WriteOnly) && out.write(chain.toJson()) >= 0 && out.commit())
        return true;
    return fail(error, QStringLiteral("%1: %2").arg(file, out.errorString()));
}

} // namespace Velmora::Kvz
