// SPDX-License-Identifier: MIT
#include "ObjText.h"

#include "FileNames.h"
#include "MtlText.h"
#include "TextEncoding.h"
#include "TextScan.h"

#include <assimp/scene.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QLocale>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Velmora::Kvz {

namespace {

/// The lines that hold numbers, where a comment may follow.
bool holdsNumbers(const QByteArray &keyword)
{
    return keyword == "v" || keyword == "vt" || keyword == "vn" || keyword == "f" || keyword == "l" || keyword == "p"
        || keyword == "s";
}

/// The files that a line with material libraries names. Names may have spaces: one ends where the suffix does.
QList<QByteArray> libraryNames(const QByteArray &names)
{
    QList<QByteArray> result;
    QByteArray name;
    for (const QByteArray &word : names.simplified().split(' ')) {
        name += name.isEmpty() ? word : ' ' + word;
        if (word.toLower().endsWith(".mtl")) {
            result.append(name);
            name.clear();
        }
    }
    if (!name.isEmpty())
        result.append(name);
    return result;
}

/// How a text is to be rewritten.
struct Rewriting
{
    bool completesColours = false; ///< Vertices without colours become white.
    bool dropsAttributes = false; ///< Nothing but vertices is of use.
    bool packsAlpha = false; ///< Assimp reads no alpha: red takes it along.
};

constexpr int alphaSteps = 255;

/// Red, which is at most 2, and alpha in one number: four times the alpha's step, and red and 1 beyond. The gaps are there
/// for what is lost as text.
QByteArray packed(const QByteArray &red, float alpha)
{
    const int step = int(std::lround(qBound(0.0f, alpha, 1.0f) * alphaSteps));
    return QByteArray::number(4 * step + 1 + qBound(0.0, red.toDouble(), 2.0), 'f', 5);
}

void unpack(aiColor4D *colour)
{
    const float step = std::floor(colour->r / 4);
    colour->r = std::max(colour->r - 4 * step - 1, 0.0f);
    colour->a = step / alphaSteps;
}

/// One line, its continuations joined, as assimp reads it.
QByteArray plainLine(QByteArray line, const Rewriting &how)
{
    line = line.simplified();
    const QByteArray keyword = line.left(line.indexOf(' '));
    if (keyword == "mtllib") {
        QByteArray lines;
        for (const QByteArray &name : libraryNames(line.mid(7)))
            lines += (lines.isEmpty() ? "mtllib " : "\nmtllib ") + name;
        return lines;
    }
    if (!holdsNumbers(keyword))
        return line;
    if (how.dropsAttributes && (keyword == "vt" || keyword == "vn"))
        return {};
    const int comment = line.indexOf('#');
    if (comment >= 0)
        line = line.left(comment).trimmed();
    QList<QByteArray> words = line.split(' ');
    if (keyword == "v" && words.size() < 7 && words.size() > 3 && how.completesColours)
        words = words.mid(0, 4) + QList<QByteArray>{"1", "1", "1"};
    if (keyword == "v" && words.size() >= 7 && how.packsAlpha)
        words[4] = packed(words[4], words.size() == 8 ? words[7].toFloat() : 1);
    if (keyword == "v" && words.size() == 8)
        words.removeLast();
    QByteArray plain;
    for (const QByteArray &word : qAsConst(words)) {
        if (!plain.isEmpty())
            plain += ' ';
        plain += word.startsWith('.') ? '0' + word : word;
    }
    if (keyword == "vt" && words.size() == 2)
        plain += " 0";
    return plain;
}

QByteArray plainObj(const QByteArray &text, const Rewriting &how)
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
        plain += plainLine(line, how) + '\n';
        line.clear();
    }
    return plain + plainLine(line, how) + '\n';
}

QString counted(qint64 count, const char *one)
{
    return QLocale(QLocale::English).toString(count) + QLatin1Char(' ') + QLatin1String(one)
        + (count == 1 ? QString() : QStringLiteral("s"));
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
    const bool hasVerticesAlone = !m_hasElements && (m_kinds[1].count > 0 || m_kinds[2].count > 0);
    if ((m_isOdd || hasVerticesAlone || hasColoursInPart()) && m_problem.isEmpty())
        m_plain = plainObj(marked, {hasColoursInPart(), hasVerticesAlone, m_hasAlpha});
    if (m_problem.isEmpty() && !m_hasElements && m_curves + m_surfaces > 0)
        m_problem = QStringLiteral("no triangles; ") + notDrawn();
}

