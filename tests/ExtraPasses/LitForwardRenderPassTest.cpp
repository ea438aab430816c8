// SPDX-License-Identifier: MIT
#include "LitFixture.h"
#include "support/DriverClaims.h"
#include "support/ItemDrawRecorder.h"
#include "support/PooledTextures.h"
#include "support/RayCastScene.h"

#include <ExtraPasses/LitForwardRenderPass.h>
#include <GL/FixedTextureUnits.h>
#include <GL/TextureManager.h>
#include <RenderPasses/ForwardRenderPass.h>
#include <Scene/InstanceDataCollection.h>

#include <QtCore/QRect>
#include <QtGui/QTransform>

#include <epoxy/gl.h>

#include <cmath>
#include <limits>

namespace Velmora::Kvz {

namespace {

class LitForwardRenderPassTest : public PassTest<LitForwardRenderPass>
{
protected:
    Image draw(const QSharedPointer<GPUModel> &model, const View &view)
    {
        setViewport(view.size);
        setModel(model);
        pass->setInput(Port::ProjectionMatrix, view.projection);
        pass->setInput(Port::CameraMatrix, view.camera);
        pass->start(nullptr);
        const Image frame = image(Port::Frame);
        saveForViewing(frame,
            QStringLiteral("%1-%2").arg(QLatin1String(::testing::UnitTest::GetInstance()->current_test_info()->name()),
                QLatin1String(view.name)));
        return frame;
    }
    Image draw(const LitScene &scene, const View &view)
    {
        m_model = scene.build();
        return draw(m_model, view);
    }
    /// The single colour of a wall that fills the picture.
    QVector4D drawWall(const MeshData &mesh, const MaterialData &material, const QMatrix4x4 &matrix = QMatrix4x4())
    {
        LitScene scene;
        scene.add(mesh, material, matrix);
        const Image frame = draw(scene, wallView(QSize(4, 4)));
        EXPECT_EQ(maximumDifference(frame, filled(4, 4, frame.pixel(0, 0))), 0) << "the wall has one colour";
        return frame.pixel(1, 2);
    }

    QSharedPointer<GPUModel> m_model;
};

void expectColour(const QVector4D &colour, const QVector4D &expected)
{
    EXPECT_LE((colour - expected).length(), 2 * halfStep)
        << colour.x() << ' ' << colour.y() << ' ' << colour.z() << ' ' << colour.w() << ", expected " << expected.x()
        << ' ' << expected.y() << ' ' << expected.z() << ' ' << expected.w();
}

/// The mesh divided by `scale`, so that a matrix can scale it back. A mirroring scale reverses the triangles, as in
/// files.
MeshData scaledBack(MeshData mesh, const QVector3D &scale)
{
    for (QVector3D &position : mesh.positions)
        position /= scale;
    for (QVector3D &normal : mesh.normals)
        normal = (normal * scale).normalized();
    if (scale.x() * scale.y() * scale.z() < 0) {
        for (int i = 0; i < mesh.indices.size(); i += 3)
            std::swap(mesh.indices[i], mesh.indices[i + 1]);
    }
    return mesh;
}

MeshData turnedRound(MeshData mesh)
{
    for (int i = 0; i < mesh.indices.size(); i += 3)
        std::swap(mesh.indices[i], mesh.indices[i + 1]);
    return mesh;
}

} // namespace

TEST_F(LitForwardRenderPassTest, litPixelsFollowTheFormulas)
{
    const LitScene scene = plainScene();
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE);
    glEnable(GL_CULL_FACE);
    glColorMask(GL_TRUE, GL_FALSE, GL_TRUE, GL_FALSE);
    glDepthMask(GL_FALSE);
    glDepthFunc(GL_GREATER);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    glEnable(GL_STENCIL_TEST);
    glVertexAttrib4f(3, 0.1f, 0.2f, 0.3f, 0.4f);
    for (const View &view : {perspectiveView(), parallelView()}) {
        SCOPED_TRACE(view.name);
        EXPECT_LT(largestError(draw(scene, view), scene, view), halfStep);
        const Image id = image(Port::Id);
        const Image depth = image(Port::Depth);
        int wrong = 0;
        double depthError = 0;
        LitReference(scene, view.projection, view.camera, view.size)
            .rays()
            .compareClearPixels(0.8, 1000, [&](int x, int y, const RayHit &hit) {
                wrong += id.at(x, y)[0] != float(hit.triangle + 1);
                depthError = std::max(depthError, std::abs(double(depth.at(x, y)[0]) - hit.depth));
            });
        EXPECT_EQ(wrong, 0) << "numbers of triangles";
        EXPECT_LT(depthError, 2e-6);
    }
    EXPECT_EQ(texture(Port::Frame)->internalFormat(0), GL_RGBA8);
    EXPECT_EQ(texture(Port::Depth)->internalFormat(0), GL_DEPTH_COMPONENT32F);
    EXPECT_EQ(texture(Port::Id)->internalFormat(0), GL_R32F);
}

