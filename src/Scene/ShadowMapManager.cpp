// SPDX-License-Identifier: MIT
#include <Scene/ShadowMapManager.h>

#include "SceneMath.h"

#include <QtCore/QVariantList>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

namespace Velmora::Kvz {

namespace {

bool isLightColour(const QVector3D &colour)
{
    return allFinite(colour) && colour.x() >= 0 && colour.y() >= 0 && colour.z() >= 0;
}

/// Steps to a side in which cascades move: whole texels of every map whose side is a multiple of it.
constexpr float snapSteps = 64;

/// Steps to a doubling in which cascades grow. Between them a texel keeps its size while the camera moves.
constexpr float growthSteps = 8;

/// Where the lit depths of spot and point lights begin at the latest, as a part of where they end.
constexpr float nearPart = 0.02f;

/// How far splits follow the logarithm of the distance rather than the distance: 0 to 1.
constexpr float logarithmicPart = 0.5f;

constexpr int maximumCascades = 16;

/// How many near distances an endless camera without bounds is taken to see.
constexpr float endlessPart = 1000;

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
    // Far from the origin eye + direction would lose most digits of the direction.
    QMatrix4x4 view;
    view.lookAt(QVector3D(), direction, up);
    view.translate(-eye);
    return view;
}

/// Maps a box of light space so that its depths fill only the far half of clip space: 0 to 1.
QMatrix4x4 parallelProjection(const LightBox &box)
{
    QMatrix4x4 projection;
    projection.ortho(box.left, box.right, box.bottom, box.top, 2 * box.nearDepth - box.farDepth, box.farDepth);
    return projection;
}

/// The same for a square pyramid with its apex at the viewer: the depths between the two distances give 0 to 1.
QMatrix4x4 pyramidProjection(float angle, float litNear, float litFar)
{
    // A perspective that spans n to f gives 0 at the harmonic mean of the two.
    const float clipNear = litNear * litFar / (2 * litFar - litNear);
    QMatrix4x4 projection;
    projection.perspective(angle, 1.0f, clipNear, litFar);
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
    const float extent = std::max({box.right - box.left, box.top - box.bottom, box.farDepth - box.nearDepth});
    const float size = extent > 0 ? extent : 1;
    const auto margin = [size](float low, float high) {
        return std::max(0.01f * (high - low), 1e-4f * (size + std::max(std::abs(low), std::abs(high))));
    };
    const float x = margin(box.left, box.right);
    const float y = margin(box.bottom, box.top);
    const float depth = margin(box.nearDepth, box.farDepth);
    return {box.left - x, box.right + x, box.bottom - y, box.top + y, box.nearDepth - depth, box.farDepth + depth};
}

Sphere sphereAround(const QVector3D &center, const Corners &corners)
{
    float radius = 0;
    for (const QVector3D &corner : corners)
        radius = std::max(radius, (corner - center).length());
    return {center, radius};
}

Sphere sphereAround(const Bounds &bounds)
{
    return sphereAround(bounds.minimum() / 2 + bounds.maximum() / 2, cornersOf(bounds));
}

/// The smallest sphere around a slice of a frustum, corners 0 to 3 at its near and 4 to 7 at its far end. It turns with the
/// camera, so its size does not.
Sphere sphereAroundSlice(const Corners &corners)
{
    QVector3D nearCenter;
    QVector3D farCenter;
    for (size_t i = 0; i < 4; ++i) {
        nearCenter += corners[i] / 4;
        farCenter += corners[i + 4] / 4;
    }
    const QVector3D axis = farCenter - nearCenter;
    const float nearRadius = (corners[0] - nearCenter).length();
    const float farRadius = (corners[4] - farCenter).length();
    // As far from the near corners as from the far ones, or at the far end of a slice that opens wide.
    const float square = axis.lengthSquared();
    const float along = square > 0 ? (square + farRadius * farRadius - nearRadius * nearRadius) / (2 * square) : 0.0f;
    return sphereAround(nearCenter + axis * std::clamp(along, 0.0f, 1.0f), corners);
}

/// The part of the world that a camera sees: four edges.
struct CameraFrustum
{
    std::array<QVector3D, 4> starts; ///< On the near plane.
    std::array<QVector3D, 4> rays; ///< For each unit of distance along the view.
    float nearDistance; ///< Along the view.
    float farDistance; ///< Infinite where the projection is.
    float edgeCosine; ///< Of the angle between the view and its edges.
    bool isPerspective;

