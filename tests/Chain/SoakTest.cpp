// SPDX-License-Identifier: MIT
// Thousands of frames: nothing may grow.
#include "support/GLTest.h"

#include <Chain/ChainLibrary.h>
#include <Chain/RenderChain.h>
#include <GL/FramebufferObject.h>
#include <GL/GLStatistics.h>
#include <GL/TextureManager.h>
#include <Scene/GPUModelBuilder.h>

#include <QtCore/QFile>
#include <QtCore/QSet>

#include <epoxy/gl.h>
#include <unistd.h>

#include <algorithm>

namespace Velmora::Kvz {

namespace {

/// Resident memory of this process in bytes.
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

Totals totals()
{
    const TextureManager::PoolStatistics pool = TextureManager::Instance()->poolStatistics();
    return {pool.bytes, pool.references, glObjectCounts(), residentBytes()};
}

} // namespace

using SoakTest = GLTest;

TEST_F(SoakTest, tenThousandFramesWithResizesAndAToggledPassEndWhereTheyBegan)
{
    constexpr int frames = 10000;
    constexpr int cycle = 200; // After this many frames sizes and toggles repeat.
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
    // The allocator keeps freed memory and the driver caches; leaking one small texture per frame would take 100 times
    // as much.
#ifdef __SANITIZE_ADDRESS__
    constexpr int kept = 64 << 20; // Its quarantine keeps freed memory for a while.
#else
    constexpr int kept = 8 << 20;
#endif
    EXPECT_LT(after.resident - before.resident, kept);
}

// Blurs build and keep programs for each new radius; the chain must not.
TEST_F(SoakTest, twoThousandFramesOfDraggedBlurRadiiGrowNothing)
{
    constexpr int frames = 2000;
    constexpr int drag = 500; // Frames for the way up and back.
    constexpr float largestRadius = 6;
    constexpr int keptRadii = 4;
    const QStringList blurs = {QStringLiteral("gaussian"), QStringLiteral("glow"), QStringLiteral("masked")};

    ChainDescription description;
    QString error;
    ASSERT_TRUE(ChainDescription::fromJson(R"({"passes": [
        {"name": "back", "class": "GradientRenderPass"},
        {"name": "gaussian", "class": "GaussianBlurRenderPass",
            "connections": {"Kvz_KvzTexture*_Input": "back.Kvz_KvzTexture*_Frame"}},
        {"name": "glow", "class": "BlurAndCombineRenderPass",
            "values": {"Kvz_float_GlowThreshold": 0.3, "Kvz_float_GlowAmount": 1},
            "connections": {
                "Kvz_KvzTexture*_NormalFrame": "back.Kvz_KvzTexture*_Frame",
                "Kvz_KvzTexture*_BlurFrame": "gaussian.Kvz_KvzTexture*_Output"}},
        {"name": "masked", "class": "StencilBlurAndBlendRenderPass",
            "connections": {
                "Kvz_KvzTexture*_NormalFrame": "glow.Kvz_KvzTexture*_Output",
                "Kvz_KvzTexture*_BlurFrame": "back.Kvz_KvzTexture*_Frame"}}]})",
        &description, &error))
        << qPrintable(error);
    RenderChain chain;
    ASSERT_TRUE(chain.setDescription(description)) << qPrintable(chain.errorString());
    chain.setViewport(QRect(0, 0, 24, 16));

    const Totals before = totals();
    Totals largest{}; // During the first drag.
    QSet<int> radii; // In quarters.
    for (int frame = 0; frame < frames; ++frame) {
        const float share = float(frame % drag) / (drag / 2);
        const float radius = largestRadius * (share < 1 ? share : 2 - share);
        radii.insert(qRound(radius * 4));
        for (const QString &blur : blurs)
            ASSERT_TRUE(chain.setValue(blur, QStringLiteral("Kvz_float_BlurRadius"), radius));
        ASSERT_TRUE(chain.renderFrame()) << qPrintable(chain.errorString());

        const Totals now = totals();
        if (frame < drag) {
            largest.poolBytes = std::max(largest.poolBytes, now.poolBytes);
            largest.objects.textures = std::max(largest.objects.textures, now.objects.textures);
            largest.objects.programs = std::max(largest.objects.programs, now.objects.programs);
            largest.objects.framebuffers = std::max(largest.objects.framebuffers, now.objects.framebuffers);
            largest.objects.buffers = std::max(largest.objects.buffers, now.objects.buffers);
            largest.objects.vertexArrays = std::max(largest.objects.vertexArrays, now.objects.vertexArrays);
        }
        ASSERT_LE(now.poolBytes, largest.poolBytes) << frame;
        ASSERT_EQ(now.poolReferences, before.poolReferences) << frame;
        ASSERT_LE(now.objects.textures, largest.objects.textures) << frame;
        ASSERT_LE(now.objects.programs, largest.objects.programs) << frame;
        ASSERT_LE(now.objects.framebuffers, largest.objects.framebuffers) << frame;
        ASSERT_LE(now.objects.buffers, largest.objects.buffers) << frame;
        ASSERT_LE(now.objects.vertexArrays, largest.objects.vertexArrays) << frame;
        ASSERT_LE(chain.passObjectCount(), 1 + keptRadii * blurs.size()) << frame;
    }
    EXPECT_EQ(radii.size(), int(largestRadius * 4) + 1);
    // The gradient's program; per kept radius one program of the first blur, three of the second and two of the third.
    EXPECT_GT(largest.objects.programs, before.objects.programs);
    EXPECT_LE(largest.objects.programs - before.objects.programs, 1 + keptRadii * (1 + 3 + 2));
    chain.releaseContext();
    EXPECT_EQ(totals().objects.programs, before.objects.programs);
    EXPECT_EQ(totals().objects.framebuffers, before.objects.framebuffers);
}

} // namespace Velmora::Kvz
