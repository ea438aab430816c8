// SPDX-License-Identifier: MIT
#include "ModelText.h"

#include "TextEncoding.h"

#include <assimp/scene.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <limits>

namespace Velmora::Kvz {

ModelText::ModelText(QFile *file)
    : m_file(file->fileName())
{
    const QString suffix = QFileInfo(m_file).suffix().toLower();
    if (suffix == QLatin1String("ply")) {
        if (const uchar *bytes = file->map(0, file->size()))
            readPly(reinterpret_cast<const char *>(bytes), file->size());
        return;
    }
    if (suffix != QLatin1String("obj") && suffix != QLatin1String("off") && suffix != QLatin1String("x3d"))
        return;
    if (file->size() > std::numeric_limits<int>::max()) {
        m_problem = QStringLiteral("%1 files of 2 GiB and more are not read").arg(suffix.toUpper());
        return;
    }
    const uchar *bytes = file->map(0, file->size());
    const auto text = QByteArray::fromRawData(reinterpret_cast<const char *>(bytes), bytes ? int(file->size()) : 0);
    if (suffix == QLatin1String("obj"))
        m_obj.emplace(text);
    else if (suffix == QLatin1String("off"))
        m_off.emplace(text);
    else
        m_x3d.emplace(text, m_file);
}

void ModelText::readPly(const char *begin, qint64 size)
{
    constexpr qint64 longest = 1 << 24;
    const auto start = QByteArray::fromRawData(begin, int(std::min(size, longest)));
    m_ply = readPlyHeader(start);
    if (m_ply.size == 0)
        return;
    const PlyBody body(m_ply, begin + m_ply.size, begin + size);
    m_problem = body.problem();
    m_plyText = body.plainText(start.left(m_ply.size));
}

QString ModelText::problem() const
{
    return m_obj ? m_obj->problem() : m_off ? m_off->problem() : m_problem;
}

QByteArray ModelText::plainText() const
{
    return m_obj ? m_obj->plainText() : m_off ? m_off->plainText() : m_x3d ? m_x3d->plainText() : m_plyText;
}

QByteArray ModelText::plainCompanion(const QByteArray &text)
{
    return m_libraries.plainText(withoutByteOrderMark(text));
}

void ModelText::complete(const aiScene *scene)
{
    m_libraries.complete(scene);
    if (m_off && m_off->hasColours() && scene->mNumMeshes == 1)
        m_off->colourFaces(scene->mMeshes[0]);
}

QHash<QString, QStringList> ModelText::imagePlaces() const
{
    return m_x3d ? m_x3d->imagePlaces() : QHash<QString, QStringList>();
}

QStringList ModelText::warnings(const QStringList &missingFiles) const
{
    if (m_x3d)
        return m_x3d->warnings();
    QStringList lines;
    if (m_obj) {
        lines = m_obj->libraryWarnings(m_file, missingFiles);
        for (const QString &line :
            m_obj->materialWarnings(m_libraries, missingFiles) + m_libraries.warnings() + m_obj->warnings())
            lines.append(QStringLiteral("%1: %2").arg(m_file, line));
    }
    for (const PlyHeader::Element &element : m_ply.elements) {
        for (const PlyHeader::Property &property : element.properties) {
            if (element.name == "face" && property.name == "red")
                lines.append(QStringLiteral("%1: the colours of its faces are not read").arg(m_file));
        }
    }
    for (const QString &line : m_off ? m_off->warnings() : QStringList())
        lines.append(QStringLiteral("%1: %2").arg(m_file, line));
    return lines;
}

} // namespace Velmora::Kvz