TEST_F(LitForwardRenderPassTest, takesItsLightFromTheInputs)
{
    const LitScene scene = plainScene();
    const View view = perspectiveView();
    const LitLights several[] = {{0, 0.5, false}, {1.7, 0, false}, {0, 0, true}};
    for (const LitLights &lights : several) {
        pass->setInput(Port::HeadlightIntensity, float(lights.headlight));
        pass->setInput(Port::AmbientIntensity, float(lights.ambient));
        pass->setInput(Port::FixedLight, lights.isFixed);
        EXPECT_LT(largestError(draw(scene, view), scene, view, lights), halfStep);
    }
    // With only the fixed light the result is that of the basic pass, where normals have unit length and colours are
    // opaque.
    LitScene box;
    box.add(boxMesh(), coloured({0.8f, 0.7f, 0.2f}, {0.9f, 0.8f, 0.7f}, 60), placed({0, 0, 0}, 35));
    const Image lit = draw(box, view);
    ForwardRenderPass basic;
    basic.setInput(ForwardRenderPass::Viewport, QRect(QPoint(), view.size));
    basic.setInput(ForwardRenderPass::ProjectionMatrix, view.projection);
    basic.setInput(ForwardRenderPass::CameraMatrix, view.camera);
    basic.setInput(ForwardRenderPass::Geometry, QVariant::fromValue(m_model.data()));
    basic.start(nullptr);
    const Image expected = readTexture(basic.output(ForwardRenderPass::Frame).value<Texture *>());
    EXPECT_LE(maximumDifference(lit, expected), 1.01 / 255);
    EXPECT_GT(pixelsBeyond(lit, Image(view.size.width(), view.size.height()), 0.1), 100);
}

TEST_F(LitForwardRenderPassTest, countsNullAndNonsenseAsTheUsualLight)
{
    const MaterialData grey = coloured({0.5f, 0.5f, 0.5f});
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    for (const QVariant &nothing : {QVariant(), QVariant(nan), QVariant(infinity)}) {
        for (const int input : {Port::HeadlightIntensity, Port::AmbientIntensity, Port::FixedLight}) {
            pass->setInput(input, input == Port::FixedLight ? QVariant() : nothing);
            expectColour(drawWall(wallMesh(), grey), QVector4D(0.5f, 0.5f, 0.5f, 1));
        }
    }
    pass->setInput(Port::AmbientIntensity, -3.0f);
    expectColour(drawWall(wallMesh(), grey), QVector4D(0.425f, 0.425f, 0.425f, 1));
    pass->setInput(Port::HeadlightIntensity, -0.1f);
    expectColour(drawWall(wallMesh(), grey), QVector4D(0, 0, 0, 1));
}

TEST_F(LitForwardRenderPassTest, aScaleOnScaledGeometryChangesNothing)
{
    View view = perspectiveView();
    view.camera = lookAt(QVector3D(0.8f, 1.4f, 3), QVector3D());
    const QMatrix4x4 place = placed({0.2f, 0.1f, 0}, 30);
    const MeshData ball = sphereMesh(7);
    const QVector3D scales[] = {{0.001f, 0.001f, 0.001f}, {1000, 1000, 1000}, {0.001f, 1, 1000}, {-1, 1, 1},
        {-0.001f, 0.001f, 0.001f}, {1000, -0.1f, 3}, {-30, -0.02f, -1}};
    for (const bool isTwoSided : {true, false}) {
        MaterialData material = coloured({0.8f, 0.6f, 0.4f}, {0.5f, 0.5f, 0.5f}, 30);
        material.isLitFromBothSides = isTwoSided;
        LitScene plain;
        plain.add(ball, material, place);
        const Image expected = draw(plain, view);
        EXPECT_LT(largestError(expected, plain, view, {}, 0.8, 300), halfStep);
        for (const QVector3D &scale : scales) {
            SCOPED_TRACE(::testing::Message() << scale.x() << ' ' << scale.y() << ' ' << scale.z());
            QMatrix4x4 matrix = place;
            matrix.scale(scale);
            LitScene scaled;
            scaled.add(scaledBack(ball, scale), material, matrix);
            EXPECT_LE(maximumDifference(draw(scaled, view), expected), 2.01 / 255);
        }
    }
}

TEST_F(LitForwardRenderPassTest, lightsTheSeenSideWhereTheMaterialSaysSo)
{
    MaterialData material = coloured({0.6f, 0.4f, 0.2f});
    QMatrix4x4 mirrored;
    mirrored.scale(-1, 1, 1);
    QMatrix4x4 behind;
    behind.rotate(180, 0, 1, 0);
    const QVector4D lit(0.6f, 0.4f, 0.2f, 1);
    const QVector4D ambient(0.09f, 0.06f, 0.03f, 1);
    for (const bool isTwoSided : {true, false}) {
        material.isLitFromBothSides = isTwoSided;
        expectColour(drawWall(wallMesh(), material), lit);
        expectColour(drawWall(wallMesh(), material, behind), isTwoSided ? lit : ambient);
        // A mirrored wall shows its front although its winding is reversed.
        expectColour(drawWall(wallMesh(), material, mirrored), lit);
        expectColour(drawWall(wallMesh(), material, behind * mirrored), isTwoSided ? lit : ambient);
    }
    // Normals towards the viewer on triangles that show their back: the normals decide, unless both sides are lit.
    expectColour(drawWall(turnedRound(wallMesh()), material), lit);
    material.isLitFromBothSides = true;
    expectColour(drawWall(turnedRound(wallMesh()), material), ambient);
}

