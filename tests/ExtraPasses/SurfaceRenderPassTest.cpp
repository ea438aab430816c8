// SPDX-License-Identifier: MIT
#include "LitFixture.h"

#include <ExtraPasses/SurfaceRenderPass.h>
#include <GL/TextureManager.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

class SurfaceRenderPassTest : public PassTest<SurfaceRenderPass>
{
protected:
    void draw(const LitScene &scene, const View &view)
    {
        m_model = scene.build();
        setViewport(view.size);
        setModel(m_model);
        pass->setInput(Port::ProjectionMatrix, view.projection);
        pass->setInput(Port::CameraMatrix, view.camera);
        pass->start(nullptr);
    }

    QSharedPointer<GPUModel> m_model;
};

constexpr int outputCount = 6;

/// The distance of a texel from its expected value, over all four channels.
double distance(const float *texel, const Vector3d &rgb, double alpha)
{
    double error = std::abs(double(texel[3]) - alpha);
    for (int k = 0; k < 3; ++k)
        error = std::max(error, std::abs(double(texel[k]) - rgb[size_t(k)]));
    return error;
}

} // namespace

TEST_F(SurfaceRenderPassTest, imagesHoldWhatMaterialsAndVerticesSay)
{
    LitScene scene = plainScene();
    MaterialData unlit = coloured({0.2f, 0.9f, 0.4f});
    unlit.isUnlit = true;
    scene.add(sphereMesh(4), unlit, placed({-1, 1.4f, 0.4f}, 0, {0.6f, 0.6f, 0.6f}));
    glEnable(GL_BLEND);
    glEnable(GL_CULL_FACE);
    glColorMask(GL_FALSE, GL_TRUE, GL_TRUE, GL_FALSE);
    glDepthMask(GL_FALSE);
    for (const View &view : {perspectiveView(), parallelView()}) {
        SCOPED_TRACE(view.name);
        draw(scene, view);
        const Image diffuse = image(Port::Diffuse);
        const Image specular = image(Port::Specular);
        const Image normal = image(Port::Normal);
        const Image emission = image(Port::Emission);
        const Image depth = image(Port::Depth);
        const Image id = image(Port::Id);
        saveForViewing(diffuse, QStringLiteral("surface-diffuse-%1").arg(QLatin1String(view.name)));
        double diffuseError = 0, specularError = 0, normalError = 0, emissionError = 0, depthError = 0;
        int wrongIds = 0;
        const LitReference reference(scene, view.projection, view.camera, view.size);
        reference.rays().compareClearPixels(0.8, 1000, [&](int x, int y, const RayHit &hit) {
            const bool isThere = hit.isGeometry();
            const LitSurface surface = isThere ? reference.surfaceAt(x, y, hit) : LitSurface();
            diffuseError =
                std::max(diffuseError, distance(diffuse.at(x, y), surface.baseColour, isThere ? surface.opacity : 0));
            specularError = std::max(specularError, distance(specular.at(x, y), surface.specular, surface.shininess));
            normalError = std::max(normalError, distance(normal.at(x, y), surface.normal, isThere ? hit.item + 1 : 0));
            emissionError = std::max(emissionError, distance(emission.at(x, y), surface.emission, surface.isUnlit));
            depthError = std::max(depthError, std::abs(double(depth.at(x, y)[0]) - hit.depth));
            wrongIds += id.at(x, y)[0] != float(hit.triangle + 1);
        });
        EXPECT_LT(diffuseError, halfStep);
        EXPECT_LT(specularError, 5e-4) << "half floats of numbers up to 60 that are exact, and of shares";
        EXPECT_LT(normalError, 1e-3);
        EXPECT_LT(emissionError, 5e-4);
        EXPECT_LT(depthError, 2e-6);
        EXPECT_EQ(wrongIds, 0);
    }
    const GLenum formats[] = {GL_RGBA8, GL_RGBA16F, GL_RGBA16F, GL_RGBA16F, GL_DEPTH_COMPONENT32F, GL_R32F};
    for (int output = 0; output < outputCount; ++output)
        EXPECT_EQ(texture(output)->internalFormat(0), formats[output]) << output;
}

TEST_F(SurfaceRenderPassTest, numbersBeyondHalfFloatsStayFinite)
{
    MaterialData material = coloured({1, 1, 1}, {1e6f, 1, 1}, 1e5f);
    material.emission = QVector3D(1, 1e7f, 1);
    LitScene scene;
    scene.add(wallMesh(), material);
    draw(scene, wallView(QSize(2, 2)));
    EXPECT_EQ(image(Port::Specular).pixel(0, 0), QVector4D(65504, 1, 1, 65504));
    EXPECT_EQ(image(Port::Emission).pixel(0, 0), QVector4D(1, 65504, 1, 0));
}

