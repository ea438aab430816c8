// SPDX-License-Identifier: MIT
#include "OffText.h"

#include "TextScan.h"

#include <assimp/mesh.h>

#include <algorithm>
#include <cstring>

namespace Velmora::Kvz {

namespace {

constexpr int mostCorners = 9; // that assimp keeps
const QVector4D lightGrey(0.8f, 0.8f, 0.8f, 1); // as meshes without colours are

struct Line
{
    const char *begin = nullptr;
    const char *end = nullptr;
};

/// Goes through the lines of a text that are neither empty nor comments, which are left out.
class Lines
{
public:
    explicit Lines(const QByteArray &text)
        : m_at(text.constData()),
          m_end(m_at + text.size())
    { }

    bool next(Line *line)
    {
        while (m_at != m_end) {
            const auto *found = static_cast<const char *>(std::memchr(m_at, '\n', size_t(m_end - m_at)));
            line->begin = m_at;
            line->end = found ? found : m_end;
            m_at = found ? found + 1 : m_end;
            ++m_number;
            const auto *comment =
                static_cast<const char *>(std::memchr(line->begin, '#', size_t(line->end - line->begin)));
            line->end = comment ? comment : line->end;
            line->begin = skipSpaces(line->begin, line->end);
            m_isPlain &= !comment && (line->begin != line->end || m_at == m_end);
            if (line->begin != line->end)
                return true;
        }
        return false;
    }

    /// Of the line, from 1.
    int number() const { return m_number; }
    /// Whether nothing was left out so far.
    bool isPlain() const { return m_isPlain; }

private:
    const char *m_at;
    const char *m_end;
    int m_number = 0;
    bool m_isPlain = true;
};

/// The text without comments and empty lines.
QByteArray plainOff(const QByteArray &text, bool hasKeyword)
{
    QByteArray plain = hasKeyword ? QByteArray() : QByteArray("OFF\n");
    plain.reserve(text.size() + 4);
    Lines lines(text);
    for (Line line; lines.next(&line);)
        plain.append(line.begin, int(line.end - line.begin)).append('\n');
    return plain;
}

template <typename T> void repeatCorners(T **array, const aiMesh &mesh, unsigned corners)
{
    if (!*array)
        return;
    T *const repeated = new T[corners];
    T *to = repeated;
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        for (unsigned i = 0; i < mesh.mFaces[f].mNumIndices; ++i)
            *to++ = (*array)[mesh.mFaces[f].mIndices[i]];
    }
    delete[] * array;
    *array = repeated;
}

} // namespace

OffText::OffText(const QByteArray &text)
{
    read(text);
    const bool areBytes = std::any_of(m_colours.begin(), m_colours.end(), [](const std::optional<QVector4D> &colour) {
        return colour && std::max({colour->x(), colour->y(), colour->z()}) > 1;
    });
    for (std::optional<QVector4D> &colour : m_colours) {
        if (!colour)
            continue;
        const bool isOpaque = colour->w() < 0; // it has no fourth number
        *colour /= areBytes ? 255 : 1;
        if (isOpaque)
            colour->setW(1);
    }
}

void OffText::read(const QByteArray &text)
{
    Lines lines(text);
    Line line;
    if (!lines.next(&line))
        return;
    // The counts follow the keyword, on its line or on the next.
    const char *const word = skipWord(line.begin, line.end);
    const bool hasKeyword = QByteArray::fromRawData(line.begin, int(word - line.begin)).endsWith("OFF");
    if (hasKeyword)
        line.begin = skipSpaces(word, line.end);
    if (line.begin == line.end && !lines.next(&line))
        return;
    const qint64 vertices = readInteger(&line.begin, line.end);
    line.begin = skipSpaces(line.begin, line.end);
    const qint64 faces = readInteger(&line.begin, line.end);
    for (qint64 v = 0; v < vertices; ++v) {
        if (!lines.next(&line))
            return;
    }
    for (qint64 f = 0; f < faces && m_problem.isEmpty() && lines.next(&line); ++f)
        readFace(line.begin, line.end, vertices, lines.number());
    if (!hasKeyword || !lines.isPlain())
        m_plain = plainOff(text, hasKeyword);
    if (!m_hasColours)
        m_colours.clear();
}

void OffText::readFace(const char *at, const char *end, qint64 vertices, int number)
{
    const qint64 corners = readInteger(&at, end);
    at = skipSpaces(at, end);
    for (qint64 i = 0; i < corners && at != end; ++i) {
        const qint64 index = readInteger(&at, end);
        if (index < 0 || index >= vertices) {
            m_problem = QStringLiteral("line %1: a face has index %2, past the end of %3 vertices")
                            .arg(QString::number(number), QString::number(index), QString::number(vertices));
            return;
        }
        at = skipSpaces(skipWord(at, end), end);
    }
    m_dropped += corners > mostCorners;
    if (corners > 0 && corners <= mostCorners)
        readColour(at, end);
}

void OffText::readColour(const char *at, const char *end)
{
    QVector4D colour(0, 0, 0, -1);
    int count = 0;
    while (at != end) {
        const char *const wordEnd = skipWord(at, end);
        if (count < 4)
            colour[count] = QByteArray(at, int(wordEnd - at)).toFloat();
        ++count;
        at = skipSpaces(wordEnd, end);
    }
    m_mapped += count == 1;
    m_colours.emplace_back();
    if (count != 3 && count != 4)
        return;
    m_colours.back() = colour;
    m_hasColours = true;
}

void OffText::colourFaces(aiMesh *mesh)
{
    m_isOverruled = mesh->mColors[0] != nullptr;
    if (m_isOverruled || m_colours.size() != mesh->mNumFaces)
        return;
    unsigned corners = 0;
    for (unsigned f = 0; f < mesh->mNumFaces; ++f)
        corners += mesh->mFaces[f].mNumIndices;
    repeatCorners(&mesh->mVertices, *mesh, corners);
    repeatCorners(&mesh->mNormals, *mesh, corners);
    for (aiVector3D *&set : mesh->mTextureCoords)
        repeatCorners(&set, *mesh, corners);
    mesh->mColors[0] = new aiColor4D[corners];
    mesh->mNumVertices = corners;
    unsigned corner = 0;
    for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
        const QVector4D colour = m_colours[f].value_or(lightGrey);
        for (unsigned i = 0; i < mesh->mFaces[f].mNumIndices; ++i, ++corner) {
            mesh->mFaces[f].mIndices[i] = corner;
            mesh->mColors[0][corner] = aiColor4D(colour.x(), colour.y(), colour.z(), colour.w());
        }
    }
}

QStringList OffText::warnings() const
{
    QStringList lines;
    if (m_dropped > 0)
        lines.append(QStringLiteral("faces of more than %1 corners are left out (%2)").arg(mostCorners).arg(m_dropped));
    if (m_mapped > 0)
        lines.append(
            QStringLiteral("colours of faces that are numbers of a colour map are not read (%1)").arg(m_mapped));
    if (m_isOverruled && m_hasColours)
        lines.append(QStringLiteral("the colours of its faces are left out: its vertices have colours"));
    return lines;
}

} // namespace Velmora::Kvz
