// SPDX-License-Identifier: MIT
#include "ShadowReference.h"

#include <GL/AutoBinder.h>

#include <QtCore/QRegularExpression>

#include <epoxy/gl.h>

#include <algorithm>
#include <cmath>

namespace Velmora::Kvz {

namespace {

constexpr double sigma = 4.5;

double weight(int distance)
{
    return std::exp(-0.5 * distance * distance / (sigma * sigma));
}

Moments plus(const Moments &a, const Moments &b, double factor)
{
    return {a.mean + factor * b.mean, a.square + factor * b.square};
}

Moments scaled(const Moments &a, double factor)
{
    return {a.mean * factor, a.square * factor};
}

template <typename Filter> MomentMap filtered(const MomentMap &map, Filter filter)
{
    MomentMap result = map;
    for (int y = 0; y < map.height(); ++y) {
        for (int x = 0; x < map.width(); ++x)
            result.at(x, y) = filter(x, y);
    }
    return result;
}

MomentMap gaussianPass(const MomentMap &map, int dx, int dy)
{
    return filtered(map, [&](int x, int y) {
        Moments sum{0, 0};
        double weights = 0;
        for (int i = -3; i <= 3; ++i) {
            sum = plus(sum, map.at(x + i * dx, y + i * dy), weight(i));
            weights += weight(i);
        }
        return scaled(sum, 1 / weights);
    });
}

/// Searches along one axis for two taps whose line extends to the empty texel.
Moments extendedAlong(const MomentMap &map, int x, int y, int dx, int dy)
{
    const auto tap = [&](int i) { return map.at(x + i * dx, y + i * dy); };
    const auto isFilled = [&](int i) { return tap(i).mean < 1; };
    Moments tA{0, 0};
    Moments tB{0, 0};
    int iA = -5;
    int iB = -5;
    if (isFilled(1)) {
        tA = tap(1);
        iA = 1;
        if (isFilled(2)) {
            tB = tap(2);
            iB = 2;
        }
    }
    if (iB == -5) {
        iA = -5;
        if (isFilled(-1)) {
            tB = tap(-1);
            iB = -1;
        } else if (isFilled(-2)) {
            tA = tap(-2);
            iA = -2;
        }
    }
    if (iB <= iA)
        return map.at(x, y);
    const Moments slope = scaled(plus(tB, tA, -1), 1.0 / (iB - iA));
    return plus(tA, slope, -iA);
}

MomentMap gaussianEdgePass(const MomentMap &map, int dx, int dy, int *extended)
{
    return filtered(map, [&](int x, int y) {
        const Moments center = map.at(x, y);
        if (center.mean >= 1) {
            const Moments result = extendedAlong(map, x, y, dx, dy);
            *extended += result.mean != center.mean ? 1 : 0;
            return result;
        }
        Moments sum{0, 0};
        double weights = 0;
        for (int i = -3; i <= 3; ++i) {
            const Moments tap = map.at(x + i * dx, y + i * dy);
            if (tap.mean > 1)
                continue;
            sum = plus(sum, tap, weight(i));
            weights += weight(i);
        }
        return scaled(sum, 1 / weights);
    });
}

} // namespace

MomentMap::MomentMap(const Image &layer)
    : m_width(layer.width),
      m_height(layer.height)
{
    for (int y = 0; y < m_height; ++y) {
        for (int x = 0; x < m_width; ++x)
            m_texels.append({double(layer.at(x, y)[0]), double(layer.at(x, y)[1])});
    }
}

const Moments &MomentMap::at(int x, int y) const
{
    return m_texels[qBound(0, y, m_height - 1) * m_width + qBound(0, x, m_width - 1)];
}

Moments &MomentMap::at(int x, int y)
{
    return m_texels[y * m_width + x];
}

MomentMap gaussianReference(const MomentMap &map)
{
    return gaussianPass(gaussianPass(map, 1, 0), 0, 1);
}

MomentMap gaussianEdgeReference(const MomentMap &map, int *extended)
{
    return gaussianEdgePass(gaussianEdgePass(map, 1, 0, extended), 0, 1, extended);
}

MomentMap boxReference(const MomentMap &map, bool isOneEmpty, int *extended)
{
    const auto isEmpty = [isOneEmpty](const Moments &t) { return isOneEmpty ? t.mean >= 1 : t.mean > 1; };
    return filtered(map, [&](int x, int y) {
        const Moments center = map.at(x, y);
        if (isEmpty(center)) {
            const int directions[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
            for (const auto &d : directions) {
                const Moments tA = map.at(x + d[0], y + d[1]);
                const Moments tB = map.at(x + 2 * d[0], y + 2 * d[1]);
                if (isEmpty(tA) || isEmpty(tB))
                    continue;
                ++*extended;
                return plus(scaled(tA, 2), tB, -1);
            }
            return center;
        }
        Moments sum = center;
        int count = 1;
        for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
                const Moments tap = map.at(x + dx, y + dy);
                if ((dx == 0 && dy == 0) || tap.mean > 1)
                    continue;
                sum = plus(sum, tap, 1);
                ++count;
            }
        }
        return scaled(sum, 1.0 / count);
    });
}

