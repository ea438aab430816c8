// SPDX-License-Identifier: MIT
// Transparent items in physically based light: both passes beside the one for opaque items, whose shading is the same.
#include "PhysicalFixture.h"
#include "support/DriverClaims.h"
#include "support/PooledTextures.h"

#include <ExtraPasses/FragmentListRenderPass.h>
#include <ExtraPasses/FragmentSortRenderPass.h>
#include <ExtraPasses/PhysicalForwardRenderPass.h>
#include <ExtraPasses/PhysicalListRenderPass.h>
#include <ExtraPasses/PhysicalWeightedRenderPass.h>
#include <GL/TextureManager.h>
#include <Scene/ShadowMapManager.h>

#include <QtGui/QImage>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

using Light = ShadowMapManager::Light;

/// What half floats round.
constexpr double halfTolerance = 2e-3;

class PhysicalLayersTest : public GLTest
{
protected:
    template <typename Pass> void feed(Pass &pass)
    {
        pass.setInput(Pass::Viewport, QRect(QPoint(), size));
        glViewport(0, 0, size.width(), size.height());
        pass.setInput(Pass::ProjectionMatrix, projection);
        pass.setInput(Pass::CameraMatrix, camera);
        pass.setInput(Pass::Geometry, QVariant::fromValue(model.data()));
    }
    template <typename Pass> void feedWithLight(Pass &pass)
    {
        feed(pass);
        giveEnvironment(pass, light, environment);
        if (lamp)
            pass.setInput(Pass::Lights, QVariantList{QVariant::fromValue<ShadowMapManager::Light *>(lamp)});
    }
    /// Frame and indirect share of the items as if they were opaque.
    Image opaque()
    {
        PhysicalForwardRenderPass pass;
        feedWithLight(pass);
        pass.start(nullptr);
        Image sum = readTexture(pass.output(PhysicalForwardRenderPass::Frame).value<Texture *>());
        const Image indirect = readTexture(pass.output(PhysicalForwardRenderPass::Indirect).value<Texture *>());
        for (int i = 0; i < sum.data.size(); ++i)
            sum.data[i] += i % 4 < 3 ? indirect.data[i] : 0;
        return sum;
    }
    Image weighted()
    {
        PhysicalWeightedRenderPass pass;
        feedWithLight(pass);
        return result(pass, 0);
    }
    Image listed()
    {
        FragmentListRenderPass lists;
        feed(lists);
        lists.start(nullptr);
        FragmentSortRenderPass sort;
        sort.setInput(FragmentSortRenderPass::Viewport, QRect(QPoint(), size));
        for (int i = 0; i < 3; ++i) // heads, nodes and their width
            sort.setInput(FragmentSortRenderPass::HeadPointersIn + i, lists.output(i));
        sort.start(nullptr);
        PhysicalListRenderPass pass;
        feedWithLight(pass);
        for (int i = 0; i < 3; ++i)
            pass.setInput(PhysicalListRenderPass::HeadPointers + i, sort.output(i));
        return result(pass, 0);
    }

    EnvironmentLightRenderPass light;
    QString environment = QStringLiteral("studio");
    Light *lamp = nullptr;
    QSize size{16, 12};
    QMatrix4x4 projection = perspective(QSize(16, 12), 0.5f, 20);
    QMatrix4x4 camera = lookAt(QVector3D(0.4f, 0.6f, 2.2f), QVector3D());
    QSharedPointer<GPUModel> model;

private:
    template <typename Pass> Image result(Pass &pass, int output)
    {
        pass.setNumOutputUsers(output, 1);
        pass.start(nullptr);
        auto *const frame = pass.output(output).template value<Texture *>();
        const Image image = readTexture(frame);
        TextureManager::Instance()->releaseTempTextureRef(frame, 1);
        EXPECT_EQ(PooledTextures::allReferences(), 0);
        return image;
    }
};

/// A material with all that lists have to rebuild: bumps, a second set of coordinates, vertex colours, layers.
MaterialData rich(float opacity)
{
    QImage bumps(8, 8, QImage::Format_RGB32);
    for (int i = 0; i < 64; ++i)
        bumps.setPixelColor(i % 8, i / 8, QColor(128 + (i % 8 - 4) * 15, 128 + (i / 8 - 4) * 12, 220));
    PhysicalMaterialData physical;
    physical.baseColour = {0.8f, 0.5f, 0.3f};
    physical.metallic = 0.3f;
    physical.roughness = 0.4f;
    physical.clearcoat = 0.5f;
    physical.clearcoatRoughness = 0.2f;
    physical.sheenColour = {0.2f, 0.2f, 0.3f};
    physical.sheenRoughness = 0.5f;
    physical.mapNormal = bumps;
    physical.mapNormalSampling.uvSet = 1;
    MaterialData material;
    material.physical = physical;
    material.alphaMode = MaterialData::Blend;
    material.d = opacity;
    return material;
}

MeshData richMesh(bool hasTangents)
{
    MeshData mesh = wallMesh();
    mesh.texCoords1 = mesh.texCoords;
    mesh.colours.fill(QVector4D(0.9f, 0.8f, 1, 1), mesh.positions.size());
    if (hasTangents)
        mesh.tangents.fill(QVector4D(1, 0, 0, 1), mesh.positions.size());
    return mesh;
}

