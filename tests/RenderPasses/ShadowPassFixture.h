// SPDX-License-Identifier: MIT
#pragma once

#include "ShadowReference.h"
#include "support/DriverClaims.h"

#include <RenderPasses/ShadowMapRenderPass.h>
#include <RenderPasses/ShadowMapRenderPass2.h>

#include <QtCore/QString>
#include <QtCore/QVector>

namespace Velmora::Kvz {

/// The driver that a pass is constructed on, by its claims.
struct ShadowDriver
{
    const char *name;
    QByteArray renderer; ///< Empty: its own name.
    int geometryVertices; ///< 0: its own limit.
    bool hidesVertexStage; ///< Hides the extension by which the vertex stage chooses the layer.
};

/// The extension that lets the vertex stage choose the layer.
inline constexpr char vertexStageExtension[] = "GL_ARB_shader_viewport_layer_array";

/// The name of the strategy that this run of the tests is for; empty when the driver decides.
QString expectedShadowStrategy();
/// What the driver calls itself.
QString driverName();
/// Whether this driver has the extension, which cannot be claimed. Mesa's software driver has it unless the run is for
/// another strategy; if it is missing for any other reason, the test fails.
bool hasVertexStage();

/// How the shared tests of the shadow passes differ from pass to pass.
template <typename Pass> struct ShadowPassTraits;

template <> struct ShadowPassTraits<ShadowMapRenderPass>
{
    static constexpr char className[] = "ShadowMapRenderPass";
    /// The metatype of the output's value.
    static constexpr char outputType[] = "Velmora::Kvz::ShadowMapManager::RenderData*";
    static constexpr bool putsViewportBack = false;
    /// Planes of depth beside the two arrays.
    static constexpr size_t depthPlanes = 1;
    /// Whether there is a third array, of biases.
    static constexpr bool hasBiases = false;
    /// The filters that have programs of their own.
    static constexpr int filters[] = {1, 2, 3};
    /// The filters that read an output of the vertex stage, the text to replace there so that linking fails, and the
    /// name that the driver then complains about.
    static constexpr int linkedFilters[] = {1, 2};
    static constexpr char linkedText[] = "in vec2 vo_TexCoord;";
    static constexpr char unlinkedText[] = "in vec3 vo_TexCoord;\n#define vo_TexCoord vo_TexCoord.xy";
    static constexpr char unlinkedName[] = "vo_TexCoord";
    /// The pass treats every driver alike.
    static QVector<ShadowDriver> drivers() { return {{"as it is", {}, 0, false}}; }
};

template <> struct ShadowPassTraits<ShadowMapRenderPass2>
{
    static constexpr char className[] = "ShadowMapRenderPass2";
    static constexpr char outputType[] = "QObject*";
    static constexpr bool putsViewportBack = true;
    static constexpr size_t depthPlanes = 0;
    static constexpr bool hasBiases = true;
    static constexpr int filters[] = {3};
    static constexpr int linkedFilters[] = {3};
    static constexpr char linkedText[] = "in VarGeom {\n    flat int layer;";
    static constexpr char unlinkedText[] = "in VarGeom {\n    flat uint layer;";
    static constexpr char unlinkedName[] = "VarGeom";
    /// One for each row of the pass's strategy table that this driver can run, each with both ways to filter. Prints
    /// them.
    static QVector<ShadowDriver> drivers();
};

/// Draws frames with a shadow pass of either class.
template <typename Pass> class ShadowPassTest : public ShadowTest
{
protected:
    using Traits = ShadowPassTraits<Pass>;
    static constexpr int mapSize = 64;
    /// The bias that the pass adds to every depth; ShadowMapRenderPass2 does so unless a light has its own.
    static constexpr double bias = 0.0005;

    void SetUp() override
    {
        ShadowTest::SetUp();
        make();
    }
    void TearDown() override
    {
        pass.reset();
        ShadowTest::TearDown();
    }

    /// A new pass, for the driver as it is.
    void make()
    {
        pass = std::make_unique<Pass>();
        log.takeDebug();
    }
    /// A new pass, for what the driver claims to be.
    void make(const ShadowDriver &driver)
    {
        const DriverClaims claims(
            driver.renderer, driver.geometryVertices, driver.hidesVertexStage ? vertexStageExtension : QByteArray());
        make();
    }

    Texture *array() const { return renderDataOf(*pass)->projectionTexture(); }
    void setFilter(int filter) { pass->setInput(Pass::Filter, filter); }
    /// Draws a frame of the scene and its lights and returns the maps of all layers.
    QVector<Image> render(int filter)
    {
        setFilter(filter);
        connect(*pass, mapSize);
        run(*pass);
        return readMaps(*pass);
    }
    /// Sets a camera, to which directional lights fit their cascades.
    static void setView(RenderPass &target)
    {
        set(target, "Kvz_QMatrix4x4_ProjectionMatrix", perspective({4, 3}, 0.5f, 40));
        set(target, "Kvz_QMatrix4x4_CameraMatrix", lookAt({6, 5, 8}, {0, 1, 0}));
    }
    /// Adds lights of all three kinds: eight layers, and ten with a camera, which is no multiple of eight.
    void addLights()
    {
        lights.directional({-0.4f, -1, -0.3f}, 3);
        lights.spot({4, 6, 3}, {-4, -6, -3}, 100, 20);
        lights.point({-0.5f, 4.5f, 0}, 15);
    }
    /// A wall on the axis of addSpot(), turned away from it.
    static QMatrix4x4 turnedWall()
    {
        QMatrix4x4 turned = placedAt({0, 0, -5}, {1, 1, 1});
        turned.rotate(180, 0, 1, 0);
        return turned;
    }
    /// Takes the only debug line of the pass, which must name its file and contain this word.
    void expectOneDebugLine(const char *word)
    {
        log.takeCategory(QStringLiteral("kvz.gl"));
        const QStringList lines = log.takeDebug();
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(lines[0].startsWith(QStringLiteral("[%1:").arg(QLatin1String(Traits::className))))
            << qPrintable(lines[0]);
        EXPECT_TRUE(lines[0].contains(QLatin1String(word))) << qPrintable(lines[0]);
    }

    std::unique_ptr<Pass> pass;
};

} // namespace Velmora::Kvz
