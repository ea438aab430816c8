// SPDX-License-Identifier: MIT
#pragma once

#include "support/Cameras.h"
#include "support/GLCallRecorder.h"
#include "support/GLTest.h"
#include "support/Meshes.h"
#include "support/RayCast.h"

#include <Core/RenderPassHelper.h>
#include <Scene/GPUModelBuilder.h>
#include <Scene/ShadowMapManager.h>

#include <QtCore/QByteArray>
#include <QtCore/QStringList>
#include <QtCore/QVariantList>

#include <memory>
#include <vector>

namespace Velmora::Kvz {

/// Both moments of a texel that no caster covers.
inline constexpr float farMoment = 1e9f;

/// Moments as a map holds them, in doubles.
struct Moments
{
    double mean = farMoment;
    double square = farMoment;

    static Moments of(double depth) { return {depth, depth * depth}; }
    bool isEmpty() const { return mean > 1e8; }
};

/// A layer of moments that a filter can read beyond its edge.
class MomentMap
{
public:
    explicit MomentMap(const Image &layer);

    int width() const { return m_width; }
    int height() const { return m_height; }
    /// Clamped to the edge.
    const Moments &at(int x, int y) const;
    Moments &at(int x, int y);

private:
    int m_width;
    int m_height;
    QVector<Moments> m_texels;
};

/// \name The filters, texel by texel
/// `extended` counts the empty texels that got the value of a gradient.
/// @{
MomentMap gaussianReference(const MomentMap &map);
MomentMap gaussianEdgeReference(const MomentMap &map, int *extended);
/// `isOneEmpty` says whether a mean of exactly 1 counts as empty.
MomentMap boxReference(const MomentMap &map, bool isOneEmpty, int *extended);
/// @}

/// Checks a filtered layer against its reference. `tolerance` holds for means and squares up to about 1, and grows with
/// them.
void expectMoments(const Image &layer, const MomentMap &reference, double tolerance);

/// Whether no caster touched a layer.
bool isAllFar(const Image &map);
/// Checks that the maps of all layers are the same, bit for bit.
void expectSameMaps(const QVector<Image> &maps, const QVector<Image> &expected);
/// The number of layers of an array.
int layersOf(Texture *array);
/// The texts of assertions as "condition | message", without the line numbers; each must be in this file.
QStringList assertionTexts(const char *file, const QStringList &lines);

/// \name Texture parameters by texture name
/// `target` is the target of planes or of arrays. Bindings are restored.
/// @{
int textureParameter(unsigned int target, unsigned int texture, unsigned int name);
int textureLevelParameter(unsigned int target, unsigned int texture, unsigned int name);
std::vector<float> borderColor(unsigned int target, unsigned int texture);
/// @}

/// The render data that a pass published.
ShadowMapManager::RenderData *renderDataOf(const RenderPass &pass);
/// Reads all layers in use of a pass's array.
QVector<Image> readMaps(const RenderPass &pass);

/// Lights that live as long as the list.
class LightList
{
public:
    ShadowMapManager::Light *directional(const QVector3D &direction, int cascades = 1);
    ShadowMapManager::Light *spot(const QVector3D &position, const QVector3D &direction, float cone, float range);
    ShadowMapManager::Light *point(const QVector3D &position, float range);
    QVariantList values() const;

private:
    ShadowMapManager::Light *add(ShadowMapManager::Light::Type type);
    std::vector<std::unique_ptr<ShadowMapManager::Light>> m_lights;
};

/// Has the driver refuse every shader that is compiled while it lives; the log then says "refused".
class RefusedShaders
{
public:
    RefusedShaders();

private:
    GLCallRecorder<&epoxy_glShaderSource> m_sources;
};

/// A model, lights, and the ports that both shadow passes have.
class ShadowTest : public GLTest
{
protected:
    void TearDown() override;

    /// Adds an item to the model; `matrix` places it.
    ShadowTest &add(const MeshData &mesh, const QMatrix4x4 &matrix = QMatrix4x4(), quint64 flags = 0);
    /// Builds the model of the items added.
    void build();
    /// A floor from -6 to 6 with a sphere, a turned box and a thin plate above it.
    void buildScene();

    /// Adds a wall of this half size across the axis of addSpot().
    void addWall(float distance, float halfSize, quint64 flags = 0);
    /// Adds a spot light at the origin that looks along -z, 60 degrees wide, with a range of 20.
    ShadowMapManager::Light *addSpot();
    /// Normalised device z, by the published matrix, of a point on the axis of addSpot().
    static double axisDepth(const RenderPass &pass, double distance, int layer = 0);
    /// Checks the middle of a map against a wall at this distance.
    static void expectAxisDepth(const RenderPass &pass, const Image &map, double distance, double bias);
    /// The distance at which axisDepth() has this value.
    static double axisDistance(const RenderPass &pass, double depth);

    static void set(RenderPass &pass, const char *port, const QVariant &value);
    /// Sets model, lights and map size.
    void connect(RenderPass &pass, int mapSize);
    /// Runs one frame.
    static void run(RenderPass &pass);

    /// Checks the lights' matrices against bounds from both ports, otherwise from the model, which is replaced at the
    /// end.
    void expectBoundsOfPortsElseOfTheModel(RenderPass &pass);
    /// Checks that cascades follow the camera only when both matrices are set.
    void expectCameraOnlyWithBothMatrices(RenderPass &pass);

    /// Checks every layer against a ray cast; `bias` is what is added to depths.
    void expectRayCast(const RenderPass &pass, double bias);

    QSharedPointer<GPUModel> model;
    LightList lights;
    QVector<RayCastItem> items;

private:
    GPUModelBuilder m_builder;
    bool m_hasAxisSpot = false;
};

QMatrix4x4 placedAt(const QVector3D &position, const QVector3D &scale = QVector3D(1, 1, 1));

} // namespace Velmora::Kvz
