// SPDX-License-Identifier: MIT
#include "LitFixture.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/LitDeferredRenderPass.h>
#include <ExtraPasses/LitForwardRenderPass.h>
#include <ExtraPasses/SurfaceRenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

/// The images of SurfaceRenderPass: its outputs and the inputs that take them.
const QPair<int, int> wires[] = {{SurfaceRenderPass::Diffuse, LitDeferredRenderPass::Diffuse},
    {SurfaceRenderPass::Specular, LitDeferredRenderPass::Specular},
    {SurfaceRenderPass::Normal, LitDeferredRenderPass::Normal},
    {SurfaceRenderPass::Emission, LitDeferredRenderPass::Emission},
    {SurfaceRenderPass::Depth, LitDeferredRenderPass::Depth}};

class LitDeferredRenderPassTest : public PassTest<LitDeferredRenderPass>
{
protected:
    /// Draws the surface images of a scene and connects them to the pass.
    void drawSurfaces(const LitScene &scene, const View &view)
    {
        m_model = scene.build();
        surfaces->setInput(SurfaceRenderPass::Viewport, QRect(QPoint(), view.size));
        surfaces->setInput(SurfaceRenderPass::ProjectionMatrix, view.projection);
        surfaces->setInput(SurfaceRenderPass::CameraMatrix, view.camera);
        surfaces->setInput(SurfaceRenderPass::Geometry, QVariant::fromValue(m_model.data()));
        surfaces->start(nullptr);
        setViewport(view.size);
        pass->setInput(Port::ProjectionMatrix, view.projection);
        for (const auto &wire : wires)
            pass->setInput(wire.second, surfaces->output(wire.first));
    }
    Image light()
    {
        pass->setNumOutputUsers(Port::Frame, 1);
        pass->start(nullptr);
        if (!texture(Port::Frame)) {
            ADD_FAILURE() << "there is no frame";
            return {};
        }
        const Image frame = image(Port::Frame);
        TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 1);
        return frame;
    }
    Image draw(const LitScene &scene, const View &view)
    {
        drawSurfaces(scene, view);
        return light();
    }

    std::unique_ptr<SurfaceRenderPass> surfaces = std::make_unique<SurfaceRenderPass>();
    PooledTextures textures;
    QSharedPointer<GPUModel> m_model;
};

} // namespace

TEST_F(LitDeferredRenderPassTest, lightsAsTheForwardPassDoes)
{
    LitScene scene = plainScene();
    MaterialData unlit = coloured({0.2f, 0.9f, 0.4f});
    unlit.isUnlit = true;
    scene.add(sphereMesh(4), unlit, placed({-1, 1.4f, 0.4f}, 0, {0.6f, 0.6f, 0.6f}));
    MaterialData sharp = coloured({0.2f, 0.2f, 0.2f}, {1, 1, 1}, 900);
    sharp.mapKd = speckledImage(8, 8);
    sharp.isLitFromBothSides = false;
    scene.add(sphereMesh(9), sharp, placed({1.6f, -0.6f, 1.5f}, 0, {0.7f, 0.7f, 0.7f}));
    const LitLights several[] = {{}, {0.3, 0.6, false}, {0, 0, true}};
    for (const View &view : {perspectiveView(), parallelView()}) {
        SCOPED_TRACE(view.name);
        for (const LitLights &lights : several) {
            LitForwardRenderPass forward;
            const auto setLights = [&lights](RenderPass &target) {
                target.setInput(
                    target.findInput(QStringLiteral("Kvz_float_HeadlightIntensity")), float(lights.headlight));
                target.setInput(target.findInput(QStringLiteral("Kvz_float_AmbientIntensity")), float(lights.ambient));
                target.setInput(target.findInput(QStringLiteral("Kvz_bool_FixedLight")), lights.isFixed);
            };
            setLights(*pass);
            setLights(forward);
            const Image frame = draw(scene, view);
            saveForViewing(frame, QStringLiteral("deferred-%1-%2").arg(QLatin1String(view.name)).arg(lights.ambient));
            forward.setInput(LitForwardRenderPass::Viewport, QRect(QPoint(), view.size));
            forward.setInput(LitForwardRenderPass::ProjectionMatrix, view.projection);
            forward.setInput(LitForwardRenderPass::CameraMatrix, view.camera);
            forward.setInput(LitForwardRenderPass::Geometry, QVariant::fromValue(m_model.data()));
            forward.start(nullptr);
            const Image expected = readTexture(forward.output(LitForwardRenderPass::Frame).value<Texture *>());
            EXPECT_LE(maximumDifference(frame, expected), 2.01 / 255);
            EXPECT_GT(pixelsBeyond(expected, Image(view.size.width(), view.size.height()), 0.1), 1000);
        }
    }
}

TEST_F(LitDeferredRenderPassTest, litPixelsFollowTheFormulas)
{
    const LitScene scene = plainScene();
    for (const View &view : {perspectiveView(), parallelView()}) {
        SCOPED_TRACE(view.name);
        EXPECT_LT(largestError(draw(scene, view), scene, view), 2.0 / 255) << "its inputs have steps of 8 bits, too";
    }
}

