// SPDX-License-Identifier: MIT
#include "ObjText.h"

#include "FileNames.h"

#include <QtCore/QFileInfo>

namespace Velmora::Kvz {

ObjText::ObjText(QFile *file)
{
    QByteArray line;
    while (!file->atEnd() && m_problem.isEmpty()) {
        line += file->readLine();
        ++m_line;
        const QByteArray text = line.simplified();
        if (text.endsWith('\\')) {
            line = text.chopped(1) + ' ';
            continue;
        }
        readLine(text);
        line.clear();
    }
    for (const Kind &kind : m_kinds) {
        if (m_problem.isEmpty() && kind.largest > kind.count)
            report(kind, kind.largestLine, kind.largest);
    }
}

void ObjText::readLine(const QByteArray &text)
{
    const QByteArray keyword = text.left(text.indexOf(' '));
    for (Kind &kind : m_kinds)
        kind.count += keyword == kind.keyword;
    if (keyword == "mtllib")
        m_libraries.append(QFile::decodeName(text.mid(keyword.size() + 1)));
    if (keyword != "f" || !text.contains('/'))
        return;
    // Corners have the forms 1, 1/2, 1//3 and 1/2/3.
    for (const QByteArray &corner : text.split(' ')) {
        const QList<QByteArray> parts = corner.split('/');
        for (int i = 1; i < parts.size() && i <= 2; ++i)
            readIndex(&m_kinds[i - 1], parts[i].toLongLong());
    }
}

void ObjText::readIndex(Kind *kind, qint64 index)
{
    if (-index > kind->count) // negative ones count back from the face
        report(*kind, m_line, index);
    if (index > kind->largest) {
        kind->largest = index;
        kind->largestLine = m_line;
    }
}

void ObjText::report(const Kind &kind, qint64 line, qint64 index)
{
    m_problem =
        QStringLiteral("line %1: a face has %2 %3, past the end of %4")
            .arg(QString::number(line), QLatin1String(kind.name), QString::number(index), QString::number(kind.count));
}

QStringList ObjText::libraryWarnings(const QString &file, const QStringList &missingFiles) const
{
    const QString ownName = QFileInfo(file).fileName().chopped(3) + QLatin1String("mtl");
    const QString standIn =
        missingFiles.contains(bareName(ownName)) ? QStringLiteral("grey") : QStringLiteral("\"%1\"").arg(ownName);
    QStringList warnings;
    for (const QString &library : m_libraries) {
        if (missingFiles.contains(bareName(library)))
            warnings.append(
                QStringLiteral("%1: material library \"%2\" cannot be opened; %3 is used").arg(file, library, standIn));
    }
    warnings.removeDuplicates();
    return warnings;
}

} // namespace Velmora::Kvz
