// SPDX-License-Identifier: MIT
#include <Scene/GPUModelBuilder.h>

#include "GPUModelPrivate.h"
#include "SurfaceRows.h"
#include "VertexExtrasBuffer.h"

#include <Core/Log.h>
#include <GL/AutoBinder.h>
#include <GL/OpenGLDeviceContext.h>
#include <GL/TextureManager.h>
#include <Scene/InstanceDataRegistry.h>

#include <GL/TrackedGL.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace Velmora::Kvz {

namespace {

/// A row of material data, as the plan "OBJMaterial" reads it.
struct MaterialRow
{
    float kd[3];
    float d;
    float ks[3];
    float ns;
    float mapKd;
    float mapKs;
    float number;
    float unused;
};

static_assert(sizeof(QVector3D) == 3 * sizeof(float) && sizeof(QVector2D) == 2 * sizeof(float),
    "vertex arrays are uploaded as they are");

int refuse(const QString &what, const QString &reason)
{
    KVZ_WARNING(QStringLiteral("%1 is refused: %2").arg(what, reason));
    return -1;
}

template <typename Vector> int firstNotFinite(const QVector<Vector> &vectors)
{
    const auto found =
        std::find_if(vectors.begin(), vectors.end(), [](const Vector &vector) { return !allFinite(vector); });
    return found == vectors.end() ? -1 : int(found - vectors.begin());
}

/// What makes a mesh unfit; empty when nothing does.
QString flawOf(const MeshData &mesh)
{
    const int vertexCount = mesh.positions.size();
    const int cornerCount = mesh.indices.isEmpty() ? vertexCount : mesh.indices.size();
    if (cornerCount == 0)
        return QStringLiteral("it has no triangles");
    if (cornerCount % 3 != 0) {
        return QStringLiteral("%1 %2 are no whole number of triangles")
            .arg(cornerCount)
            .arg(mesh.indices.isEmpty() ? QStringLiteral("positions without indices") : QStringLiteral("indices"));
    }
    if (!mesh.normals.isEmpty() && mesh.normals.size() != vertexCount)
        return QStringLiteral("it has %1 normals for %2 positions").arg(mesh.normals.size()).arg(vertexCount);
    if (!mesh.texCoords.isEmpty() && mesh.texCoords.size() != vertexCount) {
        return QStringLiteral("it has %1 texture coordinates for %2 positions")
            .arg(mesh.texCoords.size())
            .arg(vertexCount);
    }
    for (int i = 0; i < mesh.indices.size(); ++i) {
        if (mesh.indices[i] >= quint32(vertexCount)) {
            return QStringLiteral("index %1 is %2, past the last of %3 positions")
                .arg(i)
                .arg(mesh.indices[i])
                .arg(vertexCount);
        }
    }
    const auto countFlaw = [vertexCount](int count, const char *what) {
        return count == 0 || count == vertexCount
            ? QString()
            : QStringLiteral("it has %1 %2 for %3 positions").arg(count).arg(QLatin1String(what)).arg(vertexCount);
    };
    for (const QString &flaw : {countFlaw(mesh.texCoords1.size(), "second texture coordinates"),
             countFlaw(mesh.colours.size(), "colours"), countFlaw(mesh.tangents.size(), "tangents")}) {
        if (!flaw.isEmpty())
            return flaw;
    }
    const int position = firstNotFinite(mesh.positions);
    if (position >= 0)
        return QStringLiteral("position %1 is not finite").arg(position);
    const int normal = firstNotFinite(mesh.normals);
    if (normal >= 0)
        return QStringLiteral("normal %1 is not finite").arg(normal);
    const int texCoord = firstNotFinite(mesh.texCoords);
    if (texCoord >= 0)
        return QStringLiteral("texture coordinate %1 is not finite").arg(texCoord);
    const int texCoord1 = firstNotFinite(mesh.texCoords1);
    if (texCoord1 >= 0)
        return QStringLiteral("second texture coordinate %1 is not finite").arg(texCoord1);
    const int colour = firstNotFinite(mesh.colours);
    if (colour >= 0)
        return QStringLiteral("colour %1 is not finite").arg(colour);
    const int tangent = firstNotFinite(mesh.tangents);
    if (tangent >= 0)
        return QStringLiteral("tangent %1 is not finite").arg(tangent);
    return {};
}

QString flawOf(const MaterialData &material)
{
    if (!allFinite(material.kd))
        return QStringLiteral("kd is not finite");
    if (!allFinite(material.ks))
        return QStringLiteral("ks is not finite");
    if (!std::isfinite(material.ns))
        return QStringLiteral("ns is not finite");
    if (!std::isfinite(material.d))
        return QStringLiteral("d is not finite");
    if (!allFinite(material.emission))
        return QStringLiteral("emission is not finite");
    if (material.physical) {
        const PhysicalMaterialData &physical = *material.physical;
        if (!allFinite(physical.baseColour) || !allFinite(physical.specularColour) || !allFinite(physical.sheenColour))
            return QStringLiteral("a colour of its physical part is not finite");
        for (const float value : {physical.metallic, physical.roughness, physical.normalScale,
                 physical.occlusionStrength, physical.refractiveIndex, physical.specular, physical.clearcoat,
                 physical.clearcoatRoughness, physical.sheenRoughness}) {
            if (!std::isfinite(value))
                return QStringLiteral("a number of its physical part is not finite");
        }
    }
    if (!std::isfinite(material.alphaCutoff))
        return QStringLiteral("alphaCutoff is not finite");
    return {};
}

/// Where the meshes of a model lie in its buffers. Meshes that no item draws take no room.
struct Layout
{
    struct Place
    {
        bool isUsed = false;
        qint64 firstVertex = 0;
        qint64 firstIndex = 0;
        qint64 indexCount = 0;
    };