    /// The part between two distances along the view.
    Corners slice(float from, float to) const
    {
        Corners corners;
        for (size_t i = 0; i < 4; ++i) {
            corners[i] = starts[i] + rays[i] * (from - nearDistance);
            corners[i + 4] = starts[i] + rays[i] * (to - nearDistance);
        }
        return corners;
    }
};

/// Distance along the view of a point in homogeneous camera space; infinite at or past the end of an endless view.
float distanceOf(const QVector4D &inCamera)
{
    const bool isEndless = std::abs(inCamera.w()) <= 1e-7f * std::abs(inCamera.z());
    return isEndless ? std::numeric_limits<float>::infinity() : -inCamera.z() / inCamera.w();
}

/// False for matrices that span no volume in front of a camera.
bool findFrustum(const QMatrix4x4 &projection, const QMatrix4x4 &camera, CameraFrustum &frustum)
{
    bool isProjectionInvertible = false;
    bool isCameraInvertible = false;
    const QMatrix4x4 toCamera = projection.inverted(&isProjectionInvertible);
    const QMatrix4x4 toWorld = camera.inverted(&isCameraInvertible);
    if (!allFinite(projection) || !allFinite(camera) || !isProjectionInvertible || !isCameraInvertible)
        return false;

    // The depths may be reversed, and the far end may be endless: a depth between the two serves then.
    float nearDepth = -1;
    float farDepth = 1;
    const auto distanceAt = [&](float depth) { return distanceOf(toCamera * QVector4D(0, 0, depth, 1)); };
    if (distanceAt(nearDepth) > distanceAt(farDepth))
        std::swap(nearDepth, farDepth);
    frustum.nearDistance = distanceAt(nearDepth);
    frustum.farDistance = distanceAt(farDepth);
    if (std::isinf(frustum.farDistance))
        farDepth = 0;
    const float length = distanceAt(farDepth) - frustum.nearDistance;
    if (!std::isfinite(length) || !(length > 0))
        return false;

    frustum.isPerspective = projection(3, 3) == 0.0f;
    frustum.edgeCosine = 1;
    for (int i = 0; i < 4; ++i) {
        const QVector2D edge(i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f);
        const QVector3D start = (toCamera * QVector4D(edge, nearDepth, 1)).toVector3DAffine();
        const QVector3D end = (toCamera * QVector4D(edge, farDepth, 1)).toVector3DAffine();
        frustum.starts[size_t(i)] = toWorld * start;
        frustum.rays[size_t(i)] = (toWorld * end - toWorld * start) / length;
        frustum.edgeCosine = std::min(frustum.edgeCosine, length / (end - start).length());
        if (!allFinite(frustum.starts[size_t(i)]) || !allFinite(frustum.rays[size_t(i)]))
            return false;
    }
    return true;
}

/// Distances along the view between which cascades lie, `count` + 1 of them. They leave out what lies before and behind
/// the scene, as far as the eye's distance to it says: looking around and going around the scene change nothing.
std::vector<float> splitDistances(
    const CameraFrustum &frustum, const QMatrix4x4 &camera, const Bounds *bounds, int count)
{
    float from = frustum.nearDistance;
    float to = frustum.farDistance;
    if (bounds) {
        Corners corners = cornersOf(*bounds);
        for (QVector3D &corner : corners)
            corner = camera * corner;
        const Sphere scene = sphereAround(camera * sphereAround(*bounds).center, corners);
        const float away = frustum.isPerspective ? scene.center.length() : -scene.center.z();
        const float sceneNear = (away - scene.radius) * (away > scene.radius ? frustum.edgeCosine : 1);
        const float sceneFar = away + scene.radius;
        if (sceneNear < to && sceneFar > from) {
            from = std::max(from, sceneNear);
            to = std::min(to, sceneFar);
        }
    }
    if (std::isinf(to))
        to = from * endlessPart;
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

/// A square over a sphere that moves and grows in steps only, so that edges stand still while the camera moves.
LightBox snappedSquare(const Sphere &sphere, const QMatrix4x4 &lightView)
{
    // A little less than a step too small counts as none, so that rounding brings no further step.
    const float steps = std::ceil(std::log2(std::max(sphere.radius, 1e-6f)) * growthSteps - 0.001f);
    // Half a step to either side makes room for snapping.
    const float half = std::exp2(steps / growthSteps) * snapSteps / (snapSteps - 1.05f);
    const float step = 2 * half / snapSteps;
    const QVector3D center = lightView * sphere.center;
    const float x = std::floor(center.x() / step + 0.5f) * step;
    const float y = std::floor(center.y() / step + 0.5f) * step;
    return {x - half, x + half, y - half, y + half, 0, 0};
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

void addDirectional(LayerList &layers, int count, float depthBias, const QVector3D &direction,
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

    const std::vector<float> distances = splitDistances(frustum, *camera, bounds, count);

    // All casters lie in the depths of the scene: whatever stands between a slice and the light is among them. Where those
    // are not known, casters are looked for as far before the view as it is wide.
    LightBox depths{};
    Sphere scene{};
    if (bounds) {
        scene = sphereAround(*bounds);
        depths = padded(boxAround(cornersOf(*bounds), view));
    } else {
        const Sphere whole = sphereAroundSlice(frustum.slice(distances.front(), distances.back()));
        const float center = -(view * whole.center).z();
        depths.nearDepth = center - 3 * whole.radius;
        depths.farDepth = center + 1.01f * whole.radius;
    }
    for (size_t i = 0; i < size_t(count); ++i) {
        const Sphere slice = sphereAroundSlice(frustum.slice(distances[i], distances[i + 1]));
        LightBox box = snappedSquare(bounds && scene.radius < slice.radius ? scene : slice, view);
        box.nearDepth = depths.nearDepth;
        box.farDepth = depths.farDepth;
        layers.add(parallelProjection(box) * view, depthBias);
    }
}

/// A layer of a light that shines from a point: the depths that the scene lies in, and no more than the range.
void addPyramid(
    LayerList &layers, const QMatrix4x4 &view, float angle, float range, float depthBias, const Bounds *bounds)
{
    float litNear = 0;
    float litFar = range;
    if (bounds) {
        const LightBox scene = boxAround(cornersOf(*bounds), view);
        if (scene.farDepth > 0 && scene.nearDepth < range) {
            litNear = scene.nearDepth * 0.99f;
            litFar = std::min(range, scene.farDepth * 1.01f);
        }
    }
    litNear = std::max(litNear, litFar * nearPart);
    layers.add(pyramidProjection(angle, litNear, litFar) * view, depthBias);
}

void addPoint(LayerList &layers, const QVector3D &position, float range, float depthBias, const Bounds *bounds)
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
        addPyramid(layers, viewFrom(position, face[0], face[1]), 90, range, depthBias, bounds);
}

void addLight(LayerList &layers, const ShadowMapLight &light, const QMatrix4x4 *projection, const QMatrix4x4 *camera,
    const Bounds *bounds)
{
    const ShadowMapManager::LightValues values = ShadowMapManager::valuesOf(light);
    layers.beginLight();
    switch (values.type) {
    case ShadowMapLight::Directional:
        addDirectional(layers, values.cascades, values.depthBias, values.direction, projection, camera, bounds);
        break;
    case ShadowMapLight::Spot:
        addPyramid(layers, viewFrom(values.position, values.direction, upFor(values.direction)), values.coneAngle,
            values.range, values.depthBias, bounds);
        break;
    case ShadowMapLight::Point:
        addPoint(layers, values.position, values.range, values.depthBias, bounds);
        break;
    }
}

ShadowMapLight *lightFrom(const QVariant &value)
{
    return qobject_cast<ShadowMapLight *>(value.value<QObject *>());
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

ShadowMapManager::LightValues ShadowMapManager::valuesOf(const Light &light)
{
    static const Light defaults;
    const bool hasDirection = allFinite(light.direction) && !light.direction.isNull();
    return {
        light.type,
        allFinite(light.position) ? light.position : defaults.position,
        (hasDirection ? light.direction : defaults.direction).normalized(),
        light.coneAngle > 0 && light.coneAngle < 180 ? light.coneAngle : defaults.coneAngle,
        std::isfinite(light.range) && light.range > 0 ? light.range : defaults.range,
        std::clamp(light.cascades, 1, maximumCascades),
        std::isfinite(light.depthBias) ? light.depthBias : defaults.depthBias,
        std::isfinite(light.intensity) && light.intensity >= 0 ? light.intensity : defaults.intensity,
        isLightColour(light.colour) ? light.colour : defaults.colour,
    };
}

QVector<ShadowMapManager::Light *> ShadowMapManager::lightsIn(const QVariant &value)
{
    QVector<Light *> lights;
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

void ShadowMapManager::processLights(const QVariant &lights, RenderData &data, const QMatrix4x4 *projection,
    const QMatrix4x4 *camera, const QPair<QVector3D, QVector3D> *bounds)
{
    Bounds sceneBounds;
    const bool hasBounds =
        bounds && allFinite(bounds->first) && allFinite(bounds->second) && allFinite(bounds->second - bounds->first);
    if (hasBounds) {
        sceneBounds.include(bounds->first);
        sceneBounds.include(bounds->second);
    }
    LayerList layers(data);
    const QVector<Light *> list = lightsIn(lights);
    for (const Light *light : list)
        addLight(layers, *light, projection, camera, hasBounds ? &sceneBounds : nullptr);
}

} // namespace Velmora::Kvz