TEST_F(SurfaceRenderPassTest, masksCutHolesInAllImages)
{
    MaterialData material = coloured({1, 1, 1}, {1, 1, 1}, 3);
    material.mapKd = QImage(2, 1, QImage::Format_ARGB32);
    material.mapKd.setPixelColor(0, 0, QColor(255, 255, 255, 120));
    material.mapKd.setPixelColor(1, 0, QColor(255, 255, 255, 135));
    material.mapKdSampling.magnification = ImageSampling::Nearest;
    material.alphaMode = MaterialData::Mask;
    LitScene scene;
    scene.add(wallMesh(), material);
    draw(scene, wallView(QSize(4, 2)));
    for (const int output : {Port::Diffuse, Port::Specular, Port::Normal, Port::Emission}) {
        EXPECT_EQ(image(output).pixel(0, 0), QVector4D()) << output;
        EXPECT_EQ(image(output).pixel(3, 0) == QVector4D(), output == Port::Emission) << output;
    }
    EXPECT_EQ(image(Port::Id).at(0, 1)[0], 0);
    EXPECT_GT(image(Port::Id).at(3, 1)[0], 0);
    EXPECT_EQ(image(Port::Depth).at(0, 1)[0], 1);
    EXPECT_EQ(image(Port::Depth).at(3, 1)[0], 0.5f);
}

TEST_F(SurfaceRenderPassTest, sparseLeavesOutImagesThatNothingFills)
{
    const View view = wallView(QSize(4, 2));
    LitScene plain, glowing, unlit;
    plain.add(wallMesh(), coloured({1, 0.5f, 0}, {0.2f, 0.3f, 0.4f}, 7));
    MaterialData material = coloured({0, 0.5f, 1});
    material.emission = QVector3D(0, 0, 0.25f);
    glowing.add(wallMesh(), material);
    material.emission = QVector3D();
    material.isUnlit = true;
    unlit.add(wallMesh(), material);
    for (const LitScene *const scene : {&plain, &glowing, &plain, &unlit}) {
        const bool hasEmission = scene != &plain;
        SCOPED_TRACE(hasEmission);
        pass->setSparse(false);
        draw(*scene, view);
        std::vector<Image> all;
        for (int output = 0; output < outputCount; ++output)
            all.push_back(image(output));
        pass->setSparse(true);
        draw(*scene, view);
        for (int output = 0; output < outputCount; ++output) {
            SCOPED_TRACE(output);
            const bool isThere = output != Port::Id && (output != Port::Emission || hasEmission);
            ASSERT_EQ(texture(output) != nullptr, isThere);
            if (isThere) {
                EXPECT_EQ(maximumDifference(image(output), all[size_t(output)]), 0);
            }
        }
    }
    // The next model may shine where the last one did not, and the pass stays sparse.
    draw(plain, view);
    EXPECT_EQ(texture(Port::Emission), nullptr);
    draw(glowing, view);
    ASSERT_NE(texture(Port::Emission), nullptr);
    EXPECT_EQ(image(Port::Emission).pixel(1, 1), QVector4D(0, 0, 0.25f, 0));
    EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
}

TEST_F(SurfaceRenderPassTest, opaqueOnlyLeavesTransparentItemsOut)
{
    QMatrix4x4 nearer;
    nearer.translate(0, 0, -0.5f);
    LitScene scene;
    scene.add(wallMesh(), coloured({1, 0, 0}));
    scene.add(wallMesh(), coloured({0, 1, 0}), nearer, GPUModel::Transparent);
    for (const bool isOpaqueOnly : {false, true}) {
        pass->setOpaqueOnly(isOpaqueOnly);
        draw(scene, wallView(QSize(4, 4)));
        EXPECT_EQ(image(Port::Diffuse).pixel(1, 1), isOpaqueOnly ? QVector4D(1, 0, 0, 1) : QVector4D(0, 1, 0, 1));
    }
}

TEST_F(SurfaceRenderPassTest, isClearWithoutAModelAndHasNoOutputsWithoutAViewport)
{
    draw(plainScene(), perspectiveView());
    pass->setInput(Port::Geometry, QVariant());
    glClearColor(1, 0.5f, 0.25f, 1);
    pass->start(nullptr);
    const QSize size = perspectiveView().size;
    for (const int output : {Port::Diffuse, Port::Specular, Port::Normal, Port::Emission})
        EXPECT_EQ(maximumDifference(image(output), Image(size.width(), size.height())), 0) << output;
    EXPECT_EQ(image(Port::Id).at(30, 20)[0], 0);
    EXPECT_EQ(image(Port::Depth).at(30, 20)[0], 1);
    pass->setInput(Port::Viewport, QVariant());
    pass->start(nullptr);
    for (int output = 0; output < outputCount; ++output)
        EXPECT_FALSE(pass->output(output).isValid());
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(SurfaceRenderPassTest, remakesItsTargetsWhenTheSizeChanges)
{
    expectTexturesFollowTheViewport(outputCount, outputCount);
}

TEST_F(SurfaceRenderPassTest, leavesTheStateThatItSaysAndCountsNoReferences)
{
    pass->setNumOutputUsers(Port::Diffuse, 2);
    draw(plainScene(), perspectiveView());
    for (const GLenum capability : {GL_DEPTH_TEST, GL_CULL_FACE, GL_BLEND, GL_SCISSOR_TEST, GL_STENCIL_TEST})
        EXPECT_FALSE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0);
    const GLObjectCounts before = glObjectCounts();
    Texture *const diffuse = texture(Port::Diffuse);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::Diffuse).isValid());
    pass->start(nullptr);
    EXPECT_EQ(texture(Port::Diffuse), diffuse);
    pass.reset();
    EXPECT_EQ(glObjectCounts().textures, before.textures - outputCount);
    EXPECT_EQ(glObjectCounts().programs, before.programs - 1);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers - 1);
}

} // namespace Velmora::Kvz