TEST_F(LitForwardRenderPassTest, lightsWhatIsScaledFlatByTheFlatSurface)
{
    const MaterialData material = coloured({0.6f, 0.4f, 0.2f});
    for (const float scale : {0.0f, 1e-6f, 1e-30f}) {
        for (const float angle : {90.0f, -90.0f}) {
            QMatrix4x4 flat;
            flat.rotate(angle, 0, 1, 0); // the sides face the eye
            flat.scale(scale, 1, 1);
            expectColour(drawWall(boxMesh(), material, flat), QVector4D(0.6f, 0.4f, 0.2f, 1));
        }
    }
}

TEST_F(LitForwardRenderPassTest, lightsSurfacesWithoutNormalsFromTheFront)
{
    MeshData mesh = wallMesh();
    mesh.normals.clear();
    QMatrix4x4 behind;
    behind.rotate(180, 0, 1, 0);
    for (const bool isTwoSided : {true, false}) {
        MaterialData material = coloured({0.6f, 0.4f, 0.2f});
        material.isLitFromBothSides = isTwoSided;
        expectColour(drawWall(mesh, material), QVector4D(0.6f, 0.4f, 0.2f, 1));
        expectColour(drawWall(mesh, material, behind), QVector4D(0.6f, 0.4f, 0.2f, 1));
    }
}

TEST_F(LitForwardRenderPassTest, masksCutHolesAtTheirCutoff)
{
    MaterialData material = coloured({0.7f, 0.7f, 0.7f});
    material.mapKd = QImage(8, 1, QImage::Format_ARGB32);
    for (int x = 0; x < 8; ++x)
        material.mapKd.setPixelColor(x, 0, QColor(255, 255, 255, 36 * x));
    material.mapKdSampling.magnification = ImageSampling::Nearest;
    material.mapKdSampling.minification = ImageSampling::Nearest;
    material.alphaMode = MaterialData::Mask;
    for (const float d : {1.0f, 0.6f}) {
        material.d = d;
        for (const float cutoff : {0.0f, 0.5f, 0.98f, 1.0f}) {
            material.alphaCutoff = cutoff;
            LitScene scene;
            scene.add(wallMesh(), material);
            const View view = wallView(QSize(8, 2));
            const Image frame = draw(scene, view);
            const Image id = image(Port::Id);
            const Image depth = image(Port::Depth);
            for (int x = 0; x < 8; ++x) {
                const bool isThere = d * 36 * float(x) / 255 >= cutoff;
                EXPECT_NEAR(frame.at(x, 1)[0], isThere ? 0.7f : 0, halfStep) << d << ' ' << cutoff << ' ' << x;
                EXPECT_EQ(frame.at(x, 1)[3], isThere ? 1 : 0) << "what is there is opaque";
                EXPECT_EQ(id.at(x, 1)[0] > 0, isThere);
                EXPECT_EQ(depth.at(x, 1)[0] < 1, isThere);
            }
        }
    }
    // The same alphas are opacities where the material blends, and have no effect where it is opaque.
    for (const MaterialData::AlphaMode mode : {MaterialData::Blend, MaterialData::Opaque}) {
        material.alphaMode = mode;
        LitScene scene;
        scene.add(wallMesh(), material);
        const Image frame = draw(scene, wallView(QSize(8, 2)));
        for (int x = 0; x < 8; ++x) {
            const float opacity = mode == MaterialData::Blend ? 0.6f * 36 * float(x) / 255 : 1;
            EXPECT_NEAR(frame.at(x, 0)[0], 0.7f * opacity, halfStep) << "multiplied by opacity";
            EXPECT_NEAR(frame.at(x, 0)[3], opacity, halfStep);
        }
    }
}

TEST_F(LitForwardRenderPassTest, noColourExceedsItsAlpha)
{
    MaterialData material = coloured({1, 0.5f, 0}, {3, 3, 3}, 1);
    material.d = 0.25f;
    material.emission = QVector3D(0, 0, 2);
    expectColour(drawWall(wallMesh(), material), QVector4D(0.25f, 0.25f, 0.25f, 0.25f));
}

