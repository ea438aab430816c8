// SPDX-License-Identifier: MIT
#include <Scene/ShadowMapManager.h>

#include "SceneMath.h"

#include <QtCore/QVariantList>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace Velmora::Kvz {

namespace {

/// Texels a side of the map to which cascades are snapped.
constexpr float nominalMapSize = 512;

/// Where the lit part of a spot or point light's range begins, as a part of the range.
constexpr float nearPartOfRange = 0.01f;

/// How far splits follow the logarithm of the distance rather than the distance: 0 to 1.
constexpr float logarithmicPart = 0.5f;

using Corners = std::array<QVector3D, 8>;

/// A volume along the direction of a light: x and y across, depths along.
struct LightBox
{
    float left;
    float right;
    float bottom;
    float top;
    float nearDepth;
    float farDepth;
};

struct Sphere
{
    QVector3D center;
    float radius;
};

QVector3D upFor(const QVector3D &direction)
{
    return std::abs(direction.y()) > 0.99f * direction.length() ? QVector3D(0, 0, 1) : QVector3D(0, 1, 0);
}

/// World space to the space of a viewer at `eye`: x right, y up, depths along -z.
QMatrix4x4 viewFrom(const QVector3D &eye, const QVector3D &direction, const QVector3D &up)
{
    QMatrix4x4 view;
    view.lookAt(eye, eye + direction, up);
    return view;
}

/// Maps a box of light space so that its depths fill only the far half of clip space: 0 to 1.
QMatrix4x4 parallelProjection(const LightBox &box)
{
    QMatrix4x4 projection;
    projection.ortho(box.left, box.right, box.bottom, box.top, 2 * box.nearDepth - box.farDepth, box.farDepth);
    return projection;
}

/// The same for a square pyramid: depths from a part of `range` up to `range` give 0 to 1.
QMatrix4x4 pyramidProjection(float angle, float range)
{
    // A perspective that spans n to f gives 0 at the harmonic mean of the two.
    const float litNear = range * nearPartOfRange;
    const float clipNear = litNear * range / (2 * range - litNear);
    QMatrix4x4 projection;
    projection.perspective(angle, 1.0f, clipNear, range);
    return projection;
}

Corners cornersOf(const Bounds &bounds)
{
    Corners corners;
    for (int i = 0; i < 8; ++i)
        corners[size_t(i)] = bounds.corner(i);
    return corners;
}

/// What the corners span in light space, x, y and depth.
LightBox boxAround(const Corners &corners, const QMatrix4x4 &lightView)
{
    Bounds inLightSpace;
    for (const QVector3D &corner : corners)
        inLightSpace.include(lightView * corner);
    const QVector3D low = inLightSpace.minimum();
    const QVector3D high = inLightSpace.maximum();
    return {low.x(), high.x(), low.y(), high.y(), -high.z(), -low.z()};
}

/// Moves the sides of a box outwards: flat ones get a thickness, and no caster lies on the near side itself.
LightBox padded(const LightBox &box)
{
    const auto margin = [](float low, float high) {
        return std::max(0.01f * (high - low), 1e-4f * (1 + std::max(std::abs(low), std::abs(high))));
    };
    const float x = margin(box.left, box.right);
    const float y = margin(box.bottom, box.top);
    const float depth = margin(box.nearDepth, box.farDepth);
    return {box.left - x, box.right + x, box.bottom - y, box.top + y, box.nearDepth - depth, box.farDepth + depth};
}

Sphere sphereAround(const Corners &corners)
{
    QVector3D center;
    for (const QVector3D &corner : corners)
        center += corner / 8;
    float radius = 0;
    for (const QVector3D &corner : corners)
        radius = std::max(radius, (corner - center).length());
    return {center, radius};
}

/// The part of the world that a camera sees, corner by corner: 0 to 3 near, 4 to 7 the corners behind them far.
struct CameraFrustum
{
    Corners corners;
    float nearDistance; ///< Along the view, in world units.
    float farDistance;
    bool isPerspective;

