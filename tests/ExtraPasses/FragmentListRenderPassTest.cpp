// SPDX-License-Identifier: MIT
// Tests of suites with "Lists" in their names need a driver that has lists, those with "SingleNode" one that has none, as
// CMakeLists.txt provides; all others hold on both.
#include "LayerScene.h"

#include "support/Meshes.h"
#include "support/PassTest.h"
#include "support/PooledTextures.h"
#include "support/VisibilityLists.h"

#include <ExtraPasses/FragmentListRenderPass.h>
#include <ExtraPasses/FragmentSortRenderPass.h>
#include <ExtraPasses/LitListRenderPass.h>
#include <ExtraPasses/VisibilityOcclusionRenderPass.h>
#include <RenderPasses/VisibilityBufferRenderPass.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>

namespace Velmora::Kvz {

namespace {

/// Single precision adds less than 1e-6 to depths from 0 to 1; drivers that interpolate from vertices that they moved get a
/// little more room.
constexpr double depthTolerance = 3e-6;

/// Two nodes for each of its pixels are 4096: two rows of the node texture.
const QSize tile(64, 32);
constexpr int tilePixels = 64 * 32;

/// Walls that fill the picture, seen from the front, each an item, the nearest last.
QSharedPointer<GPUModel> walls(int count, quint64 flags = GPUModel::Transparent)
{
    GPUModelBuilder builder;
    const int mesh = builder.addMesh(wallMesh());
    const int material = builder.addMaterial(flatGlass({0.2f, 0.6f, 0.9f}, 0.1f));
    for (int i = 0; i < count; ++i) {
        QMatrix4x4 matrix;
        matrix.translate(0, 0, 0.5f - float(i) / float(count));
        builder.addItem(mesh, material, matrix, flags);
    }
    return builder.build();
}

/// A depth image with another depth in each pixel, some of them 0 and 1, most of them among the depths of the scene.
Image mixedDepth(const QSize &size)
{
    Image depth(size.width(), size.height(), 1);
    std::mt19937 random(9);
    for (float &value : depth.data) {
        const unsigned int kind = random() % 8;
        value = kind == 0 ? 0.0f : kind == 1 ? 1.0f : 0.85f + 0.08f * float(random() % 1000) / 1000;
    }
    return depth;
}

bool isLess(const ListNode &a, const ListNode &b)
{
    return std::tie(a.depthBits, a.draw, a.primitive) < std::tie(b.depthBits, b.draw, b.primitive);
}

/// The nodes of a pixel whatever their order.
QVector<ListNode> setAt(const VisibilityLists &lists, int x, int y)
{
    QVector<ListNode> nodes = lists.at(x, y);
    std::sort(nodes.begin(), nodes.end(), isLess);
    return nodes;
}

/// The pixels whose lists have different nodes; all of them have to have the size of the first.
int differentLists(const VisibilityLists &a, const VisibilityLists &b)
{
    EXPECT_EQ(QSize(a.width(), a.height()), QSize(b.width(), b.height()));
    int different = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QVector<ListNode> first = setAt(a, x, y);
            const QVector<ListNode> second = setAt(b, x, y);
            different += !std::equal(first.begin(), first.end(), second.begin(), second.end(),
                [](const ListNode &one, const ListNode &other) { return one.hasPayloadOf(other); });
        }
    }
    return different;
}

class FragmentListRenderPassTest : public PassTest<FragmentListRenderPass>
{
protected:
    void SetUp() override
    {
        GLTest::SetUp();
        const std::string suite = ::testing::UnitTest::GetInstance()->current_test_info()->test_suite_name();
        if (suite.find("Lists") != std::string::npos) {
            ASSERT_TRUE(hasVisibilityLists()) << "this driver has no lists";
        }
        if (suite.find("SingleNode") != std::string::npos) {
            ASSERT_FALSE(hasVisibilityLists()) << "hide an extension from the test: MESA_EXTENSION_OVERRIDE";
        }
    }