TEST_F(LitForwardRenderPassTest, imagesAreReadAsTheirSamplingSays)
{
    const View view = wallView(QSize(48, 48));
    MeshData wall = wallMesh();
    // From -1.3 to 1.7 in both coordinates; exchanged, and one of them reversed, in the second set.
    for (QVector2D &texCoord : wall.texCoords) {
        texCoord = texCoord * 3 - QVector2D(1.3f, 1.3f);
        wall.texCoords1.append(QVector2D(texCoord.y(), -texCoord.x()));
    }
    using Wrap = ImageSampling::Wrap;
    const QPair<Wrap, Wrap> wraps[] = {{ImageSampling::Repeat, ImageSampling::Repeat},
        {ImageSampling::MirroredRepeat, ImageSampling::ClampToEdge},
        {ImageSampling::ClampToEdge, ImageSampling::MirroredRepeat},
        {ImageSampling::Repeat, ImageSampling::ClampToEdge}, {ImageSampling::MirroredRepeat, ImageSampling::Repeat}};
    for (const QPair<Wrap, Wrap> &wrap : wraps) {
        for (const ImageSampling::Filter filter : {ImageSampling::Linear, ImageSampling::Nearest}) {
            for (const int set : {0, 1}) {
                SCOPED_TRACE(::testing::Message() << wrap.first << ' ' << wrap.second << ' ' << filter << ' ' << set);
                ImageSampling sampling;
                sampling.wrapU = wrap.first;
                sampling.wrapV = wrap.second;
                sampling.magnification = filter;
                sampling.minification = ImageSampling::Nearest; // No effect here.
                sampling.uvSet = set;
                MaterialData material = coloured({1, 0.9f, 0.8f}, {0.5f, 0.5f, 0.5f}, 4);
                material.mapKd = speckledImage(8, 4);
                material.mapKdSampling = sampling;
                material.mapKs = speckledImage(8, 4, 2);
                material.mapKsSampling = sampling;
                material.mapEmission = speckledImage(4, 4, 3);
                material.mapEmissionSampling = sampling;
                material.emission = QVector3D(0.3f, 0.2f, 0.1f);
                LitScene scene;
                scene.add(wall, material);
                // Drivers filter in steps of 1/256, and three images add up here.
                EXPECT_LT(largestError(draw(scene, view), scene, view, {}, 0.8, 1500), 3.0 / 255);
            }
        }
    }
}

TEST_F(LitForwardRenderPassTest, eachImageHasATransformAndASetOfItsOwn)
{
    const View view = wallView(QSize(48, 48));
    MeshData wall = wallMesh();
    for (const QVector2D &texCoord : qAsConst(wall.texCoords))
        wall.texCoords1.append(QVector2D(0.5f * texCoord.x() + texCoord.y(), texCoord.x()));
    QTransform turned;
    turned.translate(0.3, -0.2);
    turned.rotate(30);
    turned.scale(1.5, 0.7);
    MaterialData material = coloured({1, 0.9f, 0.8f}, {0.5f, 0.5f, 0.5f}, 4);
    material.mapKd = speckledImage(8, 8);
    material.mapKdSampling.transform = turned;
    material.mapKs = speckledImage(4, 8, 2);
    material.mapKsSampling.uvSet = 1;
    material.mapKsSampling.transform.translate(0.4, 0.1);
    material.mapEmission = speckledImage(8, 8, 3);
    material.mapEmissionSampling.transform.scale(-1, 0.5);
    material.emission = QVector3D(0.3f, 0.2f, 0.1f);
    LitScene scene;
    scene.add(wall, material);
    EXPECT_LT(largestError(draw(scene, view), scene, view, {}, 0.8, 1500), 3.0 / 255);
}

TEST_F(LitForwardRenderPassTest, quadsWhoseTransformsUndoTheirCoordinatesLookAlike)
{
    // Offset, rotation, scale, and all of them combined, on coordinates with the inverse transform applied.
    QTransform offset, rotation, scale;
    offset.translate(0.35, 0.15);
    rotation.rotate(-20);
    scale.scale(0.6, 1.7);
    MaterialData material = coloured({1, 1, 1});
    material.mapKd = speckledImage(8, 8);
    LitScene plain;
    plain.add(wallMesh(), material);
    const View view = wallView(QSize(40, 40));
    const Image expected = draw(plain, view);
    EXPECT_LT(largestError(expected, plain, view, {}, 0.8, 1500), 2.0 / 255);
    for (const QTransform &transform : {offset, rotation, scale, scale * rotation * offset}) {
        MeshData wall = wallMesh();
        for (QVector2D &texCoord : wall.texCoords)
            texCoord = QVector2D(transform.inverted().map(texCoord.toPointF()));
        material.mapKdSampling.transform = transform;
        LitScene scene;
        scene.add(wall, material);
        EXPECT_LE(maximumDifference(draw(scene, view), expected), 2.01 / 255);
    }
}