void expectMoments(const Image &layer, const MomentMap &reference, double tolerance)
{
    int wrong = 0;
    for (int y = 0; y < layer.height; ++y) {
        for (int x = 0; x < layer.width; ++x) {
            const Moments &expected = reference.at(x, y);
            const float *const texel = layer.at(x, y);
            const bool isRight =
                std::abs(texel[0] - expected.mean) <= tolerance * std::max(1.0, std::abs(expected.mean))
                && std::abs(texel[1] - expected.square) <= tolerance * std::max(1.0, std::abs(expected.square));
            if (!isRight && ++wrong <= 5) {
                ADD_FAILURE() << "texel " << x << ", " << y << ": expected " << expected.mean << ", " << expected.square
                              << ", found " << texel[0] << ", " << texel[1];
            }
        }
    }
    EXPECT_EQ(wrong, 0) << "texels";
}

bool isAllFar(const Image &map)
{
    for (int i = 0; i < map.data.size(); i += 4) {
        if (map.data[i] != farMoment || map.data[i + 1] != farMoment)
            return false;
    }
    return !map.data.isEmpty();
}

void expectSameMaps(const QVector<Image> &maps, const QVector<Image> &expected)
{
    ASSERT_EQ(maps.size(), expected.size());
    for (int layer = 0; layer < maps.size(); ++layer)
        EXPECT_EQ(maximumDifference(maps[layer], expected[layer]), 0) << "layer " << layer;
}

int layersOf(Texture *array)
{
    GLint value = 0;
    AutoBinder binder(array);
    glGetTexLevelParameteriv(array->target(), 0, GL_TEXTURE_DEPTH, &value);
    return value;
}

namespace {

/// Binds a texture to its target while it lives.
class Bound
{
public:
    Bound(GLenum target, GLuint texture)
        : m_target(target)
    {
        const GLenum binding = target == GL_TEXTURE_2D ? GL_TEXTURE_BINDING_2D : GL_TEXTURE_BINDING_2D_ARRAY;
        glGetIntegerv(binding, &m_before);
        glBindTexture(target, texture);
    }
    ~Bound() { glBindTexture(m_target, GLuint(m_before)); }

private:
    GLenum m_target;
    GLint m_before = 0;
};

} // namespace

int textureParameter(unsigned int target, unsigned int texture, unsigned int name)
{
    GLint value = 0;
    const Bound bound(target, texture);
    glGetTexParameteriv(target, name, &value);
    return value;
}

int textureLevelParameter(unsigned int target, unsigned int texture, unsigned int name)
{
    GLint value = 0;
    const Bound bound(target, texture);
    glGetTexLevelParameteriv(target, 0, name, &value);
    return value;
}

std::vector<float> borderColor(unsigned int target, unsigned int texture)
{
    std::vector<float> color(4);
    const Bound bound(target, texture);
    glGetTexParameterfv(target, GL_TEXTURE_BORDER_COLOR, color.data());
    return color;
}

