// SPDX-License-Identifier: MIT
#include "SceneImages.h"

#include "ImportBudget.h"

#include <QtCore/QBuffer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QStringList>
#include <QtCore/QUrl>

namespace Velmora::Kvz {

namespace {

/// The files below a directory whose relative path is this one, but for upper and lower case.
QStringList filesInAnyCase(const QDir &directory, const QString &path)
{
    if (QDir::isAbsolutePath(path))
        return {};
    QStringList found{QString()};
    const QStringList parts = path.split(QLatin1Char('/'));
    for (int i = 0; i < parts.size(); ++i) {
        QStringList next;
        for (const QString &folder : qAsConst(found)) {
            if (parts[i].isEmpty() || parts[i] == QLatin1String(".") || parts[i] == QLatin1String("..")) {
                next.append(folder + parts[i] + QLatin1Char('/'));
                continue;
            }
            const bool isLast = i + 1 == parts.size();
            const QStringList entries =
                QDir(directory.filePath(folder))
                    .entryList(isLast ? QDir::Files : QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
            for (const QString &entry : entries) {
                if (entry.compare(parts[i], Qt::CaseInsensitive) == 0)
                    next.append(folder + entry + (isLast ? QString() : QStringLiteral("/")));
            }
        }
        found = next;
    }
    return found;
}

} // namespace

SceneImages::SceneImages(const QString &file, ImportBudget *budget, ImportedScene *scene)
    : m_file(file),
      m_directory(QFileInfo(file).absoluteDir()),
      m_budget(budget),
      m_scene(scene)
{ }

int SceneImages::fromPath(const QString &path, ImportedImage::Use use, const QString &material)
{
    const int number = known(path, use);
    return number >= 0 ? number : add(path, decodeFile(path), use, material);
}

int SceneImages::fromBytes(
    const QString &name, const QByteArray &bytes, ImportedImage::Use use, const QString &material)
{
    const int number = known(name, use);
    if (number >= 0)
        return number;
    DecodedImage decoded;
    m_budget->report(ImportProgress::Images, m_scene->images.size() + 1, 0);
    if (m_budget->isTimeLeft()) {
        QByteArray copy = bytes;
        QBuffer buffer(&copy);
        buffer.open(QIODevice::ReadOnly);
        decoded = decodeImage(&buffer, m_budget->imageSide());
        if (decoded.image.isNull())
            decoded.remark = QStringLiteral("in the file ") + decoded.remark;
    }
    return add(name, decoded, use, material);
}

int SceneImages::fromPixels(const QString &name, const QImage &pixels, ImportedImage::Use use)
{
    const int number = known(name, use);
    return number >= 0 ? number : add(name, {pixels, QString()}, use, QString());
}

int SceneImages::missing(const QString &name, const QString &reason, ImportedImage::Use use, const QString &material)
{
    const int number = known(name, use);
    return number >= 0 ? number : add(name, {QImage(), reason}, use, material);
}

void SceneImages::warn(const QString &name, const QString &text, const QString &material)
{
    const QString names = m_places.value(name, {name}).join(QStringLiteral("\", \""));
    m_scene->warnings.append(
        QStringLiteral("%1: material \"%2\": texture \"%3\" %4").arg(m_file, material, names, text));
}

int SceneImages::known(const QString &name, ImportedImage::Use use)
{
    const int number = m_numbers.value(name, -1);
    if (number >= 0)
        m_scene->images[number].uses |= use;
    return number;
}

int SceneImages::add(const QString &name, const DecodedImage &decoded, ImportedImage::Use use, const QString &material)
{
    if (!decoded.remark.isEmpty())
        warn(name, decoded.remark + (decoded.image.isNull() ? QStringLiteral("; ") + m_standIn : QString()), material);
    const int number = m_scene->images.size();
    m_scene->images.append({m_places.value(name, {name}).first(), decoded.image, use});
    m_numbers.insert(name, number);
    return number;
}

DecodedImage SceneImages::decodeFile(const QString &path)
{
    m_budget->report(ImportProgress::Images, m_scene->images.size() + 1, 0);
    if (!m_budget->isTimeLeft())
        return {};
    DecodedImage result{QImage(), QStringLiteral("is not there")};
    for (const QString &name : m_places.value(path, {path})) {
        QString remark;
        QFile file(fileOf(name, &remark));
        if (file.fileName().isEmpty()) {
            if (!remark.isEmpty())
                result.remark = remark;
            continue;
        }
        if (file.open(QIODevice::ReadOnly))
            result = decodeImage(&file, m_budget->imageSide());
        else
            result.remark = QStringLiteral("cannot be read (%1)").arg(file.errorString());
        if (!result.image.isNull())
            break;
    }
    return result;
}

/// The file that a path means; empty, at times with a remark, where there is none.
QString SceneImages::fileOf(const QString &path, QString *remark) const
{
    const QString slashed = QString(path).replace(QLatin1Char('\\'), QLatin1Char('/'));
    const QString unescaped = QUrl::fromPercentEncoding(slashed.toUtf8());
    const QStringList candidates{slashed, unescaped, QFileInfo(slashed).fileName(), QFileInfo(unescaped).fileName()};
    for (const QString &candidate : candidates) {
        if (QFileInfo(m_directory.filePath(candidate)).isFile())
            return m_directory.filePath(candidate);
    }
    // Made where upper and lower case are the same.
    for (const QString &candidate : candidates) {
        const QStringList matches = filesInAnyCase(m_directory, candidate);
        if (matches.size() == 1)
            return m_directory.filePath(matches.first());
        if (matches.size() > 1) {
            *remark = QStringLiteral("is not there, and %1 differ from it by upper and lower case alone")
                          .arg(QStringLiteral("\"%1\"").arg(matches.join(QStringLiteral("\", \""))));
            return {};
        }
    }
    return {};
}

} // namespace Velmora::Kvz
