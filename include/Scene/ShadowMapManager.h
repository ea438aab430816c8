// SPDX-License-Identifier: MIT
#pragma once

#include <GL/Export.h>

#include <QtCore/QMetaType>
#include <QtCore/QObject>
#include <QtCore/QPair>
#include <QtCore/QVariant>
#include <QtCore/QVector>
#include <QtGui/QMatrix4x4>
#include <QtGui/QVector3D>

namespace Velmora::Kvz {

class Texture;

/// A light that casts shadows. Positions and directions are in world space. ShadowMapManager::Light is this class.
class KVZ_GL_EXPORT ShadowMapLight : public QObject
{
    Q_OBJECT
    Q_PROPERTY(Type type MEMBER type)
    Q_PROPERTY(QVector3D position MEMBER position)
    Q_PROPERTY(QVector3D direction MEMBER direction)
    Q_PROPERTY(float coneAngle MEMBER coneAngle)
    Q_PROPERTY(float range MEMBER range)
    Q_PROPERTY(int cascades MEMBER cascades)
    Q_PROPERTY(float depthBias MEMBER depthBias)
    Q_PROPERTY(float intensity MEMBER intensity)
    Q_PROPERTY(QVector3D colour MEMBER colour)
    Q_PROPERTY(bool isPartOfEnvironment MEMBER isPartOfEnvironment)

public:
    enum Type { Directional, Spot, Point };
    Q_ENUM(Type)

    explicit ShadowMapLight(QObject *parent = nullptr);

    Type type = Directional;
    QVector3D position; ///< Of spot and point lights.
    QVector3D direction{0, -1, 0}; ///< The way that the light goes, of directional and spot lights. Any length above 0.
    float coneAngle = 60; ///< Of spot lights: full opening angle in degrees, above 0 and below 180.
    float range = 100; ///< Of spot and point lights: distance beyond which nothing is lit, above 0.
    int cascades = 3; ///< Of directional lights with a camera: layers along the view, from 1 to 16.
    float depthBias = 0.0005f; ///< Added to the depths of every layer, in normalised device units (-1 to 1).
    float intensity =
        1; ///< Strength beside other lights, 0 or more. Shading reads it; shadow maps do not depend on it. Passes with physically
    ///< based light take it as the illuminance of a directional light and the luminous intensity of others.
    QVector3D colour{
        1, 1, 1}; ///< Linear, from 0 up: a factor on the intensity, for passes with physically based light.
    bool isPartOfEnvironment =
        false; ///< Smooth mirrors show it with their surroundings, and so have no highlight of it.
};

/// What the shadow passes need and publish. ShadowMapManager::RenderData is this class.
class KVZ_GL_EXPORT ShadowMapRenderData : public QObject
{
    Q_OBJECT

public:
    /// World space to the clip space of a layer; column-major, as glUniformMatrix4fv takes it without transposing.
    ///
    /// The lit depths map to the far half of clip space: in normalised device coordinates z runs from 0 where the light
    /// begins to 1 where it ends, so z after the division is itself a depth from 0 to 1. Anything at a z of 0 or below
    /// casts no shadow. Depths of directional lights are linear.
    struct Transform
    {
        float matrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    };
    /// One light, or the part of it that lies in consecutive layers.
    struct ProjectorInfo
    {
        int layerCount = 0;
        int firstLayer = 0;
    };

    explicit ShadowMapRenderData(QObject *parent = nullptr);
    ~ShadowMapRenderData() override;

    int layerCount = 0; ///< Layers that the shadow array needs.
    QVector<Transform> transforms; ///< One for each layer.
    QVector<ProjectorInfo> projectors; ///< One for each light, in the order of the light list.
    QVector<float> depthBiases; ///< One for each layer, in normalised device units.

    /// The array that holds the finished maps: not owned, null until a shadow pass sets it.
    void setProjectionTexture(Texture *texture);
    Texture *projectionTexture() const;

private:
    Texture *m_projectionTexture = nullptr;
};

/// Turns lights into the layers of a shadow map array.
class KVZ_GL_EXPORT ShadowMapManager
{
public:
    using Light = ShadowMapLight;
    using RenderData = ShadowMapRenderData;

    /// The lights of a list: a QVariantList of `Light*` or `QObject*`; a single one of these counts as a list of one.
    /// Other elements and null pointers are left out; any other value has no lights.
    static QVector<Light *> lightsIn(const QVariant &lights);

    /// The values of a light, made valid: the default replaces a direction, position, range, cone, bias or intensity that
    /// makes no sense.
    struct LightValues
    {
        Light::Type type;
        QVector3D position;
        QVector3D direction; ///< Of length 1.
        float coneAngle;
        float range;
        int cascades; ///< From 1 to 16.
        float depthBias;
        float intensity;
        QVector3D colour;
    };
    static LightValues valuesOf(const Light &light);

    /// Fills layer count, transforms, projectors and biases of `data` from lightsIn(`lights`). Projector i is light i
    /// of that list, and its layers follow those of the lights before it.
    ///
    /// Directional: as many layers as it has cascades, which divide the camera's view, nearer slices being shorter.
    /// - The view is cut to the part that the scene can lie in by the eye's distance to the sphere around the bounds, so
    ///   that neither looking around nor going around the scene moves a cascade's ends.
    /// - Each layer is a square around the sphere about its slice, or about the bounds where that is smaller. It moves in
    ///   steps of 1/64 of its side, which are whole texels of every map whose side is a multiple of 64, and it grows in
    ///   steps of 9 percent: between these every point of the world keeps its place within a texel while the camera moves.
    /// - All layers span the depths of the whole bounds, so that casters outside the view are included; without bounds,
    ///   from three radii before the view to its end, and an endless view ends at a thousand near distances.
    ///
    /// Without a camera, or with matrices that span no volume: one layer over the bounds; without bounds either, one layer
    /// over the cube from -1 to 1.
    ///
    /// Spot: one layer, square around the cone. Point: six layers, laid out and in the order of cube map faces (+X, -X, +Y,
    /// -Y, +Z, -Z). Their lit depths are distances along the axis of the layer: those that the bounds lie in, 1 percent
    /// wider, but at most the range, and not nearer than a fiftieth of the far one; up to the range without bounds and where
    /// a layer does not meet them. A light outside the scene, or turned away from it, keeps its layers.
    ///
    /// All layers of a light have its bias.
    ///
    /// `projection`, `camera` (world to camera) and `bounds` (two opposite corners in world space) can be null. Bounds that
    /// are not finite, or too large to have a size, count as null; flat and empty ones get a little thickness.
    /// Lights count with their valuesOf().
    static void processLights(const QVariant &lights, RenderData &data, const QMatrix4x4 *projection,
        const QMatrix4x4 *camera, const QPair<QVector3D, QVector3D> *bounds);
};

} // namespace Velmora::Kvz

Q_DECLARE_METATYPE(Velmora::Kvz::ShadowMapManager::RenderData *)
Q_DECLARE_METATYPE(Velmora::Kvz::ShadowMapManager::Light *)
