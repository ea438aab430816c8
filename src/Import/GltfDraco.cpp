// SPDX-License-Identifier: MIT
#include "GltfDraco.h"

#include "GltfLibrary.h"
#include "ImportBudget.h"

#include <draco/compression/decode.h>
#include <draco/compression/point_cloud/point_cloud_decoder.h>
#include <draco/core/varint_decoding.h>
#include <draco/mesh/mesh.h>
#include <draco/metadata/metadata_decoder.h>

#include <algorithm>
#include <exception>
#include <limits>

namespace Velmora::Kvz {

namespace {

/// What data declares before the decoder makes room for it.
struct Declared
{
    quint32 vertices = 0;
    quint32 faces = 0;
    quint8 separateAttributes = 0; ///< With corners of their own; each costs as much as the triangles.

    /// As limits count it. In closed surfaces there are two triangles to a vertex.
    qint64 cost() const { return std::max<qint64>(vertices, faces / 2); }
};

bool readDeclared(draco::DecoderBuffer buffer, Declared *declared)
{
    draco::DracoHeader header;
    if (!draco::PointCloudDecoder::DecodeHeader(&buffer, &header).ok() || header.version_major != 2
        || header.version_minor != 2 || header.encoder_type != draco::TRIANGULAR_MESH)
        return false;
    draco::GeometryMetadata metadata;
    if ((header.flags & METADATA_FLAG_MASK) != 0
        && !draco::MetadataDecoder().DecodeGeometryMetadata(&buffer, &metadata))
        return false;
    if (header.encoder_method == draco::MESH_SEQUENTIAL_ENCODING)
        return draco::DecodeVarint(&declared->faces, &buffer) && draco::DecodeVarint(&declared->vertices, &buffer);
    quint8 traversal = 0;
    return buffer.Decode(&traversal) && draco::DecodeVarint(&declared->vertices, &buffer)
        && draco::DecodeVarint(&declared->faces, &buffer) && buffer.Decode(&declared->separateAttributes);
}

template <typename T>
QByteArray valuesAs(const draco::Mesh &mesh, const draco::PointAttribute &attribute, int components)
{
    const qint64 size = qint64(mesh.num_points()) * components * qint64(sizeof(T));
    const bool isMapped = attribute.is_mapping_identity() || attribute.indices_map_size() >= mesh.num_points();
    if (size > std::numeric_limits<int>::max() || !isMapped)
        return {};
    QByteArray bytes(int(size), Qt::Uninitialized);
    auto *to = reinterpret_cast<T *>(bytes.data());
    for (draco::PointIndex point(0); point < mesh.num_points(); ++point, to += components) {
        const draco::AttributeValueIndex index = attribute.mapped_index(point);
        if (index >= attribute.size() || !attribute.ConvertValue<T>(index, qint8(components), to))
            return {};
    }
    return bytes;
}

} // namespace

DracoMesh::DracoMesh() = default;
DracoMesh::~DracoMesh() = default;

bool DracoMesh::decode(const QByteArray &data, ImportBudget *budget)
{
    constexpr int mostSeparateAttributes = 16; // glTF knows fewer kinds
    constexpr quint32 mostFaces = std::numeric_limits<int>::max() / 3;
    draco::DecoderBuffer buffer;
    buffer.Init(data.constData(), size_t(data.size()));
    Declared declared;
    try { // damaged data may ask for more memory than there is
        if (!readDeclared(buffer, &declared) || declared.separateAttributes > mostSeparateAttributes
            || !budget->takeVertices(declared.cost()))
            return false;
        auto result = draco::Decoder().DecodeMeshFromBuffer(&buffer);
        m_mesh = result.ok() ? std::move(result).value() : nullptr;
    } catch (const std::exception &) {
        return false;
    }
    if (!m_mesh || m_mesh->num_faces() == 0 || m_mesh->num_faces() > mostFaces
        || m_mesh->num_points() > quint32(std::numeric_limits<int>::max()))
        return false;
    // Corners with attributes of their own make more vertices than were declared.
    return budget->isTimeLeft() && budget->takeVertices(std::max<qint64>(m_mesh->num_points() - declared.cost(), 0));
}

int DracoMesh::vertexCount() const
{
    return m_mesh ? int(m_mesh->num_points()) : 0;
}

QVector<quint32> DracoMesh::corners() const
{
    QVector<quint32> corners;
    corners.reserve(m_mesh ? int(m_mesh->num_faces() * 3) : 0);
    for (draco::FaceIndex face(0); m_mesh && face < m_mesh->num_faces(); ++face) {
        for (const draco::PointIndex &corner : m_mesh->face(face))
            corners.append(corner.value());
    }
    return corners;
}

QByteArray DracoMesh::values(int attribute, int componentType, int components) const
{
    const draco::PointAttribute *const source =
        m_mesh && attribute >= 0 ? m_mesh->GetAttributeByUniqueId(quint32(attribute)) : nullptr;
    if (!source || components < 1 || components > 4)
        return {};
    switch (componentType) {
    case TINYGLTF_COMPONENT_TYPE_FLOAT:
        return valuesAs<float>(*m_mesh, *source, components);
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
        return valuesAs<quint8>(*m_mesh, *source, components);
    case TINYGLTF_COMPONENT_TYPE_BYTE:
        return valuesAs<qint8>(*m_mesh, *source, components);
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT:
        return valuesAs<quint16>(*m_mesh, *source, components);
    case TINYGLTF_COMPONENT_TYPE_SHORT:
        return valuesAs<qint16>(*m_mesh, *source, components);
    default:
        return {};
    }
}

} // namespace Velmora::Kvz
