// SPDX-License-Identifier: MIT
#include "ImportBudget.h"

#include "PlyHeader.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>

#include <algorithm>
#include <limits>

namespace Velmora::Kvz {

ImportLimits ImportLimits::forFileSize(qint64 bytes)
{
    const qint64 size = std::max<qint64>(bytes, 0);
    ImportLimits limits;
    limits.bytes = (qint64(1) << 30) + 8 * size; // text formats are read more than once, to recognize them
    limits.vertices = 8000000 + 2 * size; // no format says a vertex in less than half a byte
    limits.seconds = 60 + double(size) * 1e-6;
    limits.imageSide = 8192;
    return limits;
}

ImportBudget::ImportBudget(const ImportOptions &options, qint64 fileSize)
    : m_limits(options.limits),
      m_progress(options.progress)
{
    const ImportLimits standard = ImportLimits::forFileSize(fileSize);
    if (m_limits.bytes <= 0)
        m_limits.bytes = standard.bytes;
    if (m_limits.vertices <= 0)
        m_limits.vertices = standard.vertices;
    if (!(m_limits.seconds > 0))
        m_limits.seconds = standard.seconds;
    if (m_limits.imageSide <= 0)
        m_limits.imageSide = standard.imageSide;
    m_clock.start();
}

bool ImportBudget::takeBytes(qint64 count)
{
    m_bytes += count;
    return m_bytes <= m_limits.bytes
        || refuse(QStringLiteral("reading it takes more than the limit of %1 bytes").arg(m_limits.bytes));
}

bool ImportBudget::takeVertices(qint64 count)
{
    m_vertices += count;
    return m_vertices <= m_limits.vertices
        || refuse(QStringLiteral("it has more than the limit of %1 vertices").arg(m_limits.vertices));
}

bool ImportBudget::isTimeLeft()
{
    return double(m_clock.nsecsElapsed()) * 1e-9 <= m_limits.seconds
        || refuse(QStringLiteral("reading it takes more than the limit of %1 s").arg(m_limits.seconds));
}

void ImportBudget::report(ImportProgress::Step step, int done, int total) const
{
    if (m_progress)
        m_progress({step, done, total});
}

bool ImportBudget::refuse(const QString &problem)
{
    if (m_problem.isEmpty())
        m_problem = problem;
    return false;
}

namespace {

QString declares(qint64 count, const char *what, qint64 fileSize)
{
    return QStringLiteral("its header declares %1 %2, more than its %3 bytes can hold")
        .arg(QString::number(count), QLatin1String(what), QString::number(fileSize));
}

/// What stands before a character, or all of the text.
QByteArray before(const QByteArray &text, char end)
{
    const int length = text.indexOf(end);
    return length < 0 ? text : text.left(length);
}

QString exaggeratedOff(const QList<QByteArray> &lines, qint64 fileSize)
{
    // The counts follow the keyword, on its line or on the first one after it that is neither empty nor a comment.
    QList<QByteArray> words;
    for (QByteArray line : lines) {
        line = before(line, '#').simplified();
        if (line.isEmpty())
            continue;
        for (const QByteArray &word : line.split(' ')) {
            if (!word.endsWith("OFF"))
                words.append(word);
        }
        if (words.size() >= 2)
            break;
    }
    const qint64 vertices = countOf(words.value(0));
    const qint64 faces = countOf(words.value(1));
    if (vertices > fileSize)
        return declares(vertices, "vertices", fileSize);
    return faces > fileSize ? declares(faces, "faces", fileSize) : QString();
}

QString exaggeratedPly(const PlyHeader &header, qint64 fileSize)
{
    qint64 data = 0; // at least: lists may be empty
    for (const PlyHeader::Element &element : header.elements) {
        if (element.count > fileSize)
            return declares(element.count, "elements", fileSize);
        for (const PlyHeader::Property &property : element.properties)
            data += element.count * (property.isList() ? property.length.bytes : property.number.bytes);
    }
    if (header.size > 0 && header.format.startsWith("binary") && data > fileSize - header.size)
        return QStringLiteral("damaged or truncated: its header declares %1 bytes of data, and %2 are there")
            .arg(QString::number(data), QString::number(fileSize - header.size));
    return {};
}

} // namespace

QString exaggeratedHeader(const QByteArray &start, qint64 fileSize)
{
    const QList<QByteArray> lines = start.split('\n');
    const QByteArray first = lines.value(0).simplified();
    if (first == "ply")
        return exaggeratedPly(readPlyHeader(start), fileSize);
    return before(first, ' ').endsWith("OFF") ? exaggeratedOff(lines, fileSize) : QString();
}

} // namespace Velmora::Kvz