QStringList assertionTexts(const char *file, const QStringList &lines)
{
    const QRegularExpression form(
        QStringLiteral("^\\[%1:\\d+\\] \\[ !! \\] Assertion '(.*)' failed: (.*)$").arg(QLatin1String(file)));
    QStringList texts;
    for (const QString &line : lines) {
        const QRegularExpressionMatch match = form.match(line);
        EXPECT_TRUE(match.hasMatch()) << qPrintable(line);
        texts.append(match.captured(1) + QStringLiteral(" | ") + match.captured(2));
    }
    return texts;
}

ShadowMapManager::RenderData *renderDataOf(const RenderPass &pass)
{
    const QVariant value = pass.output(0);
    if (value.userType() == QMetaType::QObjectStar)
        return qobject_cast<ShadowMapManager::RenderData *>(value.value<QObject *>());
    return value.value<ShadowMapManager::RenderData *>();
}

QVector<Image> readMaps(const RenderPass &pass)
{
    QVector<Image> maps;
    const ShadowMapManager::RenderData *const data = renderDataOf(pass);
    EXPECT_TRUE(data && data->projectionTexture()) << "nothing is published";
    for (int layer = 0; data && data->projectionTexture() && layer < data->layerCount; ++layer)
        maps.append(readLayer(data->projectionTexture(), layer));
    return maps;
}

ShadowMapManager::Light *LightList::add(ShadowMapManager::Light::Type type)
{
    m_lights.push_back(std::make_unique<ShadowMapManager::Light>());
    m_lights.back()->type = type;
    return m_lights.back().get();
}

ShadowMapManager::Light *LightList::directional(const QVector3D &direction, int cascades)
{
    ShadowMapManager::Light *const light = add(ShadowMapManager::Light::Directional);
    light->direction = direction;
    light->cascades = cascades;
    return light;
}

ShadowMapManager::Light *LightList::spot(const QVector3D &position, const QVector3D &direction, float cone, float range)
{
    ShadowMapManager::Light *const light = add(ShadowMapManager::Light::Spot);
    light->position = position;
    light->direction = direction;
    light->coneAngle = cone;
    light->range = range;
    return light;
}

ShadowMapManager::Light *LightList::point(const QVector3D &position, float range)
{
    ShadowMapManager::Light *const light = add(ShadowMapManager::Light::Point);
    light->position = position;
    light->range = range;
    return light;
}

QVariantList LightList::values() const
{
    QVariantList values;
    for (const auto &light : m_lights)
        values.append(QVariant::fromValue(light.get()));
    return values;
}

RefusedShaders::RefusedShaders()
{
    m_sources.replacement = [this](GLuint shader, GLsizei, const GLchar *const *, const GLint *) {
        const GLchar *const text = "#version 150\n#error refused\n";
        m_sources.forward(shader, 1, &text, nullptr);
    };
}

void ShadowTest::TearDown()
{
    model.clear();
    GLTest::TearDown();
}

ShadowTest &ShadowTest::add(const MeshData &mesh, const QMatrix4x4 &matrix, quint64 flags)
{
    m_builder.addItem(m_builder.addMesh(mesh), m_builder.addMaterial({}), matrix, flags);
    items.append({mesh, matrix});
    return *this;
}

void ShadowTest::build()
{
    model = m_builder.build();
}

void ShadowTest::buildScene()
{
    QMatrix4x4 turned = placedAt({-2.2f, 1.2f, 0.8f}, {0.9f, 1.1f, 0.7f});
    turned.rotate(35, 1, 2, 0.5f);
    add(groundMesh(), placedAt({0, 0, 0}, {6, 1, 6}));
    add(sphereMesh(6), placedAt({1.5f, 1.6f, -0.5f}));
    add(boxMesh(), turned);
    add(boxMesh(), placedAt({0.5f, 2.8f, 2}, {1.6f, 0.05f, 0.6f}));
    build();
}

void ShadowTest::addWall(float distance, float halfSize, quint64 flags)
{
    add(wallMesh(), placedAt({0, 0, -distance}, {halfSize, halfSize, 1}), flags);
}

