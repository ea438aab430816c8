// SPDX-License-Identifier: MIT
#include "ModelText.h"

#include "TextEncoding.h"

#include <assimp/scene.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>

#include <algorithm>
#include <limits>

namespace Velmora::Kvz {

namespace {

/// A text of any encoding as UTF-8. What an XML document says of its encoding would not be true any more.
QByteArray utf8Of(const QByteArray &text)
{
    QByteArray result = withoutByteOrderMark(text);
    const int end = result.startsWith("<?xml") ? result.indexOf("?>") : -1;
    if (end > 0)
        result.replace(0, end, "<?xml version=\"1.0\"");
    return result;
}

} // namespace

ModelText::ModelText(QFile *file)
    : m_file(file->fileName())
{
    const QString suffix = QFileInfo(m_file).suffix().toLower();
    if (suffix == QLatin1String("ply")) {
        if (const uchar *bytes = file->map(0, file->size()))
            readPly(reinterpret_cast<const char *>(bytes), file->size());
        return;
    }
    if (suffix != QLatin1String("obj") && suffix != QLatin1String("off") && suffix != QLatin1String("x3d")
        && suffix != QLatin1String("dae") && suffix != QLatin1String("3ds") && suffix != QLatin1String("blend")) {
        readOther(file, suffix);
        return;
    }
    if (file->size() > std::numeric_limits<int>::max()) {
        if (suffix == QLatin1String("3ds") || suffix == QLatin1String("blend"))
            return;
        m_problem = QStringLiteral("%1 files of 2 GiB and more are not read").arg(suffix.toUpper());
        return;
    }
    const uchar *bytes = file->map(0, file->size());
    const auto text = QByteArray::fromRawData(reinterpret_cast<const char *>(bytes), bytes ? int(file->size()) : 0);
    if (suffix == QLatin1String("obj")) {
        m_obj.emplace(text);
        return;
    }
    if (suffix == QLatin1String("3ds")) {
        m_3ds.emplace(text);
        return;
    }
    if (suffix == QLatin1String("blend")) {
        m_blend.emplace(text);
        return;
    }
    if (isUtf16(text))
        m_text = utf8Of(text);
    if (suffix == QLatin1String("off"))
        m_off.emplace(m_text.isNull() ? text : m_text);
    else if (suffix == QLatin1String("dae"))
        m_dae.emplace(m_text.isNull() ? text : m_text);
    else
        m_x3d.emplace(m_text.isNull() ? text : m_text, m_file);
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
    const QByteArray header = withUsualColourNames(start.left(m_ply.size));
    m_text = body.plainText(header.isNull() ? start.left(m_ply.size) : header);
    if (!m_text.isNull() || header.isNull() || !m_problem.isEmpty())
        return;
    m_hasUnreadColours = size > std::numeric_limits<int>::max() / 2;
    if (!m_hasUnreadColours)
        m_text = header + QByteArray(begin + m_ply.size, int(size - m_ply.size));
}

/// Scenes of Irrlicht hold no triangles of their own, and assimp 5.2 takes few of their nodes.
void ModelText::readIrrlicht(const QString &text)
{
    static const QRegularExpression mesh(QStringLiteral("<string name=\"Mesh\" value=\"([^\"]+)\""));
    QStringList missing;
    for (QRegularExpressionMatchIterator found = mesh.globalMatch(text); found.hasNext();) {
        const QString name = found.next().captured(1);
        if (!QFileInfo(QFileInfo(m_file).dir(), name).isFile())
            missing.append(name);
    }
    missing.removeDuplicates();
    m_emptyReason = missing.isEmpty()
        ? QStringLiteral("the reader of Irrlicht scenes takes none of its nodes; convert it to glTF")
        : QStringLiteral("files that it names are not there: \"%1\"").arg(missing.join(QStringLiteral("\", \"")));
}

/// Text of UTF-16 as UTF-8, and STL whose words are in capitals.
void ModelText::readOther(QFile *file, const QString &suffix)
{
    const QByteArray start = file->seek(0) ? file->peek(5) : QByteArray();
    const bool isLoudStl = suffix == QLatin1String("stl") && start != "solid" && start.toLower() == "solid";
    const bool isIrrlicht = suffix == QLatin1String("irr");
    if ((!isUtf16(start) && !isLoudStl && !isIrrlicht) || file->size() > std::numeric_limits<int>::max() / 4)
        return;
    m_text = utf8Of(file->readAll());
    if (isLoudStl)
        m_text = m_text.toLower();
    if (isIrrlicht)
        readIrrlicht(QString::fromUtf8(m_text));
}

QString ModelText::problem() const
{
    return m_obj ? m_obj->problem() : m_off ? m_off->problem() : m_x3d ? m_x3d->problem() : m_problem;
}

QByteArray ModelText::plainText() const
{
    const QByteArray plain = m_obj ? m_obj->plainText()
        : m_off                    ? m_off->plainText()
        : m_x3d                    ? m_x3d->plainText()
        : m_dae                    ? m_dae->plainText()
        : m_blend                  ? m_blend->plainContent()
                                   : QByteArray();
    return plain.isNull() ? m_text : plain;
}

QString ModelText::emptyReason() const
{
    return m_x3d ? m_x3d->undrawn().join(QStringLiteral("; ")) : m_emptyReason;
}

QByteArray ModelText::plainCompanion(const QByteArray &text, const QString &name)
{
    return m_libraries.plainText(withoutByteOrderMark(text), name);
}

void ModelText::complete(aiScene *scene)
{
    m_libraries.complete(scene);
    if (m_obj)
        m_obj->complete(scene);
    if (m_3ds)
        m_3ds->complete(scene);
    if (m_blend)
        m_blend->complete(scene);
    if (m_off && scene->mNumMeshes == 1)
        m_off->complete(scene->mMeshes[0]);
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
    if (m_hasUnreadColours)
        lines.append(
            QStringLiteral("%1: the colours of its vertices are not read: it is too large for diffuse_red to be "
                           "renamed to red")
                .arg(m_file));
    for (const QString &line : m_off ? m_off->warnings()
            : m_dae                  ? m_dae->warnings()
            : m_blend                ? m_blend->warnings()
                                     : QStringList())
        lines.append(QStringLiteral("%1: %2").arg(m_file, line));
    return lines;
}

} // namespace Velmora::Kvz
