// SPDX-License-Identifier: MIT
#pragma once

#include <Host/Export.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QSharedPointer>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QVector>
#include <QtGui/QImage>
#include <QtGui/QMatrix4x4>
#include <QtGui/QTransform>
#include <QtGui/QVector2D>
#include <QtGui/QVector3D>
#include <QtGui/QVector4D>

namespace Velmora::Kvz {

/// The triangles of a mesh with all that the file says of their vertices. Each array is empty or as long as `positions`.
struct ImportedMesh : MeshData
{
    QString name; ///< Empty where the file gives none.
};

/// Points or lines of a file, in model space. Arrays are empty or as long as `positions`.
struct ImportedPrimitives
{
    QString name;
    QVector<QVector3D> positions;
    QVector<QVector3D> normals;
    QVector<QVector4D> colours;
    QVector<quint32> indices; ///< Of lines: two for each. Of points: one for each.
    int material = -1; ///< Index into ImportedScene::materials; -1: none.
    QMatrix4x4 modelMatrix; ///< Model to world space.
};

/// A picture of a scene. Where several uses share one file, they share one entry.
struct ImportedImage
{
    enum Use {
        Colour = 1, ///< sRGB: base colour, diffuse, emission.
        Data = 2 ///< Linear: normals, roughness, opacity, occlusion.
    };

    QString name; ///< As the file calls it.
    QImage image; ///< Null where it cannot be had: white stands in.
    int uses = 0; ///< Of Use, or-ed.
};

/// An image of a material.
struct ImportedTexture : ImageSampling
{
    int image = -1; ///< Index into ImportedScene::images; -1: no texture, which counts as white.
};

/// A material: what the passes shade with, and what the file says beyond that, which is for hosts with shading of their
/// own.
struct ImportedMaterial : MaterialData
{
    ImportedMaterial() { alphaMode = Opaque; }

    QString name;
    bool isDoubleSided = false;
    bool saysSides =
        false; ///< Whether the file says if it is double-sided. Where it does not, both sides are to be lit.
    bool isMetallicRoughness =
        false; ///< The file gives base colour, metallic and roughness; kd, ks and ns follow from them.
    QVector4D baseColour{1, 1, 1, 1}; ///< Linear, with opacity.
    float metallic = 0; ///< 0 to 1, to be multiplied with the blue of `metallicRoughness`.
    float roughness = 1; ///< 0 to 1, to be multiplied with its green.
    float normalScale = 1; ///< For x and y of the normal texture.
    float occlusionStrength = 1; ///< 0 to 1.
    float refractiveIndex = 1.5f;
    float transmission = 0; ///< 0 to 1: the part of the light that passes the surface.
    float clearcoat = 0; ///< 0 to 1.
    float clearcoatRoughness = 0; ///< 0 to 1.
    float specular = 1; ///< 0 to 1: the share of a dielectric's reflection that is there.
    QVector3D specularColour{1, 1, 1}; ///< Of that reflection; linear.
    QVector3D sheenColour; ///< Linear.
    float sheenRoughness = 0; ///< 0 to 1.
    bool isPhysical =
        false; ///< All of these are what the file says. Otherwise physicalFrom() makes them of kd, ks and ns.
    ImportedTexture baseColourTexture; ///< mapKd is its image, with the opacity texture in its alpha.
    ImportedTexture specularTexture; ///< mapKs is its image.
    ImportedTexture opacityTexture;
    ImportedTexture metallicRoughnessTexture; ///< Roughness in green, metallic in blue.
    ImportedTexture normalTexture;
    ImportedTexture occlusionTexture; ///< In red.
    ImportedTexture emissionTexture;
};

/// A mesh of an imported scene, placed in the world with a material.
struct ImportedItem
{
    QString name; ///< Of the node in the file; empty where the format has no names.
    int mesh = 0; ///< Index into ImportedScene::meshes; items may share one.
    int material = 0; ///< Index into ImportedScene::materials.
    int node = -1; ///< Index into ImportedScene::nodes; -1: of no node of the file.
    QMatrix4x4 modelMatrix; ///< Model to world space, all parent nodes included.
    quint64 featureFlags = 0; ///< GPUModel::DoubleSided for two-sided materials, ImportedScene::Transparent.
};

struct ImportedNode
{
    QString name;
    int parent = -1; ///< Index into ImportedScene::nodes, smaller than the node's own; -1: the world.
    QMatrix4x4 matrix; ///< To the parent's space, as posed.
};

/// A camera of the file. It looks along -z of its space, with y up.
struct ImportedCamera
{
    QString name;
    int node = -1;
    QMatrix4x4 worldMatrix; ///< Camera to world space.
    bool isOrthographic = false;
    float verticalFieldOfView = 0.8f; ///< In radians. Of perspective cameras.
    float aspect = 0; ///< Width by height; 0: that of the picture.
    float nearPlane = 0.1f;
    float farPlane = 0; ///< 0: infinitely far.
    QVector2D halfExtent; ///< Of orthographic cameras: half of the width and height that they see.
};

/// A light of the file. It shines along -z of its space.
struct ImportedLight
{
    enum Type { Directional, Point, Spot, Ambient };