TEST_F(LitForwardRenderPassTest, smallImagesAreReadFromMipLevelsUnlessTheyAreNot)
{
    // Eight by eight texels per pixel: the mean of black and white, or one of them.
    MaterialData material = coloured({1, 1, 1});
    material.mapKd = checkerImage(64, Qt::black, Qt::white);
    const auto draws = [&] {
        LitScene scene;
        scene.add(wallMesh(), material);
        return draw(scene, wallView(QSize(8, 8)));
    };
    for (const ImageSampling::Wrap wrap :
        {ImageSampling::Repeat, ImageSampling::MirroredRepeat, ImageSampling::ClampToEdge}) {
        material.mapKdSampling.wrapU = wrap;
        material.mapKdSampling.minification = ImageSampling::Linear;
        material.mapKdSampling.mipmaps = true;
        EXPECT_LE(maximumDifference(draws(), filled(8, 8, QVector4D(0.5f, 0.5f, 0.5f, 1))), 2.01 / 255) << wrap;
        material.mapKdSampling.minification = ImageSampling::Nearest;
        EXPECT_LE(maximumDifference(draws(), filled(8, 8, QVector4D(0.5f, 0.5f, 0.5f, 1))), 2.01 / 255) << wrap;
        material.mapKdSampling.mipmaps = false;
        const Image texels = draws();
        for (int i = 0; i < 64; ++i) {
            const float value = texels.pixel(i % 8, i / 8).x();
            EXPECT_TRUE(value == 0 || value == 1) << value;
        }
    }
}

TEST_F(LitForwardRenderPassTest, mipLevelsFollowTheLongerSideOfAPixelInTheSetAndTransformThatAreRead)
{
    // One texel per pixel by the coordinates alone; transformed, eight in one direction, in which black and white mix.
    // In the largest level a pixel would read between two texels of one colour.
    const float texel = 1.0f / 64;
    const View view = wallView(QSize(64, 64));
    const QImage checker = checkerImage(64, Qt::black, Qt::white);
    for (const QVector2D &scale : {QVector2D(8, 1), QVector2D(1, 8), QVector2D(1, 1)}) {
        MeshData wall = wallMesh();
        for (const QVector2D &texCoord : qAsConst(wall.texCoords))
            wall.texCoords1.append(texCoord * scale + QVector2D(texel, texel));
        for (const bool isOfSet : {true, false}) {
            for (const bool hasMipmaps : {true, false}) {
                MaterialData material = coloured({1, 1, 1});
                material.mapKd = checker;
                // A wrap mode that makes no difference here, but needs mip levels computed by the shader.
                material.mapKdSampling.wrapV = hasMipmaps ? ImageSampling::Repeat : ImageSampling::MirroredRepeat;
                if (isOfSet)
                    material.mapKdSampling.uvSet = 1;
                else
                    material.mapKdSampling.transform =
                        QTransform(double(scale.x()), 0, 0, double(scale.y()), double(texel), double(texel));
                LitScene scene;
                scene.add(wall, material);
                const Image frame = draw(scene, view);
                const bool isGrey = scale != QVector2D(1, 1);
                const int grey = 64 * 64 - pixelsBeyond(frame, filled(64, 64, QVector4D(0.5f, 0.5f, 0.5f, 1)), 0.01);
                EXPECT_EQ(grey, isGrey ? 64 * 64 : 0)
                    << scale.x() << ' ' << scale.y() << ' ' << isOfSet << ' ' << hasMipmaps;
            }
        }
    }
}

TEST_F(LitForwardRenderPassTest, nearestMinifiedTexelsAreThoseOfOneLevel)
{
    // Between level 1, whose texels are black and white, and level 2, which is grey; closer to level 1.
    MaterialData material = coloured({1, 1, 1});
    material.mapKd = checkerImage(64, Qt::black, Qt::white);
    material.mapKdSampling.minification = ImageSampling::Nearest;
    LitScene scene;
    scene.add(wallMesh(), material);
    const Image frame = draw(scene, wallView(QSize(24, 24)));
    int black = 0, white = 0;
    for (int i = 0; i < 24 * 24; ++i) {
        black += frame.pixel(i % 24, i / 24).x() == 0;
        white += frame.pixel(i % 24, i / 24).x() == 1;
    }
    EXPECT_EQ(black + white, 24 * 24);
    EXPECT_GT(black, 200);
    EXPECT_GT(white, 200);
}

TEST_F(LitForwardRenderPassTest, aSecondSetThatIsNotThereIsAllZeros)
{
    MaterialData material = coloured({1, 1, 1});
    material.mapKd = QImage(2, 2, QImage::Format_RGB32);
    material.mapKd.fill(Qt::black);
    material.mapKd.setPixelColor(0, 1, QColor(255, 51, 0));
    material.mapKdSampling.magnification = ImageSampling::Nearest;
    material.mapKdSampling.uvSet = 1;
    glVertexAttrib4f(5, 0.6f, 0.7f, 0, 1);
    expectColour(drawWall(wallMesh(), material), QVector4D(1, 0.2f, 0, 1));
}

TEST_F(LitForwardRenderPassTest, opacityIsAShare)
{
    MaterialData material = coloured({0.5f, 0.4f, 0.3f});
    material.d = 1.6f;
    expectColour(drawWall(wallMesh(), material), QVector4D(0.5f, 0.4f, 0.3f, 1));
    material.d = -0.6f;
    expectColour(drawWall(wallMesh(), material), QVector4D());
}

