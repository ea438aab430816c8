// SPDX-License-Identifier: MIT
#include "StlReader.h"

#include "ImportBudget.h"
#include "PositionTable.h"

#include <QtCore/QFile>
#include <QtCore/QtEndian>

#include <algorithm>
#include <cstring>
#include <limits>
#include <vector>

namespace Velmora::Kvz {

namespace {

constexpr int headerSize = 84; // 80 bytes of anything, and the number of facets
constexpr int facetSize = 50; // a normal, three corners, and two bytes in which some programs keep a colour
constexpr int blockSize = 2048; // facets

/// The corners of facets. False where one is not finite, or a facet has a colour.
bool readCorners(const char *from, int facets, QVector3D *corners)
{
    quint32 worst = 0;
    quint8 flags = 0;
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
        flags |= quint8(from[facetSize - 1]);
    }
    return worst < 0x7f800000 && (flags & 0x80) == 0;
}

} // namespace

bool readBinaryStl(QFile *file, ImportBudget *budget, ImportedMesh *mesh)
{
    const QByteArray header = file->seek(0) ? file->read(headerSize) : QByteArray();
    if (header.size() < headerSize || header.contains("COLOR="))
        return false;
    const qint64 count = qFromLittleEndian<quint32>(header.constData() + 80);
    if (count == 0 || file->size() != headerSize + facetSize * count || count > std::numeric_limits<int>::max() / 3)
        return false;

    PositionTable table(size_t(count) / 2); // of a closed surface
    QVector<quint32> indices;
    indices.reserve(int(3 * count));
    QByteArray block(blockSize * facetSize, Qt::Uninitialized);
    std::vector<QVector3D> corners(3 * blockSize);
    for (qint64 first = 0; first < count; first += blockSize) {
        const int facets = int(std::min<qint64>(blockSize, count - first));
        if (!budget->isTimeLeft() || file->read(block.data(), facets * facetSize) != facets * facetSize
            || !readCorners(block.constData(), facets, corners.data()))
            return false;
        const size_t last = corners.size() - 1;
        for (size_t i = 0; i < size_t(3 * facets); ++i) {
            table.prefetch(corners[std::min(i + 16, last)]);
            indices.append(table.numberOf(corners[i]));
        }
    }
    if (!budget->takeVertices(3 * count))
        return false;
    mesh->positions.resize(int(table.positions().size()));
    std::copy(table.positions().begin(), table.positions().end(), mesh->positions.begin());
    mesh->indices = indices;
    return true;
}

} // namespace Velmora::Kvz