    QString name;
    int node = -1;
    QMatrix4x4 worldMatrix;
    Type type = Point;
    QVector3D colour{1, 1, 1}; ///< Linear.
    float intensity = 1; ///< In lux for directional lights, in candela for the others, where the file keeps to units.
    float range = 0; ///< Distance where it ends; 0: without end.
    float innerAngle = 0; ///< Of spots: half the angle, in radians.
    float outerAngle = 0.785398f;
};

/// An animation of nodes.
struct ImportedAnimation
{
    enum Path { Translation, Rotation, Scale };
    enum Interpolation { Step, Linear, CubicSpline };

    struct Channel
    {
        int node = -1;
        Path path = Translation;
        Interpolation interpolation = Linear;
        QVector<float> times; ///< In seconds, increasing.
        QVector<QVector4D>
            values; ///< One for each time; with CubicSpline three: in-tangent, value, out-tangent. Rotations: x, y, z, w.
    };

    QString name;
    float duration = 0; ///< In seconds.
    QVector<Channel> channels;
};

/// How a scene is put on the GPU.
struct SceneBuildOptions
{
    /// For chains that shade in the basic passes. These take normals as the matrices of items leave them and texture
    /// coordinates as they are, so nodes that stretch are applied to the mesh, and the coordinates become those that
    /// the base colour texture uses, its transform included. Each stretch and each such texture costs a copy of the
    /// mesh. Passes that light surfaces draw the same picture either way.
    bool forBasicPasses = false;
    /// For chains with physically based light: materials get what these read, with images of roughness, normals and occlusion that
    /// take room in the model. Without it such passes draw what physicalFrom() makes of diffuse and specular colour.
    bool forPhysicalPasses = false;
    /// The memory that images may take, as GPUModelBuilder::setImageBudget() has it.
    qint64 imageBudget = qint64(512) << 20;
};

/// A model file as plain data, with Y up and counter-clockwise fronts. Flat arrays and numbers throughout: it needs no GL, and
/// could be handed from one process to another.
struct KVZ_HOST_EXPORT ImportedScene
{
    /// The feature bit of items whose material lets light through, as letsLightThrough() says. As drawFlagsValue and
    /// drawFlagsMask, (Transparent, Transparent) selects these and (0, Transparent) the opaque ones.
    enum : quint64 { Transparent = GPUModel::Transparent };

    QVector<ImportedMesh> meshes; ///< Indexed triangles with normals and texture coordinates.
    QVector<ImportedPrimitives> pointSets; ///< Not part of the model that build() makes.
    QVector<ImportedPrimitives> lineSets; ///< Not part of the model that build() makes.
    QVector<ImportedMaterial> materials;
    QVector<ImportedImage> images;
    QVector<ImportedItem> items;
    QVector<ImportedNode> nodes; ///< Parents come before their children.
    QVector<ImportedCamera> cameras;
    QVector<ImportedLight> lights;
    QVector<ImportedAnimation> animations;
    QString format; ///< The type of the file, by its name in modelFormats().
    QStringList extensionsUsed; ///< Of glTF, as the file lists them.
    QStringList extensionsRequired; ///< Of glTF: those without which the file makes no sense.
    QStringList variants; ///< Names of the sets of materials that glTF offers; `materials` are those of no set.
    QString
        upAxis; ///< "x", "-y" and so on: what the file says of itself, before it was turned; empty: it does not say.
    float unit = 0; ///< In metres: what the file says of its lengths; 0: it does not say. Lengths are not scaled.
    QStringList warnings; ///< What could not be had and what stands in its place: one line each, the file named.

    /// The corners of all items in world space, as framePoints() takes them.
    QVector<QVector3D> points() const;

    /// Whether the material of any item is a mask: shadow passes draw such an item without its holes.
    bool hasMasks() const;

    /// The scene on the GPU; needs a current context. Null, with one log line, when the driver cannot hold it.
    QSharedPointer<GPUModel> build(const SceneBuildOptions &options = SceneBuildOptions()) const;
    /// Frees the pixels of all images, which build() has copied: those of materials too. All else stays.
    void releaseImages();
};

/// Scales a scene about the origin, with its cameras and lights, so that the largest side of the bounds of its items is as long as
/// given: some passes have constants that are lengths. False, and nothing is changed, for a scene without extent and for a length
/// that is not above 0 or out of reach of floats.
KVZ_HOST_EXPORT bool scaleInto(ImportedScene *scene, float largestExtent);

/// Puts a floor under a scene: a square at the height of its lowest point, light grey, facing upwards. It reaches beyond the
/// scene by the scene's height on every side, so that shadows of lights from 45 degrees up fall on it whole. A scene without
/// items, or without extent, gets none.
KVZ_HOST_EXPORT void addFloor(ImportedScene *scene);

} // namespace Velmora::Kvz
