// SPDX-License-Identifier: MIT
#include "ObjText.h"

#include "FileNames.h"
#include "TextScan.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QTextCodec>

#include <algorithm>
#include <cstring>

namespace Velmora::Kvz {

namespace {

/// The lines that hold numbers, where a comment may follow.
bool holdsNumbers(const QByteArray &keyword)
{
    return keyword == "v" || keyword == "vt" || keyword == "vn" || keyword == "f" || keyword == "l" || keyword == "p"
        || keyword == "s";
}

/// One line, its continuations joined, as assimp reads it.
QByteArray plainLine(QByteArray line)
{
    line = line.simplified();
    const QByteArray keyword = line.left(line.indexOf(' '));
    if (!holdsNumbers(keyword))
        return line;
    const int comment = line.indexOf('#');
    if (comment >= 0)
        line = line.left(comment).trimmed();
    QByteArray plain;
    const QList<QByteArray> words = line.split(' ');
    for (const QByteArray &word : words) {
        if (!plain.isEmpty())
            plain += ' ';
        plain += word.startsWith('.') ? '0' + word : word;
    }
    if (keyword == "vt" && words.size() == 2)
        plain += " 0";
    return plain;
}

QByteArray plainObj(const QByteArray &text)
{
    QByteArray plain;
    plain.reserve(text.size() + text.size() / 8);
    QByteArray line;
    for (int begin = 0; begin < text.size();) {
        int end = text.indexOf('\n', begin);
        end = end < 0 ? text.size() : end;
        line += text.mid(begin, end - begin).trimmed();
        begin = end + 1;
        if (line.endsWith('\\')) {
            line.back() = ' ';
            continue;
        }
        plain += plainLine(line) + '\n';
        line.clear();
    }
    return plain + plainLine(line) + '\n';
}

/// Text as UTF-8 without a mark; unchanged where it has no mark.
QByteArray withoutByteOrderMark(const QByteArray &text)
{
    if (text.startsWith("\xef\xbb\xbf"))
        return text.mid(3);
    if (!text.startsWith("\xff\xfe") && !text.startsWith("\xfe\xff"))
        return text;
    return QTextCodec::codecForUtfText(text, QTextCodec::codecForName("UTF-8"))->toUnicode(text).toUtf8();
}

} // namespace

ObjText::ObjText(const QByteArray &text)
{
    const QByteArray marked = withoutByteOrderMark(text);
    m_isOdd = marked.size() != text.size();
    read(marked);
    for (const Kind &kind : m_kinds) {
        if (m_problem.isEmpty() && kind.largest > kind.count)
            report(kind, kind.largestLine, kind.largest);
    }
    if (m_isOdd && m_problem.isEmpty())
        m_plain = plainObj(marked);
}

void ObjText::read(const QByteArray &text)
{
    QByteArray joined;
    const char *const last = text.constData() + text.size();
    for (const char *begin = text.constData(); begin != last && m_problem.isEmpty();) {
        const auto *found = static_cast<const char *>(std::memchr(begin, '\n', size_t(last - begin)));
        const char *end = found ? found : last;
        const char *const next = found ? found + 1 : last;
        ++m_line;
        while (end != begin && isSpace(end[-1]))
            --end;
        const bool continues = end != begin && end[-1] == '\\';
        if (continues || !joined.isEmpty()) {
            joined += QByteArray(begin, int(end - begin) - continues) + ' ';
            if (!continues || next == last) {
                const QByteArray line = joined;
                joined.clear();
                readLine(line.constData(), line.constData() + line.size());
            }
        } else {
            readLine(begin, end);
        }
        begin = next;
    }
}

void ObjText::readLine(const char *begin, const char *end)
{
    const char *const keyword = skipSpaces(begin, end);
    m_isOdd |= keyword != begin && keyword != end;
    const char *const values = skipWord(keyword, end);
    const auto length = values - keyword;
    if (length == 1 && *keyword == 'f') {
        readFace(values, end);
    } else if (length == 1 && *keyword == 'v') {
        readNumbers(values, end, 3);
    } else if (length == 2 && keyword[0] == 'v') {
        for (Kind &kind : m_kinds)
            kind.count += keyword[1] == kind.keyword[1];
        readNumbers(values, end, 2);
    } else if (length == 6 && std::memcmp(keyword, "mtllib", 6) == 0) {
        const char *const name = skipSpaces(values, end);
        m_libraries.append(QFile::decodeName(QByteArray(name, int(end - name)).simplified()));
    }
}

/// Notes numbers that start with a point, comments and missing numbers.
void ObjText::readNumbers(const char *begin, const char *end, int fewest)
{
    int count = 0;
    for (const char *at = skipSpaces(begin, end); at != end; at = skipSpaces(skipWord(at, end), end)) {
        ++count;
        m_isOdd |= *at == '.' || *at == '#';
    }
    m_isOdd |= count < fewest;
}

/// Corners have the forms 1, 1/2, 1//3 and 1/2/3.
void ObjText::readFace(const char *begin, const char *end)
{
    for (const char *at = skipSpaces(begin, end); at != end && m_problem.isEmpty(); at = skipSpaces(at, end)) {
        if (*at == '#') {
            m_isOdd = true;
            return;
        }
        while (at != end && *at != '/' && !isSpace(*at)) // assimp tells of these itself
            ++at;
        for (int i = 0; i < 2 && at != end && *at == '/'; ++i) {
            ++at;
            if (at != end && *at != '/' && !isSpace(*at))
                readIndex(&m_kinds[i], readInteger(&at, end));
        }
        at = skipWord(at, end);
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