void ObjText::complete(aiScene *scene)
{
    for (unsigned m = 0; m < scene->mNumMeshes && m_hasAlpha; ++m) {
        aiColor4D *const colours = scene->mMeshes[m]->mColors[0];
        for (unsigned v = 0; colours && v < scene->mMeshes[m]->mNumVertices; ++v)
            unpack(&colours[v]);
    }
    m_smoothing.complete(scene);
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
    const auto is = [&](const char *word) {
        return length == qptrdiff(std::strlen(word)) && std::memcmp(keyword, word, size_t(length)) == 0;
    };
    m_hasElements |= length == 1 && (*keyword == 'f' || *keyword == 'l' || *keyword == 'p');
    if (length == 1 && *keyword == 'f') {
        readFace(values, end);
    } else if (length == 1 && *keyword == 'v') {
        ++m_kinds[0].count;
        readVertex(values, end);
    } else if (length == 2 && keyword[0] == 'v') {
        for (Kind &kind : m_kinds)
            kind.count += keyword[1] == kind.keyword[1]; // "v" has a zero there
        readNumbers(values, end, 2);
    } else if (length == 1 && (*keyword == 's' || *keyword == 'o' || *keyword == 'g')) {
        const char *const value = skipSpaces(values, end);
        if (*keyword == 's')
            m_smoothing.setGroup(QByteArray(value, int(skipWord(value, end) - value)));
        else
            m_smoothing.addObject(*keyword == 'g', QByteArray(value, int(end - value)));
    } else if (is("mtllib")) {
        readLibraries(QByteArray(values, int(end - values)));
    } else if (is("usemtl")) {
        const QByteArray name = QByteArray(values, int(end - values)).simplified();
        if (!m_knownMaterials.contains(name)) {
            m_knownMaterials.insert(name);
            m_materials.append(name);
        }
    } else {
        m_curves += is("curv") || is("curv2");
        m_surfaces += is("surf");
    }
}

void ObjText::readLibraries(const QByteArray &names)
{
    const QList<QByteArray> libraries = libraryNames(names);
    m_isOdd |= libraries.size() > 1;
    for (const QByteArray &library : libraries)
        m_libraries.append(QFile::decodeName(library));
}

/// Three or four numbers of a position, or a position and a colour, at times with its alpha.
void ObjText::readVertex(const char *begin, const char *end)
{
    const int count = readNumbers(begin, end, 3);
    if (count < 3)
        m_problem = QStringLiteral("line %1: a vertex has %2 of its three numbers").arg(m_line).arg(count);
    m_isOdd |= count == 7;
    m_hasAlpha |= count == 7;
    ++(count > 5 ? m_colouredVertices : m_plainVertices);
}

/// Notes numbers that start with a point, comments and missing numbers. Returns how many there are before a comment.
int ObjText::readNumbers(const char *begin, const char *end, int fewest)
{
    int count = 0;
    for (const char *at = skipSpaces(begin, end); at != end; at = skipSpaces(skipWord(at, end), end)) {
        m_isOdd |= *at == '.' || *at == '#';
        if (*at == '#')
            break;
        ++count;
    }
    m_isOdd |= count < fewest;
    return count;
}

/// Corners have the forms 1, 1/2, 1//3 and 1/2/3.
void ObjText::readFace(const char *begin, const char *end)
{
    int corners = 0;
    for (const char *at = skipSpaces(begin, end); at != end && m_problem.isEmpty(); at = skipSpaces(at, end)) {
        if (*at == '#') {
            m_isOdd = true;
            break;
        }
        ++corners;
        const bool isNumber = *at == '-' || *at == '+' || (*at >= '0' && *at <= '9');
        const qint64 vertex = readInteger(&at, end);
        if (isNumber && vertex == 0) {
            m_problem = QStringLiteral("line %1: a face has vertex 0, and OBJ counts from 1").arg(m_line);
            return;
        }
        readIndex(&m_kinds[0], vertex);
        while (at != end && *at != '/' && !isSpace(*at)) // assimp tells of what is no number
            ++at;
        for (int i = 1; i < 3 && at != end && *at == '/'; ++i) {
            ++at;
            if (at != end && *at != '/' && !isSpace(*at))
                readIndex(&m_kinds[i], readInteger(&at, end));
        }
        at = skipWord(at, end);
    }
    if (corners >= 3)
        m_smoothing.addFace(corners);
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

QStringList ObjText::materialWarnings(const MtlText &libraries, const QStringList &missingFiles) const
{
    const bool isMissing = std::any_of(m_libraries.begin(), m_libraries.end(),
        [&](const QString &library) { return missingFiles.contains(bareName(library)); });
    QStringList lines;
    for (const QByteArray &material : m_materials) {
        if (!isMissing && !m_libraries.isEmpty() && !material.isEmpty() && !libraries.has(material))
            lines.append(QStringLiteral("material \"%1\" is in no material library; grey is used")
                             .arg(QString::fromUtf8(material)));
    }
    return lines;
}

QStringList ObjText::warnings() const
{
    QStringList lines;
    if (hasColoursInPart())
        lines.append(QStringLiteral("some of its vertices have a colour; the others are white (%1)")
                         .arg(QLocale(QLocale::English).toString(m_plainVertices)));
    if (m_curves + m_surfaces > 0)
        lines.append(notDrawn());
    if (m_smoothing.isLost())
        lines.append(QStringLiteral("faces with smoothing off are smooth: parts of an object stand apart"));
    return lines;
}

QString ObjText::notDrawn() const
{
    QStringList parts;
    if (m_curves > 0)
        parts.append(counted(m_curves, "curve"));
    if (m_surfaces > 0)
        parts.append(counted(m_surfaces, "free-form surface"));
    return parts.join(QStringLiteral(" and "))
        + (m_curves + m_surfaces == 1 ? QStringLiteral(" is") : QStringLiteral(" are"))
        + QStringLiteral(" not drawn: triangles alone are");
}

} // namespace Velmora::Kvz