    QVector<Place> places; ///< By mesh.
    qint64 vertexCount = 0;
    qint64 indexCount = 0;
    bool isIndexed = false; ///< Meshes without indices get some when another has them.
};

/// One vertex array of all used meshes, one after the other; arrays that a mesh lacks are zeros.
template <typename Vector>
QSharedPointer<BufferObject> createVertexBuffer(
    const Layout &layout, const QVector<MeshData> &meshes, QVector<Vector> MeshData::*array)
{
    // Gathered first: drivers warn of a static buffer that is filled piece by piece.
    std::vector<Vector> vectors(size_t(layout.vertexCount));
    for (int i = 0; i < meshes.size(); ++i) {
        if (!layout.places[i].isUsed)
            continue;
        const QVector<Vector> &own = meshes[i].*array;
        std::copy(own.begin(), own.end(), vectors.begin() + layout.places[i].firstVertex);
    }
    const auto buffer = QSharedPointer<BufferObject>::create();
    buffer->uploadBytes(vectors.data(), long(vectors.size() * sizeof(Vector)), GL_STATIC_DRAW);
    return buffer;
}

QSharedPointer<BufferObject> createIndexBuffer(const Layout &layout, const QVector<MeshData> &meshes)
{
    std::vector<quint32> indices;
    indices.reserve(size_t(layout.indexCount));
    for (int i = 0; i < meshes.size(); ++i) {
        const Layout::Place &place = layout.places[i];
        if (!place.isUsed)
            continue;
        for (qint64 k = 0; k < place.indexCount; ++k) {
            const quint32 index = meshes[i].indices.isEmpty() ? quint32(k) : meshes[i].indices[int(k)];
            indices.push_back(quint32(place.firstVertex) + index);
        }
    }
    const auto buffer = QSharedPointer<BufferObject>::create();
    buffer->setTarget(GL_ELEMENT_ARRAY_BUFFER);
    buffer->uploadGLuintData(indices.data(), int(indices.size()), GL_STATIC_DRAW);
    return buffer;
}

/// Where the meshes that are used put their vertices, as VertexExtrasBuffer takes them.
std::vector<PlacedMesh> placedMeshes(const Layout &layout, const QVector<MeshData> &meshes)
{
    std::vector<PlacedMesh> placed;
    for (int i = 0; i < meshes.size(); ++i) {
        if (layout.places[i].isUsed)
            placed.push_back({&meshes[i], layout.places[i].firstVertex});
    }
    return placed;
}

QSharedPointer<DrawBuffers> createGeometry(
    const Layout &layout, const QVector<MeshData> &meshes, const VertexExtras &extras)
{
    const QSharedPointer<OpenGLDeviceContext> device = OpenGLDeviceContext::current();
    const QSharedPointer<VertexArrayObject> vao = device->createVertexArrayObject();
    vao->upload(QStringLiteral("va_Vertex"), createVertexBuffer(layout, meshes, &MeshData::positions), 3, GL_FLOAT);
    vao->upload(QStringLiteral("va_Normal"), createVertexBuffer(layout, meshes, &MeshData::normals), 3, GL_FLOAT);
    vao->upload(QStringLiteral("va_TexCoord"), createVertexBuffer(layout, meshes, &MeshData::texCoords), 2, GL_FLOAT);
    addExtraAttributes(extras, *vao);
    {
        AutoBinder binder(vao);
        vao->enableStandardArrays();
    }
    const QSharedPointer<DrawBuffers> geometry = device->createDrawBuffers();
    geometry->setVAO(vao);
    geometry->setPrimitiveType(GL_TRIANGLES);
    geometry->setVertexCount(unsigned(layout.vertexCount));
    if (layout.isIndexed)
        geometry->setIndexedDraw(createIndexBuffer(layout, meshes), int(layout.indexCount), GL_UNSIGNED_INT);
    return geometry;
}

Layout layOut(const QVector<MeshData> &meshes, const std::vector<bool> &isUsed)
{
    Layout layout;
    layout.places.resize(meshes.size());
    for (int i = 0; i < meshes.size(); ++i) {
        if (!isUsed[size_t(i)])
            continue;
        const MeshData &mesh = meshes[i];
        layout.isIndexed |= !mesh.indices.isEmpty();
        const qint64 count = mesh.indices.isEmpty() ? mesh.positions.size() : mesh.indices.size();
        layout.places[i] = {true, layout.vertexCount, layout.indexCount, count};
        layout.vertexCount += mesh.positions.size();
        layout.indexCount += count;
    }
    return layout;
}

MaterialRow rowOf(const MaterialData &material, int mapKd, int mapKs, int number)
{
    return {{material.kd.x(), material.kd.y(), material.kd.z()}, material.d,
        {material.ks.x(), material.ks.y(), material.ks.z()}, material.ns, float(mapKd), float(mapKs), float(number), 0};
}

constexpr int imagesOfMaterial = 6;
/// With more the shading of lists in physically based light would need more than 16 textures.
constexpr int arraysForPhysicalLight = 4;

/// The images of each material, null ones for a material that no item uses.
QVector<ManagedImage> imagesOf(const QVector<MaterialData> &materials, const std::vector<bool> &isUsed)
{
    QVector<ManagedImage> images;
    for (int i = 0; i < materials.size(); ++i) {
        const MaterialData &material = materials[i];
        const auto add = [&](const QImage &image, const ImageSampling &sampling, ImageUse use) {
            const bool isNearest = sampling.magnification == ImageSampling::Nearest;
            images.append({isUsed[size_t(i)] ? image : QImage(), use, isNearest, sampling.imageName});
        };
        add(material.mapKd, material.mapKdSampling, ImageUse::Colour);
        add(material.mapKs, material.mapKsSampling, ImageUse::Colour);
        add(material.mapEmission, material.mapEmissionSampling, ImageUse::Colour);
        const PhysicalMaterialData physical = material.physical.value_or(PhysicalMaterialData());
        add(physical.mapMetallicRoughness, physical.mapMetallicRoughnessSampling, ImageUse::Data);
        add(physical.mapNormal, physical.mapNormalSampling, ImageUse::Data);
        add(physical.mapOcclusion, physical.mapOcclusionSampling, ImageUse::Data);
    }
    return images;
}

Bounds boundsOf(const MeshData &mesh)
{
    Bounds bounds;
    for (const QVector3D &position : mesh.positions)
        bounds.include(position);
    return bounds;
}

/// What this driver cannot hold; empty when it holds all.
QString obstacleTo(int itemCount, const Layout &layout)
{
    const InstanceDataRegistry &registry = InstanceDataRegistry::Instance();
    const int texelsPerItem = std::max({registry.getPlan(QStringLiteral("InstanceInfo")).stride(),
        registry.getPlan(QStringLiteral("OBJMaterial")).stride(),
        registry.getPlan(QStringLiteral("SurfaceMaterial")).stride(),
        registry.getPlan(QStringLiteral("PhysicalMaterial")).stride(),
        int(sizeof(DrawElementsIndirectCommand) / sizeof(quint32))});
    const int itemLimit = BufferTexture::maximumTexels() / texelsPerItem;
    if (itemCount > itemLimit) {
        return QStringLiteral("A model of %1 items cannot be built: this driver's buffer textures hold the data of %2")
            .arg(itemCount)
            .arg(itemLimit);
    }
    constexpr qint64 countLimit = std::numeric_limits<int>::max();
    if (layout.vertexCount > countLimit || layout.indexCount > countLimit) {
        return QStringLiteral("A model of %1 vertices and %2 indices cannot be built: OpenGL draws at most %3 of each")
            .arg(layout.vertexCount)
            .arg(layout.indexCount)
            .arg(countLimit);
    }
    return {};
}

} // namespace