ShadowMapManager::Light *ShadowTest::addSpot()
{
    m_hasAxisSpot = true;
    return lights.spot({0, 0, 0}, {0, 0, -1}, 60, 20);
}

double ShadowTest::axisDepth(const RenderPass &pass, double distance, int layer)
{
    // The matrix is stored by columns, and QMatrix4x4 takes rows.
    const DoubleMatrix matrix(QMatrix4x4(renderDataOf(pass)->transforms[layer].matrix).transposed());
    const Vector4d clip = matrix * Vector4d{0, 0, -distance, 1};
    return clip[2] / clip[3];
}

double ShadowTest::axisDistance(const RenderPass &pass, double depth)
{
    double low = 1e-4;
    double high = 100;
    for (int i = 0; i < 100; ++i)
        (axisDepth(pass, (low + high) / 2) < depth ? low : high) = (low + high) / 2;
    return low;
}

void ShadowTest::set(RenderPass &pass, const char *port, const QVariant &value)
{
    const int index = pass.findInput(QString::fromUtf8(port));
    ASSERT_GE(index, 0) << port;
    pass.setInput(index, value);
}

void ShadowTest::connect(RenderPass &pass, int mapSize)
{
    set(pass, "Kvz_KvzGPUModel*_Geometry", QVariant::fromValue(model.data()));
    set(pass, "Kvz_QList_KvzShadowMapManagerLight*_Lights", lights.values());
    set(pass, "Kvz_QSize_MapSize", QSize(mapSize, mapSize));
    // Bounds that contain the lights of addSpot() and all positions of its walls.
    if (m_hasAxisSpot) {
        set(pass, "Kvz_QVector3D_SceneBoundsMin", QVector3D(-30, -30, -30));
        set(pass, "Kvz_QVector3D_SceneBoundsMax", QVector3D(30, 30, 30));
    }
}

void ShadowTest::run(RenderPass &pass)
{
    pass.start(nullptr);
}

void ShadowTest::expectRayCast(const RenderPass &pass, double bias)
{
    const ShadowMapManager::RenderData &data = *renderDataOf(pass);
    const QVector<Image> maps = readMaps(pass);
    int filled = 0;
    for (int layer = 0; layer < maps.size(); ++layer) {
        SCOPED_TRACE(layer);
        // The matrix is stored by columns, and QMatrix4x4 takes rows.
        const QMatrix4x4 matrix = QMatrix4x4(data.transforms[layer].matrix).transposed();
        const RayCaster caster(items, matrix, QMatrix4x4(), QSize(maps[layer].width, maps[layer].height));
        int wrong = 0;
        const RayCastCoverage coverage = caster.compareClearPixels(0.85, 0, [&](int x, int y, const RayHit &hit) {
            const float *const texel = maps[layer].at(x, y);
            if (!hit.isGeometry()) {
                wrong += texel[0] == farMoment && texel[1] == farMoment ? 0 : 1;
                return;
            }
            // Vertices are snapped to a grid of 1/256 pixel, so a steep face is off by a fraction of what a pixel
            // spans.
            const Moments expected = Moments::of(2 * hit.depth - 1 + bias);
            const double span = std::abs(caster.cast(x + 0.55, y + 0.5).depth - caster.cast(x + 0.45, y + 0.5).depth)
                + std::abs(caster.cast(x + 0.5, y + 0.55).depth - caster.cast(x + 0.5, y + 0.45).depth);
            const double tolerance = 4e-6 + 2 * 10 * span / 128;
            // With its bias a depth can end up past the far plane, which makes the texel empty.
            const bool isFar = texel[0] == farMoment && texel[1] == farMoment;
            const bool isHit = std::abs(texel[0] - expected.mean) <= tolerance
                && std::abs(texel[1] - expected.square) <= 2 * tolerance;
            const bool isRight =
                expected.mean > 1 + tolerance ? isFar : isHit || (isFar && expected.mean > 1 - tolerance);
            if (!isRight && ++wrong <= 3)
                ADD_FAILURE() << "texel " << x << ", " << y << ": expected " << expected.mean << " +- " << tolerance
                              << ", found " << texel[0] << ", squares " << expected.square << ", " << texel[1];
        });
        filled += coverage.geometry;
        EXPECT_EQ(wrong, 0) << "texels";
    }
    EXPECT_GT(filled, 200 * maps.size()) << "the maps are nearly empty";
}