    void setCamera(const QMatrix4x4 &camera, const QMatrix4x4 &projection)
    {
        pass->setInput(Port::CameraMatrix, camera);
        pass->setInput(Port::ProjectionMatrix, projection);
    }
    /// Sets all inputs but the depth for the still life.
    void setScene(const LitScene &scene)
    {
        model = scene.build();
        setModel(model);
        setViewport(layerSceneSize);
        setCamera(layerSceneCamera, layerSceneProjection);
    }
    void setWalls(int count, const QSize &size = tile)
    {
        model = walls(count);
        setModel(model);
        setViewport(size);
    }
    /// Records, and waits for the GPU, so that the count is there in the next frame.
    VisibilityLists record()
    {
        pass->start(nullptr);
        glFinish();
        return VisibilityLists(*pass);
    }
    int nodeRows() const { return texture(Port::NodeBuffer)->height(0); }

    QSharedPointer<GPUModel> model;
    PooledTextures textures;
};

class FragmentListsTest : public FragmentListRenderPassTest
{ };

class FragmentSingleNodeTest : public FragmentListRenderPassTest
{ };

} // namespace

TEST_F(FragmentListsTest, recordsWhatRaysMeetBeforeTheDepth)
{
    const LitScene scene = layerScene();
    setScene(scene);
    const Image limits = mixedDepth(layerSceneSize);
    const std::unique_ptr<Texture> depth = makeTexture(limits, GL_DEPTH_COMPONENT32F);
    for (const bool hasDepth : {false, true}) {
        SCOPED_TRACE(hasDepth);
        setTexture(Port::Depth, hasDepth ? depth.get() : nullptr);
        const VisibilityLists lists = record();
        double depthError = 0;
        int wrongLists = 0;
        int longest = 0;
        int hidden = 0;
        int shown = 0;
        const RayCaster rays(scene.items(), layerSceneProjection, layerSceneCamera, layerSceneSize);
        rays.compareClearLists(0.6, 4000, [&](int x, int y, const QVector<RayHit> &hits) {
            const auto limit = double(*limits.at(x, y));
            std::map<std::pair<int, int>, double> expected;
            for (const RayHit &hit : hits) {
                if (!(scene.featureFlags(hit.item) & GPUModel::Transparent))
                    continue;
                if (hasDepth && std::abs(hit.depth - limit) < depthTolerance)
                    return; // Either is right.
                const bool isHidden = hasDepth && hit.depth >= limit;
                hidden += isHidden;
                if (!isHidden)
                    expected[{hit.item, hit.triangle}] = hit.depth;
            }
            const QVector<ListNode> list = lists.at(x, y);
            bool isRight = list.size() == int(expected.size());
            longest = std::max(longest, list.size());
            shown += list.size();
            for (const ListNode &node : list) {
                const auto found = expected.find({int(node.draw), int(node.primitive) - 1});
                isRight = isRight && found != expected.end();
                if (found == expected.end())
                    continue;
                depthError = std::max(depthError, std::abs(found->second - double(node.depth())));
                expected.erase(found);
            }
            wrongLists += !isRight;
        });
        EXPECT_EQ(wrongLists, 0);
        EXPECT_LE(depthError, depthTolerance);
        EXPECT_GE(longest, 10) << "the scene has too few layers to tell";
        EXPECT_GT(shown, 2000);
        EXPECT_EQ(hidden > 2000, hasDepth);
    }
}