int GPUModelBuilder::addMesh(const MeshData &mesh)
{
    const QString flaw = flawOf(mesh);
    if (!flaw.isEmpty())
        return refuse(QStringLiteral("Mesh %1").arg(m_meshes.size()), flaw);
    m_meshes.append(mesh);
    return m_meshes.size() - 1;
}

int GPUModelBuilder::addMaterial(const MaterialData &material)
{
    const QString flaw = flawOf(material);
    if (!flaw.isEmpty())
        return refuse(QStringLiteral("Material %1").arg(m_materials.size()), flaw);
    m_materials.append(material);
    return m_materials.size() - 1;
}

int GPUModelBuilder::addItem(
    int mesh, int material, const QMatrix4x4 &modelMatrix, quint64 featureFlags, ItemOption option)
{
    const QString what = QStringLiteral("Item %1").arg(m_items.size());
    if (mesh < 0 || mesh >= m_meshes.size())
        return refuse(what, QStringLiteral("there is no mesh %1; %2 were added").arg(mesh).arg(m_meshes.size()));
    if (material < 0 || material >= m_materials.size()) {
        return refuse(
            what, QStringLiteral("there is no material %1; %2 were added").arg(material).arg(m_materials.size()));
    }
    if (!allFinite(modelMatrix))
        return refuse(what, QStringLiteral("its matrix is not finite"));
    if (option == ClassifyTransparency && isTransparent(mesh, material))
        featureFlags |= GPUModel::Transparent;
    m_items.append({mesh, material, modelMatrix, featureFlags});
    return m_items.size() - 1;
}