void ShadowTest::expectAxisDepth(const RenderPass &pass, const Image &map, double distance, double bias)
{
    // Rounding of a depth near 1 in single precision, by two divisions.
    EXPECT_NEAR(map.at(map.width / 2, map.height / 2)[0], axisDepth(pass, distance) + bias, 2e-6);
}

void ShadowTest::expectBoundsOfPortsElseOfTheModel(RenderPass &pass)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f});
    const QPair<QVector3D, QVector3D> given({-20, -1, -20}, {20, 30, 20});
    const auto frame = [&] {
        connect(pass, 16);
        run(pass);
    };
    const auto expectTransform = [&](const QPair<QVector3D, QVector3D> *bounds) {
        ShadowMapManager::RenderData expected;
        ShadowMapManager::processLights(lights.values(), expected, nullptr, nullptr, bounds);
        const ShadowMapManager::RenderData &data = *renderDataOf(pass);
        ASSERT_EQ(data.transforms.size(), expected.transforms.size());
        EXPECT_TRUE(
            std::equal(data.transforms[0].matrix, data.transforms[0].matrix + 16, expected.transforms[0].matrix));
    };
    const auto own = model->sceneBounds();
    frame();
    expectTransform(&own);
    set(pass, "Kvz_QVector3D_SceneBoundsMin", given.first);
    frame();
    expectTransform(&own); // One corner alone is ignored.
    set(pass, "Kvz_QVector3D_SceneBoundsMax", given.second);
    frame();
    expectTransform(&given);
    set(pass, "Kvz_QVector3D_SceneBoundsMax", QSize(3, 3));
    frame();
    expectTransform(&own);
    // Some versions of Qt consider a variant of a zero vector null.
    set(pass, "Kvz_QVector3D_SceneBoundsMax", given.second);
    set(pass, "Kvz_QVector3D_SceneBoundsMin", QVector3D(0, 0, 0));
    frame();
    const QPair<QVector3D, QVector3D> fromOrigin({0, 0, 0}, given.second);
    expectTransform(QVariant(QVector3D()).isNull() ? &own : &fromOrigin);
    // A model without items has no bounds.
    set(pass, "Kvz_QVector3D_SceneBoundsMax", QVariant());
    model = GPUModelBuilder().build();
    frame();
    expectTransform(nullptr);
}

void ShadowTest::expectCameraOnlyWithBothMatrices(RenderPass &pass)
{
    buildScene();
    lights.directional({-0.4f, -1, -0.3f}, 3);
    const QMatrix4x4 projection = perspective({4, 3}, 0.5f, 40);
    const QMatrix4x4 camera = lookAt({6, 5, 8}, {0, 1, 0});
    const auto layers = [&](const QVariant &projectionValue, const QVariant &cameraValue) {
        set(pass, "Kvz_QMatrix4x4_ProjectionMatrix", projectionValue);
        set(pass, "Kvz_QMatrix4x4_CameraMatrix", cameraValue);
        connect(pass, 16);
        run(pass);
        return renderDataOf(pass)->layerCount;
    };
    // First with both, so that programs are built for the largest number of matrices.
    EXPECT_EQ(layers(projection, camera), 3);
    EXPECT_EQ(layers({}, {}), 1);
    EXPECT_EQ(layers(projection, {}), 1);
    EXPECT_EQ(layers({}, camera), 1);
    EXPECT_EQ(layers(projection, QSize(1, 1)), 1);
    EXPECT_EQ(layers(projection, camera), 3);
}

QMatrix4x4 placedAt(const QVector3D &position, const QVector3D &scale)
{
    QMatrix4x4 matrix;
    matrix.translate(position);
    matrix.scale(scale);
    return matrix;
}

} // namespace Velmora::Kvz
