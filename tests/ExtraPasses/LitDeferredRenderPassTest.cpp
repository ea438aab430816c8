// SPDX-License-Identifier: MIT
#include "LitFixture.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/LitDeferredRenderPass.h>
#include <ExtraPasses/LitForwardRenderPass.h>
#include <ExtraPasses/SurfaceRenderPass.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

#include <limits>

namespace Velmora::Kvz {

namespace {

/// The images of SurfaceRenderPass: its outputs and the inputs that take them.
const QPair<int, int> wires[] = {{SurfaceRenderPass::Diffuse, LitDeferredRenderPass::Diffuse},
    {SurfaceRenderPass::Specular, LitDeferredRenderPass::Specular},
    {SurfaceRenderPass::Normal, LitDeferredRenderPass::Normal},
    {SurfaceRenderPass::Emission, LitDeferredRenderPass::Emission},
    {SurfaceRenderPass::Depth, LitDeferredRenderPass::Depth}};

/// Shares of light that differ from pixel to pixel, the lower left part without an image.
Image sharesImage(const QSize &size, unsigned int seed)
{
    const QImage speckles = speckledImage(size.width(), size.height(), seed);
    Image image(size.width(), size.height());
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            const QColor colour = speckles.pixelColor(x, y);
            const bool isThere = x + y > size.height() / 3;
            image.setPixel(x, y, QVector4D(float(colour.redF()), 0, 1, isThere ? 1 : 0));
        }
    }
    return image;
}

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

// Each light alone, so that a share on the wrong one shows.
TEST_F(LitDeferredRenderPassTest, shadowsAndObscuranceFollowTheFormulas)
{
    LitScene scene = plainScene();
    MaterialData unlit = coloured({0.2f, 0.9f, 0.4f});
    unlit.isUnlit = true;
    scene.add(sphereMesh(4), unlit, placed({-1, 1.4f, 0.4f}, 0, {0.6f, 0.6f, 0.6f}));
    const View view = perspectiveView();
    const Image mask = sharesImage(view.size, 5);
    const Image obscurance = sharesImage(view.size, 9);
    const LitReference reference(scene, view.projection, view.camera, view.size);
    const LitLights several[] = {{}, {1, 0, false}, {0, 0.8, false}, {0, 0, true}};
    for (const LitLights &lights : several) {
        SCOPED_TRACE(testing::Message() << lights.headlight << ' ' << lights.ambient << ' ' << lights.isFixed);
        for (const float strength : {1.0f, 0.4f}) {
            drawSurfaces(scene, view);
            setTexture(Port::ShadowMask, textures.take(TextureFormat::LowDynamicRange, mask, 2));
            setTexture(Port::Obscurance, textures.take(TextureFormat::LowDynamicRange, obscurance, 2));
            pass->setInput(Port::HeadlightIntensity, float(lights.headlight));
            pass->setInput(Port::AmbientIntensity, float(lights.ambient));
            pass->setInput(Port::FixedLight, lights.isFixed);
            pass->setInput(Port::ObscuranceStrength, strength);
            const Image frame = light();
            saveForViewing(frame, QStringLiteral("deferred-shares-%1").arg(lights.ambient));
            double error = 0;
            reference.rays().compareClearPixels(0.8, 1000, [&](int x, int y, const RayHit &hit) {
                LitShares shares;
                if (mask.pixel(x, y).w() == 1) {
                    shares.lamps = double(mask.pixel(x, y).x());
                    shares.surroundings = 1 - double(strength) * (1 - double(obscurance.pixel(x, y).x()));
                }
                const Vector4d expected = reference.colourAt(x, y, hit, lights, shares);
                for (int k = 0; k < 4; ++k)
                    error = std::max(error, std::abs(double(frame.at(x, y)[k]) - expected[size_t(k)]));
            });
            EXPECT_LT(error, 2.0 / 255) << "its inputs have steps of 8 bits, too";
        }
    }
}

