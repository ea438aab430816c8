// SPDX-License-Identifier: MIT
#include <Import/ImportedScene.h>

#include "BakedMesh.h"

#include <QtCore/QHash>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <tuple>

namespace Velmora::Kvz {

namespace {

bool isLitFromBothSides(const ImportedMaterial &material)
{
    return material.isDoubleSided || !material.saysSides;
}

QImage imageOf(const ImportedTexture &texture, const QVector<ImportedImage> &images)
{
    return texture.image >= 0 && texture.image < images.size() ? images[texture.image].image : QImage();
}

/// What passes with physically based light draw, but for the sampling of its images.
PhysicalMaterialData physicalOf(const ImportedMaterial &material, const QVector<ImportedImage> &images)
{
    PhysicalMaterialData physical = physicalFrom(material);
    if (material.isPhysical) {
        physical.baseColour = material.baseColour.toVector3D();
        physical.metallic = material.metallic;
        physical.roughness = material.roughness;
        physical.refractiveIndex = material.refractiveIndex;
        physical.specular = material.specular;
        physical.specularColour = material.specularColour;
        physical.clearcoat = material.clearcoat;
        physical.clearcoatRoughness = material.clearcoatRoughness;
        physical.sheenColour = material.sheenColour;
        physical.sheenRoughness = material.sheenRoughness;
        physical.mapMetallicRoughness = imageOf(material.metallicRoughnessTexture, images);
        physical.hasDisplayColours = false;
    }
    physical.normalScale = material.normalScale;
    physical.occlusionStrength = material.occlusionStrength;
    physical.mapNormal = imageOf(material.normalTexture, images);
    physical.mapOcclusion = imageOf(material.occlusionTexture, images);
    return physical;
}

/// The material with its textures where a builder takes them.
MaterialData surfaceOf(
    const ImportedMaterial &material, const QVector<ImportedImage> &images, const SceneBuildOptions &options)
{
    MaterialData result = material;
    const auto samplingOf = [&](const ImportedTexture &texture) {
        ImageSampling sampling = texture;
        if (texture.image >= 0 && texture.image < images.size())
            sampling.imageName = images[texture.image].name;
        return sampling;
    };
    result.mapEmission = imageOf(material.emissionTexture, images);
    result.mapKdSampling = samplingOf(material.baseColourTexture);
    result.mapKsSampling = samplingOf(material.specularTexture);
    result.mapEmissionSampling = samplingOf(material.emissionTexture);
    if (options.forPhysicalPasses) {
        result.physical = physicalOf(material, images);
        result.physical->mapMetallicRoughnessSampling = samplingOf(material.metallicRoughnessTexture);
        result.physical->mapNormalSampling = samplingOf(material.normalTexture);
        result.physical->mapOcclusionSampling = samplingOf(material.occlusionTexture);
    }
    // d says nothing of masks, whose opacity is the base colour's: compared with a cutoff raised by as much.
    if (material.alphaMode == MaterialData::Mask)
        result.alphaCutoff = material.alphaCutoff / std::max(material.baseColour.w(), 1e-6f);
    result.isLitFromBothSides = isLitFromBothSides(material);
    return result;
}

/// A material that reads its images from coordinates that are made for that of its base colour.
MaterialData withBakedCoordinates(const MaterialData &material)
{
    MaterialData result = material;
    const ImageSampling texture = material.mapKdSampling;
    QVector<ImageSampling *> samplings{&result.mapKdSampling, &result.mapKsSampling, &result.mapEmissionSampling};
    if (result.physical)
        samplings << &result.physical->mapMetallicRoughnessSampling << &result.physical->mapNormalSampling
                  << &result.physical->mapOcclusionSampling;
    for (ImageSampling *const sampling : samplings)
        *sampling = fromCoordinatesOf(texture, *sampling);
    return result;
}

/// What a builder calls the meshes and materials of a scene; -1 for those that it refused.
struct BuilderNumbers
{
    QVector<int> meshes;
    QVector<int> materials;

    /// Whether a scene has the mesh and material of an item.
    bool isInRange(const ImportedItem &item) const
    {
        return item.mesh >= 0 && item.mesh < meshes.size() && item.material >= 0 && item.material < materials.size();
    }
    /// Whether the builder has both, too.
    bool hasAll(const ImportedItem &item) const
    {
        return isInRange(item) && meshes[item.mesh] >= 0 && materials[item.material] >= 0;
    }
};

/// Makes the meshes that the basic passes need, one for all items that are stretched alike and read the same coordinates.
class Baker
{
public:
    Baker(const ImportedScene &scene, const BuilderNumbers &numbers, GPUModelBuilder *builder)
        : m_scene(scene),
          m_numbers(numbers),
          m_builder(builder)
    { }