TEST_F(LitForwardRenderPassTest, anExponentOfZeroLightsNoSurfaceThatFacesAway)
{
    MaterialData material = coloured({0.5f, 0.5f, 0.5f}, {0.4f, 0.4f, 0.4f}, 0);
    expectColour(drawWall(wallMesh(), material), QVector4D(0.84f, 0.84f, 0.84f, 1));
    material.isLitFromBothSides = false;
    QMatrix4x4 behind;
    behind.rotate(180, 0, 1, 0);
    expectColour(drawWall(wallMesh(), material, behind), QVector4D(0.075f, 0.075f, 0.075f, 1));
}

TEST_F(LitForwardRenderPassTest, verticesColourWhatTheyHave)
{
    MeshData wall = wallMesh();
    wall.colours = {{1, 0, 0, 1}, {0, 1, 0, 0.5f}, {0, 0, 1, 0.2f}, {1, 1, 1, 0}};
    MaterialData material = coloured({0.9f, 0.8f, 0.7f});
    material.d = 0.9f;
    LitScene scene;
    scene.add(wall, material);
    const View view = wallView(QSize(24, 24));
    EXPECT_LT(largestError(draw(scene, view), scene, view, {}, 0.8, 400), halfStep);
    // In the same model, a mesh without colours is white, as it is in a model without any colours.
    QMatrix4x4 left, right;
    left.translate(-0.5f, 0);
    left.scale(0.5f, 1);
    right.translate(0.5f, 0);
    right.scale(0.5f, 1);
    LitScene both;
    both.add(wall, material, left).add(wallMesh(), material, right);
    EXPECT_LT(largestError(draw(both, view), both, view, {}, 0.8, 400), halfStep);
    expectColour(drawWall(wallMesh(), material), QVector4D(0.81f, 0.72f, 0.63f, 0.9f));
}

TEST_F(LitForwardRenderPassTest, unlitSurfacesShowTheirBaseColourAlone)
{
    MaterialData material = coloured({0.3f, 0.6f, 0.9f}, {1, 1, 1}, 1);
    material.emission = QVector3D(1, 1, 1);
    material.isUnlit = true;
    QMatrix4x4 slanted;
    slanted.rotate(50, 0, 1, 0);
    slanted.scale(3);
    for (const bool isFixed : {false, true}) {
        pass->setInput(Port::FixedLight, isFixed);
        expectColour(drawWall(wallMesh(), material, slanted), QVector4D(0.3f, 0.6f, 0.9f, 1));
    }
}

TEST_F(LitForwardRenderPassTest, opaqueOnlyLeavesTransparentItemsOut)
{
    QMatrix4x4 nearer;
    nearer.translate(0, 0, -0.5f);
    MaterialData glass = coloured({0, 1, 0});
    glass.d = 0.5f;
    LitScene scene;
    scene.add(wallMesh(), coloured({1, 0, 0}));
    scene.add(wallMesh(), glass, nearer, GPUModel::Transparent);
    const View view = wallView(QSize(4, 4));
    expectColour(draw(scene, view).pixel(1, 1), QVector4D(0, 0.5f, 0, 0.5f));
    pass->setOpaqueOnly(true);
    expectColour(draw(scene, view).pixel(1, 1), QVector4D(1, 0, 0, 1));
    EXPECT_EQ(image(Port::Depth).at(1, 1)[0], 0.5f);
    pass->setOpaqueOnly(false);
    expectColour(draw(scene, view).pixel(1, 1), QVector4D(0, 0.5f, 0, 0.5f));
}

TEST_F(LitForwardRenderPassTest, leavesOutMarkedItems)
{
    LitScene scene;
    QMatrix4x4 left, right;
    left.translate(-0.5f, 0);
    left.scale(0.4f, 1);
    right.translate(0.5f, 0);
    right.scale(0.4f, 1);
    scene.add(wallMesh(), coloured({1, 1, 1}), left).add(wallMesh(), coloured({1, 1, 1}), right);
    const QSharedPointer<GPUModel> model = scene.build();
    QMatrix4x4 rightHalf;
    rightHalf.ortho(0, 1, -1, 1, -1, 1);
    model->frustumCull(rightHalf);
    const Image frame = draw(model, wallView(QSize(8, 8)));
    EXPECT_EQ(frame.pixel(2, 4), QVector4D());
    EXPECT_EQ(frame.pixel(6, 4), QVector4D(1, 1, 1, 1));
}