void GPUModelBuilder::setImageBudget(qint64 bytes)
{
    m_imageBudget = std::max<qint64>(bytes, 1);
}

bool GPUModelBuilder::isTransparent(int mesh, int material)
{
    const auto key = qMakePair(mesh, material);
    const auto known = m_isTransparent.constFind(key);
    if (known != m_isTransparent.constEnd())
        return known.value();
    // Images are looked at once, however many items share them.
    const bool result = letsLightThrough(m_materials[material], m_meshes[mesh]);
    m_isTransparent.insert(key, result);
    return result;
}

QSharedPointer<GPUModel> GPUModelBuilder::build() const
{
    if (!OpenGLDeviceContext::current()) {
        KVZ_WARNING(QStringLiteral("A model cannot be built: no OpenGL context is current"));
        return {};
    }
    std::vector<bool> isMeshUsed(size_t(m_meshes.size()));
    std::vector<bool> isMaterialUsed(size_t(m_materials.size()));
    for (const Item &item : m_items) {
        isMeshUsed[size_t(item.mesh)] = true;
        isMaterialUsed[size_t(item.material)] = true;
    }
    const Layout layout = layOut(m_meshes, isMeshUsed);
    const QString obstacle = obstacleTo(m_items.size(), layout);
    if (!obstacle.isEmpty()) {
        KVZ_WARNING(obstacle);
        return {};
    }

    const QSharedPointer<GPUModel> model(new GPUModel);
    GPUModel::Private &data = *model->d;

    const bool hasPhysical = std::any_of(m_materials.begin(), m_materials.end(),
        [](const MaterialData &material) { return material.physical.has_value(); });
    const QVector<int> handles = data.images.addAll(imagesOf(m_materials, isMaterialUsed), m_imageBudget,
        hasPhysical ? arraysForPhysicalLight : ManagedTextures::arrayCount);
    std::vector<MaterialRow> materials(size_t(m_materials.size()));
    std::vector<SurfaceRow> surfaces(size_t(m_materials.size()));
    std::vector<PhysicalRow> physicals(size_t(m_materials.size()));
    for (int i = 0; i < m_materials.size(); ++i) {
        const int *const handle = handles.constData() + imagesOfMaterial * i;
        const SurfaceImages images{handle[0], handle[1], handle[2]};
        physicals[size_t(i)] = physicalRow(m_materials[i], {handle[0], handle[3], handle[4], handle[5], handle[2]}, i);
        surfaces[size_t(i)] = surfaceRow(m_materials[i], images, i);
        materials[size_t(i)] = rowOf(m_materials[i], images.kd, images.ks, i);
    }
    std::vector<Bounds> meshBounds;
    for (const MeshData &mesh : m_meshes)
        meshBounds.push_back(boundsOf(mesh));

    constexpr int rowFloats = sizeof(MaterialRow) / sizeof(float);
    data.materialValues.resize(m_items.size() * rowFloats);
    float *nextRow = data.materialValues.data();
    std::vector<SurfaceRow> surfaceRows;
    surfaceRows.reserve(size_t(m_items.size()));
    QVector<DrawElementsIndirectCommand> commands;
    for (const Item &item : m_items) {
        const Layout::Place &place = layout.places[item.mesh];
        const GPUModel::Private::Range range{
            quint32(layout.isIndexed ? place.firstIndex : place.firstVertex), quint32(place.indexCount)};
        data.addItem(range, meshBounds[size_t(item.mesh)], item.modelMatrix, item.featureFlags);
        std::memcpy(nextRow, &materials[size_t(item.material)], sizeof(MaterialRow));
        nextRow += rowFloats;
        surfaceRows.push_back(surfaces[size_t(item.material)]);
        data.surfaceFeatures |= surfaceFeatures(surfaceRows.back());
        data.meshNumbers.append(item.mesh);
        data.itemMaterials.append(item.material);
        data.physicalFeatures |= physicalFeatures(physicals[size_t(item.material)]);
        commands.append({range.count, 1, range.first, 0, 0});
    }
    data.finish();
    data.materialRows.upload(data.materialValues.constData(), data.materialValues.size() * long(sizeof(float)));
    data.physicalRows.set(std::move(physicals), data.itemMaterials);
    data.surfaceRows.upload(surfaceRows.data(), long(surfaceRows.size() * sizeof(SurfaceRow)));
    data.surfaceValues = std::move(surfaces);
    if (!m_items.isEmpty()) {
        data.extras = packVertexExtras(placedMeshes(layout, m_meshes), layout.vertexCount);
        data.geometry = createGeometry(layout, m_meshes, data.extras);
        data.geometry->setDrawElementsIndirectCommands(commands.constData(), commands.size());
    }
    return model;
}

} // namespace Velmora::Kvz
