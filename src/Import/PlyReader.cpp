// SPDX-License-Identifier: MIT
#include "PlyReader.h"

#include "ImportBudget.h"
#include "PlyHeader.h"

#include <QtCore/QFile>
#include <QtCore/QtEndian>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace Velmora::Kvz {

namespace {

constexpr int blockSize = 1 << 16; // bytes, but for a longer record

/// Where a property of vertices goes.
struct Target
{
    enum Array { Nowhere, Position, Normal, TexCoord, Colour, Foreign };

    Array array = Nowhere;
    int component = 0;
};

Target targetOf(const QByteArray &name)
{
    struct Known
    {
        const char *name;
        Target target;
    };
    static const Known all[] = {{"x", {Target::Position, 0}}, {"y", {Target::Position, 1}},
        {"z", {Target::Position, 2}}, {"nx", {Target::Normal, 0}}, {"ny", {Target::Normal, 1}},
        {"nz", {Target::Normal, 2}}, {"u", {Target::TexCoord, 0}}, {"v", {Target::TexCoord, 1}},
        {"s", {Target::TexCoord, 0}}, {"t", {Target::TexCoord, 1}}, {"texture_u", {Target::TexCoord, 0}},
        {"texture_v", {Target::TexCoord, 1}}, {"red", {Target::Colour, 0}}, {"green", {Target::Colour, 1}},
        {"blue", {Target::Colour, 2}}, {"alpha", {Target::Colour, 3}}, {"diffuse_red", {Target::Colour, 0}},
        {"diffuse_green", {Target::Colour, 1}}, {"diffuse_blue", {Target::Colour, 2}},
        {"diffuse_alpha", {Target::Colour, 3}}};
    for (const Known &known : all) {
        if (name == known.name)
            return known.target;
    }
    // What programs that measure add to a vertex does not show.
    static const char *const unseen[] = {
        "confidence", "intensity", "quality", "curvature", "flags", "label", "radius", "scalar", "value", "time", "id"};
    const bool isUnseen =
        std::any_of(std::begin(unseen), std::end(unseen), [&](const char *word) { return name.startsWith(word); });
    return {isUnseen ? Target::Nowhere : Target::Foreign, 0};
}

template <typename T> T load(const char *from, bool isBig)
{
    return isBig ? qFromBigEndian<T>(from) : qFromLittleEndian<T>(from);
}

template <typename Real, typename Bits> Real loadReal(const char *from, bool isBig)
{
    const Bits bits = load<Bits>(from, isBig);
    Real value;
    std::memcpy(&value, &bits, sizeof(value));
    return value;
}

/// Calls `use` with a function that reads a number of this kind as a double or, where that is enough, as less.
template <typename Use> void withLoader(const PlyHeader::Number &number, bool isBig, const Use &use)
{
    const bool isSigned = number.kind == PlyHeader::Integer;
    if (number.kind == PlyHeader::Real && number.bytes == 4)
        use([isBig](const char *from) { return loadReal<float, quint32>(from, isBig); });
    else if (number.kind == PlyHeader::Real)
        use([isBig](const char *from) { return loadReal<double, quint64>(from, isBig); });
    else if (number.bytes == 1 && isSigned)
        use([](const char *from) { return qint8(*from); });
    else if (number.bytes == 1)
        use([](const char *from) { return quint8(*from); });
    else if (number.bytes == 2 && isSigned)
        use([isBig](const char *from) { return load<qint16>(from, isBig); });
    else if (number.bytes == 2)
        use([isBig](const char *from) { return load<quint16>(from, isBig); });
    else if (isSigned)
        use([isBig](const char *from) { return load<qint32>(from, isBig); });
    else
        use([isBig](const char *from) { return load<quint32>(from, isBig); });
}

class PlyReader
{
public:
    PlyReader(QFile *file, ImportBudget *budget)
        : m_file(file),
          m_budget(budget)
    { }

    bool read(ImportedMesh *mesh);

private:
    struct Column
    {
        PlyHeader::Number number;
        int offset = 0;
        Target target;
    };

    /// The bytes of a face of a triangle.
    struct FaceLayout
    {
        int stride = 0;
        int length = 0; // offset of the number of corners
        int indices = 0;
        PlyHeader::Number lengthNumber;
        PlyHeader::Number indexNumber;
    };