TEST_F(LitForwardRenderPassTest, aBackgroundShowsWhereTheModelIsNot)
{
    const LitScene scene = plainScene();
    const View view = perspectiveView();
    const Image alone = draw(scene, view);
    const Image ids = image(Port::Id);
    const Image depth = image(Port::Depth);
    Image speckles(view.size.width(), view.size.height());
    const QImage texels = speckledImage(view.size.width(), view.size.height(), 5);
    for (int y = 0; y < speckles.height; ++y) {
        for (int x = 0; x < speckles.width; ++x)
            speckles.setPixel(x, y, QVector4D(float(texels.pixelColor(x, y).redF()), 0.5f, 0.25f, 0.75f));
    }
    PooledTextures textures;
    Texture *const background = textures.take(TextureFormat::HighDynamicRange, speckles, 2);
    setTexture(Port::Background, background);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    const Image frame = draw(scene, view);
    EXPECT_EQ(PooledTextures::references(background), 1);
    int model = 0;
    double largest = 0;
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            const bool isModel = ids.at(x, y)[0] > 0;
            model += isModel ? 1 : 0;
            const QVector4D expected = isModel ? alone.pixel(x, y) : speckles.pixel(x, y);
            largest = std::max(largest, double((frame.pixel(x, y) - expected).length()));
        }
    }
    EXPECT_GT(model, 1000);
    EXPECT_LT(model, frame.width * frame.height - 1000);
    EXPECT_LT(largest, 2 * halfStep);
    EXPECT_EQ(maximumDifference(image(Port::Id), ids), 0);
    EXPECT_EQ(maximumDifference(image(Port::Depth), depth), 0);
}

TEST_F(LitForwardRenderPassTest, trianglesAreNumberedWhereThatIsAskedFor)
{
    const LitScene scene = plainScene();
    const View view = perspectiveView();
    const Image frame = draw(scene, view);
    const Image ids = image(Port::Id);
    pass->setTriangleIds(false);
    EXPECT_EQ(maximumDifference(draw(scene, view), frame), 0);
    EXPECT_EQ(texture(Port::Id), nullptr);
    EXPECT_TRUE(texture(Port::Depth));
    pass->setTriangleIds(true);
    EXPECT_EQ(maximumDifference(draw(scene, view), frame), 0);
    EXPECT_EQ(maximumDifference(image(Port::Id), ids), 0);
}

TEST_F(LitForwardRenderPassTest, isClearWithoutAModel)
{
    LitScene scene;
    scene.add(wallMesh(), coloured({1, 1, 1}));
    for (const QVariant &nothing : {QVariant(), QVariant::fromValue<GPUModel *>(nullptr), QVariant(5)}) {
        EXPECT_EQ(draw(scene, wallView(QSize(8, 8))).pixel(3, 3), QVector4D(1, 1, 1, 1));
        pass->setInput(Port::Geometry, nothing);
        glClearColor(1, 0.5f, 0.25f, 1);
        glClearDepth(0.25);
        pass->start(nullptr);
        EXPECT_EQ(maximumDifference(image(Port::Frame), Image(8, 8)), 0);
        EXPECT_EQ(image(Port::Id).at(3, 3)[0], 0);
        EXPECT_EQ(image(Port::Depth).at(3, 3)[0], 1);
    }
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(LitForwardRenderPassTest, hasNoOutputsWithoutAViewport)
{
    for (const QVariant &nothing : {QVariant(), QVariant(QRect(0, 0, 0, 5)), QVariant(QStringLiteral("no viewport"))}) {
        setViewport(QSize(4, 4));
        pass->start(nullptr);
        EXPECT_TRUE(texture(Port::Frame));
        pass->setInput(Port::Viewport, nothing);
        pass->start(nullptr);
        for (const int output : {Port::Frame, Port::Depth, Port::Id})
            EXPECT_FALSE(pass->output(output).isValid());
    }
}

TEST_F(LitForwardRenderPassTest, remakesItsTargetsWhenTheSizeChanges)
{
    expectTexturesFollowTheViewport(3, 3);
}

TEST_F(LitForwardRenderPassTest, leavesTheStateThatItSays)
{
    for (const GLenum capability : {GL_DEPTH_TEST, GL_CULL_FACE, GL_BLEND, GL_SCISSOR_TEST, GL_STENCIL_TEST})
        glEnable(capability);
    draw(plainScene(), perspectiveView());
    for (const GLenum capability : {GL_DEPTH_TEST, GL_CULL_FACE, GL_BLEND, GL_SCISSOR_TEST, GL_STENCIL_TEST})
        EXPECT_FALSE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(glInteger(GL_FRONT_FACE), GL_CCW);
}

TEST_F(LitForwardRenderPassTest, countsNoReferencesAndSkipClearsTheOutputs)
{
    setViewport(QSize(4, 4));
    pass->setNumOutputUsers(Port::Frame, 2);
    pass->start(nullptr);
    Texture *const frame = texture(Port::Frame);
    EXPECT_EQ(TextureManager::Instance()->tempTextureRefs(frame), -1);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0);
    pass->skip(nullptr);
    for (const int output : {Port::Frame, Port::Depth, Port::Id})
        EXPECT_FALSE(pass->output(output).isValid());
    pass->start(nullptr);
    EXPECT_EQ(texture(Port::Frame), frame);
}