TEST_F(FragmentListsTest, recordsWhatTheTwoOtherPassesDo)
{
    setScene(layerScene());
    VisibilityBufferRenderPass buffer(GPUModel::Transparent, GPUModel::Transparent);
    VisibilityOcclusionRenderPass visible;
    const QRect viewport(QPoint(), layerSceneSize);
    buffer.setInput(VisibilityBufferRenderPass::Viewport, viewport);
    buffer.setInput(VisibilityBufferRenderPass::CameraMatrix, layerSceneCamera);
    buffer.setInput(VisibilityBufferRenderPass::ProjectionMatrix, layerSceneProjection);
    buffer.setInput(VisibilityBufferRenderPass::Geometry, QVariant::fromValue(model.data()));
    const std::unique_ptr<Texture> depth = makeTexture(mixedDepth(layerSceneSize), GL_DEPTH_COMPONENT32F);
    buffer.start(nullptr);
    visible.setInput(VisibilityOcclusionRenderPass::Viewport, viewport);
    for (int i = 0; i < 3; ++i)
        visible.setInput(VisibilityOcclusionRenderPass::HeadPointersIn + i, buffer.output(i));
    visible.setInput(VisibilityOcclusionRenderPass::Depth, QVariant::fromValue(depth.get()));
    visible.start(nullptr);
    setTexture(Port::Depth, depth.get());
    const VisibilityLists ours = record();
    EXPECT_EQ(differentLists(ours, VisibilityLists(visible)), 0);
    EXPECT_GT(ours.nodeCount(), 2000);
}

TEST_F(FragmentSingleNodeTest, recordsTheNearestOfWhatRaysMeetBeforeTheDepth)
{
    const LitScene scene = layerScene();
    setScene(scene);
    const Image limits = mixedDepth(layerSceneSize);
    const std::unique_ptr<Texture> depth = makeTexture(limits, GL_DEPTH_COMPONENT32F);
    setTexture(Port::Depth, depth.get());
    const VisibilityLists lists = record();
    double depthError = 0;
    int wrongNodes = 0;
    int shown = 0;
    const RayCaster rays(scene.items(), layerSceneProjection, layerSceneCamera, layerSceneSize);
    rays.compareClearLists(0.6, 4000, [&](int x, int y, const QVector<RayHit> &hits) {
        const auto limit = double(*limits.at(x, y));
        QVector<RayHit> before;
        for (const RayHit &hit : byDepth(hits)) {
            if (!(scene.featureFlags(hit.item) & GPUModel::Transparent))
                continue;
            if (std::abs(hit.depth - limit) < depthTolerance)
                return;
            if (hit.depth < limit)
                before.append(hit);
        }
        if (before.size() > 1 && before[1].depth - before[0].depth < depthTolerance)
            return;
        const QVector<ListNode> list = lists.at(x, y);
        if (before.isEmpty()) {
            wrongNodes += !list.isEmpty();
            return;
        }
        const bool isRight = list.size() == 1 && int(list[0].place) == x + y * layerSceneSize.width() + 1
            && int(list[0].primitive) == before[0].triangle + 1 && int(list[0].draw) == before[0].item;
        wrongNodes += !isRight;
        ++shown;
        if (isRight)
            depthError = std::max(depthError, std::abs(before[0].depth - double(list[0].depth())));
    });
    EXPECT_EQ(wrongNodes, 0);
    EXPECT_LE(depthError, depthTolerance);
    EXPECT_GT(shown, 700);
    EXPECT_EQ(texture(Port::NodeBuffer)->internalFormat(0), GL_RGBA32I);
    EXPECT_EQ(pass->output(Port::NodeBufferWidth).toInt(), layerSceneSize.width());
}

