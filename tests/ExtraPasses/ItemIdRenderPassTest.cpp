// SPDX-License-Identifier: MIT
#include "LitFixture.h"

#include <ExtraPasses/ItemIdRenderPass.h>
#include <ExtraPasses/SurfaceRenderPass.h>
#include <GL/TextureManager.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

class ItemIdRenderPassTest : public PassTest<ItemIdRenderPass>
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

    /// Number of the item plus 1, and of its triangle, at a pixel.
    QPair<int, int> at(const Image &ids, int x, int y) const { return {int(ids.at(x, y)[0]), int(ids.at(x, y)[1])}; }

    QSharedPointer<GPUModel> m_model;
};

constexpr int outputCount = 3;

/// A wall that fills the picture, this far behind the middle of clip space.
QMatrix4x4 behind(float distance)
{
    return placed({0, 0, distance});
}

const QPair<int, int> nothing(0, 0);

} // namespace

TEST_F(ItemIdRenderPassTest, itemsAndTrianglesAreWhatTheRaysMeet)
{
    LitScene scene = plainScene(); // Two of its items share a mesh, and one of these is mirrored.
    scene.add(boxMesh(), coloured({1, 0, 0}), placed({0.1f, 1.5f, 0}, 20, {0.5f, -0.4f, 0.5f}));
    glEnable(GL_BLEND);
    glEnable(GL_CULL_FACE);
    glColorMask(GL_FALSE, GL_TRUE, GL_TRUE, GL_FALSE);
    glDepthMask(GL_FALSE);
    glClearColor(1, 1, 1, 1);
    for (const View &view : {perspectiveView(), parallelView()}) {
        SCOPED_TRACE(view.name);
        draw(scene, view);
        const Image ids = image(Port::ItemId);
        const Image depth = image(Port::Depth);
        QVector<int> seen(scene.items().size(), 0);
        int wrong = 0;
        double depthError = 0;
        const LitReference reference(scene, view.projection, view.camera, view.size);
        reference.rays().compareClearPixels(0.75, 1000, [&](int x, int y, const RayHit &hit) {
            const QPair<int, int> expected = hit.isGeometry() ? QPair<int, int>(hit.item + 1, hit.triangle) : nothing;
            wrong += at(ids, x, y) != expected;
            depthError = std::max(depthError, std::abs(double(depth.at(x, y)[0]) - hit.depth));
            if (hit.isGeometry())
                ++seen[hit.item];
        });
        EXPECT_EQ(wrong, 0);
        EXPECT_LT(depthError, 2e-6);
        for (int item = 0; item < seen.size(); ++item)
            EXPECT_GT(seen[item], 10) << "item " << item;
    }
    EXPECT_EQ(texture(Port::ItemId)->internalFormat(0), GL_RG32UI);
    EXPECT_EQ(texture(Port::Depth)->internalFormat(0), GL_DEPTH_COMPONENT32F);
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(ItemIdRenderPassTest, depthsAreThoseOfTheSurfaces)
{
    const View view = perspectiveView();
    draw(plainScene(), view);
    SurfaceRenderPass surfaces;
    surfaces.setInput(SurfaceRenderPass::Viewport, QRect(QPoint(), view.size));
    surfaces.setInput(SurfaceRenderPass::ProjectionMatrix, view.projection);
    surfaces.setInput(SurfaceRenderPass::CameraMatrix, view.camera);
    surfaces.setInput(SurfaceRenderPass::Geometry, QVariant::fromValue(m_model.data()));
    surfaces.start(nullptr);
    const auto *const depth = surfaces.output(SurfaceRenderPass::Depth).value<Texture *>();
    EXPECT_EQ(maximumDifference(image(Port::Depth), readTexture(depth)), 0);
}

TEST_F(ItemIdRenderPassTest, itemsThatShareAMeshAreToldApart)
{
    // More than half floats could number; only the last one is in the picture.
    GPUModelBuilder builder;
    const int mesh = builder.addMesh(wallMesh());
    const int material = builder.addMaterial(coloured({1, 1, 1}));
    for (int i = 0; i < 3000; ++i)
        builder.addItem(mesh, material, placed({100, 0, 0}));
    const int last = builder.addItem(mesh, material);
    m_model = builder.build();
    setViewport(QSize(2, 2));
    setModel(m_model);
    pass->start(nullptr);
    EXPECT_EQ(at(image(Port::ItemId), 1, 1).first, last + 1);
}

TEST_F(ItemIdRenderPassTest, throughTheHolesOfAMaskOneSeesWhatLiesBehind)
{
    MaterialData fence = coloured({1, 1, 1});
    fence.mapKd = QImage(2, 1, QImage::Format_ARGB32);
    fence.mapKd.setPixelColor(0, 0, QColor(255, 255, 255, 120));
    fence.mapKd.setPixelColor(1, 0, QColor(255, 255, 255, 135));
    fence.mapKdSampling.magnification = ImageSampling::Nearest;
    fence.alphaMode = MaterialData::Mask;
    LitScene scene;
    scene.add(wallMesh(), fence);
    draw(scene, wallView(QSize(4, 2)));
    EXPECT_EQ(at(image(Port::ItemId), 0, 1), nothing);
    EXPECT_EQ(image(Port::Depth).at(0, 1)[0], 1);
    EXPECT_EQ(at(image(Port::ItemId), 3, 1).first, 1);
    EXPECT_EQ(image(Port::Depth).at(3, 1)[0], 0.5f);
    scene.add(wallMesh(), coloured({1, 0, 0}), behind(0.5f));
    draw(scene, wallView(QSize(4, 2)));
    EXPECT_EQ(at(image(Port::ItemId), 0, 1).first, 2);
    EXPECT_EQ(at(image(Port::ItemId), 3, 1).first, 1);
}

TEST_F(ItemIdRenderPassTest, transparentItemsCountUnlessTheyAreLeftOut)
{
    MaterialData glass = coloured({0, 1, 0});
    glass.d = 0;
    LitScene scene;
    scene.add(wallMesh(), coloured({1, 0, 0}));
    scene.add(wallMesh(), glass, behind(-0.5f), GPUModel::Transparent);
    for (const bool isOpaqueOnly : {true, false}) {
        pass->setOpaqueOnly(isOpaqueOnly);
        draw(scene, wallView(QSize(4, 4)));
        EXPECT_EQ(at(image(Port::ItemId), 1, 1).first, isOpaqueOnly ? 1 : 2);
    }
}

TEST_F(ItemIdRenderPassTest, falseColoursShowTheNumbers)
{
    const View view = perspectiveView();
    draw(plainScene(), view);
    const Image plain = image(Port::ItemId);
    EXPECT_FALSE(pass->output(Port::FalseColour).isValid());
    pass->setFalseColours(true);
    glClearColor(1, 0.5f, 0.25f, 1);
    pass->start(nullptr);
    const Image ids = image(Port::ItemId);
    const Image colours = image(Port::FalseColour);
    saveForViewing(colours, QStringLiteral("item-ids"));
    EXPECT_EQ(texture(Port::FalseColour)->internalFormat(0), GL_RGBA8);
    EXPECT_EQ(ids.data, plain.data);
    QMap<QPair<int, int>, QVector4D> colourOf;
    for (int y = 0; y < ids.height; ++y) {
        for (int x = 0; x < ids.width; ++x) {
            const QPair<int, int> id = at(ids, x, y);
            const QVector4D colour = colours.pixel(x, y);
            if (!colourOf.contains(id))
                colourOf.insert(id, colour);
            ASSERT_EQ(colour, colourOf[id]) << x << ' ' << y;
            ASSERT_EQ(colour.w(), id == nothing ? 0 : 1) << x << ' ' << y;
        }
    }
    EXPECT_EQ(colourOf.take(nothing), QVector4D());
    // Hues of items differ whatever the shades of their triangles are.
    const auto hue = [](const QVector4D &c) { return (c.toVector3D() / std::max({c.x(), c.y(), c.z()})); };
    for (auto a = colourOf.constBegin(); a != colourOf.constEnd(); ++a) {
        for (auto b = colourOf.constBegin(); b != colourOf.constEnd(); ++b) {
            const float distance = (hue(a.value()) - hue(b.value())).length();
            EXPECT_EQ(distance > 0.1f, a.key().first != b.key().first) << a.key().first << ' ' << b.key().first;
        }
    }
    EXPECT_GT(colourOf.size(), 50);

    pass->setFalseColours(false);
    pass->start(nullptr);
    EXPECT_FALSE(pass->output(Port::FalseColour).isValid());
    EXPECT_EQ(image(Port::ItemId).data, plain.data);
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(ItemIdRenderPassTest, culledItemsAreLeftOut)
{
    LitScene scene;
    scene.add(wallMesh(), coloured({1, 0, 0}), behind(-0.5f));
    scene.add(wallMesh(), coloured({0, 1, 0}), behind(0.5f));
    draw(scene, wallView(QSize(4, 4)));
    EXPECT_EQ(at(image(Port::ItemId), 1, 1).first, 1);
    // A frustum behind the first wall.
    QMatrix4x4 farHalf;
    farHalf.ortho(-1, 1, -1, 1, 0.2f, 1);
    QMatrix4x4 flipped; // In clip space of these walls depth grows with z; ortho() looks along -z.
    flipped.scale(1, 1, -1);
    m_model->frustumCull(farHalf * flipped);
    ASSERT_TRUE(m_model->isCulled(0));
    ASSERT_FALSE(m_model->isCulled(1));
    pass->start(nullptr);
    EXPECT_EQ(at(image(Port::ItemId), 1, 1).first, 2);
}

TEST_F(ItemIdRenderPassTest, isClearWithoutAModelAndHasNoOutputsWithoutAViewport)
{
    draw(plainScene(), perspectiveView());
    pass->setInput(Port::Geometry, QVariant());
    glClearColor(1, 0.5f, 0.25f, 1);
    pass->start(nullptr);
    const Image ids = image(Port::ItemId);
    const QSize size = perspectiveView().size;
    ASSERT_EQ(QSize(ids.width, ids.height), size);
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x)
            ASSERT_EQ(at(ids, x, y), nothing) << x << ' ' << y;
    }
    EXPECT_EQ(image(Port::Depth).at(30, 20)[0], 1);
    pass->setInput(Port::Viewport, QVariant());
    pass->start(nullptr);
    for (int output = 0; output < outputCount; ++output)
        EXPECT_FALSE(pass->output(output).isValid());
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(ItemIdRenderPassTest, remakesItsTargetsWhenTheSizeChanges)
{
    pass->setFalseColours(true);
    expectTexturesFollowTheViewport(outputCount, outputCount);
}

TEST_F(ItemIdRenderPassTest, leavesTheStateThatItSaysAndCountsNoReferences)
{
    pass->setNumOutputUsers(Port::ItemId, 2);
    pass->setFalseColours(true);
    draw(plainScene(), perspectiveView());
    for (const GLenum capability : {GL_DEPTH_TEST, GL_CULL_FACE, GL_BLEND, GL_SCISSOR_TEST, GL_STENCIL_TEST})
        EXPECT_FALSE(glFlag(capability));
    EXPECT_EQ(glInteger(GL_DRAW_FRAMEBUFFER_BINDING), 0);
    EXPECT_EQ(glInteger(GL_CURRENT_PROGRAM), 0);
    EXPECT_EQ(glInteger(GL_VERTEX_ARRAY_BINDING), 0);
    EXPECT_EQ(TextureManager::Instance()->poolStatistics().references, 0);
    const GLObjectCounts before = glObjectCounts();
    Texture *const ids = texture(Port::ItemId);
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(Port::ItemId).isValid());
    pass->start(nullptr);
    EXPECT_EQ(texture(Port::ItemId), ids);
    pass.reset();
    EXPECT_EQ(glObjectCounts().textures, before.textures - outputCount);
    EXPECT_EQ(glObjectCounts().programs, before.programs - 1);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers - 1);
}

} // namespace Velmora::Kvz