    bool layOut(const PlyHeader &header);
    bool layOutVertices(const PlyHeader::Element &element);
    bool layOutFaces(const PlyHeader::Element &element);
    bool readVertices();
    bool readFaces();
    void copyColumn(const Column &column, const char *from, int first, int count);
    template <typename UseBlock> bool readBlocks(int count, int stride, const UseBlock &useBlock);

    QFile *m_file;
    ImportBudget *m_budget;
    bool m_isBig = false;
    QVector<Column> m_columns;
    bool m_hasNormals = false;
    bool m_hasTexCoords = false;
    bool m_hasColours = false;
    int m_vertexStride = 0;
    int m_vertexCount = 0;
    int m_faceCount = 0;
    FaceLayout m_face;
    ImportedMesh m_mesh;
};

bool PlyReader::read(ImportedMesh *mesh)
{
    const QByteArray start = m_file->seek(0) ? m_file->peek(65536) : QByteArray();
    const PlyHeader header = start.startsWith("ply") ? readPlyHeader(start) : PlyHeader();
    if (header.size == 0 || start.left(header.size).contains('\r') || !layOut(header)
        || m_file->size() - header.size < qint64(m_vertexStride) * m_vertexCount + qint64(m_face.stride) * m_faceCount
        || !m_file->seek(header.size) || !readVertices() || !readFaces() || !m_budget->takeVertices(m_vertexCount))
        return false;
    *mesh = m_mesh;
    return true;
}

bool PlyReader::layOut(const PlyHeader &header)
{
    m_isBig = header.format == "binary_big_endian";
    if ((!m_isBig && header.format != "binary_little_endian") || header.elements.size() != 2)
        return false;
    for (const QByteArray &comment : header.comments) {
        if (comment.startsWith("TextureFile"))
            return false;
    }
    return layOutVertices(header.elements[0]) && layOutFaces(header.elements[1]);
}

bool PlyReader::layOutVertices(const PlyHeader::Element &element)
{
    constexpr int most = std::numeric_limits<int>::max() / 4;
    if (element.name != "vertex" || element.count < 3 || element.count > most)
        return false;
    m_vertexCount = int(element.count);
    int components[Target::Foreign + 1] = {};
    for (const PlyHeader::Property &property : element.properties) {
        const Column column{property.number, m_vertexStride, targetOf(property.name)};
        const bool isColourOfBytes = property.number.kind == PlyHeader::Unsigned && property.number.bytes == 1;
        if (property.isList() || property.number.bytes == 0 || column.target.array == Target::Foreign
            || (column.target.array == Target::Colour && !isColourOfBytes && property.number.kind != PlyHeader::Real))
            return false;
        const int bit = 1 << column.target.component;
        if (column.target.array != Target::Nowhere && (components[column.target.array] & bit) != 0)
            return false; // twice
        components[column.target.array] |= bit;
        m_vertexStride += property.number.bytes;
        m_columns.append(column);
    }
    const auto hasAllOrNone = [&](Target::Array array, int all) {
        return components[array] == 0 || (components[array] & all) == all;
    };
    if (components[Target::Position] != 7 || !hasAllOrNone(Target::Normal, 7) || !hasAllOrNone(Target::TexCoord, 3)
        || !hasAllOrNone(Target::Colour, 7))
        return false;
    m_hasNormals = components[Target::Normal] != 0;
    m_hasTexCoords = components[Target::TexCoord] != 0;
    m_hasColours = components[Target::Colour] != 0;
    return true;
}

bool PlyReader::layOutFaces(const PlyHeader::Element &element)
{
    if (element.name != "face" || element.count < 1 || element.count > std::numeric_limits<int>::max() / 3)
        return false;
    m_faceCount = int(element.count);
    for (const PlyHeader::Property &property : element.properties) {
        if (!property.isList()) {
            if (property.number.bytes == 0 || targetOf(property.name).array != Target::Nowhere)
                return false;
            m_face.stride += property.number.bytes;
            continue;
        }
        const bool isKnown = property.name == "vertex_indices" || property.name == "vertex_index";
        if (!isKnown || m_face.indexNumber.bytes > 0 || property.length.kind == PlyHeader::Real
            || property.number.kind == PlyHeader::Real || property.number.bytes == 0)
            return false;
        m_face.length = m_face.stride;
        m_face.indices = m_face.stride + property.length.bytes;
        m_face.lengthNumber = property.length;
        m_face.indexNumber = property.number;
        m_face.stride = m_face.indices + 3 * property.number.bytes;
    }
    return m_face.indexNumber.bytes > 0;
}

/// Calls `useBlock` with the records of a block, the number of the first one and how many there are.
template <typename UseBlock> bool PlyReader::readBlocks(int count, int stride, const UseBlock &useBlock)
{
    const int most = std::max(1, blockSize / stride);
    QByteArray block(most * stride, Qt::Uninitialized);
    for (int first = 0; first < count; first += most) {
        const int records = std::min(most, count - first);
        if (!m_budget->isTimeLeft() || m_file->read(block.data(), records * stride) != records * stride
            || !useBlock(block.constData(), first, records))
            return false;
    }
    return true;
}

bool PlyReader::readVertices()
{
    m_mesh.positions.resize(m_vertexCount);
    m_mesh.normals.resize(m_hasNormals ? m_vertexCount : 0);
    m_mesh.texCoords.resize(m_hasTexCoords ? m_vertexCount : 0);
    if (m_hasColours)
        m_mesh.colours.fill(QVector4D(0, 0, 0, 1), m_vertexCount);
    return readBlocks(m_vertexCount, m_vertexStride, [this](const char *from, int first, int count) {
        for (const Column &column : qAsConst(m_columns)) {
            if (column.target.array != Target::Nowhere)
                copyColumn(column, from + column.offset, first, count);
        }
        const QVector3D *const positions = m_mesh.positions.constData() + first;
        return std::all_of(positions, positions + count, [](const QVector3D &at) {
            return std::isfinite(at.x()) && std::isfinite(at.y()) && std::isfinite(at.z());
        });
    });
}

void PlyReader::copyColumn(const Column &column, const char *from, int first, int count)
{
    float *to = nullptr;
    int width = 3;
    switch (column.target.array) {
    case Target::Position:
        to = reinterpret_cast<float *>(m_mesh.positions.data() + first);
        break;
    case Target::Normal:
        to = reinterpret_cast<float *>(m_mesh.normals.data() + first);
        break;
    case Target::TexCoord:
        to = reinterpret_cast<float *>(m_mesh.texCoords.data() + first);
        width = 2;
        break;
    default:
        to = reinterpret_cast<float *>(m_mesh.colours.data() + first);
        width = 4;
    }
    to += column.target.component;
    const bool isOfBytes = column.target.array == Target::Colour && column.number.bytes == 1;
    const float divisor = isOfBytes ? 255 : 1;
    withLoader(column.number, m_isBig, [&](const auto &loader) {
        for (int i = 0; i < count; ++i)
            to[i * width] = float(loader(from + i * m_vertexStride)) / divisor + 0.0f; // zero has two signs
    });
}

bool PlyReader::readFaces()
{
    m_mesh.indices.resize(3 * m_faceCount);
    return readBlocks(m_faceCount, m_face.stride, [this](const char *from, int first, int count) {
        bool isPlain = true;
        withLoader(m_face.lengthNumber, m_isBig, [&](const auto &loader) {
            for (int i = 0; i < count; ++i)
                isPlain &= loader(from + m_face.length + i * m_face.stride) == 3;
        });
        quint32 *to = m_mesh.indices.data() + 3 * first;
        quint32 largest = 0;
        withLoader(m_face.indexNumber, m_isBig, [&](const auto &loader) {
            for (int i = 0; i < count; ++i) {
                const char *at = from + m_face.indices + i * m_face.stride;
                for (int corner = 0; corner < 3; ++corner, at += m_face.indexNumber.bytes) {
                    *to = quint32(loader(at)); // negative ones are past the end
                    largest = std::max(largest, *to++);
                }
            }
        });
        return isPlain && largest < quint32(m_vertexCount);
    });
}

} // namespace

bool readBinaryPly(QFile *file, ImportBudget *budget, ImportedMesh *mesh)
{
    return PlyReader(file, budget).read(mesh);
}

} // namespace Velmora::Kvz
