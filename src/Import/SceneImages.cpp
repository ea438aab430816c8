// SPDX-License-Identifier: MIT
#include "SceneImages.h"

#include "ImportBudget.h"

#include <QtCore/QBuffer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>

namespace Velmora::Kvz {

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

int SceneImages::known(const QString &name, ImportedImage::Use use)
{
    const int number = m_numbers.value(name, -1);
    if (number >= 0)
        m_scene->images[number].uses |= use;
    return number;
}

int SceneImages::add(const QString &name, const DecodedImage &decoded, ImportedImage::Use use, const QString &material)
{
    if (!decoded.remark.isEmpty()) {
        m_scene->warnings.append(QStringLiteral("%1: material \"%2\": texture \"%3\" %4%5")
                                     .arg(m_file, material, name, decoded.remark,
                                         decoded.image.isNull() ? QStringLiteral("; white is used") : QString()));
    }
    const int number = m_scene->images.size();
    m_scene->images.append({name, decoded.image, use});
    m_numbers.insert(name, number);
    return number;
}

DecodedImage SceneImages::decodeFile(const QString &path)
{
    m_budget->report(ImportProgress::Images, m_scene->images.size() + 1, 0);
    if (!m_budget->isTimeLeft())
        return {};
    const QString slashed = QString(path).replace(QLatin1Char('\\'), QLatin1Char('/'));
    const QString unescaped = QUrl::fromPercentEncoding(slashed.toUtf8());
    for (const QString &candidate : {slashed, unescaped, QFileInfo(slashed).fileName()}) {
        QFile file(m_directory.filePath(candidate));
        if (!QFileInfo(file).isFile())
            continue;
        if (!file.open(QIODevice::ReadOnly))
            return {QImage(), QStringLiteral("cannot be read (%1)").arg(file.errorString())};
        return decodeImage(&file, m_budget->imageSide());
    }
    return {QImage(), QStringLiteral("is not there")};
}

} // namespace Velmora::Kvz