    void addItem(const ImportedItem &item)
    {
        QMatrix4x4 stretch;
        const bool isStretched = splitStretch(item.modelMatrix, &stretch);
        const bool isMapped = hasOwnCoordinates(m_scene.materials[item.material].baseColourTexture);
        const int material = m_numbers.materials[item.material];
        if (!isStretched && !isMapped) {
            m_builder->addItem(m_numbers.meshes[item.mesh], material, item.modelMatrix, item.featureFlags);
            return;
        }
        const Key key(item.mesh, isMapped ? item.material : -1, isStretched ? rounded(stretch) : Rounded());
        auto known = m_meshes.find(key);
        if (known == m_meshes.end()) {
            MeshData mesh = m_scene.meshes[item.mesh];
            if (isMapped)
                mesh = withCoordinates(mesh, m_scene.materials[item.material].baseColourTexture);
            if (isStretched)
                mesh = stretched(mesh, stretch);
            known = m_meshes.emplace(key, Baked{m_builder->addMesh(mesh), stretch}).first;
        }
        const QMatrix4x4 matrix =
            isStretched ? withoutStretch(item.modelMatrix, known->second.stretch) : item.modelMatrix;
        if (known->second.mesh >= 0)
            m_builder->addItem(known->second.mesh, material, matrix, item.featureFlags);
    }

private:
    /// A stretch to five digits.
    using Rounded = std::array<float, 9>;
    using Key = std::tuple<int, int, Rounded>;
    struct Baked
    {
        int mesh;
        QMatrix4x4 stretch;
    };

    static Rounded rounded(const QMatrix4x4 &stretch)
    {
        float largest = 0;
        for (int i = 0; i < 9; ++i)
            largest = std::max(largest, std::abs(stretch(i / 3, i % 3)));
        const double unit = std::pow(10.0, std::floor(std::log10(double(largest))) - 5);
        Rounded result;
        for (int i = 0; i < 9; ++i)
            result[size_t(i)] = float(std::round(double(stretch(i / 3, i % 3)) / unit) * unit);
        return result;
    }

    const ImportedScene &m_scene;
    const BuilderNumbers &m_numbers;
    GPUModelBuilder *m_builder;
    std::map<Key, Baked> m_meshes;
};

/// The bounds of all items in world space; low above high without any.
struct SceneBounds
{
    QVector3D low{1, 1, 1};
    QVector3D high{-1, -1, -1};