TEST_F(FragmentListRenderPassTest, leavesOutWhatIsOpaqueCulledOrNotBeforeTheDepth)
{
    GPUModelBuilder builder;
    const int mesh = builder.addMesh(wallMesh());
    const int material = builder.addMaterial(MaterialData());
    const float places[] = {0.5f, 0, -0.5f}; // Depths of .75, .5 and .25.
    for (const float z : places) {
        QMatrix4x4 matrix;
        matrix.translate(0, 0, z);
        builder.addItem(mesh, material, matrix, z < 0 ? 0 : quint64(GPUModel::Transparent) | 2);
    }
    model = builder.build();
    setModel(model);
    setViewport(QSize(4, 3));
    const int all = hasVisibilityLists() ? 2 : 1;
    EXPECT_EQ(record().at(2, 1).size(), all);
    EXPECT_EQ(record().at(2, 1).last().depth(), hasVisibilityLists() ? 0.75f : 0.5f);
    struct
    {
        float depth;
        int nodes;
    } const cases[] = {{1, all}, {0.7f, 1}, {0.5f, 0}, {0, 0}};
    for (const auto &each : cases) {
        const std::unique_ptr<Texture> depth = makeTexture(
            [&] {
                Image image(4, 3, 1);
                image.data.fill(each.depth);
                return image;
            }(),
            GL_DEPTH_COMPONENT32F);
        setTexture(Port::Depth, depth.get());
        const VisibilityLists lists = record();
        EXPECT_EQ(lists.nodeCount(), 12 * each.nodes) << each.depth;
        if (each.nodes == 1) {
            EXPECT_EQ(lists.at(2, 1)[0].draw, 1u);
            EXPECT_EQ(lists.at(2, 1)[0].depth(), 0.5f);
        }
    }
    setTexture(Port::Depth, nullptr);
    QMatrix4x4 elsewhere;
    elsewhere.translate(10, 0);
    model->frustumCull(elsewhere);
    EXPECT_EQ(record().nodeCount(), 0);
    model->resetCulling();
    EXPECT_EQ(record().nodeCount(), 12 * all);
}

TEST_F(FragmentListRenderPassTest, restsWhereNothingIsTransparent)
{
    const QSharedPointer<GPUModel> opaque = walls(3, 2);
    const QSharedPointer<GPUModel> empty = GPUModelBuilder().build();
    Texture *const depth = textures.take(TextureFormat::DepthStencil, tile.width(), tile.height(), 1);
    setWalls(2);
    FragmentSortRenderPass sort;
    LitListRenderPass layers;
    layers.setInput(LitListRenderPass::Viewport, QRect(QPoint(), tile));
    layers.setInput(LitListRenderPass::Geometry, QVariant::fromValue(opaque.data()));
    sort.setInput(FragmentSortRenderPass::Viewport, QRect(QPoint(), tile));
    for (const bool isFirst : {true, false}) {
        const QVector<QPair<int, QVariant>> changes = {{Port::Geometry, QVariant::fromValue(opaque.data())},
            {Port::Geometry, QVariant::fromValue(empty.data())},
            {Port::Geometry, QVariant::fromValue<GPUModel *>(nullptr)}, {Port::Geometry, QVariant()},
            {Port::Viewport, QVariant()}, {Port::Viewport, QRect(0, 0, 0, 5)}};
        for (const auto &[input, value] : changes) {
            setModel(model);
            setViewport(tile);
            if (!isFirst) {
                EXPECT_GT(record().nodeCount(), 0);
            }
            pass->setInput(input, value);
            setTexture(Port::Depth, depth);
            TextureManager::Instance()->addTempTextureRef(depth, 1);
            const GLObjectCounts before = glObjectCounts();
            GLCallRecorder<&epoxy_glBindFramebuffer> framebuffers;
            GLCallRecorder<&epoxy_glBindTexture> bindings;
            GLCallRecorder<&epoxy_glUseProgram> programs;
            GLCallRecorder<&epoxy_glGetIntegerv> queries;
            GLCallRecorder<&epoxy_glViewport> viewports;
            GLCallRecorder<&epoxy_glDisable> disables;
            GLCallRecorder<&epoxy_glDrawArrays> quads;
            GLCallRecorder<&epoxy_glClientWaitSync> waits;
            pass->start(nullptr);
            for (int i = 0; i < 3; ++i)
                sort.setInput(FragmentSortRenderPass::HeadPointersIn + i, pass->output(i));
            sort.start(nullptr);
            for (int i = 0; i < 3; ++i)
                layers.setInput(LitListRenderPass::HeadPointers + i, sort.output(i));
            layers.start(nullptr);
            EXPECT_TRUE(framebuffers.calls.empty() && bindings.calls.empty() && programs.calls.empty());
            EXPECT_TRUE(queries.calls.empty() && viewports.calls.empty() && disables.calls.empty());
            EXPECT_TRUE(quads.calls.empty() && waits.calls.empty());
            EXPECT_TRUE(glObjectCounts() == before);
            for (const int output : {Port::HeadPointers, Port::NodeBuffer}) {
                EXPECT_EQ(pass->output(output).userType(), qMetaTypeId<Texture *>());
                EXPECT_EQ(texture(output), nullptr);
            }
            EXPECT_EQ(pass->output(Port::NodeBufferWidth), QVariant(0));
            EXPECT_EQ(layers.output(LitListRenderPass::Frame).value<Texture *>(), nullptr);
            EXPECT_EQ(PooledTextures::references(depth), 1) << "given back";
            setTexture(Port::Depth, nullptr);
        }
    }
}