TEST_F(LitDeferredRenderPassTest, doesWithoutSomeImages)
{
    MaterialData material = coloured({0.4f, 0.3f, 0.2f}, {0.3f, 0.3f, 0.3f}, 1);
    material.emission = QVector3D(0, 0, 0.2f);
    LitScene scene;
    scene.add(wallMesh(), material);
    const View view = wallView(QSize(4, 4));
    const auto expectColour = [this](float r, float g, float b) {
        EXPECT_LE(maximumDifference(light(), filled(4, 4, QVector4D(r, g, b, 1))), 1.01 / 255);
    };
    drawSurfaces(scene, view);
    pass->setInput(Port::HeadlightIntensity, 0.5f);
    pass->setInput(Port::AmbientIntensity, 0.1f);
    expectColour(0.39f, 0.33f, 0.47f);
    setTexture(Port::Specular, nullptr);
    expectColour(0.24f, 0.18f, 0.32f);
    setTexture(Port::Emission, nullptr);
    expectColour(0.24f, 0.18f, 0.12f);
    setTexture(Port::Depth, nullptr);
    expectColour(0.24f, 0.18f, 0.12f);
    for (const int input : {Port::Diffuse, Port::Normal}) {
        drawSurfaces(scene, view);
        setTexture(input, nullptr);
        pass->start(nullptr);
        EXPECT_FALSE(pass->output(Port::Frame).isValid());
    }
    drawSurfaces(scene, view);
    pass->setInput(Port::Viewport, QRect(0, 0, 4, 0));
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::Frame).isValid());
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(LitDeferredRenderPassTest, theDirectionToTheEyeNeedsNoDepth)
{
    const LitScene scene = plainScene();
    const View view = perspectiveView();
    const Image expected = draw(scene, view);
    setTexture(Port::Depth, nullptr);
    EXPECT_LE(maximumDifference(light(), expected), 1.01 / 255);
}

TEST_F(LitDeferredRenderPassTest, isClearWhereNothingIsWhateverWasThere)
{
    const View view = wallView(QSize(4, 4));
    LitScene wall;
    wall.add(wallMesh(), coloured({1, 1, 1}));
    EXPECT_EQ(maximumDifference(draw(wall, view), filled(4, 4, QVector4D(1, 1, 1, 1))), 0);
    EXPECT_EQ(maximumDifference(draw(LitScene(), view), Image(4, 4)), 0);
}

TEST_F(LitDeferredRenderPassTest, givesEachInputBackOnceAndHandsItsFrameOn)
{
    const Image colour = filled(6, 4, QVector4D(0.5f, 0.25f, 1, 1));
    const QSize size(6, 4);
    setViewport(size);
    QVector<Texture *> taken;
    for (const auto &wire : wires) {
        taken.append(textures.take(TextureFormat::HighDynamicRange, colour, 3));
        setTexture(wire.second, taken.last());
    }
    pass->setNumOutputUsers(Port::Frame, 2);
    glEnable(GL_BLEND);
    glEnable(GL_DEPTH_TEST);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    pass->start(nullptr);
    for (const Texture *texture : qAsConst(taken))
        EXPECT_EQ(PooledTextures::references(texture), 2);
    ASSERT_TRUE(texture(Port::Frame));
    EXPECT_EQ(PooledTextures::references(texture(Port::Frame)), 2);
    EXPECT_EQ(texture(Port::Frame)->internalFormat(0), GL_RGBA8);
    EXPECT_EQ(image(Port::Frame).pixel(5, 3), QVector4D(128.0f / 255, 64.0f / 255, 1, 1))
        << "an image of emission with 1 in alpha: unlit";
    for (const GLenum capability : {GL_DEPTH_TEST, GL_BLEND, GL_SCISSOR_TEST})
        EXPECT_FALSE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    TextureManager::Instance()->releaseTempTextureRef(texture(Port::Frame), 2);

    // A skipped frame, and one without a result, gives them back as well.
    pass->skip(nullptr);
    for (const Texture *texture : qAsConst(taken))
        EXPECT_EQ(PooledTextures::references(texture), 1);
    for (Texture *texture : qAsConst(taken))
        TextureManager::Instance()->addTempTextureRef(texture, 1);
    pass->setInput(Port::Viewport, QVariant());
    pass->start(nullptr);
    for (const Texture *texture : qAsConst(taken))
        EXPECT_EQ(PooledTextures::references(texture), 1);
}

TEST_F(LitDeferredRenderPassTest, takesItsObjectsAlong)
{
    drawSurfaces(plainScene(), perspectiveView());
    const GLObjectCounts before = glObjectCounts();
    light();
    EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
    pass->teardown(nullptr);
    pass->teardownContextData(nullptr);
    pass.reset();
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
}

} // namespace Velmora::Kvz
