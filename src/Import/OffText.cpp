// SPDX-License-Identifier: MIT
#include "OffText.h"

#include "TextScan.h"

#include <assimp/mesh.h>

#include <QtCore/QLocale>

#include <algorithm>
#include <cstring>

namespace Velmora::Kvz {

namespace {

constexpr qint64 mostCorners = 9; // of a face that assimp keeps
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

/// The words of a line as numbers.
std::vector<float> numbersOf(const char *at, const char *end)
{
    std::vector<float> numbers;
    while (at != end) {
        const char *const wordEnd = skipWord(at, end);
        numbers.push_back(QByteArray(at, int(wordEnd - at)).toFloat());
        at = skipSpaces(wordEnd, end);
    }
    return numbers;
}

/// Colours are numbers to 1 or to 255. A fourth number below 0 stands for one that the file does not have.
void scaleColours(std::vector<std::optional<QVector4D>> *colours)
{
    const bool areBytes = std::any_of(colours->begin(), colours->end(), [](const std::optional<QVector4D> &colour) {
        return colour && std::max({colour->x(), colour->y(), colour->z()}) > 1;
    });
    for (std::optional<QVector4D> &colour : *colours) {
        if (!colour)
            continue;
        const bool isOpaque = colour->w() < 0;
        *colour /= areBytes ? 255 : 1;
        if (isOpaque)
            colour->setW(1);
    }
}

/// The text without comments and empty lines, and without a number of dimensions; some lines by their number replaced.
QByteArray plainOff(const QByteArray &text, bool hasKeyword, bool hasDimension, const QHash<int, QByteArray> &replaced)
{
    QByteArray plain = hasKeyword && !hasDimension ? QByteArray() : QByteArray("OFF\n");
    plain.reserve(text.size() + 4);
    Lines lines(text);
    int toSkip = hasDimension ? 2 : 0; // the keyword and the number
    for (Line line; lines.next(&line);) {
        for (; toSkip > 0 && line.begin != line.end; --toSkip)
            line.begin = skipSpaces(skipWord(line.begin, line.end), line.end);
        const auto other = replaced.constFind(lines.number());
        if (other != replaced.constEnd())
            plain.append(*other).append('\n');
        else if (line.begin != line.end)
            plain.append(line.begin, int(line.end - line.begin)).append('\n');
    }
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

bool OffText::Kind::read(const QByteArray &keyword)
{
    if (!keyword.endsWith("OFF"))
        return false;
    QByteArray letters = keyword.chopped(3);
    hasTexCoords = letters.startsWith("ST");
    letters = letters.mid(hasTexCoords ? 2 : 0);
    for (const char letter : qAsConst(letters)) { // in any order, as files have them
        bool *const flag = letter == 'C' ? &hasColours
            : letter == 'N'              ? &hasNormals
            : letter == '4'              ? &isHomogeneous
            : letter == 'n'              ? &hasDimension
                                         : nullptr;
        if (!flag)
            return false;
        *flag = true;
    }
    return true;
}

OffText::OffText(const QByteArray &text)
{
    read(text);
    scaleColours(&m_colours);
    scaleColours(&m_vertexColours);
}

void OffText::read(const QByteArray &text)
{
    Lines lines(text);
    Line line;
    if (!lines.next(&line))
        return;
    // The counts follow the keyword, on its line or on the next.
    const char *const word = skipWord(line.begin, line.end);
    const bool hasKeyword = m_kind.read(QByteArray::fromRawData(line.begin, int(word - line.begin)));
    if (hasKeyword)
        line.begin = skipSpaces(word, line.end);
    if (line.begin == line.end && !lines.next(&line))
        return;
    if (QByteArray::fromRawData(line.begin, int(line.end - line.begin)).startsWith("BINARY")) {
        m_problem = QStringLiteral("it is binary OFF, which is not read; save it as text");
        return;
    }
    if (m_kind.hasDimension) {
        const qint64 dimension = readInteger(&line.begin, line.end);
        line.begin = skipSpaces(line.begin, line.end);
        if (dimension != 3)
            m_problem = QStringLiteral("its vertices have %1 dimensions, and three are read").arg(dimension);
        if (dimension != 3 || (line.begin == line.end && !lines.next(&line)))
            return;
    }
    const qint64 vertices = readInteger(&line.begin, line.end);
    line.begin = skipSpaces(line.begin, line.end);
    const qint64 faces = readInteger(&line.begin, line.end);
    for (qint64 v = 0; v < vertices; ++v) {
        const bool isThere = lines.next(&line);
        if (!isThere && !m_kind.isPlain())
            m_problem =
                QStringLiteral("damaged or truncated: it declares %1 vertices, and %2 are there").arg(vertices).arg(v);
        if (!isThere || (!m_kind.isPlain() && !readVertex(line.begin, line.end, lines.number())))
            return;
    }
    QByteArray plain = "OFF\n" + QByteArray::number(vertices) + ' ' + QByteArray::number(faces) + " 0\n" + m_positions;
    m_positions.clear();
    const bool isPlain = hasKeyword && m_kind.isPlain() && !m_kind.hasDimension;
    for (qint64 f = 0; f < faces && m_problem.isEmpty() && lines.next(&line); ++f) {
        readFace(line.begin, line.end, vertices, lines.number());
        const auto other = m_replaced.constFind(lines.number());
        if (!m_kind.isPlain() && other != m_replaced.constEnd())
            plain.append(*other).append('\n');
        else if (!m_kind.isPlain())
            plain.append(line.begin, int(line.end - line.begin)).append('\n');
    }
    if (faces == 0 && vertices > 0 && m_problem.isEmpty())
        m_problem = QStringLiteral("no triangles; %1 %2 not drawn: triangles alone are")
                        .arg(QLocale(QLocale::English).toString(vertices),
                            vertices == 1 ? QStringLiteral("point is") : QStringLiteral("points are"));
    if (!m_kind.isPlain())
        m_plain = plain;
    else if (!isPlain || !lines.isPlain() || !m_replaced.isEmpty())
        m_plain = plainOff(text, hasKeyword, m_kind.hasDimension, m_replaced);
    m_replaced.clear();
    if (!m_hasColours)
        m_colours.clear();
}

/// A position, a normal, a colour of three or four numbers, and texture coordinates, in this order whatever that of the
/// keyword's letters.
bool OffText::readVertex(const char *at, const char *end, int number)
{
    const std::vector<float> all = numbersOf(at, end);
    const size_t position = m_kind.isHomogeneous ? 4 : 3;
    const size_t colour = position + (m_kind.hasNormals ? 3 : 0);
    const size_t texCoords = m_kind.hasTexCoords ? 2 : 0;
    const size_t fewest = colour + (m_kind.hasColours ? 3 : 0) + texCoords;
    if (all.size() < fewest) {
        m_problem = QStringLiteral("line %1: a vertex has %2 numbers, and its kind of OFF has %3 or more")
                        .arg(QString::number(number), QString::number(all.size()), QString::number(fewest));
        return false;
    }
    const char *const behind = [&] {
        const char *word = at;
        for (size_t i = 0; i < 3; ++i)
            word = skipWord(skipSpaces(word, end), end);
        return word;
    }();
    if (!m_kind.isHomogeneous)
        m_positions.append(at, int(behind - at)).append('\n');
    for (size_t i = 0; i < 3 && m_kind.isHomogeneous; ++i)
        m_positions.append(QByteArray::number(double(all[i]) / double(all[3]), 'g', 9)).append(i < 2 ? ' ' : '\n');
    if (m_kind.hasNormals)
        m_normals.emplace_back(all[position], all[position + 1], all[position + 2]);
    if (m_kind.hasColours) {
        const bool hasAlpha = all.size() > fewest;
        m_vertexColours.emplace_back(
            QVector4D(all[colour], all[colour + 1], all[colour + 2], hasAlpha ? all[colour + 3] : -1));
    }
    if (m_kind.hasTexCoords)
        m_texCoords.emplace_back(all[all.size() - 2], all[all.size() - 1]);
    return true;
}

void OffText::readFace(const char *at, const char *end, qint64 vertices, int number)
{
    const bool isDigit = *at >= '0' && *at <= '9';
    const qint64 corners = readInteger(&at, end);
    at = skipSpaces(at, end);
    LargeFace face{m_colours.size(), {}};
    qint64 count = 0;
    for (; count < corners && at != end; ++count) {
        const qint64 index = readInteger(&at, end);
        if (index < 0 || index >= vertices) {
            m_problem = QStringLiteral("line %1: a face has index %2, past the end of %3 vertices")
                            .arg(QString::number(number), QString::number(index), QString::number(vertices));
            return;
        }
        if (corners > mostCorners)
            face.corners.push_back(unsigned(index));
        at = skipSpaces(skipWord(at, end), end);
    }
    if (count < corners) {
        m_problem = QStringLiteral("line %1: a face has %2 of its %3 corners; is the file truncated?")
                        .arg(QString::number(number), QString::number(count), QString::number(corners));
        return;
    }
    if (corners > mostCorners) {
        // A triangle keeps its place until complete() has the mesh.
        m_replaced.insert(number,
            QByteArray("3 ") + QByteArray::number(face.corners[0]) + ' ' + QByteArray::number(face.corners[1]) + ' '
                + QByteArray::number(face.corners[2]));
        m_largeFaces.push_back(std::move(face));
    }
    ++m_faceCount;
    if (corners > 0 && isDigit) {
        readColour(at, end);
        return;
    }
    // Assimp counts lines that it cannot read as faces down, below zero where there are more of them than faces.
    m_replaced.insert(number, "3 0 0 0");
    m_colours.emplace_back();
}

void OffText::readColour(const char *at, const char *end)
{
    const std::vector<float> numbers = numbersOf(at, end);
    m_mapped += numbers.size() == 1;
    m_colours.emplace_back();
    if (numbers.size() != 3 && numbers.size() != 4)
        return;
    m_colours.back() = QVector4D(numbers[0], numbers[1], numbers[2], numbers.size() == 4 ? numbers[3] : -1);
    m_hasColours = true;
}

void OffText::complete(aiMesh *mesh)
{
    completeVertices(mesh);
    restoreLargeFaces(mesh);
    if (m_hasColours)
        colourFaces(mesh);
}

void OffText::completeVertices(aiMesh *mesh) const
{
    const size_t count = mesh->mNumVertices;
    if (m_normals.size() == count) {
        delete[] mesh->mNormals;
        mesh->mNormals = new aiVector3D[count];
        for (size_t v = 0; v < count; ++v)
            mesh->mNormals[v] = {m_normals[v].x(), m_normals[v].y(), m_normals[v].z()};
    }
    if (m_vertexColours.size() == count) {
        mesh->mColors[0] = new aiColor4D[count];
        for (size_t v = 0; v < count; ++v) {
            const QVector4D colour = m_vertexColours[v].value_or(lightGrey);
            mesh->mColors[0][v] = {colour.x(), colour.y(), colour.z(), colour.w()};
        }
    }
    if (m_texCoords.size() == count) {
        mesh->mTextureCoords[0] = new aiVector3D[count];
        mesh->mNumUVComponents[0] = 2;
        for (size_t v = 0; v < count; ++v)
            mesh->mTextureCoords[0][v] = {m_texCoords[v].x(), m_texCoords[v].y(), 0};
    }
}

void OffText::restoreLargeFaces(aiMesh *mesh) const
{
    if (m_largeFaces.empty() || m_faceCount != mesh->mNumFaces)
        return;
    for (const LargeFace &large : m_largeFaces) {
        aiFace &face = mesh->mFaces[large.number];
        delete[] face.mIndices;
        face.mNumIndices = unsigned(large.corners.size());
        face.mIndices = new unsigned[large.corners.size()];
        std::copy(large.corners.begin(), large.corners.end(), face.mIndices);
    }
    mesh->mPrimitiveTypes |= aiPrimitiveType_POLYGON;
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
    if (m_mapped > 0)
        lines.append(
            QStringLiteral("colours of faces that are numbers of a colour map are not read (%1)").arg(m_mapped));
    if (m_isOverruled && m_hasColours)
        lines.append(QStringLiteral("the colours of its faces are left out: its vertices have colours"));
    return lines;
}

} // namespace Velmora::Kvz