TEST_F(FragmentListsTest, hasRoomInTheFirstFrame)
{
    // One that fits, and one that has to be recorded again.
    for (const int layers : {2, 9, 100}) {
        SCOPED_TRACE(layers);
        pass = std::make_unique<FragmentListRenderPass>();
        setWalls(layers);
        GLCallRecorder<&epoxy_glFenceSync> fences;
        VisibilityLists lists = record();
        EXPECT_EQ(lists.nodeCount(), layers * tilePixels);
        EXPECT_EQ(lists.at(3, 4).size(), layers);
        EXPECT_EQ(lists.at(63, 31).size(), layers);
        EXPECT_EQ(fences.calls.size(), layers > 2 ? 2u : 1u);
        const int rows = nodeRows();
        fences.calls.clear();
        for (int frame = 0; frame < 6; ++frame)
            lists = record();
        EXPECT_EQ(lists.nodeCount(), layers * tilePixels);
        EXPECT_EQ(fences.calls.size(), 6u) << "one recording a frame";
        if (layers > 2) {
            EXPECT_EQ(nodeRows(), rows) << "with room to spare";
        }
    }
}

TEST_F(FragmentListsTest, growsBeforeItIsFull)
{
    setWalls(1);
    EXPECT_EQ(record().nodeCount(), tilePixels);
    EXPECT_EQ(nodeRows(), 2);
    struct
    {
        int layers, rows, rowsLater;
    } const steps[] = {{2, 2, 4}, {3, 4, 4}, {4, 4, 8}, {1, 8, 8}, {8, 8, 15}, {1, 15, 15}};
    for (const auto &step : steps) {
        SCOPED_TRACE(step.layers);
        setWalls(step.layers);
        EXPECT_EQ(record().nodeCount(), step.layers * tilePixels);
        EXPECT_EQ(nodeRows(), step.rows);
        EXPECT_EQ(record().nodeCount(), step.layers * tilePixels);
        EXPECT_EQ(nodeRows(), step.rowsLater);
    }
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(FragmentListsTest, tellsOfAFrameThatHadTooLittleRoomAndThenHasIt)
{
    setWalls(1);
    record();
    setWalls(7);
    const VisibilityLists lost = record();
    EXPECT_EQ(lost.nodeCount(), 4096) << "as many as there is room for";
    EXPECT_TRUE(log.messages().isEmpty());
    const VisibilityLists whole = record();
    const QStringList lines = log.takeWarnings();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].contains(QStringLiteral("had 14336 transparent fragments and room for 4096")))
        << qPrintable(lines[0]);
    EXPECT_TRUE(lines[0].contains(QStringLiteral("draw it again"))) << qPrintable(lines[0]);
    EXPECT_EQ(whole.nodeCount(), 7 * tilePixels);
    // What was there was right.
    int foreign = 0;
    for (int y = 0; y < tile.height(); ++y) {
        for (int x = 0; x < tile.width(); ++x) {
            const QVector<ListNode> right = setAt(whole, x, y);
            for (const ListNode &node : lost.at(x, y))
                foreign += !std::binary_search(right.begin(), right.end(), node, isLess);
        }
    }
    EXPECT_EQ(foreign, 0);
    EXPECT_EQ(record().nodeCount(), 7 * tilePixels);
    EXPECT_TRUE(log.takeWarnings().isEmpty());

    // Again later, it tells again.
    setWalls(30);
    record();
    EXPECT_EQ(record().nodeCount(), 30 * tilePixels);
    EXPECT_EQ(log.takeWarnings().size(), 1);
}