    /// The part between two distances along the view.
    Corners slice(float from, float to) const
    {
        const float depth = farDistance - nearDistance;
        Corners result;
        for (size_t i = 0; i < 4; ++i) {
            const QVector3D ray = (corners[i + 4] - corners[i]) / depth;
            result[i] = corners[i] + ray * (from - nearDistance);
            result[i + 4] = corners[i] + ray * (to - nearDistance);
        }
        return result;
    }
};

/// False for matrices that span no volume in front of a camera.
bool findFrustum(const QMatrix4x4 &projection, const QMatrix4x4 &camera, CameraFrustum &frustum)
{
    bool isProjectionInvertible = false;
    bool isCameraInvertible = false;
    const QMatrix4x4 toCamera = projection.inverted(&isProjectionInvertible);
    const QMatrix4x4 toWorld = camera.inverted(&isCameraInvertible);
    if (!allFinite(projection) || !allFinite(camera) || !isProjectionInvertible || !isCameraInvertible)
        return false;
    Corners inCamera;
    for (int i = 0; i < 8; ++i) {
        inCamera[size_t(i)] = toCamera * QVector3D(i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f);
        frustum.corners[size_t(i)] = toWorld * inCamera[size_t(i)];
        if (!allFinite(frustum.corners[size_t(i)]))
            return false;
    }
    frustum.nearDistance = -inCamera[0].z();
    frustum.farDistance = -inCamera[4].z();
    frustum.isPerspective = projection(3, 3) == 0.0f;
    if (frustum.nearDistance > frustum.farDistance) {
        // A projection with its depths reversed.
        std::swap(frustum.nearDistance, frustum.farDistance);
        for (size_t i = 0; i < 4; ++i)
            std::swap(frustum.corners[i], frustum.corners[i + 4]);
    }
    return frustum.nearDistance < frustum.farDistance;
}

/// Distances along the view between which cascades lie, `count` + 1 of them. They leave out what lies before and behind
/// the scene.
std::vector<float> splitDistances(
    const CameraFrustum &frustum, const QMatrix4x4 &camera, const Bounds *bounds, int count)
{
    float from = frustum.nearDistance;
    float to = frustum.farDistance;
    if (bounds) {
        const Bounds inCamera = bounds->mapped(camera);
        const float sceneNear = -inCamera.maximum().z();
        const float sceneFar = -inCamera.minimum().z();
        if (sceneNear < to && sceneFar > from) {
            from = std::max(from, sceneNear);
            to = std::min(to, sceneFar);
        }
    }
    // Between distances of different sign, and for parallel views, only equal steps make sense.
    const float logarithmic = frustum.isPerspective && from > 0 ? logarithmicPart : 0;
    std::vector<float> distances;
    for (int i = 0; i <= count; ++i) {
        const float part = float(i) / float(count);
        float distance = from + (to - from) * part;
        if (logarithmic > 0)
            distance += logarithmic * (from * std::pow(to / from, part) - distance);
        distances.push_back(distance);
    }
    distances.back() = to;
    return distances;
}

/// A square over a sphere that moves in whole texels only, so that edges stand still while the camera moves.
LightBox snappedSquare(const Sphere &sphere, const QMatrix4x4 &lightView)
{
    // Steps of the radius keep the texel's size while slices change a little; one texel a side makes room for snapping.
    const float radius = std::exp2(std::ceil(std::log2(std::max(sphere.radius, 1e-6f)) * 8) / 8);
    const float half = radius * nominalMapSize / (nominalMapSize - 2);
    const float texel = 2 * half / nominalMapSize;
    const QVector3D center = lightView * sphere.center;
    const float x = std::floor(center.x() / texel + 0.5f) * texel;
    const float y = std::floor(center.y() / texel + 0.5f) * texel;
    return {x - half, x + half, y - half, y + half, -center.z() - radius, -center.z() + radius};
}

/// Takes layers as lights give them.
class LayerList
{
public:
    explicit LayerList(ShadowMapRenderData &data)
        : m_data(data)
    {
        m_data.layerCount = 0;
        m_data.transforms.clear();
        m_data.projectors.clear();
        m_data.depthBiases.clear();
    }

    void beginLight() { m_data.projectors.append({0, m_data.layerCount}); }

