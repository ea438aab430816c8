// SPDX-License-Identifier: MIT
#include "PlyBody.h"

#include "TextScan.h"

#include <QtCore/QList>
#include <QtCore/QtEndian>

#include <algorithm>
#include <cstring>
#include <limits>

namespace Velmora::Kvz {

namespace {

bool isStrips(const PlyHeader::Element &element)
{
    return element.name == "tristrips";
}

/// Whether a line of text, without the spaces that it starts with, is neither empty nor a comment.
bool isRecord(const char *begin, const char *end)
{
    return begin != end && (end - begin < 8 || std::memcmp(begin, "comment ", 8) != 0);
}

bool holdsCorners(const PlyHeader::Property &property)
{
    return property.isList() && (property.name == "vertex_indices" || property.name == "vertex_index");
}

} // namespace

PlyBody::PlyBody(const PlyHeader &header, const char *begin, const char *end)
    : m_isAscii(header.format == "ascii"),
      m_isBig(header.format == "binary_big_endian"),
      m_begin(begin),
      m_at(begin),
      m_end(end)
{
    for (const PlyHeader::Element &element : header.elements) {
        if (isStrips(element))
            m_stripsBegin = m_at;
        if (!(m_isAscii ? readAscii(element) : readBinary(element)))
            break;
        if (isStrips(element))
            m_stripsEnd = m_at;
    }
    constexpr int most = std::numeric_limits<int>::max() / 2;
    if (m_problem.isEmpty() && (m_stripsEnd || m_hasOtherLines) && end - begin > most - m_faces.size())
        m_problem = QStringLiteral(
            "it is too large to be mended: it has triangle strips, empty lines or comments between its data");
}

/// Each record has a line. False at the end of the text.
bool PlyBody::readAscii(const PlyHeader::Element &element)
{
    for (qint64 record = 0; record < element.count;) {
        if (m_at == m_end)
            return false;
        const auto *found = static_cast<const char *>(std::memchr(m_at, '\n', size_t(m_end - m_at)));
        const char *const end = found ? found : m_end;
        m_at = skipSpaces(m_at, end);
        if (isRecord(m_at, end)) {
            if (!readLine(element, record++, end))
                return false;
        } else {
            m_hasOtherLines = true;
        }
        m_at = found ? found + 1 : m_end;
    }
    return true;
}

bool PlyBody::readLine(const PlyHeader::Element &element, qint64 record, const char *end)
{
    QVector<qint64> strip;
    for (const PlyHeader::Property &property : element.properties) {
        m_at = skipSpaces(m_at, end);
        if (!property.isList()) {
            m_at = skipWord(m_at, end);
            continue;
        }
        const qint64 items = readInteger(&m_at, end);
        m_at = skipWord(m_at, end);
        if (!holds(element, record, items, (end - m_at) / 2, "its line"))
            return false;
        const bool isKept = isStrips(element) && holdsCorners(property);
        for (qint64 i = 0; i < items; ++i) {
            m_at = skipSpaces(m_at, end);
            if (isKept)
                strip.append(readInteger(&m_at, end));
            m_at = skipWord(m_at, end);
        }
    }
    addStrip(strip);
    return true;
}

bool PlyBody::readBinary(const PlyHeader::Element &element)
{
    qint64 stride = 0;
    bool hasLists = false;
    for (const PlyHeader::Property &property : element.properties) {
        if (property.number.bytes == 0)
            return false; // the loader tells of it
        hasLists |= property.isList();
        stride += property.number.bytes;
    }
    if (!hasLists) {
        const bool isThere = stride == 0 || element.count <= (m_end - m_at) / stride;
        m_at += isThere ? stride * element.count : 0;
        return isThere;
    }
    for (qint64 record = 0; record < element.count; ++record) {
        if (!readRecord(element, record))
            return false;
    }
    return true;
}

bool PlyBody::readRecord(const PlyHeader::Element &element, qint64 record)
{
    QVector<qint64> strip;
    for (const PlyHeader::Property &property : element.properties) {
        const PlyHeader::Number &first = property.isList() ? property.length : property.number;
        if (m_end - m_at < first.bytes)
            return false;
        const char *const length = m_at;
        m_at += first.bytes;
        if (!property.isList())
            continue;
        const qint64 items = integerAt(length, property.length);
        const int bytes = property.number.bytes;
        if (!holds(element, record, items, (m_end - m_at) / bytes, "the rest of the file"))
            return false;
        for (qint64 i = 0; isStrips(element) && holdsCorners(property) && i < items; ++i)
            strip.append(integerAt(m_at + i * bytes, property.number));
        m_at += items * bytes;
    }
    addStrip(strip);
    return true;
}

bool PlyBody::holds(const PlyHeader::Element &element, qint64 record, qint64 items, qint64 most, const char *where)
{
    if (items >= 0 && items <= most)
        return true;
    m_problem =
        QStringLiteral("damaged or truncated: element \"%1\" number %2 declares a list of %3 items, and %4 holds "
                       "%5 at most")
            .arg(QString::fromUtf8(element.name), QString::number(record), QString::number(items), QLatin1String(where),
                QString::number(most));
    return false;
}

/// Real numbers, which no program writes here, count as 0.
qint64 PlyBody::integerAt(const char *at, const PlyHeader::Number &number) const
{
    if (number.kind == PlyHeader::Real)
        return 0;
    quint64 bits = 0;
    for (int i = 0; i < number.bytes; ++i)
        bits |= quint64(quint8(at[m_isBig ? number.bytes - 1 - i : i])) << 8 * i;
    const int unused = 64 - 8 * number.bytes;
    return number.kind == PlyHeader::Integer ? qint64(bits << unused) >> unused : qint64(bits);
}

/// Each corner after the second makes a triangle with the two before it, every other one turned; a negative one begins anew.
void PlyBody::addStrip(const QVector<qint64> &strip)
{
    int begin = 0;
    for (int i = 0; i < strip.size(); ++i) {
        if (strip[i] < 0) {
            begin = i + 1;
            continue;
        }
        const int turn = (i - begin) % 2;
        if (i >= begin + 2)
            addTriangle(strip[i - 2 + turn], strip[i - 1 - turn], strip[i]);
    }
}

void PlyBody::addTriangle(qint64 a, qint64 b, qint64 c)
{
    if (a == b || b == c || a == c || m_faces.size() > std::numeric_limits<int>::max() / 2)
        return;
    ++m_faceCount;
    m_faces += m_isAscii ? "3" : "\x03";
    for (const qint64 corner : {a, b, c}) {
        if (m_isAscii) {
            m_faces += ' ' + QByteArray::number(corner);
            continue;
        }
        char bytes[4];
        if (m_isBig)
            qToBigEndian(quint32(corner), bytes);
        else
            qToLittleEndian(quint32(corner), bytes);
        m_faces.append(bytes, 4);
    }
    if (m_isAscii)
        m_faces += '\n';
}

QByteArray PlyBody::plainText(const QByteArray &headerText) const
{
    if ((!m_stripsEnd && !m_hasOtherLines) || !m_problem.isEmpty())
        return {};
    QByteArray text;
    bool isInStrips = false;
    for (const QByteArray &line : headerText.split('\n')) {
        const QList<QByteArray> words = line.simplified().split(' ');
        if (words[0] == "element") {
            isInStrips = m_stripsEnd && words.value(1) == "tristrips";
            if (isInStrips)
                text +=
                    "element face " + QByteArray::number(m_faceCount) + "\nproperty list uchar int vertex_indices\n";
        }
        if (!words[0].isEmpty() && !(isInStrips && (words[0] == "element" || words[0] == "property")))
            text += line + '\n';
    }
    appendBody(m_begin, m_stripsEnd ? m_stripsBegin : m_end, &text);
    if (m_stripsEnd) {
        text += m_faces;
        appendBody(m_stripsEnd, m_end, &text);
    }
    return text;
}

void PlyBody::appendBody(const char *begin, const char *end, QByteArray *text) const
{
    if (!m_hasOtherLines) {
        text->append(begin, int(end - begin));
        return;
    }
    for (const char *next = begin; begin != end; begin = next) {
        const auto *found = static_cast<const char *>(std::memchr(begin, '\n', size_t(end - begin)));
        next = found ? found + 1 : end;
        begin = skipSpaces(begin, next);
        if (isRecord(begin, found ? found : end))
            text->append(begin, int(next - begin));
    }
}

} // namespace Velmora::Kvz
