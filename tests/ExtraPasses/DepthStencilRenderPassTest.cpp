// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/Meshes.h"
#include "support/PassTest.h"
#include "support/RayCastScene.h"

#include <ExtraPasses/DepthStencilRenderPass.h>
#include <GL/GLStatistics.h>
#include <Scene/GPUModel.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

using Port = DepthStencilRenderPass;

class DepthStencilRenderPassTest : public PassTest<DepthStencilRenderPass>
{
protected:
    const QSize size{120, 80};
    const QMatrix4x4 projection = perspective(size, 1, 20);
    const QMatrix4x4 camera = lookAt(QVector3D(2, 3, 6), QVector3D(0, 0, 0));

    void SetUp() override
    {
        GLTest::SetUp();
        pass->setInput(Port::Viewport, QRect(QPoint(4, 5), size));
        pass->setInput(Port::ProjectionMatrix, projection);
        pass->setInput(Port::CameraMatrix, camera);
    }
    Texture *depth() const { return pass->output(Port::Depth).value<Texture *>(); }
    void start(const QSharedPointer<GPUModel> &model)
    {
        pass->setInput(Port::Geometry, QVariant::fromValue(model.data()));
        pass->start(nullptr);
    }
};

/// A transparent ball that is half inside a box.
RayCastScene ballAndBox()
{
    MaterialData glass;
    glass.d = 0.3f;
    QMatrix4x4 aside;
    aside.translate(1.2f, 0.4f, 0.3f);
    RayCastScene scene;
    scene.add(boxMesh(), MaterialData()).add(sphereMesh(8), glass, aside);
    return scene;
}

} // namespace

TEST_F(DepthStencilRenderPassTest, marksWhatTheRaysMeet)
{
    const RayCastScene scene = ballAndBox();
    // State that an earlier pass may have left.
    glEnable(GL_CULL_FACE);
    glCullFace(GL_FRONT);
    glDepthMask(GL_FALSE);
    glStencilMask(0);
    glDepthFunc(GL_NEVER);
    glClearDepth(0.25);
    glClearStencil(9);
    start(scene.build());
    EXPECT_FALSE(glFlag(GL_STENCIL_TEST));
    glCullFace(GL_BACK);
    glDepthFunc(GL_LESS);
    glDisable(GL_DEPTH_TEST);

    ASSERT_TRUE(depth());
    EXPECT_EQ(depth()->internalFormat(0), GL_DEPTH24_STENCIL8);
    const Image image = readTexture(depth());
    const QVector<int> stencil = readStencil(depth());
    ASSERT_EQ(QSize(image.width, image.height), size);
    const RayCaster caster(scene.items(), projection, camera, size);
    int wrong = 0;
    double error = 0;
    caster.compareClearPixels(0.9, 1000, [&](int x, int y, const RayHit &hit) {
        wrong += stencil[y * size.width() + x] != (hit.isGeometry() ? 1 : 0);
        error = std::max(error, std::abs(double(image.at(x, y)[0]) - hit.depth));
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_LT(error, 2e-6) << "24 bits, and single precision";
}

TEST_F(DepthStencilRenderPassTest, leavesCulledItemsOut)
{
    const QSharedPointer<GPUModel> model = ballAndBox().build();
    start(model);
    const int covered = readStencil(depth()).count(1);
    QMatrix4x4 elsewhere;
    elsewhere.translate(100, 0, 0);
    model->frustumCull(projection * camera * elsewhere);
    ASSERT_EQ(model->culledCount(), 2);
    start(model);
    EXPECT_GT(covered, 0);
    EXPECT_EQ(readStencil(depth()).count(1), 0);
}

TEST_F(DepthStencilRenderPassTest, withoutAModelNothingIsCovered)
{
    start(ballAndBox().build());
    start(nullptr);
    EXPECT_EQ(readStencil(depth()), QVector<int>(size.width() * size.height(), 0));
    EXPECT_EQ(readTexture(depth()).at(60, 40)[0], 1.0f);
}

TEST_F(DepthStencilRenderPassTest, followsTheViewportAndDeletesWhatItMade)
{
    const QSharedPointer<GPUModel> model = ballAndBox().build();
    // Creates what the model itself creates when it is first drawn.
    DepthStencilRenderPass warm;
    warm.setInput(Port::Viewport, QRect(0, 0, 4, 4));
    warm.setInput(Port::Geometry, QVariant::fromValue(model.data()));
    warm.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    pass->setInput(Port::Viewport, QVariant());
    start(model);
    EXPECT_FALSE(depth());
    for (const QSize &other : {QSize(20, 10), QSize(10, 20)}) {
        pass->setInput(Port::Viewport, QRect(QPoint(), other));
        start(model);
        EXPECT_EQ(readTexture(depth()).height, other.height());
        EXPECT_EQ(glObjectCounts().textures, before.textures + 1);
    }
    pass->skip(nullptr);
    EXPECT_FALSE(pass->output(0).isValid());
    pass.reset();
    EXPECT_EQ(glObjectCounts().textures, before.textures);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    EXPECT_EQ(glObjectCounts().programs, before.programs);
}

} // namespace Velmora::Kvz
