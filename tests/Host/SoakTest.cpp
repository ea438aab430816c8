// SPDX-License-Identifier: MIT
// Thousands of frames: nothing may grow.
#include "support/GLTest.h"

#include <GL/FramebufferObject.h>
#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>
#include <Host/ChainLibrary.h>
#include <Host/RenderChain.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QFile>

#include <epoxy/gl.h>
#include <unistd.h>

namespace Velmora::Kvz {

namespace {

/// Memory of this process that is resident, in bytes.
qint64 residentBytes()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    return file.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE);
}

QSharedPointer<GPUModel> createTriangle()
{
    GPUModelBuilder builder;
    MeshData mesh;
    mesh.positions = {QVector3D(-1, -1, 0), QVector3D(1, -1, 0), QVector3D(0, 1, 0)};
    mesh.normals = {QVector3D(0, 0, 1), QVector3D(0, 0, 1), QVector3D(0, 0, 1)};
    mesh.texCoords = {QVector2D(0, 0), QVector2D(1, 0), QVector2D(0, 1)};
    mesh.indices = {0, 1, 2};
    builder.addItem(builder.addMesh(mesh), builder.addMaterial({}));
    return builder.build();
}

struct Totals
{
    qint64 poolBytes;
    int poolReferences;
    GLObjectCounts objects;
    qint64 resident;
};

} // namespace

using SoakTest = GLTest;

TEST_F(SoakTest, tenThousandFramesWithResizesAndAToggledPassEndWhereTheyBegan)
{
    constexpr int frames = 10000;
    constexpr int cycle = 200; // After so many frames sizes and toggles are back where they were.
    const QRect viewports[] = {QRect(0, 0, 32, 24), QRect(0, 0, 48, 20), QRect(0, 0, 17, 33), QRect(0, 0, 64, 48)};

    ChainDescription description;
    QString error;
    ASSERT_TRUE(loadChain(QStringLiteral("deferred"), &description, &error)) << qPrintable(error);
    const QString toggled = QStringLiteral("over");
    ASSERT_GE(description.findPass(toggled), 0);
    const QSharedPointer<GPUModel> model = createTriangle();
    const std::unique_ptr<Texture> screen = makeTexture(Image(64, 48), GL_RGBA8);
    FramebufferObject framebuffer;
    framebuffer.bind();
    framebuffer.attach(screen.get(), GL_COLOR_ATTACHMENT0, 0);
    framebuffer.unbind();
    RenderChain chain;
    ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    chain.setModel(model.data());
    chain.setFramebuffer(&framebuffer);
    QMatrix4x4 camera;
    camera.translate(0, 0, -3);
    QMatrix4x4 projection;
    projection.perspective(45, 1, 0.1f, 10);
    chain.setCamera(camera, projection);
    ASSERT_TRUE(chain.addExport(QStringLiteral("soak"), {toggled, QStringLiteral("Kvz_KvzTexture*_Frame")}));

    const auto totals = [] {
        const TextureManager::PoolStatistics pool = TextureManager::Instance()->poolStatistics();
        return Totals{pool.bytes, pool.references, glObjectCounts(), residentBytes()};
    };
    Totals before{};
    for (int frame = 0; frame <= frames; ++frame) {
        chain.setViewport(viewports[frame / 50 % 4]);
        ASSERT_TRUE(chain.setEnabled(toggled, frame % 8 != 7));
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());
        if (frame % 8 == 0) {
            ASSERT_NE(chain.exportedTexture(QStringLiteral("soak")), nullptr);
        }
        if (frame == 5 * cycle)
            before = totals();
    }
    const Totals after = totals();

    EXPECT_GT(before.poolBytes, 0);
    EXPECT_EQ(after.poolBytes, before.poolBytes);
    EXPECT_EQ(after.poolReferences, before.poolReferences);
    EXPECT_EQ(after.objects.textures, before.objects.textures);
    EXPECT_EQ(after.objects.framebuffers, before.objects.framebuffers);
    EXPECT_EQ(after.objects.programs, before.objects.programs);
    EXPECT_EQ(after.objects.buffers, before.objects.buffers);
    EXPECT_EQ(after.objects.vertexArrays, before.objects.vertexArrays);
    // The allocator keeps what it freed, and the driver caches; a leak of one small texture a frame would be 100 times this.
    EXPECT_LT(after.resident - before.resident, 8 << 20);
}

} // namespace Velmora::Kvz
