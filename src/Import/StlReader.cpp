// SPDX-License-Identifier: MIT
#include "StlReader.h"

#include "ImportBudget.h"
#include "PositionTable.h"

#include <QtCore/QFile>
#include <QtCore/QtEndian>

#include <algorithm>
#include <cstring>
#include <limits>
#include <numeric>
#include <vector>

namespace Velmora::Kvz {

namespace {

constexpr int headerSize = 84; // 80 bytes of anything, and the number of facets
constexpr int facetSize = 50; // a normal, three corners, and two bytes in which some programs keep a colour
constexpr int facetsAtOnce = 2048; // facets

/// The corners of facets, and their attributes, of which all that were seen go into `seen`. False where one is not finite.
bool readCorners(const char *from, int facets, QVector3D *corners, quint16 *attributes, quint16 *seen)
{
    quint32 worst = 0;
    for (const char *const end = from + facets * facetSize; from != end; from += facetSize) {
        for (int corner = 0; corner < 3; ++corner) {
            float xyz[3];
            for (int axis = 0; axis < 3; ++axis) {
                const quint32 bits = qFromLittleEndian<quint32>(from + 12 * (corner + 1) + 4 * axis);
                std::memcpy(&xyz[axis], &bits, sizeof(bits));
                worst = std::max(worst, bits & 0x7fffffff);
            }
            // Zero has two signs.
            *corners++ = QVector3D(xyz[0] + 0.0f, xyz[1] + 0.0f, xyz[2] + 0.0f);
        }
        *attributes = qFromLittleEndian<quint16>(from + facetSize - 2);
        *seen |= *attributes++;
    }
    return worst < 0x7f800000;
}

/// What the programs that write colours mean by the attribute of a facet. There are two habits, which disagree in all: with a
/// colour of the whole in the header (Magics) the highest bit is set for facets that have this one, and red is in the lowest bits;
/// without (VisCAM) it is set for facets that have a colour of their own, and blue is in the lowest bits.
class FacetColours
{
public:
    explicit FacetColours(const QByteArray &header)
    {
        constexpr int textSize = 80;
        const int word = header.left(textSize).indexOf("COLOR=");
        m_hasDefault = word >= 0 && word + 10 <= textSize;
        for (int i = 0; i < 4 && m_hasDefault; ++i)
            m_default[i] = float(quint8(header[word + 6 + i])) / 255;
        if (m_default.w() <= 0) // of one that is not to be seen nobody would write the colour
            m_default.setW(1);
    }

    /// Whether facets whose attributes have these bits set between them, each in one or more, have colours.
    bool areThere(quint16 seen) const { return m_hasDefault || (seen & isOwnOrDefault) != 0; }

    /// Attributes that are zero throughout were left alone by whoever wrote the header.
    QVector4D colourOf(quint16 attribute, quint16 seen) const
    {
        const bool isDefault =
            m_hasDefault ? (attribute & isOwnOrDefault) != 0 || seen == 0 : (attribute & isOwnOrDefault) == 0;
        if (isDefault)
            return m_default;
        const auto part = [attribute](int shift) { return float((attribute >> shift) & 31) / 31; };
        return m_hasDefault ? QVector4D(part(0), part(5), part(10), 1) : QVector4D(part(10), part(5), part(0), 1);
    }

private:
    static constexpr quint16 isOwnOrDefault = 0x8000;

    bool m_hasDefault = false;
    QVector4D m_default{0.8f, 0.8f, 0.8f, 1}; // as meshes without colours are
};

} // namespace

bool readBinaryStl(QFile *file, ImportBudget *budget, ImportedMesh *mesh)
{
    const QByteArray header = file->seek(0) ? file->read(headerSize) : QByteArray();
    if (header.size() < headerSize)
        return false;
    const qint64 count = qFromLittleEndian<quint32>(header.constData() + 80);
    if (count == 0 || file->size() != headerSize + facetSize * count || count > std::numeric_limits<int>::max() / 3)
        return false;

    const FacetColours colours(header);
    PositionTable table(size_t(count) / 2); // of a closed surface
    QVector<quint32> indices;
    indices.reserve(int(3 * count));
    QByteArray block(facetsAtOnce * facetSize, Qt::Uninitialized);
    std::vector<QVector3D> corners(3 * facetsAtOnce);
    std::vector<quint16> attributes(facetsAtOnce);
    quint16 seen = 0;
    for (qint64 first = 0; first < count; first += facetsAtOnce) {
        const int facets = int(std::min<qint64>(facetsAtOnce, count - first));
        if (!budget->isTimeLeft() || file->read(block.data(), facets * facetSize) != facets * facetSize
            || !readCorners(block.constData(), facets, corners.data(), attributes.data(), &seen))
            return false;
        const size_t last = corners.size() - 1;
        for (size_t i = 0; i < size_t(3 * facets); ++i) {
            table.prefetch(corners[std::min(i + 16, last)]);
            indices.append(table.numberOf(corners[i]));
        }
    }
    if (!budget->takeVertices(3 * count))
        return false;
    if (!colours.areThere(seen)) {
        mesh->positions.resize(int(table.positions().size()));
        std::copy(table.positions().begin(), table.positions().end(), mesh->positions.begin());
        mesh->indices = indices;
        return true;
    }

    // Each facet has its colour at corners of its own, which are welded where neighbours agree.
    if (!file->seek(headerSize))
        return false;
    mesh->positions.reserve(int(3 * count));
    mesh->colours.reserve(int(3 * count));
    for (qint64 first = 0; first < count; first += facetsAtOnce) {
        const int facets = int(std::min<qint64>(facetsAtOnce, count - first));
        quint16 ignored = 0;
        if (!budget->isTimeLeft() || file->read(block.data(), facets * facetSize) != facets * facetSize
            || !readCorners(block.constData(), facets, corners.data(), attributes.data(), &ignored))
            return false;
        for (size_t corner = 0; corner < size_t(3 * facets); ++corner) {
            mesh->positions.append(corners[corner]);
            mesh->colours.append(colours.colourOf(attributes[corner / 3], seen));
        }
    }
    std::iota(indices.begin(), indices.end(), 0u);
    mesh->indices = indices;
    return true;
}

} // namespace Velmora::Kvz