    void add(const QMatrix4x4 &matrix, float depthBias)
    {
        ShadowMapRenderData::Transform transform;
        std::copy_n(matrix.constData(), 16, transform.matrix);
        m_data.transforms.append(transform);
        m_data.depthBiases.append(depthBias);
        ++m_data.projectors.last().layerCount;
        ++m_data.layerCount;
    }

private:
    ShadowMapRenderData &m_data;
};

void addDirectional(LayerList &layers, int cascades, float depthBias, const QVector3D &direction,
    const QMatrix4x4 *projection, const QMatrix4x4 *camera, const Bounds *bounds)
{
    const QMatrix4x4 view = viewFrom(QVector3D(), direction, upFor(direction));
    CameraFrustum frustum;
    if (!projection || !camera || !findFrustum(*projection, *camera, frustum)) {
        Bounds cube;
        cube.include(QVector3D(-1, -1, -1));
        cube.include(QVector3D(1, 1, 1));
        layers.add(parallelProjection(padded(boxAround(cornersOf(bounds ? *bounds : cube), view))) * view, depthBias);
        return;
    }

    // All casters lie in the depths of the scene: whatever stands between a slice and the light is among them.
    const Corners caster = bounds ? cornersOf(*bounds) : frustum.corners;
    const LightBox depths = padded(boxAround(caster, view));
    const Sphere scene = sphereAround(caster);
    const int count = std::max(cascades, 1);
    const std::vector<float> distances = splitDistances(frustum, *camera, bounds, count);
    for (int i = 0; i < count; ++i) {
        const Sphere slice = sphereAround(frustum.slice(distances[size_t(i)], distances[size_t(i) + 1]));
        LightBox box = snappedSquare(bounds && scene.radius < slice.radius ? scene : slice, view);
        box.nearDepth = depths.nearDepth;
        box.farDepth = depths.farDepth;
        layers.add(parallelProjection(box) * view, depthBias);
    }
}

void addPoint(LayerList &layers, const QVector3D &position, float range, float depthBias)
{
    // Direction and up of the faces of a cube map, in their order.
    static const QVector3D faces[6][2] = {
        {{1, 0, 0}, {0, -1, 0}},
        {{-1, 0, 0}, {0, -1, 0}},
        {{0, 1, 0}, {0, 0, 1}},
        {{0, -1, 0}, {0, 0, -1}},
        {{0, 0, 1}, {0, -1, 0}},
        {{0, 0, -1}, {0, -1, 0}},
    };
    for (const auto &face : faces)
        layers.add(pyramidProjection(90, range) * viewFrom(position, face[0], face[1]), depthBias);
}

void addLight(LayerList &layers, const ShadowMapLight &light, const QMatrix4x4 *projection, const QMatrix4x4 *camera,
    const Bounds *bounds)
{
    static const ShadowMapLight defaults;
    const bool hasDirection = allFinite(light.direction) && !light.direction.isNull();
    const QVector3D direction = (hasDirection ? light.direction : defaults.direction).normalized();
    const QVector3D position = allFinite(light.position) ? light.position : defaults.position;
    const float depthBias = std::isfinite(light.depthBias) ? light.depthBias : defaults.depthBias;
    const float range = std::isfinite(light.range) && light.range > 0 ? light.range : defaults.range;
    const float coneAngle = light.coneAngle > 0 && light.coneAngle < 180 ? light.coneAngle : defaults.coneAngle;

    layers.beginLight();
    switch (light.type) {
    case ShadowMapLight::Directional:
        addDirectional(layers, light.cascades, depthBias, direction, projection, camera, bounds);
        break;
    case ShadowMapLight::Spot:
        layers.add(pyramidProjection(coneAngle, range) * viewFrom(position, direction, upFor(direction)), depthBias);
        break;
    case ShadowMapLight::Point:
        addPoint(layers, position, range, depthBias);
        break;
    }
}

ShadowMapLight *lightFrom(const QVariant &value)
{
    return qobject_cast<ShadowMapLight *>(value.value<QObject *>());
}

QVector<ShadowMapLight *> lightsFrom(const QVariant &value)
{
    QVector<ShadowMapLight *> lights;
    if (value.canConvert<QObject *>()) {
        lights.append(lightFrom(value));
    } else if (value.canConvert<QVariantList>()) {
        const QVariantList elements = value.value<QVariantList>();
        for (const QVariant &element : elements)
            lights.append(lightFrom(element));
    }
    lights.removeAll(nullptr);
    return lights;
}

} // namespace

ShadowMapLight::ShadowMapLight(QObject *parent)
    : QObject(parent)
{ }

ShadowMapRenderData::ShadowMapRenderData(QObject *parent)
    : QObject(parent)
{ }

ShadowMapRenderData::~ShadowMapRenderData() = default;

void ShadowMapRenderData::setProjectionTexture(Texture *texture)
{
    m_projectionTexture = texture;
}

Texture *ShadowMapRenderData::projectionTexture() const
{
    return m_projectionTexture;
}

void ShadowMapManager::processLights(const QVariant &lights, RenderData &data, const QMatrix4x4 *projection,
    const QMatrix4x4 *camera, const QPair<QVector3D, QVector3D> *bounds)
{
    Bounds sceneBounds;
    const bool hasBounds = bounds && allFinite(bounds->first) && allFinite(bounds->second);
    if (hasBounds) {
        sceneBounds.include(bounds->first);
        sceneBounds.include(bounds->second);
    }
    LayerList layers(data);
    const QVector<Light *> list = lightsFrom(lights);
    for (const Light *light : list)
        addLight(layers, *light, projection, camera, hasBounds ? &sceneBounds : nullptr);
}

} // namespace Velmora::Kvz