TEST_F(FragmentListsTest, countsEachFrameHoweverLateTheCountsArrive)
{
    // The fences of a GPU that is some frames behind.
    setWalls(1);
    record();
    GLCallRecorder<&epoxy_glClientWaitSync> waits;
    waits.replacement = [](GLsync, GLbitfield, GLuint64) { return GLenum(GL_TIMEOUT_EXPIRED); };
    setWalls(7);
    record();
    setWalls(1);
    QStringList lines;
    int frames = 0;
    for (; lines.isEmpty() && frames < 10; ++frames) {
        record();
        lines = log.takeWarnings();
    }
    ASSERT_EQ(lines.size(), 1) << "the one frame in between";
    EXPECT_EQ(frames, 4);
    EXPECT_TRUE(lines[0].contains(QStringLiteral("had 14336 "))) << qPrintable(lines[0]);
    for (frames = 0; frames < 10; ++frames)
        record();
    EXPECT_TRUE(log.takeWarnings().isEmpty());
}

TEST_F(FragmentListsTest, leavesNoLossUntold)
{
    for (const bool isEnd : {true, false}) {
        pass = std::make_unique<FragmentListRenderPass>();
        setWalls(1);
        record();
        setWalls(7);
        pass->start(nullptr);
        if (isEnd) {
            pass.reset();
        } else {
            setViewport(QSize(32, 64));
            EXPECT_EQ(record().nodeCount(), 7 * tilePixels) << "the first frame of a size has its room";
        }
        const QStringList lines = log.takeWarnings();
        ASSERT_EQ(lines.size(), 1);
        EXPECT_TRUE(lines[0].contains(QStringLiteral("had 14336 transparent fragments and room for 4096")))
            << qPrintable(lines[0]);
    }
}

TEST_F(FragmentListsTest, tellsOnceWhatNoTextureHasRoomFor)
{
    GLCallRecorder<&epoxy_glGetIntegerv> integers;
    integers.replacement = [&](GLenum name, GLint *value) {
        integers.forward(name, value);
        if (name == GL_MAX_TEXTURE_SIZE)
            *value = 4;
    };
    setWalls(7);
    EXPECT_EQ(record().nodeCount(), 8192);
    EXPECT_EQ(nodeRows(), 4);
    const QStringList lines = log.takeWarnings();
    ASSERT_EQ(lines.size(), 1) << "in the frame itself, which may be the only one";
    EXPECT_TRUE(lines[0].contains(QStringLiteral("had 14336 transparent fragments and room for 8192")))
        << qPrintable(lines[0]);
    EXPECT_TRUE(lines[0].contains(QStringLiteral("make the viewport smaller"))) << qPrintable(lines[0]);
    for (int frame = 0; frame < 3; ++frame)
        EXPECT_EQ(record().nodeCount(), 8192);
    EXPECT_TRUE(log.takeWarnings().isEmpty()) << "not in each frame";
    setWalls(3);
    record();
    record();
    setWalls(7);
    record();
    EXPECT_TRUE(log.takeWarnings().isEmpty());
    record();
    EXPECT_EQ(log.takeWarnings().size(), 1) << "after frames that fit, again";
}

