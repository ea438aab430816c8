// SPDX-License-Identifier: MIT
#include "StlReader.h"

#include "ImportBudget.h"
#include "PositionTable.h"

#include <QtCore/QFile>
#include <QtCore/QtEndian>

#include <algorithm>
#include <limits>

namespace Velmora::Kvz {

namespace {

constexpr int headerSize = 84; // 80 bytes of anything, and the number of facets
constexpr int facetSize = 50; // a normal, three corners, and two bytes in which some programs keep a colour
constexpr int blockSize = 4096; // facets

/// False where it is not a finite number.
bool readFloat(const char *from, float *value)
{
    const quint32 bits = qFromLittleEndian<quint32>(from);
    std::memcpy(value, &bits, sizeof(bits));
    *value += 0.0f; // zero has two signs
    return (bits & 0x7f800000) != 0x7f800000;
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
    for (qint64 first = 0; first < count; first += blockSize) {
        const int facets = int(std::min<qint64>(blockSize, count - first));
        if (!budget->isTimeLeft() || file->read(block.data(), facets * facetSize) != facets * facetSize)
            return false;
        const char *at = block.constData();
        for (const char *const end = at + facets * facetSize; at != end; at += facetSize) {
            if ((at[facetSize - 1] & 0x80) != 0) // it has a colour
                return false;
            for (int corner = 0; corner < 3; ++corner) {
                float xyz[3];
                for (int axis = 0; axis < 3; ++axis) {
                    if (!readFloat(at + 12 * (corner + 1) + 4 * axis, &xyz[axis]))
                        return false;
                }
                indices.append(table.numberOf({xyz[0], xyz[1], xyz[2]}));
            }
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