TEST_F(LitForwardRenderPassTest, takesItsObjectsAlong)
{
    LitScene scene;
    scene.add(wallMesh(), coloured({1, 1, 1}));
    const QSharedPointer<GPUModel> model = scene.build();
    // Creates what the model itself creates when it is first drawn.
    LitForwardRenderPass other;
    other.setInput(Port::Viewport, QRect(0, 0, 4, 4));
    other.setInput(Port::Geometry, QVariant::fromValue(model.data()));
    other.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    draw(model, wallView(QSize(4, 4)));
    EXPECT_EQ(glObjectCounts().textures, before.textures + 3);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + 1);
    EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
    pass->teardown(nullptr);
    pass->teardownContextData(nullptr);
    pass.reset();
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(LitForwardRenderPassTest, readsOnlyTheImagesThatAModelHas)
{
    const auto samplersOf = [&](const MaterialData &material) {
        LitScene scene;
        scene.add(wallMesh(), material);
        int samplers = 0;
        const ItemDrawRecorder draws([&] { samplers = activeSamplers(GLuint(glInteger(GL_CURRENT_PROGRAM))); });
        draw(scene, wallView(QSize(4, 4)));
        return samplers;
    };
    MaterialData painted = coloured({1, 1, 1});
    painted.mapKd = speckledImage(4, 4);
    // The rows of items and surfaces are uniforms.
    EXPECT_EQ(samplersOf(coloured({1, 1, 1})), 0);
    EXPECT_EQ(samplersOf(painted), 1);
    painted.mapEmission = speckledImage(8, 8);
    EXPECT_EQ(samplersOf(painted), 2);
    EXPECT_EQ(samplersOf(coloured({1, 1, 1})), 0);
}

TEST_F(LitForwardRenderPassTest, rowsOfAHostReadAllImages)
{
    MaterialData painted = coloured({0.9f, 0.8f, 0.7f});
    painted.mapKd = speckledImage(4, 4);
    LitScene plain;
    plain.add(wallMesh(), coloured({1, 1, 1}));
    LitScene scene;
    scene.add(wallMesh(), painted);
    const View view = wallView(QSize(16, 16));
    const Image expected = draw(scene, view);

    const QSharedPointer<GPUModel> model = plain.build();
    InstanceDataCollection rows(QStringLiteral("SurfaceMaterial"));
    rows.setRowCount(1);
    const QPair<const char *, QVariant> values[] = {{"getBaseColour", painted.kd}, {"getOpacity", 1.0f},
        {"getShininess", painted.ns}, {"getBaseColourMap", model->addImage(painted.mapKd)},
        {"getBaseColourMapU", QVector3D(1, 0, 0)}, {"getBaseColourMapV", QVector3D(0, 1, 0)},
        {"getSurfaceFlags", 1 + 8}}; // Lit from both sides, blended.
    for (const auto &value : values)
        ASSERT_TRUE(rows.setValue(0, QString::fromLatin1(value.first), value.second)) << value.first;
    rows.bind(nullptr, nullptr);
    EXPECT_EQ(maximumDifference(draw(model, view), expected), 0);
    rows.unbind(nullptr, nullptr);
    EXPECT_GT(maximumDifference(draw(model, view), expected), 0.1) << "its own row has no image";
}

TEST_F(LitForwardRenderPassTest, drawsAlikeOnADriverOfSixteenUnitsAStage)
{
    MaterialData first = coloured({1, 1, 1}, {0.5f, 0.5f, 0.5f}, 4);
    MaterialData second = first;
    fillAllImageArrays(&first, &second, [](int size) { return speckledImage(size, size, unsigned(size)); });
    LitScene scene;
    scene.add(boxMesh(), first, placed({-1, 0, 0})).add(boxMesh(), second, placed({1, 0, 0}));
    const View view = perspectiveView();
    const Image expected = draw(scene, view);
    EXPECT_GT(pixelsBeyond(expected, Image(view.size.width(), view.size.height()), 0.1), 100);
    m_model.clear();
    pass.reset();
    {
        const DriverClaims claims({}, 0, {}, 16);
        QString error;
        const std::unique_ptr<HeadlessContext> modest = HeadlessContext::create(&error);
        ASSERT_TRUE(modest) << qPrintable(error);
        ASSERT_TRUE(modest->makeCurrent());
        EXPECT_EQ(FixedTextureUnits::unitOf(FixedTextureUnits::samplers().first()), 47);
        pass = std::make_unique<LitForwardRenderPass>();
        int samplers = 0;
        const ItemDrawRecorder draws([&] { samplers = activeSamplers(GLuint(glInteger(GL_CURRENT_PROGRAM))); });
        EXPECT_EQ(maximumDifference(draw(scene, view), expected), 0);
        EXPECT_EQ(samplers, 6) << "six arrays of images";
        // The rows of a host lie in buffers, which take a unit each.
        InstanceDataCollection matrices(QStringLiteral("InstanceInfo"));
        InstanceDataCollection surfaces(QStringLiteral("SurfaceMaterial"));
        matrices.bind(nullptr, nullptr);
        surfaces.bind(nullptr, nullptr);
        draw(scene, view);
        EXPECT_EQ(samplers, 8) << "and the rows of items and surfaces";
        EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        surfaces.unbind(nullptr, nullptr);
        matrices.unbind(nullptr, nullptr);
        m_model.clear();
        pass.reset();
    }
    context().makeCurrent();
}

} // namespace Velmora::Kvz