TEST_F(FragmentListRenderPassTest, followsTheViewport)
{
    const int layers = hasVisibilityLists() ? 9 : 1;
    setWalls(9, QSize(16, 8));
    record();
    const GLObjectCounts before = glObjectCounts();
    QPointer<Texture> heads = texture(Port::HeadPointers);
    record();
    EXPECT_EQ(texture(Port::HeadPointers), heads) << "an unchanged size keeps it";
    for (const QSize &size : {QSize(15, 8), QSize(70, 40), QSize(40, 70), QSize(3, 90), QSize(16, 8)}) {
        SCOPED_TRACE(::testing::Message() << size.width() << " by " << size.height());
        setViewport(size);
        glViewport(0, 0, 2, 2); // The pass sets its own.
        const VisibilityLists lists = record();
        EXPECT_TRUE(heads.isNull());
        heads = texture(Port::HeadPointers);
        EXPECT_EQ(heads->internalFormat(0), GL_R32UI);
        EXPECT_EQ(QSize(lists.width(), lists.height()), size);
        EXPECT_EQ(lists.nodeCount(), layers * size.width() * size.height());
    }
    TextureManager::Instance()->deleteUnusedTempTextures();
    EXPECT_LE(glObjectCounts().textures, before.textures);
    EXPECT_TRUE(log.messages().isEmpty());
}

TEST_F(FragmentListRenderPassTest, sharesAModelWithAnotherPass)
{
    setScene(layerScene());
    FragmentListRenderPass other;
    const QSize half = layerSceneSize / 2;
    other.setInput(Port::Viewport, QRect(QPoint(), half));
    other.setInput(Port::CameraMatrix, layerSceneCamera);
    other.setInput(Port::ProjectionMatrix, layerSceneProjection);
    other.setInput(Port::Geometry, QVariant::fromValue(model.data()));
    const VisibilityLists alone = record();
    other.start(nullptr);
    const VisibilityLists otherAlone(other);
    EXPECT_GT(otherAlone.nodeCount(), 500);
    for (int frame = 0; frame < 3; ++frame) {
        pass->start(nullptr);
        other.start(nullptr);
        EXPECT_NE(texture(Port::NodeBuffer), other.output(Port::NodeBuffer).value<Texture *>());
        EXPECT_EQ(differentLists(VisibilityLists(*pass), alone), 0);
        EXPECT_EQ(differentLists(VisibilityLists(other), otherAlone), 0);
    }
}

TEST_F(FragmentListRenderPassTest, takesItsObjectsAlong)
{
    setWalls(9);
    record(); // Creates what the model, the device and the pool keep.
    const GLObjectCounts before = glObjectCounts();
    {
        FragmentListRenderPass other;
        other.setInput(Port::Viewport, QRect(QPoint(), tile));
        other.setInput(Port::Geometry, QVariant::fromValue(model.data()));
        for (int frame = 0; frame < 8; ++frame)
            other.start(nullptr);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1);
        EXPECT_EQ(glObjectCounts().textures, before.textures + (hasVisibilityLists() ? 2 : 3));
        EXPECT_EQ(glObjectCounts().framebuffers, before.framebuffers + (hasVisibilityLists() ? 3 : 1));
        other.teardownContextData(nullptr);
        EXPECT_EQ(glObjectCounts().programs, before.programs + 1) << "they live as long as the pass";
    }
    EXPECT_TRUE(glObjectCounts() == before);
    GLCallRecorder<&epoxy_glDeleteSync> deleted;
    GLCallRecorder<&epoxy_glFenceSync> made;
    {
        FragmentListRenderPass other;
        other.setInput(Port::Viewport, QRect(QPoint(), tile));
        other.setInput(Port::Geometry, QVariant::fromValue(model.data()));
        for (int frame = 0; frame < 8; ++frame)
            other.start(nullptr);
    }
    EXPECT_EQ(deleted.calls.size(), made.calls.size());
    // Without a context there is nothing to delete, and nothing to wait for.
    record();
    context().doneCurrent();
    pass.reset();
    ASSERT_TRUE(context().makeCurrent());
}

