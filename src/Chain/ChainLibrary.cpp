// SPDX-License-Identifier: MIT
#include <Chain/ChainLibrary.h>

#include <Chain/NearestNames.h>
#include <Chain/PassInfo.h>
#include <Chain/PassRegistry.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>

// The resources of a library are not registered unless something in it asks for them.
static void registerChains()
{
    Q_INIT_RESOURCE(Chains);
    Q_INIT_RESOURCE(Environments);
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
        if (QFileInfo::exists(nameOrFile))
            return fail(
                error, QStringLiteral("no chain named \"%1\"; the file of this name is \"./%1\"").arg(nameOrFile));
        return fail(error,
            QStringLiteral("no chain named \"%1\"%2")
                .arg(nameOrFile, nearestNamesHint(nameOrFile, ready, QStringLiteral("see kvz chains"))));
    }

    QFile file(isPath ? nameOrFile : folder + QLatin1Char('/') + nameOrFile + suffix);
    if (QFileInfo(file).isDir())
        return fail(error, QStringLiteral("%1: is a directory, not a chain file").arg(nameOrFile));
    if (!file.open(QIODevice::ReadOnly))
        return fail(error, QStringLiteral("%1: %2").arg(nameOrFile, file.errorString()));
    QString problem;
    if (!ChainDescription::fromJson(file.readAll(), chain, &problem))
        return fail(error, QStringLiteral("%1: %2").arg(nameOrFile, problem));
    chain->folder = QFileInfo(file).absolutePath();
    return true;
}

ChainDescription movedToFolder(ChainDescription chain, const QString &folder, const PassRegistry &registry)
{
    const QDir from(chain.folder);
    const QDir to(folder);
    const auto moved = [&](const QString &name) {
        const QString path = QDir::cleanPath(from.absoluteFilePath(name));
        // There is no way from a folder on disk into the resources of a program.
        return path.startsWith(QLatin1Char(':')) ? path : to.relativeFilePath(path);
    };
    for (ChainPass &pass : chain.passes) {
        const PassInfo *info = registry.find(pass.className);
        for (auto it = pass.options.begin(); it != pass.options.end(); ++it) {
            const int option = info ? info->findOption(it.key()) : -1;
            const QString name = it->toString();
            if (option < 0 || info->options[option].type != ValueType::ShaderFile || isShaderText(name)
                || !QDir::isRelativePath(name))
                continue;
            *it = moved(name);
        }
        for (auto it = pass.values.begin(); it != pass.values.end(); ++it) {
            const int input = info ? info->findInput(it.key()) : -1;
            const QString name = it->toString();
            if (input >= 0 && info->inputs[input].namesFile(name) && QDir::isRelativePath(name))
                *it = moved(name);
        }
    }
    chain.folder = to.absolutePath();
    return chain;
}

bool saveChain(const ChainDescription &chain, const QString &file, QString *error, const PassRegistry &registry)
{
    const QByteArray json = movedToFolder(chain, QFileInfo(file).absolutePath(), registry).toJson();
    QSaveFile out(file);
    if (out.open(QIODevice::WriteOnly) && out.write(json) >= 0 && out.commit())
        return true;
    return fail(error, QStringLiteral("%1: %2").arg(file, out.errorString()));
}

} // namespace Velmora::Kvz