/// The largest difference between layers and what they are of: colour by opacity, and the share that comes through.
double largestError(const Image &layers, const Image &whole, float opacity)
{
    double error = 0;
    for (int i = 0; i < whole.width * whole.height; ++i) {
        const QVector4D layer = layers.pixel(i % whole.width, i / whole.width);
        const QVector4D solid = whole.pixel(i % whole.width, i / whole.width);
        const bool isThere = solid.w() > 0;
        // The opaque pass multiplies by the opacity too.
        const QVector4D expected(solid.toVector3D(), isThere ? 1 - opacity : 1);
        for (int c = 0; c < 4; ++c)
            error = std::max(error, double(std::abs(layer[c] - expected[c])));
    }
    return error;
}

} // namespace

TEST_F(PhysicalLayersTest, oneLayerIsShadedAsOpaqueItemsAre)
{
    Light spot;
    spot.type = Light::Spot;
    spot.position = {1, 2, 3};
    spot.direction = {-1, -2, -3};
    spot.intensity = 20;
    for (const bool hasTangents : {false, true}) {
        GPUModelBuilder builder;
        builder.addItem(builder.addMesh(richMesh(hasTangents)), builder.addMaterial(rich(0.4f)), placed({}, 20),
            GPUModel::Transparent);
        model = builder.build();
        for (Light *const chosen : {static_cast<Light *>(nullptr), &spot}) {
            SCOPED_TRACE(::testing::Message()
                << (hasTangents ? "tangents" : "derivatives") << (chosen ? ", spot" : ", key light"));
            lamp = chosen;
            const Image whole = opaque();
            EXPECT_GT(pixelsBeyond(whole, Image(size.width(), size.height()), 0.05), 60);
            EXPECT_LT(largestError(weighted(), whole, 0.4f), halfTolerance * 4);
            // Derivatives of neighbouring pixels are worked out there, and differences of pixels here.
            EXPECT_LT(largestError(listed(), whole, 0.4f), hasTangents ? halfTolerance * 4 : 0.02);
        }
    }
}

TEST_F(PhysicalLayersTest, listsCompositeInOrder)
{
    environment = QStringLiteral("white");
    projection = QMatrix4x4();
    projection.ortho(-0.5f, 0.5f, -0.5f, 0.5f, -5, 5);
    camera = QMatrix4x4();
    GPUModelBuilder builder;
    const auto pane = [&](const QVector3D &colour, float opacity, float z) {
        MaterialData material;
        material.physical = PhysicalMaterialData();
        material.physical->baseColour = colour;
        material.isUnlit = true;
        material.d = opacity;
        builder.addItem(
            builder.addMesh(wallMesh()), builder.addMaterial(material), placed({0, 0, z}), GPUModel::Transparent);
    };
    pane({3, 0, 0}, 0.5f, 0); // brighter than white, as nothing is clamped
    pane({0, 1, 0}, 0.25f, 1);
    model = builder.build();
    const QVector4D pixel = listed().pixel(8, 6);
    EXPECT_NEAR(pixel.x(), 0.75 * 0.5 * 3, halfTolerance);
    EXPECT_NEAR(pixel.y(), 0.25, halfTolerance);
    EXPECT_NEAR(pixel.w(), 0.375, halfTolerance);
}

TEST_F(PhysicalLayersTest, listsNeedNoMoreThanSixteenTextures)
{
    MaterialData material = rich(0.5f);
    QVector<QImage> images;
    for (const int side : {2, 3, 5, 7, 11, 13}) {
        images.append(QImage(side, side, QImage::Format_RGB32));
        images.last().fill(QColor(160, 160, 255));
    }
    material.mapKd = images[0];
    material.mapKs = images[1];
    material.mapEmission = images[2];
    material.physical->mapMetallicRoughness = images[3];
    material.physical->mapNormal = images[4];
    material.physical->mapOcclusion = images[5];
    const DriverClaims claims({}, 0, {}, 16);
    QString error;
    const std::unique_ptr<HeadlessContext> modest = HeadlessContext::create(&error);
    ASSERT_TRUE(modest) << qPrintable(error);
    ASSERT_TRUE(modest->makeCurrent());
    GPUModelBuilder builder;
    builder.addItem(builder.addMesh(richMesh(true)), builder.addMaterial(material), {}, GPUModel::Transparent);
    model = builder.build();
    int samplers = 0;
    {
        const auto count = [&](auto...) {
            samplers = std::max(samplers, activeSamplers(GLuint(glInteger(GL_CURRENT_PROGRAM))));
        };
        GLCallRecorder<&epoxy_glDrawArrays> draws;
        draws.onCall = count;
        GLCallRecorder<&epoxy_glDrawElements> indexed;
        indexed.onCall = count;
        EXPECT_LT(listed().pixel(8, 6).w(), 0.6);
    }
    EXPECT_EQ(samplers, 16);
    model.clear();
    light.teardownContextData(nullptr);
    context().makeCurrent();
}

} // namespace Velmora::Kvz
