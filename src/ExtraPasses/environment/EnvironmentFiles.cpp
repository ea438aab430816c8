// SPDX-License-Identifier: MIT
#include "EnvironmentFiles.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>
#include <QtCore/QStandardPaths>

namespace Velmora::Kvz {

namespace {

/// To be raised when filtering gives other results.
constexpr int cacheVersion = 1;
constexpr qint64 mostBytes = qint64(1) << 30;

const QString whiteName = QStringLiteral("white");

QString builtInFile(const QString &name)
{
    return QStringLiteral(":/Media/Lights/%1.exr").arg(name);
}

QString cacheFile(const QByteArray &content)
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation);
    if (folder.isEmpty())
        return {};
    const QByteArray key = QCryptographicHash::hash(content, QCryptographicHash::Sha1).toHex();
    return QStringLiteral("%1/kvz/environments/%2-%3.exr").arg(folder, QString::fromLatin1(key)).arg(cacheVersion);
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Written beside its place and renamed, so that no other process sees a part of it.
void keep(const QString &path, const QByteArray &content)
{
    if (path.isEmpty() || content.isEmpty() || !QDir().mkpath(QFileInfo(path).path()))
        return;
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(content) == content.size())
        file.commit();
}

} // namespace

QStringList builtInEnvironments()
{
    return {QStringLiteral("daylight"), QStringLiteral("studio"), whiteName};
}

FilteredEnvironment loadEnvironment(const QString &nameOrFile, QString *problem)
{
    if (nameOrFile == whiteName)
        return whiteEnvironment();
    if (builtInEnvironments().contains(nameOrFile))
        return readFiltered(contentOf(builtInFile(nameOrFile)));
    const auto refuse = [&](const QString &reason) {
        *problem = reason;
        return FilteredEnvironment();
    };
    QFile file(nameOrFile);
    if (!QFileInfo(nameOrFile).isFile()) {
        return refuse(QStringLiteral("there is no such file, and the environments built in are %1")
                          .arg(builtInEnvironments().join(QStringLiteral(", "))));
    }
    if (!file.open(QIODevice::ReadOnly))
        return refuse(file.errorString());
    if (file.size() > mostBytes)
        return refuse(QStringLiteral("it is larger than %1 MiB").arg(mostBytes >> 20));
    const QByteArray content = file.readAll();
    const QString kept = cacheFile(content);
    FilteredEnvironment environment = readFiltered(contentOf(kept));
    if (!environment.isNull())
        return environment;
    QString reason;
    const RadianceImage image = decodeRadiance(content, &reason);
    if (image.isNull())
        return refuse(reason);
    // As it is read the next time, so that pictures are the same.
    const QByteArray result = written(filtered(image));
    keep(kept, result);
    return readFiltered(result);
}

RadianceImage loadEnvironmentImage(const QString &nameOrFile)
{
    QString problem;
    return builtInEnvironments().contains(nameOrFile) ? RadianceImage()
                                                      : decodeRadiance(contentOf(nameOrFile), &problem);
}

} // namespace Velmora::Kvz
