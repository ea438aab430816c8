// SPDX-License-Identifier: MIT
#include "PhysicalFixture.h"
#include "PhysicalReference.h"
#include "support/DriverClaims.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/PhysicalForwardRenderPass.h>
#include <RenderPasses/ShadowMapRenderPass.h>
#include <Scene/ShadowMapManager.h>

#include <QtGui/QImage>

#include <epoxy/gl.h>

#include <cmath>

namespace Velmora::Kvz {

namespace {

using Light = ShadowMapManager::Light;

constexpr double twoSteps = 2.0 / 255;

MaterialData physical(const PhysicalMaterialData &values)
{
    MaterialData material;
    material.physical = values;
    return material;
}

PhysicalMaterialData surface(const QVector3D &colour, float metallic, float roughness)
{
    PhysicalMaterialData values;
    values.baseColour = colour;
    values.metallic = metallic;
    values.roughness = roughness;
    return values;
}

QSharedPointer<GPUModel> modelOf(const MeshData &mesh, const MaterialData &material, const QMatrix4x4 &matrix = {})
{
    GPUModelBuilder builder;
    builder.addItem(builder.addMesh(mesh), builder.addMaterial(material), matrix);
    return builder.build();
}

/// A wall about the origin whose normal leans this far from the eye, in degrees, in parallel projection.
QMatrix4x4 leaning(float degrees)
{
    QMatrix4x4 matrix;
    matrix.rotate(degrees, 0, 1, 0);
    matrix.scale(4, 4, 1);
    return matrix;
}

QMatrix4x4 parallel()
{
    QMatrix4x4 projection;
    projection.ortho(-1, 1, -1, 1, -20, 20);
    return projection;
}

class PhysicalForwardRenderPassTest : public PassTest<PhysicalForwardRenderPass>
{
protected:
    /// Frame and indirect share together.
    Image draw(const QSharedPointer<GPUModel> &model, const QMatrix4x4 &projection, const QMatrix4x4 &camera = {},
        const QSize &size = QSize(4, 4))
    {
        m_model = model;
        setViewport(size);
        setModel(m_model);
        pass->setInput(Port::ProjectionMatrix, projection);
        pass->setInput(Port::CameraMatrix, camera);
        pass->start(nullptr);
        Image sum = image(Port::Frame);
        const Image indirect = image(Port::Indirect);
        for (int i = 0; i < sum.data.size(); ++i) {
            if (i % 4 < 3)
                sum.data[i] += indirect.data[i];
            else
                EXPECT_EQ(sum.data[i], indirect.data[i]) << "both have the opacity";
        }
        return sum;
    }
    QVector3D drawWall(const MaterialData &material, float degrees)
    {
        return draw(modelOf(wallMesh(), material, leaning(degrees)), parallel()).pixel(1, 1).toVector3D();
    }
    void shine(Light *lamp)
    {
        pass->setInput(Port::Lights, QVariantList{QVariant::fromValue<ShadowMapManager::Light *>(lamp)});
    }