    explicit SceneBounds(const ImportedScene &scene)
    {
        constexpr float most = std::numeric_limits<float>::max();
        low *= most;
        high *= most;
        for (const ImportedItem &item : scene.items) {
            for (const QVector3D &position : scene.meshes[item.mesh].positions) {
                const QVector3D point = item.modelMatrix.map(position);
                for (int axis = 0; axis < 3; ++axis) {
                    low[axis] = std::min(low[axis], point[axis]);
                    high[axis] = std::max(high[axis], point[axis]);
                }
            }
        }
    }
};

} // namespace

QVector<QVector3D> ImportedScene::points() const
{
    QVector<QVector3D> points;
    for (const ImportedItem &item : items) {
        for (const QVector3D &position : meshes[item.mesh].positions)
            points.append(item.modelMatrix.map(position));
    }
    return points;
}

bool ImportedScene::hasMasks() const
{
    return std::any_of(items.begin(), items.end(), [this](const ImportedItem &item) {
        return item.material >= 0 && item.material < materials.size()
            && materials[item.material].alphaMode == MaterialData::Mask;
    });
}

void ImportedScene::releaseImages()
{
    for (ImportedImage &image : images)
        image.image = QImage();
    for (ImportedMaterial &material : materials) {
        for (QImage *const image : {&material.mapKd, &material.mapKs, &material.mapEmission})
            *image = QImage();
    }
}

QSharedPointer<GPUModel> ImportedScene::build(const SceneBuildOptions &options) const
{
    GPUModelBuilder builder;
    builder.setImageBudget(options.imageBudget);
    BuilderNumbers numbers;
    for (const ImportedMesh &mesh : meshes)
        numbers.meshes.append(builder.addMesh(mesh));
    for (const ImportedMaterial &material : materials) {
        const MaterialData surface = surfaceOf(material, images, options);
        numbers.materials.append(builder.addMaterial(options.forBasicPasses ? withBakedCoordinates(surface) : surface));
    }
    // Front and back of a body that is scaled flat are in one place, where either may be drawn: it is lit as it is seen.
    QHash<int, QVector3D> extents; // by mesh
    QHash<int, int> flatMaterials; // of the builder, by material
    const auto materialOf = [&](const ImportedItem &item) {
        const ImportedMaterial &material = materials[item.material];
        if (isLitFromBothSides(material))
            return numbers.materials[item.material];
        if (!extents.contains(item.mesh))
            extents.insert(item.mesh, extentOf(meshes[item.mesh]));
        if (!flattens(item.modelMatrix, extents[item.mesh]))
            return numbers.materials[item.material];
        if (!flatMaterials.contains(item.material)) {
            MaterialData surface = surfaceOf(material, images, options);
            surface.isLitFromBothSides = true;
            flatMaterials.insert(item.material, builder.addMaterial(surface));
        }
        return flatMaterials[item.material];
    };
    Baker baker(*this, numbers, &builder);
    for (const ImportedItem &item : items) {
        if (!numbers.isInRange(item))
            builder.addItem(-1, -1, item.modelMatrix, item.featureFlags); // says that it is refused
        else if (!numbers.hasAll(item))
            continue; // the builder has said why
        else if (options.forBasicPasses)
            baker.addItem(item);
        else
            builder.addItem(numbers.meshes[item.mesh], materialOf(item), item.modelMatrix, item.featureFlags);
    }
    return builder.build();
}

bool scaleInto(ImportedScene *scene, float largestExtent)
{
    const SceneBounds bounds(*scene);
    const QVector3D extent = bounds.high - bounds.low;
    const float largest = std::max({extent.x(), extent.y(), extent.z()});
    const float factor = largestExtent / largest;
    if (scene->items.isEmpty() || !(largest > 0) || !(factor > 0) || !std::isfinite(factor)
        || !std::isfinite(1 / factor))
        return false;
    QMatrix4x4 scale;
    scale.scale(factor);
    const auto moved = [factor](QMatrix4x4 matrix) {
        matrix.setColumn(3, QVector4D(matrix.column(3).toVector3D() * factor, 1));
        return matrix;
    };
    for (ImportedItem &item : scene->items)
        item.modelMatrix = scale * item.modelMatrix;
    for (QVector<ImportedPrimitives> *const sets : {&scene->pointSets, &scene->lineSets}) {
        for (ImportedPrimitives &set : *sets)
            set.modelMatrix = scale * set.modelMatrix;
    }
    for (ImportedNode &node : scene->nodes) {
        if (node.parent < 0)
            node.matrix = scale * node.matrix;
    }
    for (ImportedAnimation &animation : scene->animations) {
        for (ImportedAnimation::Channel &channel : animation.channels) {
            const bool isOfRoot = channel.node >= 0 && scene->nodes[channel.node].parent < 0;
            for (QVector4D &value : channel.values)
                value *= isOfRoot && channel.path != ImportedAnimation::Rotation ? factor : 1;
        }
    }
    for (ImportedCamera &camera : scene->cameras) {
        camera.worldMatrix = moved(camera.worldMatrix);
        camera.nearPlane *= factor;
        camera.farPlane *= factor;
        camera.halfExtent *= factor;
    }
    for (ImportedLight &light : scene->lights) {
        light.worldMatrix = moved(light.worldMatrix);
        light.range *= factor;
        // What arrives of a lamp falls with the square of its distance.
        if (light.type == ImportedLight::Point || light.type == ImportedLight::Spot)
            light.intensity *= factor * factor;
    }
    scene->unit /= factor;
    return true;
}

void addFloor(ImportedScene *scene)
{
    const SceneBounds bounds(*scene);
    const QVector3D low = bounds.low;
    const QVector3D high = bounds.high;
    const QVector3D extent = high - low;
    const float half = std::max(extent.x(), extent.z()) / 2 + std::max(extent.y(), 0.0f);
    if (scene->items.isEmpty() || half <= 0)
        return;

    ImportedMesh mesh;
    for (const QVector2D &corner : {QVector2D(-1, 1), QVector2D(1, 1), QVector2D(1, -1), QVector2D(-1, -1)}) {
        mesh.positions.append(
            {(low.x() + high.x()) / 2 + corner.x() * half, low.y(), (low.z() + high.z()) / 2 + corner.y() * half});
        mesh.normals.append({0, 1, 0});
        mesh.texCoords.append((corner + QVector2D(1, 1)) / 2);
    }
    mesh.indices = {0, 1, 2, 0, 2, 3};
    ImportedMaterial material;
    material.kd = {0.75f, 0.75f, 0.75f};

    ImportedItem item;
    item.name = QStringLiteral("floor");
    item.mesh = scene->meshes.size();
    item.material = scene->materials.size();
    scene->meshes.append(mesh);
    scene->materials.append(material);
    scene->items.append(item);
}

} // namespace Velmora::Kvz
