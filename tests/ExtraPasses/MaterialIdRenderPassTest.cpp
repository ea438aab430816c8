// SPDX-License-Identifier: MIT
#include "support/Cameras.h"
#include "support/Meshes.h"
#include "support/PassTest.h"
#include "support/RayCast.h"

#include <ExtraPasses/MaterialIdRenderPass.h>
#include <GL/GLStatistics.h>
#include <Scene/GPUModel.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QRect>

#include <epoxy/gl.h>

namespace Velmora::Kvz {

namespace {

using Port = MaterialIdRenderPass;

class MaterialIdRenderPassTest : public PassTest<MaterialIdRenderPass>
{
protected:
    const QSize size{120, 80};
    const QMatrix4x4 projection = perspective(size, 1, 20);
    const QMatrix4x4 camera = lookAt(QVector3D(2, 3, 6), QVector3D(0, 0, 0));

    void SetUp() override
    {
        GLTest::SetUp();
        pass->setInput(Port::Viewport, QRect(QPoint(), size));
        pass->setInput(Port::ProjectionMatrix, projection);
        pass->setInput(Port::CameraMatrix, camera);
    }
    void start(const QSharedPointer<GPUModel> &model)
    {
        pass->setInput(Port::Geometry, QVariant::fromValue(model.data()));
        pass->start(nullptr);
    }
};

/// Three items: two of one material, and unused materials in between.
struct Scene
{
    GPUModelBuilder builder;
    QVector<RayCastItem> items;
    QVector<int> materials;

    Scene()
    {
        for (int i = 0; i < 300; ++i)
            builder.addMaterial(MaterialData());
        QMatrix4x4 stretched;
        stretched.translate(1.2f, 0.4f, 0.3f);
        stretched.scale(0.5f, 1.4f, 0.8f);
        QMatrix4x4 low;
        low.translate(-0.5f, -1.2f, 0);
        low.scale(3, 1, 3);
        add(boxMesh(), 7, QMatrix4x4());
        add(sphereMesh(8), 299, stretched);
        add(groundMesh(), 0, low);
        add(sphereMesh(6), 7, low);
    }

private:
    void add(const MeshData &mesh, int material, const QMatrix4x4 &matrix)
    {
        builder.addItem(builder.addMesh(mesh), material, matrix);
        items.append({mesh, matrix});
        materials.append(material);
    }
};

} // namespace

TEST_F(MaterialIdRenderPassTest, normalsIdsDepthAndStencilAreWhatTheRaysMeet)
{
    Scene scene;
    glEnable(GL_BLEND);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_FALSE);
    start(scene.builder.build());
    ASSERT_TRUE(texture(Port::Normal));
    EXPECT_EQ(texture(Port::Normal)->internalFormat(0), GL_RGBA32F);
    EXPECT_EQ(texture(Port::Depth)->internalFormat(0), GL_DEPTH24_STENCIL8);
    const Image normals = readTexture(texture(Port::Normal));
    const Image depth = readTexture(texture(Port::Depth));
    const QVector<int> stencil = readStencil(texture(Port::Depth));

    const RayCaster caster(scene.items, projection, camera, size);
    QVector<DoubleMatrix> normalMatrices;
    for (const RayCastItem &item : qAsConst(scene.items))
        normalMatrices.append((DoubleMatrix(camera) * DoubleMatrix(item.modelMatrix)).inverted().transposed());
    QVector<int> seen(scene.items.size(), 0);
    int wrong = 0;
    double normalError = 0;
    double depthError = 0;
    caster.compareClearPixels(0.85, 2000, [&](int x, int y, const RayHit &hit) {
        const float *texel = normals.at(x, y);
        const int expected = hit.isGeometry() ? scene.materials[hit.item] + 1 : 0;
        wrong += texel[3] != float(expected);
        wrong += stencil[y * size.width() + x] != (hit.isGeometry() ? 1 : 0);
        depthError = std::max(depthError, std::abs(double(depth.at(x, y)[0]) - hit.depth));
        if (!hit.isGeometry())
            return;
        ++seen[hit.item];
        const Vector3d normal = normalized(xyz(normalMatrices[hit.item] * withW(hit.normal, 0)));
        for (int k = 0; k < 3; ++k)
            normalError = std::max(normalError, std::abs(double(texel[k]) - normal[size_t(k)]));
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_LT(normalError, 2e-4) << "single precision, on vertices that drivers move by 1/512 pixel";
    EXPECT_LT(depthError, 2e-6);
    for (int item = 0; item < seen.size(); ++item)
        EXPECT_GT(seen[item], 50) << "item " << item;
    glDisable(GL_DEPTH_TEST);
}

TEST_F(MaterialIdRenderPassTest, withoutAModelImagesAreClear)
{
    Scene scene;
    start(scene.builder.build());
    start(nullptr);
    EXPECT_EQ(maximumDifference(readTexture(texture(Port::Normal)), filled(120, 80, QVector4D())), 0);
    EXPECT_EQ(readStencil(texture(Port::Depth)).count(0), 120 * 80);
}

TEST_F(MaterialIdRenderPassTest, followsTheViewportAndDeletesWhatItMade)
{
    Scene scene;
    const QSharedPointer<GPUModel> model = scene.builder.build();
    // Creates what the model itself creates when it is first drawn.
    MaterialIdRenderPass other;
    other.setInput(Port::Viewport, QRect(0, 0, 4, 4));
    other.setInput(Port::Geometry, QVariant::fromValue(model.data()));
    other.start(nullptr);
    const GLObjectCounts before = glObjectCounts();
    pass->setInput(Port::Viewport, QVariant());
    start(model);
    EXPECT_FALSE(texture(Port::Normal));
    for (const QSize &next : {QSize(20, 10), QSize(10, 20)}) {
        pass->setInput(Port::Viewport, QRect(QPoint(), next));
        start(model);
        EXPECT_EQ(readTexture(texture(Port::Normal)).height, next.height());
        EXPECT_EQ(glObjectCounts().textures, before.textures + 2);
    }
    pass.reset();
    EXPECT_EQ(glObjectCounts().textures, before.textures);
    EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers);
    EXPECT_EQ(glObjectCounts().programs, before.programs);
}

} // namespace Velmora::Kvz