TEST_F(LitDeferredRenderPassTest, withoutShadowsOrObscuranceThePictureIsTheSameToTheByte)
{
    const View view = perspectiveView();
    const auto flat = [&](float share, float alpha) {
        return textures.take(TextureFormat::LowDynamicRange,
            filled(view.size.width(), view.size.height(), QVector4D(share, 0.5f, 0, alpha)), 2);
    };
    for (const bool isFixed : {false, true}) {
        pass->setInput(Port::FixedLight, isFixed);
        const Image plain = draw(plainScene(), view);
        // No share taken, no image by its alpha, and no strength.
        for (const int input : {Port::ShadowMask, Port::Obscurance}) {
            for (const auto &texel : {QPair<float, float>(1, 1), QPair<float, float>(0.2f, 0)}) {
                drawSurfaces(plainScene(), view);
                setTexture(input, flat(texel.first, texel.second));
                EXPECT_EQ(maximumDifference(light(), plain), 0) << input << ' ' << texel.first;
                setTexture(input, nullptr);
            }
        }
        for (const float strength : {0.0f, -3.0f}) {
            drawSurfaces(plainScene(), view);
            setTexture(Port::Obscurance, flat(0.3f, 1));
            pass->setInput(Port::ObscuranceStrength, strength);
            EXPECT_EQ(maximumDifference(light(), plain), 0) << strength;
        }
        pass->setInput(Port::ObscuranceStrength, 1.0f);
        drawSurfaces(plainScene(), view);
        setTexture(Port::Obscurance, flat(0.3f, 1));
        const Image full = light();
        EXPECT_GT(maximumDifference(full, plain), 0.2);
        for (const QVariant &strength :
            {QVariant(), QVariant(7.0f), QVariant(std::numeric_limits<float>::quiet_NaN())}) {
            drawSurfaces(plainScene(), view);
            setTexture(Port::Obscurance, flat(0.3f, 1));
            pass->setInput(Port::ObscuranceStrength, strength);
            EXPECT_EQ(maximumDifference(light(), full), 0) << qPrintable(strength.toString());
        }
        setTexture(Port::Obscurance, nullptr);
        pass->setInput(Port::ObscuranceStrength, 1.0f);
    }
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(LitDeferredRenderPassTest, neitherShadowNorCornerDimsALightOfItsOwn)
{
    MaterialData unlit = coloured({0.2f, 0.9f, 0.4f}, {1, 1, 1}, 1);
    unlit.isUnlit = true;
    MaterialData emissive = coloured({});
    emissive.emission = QVector3D(0.2f, 0.9f, 0.4f);
    const View view = wallView(QSize(4, 4));
    const Image black = filled(4, 4, QVector4D(0, 0, 0, 1));
    for (const MaterialData &material : {unlit, emissive}) {
        for (const bool isFixed : {false, true}) {
            LitScene scene;
            scene.add(wallMesh(), material);
            drawSurfaces(scene, view);
            setTexture(Port::ShadowMask, textures.take(TextureFormat::LowDynamicRange, black, 2));
            setTexture(Port::Obscurance, textures.take(TextureFormat::LowDynamicRange, black, 2));
            pass->setInput(Port::FixedLight, isFixed);
            EXPECT_LE(maximumDifference(light(), filled(4, 4, QVector4D(0.2f, 0.9f, 0.4f, 1))), 1.01 / 255);
        }
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

TEST_F(LitDeferredRenderPassTest, isLaidOverABackground)
{
    const View view = perspectiveView();
    const Image alone = draw(plainScene(), view);
    Image colours(view.size.width(), view.size.height());
    const QImage texels = speckledImage(view.size.width(), view.size.height(), 5);
    for (int y = 0; y < colours.height; ++y) {
        for (int x = 0; x < colours.width; ++x)
            colours.setPixel(x, y, QVector4D(float(texels.pixelColor(x, y).redF()), 0.5f, 0.25f, 0.75f));
    }
    Texture *const background = textures.take(TextureFormat::HighDynamicRange, colours, 2);
    setTexture(Port::Background, background);
    const Image frame = light();
    EXPECT_EQ(PooledTextures::references(background), 1);
    double largest = 0;
    int through = 0;
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            const QVector4D front = alone.pixel(x, y);
            through += front.w() < 1 ? 1 : 0;
            const QVector4D expected = front + (1 - front.w()) * colours.pixel(x, y);
            largest = std::max(largest, double((frame.pixel(x, y) - expected).length()));
        }
    }
    EXPECT_GT(through, 1000);
    EXPECT_LT(through, frame.width * frame.height - 1000);
    EXPECT_LT(largest, 2.01 / 255) << "the frame alone was rounded once more";
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
    for (const int input : {Port::ShadowMask, Port::Obscurance}) {
        taken.append(textures.take(TextureFormat::LowDynamicRange, colour, 3));
        setTexture(input, taken.last());
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
    light();
    EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    const Image open = filled(72, 54, QVector4D(1, 1, 1, 1));
    setTexture(Port::ShadowMask, textures.take(TextureFormat::LowDynamicRange, open, 2));
    light();
    EXPECT_EQ(glObjectCounts().programs, before.programs + 2) << "one that reads the mask";
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
    pass->teardown(nullptr);
    pass->teardownContextData(nullptr);
    pass.reset();
    EXPECT_EQ(glObjectCounts().programs, before.programs);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
}

} // namespace Velmora::Kvz
