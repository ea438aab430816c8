// SPDX-License-Identifier: MIT
#include "VertexExtrasBuffer.h"

#include <GL/BufferObject.h>
#include <GL/VertexArrayObject.h>

#include <GL/TrackedGL.h>

#include <cmath>
#include <cstring>

namespace Velmora::Kvz {

namespace {

constexpr int texelBytes = 8;

quint64 packed(const quint16 (&parts)[4])
{
    quint64 texel = 0;
    std::memcpy(&texel, parts, sizeof(texel));
    return texel;
}

quint64 packedColour(const QVector4D &colour)
{
    quint16 parts[4];
    for (int i = 0; i < 4; ++i)
        parts[i] = quint16(std::lround(qBound(0.0f, colour[i], 1.0f) * 65535.0f));
    return packed(parts);
}

quint64 packedTangent(const QVector4D &tangent)
{
    quint16 parts[4];
    for (int i = 0; i < 4; ++i)
        parts[i] = quint16(qint16(std::lround(qBound(-1.0f, tangent[i], 1.0f) * 32767.0f)));
    return packed(parts);
}

quint64 packedTexCoord(const QVector2D &texCoord)
{
    const float parts[2] = {texCoord.x(), texCoord.y()};
    quint64 texel = 0;
    std::memcpy(&texel, parts, sizeof(texel));
    return texel;
}

/// Writes one array of all meshes into its place within each vertex.
template <typename Vector, typename Pack>
void fill(std::vector<quint64> &texels, const std::vector<PlacedMesh> &meshes, int stride, int place,
    QVector<Vector> MeshData::*array, const Vector &missing, Pack pack)
{
    if (place < 0)
        return;
    for (const PlacedMesh &placed : meshes) {
        const QVector<Vector> &own = placed.mesh->*array;
        const int count = placed.mesh->positions.size();
        for (int i = 0; i < count; ++i)
            texels[size_t((placed.firstVertex + i) * stride + place)] = pack(own.isEmpty() ? missing : own[i]);
    }
}

} // namespace

VertexExtras packVertexExtras(const std::vector<PlacedMesh> &meshes, qint64 vertexCount)
{
    VertexExtras extras;
    const auto placeOf = [&](const auto MeshData::*array) {
        for (const PlacedMesh &placed : meshes) {
            if (!(placed.mesh->*array).isEmpty())
                return extras.stride++;
        }
        return -1;
    };
    extras.colour = placeOf(&MeshData::colours);
    extras.texCoord1 = placeOf(&MeshData::texCoords1);
    extras.tangent = placeOf(&MeshData::tangents);
    if (extras.stride == 0)
        return extras;

    std::vector<quint64> texels(size_t(vertexCount * extras.stride));
    fill(texels, meshes, extras.stride, extras.colour, &MeshData::colours, QVector4D(1, 1, 1, 1), packedColour);
    fill(texels, meshes, extras.stride, extras.texCoord1, &MeshData::texCoords1, QVector2D(), packedTexCoord);
    fill(texels, meshes, extras.stride, extras.tangent, &MeshData::tangents, QVector4D(), packedTangent);
    extras.buffer = QSharedPointer<BufferObject>::create();
    extras.buffer->uploadBytes(texels.data(), long(texels.size() * sizeof(quint64)), GL_STATIC_DRAW);
    return extras;
}

void addExtraAttributes(const VertexExtras &extras, VertexArrayObject &vao)
{
    const int stride = extras.stride * texelBytes;
    if (extras.colour >= 0) {
        vao.uploadInterleaved(QStringLiteral("va_Color"), extras.buffer,
            {4, GL_UNSIGNED_SHORT, true, stride, extras.colour * texelBytes});
    }
    if (extras.texCoord1 >= 0) {
        vao.uploadInterleaved(
            QStringLiteral("va_TexCoord1"), extras.buffer, {2, GL_FLOAT, false, stride, extras.texCoord1 * texelBytes});
    }
    if (extras.tangent >= 0) {
        vao.uploadInterleaved(
            QStringLiteral("va_Tangent"), extras.buffer, {4, GL_SHORT, true, stride, extras.tangent * texelBytes});
    }
}

} // namespace Velmora::Kvz