    EnvironmentLightRenderPass light;
    QSharedPointer<GPUModel> m_model;
};

void expectNear(const QVector3D &colour, const QVector3D &expected, double tolerance, const char *what)
{
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(colour[i], expected[i], tolerance) << what << ", channel " << i;
}

QVector3D white(const QVector3D &)
{
    return {1, 1, 1};
}

/// Towards the eye of parallel rays, and the normal of leaning().
const QVector3D toEye(0, 0, 1);
QVector3D normalOf(float degrees)
{
    return leaning(degrees).mapVector(QVector3D(0, 0, 1)).normalized();
}

} // namespace

TEST_F(PhysicalForwardRenderPassTest, nothingIsLostOrMadeInAFurnace)
{
    giveEnvironment(*pass, light, QStringLiteral("white"));
    const QSize size(24, 24);
    const auto expectWhite = [&](const PhysicalMaterialData &values) {
        SCOPED_TRACE(::testing::Message() << "roughness " << values.roughness << ", metallic " << values.metallic);
        const Image frame =
            draw(modelOf(sphereMesh(8), physical(values)), perspective(size, 0.5f, 10), lookAt({0, 0, 3}, {}), size);
        int covered = 0;
        for (int i = 0; i < size.width() * size.height(); ++i) {
            const QVector4D pixel = frame.pixel(i % size.width(), i / size.width());
            covered += pixel.w() > 0;
            if (pixel.w() > 0)
                expectNear(pixel.toVector3D(), {1, 1, 1}, twoSteps, "pixel");
        }
        EXPECT_GT(covered, 200);
    };
    for (const float metallic : {0.0f, 0.4f, 1.0f}) {
        for (const float roughness : {0.0f, 0.1f, 0.3f, 0.6f, 1.0f})
            expectWhite(surface({1, 1, 1}, metallic, roughness));
    }
    PhysicalMaterialData layered = surface({1, 1, 1}, 0, 0.5f);
    layered.clearcoat = 0.8f;
    layered.clearcoatRoughness = 0.2f;
    layered.sheenColour = {1, 1, 1};
    layered.sheenRoughness = 0.5f;
    expectWhite(layered);
    EXPECT_EQ(light.output(EnvironmentLightRenderPass::LightsOut).toList().size(), 0) << "no key light";
}

TEST_F(PhysicalForwardRenderPassTest, coloursInAFurnaceAreTheIntegralOfTheBrdf)
{
    giveEnvironment(*pass, light, QStringLiteral("white"));
    PhysicalMaterialData tinted = surface({0.7f, 0.3f, 0.1f}, 0, 0.4f);
    tinted.refractiveIndex = 1.8f;
    tinted.specular = 0.7f;
    tinted.specularColour = {0.4f, 0.9f, 1};
    PhysicalMaterialData coated = surface({0.05f, 0.1f, 0.4f}, 0.2f, 0.8f);
    coated.clearcoat = 1;
    coated.clearcoatRoughness = 0.3f;
    PhysicalMaterialData cloth = surface({0.3f, 0.05f, 0.1f}, 0, 1);
    cloth.sheenColour = {0.5f, 0.6f, 0.9f};
    cloth.sheenRoughness = 0.6f;
    for (const PhysicalMaterialData &values :
        {surface({0.8f, 0.2f, 0.1f}, 0, 0.2f), surface({0.9f, 0.6f, 0.2f}, 1, 0.5f), surface({0.9f, 0.6f, 0.2f}, 1, 1),
            surface({0.6f, 0.6f, 0.2f}, 0.5f, 0.7f), tinted, coated, cloth}) {
        for (const float degrees : {0.0f, 40.0f, 75.0f}) {
            SCOPED_TRACE(::testing::Message() << "roughness " << values.roughness << " at " << degrees);
            const QVector3D expected = PhysicalReference(values).lit(normalOf(degrees), toEye, white);
            expectNear(drawWall(physical(values), degrees), expected, twoSteps, "colour");
        }
    }
}

TEST_F(PhysicalForwardRenderPassTest, lampsFollowTheFormulas)
{
    Light lamp;
    lamp.direction = QVector3D(-0.5f, -0.3f, -1);
    lamp.intensity = 2.5f;
    lamp.colour = {1, 0.8f, 0.5f};
    shine(&lamp);
    const QVector3D toLight = -lamp.direction.normalized();
    PhysicalMaterialData coated = surface({0.05f, 0.1f, 0.4f}, 0.2f, 0.8f);
    coated.clearcoat = 1;
    coated.clearcoatRoughness = 0.3f;
    PhysicalMaterialData cloth = surface({0.3f, 0.05f, 0.1f}, 0, 1);
    cloth.sheenColour = {0.5f, 0.6f, 0.9f};
    cloth.sheenRoughness = 0.6f;
    for (const PhysicalMaterialData &values :
        {surface({0.8f, 0.2f, 0.1f}, 0, 0.3f), surface({0.9f, 0.6f, 0.2f}, 1, 0.5f), coated, cloth}) {
        for (const float degrees : {0.0f, 20.0f, 60.0f}) {
            SCOPED_TRACE(::testing::Message() << "roughness " << values.roughness << " at " << degrees);
            const QVector3D expected =
                PhysicalReference(values).reflected(normalOf(degrees), toEye, toLight) * lamp.colour * lamp.intensity;
            const QVector3D drawn = drawWall(physical(values), degrees);
            expectNear(drawn, expected, 0.01 + 0.01 * double(expected.length()), "lamp");
            expectNear(image(Port::Indirect).pixel(1, 1).toVector3D(), {}, 0, "no surroundings");
        }
    }
    lamp.direction = {0.1f, 0, 1};
    expectNear(drawWall(physical(surface({1, 1, 1}, 0, 1)), 0), {}, 0, "a lamp behind the wall");
}

TEST_F(PhysicalForwardRenderPassTest, lightOfLampsFallsWithTheSquareOfTheDistance)
{
    PhysicalMaterialData matte = surface({1, 1, 1}, 0, 1);
    matte.specular = 0;
    Light lamp;
    lamp.type = Light::Point;
    lamp.range = 1000;
    lamp.intensity = float(M_PI);
    shine(&lamp);
    for (const float distance : {1.0f, 2.0f, 5.0f}) {
        lamp.position = {0, 0, distance};
        // In the middle of a picture of one pixel the light falls straight.
        const Image frame = draw(modelOf(wallMesh(), physical(matte), leaning(0)), parallel(), {}, QSize(1, 1));
        expectNear(frame.pixel(0, 0).toVector3D(), QVector3D(1, 1, 1) / (distance * distance),
            0.002 / double(distance * distance), "of pi candela");
    }
    lamp.range = 4;
    EXPECT_EQ(draw(m_model, parallel(), {}, QSize(1, 1)).pixel(0, 0).x(), 0) << "beyond its range";
    lamp.range = 1000;
    lamp.type = Light::Spot;
    lamp.direction = {0, 0, -1};
    EXPECT_NEAR(draw(m_model, parallel(), {}, QSize(1, 1)).pixel(0, 0).x(), 0.04, 0.001) << "in its cone";
    lamp.direction = {1, 0, -1};
    EXPECT_EQ(draw(m_model, parallel(), {}, QSize(1, 1)).pixel(0, 0).x(), 0) << "outside of it";
}

TEST_F(PhysicalForwardRenderPassTest, surroundingsAreMirroredAsRoughnessBlursThem)
{
    const OwnCaches caches;
    const auto surroundings = [](const QVector3D &d) {
        return QVector3D(0.6f + 0.3f * d.y(), 0.5f + 0.3f * d.x() * d.z(), 0.5f + 0.4f * std::sin(3 * d.x()) * d.y());
    };
    giveEnvironment(
        *pass, light, caches.folder.write(QStringLiteral("smooth.hdr"), radianceFile(256, 128, surroundings)));
    for (const float metallic : {0.0f, 1.0f}) {
        for (const float roughness : {0.0f, 0.2f, 0.5f, 1.0f}) {
            double error = 0;
            for (const float degrees : {-50.0f, -20.0f, 0.0f, 30.0f, 60.0f}) {
                const PhysicalMaterialData values = surface({0.8f, 0.7f, 0.6f}, metallic, roughness);
                const QVector3D expected = PhysicalReference(values).lit(normalOf(degrees), toEye, surroundings);
                error += double((drawWall(physical(values), degrees) - expected).length()) / std::sqrt(3.0) / 5;
            }
            // The eye is taken to be above the surface, which counts most for rough metal.
            EXPECT_LT(error, metallic > 0 ? 0.012 + 0.05 * double(roughness) : 0.015)
                << "roughness " << roughness << ", metallic " << metallic;
        }
    }
}

TEST_F(PhysicalForwardRenderPassTest, aMirrorShowsTheSurroundingsAndTheirRotation)
{
    const OwnCaches caches;
    const auto surroundings = [](const QVector3D &d) {
        return QVector3D(d.x() > 0 ? 1 : 0.25f, d.y() > 0 ? 1 : 0.25f, 0.5f);
    };
    const QString file = caches.folder.write(QStringLiteral("parts.hdr"), radianceFile(128, 64, surroundings));
    giveEnvironment(*pass, light, file);
    const MaterialData mirror = physical(surface({1, 1, 1}, 1, 0));
    // A mirror that leans by half the angle shows what lies aside.
    expectNear(drawWall(mirror, 40), {1, 0.625f, 0.5f}, 0.4, "to the right");
    EXPECT_NEAR(drawWall(mirror, 40).x(), 1, twoSteps);
    EXPECT_NEAR(drawWall(mirror, -40).x(), 0.25, twoSteps);
    light.setInput(EnvironmentLightRenderPass::EnvironmentRotation, 180.0f);
    giveEnvironment(*pass, light, file);
    EXPECT_NEAR(drawWall(mirror, 40).x(), 0.25, twoSteps);
    EXPECT_NEAR(drawWall(mirror, -40).x(), 1, twoSteps);
}

TEST_F(PhysicalForwardRenderPassTest, unlitSurfacesShowTheirColourExactly)
{
    giveEnvironment(*pass, light, QStringLiteral("white"));
    MaterialData material = physical(surface({0.25f, 0.5f, 0.75f}, 0, 1));
    material.isUnlit = true;
    expectNear(drawWall(material, 30), {0.25f, 0.5f, 0.75f}, 0, "unlit");
    expectNear(image(Port::Indirect).pixel(1, 1).toVector3D(), {}, 0, "nothing of it is indirect");
}

TEST_F(PhysicalForwardRenderPassTest, coloursAreDecodedAndNumbersAreNot)
{
    giveEnvironment(*pass, light, QStringLiteral("white"));
    QImage grey(4, 4, QImage::Format_RGB32);
    grey.fill(QColor(188, 188, 188));
    MaterialData painted = physical(surface({1, 1, 1}, 0, 1));
    painted.isUnlit = true;
    painted.mapKd = grey;
    const float linear = std::pow((188 / 255.0f + 0.055f) / 1.055f, 2.4f);
    expectNear(drawWall(painted, 0), {linear, linear, linear}, 5e-4, "sRGB");

    // Green is roughness and blue is metal, as they are; red is occlusion, of the indirect share alone.
    QImage data(4, 4, QImage::Format_RGB32);
    data.fill(QColor(51, 128, 255));
    MaterialData mapped = physical(surface({0.9f, 0.5f, 0.2f}, 1, 1));
    mapped.physical->mapMetallicRoughness = data;
    expectNear(
        drawWall(mapped, 40), drawWall(physical(surface({0.9f, 0.5f, 0.2f}, 1, 128 / 255.0f)), 40), 1e-3, "roughness");
    mapped = physical(surface({1, 1, 1}, 0, 1));
    mapped.physical->mapOcclusion = data;
    mapped.physical->occlusionStrength = 0.5f;
    Light lamp;
    lamp.direction = {0, 0, -1};
    shine(&lamp);
    const QVector3D whole = drawWall(physical(surface({1, 1, 1}, 0, 1)), 0);
    expectNear(drawWall(mapped, 0), whole - QVector3D(0.4f, 0.4f, 0.4f), 2e-3, "occlusion 0.2, by half");
}

TEST_F(PhysicalForwardRenderPassTest, materialsOfMtlFilesAreConverted)
{
    giveEnvironment(*pass, light, QStringLiteral("white"));
    MaterialData plain;
    plain.kd = {0.5f, 0.5f, 0.5f};
    plain.ks = {0.5f, 0.5f, 0.5f};
    plain.ns = 30;
    PhysicalMaterialData values = surface({1, 1, 1}, 0, 0.5f); // 2 / (30 + 2) is the fourth power of a half
    values.baseColour = linearFromSRgb(plain.kd);
    values.specular = 0.5f;
    expectNear(drawWall(plain, 50), drawWall(physical(values), 50), 1e-4, "converted");
    EXPECT_NEAR(values.baseColour.x(), 0.2140f, 1e-4);
}

TEST_F(PhysicalForwardRenderPassTest, bumpsLieAlikeWithTangentsAndWithout)
{
    Light lamp;
    lamp.direction = {0, 0, -1};
    shine(&lamp);
    QImage leans(4, 4, QImage::Format_RGB32);
    leans.fill(QColor(128 + 76, 128, 128 + 102)); // 0.6 to the right, 0.8 outwards
    PhysicalMaterialData values = surface({1, 1, 1}, 0, 1);
    values.specular = 0;
    values.mapNormal = leans;
    const auto normal = [&](const MeshData &mesh, const QMatrix4x4 &matrix = {}) {
        draw(modelOf(mesh, physical(values), matrix), parallel());
        return image(Port::Normal).pixel(1, 1).toVector3D();
    };
    MeshData bare = wallMesh();
    bare.tangents.clear();
    MeshData given = bare;
    given.tangents.fill(QVector4D(1, 0, 0, 1), given.positions.size());
    expectNear(normal(bare), {0.598f, 0, 0.803f}, 0.004, "derivatives");
    expectNear(normal(given), {0.598f, 0, 0.803f}, 0.004, "tangents");
    EXPECT_NEAR(image(Port::Frame).pixel(1, 1).x(), 0.803 / M_PI, 0.003) << "it is lit by the bump";
    // Mirrored coordinates turn it to the left; tangents that say so as well.
    for (QVector2D &texCoord : bare.texCoords)
        texCoord.setX(1 - texCoord.x());
    given.texCoords = bare.texCoords;
    given.tangents.fill(QVector4D(-1, 0, 0, -1), given.positions.size());
    expectNear(normal(bare), {-0.598f, 0, 0.803f}, 0.004, "mirrored, derivatives");
    expectNear(normal(given), {-0.598f, 0, 0.803f}, 0.004, "mirrored, tangents");
    values.normalScale = 0;
    expectNear(normal(bare), {0, 0, 1}, 1e-3, "a scale of 0");
    values.normalScale = 1;
    leans.fill(QColor(128, 128 + 76, 128 + 102)); // upwards
    values.mapNormal = leans;
    expectNear(normal(bare), {0, 0.598f, 0.803f}, 0.004, "up stays up");
    // Seen from behind, it is the same surface.
    QMatrix4x4 turned;
    turned.rotate(180, 0, 1, 0);
    expectNear(normal(bare, turned), {0, -0.598f, 0.803f}, 0.004, "from behind");
}

TEST_F(PhysicalForwardRenderPassTest, shadowsTakeFromLampsAndNotFromSurroundings)
{
    giveEnvironment(*pass, light, QStringLiteral("white"));
    Light lamp;
    lamp.direction = {0, -1, 0};
    lamp.intensity = float(M_PI);
    const QVariantList lamps{QVariant::fromValue<ShadowMapManager::Light *>(&lamp)};
    shine(&lamp);
    GPUModelBuilder builder;
    PhysicalMaterialData matte = surface({0.5f, 0.5f, 0.5f}, 0, 1);
    matte.specular = 0;
    const int material = builder.addMaterial(physical(matte));
    QMatrix4x4 ground;
    ground.scale(4);
    QMatrix4x4 above;
    above.translate(-2, 2, 0);
    builder.addItem(builder.addMesh(groundMesh()), material, ground);
    builder.addItem(builder.addMesh(boxMesh()), material, above);
    const QSharedPointer<GPUModel> model = builder.build();
    ShadowMapRenderPass maps;
    maps.setInput(ShadowMapRenderPass::Lights, lamps);
    maps.setInput(ShadowMapRenderPass::Geometry, QVariant::fromValue(model.data()));
    maps.setInput(ShadowMapRenderPass::MapSize, QSize(128, 128));
    maps.start(nullptr);
    // From below the box, over the ground.
    QMatrix4x4 camera;
    camera.lookAt(QVector3D(0, 0.9f, 0), QVector3D(), QVector3D(0, 0, -1));
    QMatrix4x4 projection;
    projection.ortho(-4, 4, -4, 4, 0, 10);
    for (const bool hasShadows : {false, true}) {
        pass->setInput(Port::ShadowMapData, hasShadows ? maps.output(0) : QVariant());
        draw(model, projection, camera, QSize(16, 16));
        const Image frame = image(Port::Frame);
        EXPECT_NEAR(frame.pixel(12, 8).x(), 0.5, 0.01) << "in the open";
        EXPECT_NEAR(frame.pixel(4, 8).x(), hasShadows ? 0 : 0.5, 0.01) << "below the box";
        EXPECT_NEAR(image(Port::Indirect).pixel(4, 8).x(), 0.5, 0.01) << "surroundings have no shadow";
    }
}

TEST_F(PhysicalForwardRenderPassTest, drawsItemIdsWhereAskedFor)
{
    pass->setItemIds(true);
    const QSharedPointer<GPUModel> model = modelOf(wallMesh(), physical(surface({1, 1, 1}, 0, 1)));
    QMatrix4x4 half;
    half.translate(1, 0, 0);
    draw(model, parallel(), half, QSize(4, 2));
    const Image ids = image(Port::ItemId);
    EXPECT_EQ(ids.pixel(3, 0).x(), 1);
    EXPECT_EQ(ids.pixel(0, 0).x(), 0) << "cleared";
}

TEST_F(PhysicalForwardRenderPassTest, givesWhatItSaysWithoutAModelAndWithoutAViewport)
{
    giveEnvironment(*pass, light, QStringLiteral("white"));
    pass->setNumOutputUsers(Port::Frame, 2);
    draw({}, parallel());
    EXPECT_EQ(maximumDifference(image(Port::Frame), Image(4, 4)), 0);
    EXPECT_EQ(image(Port::Depth).data[0], 1);
    EXPECT_FALSE(texture(Port::ItemId)) << "not asked for";
    EXPECT_EQ(PooledTextures::allReferences(), 0);
    setViewport(QSize(0, 0));
    pass->start(nullptr);
    for (const int output : {Port::Frame, Port::Indirect, Port::Depth, Port::Normal})
        EXPECT_FALSE(pass->output(output).isValid());
}

TEST_F(PhysicalForwardRenderPassTest, leavesTheStateThatItSaysAndTakesItsObjectsAlong)
{
    const QSharedPointer<GPUModel> model = modelOf(wallMesh(), physical(surface({1, 1, 1}, 0, 1)));
    PhysicalForwardRenderPass other; // Creates what the model itself creates when it is first drawn.
    other.setInput(Port::Viewport, QRect(0, 0, 4, 4));
    other.setInput(Port::Geometry, QVariant::fromValue(model.data()));
    other.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    for (const GLenum capability : {GL_DEPTH_TEST, GL_CULL_FACE, GL_BLEND, GL_SCISSOR_TEST, GL_STENCIL_TEST})
        glEnable(capability);
    draw(model, parallel());
    for (const GLenum capability : {GL_DEPTH_TEST, GL_CULL_FACE, GL_BLEND, GL_SCISSOR_TEST, GL_STENCIL_TEST})
        EXPECT_FALSE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    for (int unit = 0; unit < 16; ++unit) {
        glActiveTexture(GL_TEXTURE0 + GLenum(unit));
        EXPECT_EQ(glInteger(GL_TEXTURE_BINDING_BUFFER), 0) << unit;
        EXPECT_EQ(glInteger(GL_TEXTURE_BINDING_2D_ARRAY), 0) << unit;
    }
    pass->teardown(nullptr);
    pass->teardownContextData(nullptr);
    EXPECT_TRUE(glObjectCounts() == before);
    draw(model, parallel());
    EXPECT_EQ(image(Port::Frame).pixel(1, 1).w(), 1) << "it draws again after the context data went";
    pass.reset();
    EXPECT_TRUE(glObjectCounts() == before);
}

TEST_F(PhysicalForwardRenderPassTest, drawsOnADriverOfSixteenUnitsAStage)
{
    PhysicalMaterialData values = surface({1, 1, 1}, 0.5f, 0.5f);
    values.clearcoat = 0.5f;
    values.sheenColour = {0.5f, 0.5f, 0.5f};
    QVector<QImage> images;
    for (const int side : {2, 3, 5, 7, 11, 13}) {
        images.append(QImage(side, side, QImage::Format_RGB32));
        images.last().fill(QColor(160, 160, 255));
    }
    MaterialData material = physical(values);
    material.mapKd = images[0];
    material.mapKs = images[1];
    material.mapEmission = images[2];
    material.physical->mapMetallicRoughness = images[3];
    material.physical->mapNormal = images[4];
    material.physical->mapOcclusion = images[5];
    pass.reset();
    const DriverClaims claims({}, 0, {}, 16);
    QString error;
    const std::unique_ptr<HeadlessContext> modest = HeadlessContext::create(&error);
    ASSERT_TRUE(modest) << qPrintable(error);
    ASSERT_TRUE(modest->makeCurrent());
    {
        pass = std::make_unique<PhysicalForwardRenderPass>();
        EnvironmentLightRenderPass own;
        giveEnvironment(*pass, own, QStringLiteral("white"));
        int samplers = 0;
        GLCallRecorder<&epoxy_glDrawElements> draws;
        draws.onCall = [&](auto...) { samplers = activeSamplers(GLuint(glInteger(GL_CURRENT_PROGRAM))); };
        EXPECT_GT(drawWall(material, 20).x(), 0.1);
        EXPECT_LE(samplers, 16);
        EXPECT_EQ(samplers, 8) << "images, light, and the rows of surfaces; those of items are uniforms";
        m_model.clear();
        pass.reset();
    }
    context().makeCurrent();
}

} // namespace Velmora::Kvz