TEST_F(FragmentListRenderPassTest, leavesItsState)
{
    setWalls(3);
    const VisibilityLists expected = record();
    // All that could keep fragments from their lists.
    glEnable(GL_SCISSOR_TEST);
    glScissor(1, 1, 2, 2);
    glEnable(GL_BLEND);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_NEVER);
    glDepthMask(GL_FALSE);
    glClearDepth(0);
    glColorMask(GL_FALSE, GL_TRUE, GL_FALSE, GL_TRUE);
    glClearColor(1, 1, 1, 1);
    glViewport(1, 2, 3, 4);
    EXPECT_EQ(differentLists(record(), expected), 0);
    for (const GLenum flag : {GL_SCISSOR_TEST, GL_BLEND, GL_DEPTH_TEST})
        EXPECT_FALSE(glFlag(flag)) << flag;
    GLboolean mask[4];
    glGetBooleanv(GL_COLOR_WRITEMASK, mask);
    EXPECT_TRUE(mask[0] && mask[1] && mask[2] && mask[3]);
    GLint viewport[4];
    glGetIntegerv(GL_VIEWPORT, viewport);
    EXPECT_EQ(QRect(viewport[0], viewport[1], viewport[2], viewport[3]), QRect(QPoint(), tile));
    for (const GLenum binding :
        {GL_DRAW_FRAMEBUFFER_BINDING, GL_READ_FRAMEBUFFER_BINDING, GL_CURRENT_PROGRAM, GL_VERTEX_ARRAY_BINDING})
        EXPECT_EQ(glInteger(binding), 0) << binding;
    if (hasVisibilityLists()) {
        EXPECT_EQ(glInteger(GL_ATOMIC_COUNTER_BUFFER_BINDING), 0);
        GLint name = -1;
        glGetIntegeri_v(GL_ATOMIC_COUNTER_BUFFER_BINDING, 0, &name);
        EXPECT_EQ(name, 0);
        for (const GLuint unit : {0u, 1u}) {
            glGetIntegeri_v(GL_IMAGE_BINDING_NAME, unit, &name);
            EXPECT_EQ(name, 0) << unit;
        }
    }
    glDepthFunc(GL_LESS);
    glDepthMask(GL_TRUE);
    glClearDepth(1);
    glClearColor(0, 0, 0, 0);
}

TEST_F(FragmentListsTest, waitsForWhatReadTheNodesAndLetsOthersReadThem)
{
    setWalls(3);
    record();
    QVector<GLbitfield> before;
    QVector<GLbitfield> after;
    bool isDrawn = false;
    GLCallRecorder<&epoxy_glBindImageTexture> images;
    images.onCall = [&](GLuint, GLuint texture, GLint, GLboolean, GLint, GLenum, GLenum) { isDrawn = texture == 0; };
    GLCallRecorder<&epoxy_glMemoryBarrier> barriers;
    barriers.onCall = [&](GLbitfield bits) { (isDrawn ? after : before).append(bits); };
    pass->start(nullptr);
    ASSERT_EQ(before.size(), 1);
    EXPECT_TRUE(before[0] & GL_SHADER_IMAGE_ACCESS_BARRIER_BIT);
    GLbitfield bits = 0;
    for (const GLbitfield each : after)
        bits |= each;
    for (const GLbitfield each : {GL_TEXTURE_FETCH_BARRIER_BIT, GL_SHADER_IMAGE_ACCESS_BARRIER_BIT,
             GL_FRAMEBUFFER_BARRIER_BIT, GL_BUFFER_UPDATE_BARRIER_BIT})
        EXPECT_TRUE(bits & each) << each;
}

TEST_F(FragmentListRenderPassTest, givesBackTheDepth)
{
    setWalls(2);
    Texture *const depth = textures.take(TextureFormat::DepthStencil, tile.width(), tile.height(), 3);
    setTexture(Port::Depth, depth);
    for (int i = 0; i < 3; ++i)
        pass->setNumOutputUsers(i, 2);
    pass->start(nullptr);
    EXPECT_EQ(PooledTextures::references(depth), 2);
    EXPECT_EQ(PooledTextures::references(texture(Port::HeadPointers)), -1) << "its textures are its own";
    pass->skip(nullptr);
    EXPECT_EQ(PooledTextures::references(depth), 1);
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(pass->output(i).isValid());
    EXPECT_EQ(PooledTextures::allReferences(), 1);
}

} // namespace Velmora::Kvz
